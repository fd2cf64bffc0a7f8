#pragma once

// Which columns of a table a Parquet dictionary cannot make smaller. Parquet's writer tries a
// dictionary for every column it may and gives up on a column chunk only once the dictionary
// has outgrown its page: for columns of mostly distinct values (measurements, identifiers,
// times) that try is pure cost. A sample of the first values decides.
#include <string>
#include <vector>

#include <arrow/type_fwd.h>

namespace vantro::io::arrow::core {

// Whether a dictionary may pay for this column: false for logicals (Parquet never encodes them
// with one) and for flat columns whose first values (up to 16,384 non-null ones) are more than
// half distinct; true otherwise, and for every nested, dictionary-typed or empty column.
bool DictionaryMayProfit(const ::arrow::ChunkedArray& column);

// The names of the table's columns for which DictionaryMayProfit is false.
std::vector<std::string> ColumnsWithoutDictionaryProfit(const ::arrow::Table& table);

}  // namespace vantro::io::arrow::core
