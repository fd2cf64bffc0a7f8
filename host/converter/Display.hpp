#pragma once

// Text renderings of host values for the command-line program.
//
// DisplayValue: what a numeric environment prints. A table shows its size, each variable's
// name and host type, then its first and last rows ("..." between when rows are left out).
// Numbers are right-aligned, control characters escaped, wide characters count two columns,
// long texts are clipped, and middle columns give way when the table is wider than
// options.width.
// Other values get one compact line. Datetimes print as ISO 8601 at their unit's precision,
// as the UTC instant followed by the time zone name in brackets when one is recorded (the
// host carries no time zone database).
//
// ToJson: valid JSON of a value. A table is
//   {"variables":[{"name":..,"type":..}, ...], "rows":R, "columns":{"<name>":[v, ...], ...}}
// where v is a number (doubles in the shortest text that reads back to the same bits, 64-bit
// integers exactly), true/false, a string (texts, categories, datetimes and durations as
// displayed), null for NaN and missing values, the strings "Infinity"/"-Infinity" for the
// infinities, {"base64": ".."} for a binary value, and for list cells an array of the
// elements (a missing element is null, a one-element list is a one-element array). A numeric
// or logical array is a number or an array of numbers (column-major); a char array a string;
// a cell an array; a structure or object an object of its fields.
#include <cstddef>
#include <string>
#include <vector>

#include "host/matrix/matrix.h"

namespace vantro::io::arrow::core::display {

struct DisplayOptions {
  size_t headRows = 5;
  size_t tailRows = 5;
  // Terminal columns a table may take: middle columns give way to "…" beyond it; 0 for no
  // limit.
  size_t width = 0;
  // Longer cell texts end in "…".
  size_t cellWidth = 40;
};

std::string DisplayValue(const vxArray* value, const DisplayOptions& options = {});

// A table already turned into texts, laid out by DisplayGrid as DisplayValue lays out a host
// table. Cells are given as they are; DisplayGrid escapes and clips them.
struct TextTable {
  size_t rows = 0;  // of the whole table
  std::vector<std::string> names;
  std::vector<std::string> types;
  std::vector<bool> alignRight;
  // The 0-based numbers of the rows given, ascending; "..." marks a gap.
  std::vector<size_t> shownRows;
  // Per column, one text per shown row.
  std::vector<std::vector<std::string>> cells;
};
std::string DisplayGrid(const TextTable& table, const DisplayOptions& options = {});
std::string ToJson(const vxArray* value);

// Row r of a host table as one JSON object {"<name>": v, ...} (values as in ToJson).
std::string JsonRowObject(const vxArray* table, size_t row);
// CSV (RFC 4180): the header line of names, and row r; missing values are empty fields,
// nested values their JSON text. No line ends.
std::string CsvHeader(const vxArray* table);
std::string CsvRow(const vxArray* table, size_t row);
// The rows of a host table.
size_t RowCount(const vxArray* table);

// Control characters as escapes (\n, \t, \x1b, ...), so that a value cannot move the cursor.
std::string EscapeControl(const std::string& text);

// The proleptic Gregorian date of a day count since 1970-01-01 (H. Hinnant's algorithm), for
// every int64 count whose year fits.
void CivilFromDays(int64_t days, int64_t& year, unsigned& month, unsigned& day);
// Ticks of perSecond to a second as whole seconds and the fraction, floored so that times
// before 1970 work.
void SplitTicks(int64_t ticks, int64_t perSecond, int64_t& seconds, int64_t& fraction);

// A JSON string literal for UTF-8 text, control characters escaped.
std::string JsonString(const std::string& text);

// "double", "string", "table", "cell", ... as to_vantro_datatype names them.
std::string HostTypeName(const vxArray* value);

}  // namespace vantro::io::arrow::core::display
