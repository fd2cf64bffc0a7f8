// vxparquet read, run as a program.
#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "tests/support/TestSupport.hpp"

namespace {

using boost::property_tree::ptree;
using testing::HasSubstr;

using vxtest::parseJson;

// The numbers of a JSON array, e.g. a table column.
std::vector<int64_t> numbers(const ptree& array) {
  std::vector<int64_t> values;
  for (const auto& item : array) values.push_back(item.second.get_value<int64_t>());
  return values;
}

std::vector<std::string> variableNames(const ptree& table) {
  std::vector<std::string> names;
  for (const auto& variable : table.get_child("variables")) {
    names.push_back(variable.second.get<std::string>("name"));
  }
  return names;
}

// "id" 0..39 with "x" and "name", in four row groups of ten.
class ReadCommand : public ::testing::Test {
 protected:
  void SetUp() override { mPath = vxtest::writeSimpleFile(mDir, "four.parquet", 40, 10); }

  ptree readJson(const std::string& options) {
    const auto result = vxtest::runVxparquet("read --json " + mPath + " " + options);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return parseJson(result.out);
  }

  std::vector<int64_t> ids(int64_t first, int64_t last) {
    std::vector<int64_t> values;
    for (int64_t i = first; i < last; ++i) values.push_back(i);
    return values;
  }

  vxtest::TempDir mDir;
  std::string mPath;
};

TEST_F(ReadCommand, WholeFileWithSelectedVariables) {
  const ptree all = readJson("");
  EXPECT_EQ(variableNames(all), std::vector<std::string>({"id", "x", "name"}));
  EXPECT_EQ(all.get<int>("rows"), 40);
  EXPECT_EQ(numbers(all.get_child("columns.id")), ids(0, 40));

  const ptree some = readJson("--vars ' name , id'");
  EXPECT_EQ(variableNames(some), std::vector<std::string>({"name", "id"}));

  // An unknown name is an error naming it and listing the file's variables, not an empty table.
  const auto unknown = vxtest::runVxparquet("read " + mPath + " --vars name,nosuch");
  EXPECT_EQ(unknown.exitCode, 1);
  EXPECT_EQ(unknown.out, "");
  EXPECT_THAT(unknown.err, HasSubstr("vxparquet read: error: vxparquet:read:UnknownVariable: "));
  EXPECT_THAT(unknown.err, HasSubstr("'nosuch'"));
  EXPECT_THAT(unknown.err, HasSubstr("id, x, name"));
}

TEST_F(ReadCommand, RowGroupListInItsOrder) {
  const ptree table = readJson("--row-groups 3,1 --vars id");
  std::vector<int64_t> expected = ids(20, 30);
  const auto first = ids(0, 10);
  expected.insert(expected.end(), first.begin(), first.end());
  EXPECT_EQ(numbers(table.get_child("columns.id")), expected);
}

TEST_F(ReadCommand, ByteRangesSplitTheFile) {
  const size_t size = vxtest::readBytes(mPath).size();
  const size_t half = size / 2;
  const ptree front = readJson("--vars id --byte-range 0," + std::to_string(half));
  const ptree back =
      readJson("--vars id --byte-range " + std::to_string(half) + "," + std::to_string(size));
  std::vector<int64_t> joined = numbers(front.get_child("table.columns.id"));
  const auto rest = numbers(back.get_child("table.columns.id"));
  joined.insert(joined.end(), rest.begin(), rest.end());
  EXPECT_EQ(joined, ids(0, 40));
  EXPECT_EQ(
      numbers(front.get_child("rowGroups")).size() + numbers(back.get_child("rowGroups")).size(),
      4u);

  const auto text =
      vxtest::runVxparquet("read " + mPath + " --byte-range " + std::to_string(size) + ",10");
  EXPECT_EQ(text.exitCode, 0) << text.err;
  EXPECT_THAT(text.out, HasSubstr("Row groups in range: none"));
}

TEST_F(ReadCommand, EachRowGroupInTurn) {
  const ptree pieces = readJson("--each --vars id");
  int64_t rowGroup = 1;
  for (const auto& piece : pieces) {
    EXPECT_EQ(piece.second.get<int64_t>("rowGroup"), rowGroup);
    EXPECT_EQ(numbers(piece.second.get_child("table.columns.id")),
              ids((rowGroup - 1) * 10, rowGroup * 10));
    ++rowGroup;
  }
  EXPECT_EQ(rowGroup, 5);

  const auto text = vxtest::runVxparquet("read --each " + mPath);
  ASSERT_EQ(text.exitCode, 0) << text.err;
  EXPECT_THAT(text.out, HasSubstr("Row group 1:"));
  EXPECT_THAT(text.out, HasSubstr("Row group 4:"));
  // Not a terminal: no progress on standard error.
  EXPECT_EQ(text.err, "");
}

TEST_F(ReadCommand, HumanOutputNamesVariablesAndRows) {
  const auto result = vxtest::runVxparquet("read " + mPath + " --row-groups 2");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("10x3 table"));
  EXPECT_THAT(result.out, HasSubstr("name"));
}

TEST_F(ReadCommand, FailuresReportTheMessageIdentifier) {
  auto result = vxtest::runVxparquet("read " + mDir.file("missing.parquet"));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("VANTRO:vfs:FileNotFound"));

  result = vxtest::runVxparquet("read " + mPath + " --row-groups 9");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("VANTRO:parquetio:read:InternalInvalidRead"));

  const std::string text = mDir.file("notes.txt");
  vxtest::writeBytes(text, "not parquet");
  result = vxtest::runVxparquet("read " + text);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("VANTRO:parquetio:read:InternalInvalidRead"));
}

TEST_F(ReadCommand, UsageMistakes) {
  for (const std::string& arguments : std::vector<std::string>{
           "read", "read " + mPath + " --each --row-groups 1", "read " + mPath + " --byte-range 1",
           "read " + mPath + " --row-groups a", "read " + mPath + " --row-groups 1.5",
           "read " + mPath + " --row-groups 0", "read " + mPath + " --row-groups 2,-1",
           "read " + mPath + " --limit -3", "read " + mPath + " --format xml",
           "read " + mPath + " --explain", "read " + mPath + " " + mPath + " --row-groups 1",
           "read " + mPath + " --vars ,", "read " + mPath + " --vars id,x,id"}) {
    SCOPED_TRACE(arguments);
    const auto result = vxtest::runVxparquet(arguments);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.out, "");
    // One line that points to the command's help.
    EXPECT_THAT(result.err, testing::StartsWith("vxparquet read: "));
    EXPECT_THAT(result.err, testing::EndsWith("(see 'vxparquet read --help')\n"));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
  }
}

}  // namespace
