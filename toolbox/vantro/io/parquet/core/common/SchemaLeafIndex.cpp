#include "toolbox/vantro/io/parquet/core/common/SchemaLeafIndex.hpp"

#include <cstdint>

#include <arrow/type.h>

namespace vantro::io::parquet::core::common {
namespace {

constexpr int kMaxMaskedTypeId = 36;

constexpr uint64_t bit(::arrow::Type::type id) { return uint64_t{1} << static_cast<int>(id); }

constexpr uint64_t kSupportedNestedMask = bit(::arrow::Type::LIST) | bit(::arrow::Type::STRUCT) |
                                          bit(::arrow::Type::MAP) |
                                          bit(::arrow::Type::LARGE_LIST);

}  // namespace

bool isSupportedNestedType(const std::shared_ptr<::arrow::DataType>& type) {
  const int id = static_cast<int>(type->id());
  return id >= 0 && id <= kMaxMaskedTypeId && (kSupportedNestedMask >> id & 1) != 0;
}

std::optional<int> schema_field_to_leaf_index(const ::parquet::arrow::SchemaField& field) {
  if (field.column_index != -1) return field.column_index;
  if (!field.children.empty()) return schema_field_to_leaf_index(field.children.front());
  return std::nullopt;
}

std::optional<std::vector<int>> schema_field_to_all_leaf_indices(
    const ::parquet::arrow::SchemaField& field) {
  if (field.column_index != -1) return std::vector<int>{field.column_index};
  if (field.children.empty()) return std::nullopt;
  std::vector<int> leaves;
  for (const auto& child : field.children) {
    auto childLeaves = schema_field_to_all_leaf_indices(child);
    if (!childLeaves) return std::nullopt;
    leaves.insert(leaves.end(), childLeaves->begin(), childLeaves->end());
  }
  return leaves;
}

}  // namespace vantro::io::parquet::core::common
