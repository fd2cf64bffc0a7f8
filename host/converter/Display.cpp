#include "host/converter/Display.hpp"

#include <charconv>
#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <vector>

#include "host/converter/HostValues.hpp"
#include "host/unicode/ustring.hpp"

namespace vantro::io::arrow::core::display {

void CivilFromDays(int64_t days, int64_t& year, unsigned& month, unsigned& day) {
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const auto doe = static_cast<unsigned>(days - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  day = doy - (153 * mp + 2) / 5 + 1;
  month = mp < 10 ? mp + 3 : mp - 9;
  year = static_cast<int64_t>(yoe) + era * 400 + (month <= 2 ? 1 : 0);
}

void SplitTicks(int64_t ticks, int64_t perSecond, int64_t& seconds, int64_t& fraction) {
  seconds = ticks / perSecond;
  fraction = ticks % perSecond;
  if (fraction < 0) {
    fraction += perSecond;
    seconds -= 1;
  }
}

namespace {

constexpr const char* kMissingText = "<missing>";

// The shortest text that reads back to the same bits.
template <class Float>
std::string FormatFloat(Float value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value > 0 ? "Inf" : "-Inf";
  char text[64];
  const auto result = std::to_chars(text, text + sizeof text, value);
  return std::string(text, result.ptr);
}
std::string FormatDouble(double value) { return FormatFloat(value); }

// The element of a numeric array as text; 64-bit integers print exactly.
std::string NumericText(const vxArray* array, size_t i) {
  const void* data = vxGetData(array);
  switch (vxGetClassID(array)) {
    case vxDOUBLE_CLASS:
      return FormatDouble(static_cast<const double*>(data)[i]);
    case vxSINGLE_CLASS:
      return FormatFloat(static_cast<const float*>(data)[i]);
    case vxINT8_CLASS:
      return std::to_string(static_cast<const int8_t*>(data)[i]);
    case vxUINT8_CLASS:
      return std::to_string(static_cast<const uint8_t*>(data)[i]);
    case vxINT16_CLASS:
      return std::to_string(static_cast<const int16_t*>(data)[i]);
    case vxUINT16_CLASS:
      return std::to_string(static_cast<const uint16_t*>(data)[i]);
    case vxINT32_CLASS:
      return std::to_string(static_cast<const int32_t*>(data)[i]);
    case vxUINT32_CLASS:
      return std::to_string(static_cast<const uint32_t*>(data)[i]);
    case vxINT64_CLASS:
      return std::to_string(static_cast<const int64_t*>(data)[i]);
    case vxUINT64_CLASS:
      return std::to_string(static_cast<const uint64_t*>(data)[i]);
    case vxLOGICAL_CLASS:
      return static_cast<const vxLogical*>(data)[i] ? "true" : "false";
    default:
      return "?";
  }
}

bool IsNumericOrLogical(const vxArray* value) {
  const vxClassID id = vxGetClassID(value);
  return (id >= vxDOUBLE_CLASS && id <= vxUINT64_CLASS) || id == vxLOGICAL_CLASS;
}

bool IsMissing(const vxArray* object, size_t row) {
  const vxArray* missing = vxGetField(object, 0, host::kMissing);
  return missing != nullptr && vxGetClassID(missing) == vxLOGICAL_CLASS &&
         row < vxGetNumberOfElements(missing) && vxGetLogicals(missing)[row];
}

std::string StringRow(const vxArray* strings, size_t row) {
  const vxArray* data = vxGetField(strings, 0, host::kData);
  const vxArray* offsets = vxGetField(strings, 0, host::kOffsets);
  if (data == nullptr || offsets == nullptr) return "?";
  const auto* offset = static_cast<const uint64_t*>(vxGetData(offsets));
  matrix::unique_array slice(
      vxCreateStringFromUTF16(vxGetChars(data) + offset[row], offset[row + 1] - offset[row]));
  return host::TextOf(slice.get());
}

struct UnitScale {
  int64_t perSecond;
  int digits;
};

UnitScale ScaleOf(const std::string& unit) {
  if (unit == "ms") return {1000, 3};
  if (unit == "us") return {1000000, 6};
  if (unit == "ns") return {1000000000, 9};
  return {1, 0};
}

std::string ClockText(int64_t secondsOfDay, int64_t fraction, int digits) {
  char text[48];
  std::snprintf(text, sizeof text, "%02" PRId64 ":%02" PRId64 ":%02" PRId64, secondsOfDay / 3600,
                secondsOfDay / 60 % 60, secondsOfDay % 60);
  std::string out = text;
  if (digits > 0) {
    std::snprintf(text, sizeof text, ".%0*" PRId64, digits, fraction);
    out += text;
  }
  return out;
}

std::string DatetimeRow(const vxArray* object, size_t row) {
  const int64_t ticks =
      static_cast<const int64_t*>(vxGetData(vxGetField(object, 0, host::kTicks)))[row];
  const std::string unit = host::TextField(object, host::kUnit);
  int64_t days = ticks, seconds = 0, fraction = 0;
  const UnitScale scale = ScaleOf(unit);
  if (unit != "day") {
    SplitTicks(ticks, scale.perSecond, seconds, fraction);
    days = seconds >= 0 ? seconds / 86400 : (seconds - 86399) / 86400;
    seconds -= days * 86400;
  }
  int64_t year;
  unsigned month, day;
  CivilFromDays(days, year, month, day);
  char date[40];
  std::snprintf(date, sizeof date, "%04" PRId64 "-%02u-%02u", year, month, day);
  const std::string kind = host::TextField(object, host::kKind);
  if (kind == "date32" || kind == "date64" || unit == "day") return date;
  std::string out = std::string(date) + "T" + ClockText(seconds, fraction, scale.digits);
  const std::string zone = host::TextField(object, host::kTimeZone);
  if (zone == "UTC" || zone == "Z" || zone == "+00:00") return out + "Z";
  return zone.empty() ? out : out + "Z[" + zone + "]";
}

std::string DurationRow(const vxArray* object, size_t row) {
  const int64_t ticks =
      static_cast<const int64_t*>(vxGetData(vxGetField(object, 0, host::kTicks)))[row];
  const std::string unit = host::TextField(object, host::kUnit);
  const std::string kind = host::TextField(object, host::kKind);
  if (kind == "time32" || kind == "time64") {
    const UnitScale scale = ScaleOf(unit);
    int64_t seconds, fraction;
    SplitTicks(ticks, scale.perSecond, seconds, fraction);
    return ClockText(seconds, fraction, scale.digits);
  }
  return std::to_string(ticks) + " " + unit;
}

std::string CategoricalRow(const vxArray* object, size_t row) {
  const vxArray* codes = vxGetField(object, 0, host::kCodes);
  const vxArray* categories = vxGetField(object, 0, host::kCategories);
  const std::string code = NumericText(codes, row);
  return StringRow(categories, std::stoull(code));
}

std::string Size(const vxArray* value) {
  return std::to_string(vxGetM(value)) + "x" + std::to_string(vxGetN(value));
}

// Rows of the table's columns as they appear in a printed table.
size_t TableRows(const vxArray* table);

std::string Summary(const vxArray* value) {
  if (value == nullptr) return "[]";
  if (host::IsObject(value, host::kTable)) {
    return "{" + std::to_string(TableRows(value)) + "x" +
           std::to_string(vxGetNumberOfElements(vxGetField(value, 0, host::kNames))) + " table}";
  }
  if (vxGetClassID(value) == vxCHAR_CLASS && vxGetM(value) <= 1) {
    return "'" + host::TextOf(value) + "'";
  }
  if (IsNumericOrLogical(value) && vxGetNumberOfElements(value) == 1 && !vxIsComplex(value)) {
    return NumericText(value, 0);
  }
  if (IsNumericOrLogical(value) && vxIsEmpty(value)) return "[]";
  return "[" + Size(value) + " " + HostTypeName(value) + "]";
}

// One row of a column as shown in a table; "<missing>" at a null.
std::string RowText(const vxArray* column, size_t row) {
  if (column == nullptr) return "?";
  if (IsNumericOrLogical(column)) return NumericText(column, row);
  if (vxGetClassID(column) == vxCELL_CLASS) return Summary(vxGetCell(column, row));
  if (vxGetClassID(column) == vxCHAR_CLASS) {
    std::u16string text;
    for (size_t c = 0; c < vxGetN(column); ++c) {
      text.push_back(vxGetChars(column)[row + c * vxGetM(column)]);
    }
    auto owned = matrix::fromUString(text);
    return host::TextOf(owned.get());
  }
  if (IsMissing(column, row)) return kMissingText;
  if (host::IsObject(column, host::kString)) return "\"" + StringRow(column, row) + "\"";
  if (host::IsObject(column, host::kInteger)) {
    return NumericText(vxGetField(column, 0, host::kValues), row);
  }
  if (host::IsObject(column, host::kDatetime)) return DatetimeRow(column, row);
  if (host::IsObject(column, host::kDuration)) return DurationRow(column, row);
  if (host::IsObject(column, host::kCategorical)) return CategoricalRow(column, row);
  if (host::IsObject(column, host::kTable)) {
    const vxArray* columns = vxGetField(column, 0, host::kColumns);
    std::string out = "{";
    for (size_t i = 0; i < vxGetNumberOfElements(columns); ++i) {
      out += (i ? ", " : "") + RowText(vxGetCell(columns, i), row);
    }
    return out + "}";
  }
  return "?";
}

size_t ColumnRows(const vxArray* column) {
  if (column == nullptr) return 0;
  if (host::IsObject(column, host::kString)) {
    return vxGetNumberOfElements(vxGetField(column, 0, host::kOffsets)) - 1;
  }
  if (host::IsObject(column, host::kDatetime) || host::IsObject(column, host::kDuration)) {
    return vxGetNumberOfElements(vxGetField(column, 0, host::kTicks));
  }
  if (host::IsObject(column, host::kCategorical)) {
    return vxGetNumberOfElements(vxGetField(column, 0, host::kCodes));
  }
  if (host::IsObject(column, host::kInteger)) {
    return vxGetNumberOfElements(vxGetField(column, 0, host::kValues));
  }
  if (host::IsObject(column, host::kTable)) return TableRows(column);
  return vxGetM(column);
}

size_t TableRows(const vxArray* table) {
  const vxArray* columns = vxGetField(table, 0, host::kColumns);
  return columns != nullptr && vxGetNumberOfElements(columns) > 0
             ? ColumnRows(vxGetCell(columns, 0))
             : 0;
}

// Columns one code point takes on a terminal: none for combining marks and joiners, two for
// East Asian wide and full-width characters and emoji, one otherwise.
size_t CodePointWidth(char32_t c) {
  if ((c >= 0x0300 && c <= 0x036F) || c == 0x200B || c == 0x200C || c == 0x200D ||
      (c >= 0xFE00 && c <= 0xFE0F)) {
    return 0;
  }
  const bool wide = (c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0x303E) ||
                    (c >= 0x3041 && c <= 0x33FF) || (c >= 0x3400 && c <= 0x4DBF) ||
                    (c >= 0x4E00 && c <= 0x9FFF) || (c >= 0xA000 && c <= 0xA4CF) ||
                    (c >= 0xAC00 && c <= 0xD7A3) || (c >= 0xF900 && c <= 0xFAFF) ||
                    (c >= 0xFE30 && c <= 0xFE4F) || (c >= 0xFF00 && c <= 0xFF60) ||
                    (c >= 0xFFE0 && c <= 0xFFE6) || (c >= 0x1F300 && c <= 0x1F64F) ||
                    (c >= 0x1F900 && c <= 0x1F9FF) || (c >= 0x20000 && c <= 0x3FFFD);
  return wide ? 2 : 1;
}

size_t DisplayWidth(const std::string& text) {
  size_t width = 0;
  for (size_t i = 0; i < text.size();) {
    width += CodePointWidth(foundation::unicode::decodeUtf8(
        reinterpret_cast<const uint8_t*>(text.data()), text.size(), i));
  }
  return width;
}

// At most `limit` columns of text, the rest replaced by "…".
std::string Clip(const std::string& text, size_t limit) {
  if (DisplayWidth(text) <= limit) return text;
  size_t width = 0, i = 0;
  while (i < text.size()) {
    size_t next = i;
    const size_t w = CodePointWidth(foundation::unicode::decodeUtf8(
        reinterpret_cast<const uint8_t*>(text.data()), text.size(), next));
    if (width + w > limit - 1) break;
    width += w;
    i = next;
  }
  return text.substr(0, i) + "\u2026";
}

std::vector<std::string> NamesOf(const vxArray* table) {
  const vxArray* names = vxGetField(table, 0, host::kNames);
  std::vector<std::string> out;
  for (size_t i = 0; names && i < vxGetNumberOfElements(names); ++i) {
    out.push_back(host::TextOf(vxGetCell(names, i)));
  }
  return out;
}

// The columns to show when the table is wider than the terminal: from both ends inwards, as
// many as fit with an elision mark between; all of them when they fit or no width is set.
std::vector<size_t> ColumnsThatFit(const std::vector<size_t>& widths, size_t labelWidth,
                                   size_t limit) {
  std::vector<size_t> all(widths.size());
  for (size_t c = 0; c < widths.size(); ++c) all[c] = c;
  size_t total = 3 + labelWidth;
  for (size_t width : widths) total += 2 + width;
  if (limit == 0 || total <= limit) return all;
  size_t used = 3 + labelWidth + 3;  // the row numbers and the "…" column
  std::vector<size_t> left, right;
  size_t low = 0, high = widths.size();
  while (low < high) {
    const bool takeLeft = left.size() <= right.size();
    const size_t c = takeLeft ? low : high - 1;
    if (used + 2 + widths[c] > limit) break;
    used += 2 + widths[c];
    if (takeLeft) {
      left.push_back(low++);
    } else {
      right.insert(right.begin(), --high);
    }
  }
  if (left.empty()) left.push_back(0);  // always show something
  left.push_back(SIZE_MAX);             // the elision mark
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

std::string DisplayTable(const vxArray* table, const DisplayOptions& options) {
  TextTable text;
  text.names = NamesOf(table);
  const vxArray* columns = vxGetField(table, 0, host::kColumns);
  text.rows = TableRows(table);
  const bool elided = text.rows > options.headRows + options.tailRows;
  for (size_t r = 0; r < text.rows; ++r) {
    if (!elided || r < options.headRows || r >= text.rows - options.tailRows) {
      text.shownRows.push_back(r);
    }
  }
  for (size_t c = 0; c < text.names.size(); ++c) {
    const vxArray* column = vxGetCell(columns, c);
    text.types.push_back(HostTypeName(column));
    text.alignRight.push_back(IsNumericOrLogical(column));
    text.cells.emplace_back();
    for (size_t r : text.shownRows) text.cells.back().push_back(RowText(column, r));
  }
  return DisplayGrid(text, options);
}

}  // namespace

std::string DisplayGrid(const TextTable& table, const DisplayOptions& options) {
  const std::vector<size_t>& shown = table.shownRows;
  // Grid of texts: header, type line, then the shown rows; columns padded to their widest.
  std::vector<std::vector<std::string>> grid(table.names.size());
  for (size_t c = 0; c < table.names.size(); ++c) {
    grid[c].push_back(Clip(EscapeControl(table.names[c]), options.cellWidth));
    grid[c].push_back(c < table.types.size() ? table.types[c] : "");
    for (size_t i = 0; i < shown.size(); ++i) {
      grid[c].push_back(Clip(EscapeControl(table.cells[c][i]), options.cellWidth));
    }
  }
  std::ostringstream out;
  out << table.rows << "x" << table.names.size() << " table\n";
  if (table.names.empty()) return out.str();
  std::vector<size_t> widths(grid.size(), 0);
  for (size_t c = 0; c < grid.size(); ++c) {
    for (const auto& cell : grid[c]) widths[c] = std::max(widths[c], DisplayWidth(cell));
  }
  // Row numbers sit in a column of their own, right-aligned, so that values line up with
  // their variable names.
  const size_t labelWidth = shown.empty() ? 1 : std::to_string(shown.back() + 1).size();
  const std::vector<size_t> visible = ColumnsThatFit(widths, labelWidth, options.width);
  const auto printLine = [&](const std::string& label, size_t line) {
    std::string text = "   " + std::string(labelWidth - label.size(), ' ') + label;
    for (size_t c : visible) {
      if (c == SIZE_MAX) {
        text += "  \u2026";
        continue;
      }
      const std::string& cell = grid[c][line];
      const std::string padding(widths[c] - DisplayWidth(cell), ' ');
      // Numbers align on the right, under a right-aligned name.
      const bool right = c < table.alignRight.size() && table.alignRight[c];
      text += "  " + (right ? padding + cell : cell + padding);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    out << text << "\n";
  };
  printLine("", 0);
  printLine("", 1);
  for (size_t i = 0; i < shown.size(); ++i) {
    if (i > 0 && shown[i] != shown[i - 1] + 1) {
      out << "   " << std::string(labelWidth, ' ') << "  ...\n";
    }
    printLine(std::to_string(shown[i] + 1), i + 2);
  }
  return out.str();
}

namespace {

// ---- JSON ------------------------------------------------------------------------------

// NaN is the host's missing value: null. Infinities are not JSON numbers: the strings
// "Infinity" and "-Infinity", as JavaScript spells them.
std::string JsonNumber(const vxArray* array, size_t i) {
  const std::string text = NumericText(array, i);
  if (text == "NaN") return "null";
  if (text == "Inf") return "\"Infinity\"";
  if (text == "-Inf") return "\"-Infinity\"";
  return text;
}

// A cell element that holds bytes (a uint8 vector) is a binary value: its base64 text in an
// object, never numbers.
bool IsBytes(const vxArray* value) {
  return value != nullptr && vxGetClassID(value) == vxUINT8_CLASS &&
         (vxGetN(value) == 1 || vxGetM(value) == 1 || vxIsEmpty(value));
}

std::string Base64(const vxArray* bytes) {
  static const char* kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const auto* data = static_cast<const uint8_t*>(vxGetData(bytes));
  const size_t size = vxGetNumberOfElements(bytes);
  std::string out;
  for (size_t i = 0; i < size; i += 3) {
    const uint32_t chunk =
        (data[i] << 16) | (i + 1 < size ? data[i + 1] << 8 : 0) | (i + 2 < size ? data[i + 2] : 0);
    out.push_back(kAlphabet[(chunk >> 18) & 63]);
    out.push_back(kAlphabet[(chunk >> 12) & 63]);
    out.push_back(i + 1 < size ? kAlphabet[(chunk >> 6) & 63] : '=');
    out.push_back(i + 2 < size ? kAlphabet[chunk & 63] : '=');
  }
  return out;
}

// One element of a cell column or of a list: null for the missing element, an object for
// bytes, and always an array for a list value, whatever its length.
std::string JsonElement(const vxArray* element) {
  if (host::IsNullElement(element)) return "null";
  if (IsBytes(element)) return "{\"base64\":" + JsonString(Base64(element)) + "}";
  if (IsNumericOrLogical(element) && !vxIsComplex(element)) {
    std::string out = "[";
    for (size_t i = 0; i < vxGetNumberOfElements(element); ++i) {
      out += (i ? "," : "") + JsonNumber(element, i);
    }
    return out + "]";
  }
  if (vxGetClassID(element) == vxCELL_CLASS) {
    std::string out = "[";
    for (size_t i = 0; i < vxGetNumberOfElements(element); ++i) {
      out += (i ? "," : "") + JsonElement(vxGetCell(element, i));
    }
    return out + "]";
  }
  return ToJson(element);
}

std::string JsonRow(const vxArray* column, size_t row) {
  if (IsNumericOrLogical(column)) return JsonNumber(column, row);
  if (vxGetClassID(column) == vxCELL_CLASS) return JsonElement(vxGetCell(column, row));
  if (vxGetClassID(column) != vxCHAR_CLASS && IsMissing(column, row)) return "null";
  if (host::IsObject(column, host::kString)) return JsonString(StringRow(column, row));
  if (host::IsObject(column, host::kInteger)) {
    return NumericText(vxGetField(column, 0, host::kValues), row);
  }
  if (host::IsObject(column, host::kTable)) {
    const std::vector<std::string> names = NamesOf(column);
    const vxArray* columns = vxGetField(column, 0, host::kColumns);
    std::string out = "{";
    for (size_t i = 0; i < names.size(); ++i) {
      out += (i ? "," : "") + JsonString(names[i]) + ":" + JsonRow(vxGetCell(columns, i), row);
    }
    return out + "}";
  }
  return JsonString(RowText(column, row));
}

std::string JsonTable(const vxArray* table) {
  const std::vector<std::string> names = NamesOf(table);
  const vxArray* columns = vxGetField(table, 0, host::kColumns);
  const size_t rows = TableRows(table);
  std::string out = "{\"variables\":[";
  for (size_t c = 0; c < names.size(); ++c) {
    out += (c ? "," : "") + std::string("{\"name\":") + JsonString(names[c]) +
           ",\"type\":" + JsonString(HostTypeName(vxGetCell(columns, c))) + "}";
  }
  out += "],\"rows\":" + std::to_string(rows) + ",\"columns\":{";
  for (size_t c = 0; c < names.size(); ++c) {
    out += (c ? "," : "") + JsonString(names[c]) + ":[";
    for (size_t r = 0; r < rows; ++r) out += (r ? "," : "") + JsonRow(vxGetCell(columns, c), r);
    out += "]";
  }
  return out + "}}";
}

}  // namespace

std::string EscapeControl(const std::string& text) {
  std::string out;
  for (const unsigned char c : text) {
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c < 0x20 || c == 0x7f) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
      out += escaped;
    } else {
      out.push_back(static_cast<char>(c));
    }
  }
  return out;
}

std::string JsonRowObject(const vxArray* table, size_t row) {
  const std::vector<std::string> names = NamesOf(table);
  const vxArray* columns = vxGetField(table, 0, host::kColumns);
  std::string out = "{";
  for (size_t c = 0; c < names.size(); ++c) {
    out += (c ? "," : "") + JsonString(names[c]) + ":" + JsonRow(vxGetCell(columns, c), row);
  }
  return out + "}";
}

namespace {
std::string CsvField(std::string text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string out = "\"";
  for (char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

// A missing value is an empty field; texts as they are; numbers exactly; nested values as
// their JSON.
std::string CsvValue(const vxArray* column, size_t row) {
  if (IsNumericOrLogical(column)) {
    const std::string text = NumericText(column, row);
    return text == "NaN" ? std::string() : text;
  }
  if (vxGetClassID(column) == vxCELL_CLASS) {
    const vxArray* element = vxGetCell(column, row);
    return host::IsNullElement(element) ? std::string() : CsvField(JsonElement(element));
  }
  if (IsMissing(column, row)) return std::string();
  if (host::IsObject(column, host::kString)) return CsvField(StringRow(column, row));
  if (host::IsObject(column, host::kInteger)) {
    return NumericText(vxGetField(column, 0, host::kValues), row);
  }
  if (host::IsObject(column, host::kTable)) return CsvField(JsonRow(column, row));
  return CsvField(RowText(column, row));
}
}  // namespace

std::string CsvHeader(const vxArray* table) {
  std::string out;
  const std::vector<std::string> names = NamesOf(table);
  for (size_t c = 0; c < names.size(); ++c) out += (c ? "," : "") + CsvField(names[c]);
  return out;
}

std::string CsvRow(const vxArray* table, size_t row) {
  const vxArray* columns = vxGetField(table, 0, host::kColumns);
  std::string out;
  for (size_t c = 0; c < vxGetNumberOfElements(columns); ++c) {
    out += (c ? "," : "") + CsvValue(vxGetCell(columns, c), row);
  }
  return out;
}

size_t RowCount(const vxArray* table) { return TableRows(table); }

std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (const unsigned char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (c < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
          out += escaped;
        } else {
          out.push_back(static_cast<char>(c));
        }
    }
  }
  return out + "\"";
}

std::string HostTypeName(const vxArray* value) {
  if (value == nullptr) return "empty";
  return vxGetClassName(value);
}

std::string DisplayValue(const vxArray* value, const DisplayOptions& options) {
  if (value == nullptr) return "[]\n";
  if (host::IsTable(value)) return DisplayTable(value, options);
  const bool column = vxGetClassID(value) == vxOBJECT_CLASS && vxGetNumberOfElements(value) == 1;
  if (column && !host::IsObject(value, host::kTable)) {
    // A column object: its rows one per line.
    const size_t rows = ColumnRows(value);
    std::ostringstream out;
    out << rows << "x1 " << HostTypeName(value) << "\n";
    for (size_t r = 0; r < rows && r < options.headRows + options.tailRows; ++r) {
      out << "    " << RowText(value, r) << "\n";
    }
    if (rows > options.headRows + options.tailRows) out << "    ...\n";
    return out.str();
  }
  if (IsNumericOrLogical(value) && vxGetNumberOfElements(value) > 1 && vxGetN(value) == 1) {
    std::string out = Size(value) + " " + HostTypeName(value) + "\n";
    for (size_t r = 0; r < vxGetM(value); ++r) out += "    " + NumericText(value, r) + "\n";
    return out;
  }
  if (vxGetClassID(value) == vxCELL_CLASS) {
    std::string out = Size(value) + " cell\n";
    for (size_t i = 0; i < vxGetNumberOfElements(value); ++i) {
      out += "    " + Summary(vxGetCell(value, i)) + "\n";
    }
    return out;
  }
  return Summary(value) + "\n";
}

std::string ToJson(const vxArray* value) {
  if (value == nullptr) return "null";
  if (host::IsTable(value)) return JsonTable(value);
  const vxClassID id = vxGetClassID(value);
  if (id == vxCHAR_CLASS) return JsonString(host::TextOf(value));
  if (IsNumericOrLogical(value) && !vxIsComplex(value)) {
    if (vxGetNumberOfElements(value) == 1) return JsonNumber(value, 0);
    std::string out = "[";
    for (size_t i = 0; i < vxGetNumberOfElements(value); ++i) {
      out += (i ? "," : "") + JsonNumber(value, i);
    }
    return out + "]";
  }
  if (id == vxCELL_CLASS) {
    std::string out = "[";
    for (size_t i = 0; i < vxGetNumberOfElements(value); ++i) {
      out += (i ? "," : "") + JsonElement(vxGetCell(value, i));
    }
    return out + "]";
  }
  if (id == vxOBJECT_CLASS && vxGetNumberOfElements(value) == 1 &&
      !host::IsObject(value, host::kTable)) {
    std::string out = "[";
    for (size_t r = 0; r < ColumnRows(value); ++r) out += (r ? "," : "") + JsonRow(value, r);
    return out + "]";
  }
  if (id == vxSTRUCT_CLASS || id == vxOBJECT_CLASS) {
    std::string out = "{";
    for (int f = 0; f < vxGetNumberOfFields(value); ++f) {
      const char* name = vxGetFieldNameByNumber(value, f);
      out += (f ? "," : "") + JsonString(name) + ":" + ToJson(vxGetField(value, 0, name));
    }
    return out + "}";
  }
  return "null";
}

}  // namespace vantro::io::arrow::core::display
