#pragma once

// Text renderings of host values for the command-line program.
//
// DisplayValue: what a numeric environment prints. A table shows its size, each variable's
// name and host type, then its first and last rows ("..." between when rows are left out).
// Other values get one compact line. Datetimes print as ISO 8601 at their unit's precision,
// as the UTC instant followed by the time zone name in brackets when one is recorded (the
// host carries no time zone database).
//
// ToJson: valid JSON of a value. A table is
//   {"variables":[{"name":..,"type":..}, ...], "rows":R, "columns":{"<name>":[v, ...], ...}}
// where v is a number, true/false, a string (texts, categories, datetimes and durations as
// displayed), null for NaN and missing values, and for cells the JSON of each element. A
// numeric or logical array is a number or an array of numbers (column-major); a char array a
// string; a cell an array; a structure or object an object of its fields.
#include <cstddef>
#include <string>

#include "host/matrix/matrix.h"

namespace vantro::io::arrow::core::display {

struct DisplayOptions {
  size_t headRows = 5;
  size_t tailRows = 5;
};

std::string DisplayValue(const vxArray* value, const DisplayOptions& options = {});
std::string ToJson(const vxArray* value);

// A JSON string literal for UTF-8 text, control characters escaped.
std::string JsonString(const std::string& text);

// "double", "string", "table", "cell", ... as to_vantro_datatype names them.
std::string HostTypeName(const vxArray* value);

}  // namespace vantro::io::arrow::core::display
