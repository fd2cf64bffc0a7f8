#include "toolbox/vantro/io/parquet/core/filter/ColumnComparer.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "host/converter/Display.hpp"
#include "host/converter/HostValues.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Errors.hpp"

namespace vantro::io::parquet::core::filter {

namespace {

namespace hostvalues = vantro::io::arrow::core::host;

// Every 64-bit integer and every double is exact in x87 extended precision, so one long double
// comparison orders any column value against any constant without rounding.
static_assert(std::numeric_limits<long double>::digits >= 64,
              "exact integer comparisons need a 64-bit significand");

// UTF-16 units compare in code point order once the surrogates (D800-DFFF) are moved above
// the units E000-FFFF.
int codePointOrder(vxChar unit) {
  if (unit >= 0xE000) return unit - 0x800;
  if (unit >= 0xD800) return unit + 0x2000;
  return unit;
}

int compareUnits(const vxChar* a, size_t aSize, const std::u16string& b) {
  const size_t n = std::min(aSize, b.size());
  for (size_t i = 0; i < n; ++i) {
    const int diff = codePointOrder(a[i]) - codePointOrder(static_cast<vxChar>(b[i]));
    if (diff != 0) return diff;
  }
  return aSize < b.size() ? -1 : (aSize > b.size() ? 1 : 0);
}

bool isNumericClass(vxClassID id) { return id >= vxDOUBLE_CLASS && id <= vxUINT64_CLASS; }

long double elementAt(const void* data, vxClassID id, size_t row) {
  switch (id) {
    case vxDOUBLE_CLASS:
      return static_cast<const double*>(data)[row];
    case vxSINGLE_CLASS:
      return static_cast<const float*>(data)[row];
    case vxINT8_CLASS:
      return static_cast<const int8_t*>(data)[row];
    case vxUINT8_CLASS:
      return static_cast<const uint8_t*>(data)[row];
    case vxINT16_CLASS:
      return static_cast<const int16_t*>(data)[row];
    case vxUINT16_CLASS:
      return static_cast<const uint16_t*>(data)[row];
    case vxINT32_CLASS:
      return static_cast<const int32_t*>(data)[row];
    case vxUINT32_CLASS:
      return static_cast<const uint32_t*>(data)[row];
    case vxINT64_CLASS:
      return static_cast<const int64_t*>(data)[row];
    case vxUINT64_CLASS:
      return static_cast<const uint64_t*>(data)[row];
    case vxLOGICAL_CLASS:
      return static_cast<const vxLogical*>(data)[row] ? 1 : 0;
    default:
      return 0;
  }
}

// The constant as the column's class reads it: a whole number exactly (an int64 column read
// as doubles still compares exactly with 9007199254740993), a fraction as the double (or
// single) nearest to the text, as the column would have stored it.
long double numberAs(const Constant& constant, vxClassID id) {
  if (constant.kind == Constant::Kind::kBoolean) return constant.boolean ? 1 : 0;
  const char* text = constant.text.c_str();
  if (constant.text.find_first_of(".eE") == std::string::npos) return std::strtold(text, nullptr);
  if (id == vxDOUBLE_CLASS) return std::strtod(text, nullptr);
  if (id == vxSINGLE_CLASS) return std::strtof(text, nullptr);
  return std::strtold(text, nullptr);
}

int order(long double a, long double b) { return a < b ? -1 : (a > b ? 1 : 0); }

[[noreturn]] void throwMismatch(const std::string& variable, const std::string& type,
                                const Constant& constant) {
  throw TypeMismatchError(kFilterComponent, "TypeMismatch",
                          {variable, type, constantKindName(constant), constant.source});
}

[[noreturn]] void throwUnsupported(const std::string& variable, const std::string& type) {
  throw UnsupportedVariableError(kFilterComponent, "UnsupportedVariable", {variable, type});
}

std::string classTypeName(const vxArray* column) {
  return column == nullptr ? std::string("missing") : std::string(vxGetClassName(column));
}

// Seconds per tick (s, day) or ticks per second (ms, us, ns).
bool unitScale(const std::string& unit, int64_t& tickSeconds, int64_t& ticksPerSecond) {
  tickSeconds = 0;
  ticksPerSecond = 1;
  if (unit == "s") {
    tickSeconds = 1;
  } else if (unit == "day") {
    tickSeconds = 86400;
  } else if (unit == "ms") {
    ticksPerSecond = 1000;
  } else if (unit == "us") {
    ticksPerSecond = 1000000;
  } else if (unit == "ns") {
    ticksPerSecond = 1000000000;
  } else {
    return false;
  }
  return true;
}

int64_t floorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

}  // namespace

ValueKind valueKindOfType(const std::string& hostType) {
  static const char* const kNumbers[] = {"double", "single", "int8",   "uint8", "int16",
                                         "uint16", "int32",  "uint32", "int64", "uint64"};
  for (const char* name : kNumbers) {
    if (hostType == name) return ValueKind::kNumber;
  }
  if (hostType == "logical") return ValueKind::kLogical;
  if (hostType == "string" || hostType == "categorical") return ValueKind::kText;
  if (hostType == "datetime") return ValueKind::kDatetime;
  if (hostType == "cell") return ValueKind::kCellNullOnly;
  return ValueKind::kNone;
}

bool acceptsConstant(ValueKind kind, const Constant& constant) {
  switch (kind) {
    case ValueKind::kNumber:
      return constant.kind == Constant::Kind::kNumber;
    case ValueKind::kLogical:
      return constant.kind == Constant::Kind::kBoolean;
    case ValueKind::kText:
      return constant.kind == Constant::Kind::kText;
    case ValueKind::kDatetime:
      return constant.instant.has_value();
    default:
      return false;
  }
}

std::string constantKindName(const Constant& constant) {
  switch (constant.kind) {
    case Constant::Kind::kNumber:
      return "number";
    case Constant::Kind::kText:
      return "text";
    case Constant::Kind::kBoolean:
      return "logical value";
    case Constant::Kind::kDatetime:
      return "datetime";
  }
  return "constant";
}

ColumnComparer::ColumnComparer(const vxArray* column, const std::vector<Constant>& constants,
                               const std::string& variable) {
  if (column == nullptr) throwUnsupported(variable, "missing");
  mClass = vxGetClassID(column);
  const std::string typeName = classTypeName(column);

  if (isNumericClass(mClass) || mClass == vxLOGICAL_CLASS) {
    mKind = mClass == vxLOGICAL_CLASS ? ValueKind::kLogical : ValueKind::kNumber;
    mRows = vxGetM(column);
    mData = vxGetData(column);
  } else if (mClass == vxCELL_CLASS) {
    mKind = ValueKind::kCellNullOnly;
    mRows = vxGetM(column);
    mCells = column;
  } else if (hostvalues::IsObject(column, hostvalues::kString)) {
    mKind = ValueKind::kText;
    const vxArray* offsets = vxGetField(column, 0, hostvalues::kOffsets);
    const vxArray* data = vxGetField(column, 0, hostvalues::kData);
    if (offsets == nullptr || vxGetClassID(offsets) != vxUINT64_CLASS || data == nullptr ||
        vxGetNumberOfElements(offsets) == 0) {
      throwInvalidTable("variable '" + variable + "' is a malformed string object");
    }
    mRows = vxGetNumberOfElements(offsets) - 1;
    mOffsets = static_cast<const uint64_t*>(vxGetData(offsets));
    mUnits = vxGetChars(data);
  } else if (hostvalues::IsObject(column, hostvalues::kCategorical)) {
    mKind = ValueKind::kText;
    const vxArray* codes = vxGetField(column, 0, hostvalues::kCodes);
    const vxArray* categories = vxGetField(column, 0, hostvalues::kCategories);
    if (codes == nullptr || !isNumericClass(vxGetClassID(codes)) || categories == nullptr) {
      throwInvalidTable("variable '" + variable + "' is a malformed categorical object");
    }
    mClass = vxGetClassID(codes);
    mRows = vxGetM(codes);
    mData = vxGetData(codes);
    const ColumnComparer names(categories, constants, variable);
    for (size_t c = 0; c < names.rows(); ++c) {
      std::vector<int> orders;
      for (size_t k = 0; k < constants.size(); ++k) orders.push_back(names.compare(c, k));
      mCategoryOrder.push_back(std::move(orders));
      mCategoryTexts.push_back(names.valueText(c));
    }
  } else if (hostvalues::IsObject(column, hostvalues::kInteger)) {
    // 64-bit integers with missing values: compared as the integers they are.
    const vxArray* values = vxGetField(column, 0, hostvalues::kValues);
    if (values == nullptr || !isNumericClass(vxGetClassID(values))) {
      throwInvalidTable("variable '" + variable + "' is a malformed integer object");
    }
    mKind = ValueKind::kNumber;
    mClass = vxGetClassID(values);
    mRows = vxGetM(values);
    mData = vxGetData(values);
  } else if (hostvalues::IsObject(column, hostvalues::kDatetime)) {
    mKind = ValueKind::kDatetime;
    const vxArray* ticks = vxGetField(column, 0, hostvalues::kTicks);
    mUnit = hostvalues::TextField(column, hostvalues::kUnit);
    if (ticks == nullptr || vxGetClassID(ticks) != vxINT64_CLASS ||
        !unitScale(mUnit, mTickSeconds, mTicksPerSecond)) {
      throwInvalidTable("variable '" + variable + "' is a malformed datetime object");
    }
    mRows = vxGetM(ticks);
    mData = vxGetData(ticks);
  } else {
    throwUnsupported(variable, typeName);
  }
  if (vxGetClassID(column) == vxOBJECT_CLASS) {
    const vxArray* missing = vxGetField(column, 0, hostvalues::kMissing);
    if (missing != nullptr && vxGetClassID(missing) == vxLOGICAL_CLASS &&
        vxGetNumberOfElements(missing) >= mRows) {
      mMissing = vxGetLogicals(missing);
    }
  }

  for (const Constant& constant : constants) {
    // A logical variable with nulls reaches the host as doubles: it still compares with
    // true and false.
    const bool widenedLogical =
        mKind == ValueKind::kNumber && constant.kind == Constant::Kind::kBoolean;
    if (!acceptsConstant(mKind, constant) && !widenedLogical) {
      throwMismatch(variable, typeName, constant);
    }
    mNumbers.push_back(mKind == ValueKind::kNumber || mKind == ValueKind::kLogical
                           ? numberAs(constant, mClass)
                           : 0);
    mTexts.push_back(mKind == ValueKind::kText
                         ? ::foundation::unicode::utf8_to_ustring(constant.text)
                         : std::u16string());
    mInstants.push_back(constant.instant.value_or(Instant{}));
  }
  const bool integers = mClass == vxINT8_CLASS || mClass == vxUINT8_CLASS ||
                        mClass == vxINT16_CLASS || mClass == vxUINT16_CLASS ||
                        mClass == vxINT32_CLASS || mClass == vxUINT32_CLASS ||
                        mClass == vxINT64_CLASS;
  if (mKind == ValueKind::kNumber && integers) {
    for (const long double number : mNumbers) mIntegerBounds.push_back(integerBound(number));
  }
}

ColumnComparer::IntegerBound ColumnComparer::integerBound(long double constant) {
  IntegerBound bound;
  // 2^63 is exact in long double; int64 holds [-2^63, 2^63).
  constexpr long double kLimit = 9223372036854775808.0L;
  if (std::isnan(constant)) {
    bound.always = 1;  // never reached: constants are numbers; keeps the bound defined
  } else if (constant >= kLimit) {
    bound.always = -1;
  } else if (constant < -kLimit) {
    bound.always = 1;
  } else {
    const long double floor = std::floor(constant);
    bound.floor = static_cast<int64_t>(floor);
    bound.whole = floor == constant;
  }
  return bound;
}

int64_t ColumnComparer::integer(size_t row) const {
  switch (mClass) {
    case vxINT8_CLASS:
      return static_cast<const int8_t*>(mData)[row];
    case vxUINT8_CLASS:
      return static_cast<const uint8_t*>(mData)[row];
    case vxINT16_CLASS:
      return static_cast<const int16_t*>(mData)[row];
    case vxUINT16_CLASS:
      return static_cast<const uint16_t*>(mData)[row];
    case vxINT32_CLASS:
      return static_cast<const int32_t*>(mData)[row];
    case vxUINT32_CLASS:
      return static_cast<const uint32_t*>(mData)[row];
    default:
      return static_cast<const int64_t*>(mData)[row];
  }
}

bool ColumnComparer::missing(size_t row) const {
  if (mMissing != nullptr && mMissing[row]) return true;
  switch (mKind) {
    case ValueKind::kNumber:
      return floating() && std::isnan(number(row));
    case ValueKind::kCellNullOnly:
      return hostvalues::IsNullElement(vxGetCell(mCells, row));
    case ValueKind::kText: {
      if (mOffsets != nullptr) return false;
      // A category code past the categories names no text: it cannot match anything.
      const long double code = number(row);
      return code < 0 || code >= static_cast<long double>(mCategoryOrder.size());
    }
    default:
      return false;
  }
}

long double ColumnComparer::number(size_t row) const { return elementAt(mData, mClass, row); }

int ColumnComparer::compare(size_t row, size_t constant) const {
  switch (mKind) {
    case ValueKind::kNumber:
    case ValueKind::kLogical:
      if (!mIntegerBounds.empty()) return mIntegerBounds[constant].order(integer(row));
      return order(number(row), mNumbers[constant]);
    case ValueKind::kText:
      if (mOffsets == nullptr) {
        return mCategoryOrder[static_cast<size_t>(number(row))][constant];
      }
      return compareUnits(mUnits + mOffsets[row], mOffsets[row + 1] - mOffsets[row],
                          mTexts[constant]);
    case ValueKind::kDatetime: {
      const int64_t ticks = static_cast<const int64_t*>(mData)[row];
      Instant value;
      if (mTickSeconds != 0) {
        // Days and seconds: at most 86400 * 2^31 for date32, well inside int64.
        value.seconds = ticks * mTickSeconds;
      } else {
        value.seconds = floorDiv(ticks, mTicksPerSecond);
        value.nanos = (ticks - value.seconds * mTicksPerSecond) * (1000000000 / mTicksPerSecond);
      }
      const Instant& bound = mInstants[constant];
      if (value.seconds != bound.seconds) return value.seconds < bound.seconds ? -1 : 1;
      return value.nanos < bound.nanos ? -1 : (value.nanos > bound.nanos ? 1 : 0);
    }
    default:
      return 0;
  }
}

std::string ColumnComparer::valueText(size_t row) const {
  if (missing(row)) return "missing";
  char buffer[64];
  switch (mKind) {
    case ValueKind::kNumber: {
      if (floating()) {
        std::snprintf(buffer, sizeof buffer, "%.17Lg", number(row));
      } else if (mClass == vxUINT64_CLASS) {
        std::snprintf(buffer, sizeof buffer, "%llu",
                      static_cast<unsigned long long>(static_cast<const uint64_t*>(mData)[row]));
      } else {
        std::snprintf(buffer, sizeof buffer, "%lld", static_cast<long long>(number(row)));
      }
      return buffer;
    }
    case ValueKind::kLogical:
      return number(row) != 0 ? "true" : "false";
    case ValueKind::kText: {
      if (mOffsets == nullptr) return mCategoryTexts[static_cast<size_t>(number(row))];
      const std::u16string units(reinterpret_cast<const char16_t*>(mUnits + mOffsets[row]),
                                 mOffsets[row + 1] - mOffsets[row]);
      return "'" + ::foundation::unicode::ustring_to_utf8(units) + "'";
    }
    case ValueKind::kDatetime: {
      const int64_t ticks = static_cast<const int64_t*>(mData)[row];
      const int64_t seconds =
          mTickSeconds != 0 ? ticks * mTickSeconds : floorDiv(ticks, mTicksPerSecond);
      const int64_t fraction = mTickSeconds != 0 ? 0 : ticks - seconds * mTicksPerSecond;
      int64_t year = 0;
      unsigned month = 0, day = 0;
      const int64_t days = floorDiv(seconds, 86400);
      const int64_t secondOfDay = seconds - days * 86400;
      ::vantro::io::arrow::core::display::CivilFromDays(days, year, month, day);
      if (mUnit == "day") {
        std::snprintf(buffer, sizeof buffer, "%04lld-%02u-%02u", static_cast<long long>(year),
                      month, day);
        return buffer;
      }
      std::snprintf(
          buffer, sizeof buffer, "%04lld-%02u-%02uT%02lld:%02lld:%02lld",
          static_cast<long long>(year), month, day, static_cast<long long>(secondOfDay / 3600),
          static_cast<long long>(secondOfDay / 60 % 60), static_cast<long long>(secondOfDay % 60));
      std::string text = buffer;
      if (mTicksPerSecond > 1) {
        const int width = mTicksPerSecond == 1000 ? 3 : (mTicksPerSecond == 1000000 ? 6 : 9);
        std::snprintf(buffer, sizeof buffer, ".%0*lld", width, static_cast<long long>(fraction));
        text += buffer;
      }
      return text;
    }
    default:
      return "a value";
  }
}

}  // namespace vantro::io::parquet::core::filter
