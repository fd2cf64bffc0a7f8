// Host values to Arrow values.
//
// Every host column is checked before it is read: a malformed table gives an Invalid status
// that names the column (or the path into nested tables) and what is wrong with it.
//
// Fixed-width values are either copied into Arrow buffers or, for to_arrow_table_view,
// borrowed: the Arrow buffer then points into the host array.
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>

#include <arrow/api.h>
#include <arrow/array/concatenate.h>
#include <arrow/util/bit_util.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include "host/converter/Converter.hpp"
#include "host/converter/HostValues.hpp"
#include "host/converter/ParallelFor.hpp"
#include "host/converter/TextCodec.hpp"
#include "host/services/Services.hpp"

namespace vantro::io::arrow::core {
namespace {

using ::arrow::ArrayVector;
using ::arrow::Buffer;
using ::arrow::DataType;
using ::arrow::Result;
using ::arrow::Status;

using ArrayPtr = std::shared_ptr<::arrow::Array>;
using BufferPtr = std::shared_ptr<Buffer>;

// Whether fixed-width values are copied into Arrow's memory or borrowed from the host arrays.
enum class Values { kCopy, kBorrow };

Result<ArrayPtr> ToArrowColumn(const vxArray* column, const std::string& where, Values values);

// A host table read and checked: names, columns and the common height.
struct HostTable {
  std::vector<std::string> names;
  std::vector<const vxArray*> columns;
  int64_t rows = 0;
};

Result<HostTable> ReadTable(const vxArray* table, const std::string& where);

// ---- shapes ----------------------------------------------------------------------------

bool IsNumericClass(vxClassID id) { return id >= vxDOUBLE_CLASS && id <= vxUINT64_CLASS; }

bool IsVector(const vxArray* value) {
  return vxGetN(value) == 1 || vxGetM(value) == 1 || vxIsEmpty(value);
}

const vxArray* RequireField(const vxArray* object, const char* field, vxClassID classID,
                            const std::string& where, Status* status) {
  const vxArray* value = vxGetField(object, 0, field);
  if (value == nullptr || vxGetClassID(value) != classID || !IsVector(value)) {
    *status = Status::Invalid(where, ": the ", vxGetClassName(object), " object has no ", field,
                              " field of the expected class");
    return nullptr;
  }
  return value;
}

// The number of rows of a host column, or Invalid when it is not a column the table allows.
Result<int64_t> ColumnHeight(const vxArray* column, const std::string& where) {
  if (column == nullptr) return Status::Invalid(where, ": the column is empty (no value)");
  const vxClassID id = vxGetClassID(column);
  if (IsNumericClass(id) || id == vxLOGICAL_CLASS || id == vxCELL_CLASS) {
    if (vxIsComplex(column)) return Status::Invalid(where, ": complex values cannot be stored");
    if (vxGetN(column) != 1 && !vxIsEmpty(column)) {
      return Status::Invalid(where, ": a ", vxGetClassName(column), " column must have one ",
                             "column, not ", vxGetN(column));
    }
    // An empty array (3x0, say) holds no values, so it is a column of no rows.
    return static_cast<int64_t>(vxGetNumberOfElements(column));
  }
  if (id == vxCHAR_CLASS) return static_cast<int64_t>(vxGetM(column));  // one row per text
  Status status;
  if (host::IsObject(column, host::kString)) {
    const vxArray* offsets = RequireField(column, host::kOffsets, vxUINT64_CLASS, where, &status);
    if (offsets == nullptr) return status;
    if (vxGetNumberOfElements(offsets) == 0) {
      return Status::Invalid(where, ": the string object's Offsets is empty");
    }
    return static_cast<int64_t>(vxGetNumberOfElements(offsets)) - 1;
  }
  if (host::IsObject(column, host::kDatetime) || host::IsObject(column, host::kDuration)) {
    const vxArray* ticks = RequireField(column, host::kTicks, vxINT64_CLASS, where, &status);
    if (ticks == nullptr) return status;
    return static_cast<int64_t>(vxGetNumberOfElements(ticks));
  }
  if (host::IsObject(column, host::kInteger)) {
    const vxArray* values = vxGetField(column, 0, host::kValues);
    if (values == nullptr ||
        (vxGetClassID(values) != vxINT64_CLASS && vxGetClassID(values) != vxUINT64_CLASS)) {
      return Status::Invalid(where, ": the integer object has no int64 or uint64 Values field");
    }
    return static_cast<int64_t>(vxGetNumberOfElements(values));
  }
  if (host::IsObject(column, host::kCategorical)) {
    const vxArray* codes = vxGetField(column, 0, host::kCodes);
    if (codes == nullptr || !IsNumericClass(vxGetClassID(codes)) ||
        vxGetClassID(codes) == vxDOUBLE_CLASS || vxGetClassID(codes) == vxSINGLE_CLASS) {
      return Status::Invalid(where, ": the categorical object has no integer Codes field");
    }
    return static_cast<int64_t>(vxGetNumberOfElements(codes));
  }
  if (host::IsObject(column, host::kTable)) {
    ARROW_ASSIGN_OR_RAISE(auto nested, ReadTable(column, where));
    return nested.rows;
  }
  return Status::Invalid(where, ": values of class '", vxGetClassName(column),
                         "' cannot be stored in a table");
}

// ---- buffers ---------------------------------------------------------------------------

// A validity bitmap from a predicate over rows, or none when every row is valid.
template <typename IsMissing>
Result<BufferPtr> ValidityBitmap(int64_t length, IsMissing isMissing, int64_t* nullCount) {
  *nullCount = 0;
  for (int64_t i = 0; i < length && *nullCount == 0; ++i) *nullCount += isMissing(i) ? 1 : 0;
  if (*nullCount == 0) return BufferPtr();
  ARROW_ASSIGN_OR_RAISE(auto bitmap, ::arrow::AllocateBitmap(length));
  uint8_t* bits = bitmap->mutable_data();
  *nullCount = 0;
  for (int64_t i = 0; i < length; ++i) {
    const bool missing = isMissing(i);
    ::arrow::bit_util::SetBitTo(bits, i, !missing);
    *nullCount += missing ? 1 : 0;
  }
  return BufferPtr(std::move(bitmap));
}

Result<BufferPtr> CopyBuffer(const void* data, int64_t bytes) {
  ARROW_ASSIGN_OR_RAISE(auto buffer, ::arrow::AllocateBuffer(bytes));
  if (bytes > 0) std::memcpy(buffer->mutable_data(), data, bytes);
  return BufferPtr(std::move(buffer));
}

// Host data as an Arrow buffer: a copy, or a read-only view that does not own the memory.
Result<BufferPtr> ValuesBuffer(const void* data, int64_t bytes, Values values) {
  if (values == Values::kCopy) return CopyBuffer(data, bytes);
  return std::make_shared<Buffer>(static_cast<const uint8_t*>(data), bytes);
}

// The Missing mask of an object, checked against the row count.
Result<const vxLogical*> MissingOf(const vxArray* object, int64_t rows, const std::string& where) {
  const vxArray* missing = vxGetField(object, 0, host::kMissing);
  if (missing == nullptr) return nullptr;  // no mask: nothing is missing
  if (vxGetClassID(missing) != vxLOGICAL_CLASS ||
      static_cast<int64_t>(vxGetNumberOfElements(missing)) != rows) {
    return Status::Invalid(where, ": Missing must be logical with ", rows, " elements");
  }
  return vxGetLogicals(missing);
}

Result<BufferPtr> BitmapFromMask(const vxLogical* mask, int64_t rows, int64_t* nullCount) {
  if (mask == nullptr) {
    *nullCount = 0;
    return BufferPtr();
  }
  return ValidityBitmap(
      rows, [mask](int64_t i) { return mask[i]; }, nullCount);
}

// ---- numeric and logical ---------------------------------------------------------------

std::shared_ptr<DataType> ArrowTypeOfClass(vxClassID id) {
  switch (id) {
    case vxDOUBLE_CLASS:
      return ::arrow::float64();
    case vxSINGLE_CLASS:
      return ::arrow::float32();
    case vxINT8_CLASS:
      return ::arrow::int8();
    case vxUINT8_CLASS:
      return ::arrow::uint8();
    case vxINT16_CLASS:
      return ::arrow::int16();
    case vxUINT16_CLASS:
      return ::arrow::uint16();
    case vxINT32_CLASS:
      return ::arrow::int32();
    case vxUINT32_CLASS:
      return ::arrow::uint32();
    case vxINT64_CLASS:
      return ::arrow::int64();
    case vxUINT64_CLASS:
      return ::arrow::uint64();
    default:
      return nullptr;
  }
}

// Whether any value is NaN. Blocks of a fixed size without an early exit inside let the
// compiler check several values per instruction; most columns have no NaN at all.
template <typename T>
bool AnyNaN(const T* values, int64_t rows) {
  constexpr int64_t kBlock = 64;
  int64_t i = 0;
  for (; i + kBlock <= rows; i += kBlock) {
    bool any = false;
    for (int64_t k = 0; k < kBlock; ++k) any |= values[i + k] != values[i + k];
    if (any) return true;
  }
  for (; i < rows; ++i) {
    if (std::isnan(values[i])) return true;
  }
  return false;
}

// NaN is the host's missing value for floating point, so it comes back as null.
template <typename T>
Result<BufferPtr> NaNBitmap(const T* values, int64_t rows, int64_t* nullCount) {
  if (!AnyNaN(values, rows)) {
    *nullCount = 0;
    return BufferPtr();
  }
  return ValidityBitmap(
      rows, [values](int64_t i) { return std::isnan(values[i]); }, nullCount);
}

Result<ArrayPtr> NumericToArrow(const vxArray* column, Values mode) {
  const vxClassID id = vxGetClassID(column);
  const auto rows = static_cast<int64_t>(vxGetNumberOfElements(column));
  const auto type = ArrowTypeOfClass(id);
  // Borrowed values hold NaN where the bitmap says null, exactly as a copy would.
  ARROW_ASSIGN_OR_RAISE(auto values,
                        ValuesBuffer(vxGetData(column), rows * vxGetElementSize(column), mode));
  BufferPtr validity;
  int64_t nullCount = 0;
  if (id == vxDOUBLE_CLASS) {
    ARROW_ASSIGN_OR_RAISE(validity, NaNBitmap(vxGetPr(column), rows, &nullCount));
  } else if (id == vxSINGLE_CLASS) {
    ARROW_ASSIGN_OR_RAISE(
        validity, NaNBitmap(static_cast<const float*>(vxGetData(column)), rows, &nullCount));
  }
  return ::arrow::MakeArray(::arrow::ArrayData::Make(type, rows, {validity, values}, nullCount));
}

Result<ArrayPtr> LogicalToArrow(const vxArray* column) {
  const auto rows = static_cast<int64_t>(vxGetNumberOfElements(column));
  const vxLogical* values = vxGetLogicals(column);
  ARROW_ASSIGN_OR_RAISE(auto bits, ::arrow::AllocateBitmap(rows));
  for (int64_t i = 0; i < rows; ++i)
    ::arrow::bit_util::SetBitTo(bits->mutable_data(), i, values[i]);
  return ::arrow::MakeArray(
      ::arrow::ArrayData::Make(::arrow::boolean(), rows, {nullptr, std::move(bits)}, 0));
}

// ---- text ------------------------------------------------------------------------------

// Builds a STRING array from UTF-16 rows given as (units, size) pairs by `row(i)`.
template <typename Row>
Result<ArrayPtr> StringsToArrow(int64_t rows, Row row, const vxLogical* missing,
                                const char16_t* allUnits, size_t totalUnits) {
  // Pass one sizes the UTF-8 data so that it is allocated once.
  const bool ascii = allUnits != nullptr && text::IsAscii(allUnits, totalUnits);
  int64_t bytes = 0;
  for (int64_t i = 0; i < rows; ++i) {
    const auto [units, size] = row(i);
    bytes +=
        ascii ? static_cast<int64_t>(size) : static_cast<int64_t>(text::Utf8Length(units, size));
  }
  if (bytes > std::numeric_limits<int32_t>::max()) {
    return Status::CapacityError("a text column holds more than 2 GiB of UTF-8");
  }
  ARROW_ASSIGN_OR_RAISE(auto offsets, ::arrow::AllocateBuffer((rows + 1) * sizeof(int32_t)));
  ARROW_ASSIGN_OR_RAISE(auto data, ::arrow::AllocateBuffer(bytes));
  auto* offset = reinterpret_cast<int32_t*>(offsets->mutable_data());
  uint8_t* out = data->mutable_data();
  int32_t position = 0;
  offset[0] = 0;
  for (int64_t i = 0; i < rows; ++i) {
    const auto [units, size] = row(i);
    if (ascii) {
      text::NarrowAscii(units, size, out + position);
      position += static_cast<int32_t>(size);
    } else {
      position += static_cast<int32_t>(text::Utf16ToUtf8(units, size, out + position));
    }
    offset[i + 1] = position;
  }
  int64_t nullCount = 0;
  ARROW_ASSIGN_OR_RAISE(auto validity, BitmapFromMask(missing, rows, &nullCount));
  return ::arrow::MakeArray(::arrow::ArrayData::Make(
      ::arrow::utf8(), rows, {validity, std::move(offsets), std::move(data)}, nullCount));
}

struct StringObject {
  const char16_t* units;
  size_t unitCount;
  const uint64_t* offsets;
  const vxLogical* missing;
  int64_t rows;
};

Result<StringObject> ReadStringObject(const vxArray* object, const std::string& where) {
  ARROW_ASSIGN_OR_RAISE(const int64_t rows, ColumnHeight(object, where));
  const vxArray* data = vxGetField(object, 0, host::kData);
  if (data == nullptr || vxGetClassID(data) != vxCHAR_CLASS) {
    return Status::Invalid(where, ": the string object has no char Data field");
  }
  StringObject strings;
  // An empty Data array may have no storage at all; offsets are then applied to this instead of
  // a null pointer.
  static constexpr char16_t kNoUnits[1] = {u'\0'};
  strings.units = vxGetNumberOfElements(data) == 0
                      ? kNoUnits
                      : reinterpret_cast<const char16_t*>(vxGetChars(data));
  strings.unitCount = vxGetNumberOfElements(data);
  strings.offsets = static_cast<const uint64_t*>(vxGetData(vxGetField(object, 0, host::kOffsets)));
  strings.rows = rows;
  ARROW_ASSIGN_OR_RAISE(strings.missing, MissingOf(object, rows, where));
  for (int64_t i = 0; i < rows; ++i) {
    if (strings.offsets[i] > strings.offsets[i + 1] || strings.offsets[i + 1] > strings.unitCount) {
      return Status::Invalid(where, ": the string object's Offsets are out of order or past ",
                             "its Data at row ", i + 1);
    }
  }
  return strings;
}

// The rows of a string object lie back to back in Data (row i ends where row i+1 starts), so
// ASCII text narrows as one block, checked while it is copied, and the offsets only shift.
// Null when the text is not ASCII.
Result<ArrayPtr> AsciiStringsToArrow(const StringObject& strings) {
  const uint64_t first = strings.offsets[0];
  const uint64_t bytes = strings.offsets[strings.rows] - first;
  if (bytes > static_cast<uint64_t>(std::numeric_limits<int32_t>::max())) return nullptr;
  ARROW_ASSIGN_OR_RAISE(auto data, ::arrow::AllocateBuffer(static_cast<int64_t>(bytes)));
  if (!text::NarrowIfAscii(strings.units + first, bytes, data->mutable_data())) return nullptr;
  ARROW_ASSIGN_OR_RAISE(auto offsets,
                        ::arrow::AllocateBuffer((strings.rows + 1) * sizeof(int32_t)));
  auto* offset = reinterpret_cast<int32_t*>(offsets->mutable_data());
  for (int64_t i = 0; i <= strings.rows; ++i) {
    offset[i] = static_cast<int32_t>(strings.offsets[i] - first);
  }
  int64_t nullCount = 0;
  ARROW_ASSIGN_OR_RAISE(auto validity, BitmapFromMask(strings.missing, strings.rows, &nullCount));
  return ::arrow::MakeArray(::arrow::ArrayData::Make(
      ::arrow::utf8(), strings.rows, {validity, std::move(offsets), std::move(data)}, nullCount));
}

Result<ArrayPtr> StringObjectToArrow(const vxArray* object, const std::string& where) {
  ARROW_ASSIGN_OR_RAISE(const auto strings, ReadStringObject(object, where));
  ARROW_ASSIGN_OR_RAISE(auto ascii, AsciiStringsToArrow(strings));
  if (ascii != nullptr) return ascii;
  const auto row = [&strings](int64_t i) {
    return std::make_pair(strings.units + strings.offsets[i],
                          static_cast<size_t>(strings.offsets[i + 1] - strings.offsets[i]));
  };
  return StringsToArrow(strings.rows, row, strings.missing, strings.units, strings.unitCount);
}

// A char matrix holds one text per row; column-major storage means each row is gathered.
Result<ArrayPtr> CharMatrixToArrow(const vxArray* column) {
  const size_t m = vxGetM(column), n = vxGetN(column);
  const auto* units = reinterpret_cast<const char16_t*>(vxGetChars(column));
  std::u16string rowMajor(m * n, u'\0');
  for (size_t r = 0; r < m; ++r) {
    for (size_t c = 0; c < n; ++c) rowMajor[r * n + c] = units[r + c * m];
  }
  const auto row = [&](int64_t i) { return std::make_pair(rowMajor.data() + i * n, n); };
  return StringsToArrow(static_cast<int64_t>(m), row, nullptr, rowMajor.data(), rowMajor.size());
}

// ---- dates, times, durations -----------------------------------------------------------

Result<::arrow::TimeUnit::type> ParseUnit(const std::string& unit, const std::string& where) {
  if (unit == "s") return ::arrow::TimeUnit::SECOND;
  if (unit == "ms") return ::arrow::TimeUnit::MILLI;
  if (unit == "us") return ::arrow::TimeUnit::MICRO;
  if (unit == "ns") return ::arrow::TimeUnit::NANO;
  return Status::Invalid(where, ": unknown time unit '", unit, "'");
}

Result<std::shared_ptr<DataType>> TemporalType(const vxArray* object, const std::string& where) {
  const std::string kind = host::TextField(object, host::kKind);
  const std::string unitName = host::TextField(object, host::kUnit);
  const bool isDatetime = host::IsObject(object, host::kDatetime);
  if (isDatetime && (kind == "date32" || kind.empty()) && unitName == "day") {
    return ::arrow::date32();
  }
  if (isDatetime && kind == "date64" && unitName == "ms") return ::arrow::date64();
  ARROW_ASSIGN_OR_RAISE(const auto unit, ParseUnit(unitName, where));
  if (isDatetime && (kind == "timestamp" || kind.empty())) {
    return ::arrow::timestamp(unit, host::TextField(object, host::kTimeZone));
  }
  if (!isDatetime && (kind == "duration" || kind.empty())) return ::arrow::duration(unit);
  if (!isDatetime && kind == "time32" &&
      (unit == ::arrow::TimeUnit::SECOND || unit == ::arrow::TimeUnit::MILLI)) {
    return ::arrow::time32(unit);
  }
  if (!isDatetime && kind == "time64" &&
      (unit == ::arrow::TimeUnit::MICRO || unit == ::arrow::TimeUnit::NANO)) {
    return ::arrow::time64(unit);
  }
  return Status::Invalid(where, ": a ", vxGetClassName(object), " of kind '", kind, "' and unit '",
                         unitName, "' has no Arrow type");
}

Result<ArrayPtr> TemporalToArrow(const vxArray* object, const std::string& where, Values mode) {
  ARROW_ASSIGN_OR_RAISE(const int64_t rows, ColumnHeight(object, where));
  ARROW_ASSIGN_OR_RAISE(auto type, TemporalType(object, where));
  ARROW_ASSIGN_OR_RAISE(const vxLogical* missing, MissingOf(object, rows, where));
  const auto* ticks = static_cast<const int64_t*>(vxGetData(vxGetField(object, 0, host::kTicks)));
  BufferPtr values;
  if (type->byte_width() == 4) {
    ARROW_ASSIGN_OR_RAISE(auto narrow, ::arrow::AllocateBuffer(rows * sizeof(int32_t)));
    auto* out = reinterpret_cast<int32_t*>(narrow->mutable_data());
    for (int64_t i = 0; i < rows; ++i) {
      const bool fits = ticks[i] >= std::numeric_limits<int32_t>::min() &&
                        ticks[i] <= std::numeric_limits<int32_t>::max();
      if (!fits && !(missing && missing[i])) {
        return Status::Invalid(where, ": row ", i + 1, " does not fit in ", type->ToString());
      }
      out[i] = fits ? static_cast<int32_t>(ticks[i]) : 0;
    }
    values = std::move(narrow);
  } else {
    ARROW_ASSIGN_OR_RAISE(values, ValuesBuffer(ticks, rows * sizeof(int64_t), mode));
  }
  int64_t nullCount = 0;
  ARROW_ASSIGN_OR_RAISE(auto validity, BitmapFromMask(missing, rows, &nullCount));
  return ::arrow::MakeArray(
      ::arrow::ArrayData::Make(type, rows, {validity, std::move(values)}, nullCount));
}

// ---- 64-bit integers with missing values ----------------------------------------------

Result<ArrayPtr> IntegerObjectToArrow(const vxArray* object, const std::string& where,
                                      Values mode) {
  ARROW_ASSIGN_OR_RAISE(const int64_t rows, ColumnHeight(object, where));
  const vxArray* values = vxGetField(object, 0, host::kValues);
  ARROW_ASSIGN_OR_RAISE(const vxLogical* missing, MissingOf(object, rows, where));
  ARROW_ASSIGN_OR_RAISE(auto buffer,
                        ValuesBuffer(vxGetData(values), rows * vxGetElementSize(values), mode));
  int64_t nullCount = 0;
  ARROW_ASSIGN_OR_RAISE(auto validity, BitmapFromMask(missing, rows, &nullCount));
  return ::arrow::MakeArray(::arrow::ArrayData::Make(ArrowTypeOfClass(vxGetClassID(values)), rows,
                                                     {validity, std::move(buffer)}, nullCount));
}

// ---- categorical -----------------------------------------------------------------------

Result<ArrayPtr> CategoricalToArrow(const vxArray* object, const std::string& where, Values mode) {
  ARROW_ASSIGN_OR_RAISE(const int64_t rows, ColumnHeight(object, where));
  const vxArray* codes = vxGetField(object, 0, host::kCodes);
  const vxArray* categories = vxGetField(object, 0, host::kCategories);
  if (!host::IsObject(categories, host::kString)) {
    return Status::Invalid(where, ": the categorical object's Categories is not a string object");
  }
  ARROW_ASSIGN_OR_RAISE(auto dictionary, StringObjectToArrow(categories, where + ".Categories"));
  ARROW_ASSIGN_OR_RAISE(const vxLogical* missing, MissingOf(object, rows, where));
  const vxArray* orderedField = vxGetField(object, 0, host::kOrdered);
  const bool ordered = orderedField != nullptr && vxGetClassID(orderedField) == vxLOGICAL_CLASS &&
                       !vxIsEmpty(orderedField) && vxGetLogicals(orderedField)[0];
  const auto indexType = ArrowTypeOfClass(vxGetClassID(codes));
  ARROW_ASSIGN_OR_RAISE(auto values,
                        ValuesBuffer(vxGetData(codes), rows * vxGetElementSize(codes), mode));
  int64_t nullCount = 0;
  ARROW_ASSIGN_OR_RAISE(auto validity, BitmapFromMask(missing, rows, &nullCount));
  auto indices = ::arrow::MakeArray(
      ::arrow::ArrayData::Make(indexType, rows, {validity, std::move(values)}, nullCount));
  // FromArrays checks every code against the number of categories.
  auto type = ::arrow::dictionary(indexType, ::arrow::utf8(), ordered);
  auto result = ::arrow::DictionaryArray::FromArrays(type, indices, dictionary);
  if (!result.ok()) return Status::Invalid(where, ": ", result.status().message());
  return result;
}

// ---- nested tables ---------------------------------------------------------------------

Result<ArrayVector> ColumnsToArrow(const HostTable& table, const std::string& where, Values values);

Result<ArrayPtr> NestedTableToArrow(const vxArray* object, const std::string& where,
                                    Values values) {
  ARROW_ASSIGN_OR_RAISE(auto table, ReadTable(object, where));
  ARROW_ASSIGN_OR_RAISE(auto children, ColumnsToArrow(table, where, values));
  ::arrow::FieldVector fields;
  for (size_t i = 0; i < children.size(); ++i) {
    fields.push_back(::arrow::field(table.names[i], children[i]->type()));
  }
  return std::make_shared<::arrow::StructArray>(::arrow::struct_(fields), table.rows, children);
}

// ---- cells -----------------------------------------------------------------------------

bool IsByteVector(const vxArray* element) {
  return vxGetClassID(element) == vxUINT8_CLASS && IsVector(element);
}

bool IsKeyValueTable(const vxArray* element) {
  if (!host::IsTable(element)) return false;
  const vxArray* names = vxGetField(element, 0, host::kNames);
  return names != nullptr && vxGetClassID(names) == vxCELL_CLASS &&
         vxGetNumberOfElements(names) == 2 && host::IsText(vxGetCell(names, 0)) &&
         host::IsText(vxGetCell(names, 1)) && host::TextOf(vxGetCell(names, 0)) == "Key" &&
         host::TextOf(vxGetCell(names, 1)) == "Value";
}

template <typename Predicate>
bool AllElements(const vxArray* cell, Predicate predicate) {
  for (size_t i = 0; i < vxGetNumberOfElements(cell); ++i) {
    const vxArray* element = vxGetCell(cell, i);
    if (!host::IsNullElement(element) && !predicate(element)) return false;
  }
  return true;
}

Result<BufferPtr> CellValidity(const vxArray* cell, int64_t* nullCount) {
  return ValidityBitmap(
      static_cast<int64_t>(vxGetNumberOfElements(cell)),
      [cell](int64_t i) { return host::IsNullElement(vxGetCell(cell, i)); }, nullCount);
}

Result<ArrayPtr> BinaryCellToArrow(const vxArray* cell) {
  const auto rows = static_cast<int64_t>(vxGetNumberOfElements(cell));
  ::arrow::BinaryBuilder builder;
  ARROW_RETURN_NOT_OK(builder.Reserve(rows));
  for (int64_t i = 0; i < rows; ++i) {
    const vxArray* element = vxGetCell(cell, i);
    if (host::IsNullElement(element)) {
      ARROW_RETURN_NOT_OK(builder.AppendNull());
    } else {
      ARROW_RETURN_NOT_OK(builder.Append(static_cast<const uint8_t*>(vxGetData(element)),
                                         static_cast<int64_t>(vxGetNumberOfElements(element))));
    }
  }
  return builder.Finish();
}

bool IsCellOfNulls(const vxArray* element) {
  if (vxGetClassID(element) != vxCELL_CLASS) return false;
  for (size_t i = 0; i < vxGetNumberOfElements(element); ++i) {
    if (!host::IsNullElement(vxGetCell(element, i))) return false;
  }
  return true;
}

bool IsCellType(const DataType& type) {
  return type.id() == ::arrow::Type::LIST || type.id() == ::arrow::Type::MAP ||
         type.id() == ::arrow::Type::BINARY;
}

using ElementConverter = std::function<Result<ArrayPtr>(const vxArray*, const std::string&)>;

// Elements are concatenated into new buffers anyway, so they are read as copies.
Result<ArrayPtr> ElementToArrow(const vxArray* element, const std::string& where) {
  return ToArrowColumn(element, where, Values::kCopy);
}

Result<ArrayPtr> EntryTableToArrow(const vxArray* element, const std::string& where) {
  return NestedTableToArrow(element, where, Values::kCopy);
}

// The array as one of type target, where the two differ only in parts that hold nothing but
// nulls: a missing value inside a cell (the 0x0 double) has no type of its own, so the cell,
// list or table column around it takes the type of its column instead of deciding it.
Result<ArrayPtr> Conform(const ArrayPtr& array, const std::shared_ptr<DataType>& target) {
  if (array->type()->Equals(*target)) return array;
  if (array->null_count() == array->length()) {
    return ::arrow::MakeArrayOfNull(target, array->length());
  }
  const auto id = array->type_id();
  const bool sameKind = id == target->id() && array->num_fields() == target->num_fields() &&
                        (id == ::arrow::Type::LIST || id == ::arrow::Type::LARGE_LIST ||
                         id == ::arrow::Type::MAP || id == ::arrow::Type::STRUCT);
  if (!sameKind) return Status::TypeError("no common type");
  auto data = array->data()->Copy();
  data->type = target;
  for (int k = 0; k < array->num_fields(); ++k) {
    if (id == ::arrow::Type::STRUCT &&
        array->type()->field(k)->name() != target->field(k)->name()) {
      return Status::TypeError("no common type");
    }
    ARROW_ASSIGN_OR_RAISE(
        auto child, Conform(::arrow::MakeArray(data->child_data[k]), target->field(k)->type()));
    data->child_data[k] = child->data();
  }
  return ::arrow::MakeArray(data);
}

// Brings every element to one type: the new element to the common type, or else the elements
// so far to the new element's type.
Status JoinCommonType(ArrayVector& elements, ArrayPtr& element,
                      std::shared_ptr<DataType>* commonType) {
  auto conformed = Conform(element, *commonType);
  if (conformed.ok()) {
    element = std::move(conformed).ValueUnsafe();
    return Status::OK();
  }
  ArrayVector widened;
  for (const auto& earlier : elements) {
    if (earlier == nullptr) {  // a cell of nulls, typed later
      widened.push_back(nullptr);
      continue;
    }
    ARROW_ASSIGN_OR_RAISE(auto rebuilt, Conform(earlier, element->type()));
    widened.push_back(std::move(rebuilt));
  }
  elements = std::move(widened);
  *commonType = element->type();
  return Status::OK();
}

// Converts every non-null element and checks that they all share one Arrow type. A cell of
// nothing but nulls has no type of its own; it takes the type of its neighbours.
Result<ArrayVector> ConvertElements(const vxArray* cell, const std::string& where,
                                    std::shared_ptr<DataType>* commonType,
                                    const ElementConverter& convert) {
  ArrayVector elements;
  std::vector<size_t> untyped;  // positions in `elements` still to fill
  int64_t firstRow = 0;
  for (size_t i = 0; i < vxGetNumberOfElements(cell); ++i) {
    const vxArray* element = vxGetCell(cell, i);
    if (host::IsNullElement(element)) continue;
    if (IsCellOfNulls(element) && vxGetNumberOfElements(element) > 0) {
      untyped.push_back(elements.size());
      elements.push_back(nullptr);
      continue;
    }
    const std::string at = where + "{" + std::to_string(i + 1) + "}";
    ARROW_ASSIGN_OR_RAISE(auto array, convert(element, at));
    if (*commonType == nullptr) {
      *commonType = array->type();
      firstRow = static_cast<int64_t>(i) + 1;
    } else if (!(*commonType)->Equals(*array->type()) &&
               !JoinCommonType(elements, array, commonType).ok()) {
      return Status::Invalid(where, ": the cell holds values of different types (",
                             (*commonType)->ToString(), " in row ", firstRow, ", ",
                             array->type()->ToString(), " in row ", i + 1, ")");
    }
    elements.push_back(std::move(array));
  }
  if (untyped.empty()) return elements;
  const bool typed = *commonType != nullptr && IsCellType(**commonType);
  if (*commonType != nullptr && !typed) {
    return Status::Invalid(where, ": the cell mixes cells with ", (*commonType)->ToString(),
                           " values");
  }
  size_t position = 0, next = 0;
  for (size_t i = 0; i < vxGetNumberOfElements(cell) && next < untyped.size(); ++i) {
    const vxArray* element = vxGetCell(cell, i);
    if (host::IsNullElement(element)) continue;
    if (position == untyped[next]) {
      const auto rows = static_cast<int64_t>(vxGetNumberOfElements(element));
      if (typed) {
        ARROW_ASSIGN_OR_RAISE(elements[position], ::arrow::MakeArrayOfNull(*commonType, rows));
      } else {
        ARROW_ASSIGN_OR_RAISE(elements[position], convert(element, where));
        *commonType = elements[position]->type();
      }
      ++next;
    }
    ++position;
  }
  return elements;
}

// Offsets of the list rows; a null row takes no values.
Result<BufferPtr> ListOffsets(const vxArray* cell, const ArrayVector& elements) {
  const auto rows = static_cast<int64_t>(vxGetNumberOfElements(cell));
  ARROW_ASSIGN_OR_RAISE(auto offsets, ::arrow::AllocateBuffer((rows + 1) * sizeof(int32_t)));
  auto* offset = reinterpret_cast<int32_t*>(offsets->mutable_data());
  int64_t position = 0;
  size_t next = 0;
  offset[0] = 0;
  for (int64_t i = 0; i < rows; ++i) {
    if (!host::IsNullElement(vxGetCell(cell, i))) position += elements[next++]->length();
    if (position > std::numeric_limits<int32_t>::max()) {
      return Status::CapacityError("a cell column holds more than 2^31 list values");
    }
    offset[i + 1] = static_cast<int32_t>(position);
  }
  return BufferPtr(std::move(offsets));
}

Result<ArrayPtr> Flatten(const ArrayVector& elements, const std::shared_ptr<DataType>& type) {
  if (elements.empty()) return ::arrow::MakeEmptyArray(type);
  return ::arrow::Concatenate(elements);
}

Result<ArrayPtr> ListCellToArrow(const vxArray* cell, const std::string& where) {
  std::shared_ptr<DataType> valueType;
  ARROW_ASSIGN_OR_RAISE(auto elements, ConvertElements(cell, where, &valueType, ElementToArrow));
  ARROW_ASSIGN_OR_RAISE(auto values, Flatten(elements, valueType));
  ARROW_ASSIGN_OR_RAISE(auto offsets, ListOffsets(cell, elements));
  int64_t nullCount = 0;
  ARROW_ASSIGN_OR_RAISE(auto validity, CellValidity(cell, &nullCount));
  auto data = ::arrow::ArrayData::Make(::arrow::list(valueType),
                                       static_cast<int64_t>(vxGetNumberOfElements(cell)),
                                       {validity, offsets}, {values->data()}, nullCount);
  return ::arrow::MakeArray(data);
}

// Each element is a table of "Key" and "Value": it converts as a struct of two fields.
Result<ArrayPtr> MapCellToArrow(const vxArray* cell, const std::string& where) {
  std::shared_ptr<DataType> entryType;
  ARROW_ASSIGN_OR_RAISE(
      auto elements, ConvertElements(cell, where, &entryType, ElementConverter(EntryTableToArrow)));
  ARROW_ASSIGN_OR_RAISE(auto entries, Flatten(elements, entryType));
  const auto& entryStruct = static_cast<const ::arrow::StructArray&>(*entries);
  if (entryStruct.field(0)->null_count() > 0) {
    return Status::Invalid(where, ": a map key is missing");
  }
  auto mapType = ::arrow::map(entryType->field(0)->type(), entryType->field(1)->type());
  // Rename the entries to the map's own field names ("key", "value").
  auto entryData = entries->data()->Copy();
  entryData->type = mapType->field(0)->type();
  ARROW_ASSIGN_OR_RAISE(auto offsets, ListOffsets(cell, elements));
  int64_t nullCount = 0;
  ARROW_ASSIGN_OR_RAISE(auto validity, CellValidity(cell, &nullCount));
  auto data = ::arrow::ArrayData::Make(mapType, static_cast<int64_t>(vxGetNumberOfElements(cell)),
                                       {validity, offsets}, {entryData}, nullCount);
  return ::arrow::MakeArray(data);
}

Result<ArrayPtr> CellToArrow(const vxArray* cell, const std::string& where) {
  if (AllElements(cell, IsByteVector)) return BinaryCellToArrow(cell);
  if (AllElements(cell, IsKeyValueTable)) return MapCellToArrow(cell, where);
  return ListCellToArrow(cell, where);
}

// ---- columns and tables ----------------------------------------------------------------

Result<ArrayPtr> ToArrowColumn(const vxArray* column, const std::string& where, Values values) {
  ARROW_RETURN_NOT_OK(ColumnHeight(column, where));
  const vxClassID id = vxGetClassID(column);
  if (IsNumericClass(id)) return NumericToArrow(column, values);
  if (id == vxLOGICAL_CLASS) return LogicalToArrow(column);
  if (id == vxCHAR_CLASS) return CharMatrixToArrow(column);
  if (id == vxCELL_CLASS) return CellToArrow(column, where);
  if (host::IsObject(column, host::kString)) return StringObjectToArrow(column, where);
  if (host::IsObject(column, host::kCategorical)) return CategoricalToArrow(column, where, values);
  if (host::IsObject(column, host::kInteger)) return IntegerObjectToArrow(column, where, values);
  if (host::IsObject(column, host::kTable)) return NestedTableToArrow(column, where, values);
  return TemporalToArrow(column, where, values);  // ColumnHeight admitted nothing else
}

Result<HostTable> ReadTable(const vxArray* table, const std::string& where) {
  if (table == nullptr) return Status::Invalid(where, ": no table");
  const vxClassID id = vxGetClassID(table);
  if (id != vxSTRUCT_CLASS && !host::IsObject(table, host::kTable)) {
    return Status::Invalid(where, ": a table must be a structure or a table object, not a ",
                           vxGetClassName(table));
  }
  if (vxGetNumberOfElements(table) != 1) {
    return Status::Invalid(where, ": a table must be a 1x1 structure");
  }
  for (const char* field : {host::kNames, host::kColumns}) {
    if (vxGetFieldNumber(table, field) < 0 || vxGetField(table, 0, field) == nullptr) {
      return Status::Invalid(where, ": the table has no \"", field, "\" field");
    }
    if (vxGetClassID(vxGetField(table, 0, field)) != vxCELL_CLASS) {
      return Status::Invalid(where, ": the table's \"", field, "\" field is not a cell");
    }
  }
  const vxArray* names = vxGetField(table, 0, host::kNames);
  const vxArray* columns = vxGetField(table, 0, host::kColumns);
  if (vxGetNumberOfElements(names) != vxGetNumberOfElements(columns)) {
    return Status::Invalid(where, ": the table has ", vxGetNumberOfElements(names), " names but ",
                           vxGetNumberOfElements(columns), " columns");
  }
  HostTable result;
  for (size_t i = 0; i < vxGetNumberOfElements(names); ++i) {
    const vxArray* name = vxGetCell(names, i);
    if (!host::IsText(name)) {
      return Status::Invalid(where, ": Names{", i + 1, "} is not text (a char row vector)");
    }
    result.names.push_back(host::TextOf(name));
    result.columns.push_back(vxGetCell(columns, i));
  }
  for (size_t i = 0; i < result.columns.size(); ++i) {
    const std::string at = where + "." + result.names[i];
    ARROW_ASSIGN_OR_RAISE(const int64_t rows, ColumnHeight(result.columns[i], at));
    if (i == 0) {
      result.rows = rows;
    } else if (rows != result.rows) {
      return Status::Invalid(where, ": column '", result.names[i], "' has ", rows,
                             " rows but column '", result.names[0], "' has ", result.rows);
    }
  }
  return result;
}

Result<ArrayVector> ColumnsToArrow(const HostTable& table, const std::string& where,
                                   Values values) {
  ArrayVector arrays(table.columns.size());
  std::vector<Status> statuses(table.columns.size());
  ParallelFor(table.columns.size(), [&](size_t i) {
    auto converted = ToArrowColumn(table.columns[i], where + "." + table.names[i], values);
    if (converted.ok()) {
      arrays[i] = std::move(converted).ValueUnsafe();
    } else {
      statuses[i] = converted.status();
    }
  });
  for (const auto& status : statuses) ARROW_RETURN_NOT_OK(status);
  return arrays;
}

Result<std::shared_ptr<::arrow::Table>> TableToArrow(const vxArray* table, Values values) {
  ARROW_ASSIGN_OR_RAISE(auto host, ReadTable(table, "table"));
  ARROW_ASSIGN_OR_RAISE(auto arrays, ColumnsToArrow(host, "table", values));
  ::arrow::FieldVector fields;
  for (size_t i = 0; i < arrays.size(); ++i) {
    // Arrow trusts a table's columns to be as long as the table; a shorter one would let a
    // later slice run off its end.
    if (arrays[i]->length() != host.rows) {
      return Status::Invalid("table: column '", host.names[i], "' has ", arrays[i]->length(),
                             " rows but the table has ", host.rows);
    }
    fields.push_back(::arrow::field(host.names[i], arrays[i]->type()));
  }
  return ::arrow::Table::Make(::arrow::schema(fields), arrays, host.rows);
}

}  // namespace

::arrow::Result<std::shared_ptr<::arrow::Table>> to_arrow_table(const vxArray_tag* table) {
  return TableToArrow(table, Values::kCopy);
}

::arrow::Result<std::shared_ptr<::arrow::Table>> to_arrow_table_view(const vxArray_tag* table) {
  return TableToArrow(table, Values::kBorrow);
}

}  // namespace vantro::io::arrow::core
