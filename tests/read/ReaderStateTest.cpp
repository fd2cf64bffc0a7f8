// Saving a partly read reader as a host value and carrying on from it.
#include <gtest/gtest.h>

#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::read::RowGroupParquetReader;
using vxtest::u16;
using vxtest::read::idRange;
using vxtest::read::int64Column;
using vxtest::read::tableColumn;
using vxtest::read::tableNames;

std::vector<double> savedRowGroups(const matrix::unique_array& state) {
  const vxArray_tag* rowGroups = vxGetCell(state.get(), 1);
  EXPECT_EQ(vxGetClassID(rowGroups), vxDOUBLE_CLASS);
  EXPECT_EQ(vxGetN(rowGroups), 1u);
  const double* data = vxGetPr(rowGroups);
  return std::vector<double>(data, data + vxGetNumberOfElements(rowGroups));
}

class ReaderStateTest : public ::testing::Test {
 protected:
  void SetUp() override { mPath = vxtest::writeSimpleFile(mDir, "state.parquet", 40, 10); }

  vxtest::TempDir mDir;
  std::string mPath;
};

TEST_F(ReaderStateTest, SavesFileAndUnreadRowGroups) {
  RowGroupParquetReader reader(u16(mPath), {1, 2, 3});
  reader.read();
  auto state = reader.serialize();
  ASSERT_EQ(vxGetClassID(state.get()), vxCELL_CLASS);
  ASSERT_EQ(vxGetM(state.get()), 1u);
  ASSERT_EQ(vxGetN(state.get()), 2u);
  EXPECT_EQ(matrix::toUString(vxGetCell(state.get(), 0)), reader.getFilename());
  EXPECT_EQ(savedRowGroups(state), std::vector<double>({2, 3}));

  reader.read();
  reader.read();
  auto finished = reader.serialize();
  EXPECT_EQ(vxGetM(vxGetCell(finished.get(), 1)), 0u);
  EXPECT_TRUE(savedRowGroups(finished).empty());
}

TEST_F(ReaderStateTest, RestoredReaderContinuesWithAllVariables) {
  RowGroupParquetReader reader(u16(mPath), {4, 1, 3});
  reader.setSelectedVariableNames({u"id"});
  reader.read();
  auto state = reader.serialize();

  RowGroupParquetReader restored;
  restored.deserialize(state);
  EXPECT_EQ(restored.getFilename(), reader.getFilename());
  EXPECT_EQ(restored.getRowGroups(), std::vector<double>({1, 3}));
  auto table = restored.read();
  EXPECT_EQ(tableNames(table.get()), std::vector<std::string>({"id", "x", "name"}));
  EXPECT_EQ(int64Column(tableColumn(table.get(), 0)), idRange(0, 10));
  EXPECT_EQ(int64Column(tableColumn(restored.read().get(), 0)), idRange(20, 30));
  EXPECT_FALSE(restored.hasdata());
}

TEST_F(ReaderStateTest, RestoringKeepsTheReceiversCursor) {
  RowGroupParquetReader reader(u16(mPath), {1, 2, 3, 4});
  auto state = reader.serialize();

  RowGroupParquetReader receiver(u16(mPath), {1});
  receiver.read();
  receiver.deserialize(state);
  EXPECT_EQ(receiver.getRowGroupIndex(), 1u);
  EXPECT_EQ(int64Column(tableColumn(receiver.read().get(), 0)), idRange(10, 20));
}

TEST_F(ReaderStateTest, TakesRealPartsOfComplexRowGroups) {
  matrix::unique_array state(vxCreateCellMatrix(1, 2));
  vxReplaceCell(state.get(), 0, matrix::fromUString(u16(mPath)).release());
  matrix::unique_array rowGroups(vxCreateDoubleMatrix(2, 1, vxCOMPLEX));
  double* data = vxGetPr(rowGroups.get());
  data[0] = 3;  // (3, 9i), (2, 7i)
  data[1] = 9;
  data[2] = 2;
  data[3] = 7;
  vxReplaceCell(state.get(), 1, rowGroups.release());

  RowGroupParquetReader reader;
  reader.deserialize(state);
  EXPECT_EQ(reader.getRowGroups(), std::vector<double>({3, 2}));
}

TEST_F(ReaderStateTest, RefusesMalformedStateAndMissingFiles) {
  RowGroupParquetReader reader;
  matrix::unique_array notACell(vxCreateDoubleScalar(1));
  vxtest::expectHostError([&] { reader.deserialize(notACell); },
                          "VANTRO:parquetio:read:InternalInvalidRead");

  matrix::unique_array gone(vxCreateCellMatrix(1, 2));
  vxReplaceCell(gone.get(), 0, matrix::fromUString(mDir.ufile("gone.parquet")).release());
  vxReplaceCell(gone.get(), 1, vxCreateDoubleMatrix(0, 1, vxREAL));
  vxtest::expectHostError([&] { reader.deserialize(gone); }, "VANTRO:vfs:FileNotFound");

  // A saved state of a file without row groups restores to its one empty read.
  const std::string empty = mDir.file("none.parquet");
  vxtest::writeParquetWithoutRowGroups(empty, vxtest::simpleTable(0)->schema());
  matrix::unique_array none(vxCreateCellMatrix(1, 2));
  vxReplaceCell(none.get(), 0, matrix::fromUString(u16(empty)).release());
  vxReplaceCell(none.get(), 1, vxCreateDoubleMatrix(0, 1, vxREAL));
  reader.deserialize(none);
  EXPECT_TRUE(reader.hasdata());
}

}  // namespace
