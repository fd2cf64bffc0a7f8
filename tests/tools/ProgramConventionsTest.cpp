// What every command shares: help, version, --opt=value, the error line, info's extra facts
// and the table display.
#include <string>
#include <vector>

#include <arrow/api.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"

namespace {

using testing::HasSubstr;

TEST(ProgramConventions, HelpListsEveryCommandAndOption) {
  auto result = vxtest::runVxparquet("--help");
  EXPECT_EQ(result.exitCode, 0);
  for (const std::string command : {"count", "info", "read", "head", "stats", "write"}) {
    EXPECT_THAT(result.out, HasSubstr("  " + command + " "));
    const auto help = vxtest::runVxparquet("help " + command);
    EXPECT_EQ(help.exitCode, 0) << command;
    EXPECT_THAT(help.out, HasSubstr("usage: vxparquet " + command));
    EXPECT_THAT(help.out, HasSubstr("example: vxparquet " + command));
    EXPECT_EQ(vxtest::runVxparquet(command + " --help").out, help.out);
  }
  EXPECT_THAT(vxtest::runVxparquet("help read").out, HasSubstr("--where EXPR"));
  EXPECT_EQ(vxtest::runVxparquet("help nope").exitCode, 2);
  result = vxtest::runVxparquet("--version");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.out,
              HasSubstr(std::string("Apache Arrow and Parquet C++ ") + ARROW_VERSION_STRING));
}

TEST(ProgramConventions, OptionValuesAfterAnEqualsSign) {
  vxtest::TempDir dir;
  const std::string path = vxtest::writeSimpleFile(dir, "s.parquet", 4, 2);
  const auto spaced =
      vxtest::runVxparquet("read " + path + " --vars id --row-groups 2 --format csv");
  const auto joined =
      vxtest::runVxparquet("read " + path + " --vars=id --row-groups=2 --format=csv");
  EXPECT_EQ(spaced.out, "id\n2\n3\n");
  EXPECT_EQ(joined.out, spaced.out);
  EXPECT_EQ(vxtest::runVxparquet("read " + path + " --each=yes").exitCode, 2);
}

TEST(ProgramConventions, OneErrorLineWithTheIdentifierAndNoRepeatedContext) {
  vxtest::TempDir dir;
  vxtest::writeBytes(dir.file("x.parquet"), "tiny");
  vxtest::writeBytes(dir.file("empty.parquet"), "");
  for (const std::string command : {"info", "read", "stats", "head"}) {
    for (const std::string file : {"x.parquet", "empty.parquet"}) {
      const auto result = vxtest::runVxparquet(command + " " + dir.file(file));
      EXPECT_EQ(result.exitCode, 1) << command;
      const std::string context = "Unable to read '" + dir.file(file) + "'. ";
      EXPECT_EQ(
          result.err.rfind("vxparquet " + command +
                               ": error: VANTRO:parquetio:read:InternalInvalidRead: " + context,
                           0),
          0u)
          << result.err;
      EXPECT_EQ(result.err.find(context + context), std::string::npos) << result.err;
      EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
  }
}

TEST(ProgramConventions, InfoShowsFooterFactsRowGroupsAndSchema) {
  vxtest::TempDir dir;
  const auto point = arrow::struct_(
      {arrow::field("x", arrow::float64()), arrow::field("tags", arrow::list(arrow::utf8()))});
  auto table = arrow::Table::Make(
      arrow::schema({arrow::field("id", arrow::int64()), arrow::field("p", point)}),
      {vxtest::arrayFromJSON(arrow::int64(), "[1, 2, 3]"),
       vxtest::arrayFromJSON(point, R"([{"x": 1, "tags": ["a"]}, null, {"x": 2, "tags": []}])")});
  const std::string path = dir.file("nested.parquet");
  vxtest::writeParquet(path, table, 2);

  auto result = vxtest::runVxparquet("info " + path + " --row-groups --schema");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("Created by:  " + vxtest::kCreatedBy + "\n"));
  EXPECT_THAT(result.out, HasSubstr("Rows:        3\n"));
  EXPECT_THAT(result.out, HasSubstr("  p: struct\n    x: double\n    tags: list\n      " +
                                    vxtest::kListElementName + ": string\n"));
  EXPECT_THAT(result.out, HasSubstr("Row group 2: 1 rows, "));
  EXPECT_THAT(result.out, HasSubstr("  p.tags.list." + vxtest::kListElementName));

  result = vxtest::runVxparquet("info " + path + " --row-groups --json");
  const auto json = vxtest::parseJson(result.out);
  EXPECT_EQ(json.get<int>("rows"), 3);
  EXPECT_EQ(json.get<std::string>("createdBy"), vxtest::kCreatedBy);
  const auto& groups = json.get_child("rowGroupDetails");
  ASSERT_EQ(groups.size(), 2u);
  const auto& firstChunk = groups.front().second.get_child("columns").front().second;
  EXPECT_EQ(firstChunk.get<std::string>("path"), "id");
  EXPECT_EQ(firstChunk.get<std::string>("compression"), "uncompressed");
  EXPECT_FALSE(firstChunk.get_child("encodings").empty());

  // Key-value metadata: the Arrow schema that the program's writes store, by its size.
  vxtest::writeBytes(dir.file("in.csv"), "a\n1\n");
  ASSERT_EQ(vxtest::runVxparquet("write " + dir.file("w.parquet") + " --from " + dir.file("in.csv"))
                .exitCode,
            0);
  result = vxtest::runVxparquet("info " + dir.file("w.parquet"));
  EXPECT_THAT(result.out,
              testing::ContainsRegex("Key-value metadata:\n  ARROW:schema  \\([0-9]+ bytes\\)\n"));
}

TEST(ProgramConventions, TableDisplayEscapesAlignsAndClips) {
  vxtest::TempDir dir;
  auto table = arrow::Table::Make(
      arrow::schema({arrow::field("t", arrow::utf8()), arrow::field("n", arrow::int32())}),
      {vxtest::arrayFromJSON(arrow::utf8(), R"(["a\u001b[2Jb\nc", "日本語"])"),
       vxtest::arrayFromJSON(arrow::int32(), "[5, 12345]")});
  const std::string path = dir.file("t.parquet");
  vxtest::writeParquet(path, table);
  const auto result = vxtest::runVxparquet("read " + path);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  // Control characters escaped; the wide characters take two columns each; numbers on the
  // right.
  EXPECT_EQ(result.out,
            "2x2 table\n"
            "      t                   n\n"
            "      string          int32\n"
            "   1  \"a\\x1b[2Jb\\nc\"      5\n"
            "   2  \"日本語\"        12345\n\n");
}

}  // namespace
