#pragma once

// Building and reading the host objects that hold Arrow columns (layouts in Converter.hpp).
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <arrow/result.h>
#include <arrow/status.h>

#include "host/matrix/Matrix.hpp"

namespace vantro::io::arrow::core::host {

// Class names of the host objects.
inline constexpr const char* kTable = "table";
inline constexpr const char* kString = "string";
inline constexpr const char* kDatetime = "datetime";
inline constexpr const char* kDuration = "duration";
inline constexpr const char* kCategorical = "categorical";
// 64-bit integers with missing values, which a double cannot always hold.
inline constexpr const char* kInteger = "integer";

// Field names.
inline constexpr const char* kNames = "Names";
inline constexpr const char* kColumns = "Columns";
inline constexpr const char* kData = "Data";
inline constexpr const char* kOffsets = "Offsets";
inline constexpr const char* kMissing = "Missing";
inline constexpr const char* kTicks = "Ticks";
inline constexpr const char* kUnit = "Unit";
inline constexpr const char* kTimeZone = "TimeZone";
inline constexpr const char* kKind = "Kind";
inline constexpr const char* kCodes = "Codes";
inline constexpr const char* kCategories = "Categories";
inline constexpr const char* kOrdered = "Ordered";
inline constexpr const char* kValues = "Values";

// A created array, or OutOfMemory when the host returned NULL.
::arrow::Result<matrix::unique_array> Allocated(vxArray* array);

using Field = std::pair<const char*, matrix::unique_array>;
// A 1x1 object of the class, owning the given field values.
::arrow::Result<matrix::unique_array> MakeObject(const char* className, std::vector<Field> fields);
// A 1x1 "table" object; names and columns have the same length.
::arrow::Result<matrix::unique_array> MakeTable(const std::vector<std::string>& names,
                                                std::vector<matrix::unique_array> columns);
// A char row vector of the UTF-8 text.
::arrow::Result<matrix::unique_array> MakeText(std::string_view utf8);

bool IsObject(const vxArray* value, const char* className);
// A structure, or an object of class "table", with the fields "Names" and "Columns".
bool IsTable(const vxArray* value);
// A char array of one row (or empty).
bool IsText(const vxArray* value);
// The UTF-8 form of a char array (rows read one after another).
std::string TextOf(const vxArray* value);
// The text of a char-valued field, or empty when the field is missing or not text.
std::string TextField(const vxArray* object, const char* field);
// A 0x0 double: the cell element that stands for a null.
bool IsNullElement(const vxArray* value);

}  // namespace vantro::io::arrow::core::host
