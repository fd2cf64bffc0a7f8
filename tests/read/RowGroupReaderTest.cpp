// Reading row group by row group, by lists of row groups and whole files; the cursor.
#include <gtest/gtest.h>

#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::read::RowGroupParquetReader;
using vxtest::expectHostError;
using vxtest::u16;
using vxtest::read::idRange;
using vxtest::read::int64Column;
using vxtest::read::tableColumn;
using vxtest::read::tableNames;
using vxtest::read::tableRows;
using Ids = std::vector<int64_t>;

constexpr const char* kInvalidRead = "VANTRO:parquetio:read:InternalInvalidRead";

Ids ids(const matrix::unique_array& table) { return int64Column(tableColumn(table.get(), 0)); }

Ids concat(std::initializer_list<Ids> parts) {
  Ids all;
  for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// 50 rows "id" 0..49 (with "x" and "name") in five row groups of ten.
class RowGroupReaderTest : public ::testing::Test {
 protected:
  void SetUp() override { mPath = vxtest::writeSimpleFile(mDir, "five.parquet", 50, 10); }

  RowGroupParquetReader open(const std::vector<double>& rowGroups) {
    return RowGroupParquetReader(u16(mPath), rowGroups);
  }

  vxtest::TempDir mDir;
  std::string mPath;
};

TEST_F(RowGroupReaderTest, ReadVisitsTheListInOrderThenRefuses) {
  auto reader = open({3, 1});
  EXPECT_EQ(reader.getTotalNumRowGroups(), 5.0);
  ASSERT_TRUE(reader.hasdata());
  EXPECT_EQ(ids(reader.read()), idRange(20, 30));
  EXPECT_EQ(reader.getRowGroupIndex(), 1u);
  EXPECT_EQ(ids(reader.read()), idRange(0, 10));
  EXPECT_FALSE(reader.hasdata());

  auto arguments = expectHostError([&] { reader.read(); }, kInvalidRead);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(std::get<std::u16string>((*arguments)[0]), reader.getFilename());
  EXPECT_EQ(std::get<std::u16string>((*arguments)[1]), u"No more data");

  reader.reset();
  EXPECT_EQ(ids(reader.read()), idRange(20, 30));
}

TEST_F(RowGroupReaderTest, ListReadsKeepOrderAndRepeatsAndLeaveTheCursor) {
  auto reader = open({4, 2});
  EXPECT_EQ(ids(reader.readRowGroups({3, 1, 3})),
            concat({idRange(20, 30), idRange(0, 10), idRange(20, 30)}));

  reader.read();
  reader.read();
  EXPECT_EQ(reader.getRowGroupIndex(), 2u);
  // readall passes the whole list, not what is left of it.
  EXPECT_EQ(ids(reader.readall()), concat({idRange(30, 40), idRange(10, 20)}));
  EXPECT_EQ(ids(reader.readFullFile()), idRange(0, 50));
  EXPECT_EQ(reader.getRowGroupIndex(), 2u);

  auto empty = reader.readRowGroups({});
  EXPECT_EQ(tableNames(empty.get()), std::vector<std::string>({"id", "x", "name"}));
  EXPECT_EQ(tableRows(empty.get()), 0u);
}

TEST_F(RowGroupReaderTest, FractionalRowGroupNumbers) {
  // 2.7 is row group 2 on both paths.
  auto reader = open({2.7});
  EXPECT_EQ(ids(reader.read()), idRange(10, 20));
  EXPECT_EQ(ids(reader.readRowGroups({2.7})), idRange(10, 20));

  // 0.5 - 1 truncates to 0 in a list read, while truncating first gives -1 for read().
  auto half = open({0.5});
  EXPECT_EQ(ids(half.readRowGroups({0.5})), idRange(0, 10));
  expectHostError([&] { half.read(); }, kInvalidRead);
  EXPECT_EQ(half.getRowGroupIndex(), 0u);
}

TEST_F(RowGroupReaderTest, RowGroupsOutsideTheFileReachArrowAndFail) {
  auto reader = open({6});
  ASSERT_TRUE(reader.hasdata());
  auto arguments = expectHostError([&] { reader.read(); }, kInvalidRead);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(std::get<std::u16string>((*arguments)[0]), reader.getFilename());
  expectHostError([&] { reader.readRowGroups({1, 0}); }, kInvalidRead);
  expectHostError([&] { reader.readall(); }, kInvalidRead);
}

TEST_F(RowGroupReaderTest, CursorIsSetWithoutRangeCheck) {
  auto reader = open({1, 2, 3});
  reader.setRowGroupIndex(100);
  EXPECT_EQ(reader.getRowGroupIndex(), 100u);
  EXPECT_FALSE(reader.hasdata());
  expectHostError([&] { reader.read(); }, kInvalidRead);
  reader.setRowGroupIndex(2);
  EXPECT_EQ(ids(reader.read()), idRange(20, 30));
  EXPECT_EQ(reader.getRowGroups(), std::vector<double>({1, 2, 3}));
}

TEST_F(RowGroupReaderTest, MovedReaderCarriesOn) {
  auto first = open({1, 2});
  first.setSelectedVariableNames({u"id"});
  first.read();
  RowGroupParquetReader second(std::move(first));
  auto table = second.read();
  EXPECT_EQ(tableNames(table.get()), std::vector<std::string>({"id"}));
  EXPECT_EQ(ids(table), idRange(10, 20));

  RowGroupParquetReader third;
  third = std::move(second);
  EXPECT_FALSE(third.hasdata());
  EXPECT_EQ(third.getSelectedVariableNames(), std::vector<std::u16string>({u"id"}));
}

TEST(NoRowGroupsTest, ReadsOneEmptyTableOncePerReset) {
  vxtest::TempDir dir;
  const std::string path = dir.file("none.parquet");
  vxtest::writeParquetWithoutRowGroups(path, vxtest::simpleTable(0)->schema());

  RowGroupParquetReader reader(u16(path), {});
  EXPECT_EQ(reader.getTotalNumRowGroups(), 0.0);
  EXPECT_TRUE(reader.getRowGroupHeights().empty());
  EXPECT_TRUE(reader.getRowGroupOffsets().empty());
  reader.setSelectedVariableNames({u"name", u"id"});

  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(reader.hasdata());
    auto table = reader.read();
    EXPECT_EQ(tableNames(table.get()), std::vector<std::string>({"name", "id"}));
    EXPECT_EQ(tableRows(table.get()), 0u);
    EXPECT_FALSE(reader.hasdata());
    expectHostError([&] { reader.read(); }, kInvalidRead);
    reader.reset();
  }
  EXPECT_EQ(tableRows(reader.readFullFile().get()), 0u);

  // A byte range selects nothing here, yet the one empty read remains.
  RowGroupParquetReader ranged(u16(path), 0.0, 1e9);
  EXPECT_TRUE(ranged.getRowGroups().empty());
  EXPECT_TRUE(ranged.hasdata());
}

TEST(ReaderWithoutFileTest, HasNothingToRead) {
  RowGroupParquetReader reader;
  EXPECT_FALSE(reader.hasdata());
  EXPECT_TRUE(reader.getFilename().empty());
  expectHostError([&] { reader.read(); }, kInvalidRead);
  // Without a file the converter receives no table at all.
  auto table = reader.readFullFile();
  ASSERT_NE(table, nullptr);
  EXPECT_TRUE(tableNames(table.get()).empty());
  EXPECT_TRUE(tableNames(reader.readRowGroups({1, 2}).get()).empty());
}

}  // namespace
