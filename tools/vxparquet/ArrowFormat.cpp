#include "ArrowFormat.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include <arrow/array.h>
#include <arrow/scalar.h>
#include <arrow/table.h>
#include <arrow/type_traits.h>
#include <arrow/util/decimal.h>

#include "host/converter/Display.hpp"
#include "host/converter/ParallelFor.hpp"

namespace vxparquet::format {
namespace {

using vantro::io::arrow::core::display::CivilFromDays;
using vantro::io::arrow::core::display::SplitTicks;

using ::arrow::Array;
using ::arrow::Status;

// ---- Numbers -------------------------------------------------------------------------------

template <class Integer>
void AppendInteger(Integer value, std::string* out) {
  char text[24];
  const auto end = std::to_chars(text, text + sizeof text, value).ptr;
  out->append(text, end);
}

// The shortest text that reads back to the same bits; NaN and the infinities as words (JSON
// strings in JSON, where they are not numbers).
template <class Float>
void AppendFloat(Float value, bool json, std::string* out) {
  if (std::isnan(value)) {
    out->append(json ? "\"NaN\"" : "NaN");
  } else if (std::isinf(value)) {
    if (json) {
      out->append(value > 0 ? "\"Infinity\"" : "\"-Infinity\"");
    } else {
      out->append(value > 0 ? "Inf" : "-Inf");
    }
  } else {
    char text[64];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    out->append(text, end);
  }
}

// A half float widened exactly to single precision.
float HalfToFloat(uint16_t half) {
  const uint32_t sign = (half & 0x8000u) << 16;
  const uint32_t exponent = (half >> 10) & 0x1f;
  const uint32_t mantissa = half & 0x3ffu;
  float magnitude;
  if (exponent == 0) {
    magnitude = std::ldexp(static_cast<float>(mantissa), -24);
  } else if (exponent == 31) {
    magnitude = mantissa == 0 ? INFINITY : NAN;
  } else {
    magnitude = std::ldexp(static_cast<float>(mantissa | 0x400u), static_cast<int>(exponent) - 25);
  }
  return sign ? -magnitude : magnitude;
}

// "123.45" from the unscaled integer 12345 and scale 2; a negative scale appends zeros.
void AppendScaled(bool negative, std::string digits, int32_t scale, std::string* out) {
  if (negative) out->push_back('-');
  if (scale <= 0) {
    out->append(digits);
    if (digits != "0") out->append(static_cast<size_t>(-scale), '0');
    return;
  }
  const auto fraction = static_cast<size_t>(scale);
  if (digits.size() <= fraction) digits.insert(0, fraction + 1 - digits.size(), '0');
  out->append(digits, 0, digits.size() - fraction);
  out->push_back('.');
  out->append(digits, digits.size() - fraction, fraction);
}

// Decimal digits of a 128-bit magnitude, in pieces of 19 digits that fit 64 bits.
std::string Digits128(unsigned __int128 magnitude) {
  constexpr uint64_t kPiece = 10000000000000000000ull;  // 10^19
  if (magnitude <= UINT64_MAX) return std::to_string(static_cast<uint64_t>(magnitude));
  std::string low = std::to_string(static_cast<uint64_t>(magnitude % kPiece));
  low.insert(0, 19 - low.size(), '0');
  return Digits128(magnitude / kPiece) + low;
}

// ---- Dates and times -----------------------------------------------------------------------

// `width` decimal digits of value, zero-padded, at p.
char* PutDigits(char* p, uint64_t value, int width) {
  for (int i = width - 1; i >= 0; --i) {
    p[i] = static_cast<char>('0' + value % 10);
    value /= 10;
  }
  return p + width;
}

char* PutDate(char* p, int64_t days) {
  int64_t year;
  unsigned month, day;
  CivilFromDays(days, year, month, day);
  if (year >= 0 && year <= 9999) {
    p = PutDigits(p, static_cast<uint64_t>(year), 4);
  } else {
    // Years outside four digits, as printf's %04 prints them.
    char text[24];
    const int length = std::snprintf(text, sizeof text, "%04lld", static_cast<long long>(year));
    std::memcpy(p, text, static_cast<size_t>(length));
    p += length;
  }
  *p++ = '-';
  p = PutDigits(p, month, 2);
  *p++ = '-';
  return PutDigits(p, day, 2);
}

struct UnitScale {
  int64_t perSecond;
  int digits;
  const char* name;
};

UnitScale ScaleOf(::arrow::TimeUnit::type unit) {
  switch (unit) {
    case ::arrow::TimeUnit::MILLI:
      return {1000, 3, "ms"};
    case ::arrow::TimeUnit::MICRO:
      return {1000000, 6, "us"};
    case ::arrow::TimeUnit::NANO:
      return {1000000000, 9, "ns"};
    default:
      return {1, 0, "s"};
  }
}

// hh:mm:ss[.fraction]; hours may pass 23 for times of day out of range.
char* PutClock(char* p, int64_t secondsOfDay, int64_t fraction, int digits) {
  const auto hours = static_cast<uint64_t>(secondsOfDay / 3600);
  if (hours < 100) {
    p = PutDigits(p, hours, 2);
  } else {
    p = std::to_chars(p, p + 24, hours).ptr;
  }
  *p++ = ':';
  p = PutDigits(p, static_cast<uint64_t>(secondsOfDay / 60 % 60), 2);
  *p++ = ':';
  p = PutDigits(p, static_cast<uint64_t>(secondsOfDay % 60), 2);
  if (digits > 0) {
    *p++ = '.';
    p = PutDigits(p, static_cast<uint64_t>(fraction), digits);
  }
  return p;
}

// ---- Texts ---------------------------------------------------------------------------------

void AppendBase64(std::string_view bytes, std::string* out) {
  static const char* kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
  const size_t size = bytes.size();
  for (size_t i = 0; i < size; i += 3) {
    const uint32_t chunk = (static_cast<uint32_t>(data[i]) << 16) |
                           (i + 1 < size ? static_cast<uint32_t>(data[i + 1]) << 8 : 0) |
                           (i + 2 < size ? data[i + 2] : 0);
    out->push_back(kAlphabet[(chunk >> 18) & 63]);
    out->push_back(kAlphabet[(chunk >> 12) & 63]);
    out->push_back(i + 1 < size ? kAlphabet[(chunk >> 6) & 63] : '=');
    out->push_back(i + 2 < size ? kAlphabet[chunk & 63] : '=');
  }
}

// ---- Formatters per type -------------------------------------------------------------------

class BooleanFormatter : public ValueFormatter {
 public:
  using ValueFormatter::ValueFormatter;
  void AppendJson(int64_t row, std::string* out) const override {
    out->append(static_cast<const ::arrow::BooleanArray&>(mArray).Value(row) ? "true" : "false");
  }
};

template <class ArrowType>
class IntegerFormatter : public ValueFormatter {
 public:
  explicit IntegerFormatter(const Array& array)
      : ValueFormatter(array), mValues(static_cast<const ArrayType&>(array).raw_values()) {}
  void AppendJson(int64_t row, std::string* out) const override {
    AppendInteger(mValues[row], out);
  }
  bool IsNumber() const override { return true; }

 private:
  using ArrayType = typename ::arrow::TypeTraits<ArrowType>::ArrayType;
  const typename ArrowType::c_type* mValues;
};

template <class ArrowType>
class FloatFormatter : public ValueFormatter {
 public:
  explicit FloatFormatter(const Array& array)
      : ValueFormatter(array), mValues(static_cast<const ArrayType&>(array).raw_values()) {}
  void AppendJson(int64_t row, std::string* out) const override {
    AppendFloat(Value(row), /*json=*/true, out);
  }
  void AppendText(int64_t row, std::string* out) const override {
    AppendFloat(Value(row), /*json=*/false, out);
  }
  bool IsNumber() const override { return true; }

 private:
  using ArrayType = typename ::arrow::TypeTraits<ArrowType>::ArrayType;
  auto Value(int64_t row) const {
    if constexpr (std::is_same_v<ArrowType, ::arrow::HalfFloatType>) {
      return HalfToFloat(mValues[row]);
    } else {
      return mValues[row];
    }
  }
  const typename ArrowType::c_type* mValues;
};

class Decimal128Formatter : public ValueFormatter {
 public:
  explicit Decimal128Formatter(const Array& array)
      : ValueFormatter(array),
        mScale(static_cast<const ::arrow::DecimalType&>(*array.type()).scale()) {}
  void AppendJson(int64_t row, std::string* out) const override {
    const uint8_t* bytes = static_cast<const ::arrow::FixedSizeBinaryArray&>(mArray).GetValue(row);
    // Little-endian two's complement: low 64 bits, then high 64 bits.
    uint64_t low, high;
    std::memcpy(&low, bytes, 8);
    std::memcpy(&high, bytes + 8, 8);
    const auto value = static_cast<__int128>((static_cast<unsigned __int128>(high) << 64) | low);
    const bool negative = value < 0;
    const unsigned __int128 magnitude =
        negative ? -static_cast<unsigned __int128>(value) : static_cast<unsigned __int128>(value);
    AppendScaled(negative, Digits128(magnitude), mScale, out);
  }
  bool IsNumber() const override { return true; }

 private:
  int32_t mScale;
};

class Decimal256Formatter : public ValueFormatter {
 public:
  explicit Decimal256Formatter(const Array& array)
      : ValueFormatter(array),
        mScale(static_cast<const ::arrow::DecimalType&>(*array.type()).scale()) {}
  void AppendJson(int64_t row, std::string* out) const override {
    const ::arrow::Decimal256 value(
        static_cast<const ::arrow::FixedSizeBinaryArray&>(mArray).GetValue(row));
    const bool negative = value.IsNegative();
    const ::arrow::Decimal256 magnitude = negative ? ::arrow::Decimal256(-value) : value;
    std::string digits = magnitude.ToIntegerString();
    AppendScaled(negative, std::move(digits), mScale, out);
  }
  bool IsNumber() const override { return true; }

 private:
  int32_t mScale;
};

template <class ArrayType>
class StringFormatter : public ValueFormatter {
 public:
  using ValueFormatter::ValueFormatter;
  void AppendJson(int64_t row, std::string* out) const override {
    AppendJsonString(Value(row), out);
  }
  void AppendText(int64_t row, std::string* out) const override { out->append(Value(row)); }
  bool IsText() const override { return true; }

 private:
  std::string_view Value(int64_t row) const {
    const auto view = static_cast<const ArrayType&>(mArray).GetView(row);
    return std::string_view(view.data(), view.size());
  }
};

template <class ArrayType>
class BinaryFormatter : public ValueFormatter {
 public:
  using ValueFormatter::ValueFormatter;
  void AppendJson(int64_t row, std::string* out) const override {
    const auto view = static_cast<const ArrayType&>(mArray).GetView(row);
    out->append("{\"base64\":\"");
    AppendBase64(std::string_view(view.data(), view.size()), out);
    out->append("\"}");
  }
};

// Dates, timestamps, times of day and durations: JSON strings of their text.
class TemporalFormatter : public ValueFormatter {
 public:
  using ValueFormatter::ValueFormatter;
  void AppendJson(int64_t row, std::string* out) const override {
    out->push_back('"');
    AppendText(row, out);
    out->push_back('"');
  }
};

class Date32Formatter : public TemporalFormatter {
 public:
  using TemporalFormatter::TemporalFormatter;
  void AppendText(int64_t row, std::string* out) const override {
    char text[32];
    out->append(text, PutDate(text, static_cast<const ::arrow::Date32Array&>(mArray).Value(row)));
  }
};

class Date64Formatter : public TemporalFormatter {
 public:
  using TemporalFormatter::TemporalFormatter;
  void AppendText(int64_t row, std::string* out) const override {
    const int64_t ms = static_cast<const ::arrow::Date64Array&>(mArray).Value(row);
    int64_t seconds, fraction;
    SplitTicks(ms, 86400000, seconds, fraction);
    char text[32];
    out->append(text, PutDate(text, seconds));
  }
};

class TimestampFormatter : public TemporalFormatter {
 public:
  explicit TimestampFormatter(const Array& array) : TemporalFormatter(array) {
    const auto& type = static_cast<const ::arrow::TimestampType&>(*array.type());
    mScale = ScaleOf(type.unit());
    const std::string& zone = type.timezone();
    // Ticks count from the UTC epoch; a named zone is only recorded.
    if (zone == "UTC" || zone == "Z" || zone == "+00:00") {
      mSuffix = "Z";
    } else if (!zone.empty()) {
      mSuffix = "Z[" + zone + "]";
    }
  }
  void AppendText(int64_t row, std::string* out) const override {
    const int64_t ticks = static_cast<const ::arrow::TimestampArray&>(mArray).Value(row);
    int64_t seconds, fraction;
    SplitTicks(ticks, mScale.perSecond, seconds, fraction);
    const int64_t days = seconds >= 0 ? seconds / 86400 : (seconds - 86399) / 86400;
    char text[64];
    char* p = PutDate(text, days);
    *p++ = 'T';
    p = PutClock(p, seconds - days * 86400, fraction, mScale.digits);
    out->append(text, p);
    out->append(mSuffix);
  }

 private:
  UnitScale mScale{};
  std::string mSuffix;
};

template <class ArrayType>
class TimeOfDayFormatter : public TemporalFormatter {
 public:
  explicit TimeOfDayFormatter(const Array& array)
      : TemporalFormatter(array),
        mScale(ScaleOf(static_cast<const ::arrow::TimeType&>(*array.type()).unit())) {}
  void AppendText(int64_t row, std::string* out) const override {
    int64_t seconds, fraction;
    SplitTicks(static_cast<const ArrayType&>(mArray).Value(row), mScale.perSecond, seconds,
               fraction);
    char text[64];
    if (seconds < 0) {
      // Not a time of day: the ticks as they are.
      AppendInteger(static_cast<const ArrayType&>(mArray).Value(row), out);
      out->append(" ").append(mScale.name);
      return;
    }
    out->append(text, PutClock(text, seconds, fraction, mScale.digits));
  }

 private:
  UnitScale mScale;
};

class DurationFormatter : public TemporalFormatter {
 public:
  explicit DurationFormatter(const Array& array)
      : TemporalFormatter(array),
        mScale(ScaleOf(static_cast<const ::arrow::DurationType&>(*array.type()).unit())) {}
  void AppendText(int64_t row, std::string* out) const override {
    AppendInteger(static_cast<const ::arrow::DurationArray&>(mArray).Value(row), out);
    out->push_back(' ');
    out->append(mScale.name);
  }

 private:
  UnitScale mScale;
};

class DictionaryFormatter : public ValueFormatter {
 public:
  DictionaryFormatter(const Array& array, std::unique_ptr<ValueFormatter> values)
      : ValueFormatter(array), mValues(std::move(values)) {}
  void AppendJson(int64_t row, std::string* out) const override {
    AppendJsonValue(*mValues, Index(row), out);
  }
  void AppendText(int64_t row, std::string* out) const override {
    const int64_t index = Index(row);
    if (mValues->IsNull(index)) return;
    mValues->AppendText(index, out);
  }
  bool IsText() const override { return mValues->IsText(); }
  bool IsNumber() const override { return mValues->IsNumber(); }

 private:
  int64_t Index(int64_t row) const {
    return static_cast<const ::arrow::DictionaryArray&>(mArray).GetValueIndex(row);
  }
  std::unique_ptr<ValueFormatter> mValues;
};

// Lists of every kind: a JSON array of the elements, whatever the length.
template <class ArrayType>
class ListFormatter : public ValueFormatter {
 public:
  ListFormatter(const Array& array, std::unique_ptr<ValueFormatter> elements)
      : ValueFormatter(array), mElements(std::move(elements)) {}
  void AppendJson(int64_t row, std::string* out) const override {
    const auto& list = static_cast<const ArrayType&>(mArray);
    const int64_t begin = list.value_offset(row);
    const int64_t end = begin + list.value_length(row);
    out->push_back('[');
    for (int64_t i = begin; i < end; ++i) {
      if (i > begin) out->push_back(',');
      AppendJsonValue(*mElements, i, out);
    }
    out->push_back(']');
  }

 private:
  std::unique_ptr<ValueFormatter> mElements;
};

// A map is an array of {"key": k, "value": v} objects: keys of any type, order and repeated
// keys kept as the file has them.
class MapFormatter : public ValueFormatter {
 public:
  MapFormatter(const Array& array, std::unique_ptr<ValueFormatter> keys,
               std::unique_ptr<ValueFormatter> items)
      : ValueFormatter(array), mKeys(std::move(keys)), mItems(std::move(items)) {}
  void AppendJson(int64_t row, std::string* out) const override {
    const auto& map = static_cast<const ::arrow::MapArray&>(mArray);
    const int64_t begin = map.value_offset(row);
    const int64_t end = begin + map.value_length(row);
    out->push_back('[');
    for (int64_t i = begin; i < end; ++i) {
      out->append(i > begin ? ",{\"key\":" : "{\"key\":");
      AppendJsonValue(*mKeys, i, out);
      out->append(",\"value\":");
      AppendJsonValue(*mItems, i, out);
      out->push_back('}');
    }
    out->push_back(']');
  }

 private:
  std::unique_ptr<ValueFormatter> mKeys;
  std::unique_ptr<ValueFormatter> mItems;
};

class StructFormatter : public ValueFormatter {
 public:
  StructFormatter(const Array& array, std::vector<std::shared_ptr<Array>> fields,
                  std::vector<std::unique_ptr<ValueFormatter>> formatters)
      : ValueFormatter(array), mFields(std::move(fields)), mFormatters(std::move(formatters)) {
    for (const auto& field : array.type()->fields()) {
      std::string name;
      AppendJsonString(field->name(), &name);
      mNames.push_back(name + ":");
    }
  }
  void AppendJson(int64_t row, std::string* out) const override {
    out->push_back('{');
    for (size_t f = 0; f < mFormatters.size(); ++f) {
      if (f > 0) out->push_back(',');
      out->append(mNames[f]);
      AppendJsonValue(*mFormatters[f], row, out);
    }
    out->push_back('}');
  }

 private:
  std::vector<std::shared_ptr<Array>> mFields;  // sliced like the struct, kept alive here
  std::vector<std::string> mNames;
  std::vector<std::unique_ptr<ValueFormatter>> mFormatters;
};

// Types no formatter above covers (unions, intervals, newer Arrow types): Arrow's own text of
// the value, as a JSON string.
class ScalarTextFormatter : public ValueFormatter {
 public:
  using ValueFormatter::ValueFormatter;
  void AppendJson(int64_t row, std::string* out) const override {
    std::string text;
    AppendText(row, &text);
    AppendJsonString(text, out);
  }
  void AppendText(int64_t row, std::string* out) const override {
    auto scalar = mArray.GetScalar(row);
    out->append(scalar.ok() ? (*scalar)->ToString() : scalar.status().ToString());
  }
  bool IsText() const override { return true; }
};

// Missing values only.
class NullFormatter : public ValueFormatter {
 public:
  using ValueFormatter::ValueFormatter;
  void AppendJson(int64_t, std::string* out) const override { out->append("null"); }
};

template <class Formatter>
std::unique_ptr<ValueFormatter> Make(const Array& array) {
  return std::make_unique<Formatter>(array);
}

}  // namespace

::arrow::Result<std::unique_ptr<ValueFormatter>> MakeValueFormatter(const Array& array) {
  namespace a = ::arrow;
  switch (array.type_id()) {
    case a::Type::NA:
      return Make<NullFormatter>(array);
    case a::Type::BOOL:
      return Make<BooleanFormatter>(array);
    case a::Type::INT8:
      return Make<IntegerFormatter<a::Int8Type>>(array);
    case a::Type::INT16:
      return Make<IntegerFormatter<a::Int16Type>>(array);
    case a::Type::INT32:
      return Make<IntegerFormatter<a::Int32Type>>(array);
    case a::Type::INT64:
      return Make<IntegerFormatter<a::Int64Type>>(array);
    case a::Type::UINT8:
      return Make<IntegerFormatter<a::UInt8Type>>(array);
    case a::Type::UINT16:
      return Make<IntegerFormatter<a::UInt16Type>>(array);
    case a::Type::UINT32:
      return Make<IntegerFormatter<a::UInt32Type>>(array);
    case a::Type::UINT64:
      return Make<IntegerFormatter<a::UInt64Type>>(array);
    case a::Type::HALF_FLOAT:
      return Make<FloatFormatter<a::HalfFloatType>>(array);
    case a::Type::FLOAT:
      return Make<FloatFormatter<a::FloatType>>(array);
    case a::Type::DOUBLE:
      return Make<FloatFormatter<a::DoubleType>>(array);
    case a::Type::DECIMAL128:
      return Make<Decimal128Formatter>(array);
    case a::Type::DECIMAL256:
      return Make<Decimal256Formatter>(array);
    case a::Type::STRING:
      return Make<StringFormatter<a::StringArray>>(array);
    case a::Type::LARGE_STRING:
      return Make<StringFormatter<a::LargeStringArray>>(array);
    case a::Type::BINARY:
      return Make<BinaryFormatter<a::BinaryArray>>(array);
    case a::Type::LARGE_BINARY:
      return Make<BinaryFormatter<a::LargeBinaryArray>>(array);
    case a::Type::FIXED_SIZE_BINARY:
      return Make<BinaryFormatter<a::FixedSizeBinaryArray>>(array);
    case a::Type::DATE32:
      return Make<Date32Formatter>(array);
    case a::Type::DATE64:
      return Make<Date64Formatter>(array);
    case a::Type::TIMESTAMP:
      return Make<TimestampFormatter>(array);
    case a::Type::TIME32:
      return Make<TimeOfDayFormatter<a::Time32Array>>(array);
    case a::Type::TIME64:
      return Make<TimeOfDayFormatter<a::Time64Array>>(array);
    case a::Type::DURATION:
      return Make<DurationFormatter>(array);
    case a::Type::DICTIONARY: {
      const auto& dictionary = static_cast<const a::DictionaryArray&>(array);
      ARROW_ASSIGN_OR_RAISE(auto values, MakeValueFormatter(*dictionary.dictionary()));
      return std::make_unique<DictionaryFormatter>(array, std::move(values));
    }
    case a::Type::LIST: {
      ARROW_ASSIGN_OR_RAISE(auto elements,
                            MakeValueFormatter(*static_cast<const a::ListArray&>(array).values()));
      return std::make_unique<ListFormatter<a::ListArray>>(array, std::move(elements));
    }
    case a::Type::LARGE_LIST: {
      ARROW_ASSIGN_OR_RAISE(
          auto elements,
          MakeValueFormatter(*static_cast<const a::LargeListArray&>(array).values()));
      return std::make_unique<ListFormatter<a::LargeListArray>>(array, std::move(elements));
    }
    case a::Type::FIXED_SIZE_LIST: {
      ARROW_ASSIGN_OR_RAISE(
          auto elements,
          MakeValueFormatter(*static_cast<const a::FixedSizeListArray&>(array).values()));
      return std::make_unique<ListFormatter<a::FixedSizeListArray>>(array, std::move(elements));
    }
    case a::Type::MAP: {
      const auto& map = static_cast<const a::MapArray&>(array);
      ARROW_ASSIGN_OR_RAISE(auto keys, MakeValueFormatter(*map.keys()));
      ARROW_ASSIGN_OR_RAISE(auto items, MakeValueFormatter(*map.items()));
      return std::make_unique<MapFormatter>(array, std::move(keys), std::move(items));
    }
    case a::Type::STRUCT: {
      const auto& structs = static_cast<const a::StructArray&>(array);
      std::vector<std::shared_ptr<Array>> fields;
      std::vector<std::unique_ptr<ValueFormatter>> formatters;
      for (int f = 0; f < structs.num_fields(); ++f) {
        fields.push_back(structs.field(f));
        ARROW_ASSIGN_OR_RAISE(auto formatter, MakeValueFormatter(*fields.back()));
        formatters.push_back(std::move(formatter));
      }
      return std::make_unique<StructFormatter>(array, std::move(fields), std::move(formatters));
    }
    default:
      return Make<ScalarTextFormatter>(array);
  }
}

void AppendJsonValue(const ValueFormatter& values, int64_t row, std::string* out) {
  if (values.IsNull(row)) {
    out->append("null");
  } else {
    values.AppendJson(row, out);
  }
}

void AppendJsonString(std::string_view text, std::string* out) {
  static const char* kHex = "0123456789abcdef";
  out->push_back('"');
  size_t plain = 0;  // start of the run of characters that need no escape
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x20 && c != '"' && c != '\\') continue;
    out->append(text.data() + plain, i - plain);
    plain = i + 1;
    switch (c) {
      case '"':
        out->append("\\\"");
        break;
      case '\\':
        out->append("\\\\");
        break;
      case '\n':
        out->append("\\n");
        break;
      case '\r':
        out->append("\\r");
        break;
      case '\t':
        out->append("\\t");
        break;
      default: {
        const char escaped[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 15]};
        out->append(escaped, sizeof escaped);
      }
    }
  }
  out->append(text.data() + plain, text.size() - plain);
  out->push_back('"');
}

namespace {

bool NeedsCsvQuotes(std::string_view text, const CsvOptions& options) {
  if (text.empty() || text == options.missing) return true;
  for (const char c : text) {
    if (c == options.delimiter || c == '"' || c == '\n' || c == '\r') return true;
  }
  return false;
}

// Quotes the text appended to out from `start` on, where it needs quotes.
void QuoteCsvTail(size_t start, const CsvOptions& options, std::string* out) {
  const std::string_view text(out->data() + start, out->size() - start);
  if (!NeedsCsvQuotes(text, options)) return;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted.push_back('"');
    quoted.push_back(c);
  }
  quoted.push_back('"');
  out->resize(start);
  out->append(quoted);
}

}  // namespace

void AppendCsvField(std::string_view text, const CsvOptions& options, std::string* out) {
  const size_t start = out->size();
  out->append(text);
  QuoteCsvTail(start, options, out);
}

::arrow::Result<RowFormatter> RowFormatter::Make(const ::arrow::RecordBatch& batch) {
  RowFormatter formatter;
  for (int c = 0; c < batch.num_columns(); ++c) {
    std::string name;
    AppendJsonString(batch.schema()->field(c)->name(), &name);
    formatter.mJsonNames.push_back(name + ":");
    formatter.mArrays.push_back(batch.column(c));
    ARROW_ASSIGN_OR_RAISE(auto column, MakeValueFormatter(*formatter.mArrays.back()));
    formatter.mColumns.push_back(std::move(column));
  }
  return formatter;
}

void RowFormatter::AppendJsonLines(int64_t begin, int64_t end, std::string* out) const {
  for (int64_t row = begin; row < end; ++row) {
    out->push_back('{');
    for (size_t c = 0; c < mColumns.size(); ++c) {
      if (c > 0) out->push_back(',');
      out->append(mJsonNames[c]);
      AppendJsonValue(*mColumns[c], row, out);
    }
    out->append("}\n");
  }
}

void RowFormatter::AppendCsvLines(int64_t begin, int64_t end, const CsvOptions& options,
                                  std::string* out) const {
  for (int64_t row = begin; row < end; ++row) {
    for (size_t c = 0; c < mColumns.size(); ++c) {
      if (c > 0) out->push_back(options.delimiter);
      const ValueFormatter& column = *mColumns[c];
      if (column.IsNull(row)) {
        out->append(options.missing);
        continue;
      }
      const size_t start = out->size();
      column.AppendText(row, out);
      // Numbers never hold a delimiter or a quote, but may read like the missing text.
      if (!column.IsNumber() || !options.missing.empty()) QuoteCsvTail(start, options, out);
    }
    out->push_back('\n');
  }
}

std::string CsvHeader(const ::arrow::Schema& schema, const CsvOptions& options) {
  std::string line;
  for (int c = 0; c < schema.num_fields(); ++c) {
    if (c > 0) line.push_back(options.delimiter);
    // A name is never missing: quoted only for the delimiter, quotes and line ends.
    CsvOptions names = options;
    names.missing = "\x01";
    const std::string& name = schema.field(c)->name();
    if (name.empty()) {
      line.append("\"\"");
    } else {
      AppendCsvField(name, names, &line);
    }
  }
  line.push_back('\n');
  return line;
}

::arrow::Result<uint64_t> WriteLines(const ::arrow::Table& table, LineFormat format,
                                     const CsvOptions& options, std::FILE* out) {
  // Pieces small enough to spread a row group over the threads, large enough that each piece
  // of text is written in one call.
  constexpr int64_t kPieceRows = 8192;
  const size_t wave = static_cast<size_t>(
      std::max<int64_t>(1, foundation::services::getNumComputationalThreads()) * 4);
  uint64_t written = 0;
  ::arrow::TableBatchReader batches(table);
  std::shared_ptr<::arrow::RecordBatch> batch;
  while (true) {
    ARROW_RETURN_NOT_OK(batches.ReadNext(&batch));
    if (!batch) break;
    ARROW_ASSIGN_OR_RAISE(const RowFormatter rows, RowFormatter::Make(*batch));
    const int64_t pieces = (batch->num_rows() + kPieceRows - 1) / kPieceRows;
    std::vector<std::string> texts(wave);
    for (int64_t first = 0; first < pieces; first += static_cast<int64_t>(wave)) {
      const size_t count = static_cast<size_t>(std::min<int64_t>(wave, pieces - first));
      vantro::io::arrow::core::ParallelFor(count, [&](size_t k) {
        const int64_t begin = (first + static_cast<int64_t>(k)) * kPieceRows;
        const int64_t end = std::min(begin + kPieceRows, batch->num_rows());
        texts[k].clear();
        if (format == LineFormat::kCsv) {
          rows.AppendCsvLines(begin, end, options, &texts[k]);
        } else {
          rows.AppendJsonLines(begin, end, &texts[k]);
        }
      });
      for (size_t k = 0; k < count; ++k) {
        if (std::fwrite(texts[k].data(), 1, texts[k].size(), out) != texts[k].size()) {
          return Status::IOError("Unable to write the output: ", std::strerror(errno));
        }
        written += texts[k].size();
      }
    }
  }
  return written;
}

::arrow::Result<std::string> JsonDocument(const ::arrow::Table& table,
                                          const std::vector<std::string>& types) {
  const int columns = table.num_columns();
  std::string out = "{\"variables\":[";
  for (int c = 0; c < columns; ++c) {
    out.append(c ? ",{\"name\":" : "{\"name\":");
    AppendJsonString(table.field(c)->name(), &out);
    out.append(",\"type\":");
    AppendJsonString(static_cast<size_t>(c) < types.size() ? types[c] : "", &out);
    out.push_back('}');
  }
  out.append("],\"rows\":").append(std::to_string(table.num_rows())).append(",\"columns\":{");
  // Columns are independent: formatted on the host's threads, joined in order.
  std::vector<std::string> texts(static_cast<size_t>(columns));
  std::vector<Status> failures(static_cast<size_t>(columns));
  vantro::io::arrow::core::ParallelFor(static_cast<size_t>(columns), [&](size_t c) {
    std::string& text = texts[c];
    bool first = true;
    for (const auto& chunk : table.column(static_cast<int>(c))->chunks()) {
      auto formatter = MakeValueFormatter(*chunk);
      if (!formatter.ok()) {
        failures[c] = formatter.status();
        return;
      }
      for (int64_t row = 0; row < chunk->length(); ++row) {
        if (!first) text.push_back(',');
        first = false;
        AppendJsonValue(**formatter, row, &text);
      }
    }
  });
  for (int c = 0; c < columns; ++c) {
    ARROW_RETURN_NOT_OK(failures[c]);
    if (c > 0) out.push_back(',');
    AppendJsonString(table.field(c)->name(), &out);
    out.append(":[").append(texts[c]).push_back(']');
  }
  out.append("}}");
  return out;
}

}  // namespace vxparquet::format
