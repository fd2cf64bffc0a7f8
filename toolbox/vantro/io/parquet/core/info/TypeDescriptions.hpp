#pragma once

#include <memory>
#include <string>
#include <vector>

#include <arrow/type_fwd.h>

// Descriptions of a schema's top-level fields, for people and for the host. Schema only: no
// data is read, nothing is logged, nothing throws of its own accord.
namespace vantro::io::parquet::core::info {

// Each field's type as readable text: "Int32", "Timestamp[unit=microseconds, timezone=UTC]",
// "List<Struct<a: Int64, b: String>>"; "Unknown" for types without a description.
std::vector<std::u16string> parquet_types(std::shared_ptr<::arrow::Schema> schema);

// The top-level field names, as UTF-16.
std::vector<std::u16string> getVariableNames(std::shared_ptr<::arrow::Schema> schema);

// The host type each field converts to; an empty text where the host has none.
std::vector<std::string> getVariableTypes(std::shared_ptr<::arrow::Schema> schema);

}  // namespace vantro::io::parquet::core::info
