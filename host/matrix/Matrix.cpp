// The host matrix API: a plain, single-allocation-per-array implementation.
//
// Numeric, logical and char arrays own one block, so creating a column of any size costs one
// allocation and no per-element work. Blocks come from Arrow's default memory pool: its
// allocator keeps freed pages for reuse, so converting column after column does not fault in
// fresh pages from the kernel each time (malloc maps and unmaps large blocks on every call).
// Large blocks of destroyed arrays are kept for the next arrays of their size (BlockCache.hpp).
// A numeric array may instead sit on memory that someone else owns (see vxCreateNumericMatrixOver).
// Cells own their elements; structures keep one value slot per (element, field).
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <arrow/memory_pool.h>

#include "host/except/MessageCatalog.hpp"
#include "host/matrix/BlockCache.hpp"
#include "host/matrix/Matrix.hpp"
#include "host/unicode/ustring.hpp"

namespace {

// Threads take the slots in turn; what is kept per slot is never shared by two busy threads.
constexpr size_t kSlots = 64;

size_t threadSlot() {
  static std::atomic<size_t> next{0};
  thread_local const size_t slot = next.fetch_add(1, std::memory_order_relaxed) % kSlots;
  return slot;
}

// A pool of Arrow's default kind for this thread's slot. Every allocation updates its pool's
// statistics, and threads that make many small arrays at once (a list column's rows) would
// queue for one pool's. The pools share one allocator, so a block may go back through any of
// them; they are never destroyed, as blocks may outlive any thread and reach the host's exit.
arrow::MemoryPool* dataPool() {
  static const auto* pools = [] {
    auto* made = new std::vector<std::unique_ptr<arrow::MemoryPool>>();
    for (size_t i = 0; i < kSlots; ++i) made->push_back(arrow::MemoryPool::CreateDefault());
    return made;
  }();
  return (*pools)[threadSlot()].get();
}

// A block of at least `bytes` (its size in *capacity), or NULL when there is no memory left.
// Large blocks come from the blocks that destroyed arrays left behind where one fits.
void* allocateData(size_t bytes, size_t* capacity) {
  if (bytes > static_cast<size_t>(std::numeric_limits<int64_t>::max())) return nullptr;
  if (bytes >= matrix::BlockCache::kMinBlockBytes) {
    if (uint8_t* kept = matrix::BlockCache::instance().take(bytes, capacity)) return kept;
  }
  uint8_t* block = nullptr;
  if (!dataPool()->Allocate(static_cast<int64_t>(bytes), &block).ok()) return nullptr;
  *capacity = bytes;
  return block;
}

void freeData(void* data, size_t capacity) {
  auto* block = static_cast<uint8_t*>(data);
  if (capacity >= matrix::BlockCache::kMinBlockBytes) {
    matrix::BlockCache::instance().give(block, capacity, dataPool());
  } else {
    dataPool()->Free(block, static_cast<int64_t>(capacity));
  }
}

}  // namespace

struct vxArray_tag {
  vxClassID classID = vxUNKNOWN_CLASS;
  bool complex = false;
  size_t m = 0;
  size_t n = 0;
  void* data = nullptr;              // numeric, logical, char
  size_t dataBytes = 0;              // size of the block at data; 0 when not ours
  void (*release)(void*) = nullptr;  // for data owned elsewhere: called once on destroy
  void* releaseContext = nullptr;
  bool borrowed = false;                // data owned elsewhere, with or without a release function
  std::vector<vxArray*> cells;          // cell elements, column-major
  std::vector<std::string> fieldNames;  // structures and objects
  std::vector<vxArray*> fieldValues;    // element-major: [element * nfields + field]
  std::string className;                // objects only

  ~vxArray_tag() {
    if (release != nullptr) {
      release(releaseContext);
    } else if (data != nullptr && !borrowed) {
      freeData(data, dataBytes);
    }
    for (vxArray* cell : cells) vxDestroyArray(cell);
    for (vxArray* value : fieldValues) vxDestroyArray(value);
  }
};

namespace {

// The count of arrays made, one per slot: threads would otherwise queue for one counter.
struct alignas(64) CountSlot {
  std::atomic<size_t> count{0};
};
CountSlot gAllocationCounts[kSlots];

void countAllocation() {
  gAllocationCounts[threadSlot()].count.fetch_add(1, std::memory_order_relaxed);
}

size_t numericElementSize(vxClassID classID) {
  switch (classID) {
    case vxDOUBLE_CLASS:
    case vxINT64_CLASS:
    case vxUINT64_CLASS:
      return 8;
    case vxSINGLE_CLASS:
    case vxINT32_CLASS:
    case vxUINT32_CLASS:
      return 4;
    case vxINT16_CLASS:
    case vxUINT16_CLASS:
    case vxCHAR_CLASS:
      return 2;
    case vxINT8_CLASS:
    case vxUINT8_CLASS:
    case vxLOGICAL_CLASS:
      return 1;
    default:
      return 0;
  }
}

bool isNumeric(vxClassID classID) { return classID >= vxDOUBLE_CLASS && classID <= vxUINT64_CLASS; }

bool isStructLike(const vxArray* array) {
  return array != nullptr && (array->classID == vxSTRUCT_CLASS || array->classID == vxOBJECT_CLASS);
}

bool multiplyOverflows(size_t a, size_t b) { return b != 0 && a > SIZE_MAX / b; }

vxArray* newArray(vxClassID classID, size_t m, size_t n) {
  if (multiplyOverflows(m, n)) return nullptr;
  auto* array = new (std::nothrow) vxArray_tag;
  if (array == nullptr) return nullptr;
  array->classID = classID;
  array->m = m;
  array->n = n;
  countAllocation();
  return array;
}

// One block for the whole data; zeroed on request.
vxArray* newDataArray(vxClassID classID, size_t m, size_t n, bool complex, bool zeroed) {
  vxArray* array = newArray(classID, m, n);
  if (array == nullptr) return nullptr;
  array->complex = complex;
  const size_t count = m * n * (complex ? 2 : 1);
  const size_t width = numericElementSize(classID);
  if (count > 0) {
    if (multiplyOverflows(count, width)) {
      delete array;
      return nullptr;
    }
    array->data = allocateData(count * width, &array->dataBytes);
    if (array->data == nullptr) {
      delete array;
      return nullptr;
    }
    if (zeroed) std::memset(array->data, 0, count * width);
  }
  return array;
}

vxArray* createNumeric(size_t m, size_t n, vxClassID classID, vxComplexity complexity,
                       bool zeroed) {
  if (!isNumeric(classID)) return nullptr;
  const bool complex = complexity == vxCOMPLEX;
  if (complex && classID != vxDOUBLE_CLASS && classID != vxSINGLE_CLASS) return nullptr;
  return newDataArray(classID, m, n, complex, zeroed);
}

vxArray* createStruct(vxClassID classID, size_t m, size_t n, int nfields, const char** fieldnames) {
  vxArray* array = newArray(classID, m, n);
  if (array == nullptr) return nullptr;
  for (int i = 0; i < nfields; ++i) {
    const std::string name = fieldnames[i];
    if (std::find(array->fieldNames.begin(), array->fieldNames.end(), name) !=
        array->fieldNames.end()) {
      delete array;
      return nullptr;
    }
    array->fieldNames.push_back(name);
  }
  array->fieldValues.assign(m * n * array->fieldNames.size(), nullptr);
  return array;
}

struct WarningLog {
  std::mutex mutex;
  std::vector<matrix::Warning> warnings;
  bool print = true;
};

WarningLog& warningLog() {
  static WarningLog log;
  return log;
}

}  // namespace

extern "C" {

vxArray* vxCreateNumericMatrix(size_t m, size_t n, vxClassID classid, vxComplexity complexity) {
  return createNumeric(m, n, classid, complexity, /*zeroed=*/true);
}

vxArray* vxCreateUninitNumericMatrix(size_t m, size_t n, vxClassID classid,
                                     vxComplexity complexity) {
  return createNumeric(m, n, classid, complexity, /*zeroed=*/false);
}

vxArray* vxCreateNumericMatrixOver(size_t m, size_t n, vxClassID classid, void* data,
                                   void (*release)(void*), void* context) {
  vxArray* array =
      (isNumeric(classid) && (data != nullptr || m * n == 0)) ? newArray(classid, m, n) : nullptr;
  if (array == nullptr) {
    // The caller handed the data over: let it go even when no array could be made.
    if (release != nullptr) release(context);
    return nullptr;
  }
  array->data = data;
  array->borrowed = true;
  array->release = release;
  array->releaseContext = context;
  return array;
}

vxArray* vxCreateDoubleMatrix(size_t m, size_t n, vxComplexity complexity) {
  return vxCreateNumericMatrix(m, n, vxDOUBLE_CLASS, complexity);
}

vxArray* vxCreateDoubleScalar(double value) {
  vxArray* array = vxCreateUninitNumericMatrix(1, 1, vxDOUBLE_CLASS, vxREAL);
  if (array != nullptr) *static_cast<double*>(array->data) = value;
  return array;
}

vxArray* vxCreateLogicalMatrix(size_t m, size_t n) {
  return newDataArray(vxLOGICAL_CLASS, m, n, false, /*zeroed=*/true);
}

vxArray* vxCreateLogicalScalar(bool value) {
  vxArray* array = vxCreateLogicalMatrix(1, 1);
  if (array != nullptr) *static_cast<vxLogical*>(array->data) = value;
  return array;
}

vxArray* vxCreateCellMatrix(size_t m, size_t n) {
  vxArray* array = newArray(vxCELL_CLASS, m, n);
  if (array == nullptr) return nullptr;
  try {
    array->cells.assign(m * n, nullptr);
  } catch (const std::bad_alloc&) {
    delete array;
    return nullptr;
  }
  return array;
}

vxArray* vxCreateStructMatrix(size_t m, size_t n, int nfields, const char** fieldnames) {
  return createStruct(vxSTRUCT_CLASS, m, n, nfields, fieldnames);
}

vxArray* vxCreateObjectMatrix(size_t m, size_t n, const char* classname, int nfields,
                              const char** fieldnames) {
  if (classname == nullptr) return nullptr;
  vxArray* array = createStruct(vxOBJECT_CLASS, m, n, nfields, fieldnames);
  if (array != nullptr) array->className = classname;
  return array;
}

vxArray* vxCreateStringFromUTF16(const vxChar* units, size_t n) {
  vxArray* array = vxCreateCharArray(1, n);
  if (array != nullptr && n > 0) std::memcpy(array->data, units, n * sizeof(vxChar));
  return array;
}

vxArray* vxCreateString(const char* utf8) {
  const std::u16string text = foundation::unicode::utf8_to_ustring(utf8 ? utf8 : "");
  return vxCreateStringFromUTF16(reinterpret_cast<const vxChar*>(text.data()), text.size());
}

vxArray* vxCreateCharArray(size_t m, size_t n) {
  return newDataArray(vxCHAR_CLASS, m, n, false, /*zeroed=*/true);
}

vxArray* vxCreateUninitCharArray(size_t m, size_t n) {
  return newDataArray(vxCHAR_CLASS, m, n, false, /*zeroed=*/false);
}

void vxDestroyArray(vxArray* array) { delete array; }

vxArray* vxDuplicateArray(const vxArray* array) {
  if (array == nullptr) return nullptr;
  vxArray* copy = newArray(array->classID, array->m, array->n);
  if (copy == nullptr) return nullptr;
  copy->complex = array->complex;
  copy->className = array->className;
  copy->fieldNames = array->fieldNames;
  const size_t bytes = vxGetNumberOfElements(array) * vxGetElementSize(array);
  if (array->data != nullptr && bytes > 0) {
    copy->data = allocateData(bytes, &copy->dataBytes);
    if (copy->data == nullptr) {
      delete copy;
      return nullptr;
    }
    std::memcpy(copy->data, array->data, bytes);
  }
  // Children are copied one by one; a failed copy leaves NULL, which destroy tolerates.
  bool failed = false;
  const auto duplicateAll = [&](const std::vector<vxArray*>& from, std::vector<vxArray*>& to) {
    to.assign(from.size(), nullptr);
    for (size_t i = 0; i < from.size(); ++i) {
      if (from[i] == nullptr) continue;
      to[i] = vxDuplicateArray(from[i]);
      failed = failed || to[i] == nullptr;
    }
  };
  duplicateAll(array->cells, copy->cells);
  duplicateAll(array->fieldValues, copy->fieldValues);
  if (failed) {
    delete copy;
    return nullptr;
  }
  return copy;
}

size_t vxGetM(const vxArray* array) { return array->m; }
size_t vxGetN(const vxArray* array) { return array->n; }
size_t vxGetNumberOfElements(const vxArray* array) { return array->m * array->n; }
bool vxIsEmpty(const vxArray* array) { return array->m == 0 || array->n == 0; }
vxClassID vxGetClassID(const vxArray* array) { return array->classID; }

const char* vxGetClassName(const vxArray* array) {
  switch (array->classID) {
    case vxCELL_CLASS:
      return "cell";
    case vxSTRUCT_CLASS:
      return "struct";
    case vxLOGICAL_CLASS:
      return "logical";
    case vxCHAR_CLASS:
      return "char";
    case vxDOUBLE_CLASS:
      return "double";
    case vxSINGLE_CLASS:
      return "single";
    case vxINT8_CLASS:
      return "int8";
    case vxUINT8_CLASS:
      return "uint8";
    case vxINT16_CLASS:
      return "int16";
    case vxUINT16_CLASS:
      return "uint16";
    case vxINT32_CLASS:
      return "int32";
    case vxUINT32_CLASS:
      return "uint32";
    case vxINT64_CLASS:
      return "int64";
    case vxUINT64_CLASS:
      return "uint64";
    case vxOBJECT_CLASS:
      return array->className.c_str();
    default:
      return "unknown";
  }
}

bool vxIsComplex(const vxArray* array) { return array->complex; }

size_t vxGetElementSize(const vxArray* array) {
  if (array->classID == vxCELL_CLASS || isStructLike(array)) return sizeof(vxArray*);
  return numericElementSize(array->classID) * (array->complex ? 2 : 1);
}

int vxSetDimensions(vxArray* array, size_t m, size_t n) {
  if (multiplyOverflows(m, n) || m * n != array->m * array->n) return 1;
  array->m = m;
  array->n = n;
  return 0;
}

void* vxGetData(const vxArray* array) {
  if (array->classID == vxCELL_CLASS) return const_cast<vxArray**>(array->cells.data());
  return array->data;
}

double* vxGetPr(const vxArray* array) {
  return array->classID == vxDOUBLE_CLASS ? static_cast<double*>(array->data) : nullptr;
}

vxLogical* vxGetLogicals(const vxArray* array) {
  return array->classID == vxLOGICAL_CLASS ? static_cast<vxLogical*>(array->data) : nullptr;
}

vxChar* vxGetChars(const vxArray* array) {
  return array->classID == vxCHAR_CLASS ? static_cast<vxChar*>(array->data) : nullptr;
}

int vxGetNumberOfFields(const vxArray* array) {
  return isStructLike(array) ? static_cast<int>(array->fieldNames.size()) : 0;
}

const char* vxGetFieldNameByNumber(const vxArray* array, int number) {
  if (!isStructLike(array) || number < 0 ||
      static_cast<size_t>(number) >= array->fieldNames.size()) {
    return nullptr;
  }
  return array->fieldNames[number].c_str();
}

int vxGetFieldNumber(const vxArray* array, const char* name) {
  if (!isStructLike(array) || name == nullptr) return -1;
  const auto found = std::find(array->fieldNames.begin(), array->fieldNames.end(), name);
  return found == array->fieldNames.end() ? -1
                                          : static_cast<int>(found - array->fieldNames.begin());
}

int vxAddField(vxArray* array, const char* name) {
  if (!isStructLike(array) || name == nullptr || *name == '\0') return -1;
  const int existing = vxGetFieldNumber(array, name);
  if (existing >= 0) return existing;
  const size_t oldCount = array->fieldNames.size();
  const size_t elements = vxGetNumberOfElements(array);
  std::vector<vxArray*> values(elements * (oldCount + 1), nullptr);
  for (size_t e = 0; e < elements; ++e) {
    std::copy_n(array->fieldValues.begin() + e * oldCount, oldCount,
                values.begin() + e * (oldCount + 1));
  }
  array->fieldValues.swap(values);
  array->fieldNames.push_back(name);
  return static_cast<int>(oldCount);
}

vxArray* vxGetField(const vxArray* array, size_t index, const char* name) {
  const int field = vxGetFieldNumber(array, name);
  if (field < 0 || index >= vxGetNumberOfElements(array)) return nullptr;
  return array->fieldValues[index * array->fieldNames.size() + field];
}

void vxSetField(vxArray* array, size_t index, const char* name, vxArray* value) {
  const int field = vxGetFieldNumber(array, name);
  if (field < 0 || index >= vxGetNumberOfElements(array)) {
    vxDestroyArray(value);  // ownership was handed over; do not leak it
    return;
  }
  vxArray*& slot = array->fieldValues[index * array->fieldNames.size() + field];
  if (slot != value) vxDestroyArray(slot);
  slot = value;
}

vxArray* vxGetCell(const vxArray* array, size_t index) {
  if (array->classID != vxCELL_CLASS || index >= array->cells.size()) return nullptr;
  return array->cells[index];
}

void vxSetCell(vxArray* array, size_t index, vxArray* value) {
  if (array->classID != vxCELL_CLASS || index >= array->cells.size()) return;
  array->cells[index] = value;
}

void vxReplaceCell(vxArray* array, size_t index, vxArray* value) {
  if (array->classID != vxCELL_CLASS || index >= array->cells.size()) {
    vxDestroyArray(value);
    return;
  }
  if (array->cells[index] != value) vxDestroyArray(array->cells[index]);
  array->cells[index] = value;
}

size_t vxGetStringLength(const vxArray* array) {
  return array->classID == vxCHAR_CLASS ? vxGetNumberOfElements(array) : 0;
}

size_t vxGetUTF16String(const vxArray* array, vxChar* buffer, size_t capacity) {
  if (array->classID != vxCHAR_CLASS) return static_cast<size_t>(-1);
  const size_t count = std::min(capacity, vxGetNumberOfElements(array));
  if (count > 0) std::memcpy(buffer, array->data, count * sizeof(vxChar));
  return count;
}

void vxWarningMsgId(const char* identifier, size_t nargs, const char* const* utf8args) {
  matrix::Warning warning;
  warning.identifier = identifier ? identifier : "";
  foundation::core::except::MessageArguments arguments;
  for (size_t i = 0; i < nargs; ++i) {
    warning.arguments.emplace_back(utf8args[i] ? utf8args[i] : "");
    arguments.emplace_back(warning.arguments.back());
  }
  warning.message = foundation::core::except::formatMessage(warning.identifier, arguments);
  WarningLog& log = warningLog();
  std::lock_guard<std::mutex> lock(log.mutex);
  if (log.print) {
    std::fprintf(stderr, "Warning: %s [%s]\n", warning.message.c_str(), warning.identifier.c_str());
  }
  log.warnings.push_back(std::move(warning));
}

}  // extern "C"

namespace matrix {

unique_array adoptNumeric(size_t m, size_t n, vxClassID classID, void* data,
                          std::shared_ptr<void> owner) {
  auto* holder = new (std::nothrow) std::shared_ptr<void>(std::move(owner));
  if (holder == nullptr) return nullptr;
  const auto release = [](void* context) { delete static_cast<std::shared_ptr<void>*>(context); };
  return unique_array(vxCreateNumericMatrixOver(m, n, classID, data, release, holder));
}

std::u16string toUString(const vxArray_tag* array) {
  if (array == nullptr || vxGetClassID(array) != vxCHAR_CLASS) {
    throw std::invalid_argument("matrix::toUString: the array is not a char array");
  }
  const auto* units = reinterpret_cast<const char16_t*>(vxGetChars(array));
  return std::u16string(units, units + vxGetNumberOfElements(array));
}

unique_array fromUString(const std::u16string& text) {
  return unique_array(
      vxCreateStringFromUTF16(reinterpret_cast<const vxChar*>(text.data()), text.size()));
}

std::vector<Warning> takeWarnings() {
  WarningLog& log = warningLog();
  std::lock_guard<std::mutex> lock(log.mutex);
  std::vector<Warning> taken;
  taken.swap(log.warnings);
  return taken;
}

void setPrintWarnings(bool print) {
  WarningLog& log = warningLog();
  std::lock_guard<std::mutex> lock(log.mutex);
  log.print = print;
}

size_t allocationCount() {
  size_t total = 0;
  for (const CountSlot& slot : gAllocationCounts)
    total += slot.count.load(std::memory_order_relaxed);
  return total;
}

}  // namespace matrix
