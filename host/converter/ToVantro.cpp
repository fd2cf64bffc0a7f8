// Arrow values to host values.
//
// A column arrives as its chunks; every converter writes each chunk straight into its slice
// of one preallocated host array, so multi-chunk columns are never concatenated first. When
// the converter holds the last reference to a column, a fixed-width chunk without nulls is not
// copied at all: its values buffer becomes the host array's memory.
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>

#include <arrow/api.h>
#include <arrow/array/array_dict.h>
#include <arrow/compute/api_vector.h>
#include <arrow/compute/cast.h>
#include <arrow/util/bit_util.h>
#include <arrow/util/config.h>
#include <arrow/util/decimal.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include "host/converter/Converter.hpp"
#include "host/converter/HostValues.hpp"
#include "host/converter/ParallelFor.hpp"
#include "host/converter/TextCodec.hpp"
#include "host/converter/Validity.hpp"
#include "host/services/Services.hpp"

namespace vantro::io::arrow::core {
namespace {

using ::arrow::Array;
using ::arrow::ArrayVector;
using ::arrow::Buffer;
using ::arrow::DataType;
using ::arrow::Result;
using ::arrow::Status;
using ::arrow::Type;
using matrix::unique_array;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Whether the converter holds the only references to a column's chunks. Only then may their
// buffers become host arrays: host arrays are mutable, and an Arrow buffer must not change
// under anyone else who can see it.
enum class Chunks { kShared, kExclusive };

Result<unique_array> ConvertColumn(const ArrayVector& chunks, const DataType& type, int64_t length,
                                   Chunks ownership = Chunks::kShared);

bool HasNulls(const ArrayVector& chunks) {
  for (const auto& chunk : chunks) {
    if (chunk->null_count() > 0) return true;
  }
  return false;
}

bool IsNull(const Array& chunk, int64_t i) {
  const uint8_t* bitmap = chunk.null_bitmap_data();
  return bitmap != nullptr && !::arrow::bit_util::GetBit(bitmap, chunk.offset() + i);
}

Result<unique_array> NewColumn(int64_t rows, vxClassID classID) {
  return host::Allocated(vxCreateUninitNumericMatrix(rows, 1, classID, vxREAL));
}

// A logical Rx1 marking the nulls of every chunk; one allocation, zeroed.
Result<unique_array> MissingMask(const ArrayVector& chunks, int64_t length) {
  ARROW_ASSIGN_OR_RAISE(auto mask, host::Allocated(vxCreateLogicalMatrix(length, 1)));
  vxLogical* out = vxGetLogicals(mask.get());
  for (const auto& chunk : chunks) {
    FillNulls(*chunk, out, vxLogical{true});
    out += chunk->length();
  }
  return mask;
}

Result<unique_array> AllMissing(int64_t length) {
  ARROW_ASSIGN_OR_RAISE(auto column, NewColumn(length, vxDOUBLE_CLASS));
  std::fill_n(vxGetPr(column.get()), length, kNaN);
  return column;
}

// Integers and logicals with nulls cannot hold a missing value: they become double with NaN.
// Every slot is read (a null's slot holds some value of the type), then the nulls overwritten.
template <typename Read>
Result<unique_array> ToDoubleWithNaN(const ArrayVector& chunks, int64_t length, Read read) {
  ARROW_ASSIGN_OR_RAISE(auto column, NewColumn(length, vxDOUBLE_CLASS));
  double* out = vxGetPr(column.get());
  for (const auto& chunk : chunks) {
    for (int64_t i = 0; i < chunk->length(); ++i) out[i] = read(*chunk, i);
    FillNulls(*chunk, out, kNaN);
    out += chunk->length();
  }
  return column;
}

// The same for a fixed-width type, in a loop the compiler vectorises.
template <typename CType>
Result<unique_array> NumbersToDoubleWithNaN(const ArrayVector& chunks, int64_t length) {
  ARROW_ASSIGN_OR_RAISE(auto column, NewColumn(length, vxDOUBLE_CLASS));
  double* out = vxGetPr(column.get());
  for (const auto& chunk : chunks) {
    if (chunk->length() == 0) continue;  // an empty chunk may have no values buffer
    const CType* values = chunk->data()->GetValues<CType>(1);
    std::transform(values, values + chunk->length(), out,
                   [](CType value) { return static_cast<double>(value); });
    FillNulls(*chunk, out, kNaN);
    out += chunk->length();
  }
  return column;
}

// 64-bit integers with nulls keep their class, with a Missing mask beside them: a double, which
// narrower integers with nulls become, holds them exactly only up to 2^53. The choice follows
// the type alone, so a column reads the same whatever its values.
template <typename CType>
Result<unique_array> IntegersWithMissing(const ArrayVector& chunks, int64_t length,
                                         vxClassID classID) {
  ARROW_ASSIGN_OR_RAISE(auto values, NewColumn(length, classID));
  ARROW_ASSIGN_OR_RAISE(auto missing, host::Allocated(vxCreateLogicalMatrix(length, 1)));
  auto* out = static_cast<CType*>(vxGetData(values.get()));
  vxLogical* mask = vxGetLogicals(missing.get());
  for (const auto& chunk : chunks) {
    if (chunk->length() == 0) continue;  // an empty chunk may have no values buffer
    std::memcpy(out, chunk->data()->GetValues<CType>(1), chunk->length() * sizeof(CType));
    for (int64_t i = 0; i < chunk->length(); ++i) {
      if (IsNull(*chunk, i)) {
        out[i] = 0;  // whatever the file left under a null
        mask[i] = true;
      }
    }
    out += chunk->length();
    mask += chunk->length();
  }
  std::vector<host::Field> fields;
  fields.emplace_back(host::kValues, std::move(values));
  fields.emplace_back(host::kMissing, std::move(missing));
  return host::MakeObject(host::kInteger, std::move(fields));
}

// The values buffer of a lone chunk without nulls when it may become host memory as it is:
// nothing else holds the chunk, its data or the buffer, the buffer is a block of its own (not
// a view into another buffer, which its parent would still share) in writable CPU memory, and
// the values are aligned for their type. Otherwise null: the values are copied.
std::shared_ptr<Buffer> AdoptableValues(const ArrayVector& chunks, int64_t width,
                                        Chunks ownership) {
  if (ownership != Chunks::kExclusive || chunks.size() != 1) return nullptr;
  const auto& chunk = chunks[0];
  if (chunk.use_count() != 1 || chunk->data().use_count() != 1 || chunk->null_count() != 0) {
    return nullptr;
  }
  const auto& buffer = chunk->data()->buffers[1];
  if (buffer == nullptr || buffer.use_count() != 1 || buffer->parent() != nullptr ||
      !buffer->is_mutable() || !buffer->is_cpu()) {
    return nullptr;
  }
  const int64_t offset = chunk->offset() * width;
  if (buffer->size() < offset + chunk->length() * width ||
      reinterpret_cast<uintptr_t>(buffer->data() + offset) % width != 0) {
    return nullptr;
  }
  return buffer;
}

// A host column over the chunk's own values buffer; the host array keeps the buffer alive.
Result<unique_array> AdoptValues(std::shared_ptr<Buffer> buffer, const Array& chunk, int64_t width,
                                 vxClassID classID) {
  uint8_t* values = buffer->mutable_data() + chunk.offset() * width;
  return host::Allocated(
      matrix::adoptNumeric(chunk.length(), 1, classID, values, std::move(buffer)).release());
}

template <typename CType>
Result<unique_array> ConvertFixedWidth(const ArrayVector& chunks, int64_t length, vxClassID classID,
                                       Chunks ownership) {
  constexpr bool kFloating = std::is_floating_point_v<CType>;
  if (auto buffer = AdoptableValues(chunks, sizeof(CType), ownership)) {
    return AdoptValues(std::move(buffer), *chunks[0], sizeof(CType), classID);
  }
  if (!kFloating && HasNulls(chunks)) {
    if constexpr (std::is_integral_v<CType> && sizeof(CType) == 8) {
      return IntegersWithMissing<CType>(chunks, length, classID);
    } else {
      return NumbersToDoubleWithNaN<CType>(chunks, length);
    }
  }
  ARROW_ASSIGN_OR_RAISE(auto column, NewColumn(length, classID));
  auto* out = static_cast<CType*>(vxGetData(column.get()));
  for (const auto& chunk : chunks) {
    if (chunk->length() == 0) continue;  // an empty chunk may have no buffer for memcpy
    std::memcpy(out, chunk->data()->GetValues<CType>(1), chunk->length() * sizeof(CType));
    if constexpr (kFloating) FillNulls(*chunk, out, std::numeric_limits<CType>::quiet_NaN());
    out += chunk->length();
  }
  return column;
}

float HalfToFloat(uint16_t half) {
  const uint32_t sign = (half & 0x8000u) << 16;
  const uint32_t exponent = (half >> 10) & 0x1F;
  const uint32_t mantissa = half & 0x3FF;
  float magnitude;
  if (exponent == 0) {
    magnitude = std::ldexp(static_cast<float>(mantissa), -24);
  } else if (exponent == 31) {
    magnitude =
        mantissa ? std::numeric_limits<float>::quiet_NaN() : std::numeric_limits<float>::infinity();
  } else {
    magnitude = std::ldexp(static_cast<float>(mantissa | 0x400), static_cast<int>(exponent) - 25);
  }
  uint32_t bits;
  std::memcpy(&bits, &magnitude, 4);
  bits |= sign;
  float value;
  std::memcpy(&value, &bits, 4);
  return value;
}

Result<unique_array> ConvertHalfFloat(const ArrayVector& chunks, int64_t length) {
  ARROW_ASSIGN_OR_RAISE(auto column, NewColumn(length, vxSINGLE_CLASS));
  auto* out = static_cast<float*>(vxGetData(column.get()));
  for (const auto& chunk : chunks) {
    const uint16_t* values = chunk->data()->GetValues<uint16_t>(1);
    for (int64_t i = 0; i < chunk->length(); ++i) {
      out[i] = IsNull(*chunk, i) ? std::numeric_limits<float>::quiet_NaN() : HalfToFloat(values[i]);
    }
    out += chunk->length();
  }
  return column;
}

// The double nearest a decimal. An unscaled integer of at most 2^53 and a power of ten up to
// 1e22 are both exact doubles, and one IEEE division or multiplication rounds correctly; any
// other value goes through its exact text, which strtod rounds correctly. (Arrow's own
// ToDouble divides in several inexact steps and misses the nearest double for many values.)
template <typename DecimalValue>
double NearestDouble(const DecimalValue& value, int32_t scale) {
  static constexpr double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                            1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                            1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  if constexpr (std::is_same_v<DecimalValue, ::arrow::Decimal128>) {
    constexpr int64_t kExact = int64_t{1} << 53;
    const int64_t high = value.high_bits();
    const auto low = static_cast<int64_t>(value.low_bits());
    const bool small =
        (high == 0 && low >= 0 && low <= kExact) || (high == -1 && low < 0 && low >= -kExact);
    if (small && scale >= 0 && scale <= 22) {
      return static_cast<double>(low) / kPowersOfTen[scale];
    }
    if (small && scale < 0 && scale >= -22) {
      return static_cast<double>(low) * kPowersOfTen[-scale];
    }
  }
  const std::string text = value.ToString(scale);
  return std::strtod(text.c_str(), nullptr);
}

template <typename DecimalArrayType, typename DecimalValue>
Result<unique_array> ConvertDecimal(const ArrayVector& chunks, int64_t length, int32_t scale) {
  return ToDoubleWithNaN(chunks, length, [scale](const Array& chunk, int64_t i) {
    const auto& decimals = static_cast<const DecimalArrayType&>(chunk);
    return NearestDouble(DecimalValue(decimals.GetValue(i)), scale);
  });
}

Result<unique_array> ConvertBoolean(const ArrayVector& chunks, int64_t length) {
  const auto read = [](const Array& chunk, int64_t i) {
    return static_cast<const ::arrow::BooleanArray&>(chunk).Value(i);
  };
  if (HasNulls(chunks)) {
    return ToDoubleWithNaN(
        chunks, length, [&](const Array& chunk, int64_t i) { return read(chunk, i) ? 1.0 : 0.0; });
  }
  ARROW_ASSIGN_OR_RAISE(auto column, host::Allocated(vxCreateLogicalMatrix(length, 1)));
  vxLogical* out = vxGetLogicals(column.get());
  for (const auto& chunk : chunks) {
    for (int64_t i = 0; i < chunk->length(); ++i) out[i] = read(*chunk, i);
    out += chunk->length();
  }
  return column;
}

// ---- strings ---------------------------------------------------------------------------

// The byte range of a chunk's values, for STRING and LARGE_STRING alike.
template <typename Offset>
struct StringChunk {
  const Offset* offsets;  // length + 1 entries, already shifted by the chunk's offset
  const uint8_t* data;
  int64_t length;

  explicit StringChunk(const Array& chunk)
      : offsets(chunk.data()->GetValues<Offset>(1)),
        data(chunk.data()->GetValues<uint8_t>(2, 0)),
        length(chunk.length()) {}
  const uint8_t* begin() const { return data + offsets[0]; }
  size_t bytes() const { return static_cast<size_t>(offsets[length] - offsets[0]); }
  const uint8_t* value(int64_t i) const { return data + offsets[i]; }
  size_t size(int64_t i) const { return static_cast<size_t>(offsets[i + 1] - offsets[i]); }
};

// Counts the UTF-16 units of every chunk (pass one) so that Data is allocated exactly once.
template <typename Offset>
size_t CountUnits(const ArrayVector& chunks, std::vector<bool>& ascii) {
  size_t units = 0;
  for (const auto& chunk : chunks) {
    const StringChunk<Offset> strings(*chunk);
    const bool isAscii = text::IsAscii(strings.begin(), strings.bytes());
    ascii.push_back(isAscii);
    if (isAscii) {
      units += strings.bytes();
      continue;
    }
    // Per value, because an invalid sequence must not swallow the start of the next value.
    for (int64_t i = 0; i < strings.length; ++i) {
      units += text::Utf16Length(strings.value(i), strings.size(i));
    }
  }
  return units;
}

// Row offsets of an ASCII chunk: its byte offsets, shifted to where the chunk starts in Data.
template <typename Offset>
void ShiftOffsets(const StringChunk<Offset>& strings, uint64_t position, uint64_t* unitOffsets) {
  const Offset base = strings.offsets[0];
  for (int64_t i = 1; i <= strings.length; ++i) {
    unitOffsets[i] = position + static_cast<uint64_t>(strings.offsets[i] - base);
  }
}

// Rows of text widened by one task: long text columns split between the host's threads.
constexpr int64_t kTextRowsPerTask = 65536;

// The common case of ASCII text in one pass: a byte is a unit, so Data is sized from the bytes
// and each chunk is widened and checked at once, in ranges of rows on the host's threads.
// Null when some chunk is not ASCII.
template <typename Offset>
Result<unique_array> WidenAsciiData(const ArrayVector& chunks, uint64_t* unitOffsets) {
  // Where each chunk starts in Data and among the rows.
  std::vector<uint64_t> positions(chunks.size() + 1, 0);
  std::vector<int64_t> firstRows(chunks.size() + 1, 0);
  for (size_t c = 0; c < chunks.size(); ++c) {
    const StringChunk<Offset> strings(*chunks[c]);
    positions[c + 1] = positions[c] + strings.bytes();
    firstRows[c + 1] = firstRows[c] + strings.length;
  }
  ARROW_ASSIGN_OR_RAISE(auto data, host::Allocated(vxCreateUninitCharArray(1, positions.back())));
  auto* chars = reinterpret_cast<char16_t*>(vxGetChars(data.get()));
  unitOffsets[0] = 0;
  std::atomic<bool> ascii{true};
  for (size_t c = 0; c < chunks.size(); ++c) {
    const StringChunk<Offset> strings(*chunks[c]);
    const Offset base = strings.offsets[0];
    // Rows [begin, end): their bytes, and the offsets that end them.
    ParallelRanges(strings.length, kTextRowsPerTask, [&](int64_t begin, int64_t end) {
      const uint64_t start = positions[c] + static_cast<uint64_t>(strings.offsets[begin] - base);
      const size_t bytes = static_cast<size_t>(strings.offsets[end] - strings.offsets[begin]);
      if (!text::WidenIfAscii(strings.value(begin), bytes, chars + start)) ascii = false;
      for (int64_t i = begin + 1; i <= end; ++i) {
        unitOffsets[firstRows[c] + i] =
            positions[c] + static_cast<uint64_t>(strings.offsets[i] - base);
      }
    });
  }
  if (!ascii) return unique_array();
  return data;
}

// Any text: the units are counted first (pass one), so that Data is allocated exactly once.
template <typename Offset>
Result<unique_array> DecodeData(const ArrayVector& chunks, uint64_t* unitOffsets) {
  std::vector<bool> ascii;
  const size_t units = CountUnits<Offset>(chunks, ascii);
  ARROW_ASSIGN_OR_RAISE(auto data, host::Allocated(vxCreateUninitCharArray(1, units)));
  auto* chars = reinterpret_cast<char16_t*>(vxGetChars(data.get()));
  uint64_t position = 0;
  int64_t row = 0;
  unitOffsets[0] = 0;
  for (size_t c = 0; c < chunks.size(); ++c) {
    const StringChunk<Offset> strings(*chunks[c]);
    if (ascii[c]) {
      // One widening copy for the whole chunk; offsets only shift.
      text::WidenAscii(strings.begin(), strings.bytes(), chars + position);
      ShiftOffsets(strings, position, unitOffsets + row);
      position += strings.bytes();
    } else {
      for (int64_t i = 0; i < strings.length; ++i) {
        position += text::Utf8ToUtf16(strings.value(i), strings.size(i), chars + position);
        unitOffsets[row + i + 1] = position;
      }
    }
    row += strings.length;
  }
  return data;
}

template <typename Offset>
Result<unique_array> ConvertStringsOf(const ArrayVector& chunks, int64_t length) {
  ARROW_ASSIGN_OR_RAISE(auto offsets, NewColumn(length + 1, vxUINT64_CLASS));
  auto* unitOffsets = static_cast<uint64_t*>(vxGetData(offsets.get()));
  ARROW_ASSIGN_OR_RAISE(auto data, WidenAsciiData<Offset>(chunks, unitOffsets));
  if (data == nullptr) {
    ARROW_ASSIGN_OR_RAISE(data, DecodeData<Offset>(chunks, unitOffsets));
  }
  ARROW_ASSIGN_OR_RAISE(auto missing, MissingMask(chunks, length));
  std::vector<host::Field> fields;
  fields.emplace_back(host::kData, std::move(data));
  fields.emplace_back(host::kOffsets, std::move(offsets));
  fields.emplace_back(host::kMissing, std::move(missing));
  return host::MakeObject(host::kString, std::move(fields));
}

Result<unique_array> ConvertStrings(const ArrayVector& chunks, const DataType& type,
                                    int64_t length) {
  if (type.id() == Type::LARGE_STRING) return ConvertStringsOf<int64_t>(chunks, length);
  return ConvertStringsOf<int32_t>(chunks, length);
}

// ---- binary ----------------------------------------------------------------------------

// Each value becomes its own uint8 column vector: a cell cannot share one block.
Result<unique_array> ConvertBinary(const ArrayVector& chunks, int64_t length) {
  ARROW_ASSIGN_OR_RAISE(auto cell, host::Allocated(vxCreateCellMatrix(length, 1)));
  int64_t row = 0;
  for (const auto& chunk : chunks) {
    for (int64_t i = 0; i < chunk->length(); ++i, ++row) {
      vxArray* element;
      if (chunk->IsNull(i)) {
        element = vxCreateDoubleMatrix(0, 0, vxREAL);
      } else {
        std::string_view bytes;
        if (chunk->type_id() == Type::FIXED_SIZE_BINARY) {
          bytes = static_cast<const ::arrow::FixedSizeBinaryArray&>(*chunk).GetView(i);
        } else if (chunk->type_id() == Type::LARGE_BINARY) {
          bytes = static_cast<const ::arrow::LargeBinaryArray&>(*chunk).GetView(i);
        } else {
          bytes = static_cast<const ::arrow::BinaryArray&>(*chunk).GetView(i);
        }
        element = vxCreateUninitNumericMatrix(bytes.size(), 1, vxUINT8_CLASS, vxREAL);
        if (element != nullptr && !bytes.empty()) {
          std::memcpy(vxGetData(element), bytes.data(), bytes.size());
        }
      }
      ARROW_ASSIGN_OR_RAISE(auto owned, host::Allocated(element));
      vxSetCell(cell.get(), row, owned.release());
    }
  }
  return cell;
}

// ---- dates, times, durations -----------------------------------------------------------

const char* UnitName(::arrow::TimeUnit::type unit) {
  switch (unit) {
    case ::arrow::TimeUnit::SECOND:
      return "s";
    case ::arrow::TimeUnit::MILLI:
      return "ms";
    case ::arrow::TimeUnit::MICRO:
      return "us";
    case ::arrow::TimeUnit::NANO:
      return "ns";
  }
  return "";
}

struct TemporalLayout {
  const char* className;
  const char* kind;
  std::string unit;
  std::string timeZone;
  bool hasTimeZone;
};

TemporalLayout LayoutOf(const DataType& type) {
  switch (type.id()) {
    case Type::DATE32:
      return {host::kDatetime, "date32", "day", "", true};
    case Type::DATE64:
      return {host::kDatetime, "date64", "ms", "", true};
    case Type::TIMESTAMP: {
      const auto& timestamp = static_cast<const ::arrow::TimestampType&>(type);
      return {host::kDatetime, "timestamp", UnitName(timestamp.unit()), timestamp.timezone(), true};
    }
    case Type::TIME32:
      return {host::kDuration, "time32",
              UnitName(static_cast<const ::arrow::Time32Type&>(type).unit()), "", false};
    case Type::TIME64:
      return {host::kDuration, "time64",
              UnitName(static_cast<const ::arrow::Time64Type&>(type).unit()), "", false};
    default:  // DURATION
      return {host::kDuration, "duration",
              UnitName(static_cast<const ::arrow::DurationType&>(type).unit()), "", false};
  }
}

Result<unique_array> TicksOf(const ArrayVector& chunks, const DataType& type, int64_t length,
                             Chunks ownership) {
  const bool narrow = type.id() == Type::DATE32 || type.id() == Type::TIME32;
  if (!narrow) {
    if (auto buffer = AdoptableValues(chunks, sizeof(int64_t), ownership)) {
      return AdoptValues(std::move(buffer), *chunks[0], sizeof(int64_t), vxINT64_CLASS);
    }
  }
  ARROW_ASSIGN_OR_RAISE(auto ticks, NewColumn(length, vxINT64_CLASS));
  auto* out = static_cast<int64_t*>(vxGetData(ticks.get()));
  for (const auto& chunk : chunks) {
    if (chunk->length() == 0) continue;  // an empty chunk may have no buffer for memcpy
    if (narrow) {
      const int32_t* values = chunk->data()->GetValues<int32_t>(1);
      std::copy_n(values, chunk->length(), out);
    } else {
      std::memcpy(out, chunk->data()->GetValues<int64_t>(1), chunk->length() * sizeof(int64_t));
    }
    // Nulls hold whatever the buffer held; zero them so that equal columns compare equal.
    FillNulls(*chunk, out, int64_t{0});
    out += chunk->length();
  }
  return ticks;
}

Result<unique_array> ConvertTemporal(const ArrayVector& chunks, const DataType& type,
                                     int64_t length, Chunks ownership) {
  const TemporalLayout layout = LayoutOf(type);
  std::vector<host::Field> fields;
  ARROW_ASSIGN_OR_RAISE(auto ticks, TicksOf(chunks, type, length, ownership));
  fields.emplace_back(host::kTicks, std::move(ticks));
  ARROW_ASSIGN_OR_RAISE(auto unit, host::MakeText(layout.unit));
  fields.emplace_back(host::kUnit, std::move(unit));
  if (layout.hasTimeZone) {
    ARROW_ASSIGN_OR_RAISE(auto zone, host::MakeText(layout.timeZone));
    fields.emplace_back(host::kTimeZone, std::move(zone));
  }
  ARROW_ASSIGN_OR_RAISE(auto kind, host::MakeText(layout.kind));
  fields.emplace_back(host::kKind, std::move(kind));
  ARROW_ASSIGN_OR_RAISE(auto missing, MissingMask(chunks, length));
  fields.emplace_back(host::kMissing, std::move(missing));
  return host::MakeObject(layout.className, std::move(fields));
}

// ---- dictionaries ----------------------------------------------------------------------

vxClassID IntegerClass(Type::type id) {
  switch (id) {
    case Type::INT8:
      return vxINT8_CLASS;
    case Type::UINT8:
      return vxUINT8_CLASS;
    case Type::INT16:
      return vxINT16_CLASS;
    case Type::UINT16:
      return vxUINT16_CLASS;
    case Type::INT32:
      return vxINT32_CLASS;
    case Type::UINT32:
      return vxUINT32_CLASS;
    case Type::INT64:
      return vxINT64_CLASS;
    case Type::UINT64:
      return vxUINT64_CLASS;
    default:
      return vxUNKNOWN_CLASS;
  }
}

// Chunks whose dictionaries differ are brought onto one dictionary; the common case of one
// shared dictionary (every chunk of a Parquet column chunk read) costs nothing.
Result<ArrayVector> WithOneDictionary(const ArrayVector& chunks,
                                      const std::shared_ptr<DataType>& type) {
  bool shared = true;
  for (size_t c = 1; c < chunks.size() && shared; ++c) {
    const auto& first = static_cast<const ::arrow::DictionaryArray&>(*chunks[0]).dictionary();
    const auto& other = static_cast<const ::arrow::DictionaryArray&>(*chunks[c]).dictionary();
    shared = first == other || first->Equals(*other);
  }
  if (shared) return chunks;
  auto chunked = std::make_shared<::arrow::ChunkedArray>(chunks, type);
  ARROW_ASSIGN_OR_RAISE(auto unified, ::arrow::DictionaryUnifier::UnifyChunkedArray(chunked));
  return unified->chunks();
}

Result<unique_array> ConvertCategorical(const ArrayVector& input, const DataType& type,
                                        int64_t length) {
  const auto& dictType = static_cast<const ::arrow::DictionaryType&>(type);
  ArrayVector chunks = input;
  if (!chunks.empty()) {
    ARROW_ASSIGN_OR_RAISE(chunks, WithOneDictionary(input, chunks[0]->type()));
  }
  const auto& indexType =
      chunks.empty() ? dictType.index_type()
                     : static_cast<const ::arrow::DictionaryType&>(*chunks[0]->type()).index_type();
  const int width = indexType->byte_width();
  ARROW_ASSIGN_OR_RAISE(auto codes, NewColumn(length, IntegerClass(indexType->id())));
  auto* out = static_cast<uint8_t*>(vxGetData(codes.get()));
  ArrayVector indices;
  for (const auto& chunk : chunks) {
    const auto& dictionary = static_cast<const ::arrow::DictionaryArray&>(*chunk);
    indices.push_back(dictionary.indices());
    if (chunk->length() == 0) continue;  // an empty chunk may have no buffer for memcpy
    std::memcpy(out, dictionary.indices()->data()->GetValues<uint8_t>(1, chunk->offset() * width),
                chunk->length() * width);
    out += chunk->length() * width;
  }
  std::shared_ptr<Array> dictionary;
  if (chunks.empty()) {
    ARROW_ASSIGN_OR_RAISE(dictionary, ::arrow::MakeEmptyArray(dictType.value_type()));
  } else {
    dictionary = static_cast<const ::arrow::DictionaryArray&>(*chunks[0]).dictionary();
  }
  ARROW_ASSIGN_OR_RAISE(auto categories,
                        ConvertStrings({dictionary}, *dictionary->type(), dictionary->length()));
  ARROW_ASSIGN_OR_RAISE(auto missing, MissingMask(chunks, length));
  ARROW_ASSIGN_OR_RAISE(auto ordered, host::Allocated(vxCreateLogicalScalar(dictType.ordered())));
  std::vector<host::Field> fields;
  fields.emplace_back(host::kCodes, std::move(codes));
  fields.emplace_back(host::kCategories, std::move(categories));
  fields.emplace_back(host::kOrdered, std::move(ordered));
  fields.emplace_back(host::kMissing, std::move(missing));
  return host::MakeObject(host::kCategorical, std::move(fields));
}

// Dictionaries of anything but text are decoded: the host has no encoded form for them.
Result<unique_array> ConvertDecodedDictionary(const ArrayVector& chunks, const DataType& type,
                                              int64_t length) {
  ArrayVector decoded;
  for (const auto& chunk : chunks) {
    const auto& dictionary = static_cast<const ::arrow::DictionaryArray&>(*chunk);
    ARROW_ASSIGN_OR_RAISE(auto values,
                          ::arrow::compute::Take(*dictionary.dictionary(), *dictionary.indices()));
    decoded.push_back(std::move(values));
  }
  const auto& valueType = *static_cast<const ::arrow::DictionaryType&>(type).value_type();
  return ConvertColumn(decoded, valueType, length);
}

// ---- nested ----------------------------------------------------------------------------

Result<unique_array> NullElement() { return host::Allocated(vxCreateDoubleMatrix(0, 0, vxREAL)); }

bool IsIntegerOrBoolean(const DataType& type) {
  return type.id() == Type::BOOL || ::arrow::is_integer(type.id());
}

bool IsWideInteger(const DataType& type) {
  return type.id() == Type::INT64 || type.id() == Type::UINT64;
}

// Integer and logical values with nulls become double, so the rows of one list column could
// get different classes depending on where the nulls fall. Deciding once for the whole values
// array keeps every element of the cell (and each field of list-of-struct elements) one class.
Result<std::shared_ptr<Array>> PromoteNullableIntegers(const std::shared_ptr<Array>& values) {
  // 64-bit integers with nulls stay as they are: every element becomes an integer object.
  if (IsWideInteger(*values->type())) return values;
  if (IsIntegerOrBoolean(*values->type()) && values->null_count() > 0) {
    // Nulls may hide values a safe cast would refuse; they become NaN whatever they hold.
    ARROW_ASSIGN_OR_RAISE(
        auto cast,
        ::arrow::compute::Cast(values, ::arrow::compute::CastOptions::Unsafe(::arrow::float64())));
    return cast.make_array();
  }
  if (values->type_id() != Type::STRUCT) return values;
  const auto& structs = static_cast<const ::arrow::StructArray&>(*values);
  ::arrow::ArrayVector children;
  bool changed = false;
  for (int k = 0; k < values->num_fields(); ++k) {
    ARROW_ASSIGN_OR_RAISE(auto child, structs.GetFlattenedField(k));
    ARROW_ASSIGN_OR_RAISE(auto promoted, PromoteNullableIntegers(child));
    changed = changed || promoted != child;
    children.push_back(promoted);
  }
  if (!changed) return values;
  std::vector<std::string> names;
  for (const auto& field : values->type()->fields()) names.push_back(field->name());
  // Flattening already pushed the struct's nulls into its fields, which is all the host
  // keeps of them (a null struct row is missing in every field).
  ARROW_ASSIGN_OR_RAISE(auto rebuilt, ::arrow::StructArray::Make(children, names));
  return std::static_pointer_cast<Array>(rebuilt);
}

// Converts ranges of one values array (the elements of list or map rows) into host columns,
// each exactly as ConvertColumn converts a slice of the values. Numbers and logicals, the
// common elements, are copied straight from the values buffer; other types go through a
// slice.
class ElementRanges {
 public:
  explicit ElementRanges(std::shared_ptr<Array> values)
      : mValues(std::move(values)),
        mDirect(IsDirect(*mValues)),
        mWideWithNulls(IsWideInteger(*mValues->type()) && mValues->null_count() > 0) {}

  Result<unique_array> Convert(int64_t start, int64_t size) const {
    if (mWideWithNulls) {
      // Every element an integer object, with or without nulls of its own, so that the cells
      // of one column are all of one kind.
      const ArrayVector slice = {mValues->Slice(start, size)};
      if (mValues->type_id() == Type::INT64) {
        return IntegersWithMissing<int64_t>(slice, size, vxINT64_CLASS);
      }
      return IntegersWithMissing<uint64_t>(slice, size, vxUINT64_CLASS);
    }
    if (!mDirect) {
      const auto slice = mValues->Slice(start, size);
      return ConvertColumn({slice}, *mValues->type(), size);
    }
    switch (mValues->type_id()) {
      case Type::BOOL:
        return Logicals(start, size);
      case Type::INT8:
        return Numbers<int8_t>(start, size, vxINT8_CLASS);
      case Type::UINT8:
        return Numbers<uint8_t>(start, size, vxUINT8_CLASS);
      case Type::INT16:
        return Numbers<int16_t>(start, size, vxINT16_CLASS);
      case Type::UINT16:
        return Numbers<uint16_t>(start, size, vxUINT16_CLASS);
      case Type::INT32:
        return Numbers<int32_t>(start, size, vxINT32_CLASS);
      case Type::UINT32:
        return Numbers<uint32_t>(start, size, vxUINT32_CLASS);
      case Type::INT64:
        return Numbers<int64_t>(start, size, vxINT64_CLASS);
      case Type::UINT64:
        return Numbers<uint64_t>(start, size, vxUINT64_CLASS);
      case Type::FLOAT:
        return Numbers<float>(start, size, vxSINGLE_CLASS);
      default:  // DOUBLE
        return Numbers<double>(start, size, vxDOUBLE_CLASS);
    }
  }

 private:
  // Integers and logicals come here only without nulls (PromoteNullableIntegers made the
  // others double); floating-point nulls become NaN.
  static bool IsDirect(const Array& values) {
    switch (values.type_id()) {
      case Type::FLOAT:
      case Type::DOUBLE:
        return true;
      default:
        return IsIntegerOrBoolean(*values.type()) && values.null_count() == 0;
    }
  }

  template <typename CType>
  Result<unique_array> Numbers(int64_t start, int64_t size, vxClassID classID) const {
    ARROW_ASSIGN_OR_RAISE(auto column, NewColumn(size, classID));
    if (size == 0) return column;  // the values buffer of an empty array may be missing
    auto* out = static_cast<CType*>(vxGetData(column.get()));
    std::memcpy(out, mValues->data()->GetValues<CType>(1) + start, size * sizeof(CType));
    if constexpr (std::is_floating_point_v<CType>) {
      FillNulls(*mValues, start, size, out, std::numeric_limits<CType>::quiet_NaN());
    }
    return column;
  }

  Result<unique_array> Logicals(int64_t start, int64_t size) const {
    ARROW_ASSIGN_OR_RAISE(auto column, host::Allocated(vxCreateLogicalMatrix(size, 1)));
    vxLogical* out = vxGetLogicals(column.get());
    const auto& logicals = static_cast<const ::arrow::BooleanArray&>(*mValues);
    for (int64_t i = 0; i < size; ++i) out[i] = logicals.Value(start + i);
    return column;
  }

  std::shared_ptr<Array> mValues;
  bool mDirect;
  bool mWideWithNulls;
};

// Cells of more than this many rows are split between the host's threads.
constexpr int64_t kCellRowsPerTask = 8192;

// Fills cell rows [0, length) with element(i) for the non-null rows of the chunk and with the
// null element for the others, splitting long chunks between threads. On failure, the status
// of the first failing row.
template <typename Element>
Status FillCells(const Array& chunk, vxArray* cell, int64_t firstRow, Element element) {
  std::mutex failureMutex;
  int64_t failedRow = chunk.length();
  Status failure;
  ParallelRanges(chunk.length(), kCellRowsPerTask, [&](int64_t begin, int64_t end) {
    for (int64_t i = begin; i < end; ++i) {
      auto result = chunk.IsNull(i) ? NullElement() : element(i);
      if (!result.ok()) {
        std::lock_guard<std::mutex> lock(failureMutex);
        if (i < failedRow) {
          failedRow = i;
          failure = result.status();
        }
        return;
      }
      vxSetCell(cell, firstRow + i, std::move(result).ValueUnsafe().release());
    }
  });
  return failure;
}

template <typename ListArrayType>
Status FillListCells(const Array& chunk, vxArray* cell, int64_t firstRow) {
  const auto& lists = static_cast<const ListArrayType&>(chunk);
  ARROW_ASSIGN_OR_RAISE(auto values, PromoteNullableIntegers(lists.values()));
  const ElementRanges elements(std::move(values));
  return FillCells(chunk, cell, firstRow, [&](int64_t i) {
    return elements.Convert(lists.value_offset(i), lists.value_length(i));
  });
}

Status FillMapCells(const Array& chunk, vxArray* cell, int64_t firstRow) {
  const auto& maps = static_cast<const ::arrow::MapArray&>(chunk);
  ARROW_ASSIGN_OR_RAISE(auto keys, PromoteNullableIntegers(maps.keys()));
  ARROW_ASSIGN_OR_RAISE(auto items, PromoteNullableIntegers(maps.items()));
  const ElementRanges keyRanges(std::move(keys));
  const ElementRanges itemRanges(std::move(items));
  return FillCells(chunk, cell, firstRow, [&](int64_t i) -> Result<unique_array> {
    const int64_t start = maps.value_offset(i), size = maps.value_length(i);
    std::vector<unique_array> columns(2);
    ARROW_ASSIGN_OR_RAISE(columns[0], keyRanges.Convert(start, size));
    ARROW_ASSIGN_OR_RAISE(columns[1], itemRanges.Convert(start, size));
    return host::MakeTable({"Key", "Value"}, std::move(columns));
  });
}

// List and map columns: one cell row per Arrow row, each converted from its range of the
// chunk's values (a null row becomes the null element).
// Whether integers or logicals lie anywhere below type (they may need promoting to double).
bool HoldsIntegersOrBooleans(const DataType& type) {
  if (IsIntegerOrBoolean(type)) return true;
  for (const auto& child : type.fields()) {
    if (HoldsIntegersOrBooleans(*child->type())) return true;
  }
  return false;
}

Result<unique_array> ConvertNestedCells(const ArrayVector& columnChunks, int64_t length) {
  ARROW_ASSIGN_OR_RAISE(auto cell, host::Allocated(vxCreateCellMatrix(length, 1)));
  // Integers with nulls become double chunk by chunk; joined first, every row of the column
  // gets the same class whichever row group its nulls came from.
  ArrayVector chunks = columnChunks;
  if (chunks.size() > 1 && HoldsIntegersOrBooleans(*chunks[0]->type())) {
    ARROW_ASSIGN_OR_RAISE(auto joined, ::arrow::Concatenate(chunks));
    chunks = {std::move(joined)};
  }
  int64_t row = 0;
  for (const auto& chunk : chunks) {
    switch (chunk->type_id()) {
      case Type::LIST:
        ARROW_RETURN_NOT_OK(FillListCells<::arrow::ListArray>(*chunk, cell.get(), row));
        break;
      case Type::LARGE_LIST:
        ARROW_RETURN_NOT_OK(FillListCells<::arrow::LargeListArray>(*chunk, cell.get(), row));
        break;
      default:
        ARROW_RETURN_NOT_OK(FillMapCells(*chunk, cell.get(), row));
        break;
    }
    row += chunk->length();
  }
  return cell;
}

// A struct is a nested table. A null struct row shows as missing in every field.
Result<unique_array> ConvertStruct(const ArrayVector& chunks, const DataType& type,
                                   int64_t length) {
  std::vector<std::string> names;
  std::vector<unique_array> columns;
  for (int k = 0; k < type.num_fields(); ++k) {
    ArrayVector fieldChunks;
    for (const auto& chunk : chunks) {
      ARROW_ASSIGN_OR_RAISE(auto field,
                            static_cast<const ::arrow::StructArray&>(*chunk).GetFlattenedField(k));
      fieldChunks.push_back(std::move(field));
    }
    names.push_back(type.field(k)->name());
    ARROW_ASSIGN_OR_RAISE(auto column, ConvertColumn(fieldChunks, *type.field(k)->type(), length));
    columns.push_back(std::move(column));
  }
  return host::MakeTable(names, std::move(columns));
}

// Types of newer Arrow releases that hold what an older type holds, in another layout: they
// convert as that type (text views as text, 32- and 64-bit decimals as 128-bit ones, list
// views as lists). Null for every other type.
std::shared_ptr<DataType> PlainFormOf(const DataType& type) {
#if ARROW_VERSION_MAJOR >= 19
  switch (type.id()) {
    case Type::STRING_VIEW:
      return ::arrow::utf8();
    case Type::BINARY_VIEW:
      return ::arrow::binary();
    case Type::DECIMAL32:
    case Type::DECIMAL64: {
      const auto& decimal = static_cast<const ::arrow::DecimalType&>(type);
      return ::arrow::decimal128(decimal.precision(), decimal.scale());
    }
    case Type::LIST_VIEW:
      return ::arrow::list(type.field(0));
    case Type::LARGE_LIST_VIEW:
      return ::arrow::large_list(type.field(0));
    default:
      break;
  }
#endif
  (void)type;
  return nullptr;
}

Result<unique_array> ConvertAsPlainForm(const ArrayVector& chunks,
                                        const std::shared_ptr<DataType>& plain, int64_t length) {
  ArrayVector cast;
  for (const auto& chunk : chunks) {
    ARROW_ASSIGN_OR_RAISE(auto datum, ::arrow::compute::Cast(chunk, plain));
    cast.push_back(datum.make_array());
  }
  return ConvertColumn(cast, *plain, length);
}

Result<unique_array> ConvertColumn(const ArrayVector& chunks, const DataType& type, int64_t length,
                                   Chunks ownership) {
  switch (type.id()) {
    case Type::BOOL:
      return ConvertBoolean(chunks, length);
    case Type::INT8:
      return ConvertFixedWidth<int8_t>(chunks, length, vxINT8_CLASS, ownership);
    case Type::UINT8:
      return ConvertFixedWidth<uint8_t>(chunks, length, vxUINT8_CLASS, ownership);
    case Type::INT16:
      return ConvertFixedWidth<int16_t>(chunks, length, vxINT16_CLASS, ownership);
    case Type::UINT16:
      return ConvertFixedWidth<uint16_t>(chunks, length, vxUINT16_CLASS, ownership);
    case Type::INT32:
      return ConvertFixedWidth<int32_t>(chunks, length, vxINT32_CLASS, ownership);
    case Type::UINT32:
      return ConvertFixedWidth<uint32_t>(chunks, length, vxUINT32_CLASS, ownership);
    case Type::INT64:
      return ConvertFixedWidth<int64_t>(chunks, length, vxINT64_CLASS, ownership);
    case Type::UINT64:
      return ConvertFixedWidth<uint64_t>(chunks, length, vxUINT64_CLASS, ownership);
    case Type::HALF_FLOAT:
      return ConvertHalfFloat(chunks, length);
    case Type::FLOAT:
      return ConvertFixedWidth<float>(chunks, length, vxSINGLE_CLASS, ownership);
    case Type::DOUBLE:
      return ConvertFixedWidth<double>(chunks, length, vxDOUBLE_CLASS, ownership);
    case Type::DECIMAL128:
      return ConvertDecimal<::arrow::Decimal128Array, ::arrow::Decimal128>(
          chunks, length, static_cast<const ::arrow::DecimalType&>(type).scale());
    case Type::DECIMAL256:
      return ConvertDecimal<::arrow::Decimal256Array, ::arrow::Decimal256>(
          chunks, length, static_cast<const ::arrow::DecimalType&>(type).scale());
    case Type::NA:
      return AllMissing(length);
    case Type::STRING:
    case Type::LARGE_STRING:
      return ConvertStrings(chunks, type, length);
    case Type::BINARY:
    case Type::LARGE_BINARY:
    case Type::FIXED_SIZE_BINARY:
      return ConvertBinary(chunks, length);
    case Type::DATE32:
    case Type::DATE64:
    case Type::TIMESTAMP:
    case Type::TIME32:
    case Type::TIME64:
    case Type::DURATION:
      return ConvertTemporal(chunks, type, length, ownership);
    case Type::DICTIONARY: {
      const auto valueId = static_cast<const ::arrow::DictionaryType&>(type).value_type()->id();
      if (valueId == Type::STRING || valueId == Type::LARGE_STRING) {
        return ConvertCategorical(chunks, type, length);
      }
      return ConvertDecodedDictionary(chunks, type, length);
    }
    case Type::LIST:
    case Type::LARGE_LIST:
    case Type::MAP:
      return ConvertNestedCells(chunks, length);
    case Type::STRUCT:
      return ConvertStruct(chunks, type, length);
    default:
      if (auto plain = PlainFormOf(type)) return ConvertAsPlainForm(chunks, plain, length);
      return Status::TypeError("the host has no value for Arrow type ", type.ToString());
  }
}

Status UnsupportedColumn(const std::string& name, const std::shared_ptr<DataType>& type) {
  return Status(::arrow::StatusCode::TypeError,
                "Column '" + name + "' has Arrow type " + type->ToString() +
                    ", which the host cannot represent",
                std::make_shared<TableErrorStatusDetail>(name, type));
}

}  // namespace

TableErrorStatusDetail::TableErrorStatusDetail(std::string columnName,
                                               std::shared_ptr<::arrow::DataType> type)
    : mColumnName(std::move(columnName)), mType(std::move(type)) {}

const char* TableErrorStatusDetail::type_id() const {
  return "vantro::io::arrow::core::TableErrorStatusDetail";
}

std::string TableErrorStatusDetail::ToString() const {
  return "column '" + mColumnName + "' of unsupported type " + (mType ? mType->ToString() : "?");
}

std::optional<std::string> to_vantro_datatype(const std::shared_ptr<::arrow::DataType>& type) {
  if (type == nullptr) return std::nullopt;
  if (auto plain = PlainFormOf(*type)) return to_vantro_datatype(plain);
  switch (type->id()) {
    case Type::BOOL:
      return "logical";
    case Type::INT8:
      return "int8";
    case Type::UINT8:
      return "uint8";
    case Type::INT16:
      return "int16";
    case Type::UINT16:
      return "uint16";
    case Type::INT32:
      return "int32";
    case Type::UINT32:
      return "uint32";
    case Type::INT64:
      return "int64";
    case Type::UINT64:
      return "uint64";
    case Type::HALF_FLOAT:
    case Type::FLOAT:
      return "single";
    case Type::DOUBLE:
    case Type::DECIMAL128:
    case Type::DECIMAL256:
    case Type::NA:
      return "double";
    case Type::STRING:
    case Type::LARGE_STRING:
      return "string";
    case Type::BINARY:
    case Type::LARGE_BINARY:
    case Type::FIXED_SIZE_BINARY:
      return "cell";
    case Type::DATE32:
    case Type::DATE64:
    case Type::TIMESTAMP:
      return "datetime";
    case Type::TIME32:
    case Type::TIME64:
    case Type::DURATION:
      return "duration";
    case Type::DICTIONARY: {
      const auto& valueType = static_cast<const ::arrow::DictionaryType&>(*type).value_type();
      if (valueType->id() == Type::STRING || valueType->id() == Type::LARGE_STRING) {
        return "categorical";
      }
      return to_vantro_datatype(valueType);
    }
    case Type::LIST:
    case Type::LARGE_LIST:
    case Type::MAP:
    case Type::STRUCT:
      // A nested type is supported only when everything inside it is.
      for (const auto& child : type->fields()) {
        if (!to_vantro_datatype(child->type())) return std::nullopt;
      }
      return std::string(type->id() == Type::STRUCT ? "table" : "cell");
    default:
      return std::nullopt;
  }
}

namespace {

// The column names of a table whose every column the host supports.
Result<std::vector<std::string>> SupportedColumnNames(const ::arrow::Schema& schema) {
  std::vector<std::string> names;
  for (const auto& field : schema.fields()) {
    names.push_back(field->name());
    if (!to_vantro_datatype(field->type())) return UnsupportedColumn(field->name(), field->type());
  }
  return names;
}

// Who may hold a consumed table's columns besides the converter.
enum class Holders {
  kCounted,    // anyone: a column is the converter's alone only when its use count says so
  kFreshRead,  // nobody who reads them again (see to_vantro_from_read)
};

// Columns that appear more than once in the table: each sees the other's memory.
std::vector<bool> Repeated(const ::arrow::ChunkedArrayVector& columns) {
  std::vector<bool> repeated(columns.size(), false);
  for (size_t i = 0; i < columns.size(); ++i) {
    for (size_t j = i + 1; j < columns.size(); ++j) {
      if (columns[i] == columns[j]) repeated[i] = repeated[j] = true;
    }
  }
  return repeated;
}

// Converts each column and drops this function's reference to it as soon as it is done. A
// column that only the converter holds may lend its buffers to the host table, and is freed
// right after its conversion, so the Arrow table never stays whole beside the host table.
Result<unique_array> ConvertColumns(const std::vector<std::string>& names,
                                    ::arrow::ChunkedArrayVector columns, Holders holders) {
  const std::vector<bool> repeated = Repeated(columns);
  std::vector<unique_array> converted(columns.size());
  std::vector<Status> statuses(columns.size());
  ParallelFor(columns.size(), [&](size_t i) {
    std::shared_ptr<::arrow::ChunkedArray> column = std::move(columns[i]);
    const bool alone = holders == Holders::kFreshRead ? !repeated[i] : column.use_count() == 1;
    const Chunks ownership = alone ? Chunks::kExclusive : Chunks::kShared;
    auto result = ConvertColumn(column->chunks(), *column->type(), column->length(), ownership);
    column.reset();
    if (result.ok()) {
      converted[i] = std::move(result).ValueUnsafe();
    } else {
      const Status& status = result.status();
      statuses[i] = status.WithMessage("column '", names[i], "': ", status.message());
    }
  });
  for (const auto& status : statuses) ARROW_RETURN_NOT_OK(status);
  return host::MakeTable(names, std::move(converted));
}

}  // namespace

::arrow::Result<matrix::unique_array> to_vantro(const std::shared_ptr<::arrow::Table>& table) {
  if (table == nullptr) return host::MakeTable({}, {});
  ARROW_ASSIGN_OR_RAISE(auto names, SupportedColumnNames(*table->schema()));
  // The table still holds every column, so none is converted in place.
  return ConvertColumns(names, table->columns(), Holders::kCounted);
}

namespace {

Result<unique_array> ConsumeTable(std::shared_ptr<::arrow::Table> table, Holders holders) {
  if (table == nullptr) return host::MakeTable({}, {});
  ARROW_ASSIGN_OR_RAISE(auto names, SupportedColumnNames(*table->schema()));
  ::arrow::ChunkedArrayVector columns = table->columns();
  // Dropping the table leaves this function the only holder of each column that nobody else
  // shares; a table the caller still shares elsewhere keeps its columns, which are copied.
  table.reset();
  return ConvertColumns(names, std::move(columns), holders);
}

}  // namespace

::arrow::Result<matrix::unique_array> to_vantro(std::shared_ptr<::arrow::Table>&& table) {
  return ConsumeTable(std::move(table), Holders::kCounted);
}

::arrow::Result<matrix::unique_array> to_vantro_from_read(std::shared_ptr<::arrow::Table>&& table) {
  return ConsumeTable(std::move(table), Holders::kFreshRead);
}

::arrow::Result<matrix::unique_array> to_vantro(const std::shared_ptr<::arrow::Array>& array) {
  if (array == nullptr) return Status::Invalid("to_vantro: no array");
  if (!to_vantro_datatype(array->type())) return UnsupportedColumn("", array->type());
  return ConvertColumn({array}, *array->type(), array->length());
}

}  // namespace vantro::io::arrow::core
