// Row-group heights and byte offsets from a file's footer.
#include <memory>
#include <string>

#include <arrow/api.h>
#include <arrow/io/file.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <parquet/arrow/writer.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>

#include "tests/info/InfoFixtures.hpp"
#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupGeometry.hpp"

namespace {

namespace info = vantro::io::parquet::core::info;
namespace read = vantro::io::parquet::core::read;
using testing::ElementsAre;
using testing::IsEmpty;

std::shared_ptr<parquet::FileMetaData> footerOf(const std::string& path) {
  return parquet::ReadMetaData(arrow::io::ReadableFile::Open(path).ValueOrDie());
}

class RowGroupGeometry : public testing::Test {
 protected:
  vxtest::TempDir dir;
};

TEST_F(RowGroupGeometry, FileWithoutRowGroupsHasNoGeometry) {
  const std::string path = dir.file("empty.parquet");
  vxtest::writeParquetWithoutRowGroups(path, vxtest::simpleTable(0)->schema());
  const auto footer = footerOf(path);
  ASSERT_EQ(footer->num_row_groups(), 0);
  EXPECT_THAT(info::getRowGroupHeights(*footer), IsEmpty());
  EXPECT_THAT(info::getRowGroupOffsets(*footer), IsEmpty());
}

TEST_F(RowGroupGeometry, HeightsFollowTheRowGroupSize) {
  const auto footer = footerOf(vxtest::writeSimpleFile(dir, "ten.parquet", 10, 4));
  EXPECT_THAT(info::getRowGroupHeights(*footer), ElementsAre(4u, 4u, 2u));
}

TEST_F(RowGroupGeometry, OffsetsAreTheFirstChunksStartsInFooterOrder) {
  const auto footer = footerOf(vxtest::writeSimpleFile(dir, "ten.parquet", 10, 4));
  const auto offsets = info::getRowGroupOffsets(*footer);
  ASSERT_EQ(offsets.size(), 3u);
  EXPECT_EQ(offsets[0], 4u);  // right after the leading magic
  for (int i = 0; i < 3; ++i) {
    const auto chunk = footer->RowGroup(i)->ColumnChunk(0);
    ASSERT_TRUE(chunk->has_dictionary_page());
    EXPECT_EQ(offsets[i], static_cast<uint64_t>(chunk->dictionary_page_offset()));
    EXPECT_LT(chunk->dictionary_page_offset(), chunk->data_page_offset());
  }
  EXPECT_LT(offsets[0], offsets[1]);
  EXPECT_LT(offsets[1], offsets[2]);
}

TEST_F(RowGroupGeometry, FirstColumnWithoutDictionaryGivesItsDataPage) {
  // Only "id", the first column, goes without a dictionary; "x" and "name" keep theirs.
  const std::string path = dir.file("mixed.parquet");
  vxtest::writeParquet(path, vxtest::simpleTable(10), 5,
                       parquet::WriterProperties::Builder().disable_dictionary("id")->build());
  const auto footer = footerOf(path);
  const auto offsets = info::getRowGroupOffsets(*footer);
  ASSERT_EQ(offsets.size(), 2u);
  for (int i = 0; i < 2; ++i) {
    const auto rowGroup = footer->RowGroup(i);
    ASSERT_FALSE(rowGroup->ColumnChunk(0)->has_dictionary_page());
    ASSERT_TRUE(rowGroup->ColumnChunk(1)->has_dictionary_page());
    EXPECT_EQ(offsets[i], static_cast<uint64_t>(rowGroup->ColumnChunk(0)->data_page_offset()));
    EXPECT_EQ(read::calculateRowGroupOffset(*rowGroup), static_cast<int64_t>(offsets[i]));
  }
}

TEST_F(RowGroupGeometry, EmptyTableWritesOneRowGroupOfZeroRows) {
  const std::string path = dir.file("zero.parquet");
  vxtest::writeParquet(path, vxtest::simpleTable(0));
  const auto footer = footerOf(path);
  ASSERT_EQ(footer->num_row_groups(), 1);
  EXPECT_THAT(info::getRowGroupHeights(*footer), ElementsAre(0u));
  const auto offsets = info::getRowGroupOffsets(*footer);
  ASSERT_EQ(offsets.size(), 1u);
  EXPECT_GE(offsets[0], 4u);
}

TEST_F(RowGroupGeometry, FooterOrderIsKeptEvenWhenOffsetsDecrease) {
  const std::string path = dir.file("footer.parquet");
  const auto root = parquet::schema::GroupNode::Make(
      "schema", parquet::Repetition::REQUIRED,
      {vxtest::info::int64Node("a"), vxtest::info::int64Node("b")});
  using vxtest::info::ChunkFooter;
  ChunkFooter late;
  late.firstPageOffset = 40;
  ChunkFooter earlyWithDictionary;
  earlyWithDictionary.hasDictionary = true;
  earlyWithDictionary.firstPageOffset = 8;
  ChunkFooter other;
  other.firstPageOffset = 20;
  vxtest::info::writeFooterOnly(path, root,
                                {{3, {late, other}}, {0, {earlyWithDictionary, other}}});

  const auto footer = footerOf(path);
  EXPECT_THAT(info::getRowGroupHeights(*footer), ElementsAre(3u, 0u));
  EXPECT_THAT(info::getRowGroupOffsets(*footer), ElementsAre(40u, 8u));
}

TEST_F(RowGroupGeometry, RowGroupWithoutColumnsHasAHeightButNoOffset) {
  const std::string path = dir.file("noleaves.parquet");
  const auto root = parquet::schema::GroupNode::Make(
      "schema", parquet::Repetition::REQUIRED,
      {parquet::schema::GroupNode::Make("nothing", parquet::Repetition::OPTIONAL, {})});
  vxtest::info::writeFooterOnly(path, root, 6, {});
  const auto footer = footerOf(path);
  EXPECT_THAT(info::getRowGroupHeights(*footer), ElementsAre(6u));
  EXPECT_THROW(info::getRowGroupOffsets(*footer), parquet::ParquetException);
}

}  // namespace
