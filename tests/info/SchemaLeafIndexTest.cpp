// The leaf-index helpers on hand-built manifest trees (shapes Parquet never builds) and on
// manifests that Parquet builds from Arrow schemas.
#include <memory>
#include <optional>
#include <vector>

#include <arrow/api.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <parquet/arrow/schema.h>
#include <parquet/properties.h>

#include "toolbox/vantro/io/parquet/core/common/SchemaLeafIndex.hpp"

namespace {

using parquet::arrow::SchemaField;
using testing::ElementsAre;
using vantro::io::parquet::core::common::isSupportedNestedType;
using vantro::io::parquet::core::common::schema_field_to_all_leaf_indices;
using vantro::io::parquet::core::common::schema_field_to_leaf_index;

SchemaField leaf(int columnIndex) {
  SchemaField field;
  field.field = arrow::field("leaf" + std::to_string(columnIndex), arrow::int32());
  field.column_index = columnIndex;
  return field;
}

SchemaField group(std::vector<SchemaField> children) {
  SchemaField field;
  field.field = arrow::field("group", arrow::struct_({}));
  field.children = std::move(children);
  return field;
}

// Only the first child is followed to the first leaf (a leafless first child hides its
// siblings); all leaves are depth-first in child order, unsorted, and one leafless branch voids
// them all.
TEST(SchemaLeafIndex, FirstAndAllLeavesOfHandBuiltTrees) {
  using Leaves = std::optional<std::vector<int>>;
  const struct {
    const char* name;
    SchemaField field;
    std::optional<int> first;
    Leaves all;
  } cases[] = {
      {"leaf", leaf(7), 7, Leaves{{7}}},
      {"leaf zero", leaf(0), 0, Leaves{{0}}},
      {"struct of two", group({leaf(3), leaf(4)}), 3, Leaves{{3, 4}}},
      {"childless group", group({}), std::nullopt, std::nullopt},
      {"leafless branch", group({leaf(3), group({})}), 3, std::nullopt},
      {"deep leafless branch", group({leaf(1), group({leaf(2), group({})})}), 1, std::nullopt},
      {"leafless first child", group({group({}), leaf(5)}), std::nullopt, std::nullopt},
      {"deep first child", group({group({group({leaf(9)})}), leaf(2)}), 9, Leaves{{9, 2}}},
      {"depth first", group({group({leaf(1), leaf(2)}), leaf(3), group({group({leaf(4)})})}), 1,
       Leaves{{1, 2, 3, 4}}},
      {"unsorted", group({leaf(8), leaf(2)}), 8, Leaves{{8, 2}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(schema_field_to_leaf_index(c.field), c.first);
    EXPECT_EQ(schema_field_to_all_leaf_indices(c.field), c.all);
  }
}

// Builds the manifest Parquet makes for an Arrow schema, as a reader would see it.
parquet::arrow::SchemaManifest manifestOf(const std::shared_ptr<arrow::Schema>& schema,
                                          std::shared_ptr<parquet::SchemaDescriptor>* descriptor) {
  EXPECT_TRUE(parquet::arrow::ToParquetSchema(schema.get(), *parquet::default_writer_properties(),
                                              *parquet::default_arrow_writer_properties(),
                                              descriptor)
                  .ok());
  parquet::arrow::SchemaManifest manifest;
  EXPECT_TRUE(parquet::arrow::SchemaManifest::Make(
                  descriptor->get(), nullptr, parquet::default_arrow_reader_properties(), &manifest)
                  .ok());
  return manifest;
}

TEST(SchemaLeafIndex, ParquetManifestsNumberLeavesInAscendingOrder) {
  const auto schema = arrow::schema({
      arrow::field("a", arrow::int32()),
      arrow::field("s", arrow::struct_({arrow::field("x", arrow::float64()),
                                        arrow::field("l", arrow::list(arrow::utf8()))})),
      arrow::field("m", arrow::map(arrow::utf8(), arrow::int64())),
      arrow::field("z", arrow::boolean()),
  });
  std::shared_ptr<parquet::SchemaDescriptor> descriptor;
  const auto manifest = manifestOf(schema, &descriptor);
  ASSERT_EQ(manifest.schema_fields.size(), 4u);
  const auto& fields = manifest.schema_fields;

  EXPECT_EQ(schema_field_to_leaf_index(fields[0]), 0);
  EXPECT_EQ(schema_field_to_leaf_index(fields[1]), 1);
  EXPECT_EQ(schema_field_to_leaf_index(fields[2]), 3);
  EXPECT_EQ(schema_field_to_leaf_index(fields[3]), 5);
  EXPECT_THAT(schema_field_to_all_leaf_indices(fields[1]).value(), ElementsAre(1, 2));
  EXPECT_THAT(schema_field_to_all_leaf_indices(fields[2]).value(), ElementsAre(3, 4));
  EXPECT_EQ(descriptor->Column(4)->path()->ToDotString(), "m.key_value.value");
}

TEST(SupportedNestedType, ListsStructsAndMapsOnly) {
  EXPECT_TRUE(isSupportedNestedType(arrow::list(arrow::int32())));
  EXPECT_TRUE(isSupportedNestedType(arrow::large_list(arrow::int32())));
  EXPECT_TRUE(isSupportedNestedType(arrow::struct_({arrow::field("a", arrow::int8())})));
  EXPECT_TRUE(isSupportedNestedType(arrow::map(arrow::utf8(), arrow::int32())));

  EXPECT_FALSE(isSupportedNestedType(arrow::fixed_size_list(arrow::int32(), 2)));
  EXPECT_FALSE(isSupportedNestedType(arrow::dictionary(arrow::int8(), arrow::utf8())));
  EXPECT_FALSE(isSupportedNestedType(arrow::dense_union({arrow::field("a", arrow::int8())})));
  EXPECT_FALSE(isSupportedNestedType(arrow::sparse_union({arrow::field("a", arrow::int8())})));
  EXPECT_FALSE(isSupportedNestedType(arrow::int64()));
  EXPECT_FALSE(isSupportedNestedType(arrow::utf8()));
  EXPECT_FALSE(isSupportedNestedType(arrow::null()));
  // The highest id Arrow 11 knows, just above LARGE_LIST.
  EXPECT_FALSE(isSupportedNestedType(arrow::month_day_nano_interval()));
  EXPECT_FALSE(isSupportedNestedType(arrow::large_binary()));
}

}  // namespace
