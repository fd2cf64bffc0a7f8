#include "tests/fuzz/FuzzInputs.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/except/Exception.hpp"
#include "host/matrix/Matrix.hpp"
#include "host/vfs/MemoryProvider.hpp"
#include "host/vfs/StreamProvider.hpp"
#include "toolbox/vantro/io/parquet/core/info/ParquetInfo.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupCount.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace vxfuzz {
namespace {

using foundation::core::except::IMsgIDException;
using vantro::io::parquet::core::info::ParquetInfo;
using vantro::io::parquet::core::read::RowGroupParquetReader;
using vantro::io::parquet::core::write::ParquetWriter;

// Inputs can declare thousands of row groups or variables; visiting a few of each finds the
// same faults without letting one input take seconds.
constexpr size_t kMaxRowGroups = 32;
constexpr size_t kMaxVariables = 32;

// Runs fn; a host exception is an acceptable outcome, so it is swallowed. Anything else
// propagates and ends the fuzzer with a report. Returns true when fn returned normally.
template <class Fn>
bool hostErrorsOnly(Fn&& fn) {
  try {
    fn();
    return true;
  } catch (const IMsgIDException&) {
    return false;
  }
}

// The "mem" scheme served by a fresh provider while it lives.
class ScopedMemoryFiles {
 public:
  ScopedMemoryFiles() { virtualiostream::registerProvider(u"mem", provider); }
  ~ScopedMemoryFiles() { virtualiostream::registerProvider(u"mem", nullptr); }
  ScopedMemoryFiles(const ScopedMemoryFiles&) = delete;
  ScopedMemoryFiles& operator=(const ScopedMemoryFiles&) = delete;

  const std::shared_ptr<virtualiostream::MemoryProvider> provider =
      std::make_shared<virtualiostream::MemoryProvider>();
};

// ---------------------------------------------------------------------------------------------
// Read side

void describe(const std::u16string& name) {
  const ParquetInfo info(name);
  // Everything is computed at construction; the footer accessors ask the open reader again.
  (void)info.getMetadata()->num_columns();
  (void)info.getSchemaManifest().schema_fields.size();
}

void readEveryRowGroup(const std::u16string& name) {
  RowGroupParquetReader probe(name, {});
  const double total = probe.getTotalNumRowGroups();
  std::vector<double> rowGroups;
  for (double g = 1; g <= total && rowGroups.size() < kMaxRowGroups; ++g) rowGroups.push_back(g);

  RowGroupParquetReader reader(name, rowGroups);
  hostErrorsOnly([&] {
    while (reader.hasdata()) (void)reader.read();
  });
  (void)reader.readFullFile();
}

void readStatistics(const std::u16string& name) {
  RowGroupParquetReader reader(name, {});
  const size_t numVariables = std::min(reader.getVariableNames().size(), kMaxVariables);
  std::vector<int> all;
  for (size_t v = 0; v < numVariables; ++v) {
    all.push_back(static_cast<int>(v));
    // One at a time too: an unfilterable variable must not hide the others.
    hostErrorsOnly([&] { (void)reader.getStatistics({static_cast<int>(v)}); });
  }
  (void)reader.getStatistics(all);
}

// ---------------------------------------------------------------------------------------------
// Write side

// The fuzz bytes, consumed front to back; zeros once they run out.
class Bytes {
 public:
  Bytes(const uint8_t* data, size_t size) : mData(data), mSize(size) {}

  uint8_t byte() { return mPos < mSize ? mData[mPos++] : 0; }
  bool flag() { return (byte() & 1) != 0; }
  // A number in [0, n).
  size_t below(size_t n) {
    if (n <= 1) return 0;
    const size_t raw = n <= 256 ? byte() : (size_t{byte()} << 8) | byte();
    return raw % n;
  }
  template <class T>
  T raw() {
    T value{};
    uint8_t buffer[sizeof(T)] = {};
    for (auto& b : buffer) b = byte();
    std::memcpy(&value, buffer, sizeof(T));
    return value;
  }
  // Mostly values that sit on edges: NaN, infinities, zero, negatives, huge and fractional.
  double number() {
    static const double kEdges[] = {0.0,
                                    1.0,
                                    -1.0,
                                    2.5,
                                    std::numeric_limits<double>::quiet_NaN(),
                                    std::numeric_limits<double>::infinity(),
                                    -std::numeric_limits<double>::infinity(),
                                    1e300,
                                    -1e300,
                                    9.3e18,
                                    4294967296.0,
                                    std::numeric_limits<double>::denorm_min()};
    const size_t pick = below(16);
    return pick < std::size(kEdges) ? kEdges[pick] : static_cast<double>(raw<int16_t>());
  }
  std::string text() {
    static const char* const kTexts[] = {"a",    "b",       "",      "a.b",
                                         "list", "element", "key",   "value",
                                         "Key",  "Value",   "x\xff", "\xc3\xa9t\xc3\xa9",
                                         "a b",  "Columns", "Names"};
    return kTexts[below(std::size(kTexts))];
  }

 private:
  const uint8_t* mData;
  size_t mSize;
  size_t mPos = 0;
};

matrix::unique_array own(vxArray_tag* array) { return matrix::unique_array(array); }

matrix::unique_array makeText(const std::string& utf8) { return own(vxCreateString(utf8.c_str())); }

// Rows-by-columns, usually a column vector but sometimes a row vector or a matrix.
struct Shape {
  size_t m;
  size_t n;
};
Shape pickShape(Bytes& in, size_t rows) {
  switch (in.below(8)) {
    case 0:
      return {1, rows};
    case 1:
      return {rows, 2};
    case 2:
      return {rows + 1, 1};
    default:
      return {rows, 1};
  }
}

matrix::unique_array makeNumeric(Bytes& in, Shape shape) {
  static const vxClassID kClasses[] = {
      vxDOUBLE_CLASS, vxSINGLE_CLASS, vxLOGICAL_CLASS, vxINT8_CLASS,  vxUINT8_CLASS, vxINT16_CLASS,
      vxUINT16_CLASS, vxINT32_CLASS,  vxUINT32_CLASS,  vxINT64_CLASS, vxUINT64_CLASS};
  const vxClassID classID = kClasses[in.below(std::size(kClasses))];
  const bool complex = classID == vxDOUBLE_CLASS && in.below(16) == 0;
  auto array =
      own(classID == vxLOGICAL_CLASS
              ? vxCreateLogicalMatrix(shape.m, shape.n)
              : vxCreateNumericMatrix(shape.m, shape.n, classID, complex ? vxCOMPLEX : vxREAL));
  auto* bytes = static_cast<uint8_t*>(vxGetData(array.get()));
  const size_t count = vxGetNumberOfElements(array.get()) * (complex ? 2 : 1);
  if (classID == vxDOUBLE_CLASS) {
    for (size_t i = 0; i < count; ++i) vxGetPr(array.get())[i] = in.number();
  } else if (classID == vxLOGICAL_CLASS) {
    for (size_t i = 0; i < count; ++i) vxGetLogicals(array.get())[i] = in.flag();
  } else {
    const size_t size = count * vxGetElementSize(array.get());
    for (size_t i = 0; i < size; ++i) bytes[i] = in.byte();
  }
  return array;
}

matrix::unique_array makeValue(Bytes& in, size_t rows, int depth);

// A host object of one of the converter's classes, with fields that may be missing, of the
// wrong class or of the wrong length.
matrix::unique_array makeObject(Bytes& in, size_t rows, int depth) {
  static const char* const kClasses[] = {"string",      "datetime", "duration",
                                         "categorical", "table",    "other"};
  static const char* const kFields[] = {"Data",       "Offsets",  "Missing", "Ticks",
                                        "Unit",       "TimeZone", "Kind",    "Codes",
                                        "Categories", "Ordered",  "Names",   "Columns"};
  static const char* const kUnits[] = {"s", "ms", "us", "ns", "day", "", "week"};
  static const char* const kKinds[] = {"timestamp", "date32", "date64", "duration",
                                       "time32",    "time64", "bogus"};
  const char* className = kClasses[in.below(std::size(kClasses))];
  const size_t numFields = in.below(std::size(kFields) + 1);
  std::vector<const char*> names;
  for (size_t f = 0; f < numFields; ++f) {
    const char* name = kFields[in.below(std::size(kFields))];
    if (std::find_if(names.begin(), names.end(),
                     [&](const char* n) { return std::strcmp(n, name) == 0; }) == names.end()) {
      names.push_back(name);
    }
  }
  auto object =
      own(vxCreateObjectMatrix(1, 1, className, static_cast<int>(names.size()), names.data()));
  for (const char* name : names) {
    matrix::unique_array value;
    if (std::strcmp(name, "Unit") == 0) {
      value = makeText(kUnits[in.below(std::size(kUnits))]);
    } else if (std::strcmp(name, "Kind") == 0) {
      value = makeText(kKinds[in.below(std::size(kKinds))]);
    } else if (std::strcmp(name, "TimeZone") == 0) {
      value = makeText(in.flag() ? "UTC" : in.text());
    } else if (std::strcmp(name, "Offsets") == 0) {
      // Offsets are where a hostile object hurts most: out of order, past the data, too few.
      value = own(vxCreateNumericMatrix(rows + in.below(3), 1, vxUINT64_CLASS, vxREAL));
      auto* offsets = static_cast<uint64_t*>(vxGetData(value.get()));
      uint64_t at = 0;
      for (size_t i = 0; i < vxGetNumberOfElements(value.get()); ++i) {
        at = in.below(8) == 0 ? in.raw<uint64_t>() : at + in.below(4);
        offsets[i] = at;
      }
    } else if (depth < 3 && in.below(4) == 0) {
      value = makeValue(in, rows, depth + 1);
    } else {
      value = makeNumeric(in, pickShape(in, rows));
    }
    if (in.below(8) != 0) vxSetField(object.get(), 0, name, value.release());
  }
  return object;
}

// A cell column: texts, byte vectors, nested values or null elements, one per row.
matrix::unique_array makeCell(Bytes& in, Shape shape, int depth) {
  auto cell = own(vxCreateCellMatrix(shape.m, shape.n));
  const size_t kind = in.below(4);
  for (size_t i = 0; i < vxGetNumberOfElements(cell.get()); ++i) {
    matrix::unique_array element;
    switch (in.below(8) == 0 ? 7 : kind) {
      case 0:
        element = makeText(in.text());
        break;
      case 1:
        element = own(vxCreateNumericMatrix(in.below(4), 1, vxUINT8_CLASS, vxREAL));
        break;
      case 2:
        if (depth < 3) element = makeValue(in, in.below(3), depth + 1);
        break;
      case 3:
        element = own(vxCreateDoubleMatrix(0, 0, vxREAL));  // the host's null element
        break;
      default:
        break;  // an empty (NULL) element
    }
    if (element) vxSetCell(cell.get(), i, element.release());
  }
  return cell;
}

// A table: a structure or "table" object with Names and Columns, either of which may be
// missing, of the wrong class or of the wrong length.
matrix::unique_array makeTable(Bytes& in, size_t rows, int depth) {
  const size_t numColumns = in.below(5);
  const size_t numNames = in.below(6) == 0 ? in.below(5) : numColumns;
  const char* fields[] = {"Names", "Columns"};
  const size_t form = in.below(8);
  const int numFields = (form == 0 || form == 3) ? 1 : 2;  // Names only, or Columns only
  auto table = form == 1 ? own(vxCreateObjectMatrix(1, 1, "table", numFields, fields))
                         : own(vxCreateStructMatrix(form == 2 ? 2 : 1, 1, numFields,
                                                    form == 3 ? fields + 1 : fields));
  auto names = own(vxCreateCellMatrix(1, numNames));
  for (size_t i = 0; i < numNames; ++i) {
    auto name = in.below(10) == 0 ? makeNumeric(in, {1, 1}) : makeText(in.text());
    if (in.below(10) != 0) vxSetCell(names.get(), i, name.release());
  }
  auto columns = own(vxCreateCellMatrix(1, numColumns));
  for (size_t i = 0; i < numColumns; ++i) {
    // Columns usually agree on their height; sometimes one does not.
    const size_t height = in.below(8) == 0 ? in.below(5) : rows;
    auto column = makeValue(in, height, depth + 1);
    if (column) vxSetCell(columns.get(), i, column.release());
  }
  if (form != 3 && vxGetFieldNumber(table.get(), "Names") >= 0) {
    vxSetField(table.get(), 0, "Names",
               in.below(12) == 0 ? makeText("a").release() : names.release());
  }
  if (vxGetFieldNumber(table.get(), "Columns") >= 0) {
    vxSetField(table.get(), 0, "Columns", columns.release());
  }
  return table;
}

matrix::unique_array makeValue(Bytes& in, size_t rows, int depth) {
  const size_t kind = depth >= 3 ? in.below(2) : in.below(12);
  switch (kind) {
    case 0:
    case 1:
    case 2:
      return makeNumeric(in, pickShape(in, rows));
    case 3:
      return own(vxCreateCharArray(rows, in.below(4)));
    case 4:
    case 5:
      return makeCell(in, pickShape(in, rows), depth);
    case 6:
    case 7:
      return makeObject(in, rows, depth);
    case 8:
      return makeTable(in, rows, depth);
    case 9:
      return own(vxCreateStructMatrix(rows, 1, 0, nullptr));
    case 10:
      return nullptr;
    default:
      return makeNumeric(in, {rows, 1});
  }
}

std::vector<std::u16string> makeNames(Bytes& in) {
  std::vector<std::u16string> names(in.below(5));
  for (auto& name : names) {
    const std::string text = in.text();
    name.assign(text.begin(), text.end());
  }
  return names;
}

template <size_t N>
std::vector<std::string> pickTexts(Bytes& in, const char* const (&choices)[N]) {
  std::vector<std::string> picked(in.below(5));
  for (auto& text : picked) text = choices[in.below(N)];
  return picked;
}

void setOptions(Bytes& in, ParquetWriter& writer) {
  static const char* const kCompression[] = {"snappy", "gzip",    "brotli",       "zstd",
                                             "lz4",    "lz4_raw", "uncompressed", "none",
                                             "SNAPPY", "bz2",     "lzo",          ""};
  static const char* const kEncoding[] = {"dictionary", "plain", "rle", "DICTIONARY", "delta", ""};
  static const char* const kVersions[] = {"1.0", "2.0", "2.4", "2.6", "3.0", "", "2", "1.0 "};
  static const int64_t kLengths[] = {0,
                                     -1,
                                     1,
                                     2,
                                     3,
                                     1024,
                                     std::numeric_limits<int64_t>::max(),
                                     std::numeric_limits<int64_t>::min()};
  const size_t mask = in.byte();
  if (mask & 1) hostErrorsOnly([&] { writer.setVariableNames(makeNames(in)); });
  if (mask & 2) hostErrorsOnly([&] { writer.setVariableCompression(pickTexts(in, kCompression)); });
  if (mask & 4) hostErrorsOnly([&] { writer.setVariableEncoding(pickTexts(in, kEncoding)); });
  if (mask & 8)
    hostErrorsOnly([&] { writer.setVersion(kVersions[in.below(std::size(kVersions))]); });
  if (mask & 16) {
    writer.setStoreArrowSchema(in.flag());
    writer.setUseCompliantNestedTypes(in.flag());
  }
  if (mask & 32) {
    hostErrorsOnly([&] { writer.setMaxRowGroupLength(kLengths[in.below(std::size(kLengths))]); });
  }
  if (mask & 64) {
    static const char* const kPaths[] = {
        "a", "b", "a.b",  "a.list.element", "a.key_value.key", "a.key_value.value",
        "",  ".", "a..b", "b.c.d"};
    std::vector<uint64_t> offsets(in.below(4));
    for (auto& offset : offsets) offset = in.below(8) == 0 ? in.raw<uint64_t>() : in.below(4);
    std::vector<std::u16string> paths(in.below(5));
    for (auto& path : paths) {
      const std::string text = kPaths[in.below(std::size(kPaths))];
      path.assign(text.begin(), text.end());
    }
    hostErrorsOnly([&] { writer.setLeafColumnPaths(offsets, paths); });
  }
}

matrix::unique_array makeHeights(Bytes& in) {
  const size_t count = in.below(5);
  auto heights = own(in.below(10) == 0 ? vxCreateNumericMatrix(count, 1, vxINT32_CLASS, vxREAL)
                                       : vxCreateDoubleMatrix(1, count, vxREAL));
  if (double* values = vxGetPr(heights.get())) {
    for (size_t i = 0; i < count; ++i) values[i] = in.flag() ? in.below(6) : in.number();
  }
  return heights;
}

void writeSession(Bytes& in, const std::u16string& name) {
  ParquetWriter writer(name);
  setOptions(in, writer);
  const size_t rows = in.below(6);
  auto table = makeTable(in, rows, 0);
  const size_t calls = 1 + in.below(3);
  for (size_t call = 0; call < calls; ++call) {
    if (call > 0 && in.below(3) == 0) table = makeTable(in, in.below(6), 0);
    if (in.flag()) {
      hostErrorsOnly([&] { writer.write(table.get()); });
    } else {
      auto heights = makeHeights(in);
      hostErrorsOnly([&] { writer.writeRowGroups(table.get(), heights.get()); });
    }
  }
  if (in.below(4) != 0) hostErrorsOnly([&] { writer.close(); });
}

}  // namespace

void readParquetBytes(const uint8_t* data, size_t size) {
  ScopedMemoryFiles files;
  files.provider->put("//fuzz/in.parquet", std::string(reinterpret_cast<const char*>(data), size));
  const std::u16string name = u"mem://fuzz/in.parquet";
  hostErrorsOnly([&] { describe(name); });
  hostErrorsOnly([&] { (void)vantro::io::parquet::core::info::getNumRowGroupsSync({name}); });
  hostErrorsOnly([&] { readEveryRowGroup(name); });
  hostErrorsOnly([&] { readStatistics(name); });
}

void writeHostTable(const uint8_t* data, size_t size) {
  ScopedMemoryFiles files;
  Bytes in(data, size);
  const std::u16string name = u"mem://fuzz/out.parquet";
  hostErrorsOnly([&] { writeSession(in, name); });
  // The destructor finishes what was written well, and removes an output that failed: either
  // way, whatever is left must be a Parquet file.
  if (!files.provider->contains("//fuzz/out.parquet")) return;
  if (!hostErrorsOnly([&] { ParquetInfo info(name); })) {
    throw std::logic_error("a writer left an output that is not Parquet");
  }
}

}  // namespace vxfuzz
