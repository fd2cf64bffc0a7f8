#pragma once

#include <memory>
#include <optional>
#include <vector>

#include <arrow/type_fwd.h>
#include <parquet/arrow/schema.h>

// Maps between Arrow's view of a schema and Parquet's leaf columns: a nested variable (list,
// struct, map) occupies several leaf columns.
namespace vantro::io::parquet::core::common {

// True for the nested types the library reads and writes: list, large list, struct and map.
bool isSupportedNestedType(const std::shared_ptr<::arrow::DataType>& type);

// The first leaf column reached from field, following only first children.
std::optional<int> schema_field_to_leaf_index(const ::parquet::arrow::SchemaField& field);

// Every leaf column under field, depth first; nothing when some branch ends without a leaf.
std::optional<std::vector<int>> schema_field_to_all_leaf_indices(
    const ::parquet::arrow::SchemaField& field);

}  // namespace vantro::io::parquet::core::common
