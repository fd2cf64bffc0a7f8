// Dictionaries inside nested variables cannot be combined across row groups.
#include <gtest/gtest.h>

#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::read::RowGroupParquetReader;
using vxtest::u16;
using vxtest::read::tableNames;
using vxtest::read::tableRows;

constexpr const char* kNestedDictionary = "VANTRO:parquetio:read:DictionaryInNestedStructure";

std::shared_ptr<arrow::DataType> dictionaryOfStrings() {
  return arrow::dictionary(arrow::int32(), arrow::utf8());
}

// Four rows: "id", a plain dictionary "code" and a list of dictionaries "tags".
std::shared_ptr<arrow::Table> dictionaryTable() {
  auto dictionaries = std::make_shared<arrow::DictionaryArray>(
      dictionaryOfStrings(), vxtest::arrayFromJSON(arrow::int32(), "[0, 1, 1, 0, 2]"),
      vxtest::arrayFromJSON(arrow::utf8(), R"(["red", "green", "blue"])"));
  auto offsets = vxtest::arrayFromJSON(arrow::int32(), "[0, 2, 2, 3, 5]");
  auto tags = arrow::ListArray::FromArrays(*offsets, *dictionaries).ValueOrDie();
  auto codes = std::make_shared<arrow::DictionaryArray>(
      dictionaryOfStrings(), vxtest::arrayFromJSON(arrow::int32(), "[1, 0, 1, 1]"),
      vxtest::arrayFromJSON(arrow::utf8(), R"(["a", "b"])"));
  auto schema = arrow::schema({arrow::field("id", arrow::int64()),
                               arrow::field("code", dictionaryOfStrings()),
                               arrow::field("tags", arrow::list(dictionaryOfStrings()))});
  return arrow::Table::Make(schema,
                            {vxtest::arrayFromJSON(arrow::int64(), "[0, 1, 2, 3]"), codes, tags});
}

class NestedDictionaryTest : public ::testing::Test {
 protected:
  // The file as written, with its Arrow schema kept so that the dictionaries come back.
  std::string write(const std::string& name, int64_t rowsPerGroup) {
    const std::string path = mDir.file(name);
    vxtest::writeParquet(path, dictionaryTable(), rowsPerGroup,
                         parquet::default_writer_properties(), vxtest::read::storeSchema());
    return path;
  }

  vxtest::TempDir mDir;
};

TEST_F(NestedDictionaryTest, OneRowGroupReadsWhole) {
  RowGroupParquetReader reader(u16(write("one.parquet", 4)), {1});
  EXPECT_EQ(tableRows(reader.readFullFile().get()), 4u);
  EXPECT_EQ(tableRows(reader.readall().get()), 4u);
  EXPECT_EQ(tableRows(reader.read().get()), 4u);
}

TEST_F(NestedDictionaryTest, SeveralRowGroupsAreRefusedWhenCombined) {
  RowGroupParquetReader reader(u16(write("two.parquet", 2)), {1, 2});
  for (const auto& combined :
       std::vector<std::function<void()>>{[&] { reader.readFullFile(); }, [&] { reader.readall(); },
                                          [&] {
                                            reader.readRowGroups({2, 2});
                                          }}) {
    auto arguments = vxtest::expectHostError(combined, kNestedDictionary);
    ASSERT_TRUE(arguments);
    ASSERT_EQ(arguments->size(), 1u);
    EXPECT_EQ(std::get<std::string>((*arguments)[0]), "tags");
  }
  // One row group at a time is always readable.
  EXPECT_EQ(tableRows(reader.readRowGroups({2}).get()), 2u);
  EXPECT_EQ(tableRows(reader.read().get()), 2u);
  EXPECT_EQ(tableRows(reader.read().get()), 2u);
}

TEST_F(NestedDictionaryTest, TopLevelDictionariesCombineFreely) {
  RowGroupParquetReader reader(u16(write("top.parquet", 1)), {});
  reader.setSelectedVariableNames({u"id", u"code"});
  auto table = reader.readFullFile();
  EXPECT_EQ(tableNames(table.get()), std::vector<std::string>({"id", "code"}));
  EXPECT_EQ(tableRows(table.get()), 4u);
}

TEST(NestedDictionaryStructTest, DictionaryInsideAStructIsRefusedToo) {
  vxtest::TempDir dir;
  auto values = std::make_shared<arrow::DictionaryArray>(
      dictionaryOfStrings(), vxtest::arrayFromJSON(arrow::int32(), "[0, 1]"),
      vxtest::arrayFromJSON(arrow::utf8(), R"(["p", "q"])"));
  auto inner =
      arrow::StructArray::Make({values}, {arrow::field("d", dictionaryOfStrings())}).ValueOrDie();
  auto table = arrow::Table::Make(arrow::schema({arrow::field("s", inner->type())}), {inner});
  const std::string path = dir.file("struct.parquet");
  vxtest::writeParquet(path, table, 1, parquet::default_writer_properties(),
                       vxtest::read::storeSchema());

  RowGroupParquetReader reader(u16(path), {1, 2});
  auto arguments = vxtest::expectHostError([&] { reader.readFullFile(); }, kNestedDictionary);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(std::get<std::string>((*arguments)[0]), "s");
}

}  // namespace

namespace {

TEST(UnsupportedTypeTest, TypesTheHostLacksAreNamedInTheError) {
  vxtest::TempDir dir;
  auto type = arrow::fixed_size_list(arrow::int32(), 2);
  auto table = arrow::Table::Make(
      arrow::schema({arrow::field("id", arrow::int64()), arrow::field("pairs", type)}),
      {vxtest::arrayFromJSON(arrow::int64(), "[1, 2]"),
       vxtest::arrayFromJSON(type, "[[1, 2], [3, 4]]")});
  const std::string path = dir.file("fixed.parquet");
  vxtest::writeParquet(path, table, 1, parquet::default_writer_properties(),
                       vxtest::read::storeSchema());

  // One row group: Arrow reads it, the converter refuses the column.
  RowGroupParquetReader reader(u16(path), {1, 2});
  auto arguments = vxtest::expectHostError([&] { reader.read(); },
                                           "VANTRO:parquetio:read:InternalUnsupportedParquetType");
  ASSERT_TRUE(arguments);
  EXPECT_EQ(std::get<std::u16string>((*arguments)[0]), u"pairs");

  // Several row groups: refused up front by the nested-type check.
  arguments = vxtest::expectHostError([&] { reader.readFullFile(); },
                                      "VANTRO:parquetio:read:InternalUnsupportedParquetType");
  ASSERT_TRUE(arguments);
  EXPECT_EQ(std::get<std::u16string>((*arguments)[0]), u"pairs");

  reader.setSelectedVariableNames({u"id"});
  EXPECT_EQ(tableRows(reader.readFullFile().get()), 2u);
}

}  // namespace
