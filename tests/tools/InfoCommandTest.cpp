// vxparquet info, run as a program.
#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <arrow/io/file.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "tests/support/TestSupport.hpp"

namespace {

using boost::property_tree::ptree;
using testing::HasSubstr;

using vxtest::parseJson;

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) result.push_back(line);
  return result;
}

// A file with a nested column and a non-ASCII name, in row groups of 4 rows.
std::string writeMixedFile(const vxtest::TempDir& dir) {
  const auto table = arrow::Table::Make(
      arrow::schema({arrow::field("id", arrow::int64()),
                     arrow::field("Größe", arrow::list(arrow::float64())),
                     arrow::field("when", arrow::timestamp(arrow::TimeUnit::MICRO, "UTC"))}),
      {vxtest::arrayFromJSON(arrow::int64(), "[1, 2, 3, 4, 5]"),
       vxtest::arrayFromJSON(arrow::list(arrow::float64()), "[[1.5], [], null, [2, 3], [4]]"),
       vxtest::arrayFromJSON(arrow::timestamp(arrow::TimeUnit::MICRO, "UTC"),
                             "[0, 1, 2, 3, null]")});
  const std::string path = dir.file("mixed.parquet");
  vxtest::writeParquet(path, table, 4);
  return path;
}

TEST(InfoCommand, JsonHoldsTheWholeSummary) {
  vxtest::TempDir dir;
  const std::string path = writeMixedFile(dir);
  const auto result = vxtest::runVxparquet("info --json " + path);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  const ptree json = parseJson(result.out);

  EXPECT_EQ(json.get<std::string>("file"), path);
  EXPECT_EQ(json.get<uint64_t>("size"), vxtest::readBytes(path).size());
  EXPECT_EQ(json.get<std::string>("version"), "2.0");
  EXPECT_EQ(json.get<int>("rowGroups"), 2);
  std::vector<uint64_t> heights;
  for (const auto& h : json.get_child("rowGroupHeights"))
    heights.push_back(h.second.get_value<uint64_t>());
  EXPECT_THAT(heights, testing::ElementsAre(4u, 1u));
  EXPECT_EQ(json.get_child("rowGroupOffsets").size(), 2u);

  std::vector<ptree> variables;
  for (const auto& v : json.get_child("variables")) variables.push_back(v.second);
  ASSERT_EQ(variables.size(), 3u);
  EXPECT_EQ(variables[0].get<std::string>("name"), "id");
  EXPECT_EQ(variables[0].get<std::string>("hostType"), "int64");
  EXPECT_EQ(variables[0].get<std::string>("physicalType"), "INT64");
  EXPECT_EQ(variables[0].get<std::string>("compression"), "uncompressed");
  EXPECT_EQ(variables[0].get<std::string>("encoding"), "dictionary");
  EXPECT_EQ(variables[1].get<std::string>("name"), "Größe");
  EXPECT_EQ(variables[1].get<std::string>("description"), "List<Float64>");
  EXPECT_EQ(variables[1].get<std::string>("convertedType"), "LIST");
  EXPECT_EQ(variables[1].get<std::string>("logicalType"), "List");
  EXPECT_EQ(variables[2].get<std::string>("hostType"), "datetime");
  EXPECT_EQ(variables[2].get<std::string>("description"),
            "Timestamp[unit=microseconds, timezone=UTC]");
  EXPECT_EQ(variables[2].get<std::string>("arrowType"), "timestamp[us, tz=UTC]");
}

TEST(InfoCommand, JsonOfAFileWithoutRowGroups) {
  vxtest::TempDir dir;
  const std::string path = dir.file("empty.parquet");
  vxtest::writeParquetWithoutRowGroups(path, vxtest::simpleTable(0)->schema());
  const auto result = vxtest::runVxparquet("info " + path + " --json");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  const ptree json = parseJson(result.out);
  EXPECT_EQ(json.get<int>("rowGroups"), 0);
  EXPECT_TRUE(json.get_child("rowGroupHeights").empty());
  // No row group to take compression and encoding from: null, not an empty name.
  EXPECT_THAT(result.out, HasSubstr("\"compression\": null"));
  EXPECT_EQ(json.get_child("variables").size(), 3u);
}

TEST(InfoCommand, TextIsAnAlignedTable) {
  vxtest::TempDir dir;
  const std::string path = writeMixedFile(dir);
  const auto result = vxtest::runVxparquet("info " + path);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("File:        " + path));
  EXPECT_THAT(result.out, HasSubstr("Version:     2.0"));
  EXPECT_THAT(result.out, HasSubstr("Row groups:  2"));

  // Every variable row starts its columns where the heading does, "Größe" included.
  const auto all = lines(result.out);
  const auto heading = std::find_if(all.begin(), all.end(), [](const std::string& line) {
    return line.find("Name") != std::string::npos && line.find("Encoding") != std::string::npos;
  });
  ASSERT_NE(heading, all.end()) << result.out;
  const std::u16string head = vxtest::u16(*heading);
  const size_t physicalColumn = head.find(u"Physical");
  ASSERT_EQ(all.end() - heading, 4);
  const std::vector<std::u16string> expected = {u"INT64", u"DOUBLE", u"INT64"};
  for (int i = 0; i < 3; ++i) {
    const std::u16string row = vxtest::u16(*(heading + 1 + i));
    EXPECT_EQ(row.find(expected[i], physicalColumn - 1), physicalColumn) << *(heading + 1 + i);
  }
  EXPECT_THAT(result.out, HasSubstr("List<Float64>"));
}

TEST(InfoCommand, FailuresAndUsage) {
  vxtest::TempDir dir;
  vxtest::writeBytes(dir.file("x.txt"), "not parquet");
  const auto bad = vxtest::runVxparquet("info " + dir.file("x.txt"));
  EXPECT_EQ(bad.exitCode, 1);
  EXPECT_TRUE(bad.out.empty());
  EXPECT_THAT(bad.err, HasSubstr("VANTRO:parquetio:read:InternalInvalidRead"));
  EXPECT_THAT(bad.err, HasSubstr(dir.file("x.txt")));

  const auto missing = vxtest::runVxparquet("info --json " + dir.file("missing.parquet"));
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_THAT(missing.err, HasSubstr("VANTRO:parquetio:read:InternalInvalidRead"));

  EXPECT_EQ(vxtest::runVxparquet("info").exitCode, 2);
  EXPECT_EQ(vxtest::runVxparquet("info --csv a.parquet").exitCode, 2);
}

TEST(InfoCommand, EveryCorpusFileGivesValidJsonOrAnError) {
  VX_REQUIRE_INTEROP();
  for (const auto& file : vxtest::interopFiles()) {
    SCOPED_TRACE(file);
    const auto result = vxtest::runVxparquet("info --json '" + file + "'");
    ASSERT_TRUE(result.exitCode == 0 || result.exitCode == 1) << result.err;
    if (result.exitCode == 0) {
      EXPECT_NO_THROW(parseJson(result.out)) << result.out;
    } else {
      EXPECT_THAT(result.err, HasSubstr("InternalInvalidRead"));
    }
  }
}

TEST(InfoCommand, SeveralFilesPerFileAndTotal) {
  vxtest::TempDir dir;
  const auto a = vxtest::writeSimpleFile(dir, "a.parquet", 20, 10);
  vxtest::writeBytes(dir.file("bad.parquet"), "not parquet");
  auto result = vxtest::runVxparquet("info " + a + " " + dir.file("bad.parquet") + " " + a);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.out, HasSubstr("\nTotal: 3 files (1 failed), 40 rows, 4 row groups, "));
  EXPECT_THAT(result.err,
              HasSubstr("vxparquet info: error: VANTRO:parquetio:read:InternalInvalidRead: "));
  result = vxtest::runVxparquet("info " + a + " " + a + " --json");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  const ptree json = parseJson(result.out);
  EXPECT_EQ(json.get_child("files").size(), 2u);
  EXPECT_EQ(json.get<int>("total.rows"), 40);
  EXPECT_EQ(vxtest::runVxparquet("info --strict " + a + " " + dir.file("bad.parquet")).exitCode, 1);
}

}  // namespace
