// Which variables a reader returns: all by default, then the host's selection by name.
#include <gtest/gtest.h>

#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::read::RowGroupParquetReader;
using vxtest::u16;
using vxtest::read::int64Column;
using vxtest::read::tableColumn;
using vxtest::read::tableNames;
using Names = std::vector<std::string>;
using UNames = std::vector<std::u16string>;

UNames unames(const Names& names) {
  UNames result;
  for (const auto& name : names) result.push_back(u16(name));
  return result;
}

class SelectionTest : public ::testing::Test {
 protected:
  void SetUp() override { mPath = vxtest::writeSimpleFile(mDir, "simple.parquet", 30, 10); }

  RowGroupParquetReader open(std::vector<double> rowGroups = {1}) {
    return RowGroupParquetReader(u16(mPath), rowGroups);
  }

  // The variables of the first row group under a selection.
  Names readNames(const Names& selection) {
    auto reader = open();
    reader.setSelectedVariableNames(unames(selection));
    return tableNames(reader.read().get());
  }

  vxtest::TempDir mDir;
  std::string mPath;
};

TEST_F(SelectionTest, EveryVariableInFileOrderAtFirst) {
  auto reader = open();
  const Names all{"id", "x", "name"};
  EXPECT_EQ(reader.getSelectedVariableNames(), unames(all));
  EXPECT_EQ(reader.getVariableNames(), unames(all));
  EXPECT_EQ(tableNames(reader.read().get()), all);
}

TEST_F(SelectionTest, FollowsTheRequestedOrder) {
  auto reader = open();
  reader.setSelectedVariableNames(unames({"name", "id"}));
  EXPECT_EQ(reader.getSelectedVariableNames(), unames({"name", "id"}));
  auto table = reader.read();
  EXPECT_EQ(tableNames(table.get()), Names({"name", "id"}));
  // The data follow the names, not the file's column order.
  EXPECT_EQ(int64Column(tableColumn(table.get(), 1)), vxtest::read::idRange(0, 10));
}

TEST_F(SelectionTest, UnknownAndMiscasedNamesSelectNothing) {
  EXPECT_EQ(readNames({"id", "zz"}), Names({"id"}));
  EXPECT_EQ(readNames({"ID", "X", "Name"}), Names());
  EXPECT_EQ(readNames({}), Names());
  // A name asked twice takes a second field of that name, which this file lacks.
  EXPECT_EQ(readNames({"x", "x"}), Names({"x"}));
}

TEST_F(SelectionTest, NarrowingLeavesTheFileDescriptionWhole) {
  auto reader = open();
  reader.setSelectedVariableNames(unames({"x"}));
  EXPECT_EQ(reader.getVariableNames(), unames({"id", "x", "name"}));
  EXPECT_EQ(reader.getVariableTypes().size(), 3u);
  EXPECT_EQ(reader.getSelectedVariableNames(), unames({"x"}));
  // The selection holds for every later read.
  EXPECT_EQ(tableNames(reader.read().get()), Names({"x"}));
}

TEST_F(SelectionTest, ReaderWithoutFileIgnoresSelection) {
  RowGroupParquetReader reader;
  reader.setSelectedVariableNames(unames({"id"}));
  EXPECT_TRUE(reader.getSelectedVariableNames().empty());
}

TEST(SelectionDuplicatesTest, SameNamedFieldsAreTakenInFileOrder) {
  vxtest::TempDir dir;
  const std::string path = dir.file("dup.parquet");
  auto schema = arrow::schema({arrow::field("x", arrow::int64()), arrow::field("y", arrow::utf8()),
                               arrow::field("x", arrow::float64())});
  vxtest::writeParquet(
      path, arrow::Table::Make(schema, {
                                           vxtest::arrayFromJSON(arrow::int64(), "[1, 2]"),
                                           vxtest::arrayFromJSON(arrow::utf8(), R"(["a", "b"])"),
                                           vxtest::arrayFromJSON(arrow::float64(), "[0.5, 1.5]"),
                                       }));

  auto classesOf = [&](const Names& selection) {
    RowGroupParquetReader reader(u16(path), {1});
    reader.setSelectedVariableNames(unames(selection));
    auto table = reader.read();
    std::vector<vxClassID> classes;
    for (size_t i = 0; i < tableNames(table.get()).size(); ++i) {
      classes.push_back(vxGetClassID(tableColumn(table.get(), i)));
    }
    return classes;
  };
  using Classes = std::vector<vxClassID>;
  EXPECT_EQ(classesOf({"x"}), Classes({vxINT64_CLASS}));
  EXPECT_EQ(classesOf({"x", "x"}), Classes({vxINT64_CLASS, vxDOUBLE_CLASS}));
  EXPECT_EQ(classesOf({"x", "x", "x"}), Classes({vxINT64_CLASS, vxDOUBLE_CLASS}));
  EXPECT_EQ(classesOf({"x", "y", "x"}).size(), 3u);
}

TEST(SelectionNestedTest, LeafColumnsOfNestedVariablesAreSkippedCorrectly) {
  // "s" occupies two leaf columns and "l" one more; selecting "c" alone must read the fourth.
  vxtest::TempDir dir;
  const std::string path = dir.file("nested.parquet");
  auto structType =
      arrow::struct_({arrow::field("a", arrow::int32()), arrow::field("b", arrow::utf8())});
  auto schema = arrow::schema({arrow::field("s", structType),
                               arrow::field("l", arrow::list(arrow::float64())),
                               arrow::field("c", arrow::int64())});
  vxtest::writeParquet(
      path,
      arrow::Table::Make(
          schema, {vxtest::arrayFromJSON(structType, R"([{"a": 1, "b": "p"}, {"a": 2, "b": "q"}])"),
                   vxtest::arrayFromJSON(arrow::list(arrow::float64()), "[[1.5], []]"),
                   vxtest::arrayFromJSON(arrow::int64(), "[7, 8]")}));

  RowGroupParquetReader reader(u16(path), {1});
  reader.setSelectedVariableNames(unames({"c", "s"}));
  auto table = reader.read();
  ASSERT_EQ(tableNames(table.get()), Names({"c", "s"}));
  EXPECT_EQ(int64Column(tableColumn(table.get(), 0)), std::vector<int64_t>({7, 8}));
  EXPECT_EQ(vxGetClassName(tableColumn(table.get(), 1)), std::string("table"));
}

}  // namespace
