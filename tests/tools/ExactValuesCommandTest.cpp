// What the program prints and rewrites is the file's values: wide integers with nulls,
// decimals, NaN apart from missing; rewrites keep every type; empty results have one shape.
#include <string>
#include <vector>

#include <arrow/api.h>
#include <arrow/array/concatenate.h>
#include <arrow/io/file.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <parquet/arrow/reader.h>

#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::shared_ptr<arrow::Table> readWithArrow(const std::string& path) {
  auto file = arrow::io::ReadableFile::Open(path).ValueOrDie();
  std::unique_ptr<parquet::arrow::FileReader> reader;
  EXPECT_TRUE(vantro::io::parquet::core::common::compat::OpenFile(
                  file, arrow::default_memory_pool(), &reader)
                  .ok());
  std::shared_ptr<arrow::Table> table;
  EXPECT_TRUE(vantro::io::parquet::core::common::compat::ReadTable(*reader, &table).ok());
  return table;
}

// Column by column: name, type, nulls and values (NaN equal to NaN), with a message naming
// the first difference.
std::string differences(const arrow::Table& expected, const arrow::Table& actual) {
  if (expected.num_columns() != actual.num_columns()) return "column counts differ";
  if (expected.num_rows() != actual.num_rows()) return "row counts differ";
  for (int c = 0; c < expected.num_columns(); ++c) {
    const std::string name = expected.field(c)->name();
    if (name != actual.field(c)->name()) return "name of column " + name;
    if (!expected.field(c)->type()->Equals(*actual.field(c)->type())) {
      return name + ": " + expected.field(c)->type()->ToString() + " became " +
             actual.field(c)->type()->ToString();
    }
    if (expected.column(c)->null_count() != actual.column(c)->null_count()) {
      return name + ": null counts differ";
    }
    const auto a = arrow::Concatenate(expected.column(c)->chunks()).ValueOrDie();
    const auto b = arrow::Concatenate(actual.column(c)->chunks()).ValueOrDie();
    if (!a->Equals(*b, arrow::EqualOptions::Defaults().nans_equal(true))) {
      return name + ": values differ";
    }
  }
  return "";
}

std::string wideValuesFile(const vxtest::TempDir& dir) {
  const auto table = arrow::Table::Make(
      arrow::schema({arrow::field("id", arrow::int64()),
                     arrow::field("dec", arrow::decimal128(12, 2)),
                     arrow::field("ok", arrow::boolean()), arrow::field("x", arrow::float64()),
                     arrow::field("s", arrow::utf8())}),
      {vxtest::arrayFromJSON(arrow::int64(), "[9007199254740993, null, 3]"),
       vxtest::arrayFromJSON(arrow::decimal128(12, 2), R"(["8178782.93", "-0.05", null])"),
       vxtest::arrayFromJSON(arrow::boolean(), "[true, null, false]"),
       vxtest::arrayFromJSON(arrow::float64(), "[NaN, null, 2.5]"),
       vxtest::arrayFromJSON(arrow::utf8(), R"(["", null, "a\u001b"])")});
  const std::string path = dir.file("wide.parquet");
  vxtest::writeParquet(path, table);
  return path;
}

TEST(ExactValuesCommand, WideIntegersDecimalsAndBooleansPrintAsTheFileHasThem) {
  vxtest::TempDir dir;
  const std::string path = wideValuesFile(dir);
  const auto lines = vxtest::runVxparquet("read " + path + " --format jsonl");
  ASSERT_EQ(lines.exitCode, 0) << lines.err;
  EXPECT_EQ(lines.out,
            "{\"id\":9007199254740993,\"dec\":8178782.93,\"ok\":true,\"x\":\"NaN\",\"s\":\"\"}\n"
            "{\"id\":null,\"dec\":-0.05,\"ok\":null,\"x\":null,\"s\":null}\n"
            "{\"id\":3,\"dec\":null,\"ok\":false,\"x\":2.5,\"s\":\"a\\u001b\"}\n");
  const auto csv = vxtest::runVxparquet("read " + path + " --format csv");
  EXPECT_EQ(csv.out,
            "id,dec,ok,x,s\n9007199254740993,8178782.93,true,NaN,\"\"\n,-0.05,,,\n"
            "3,,false,2.5,a\x1b\n");
  const auto table = vxtest::runVxparquet("head " + path + " -n 3");
  ASSERT_EQ(table.exitCode, 0) << table.err;
  EXPECT_THAT(table.out, HasSubstr("9007199254740993  8178782.93  true"));
  EXPECT_THAT(table.out, HasSubstr("<missing>"));
  EXPECT_THAT(table.out, HasSubstr("\"a\\x1b\""));
  EXPECT_THAT(table.out, testing::Not(HasSubstr("NaN  <missing>  <missing>  <missing>")));
  // The filter reads the wide column too, and leaves it out when --vars does.
  const auto filtered =
      vxtest::runVxparquet("read " + path + " --where \"id > 5\" --vars s --format csv");
  ASSERT_EQ(filtered.exitCode, 0) << filtered.err;
  EXPECT_EQ(filtered.out, "s\n\"\"\n");
  const auto decimal = vxtest::runVxparquet(
      "read " + path + " --where \"dec == 8178782.93\" --vars id --format csv");
  ASSERT_EQ(decimal.exitCode, 0) << decimal.err;
  EXPECT_EQ(decimal.out, "id\n9007199254740993\n");
  // Statistics print text bounds with their control characters escaped.
  const auto stats = vxtest::runVxparquet("stats " + path + " --vars s");
  ASSERT_EQ(stats.exitCode, 0) << stats.err;
  EXPECT_THAT(stats.out, HasSubstr("a\\x1b"));
  EXPECT_EQ(stats.out.find('\x1b'), std::string::npos);
}

TEST(ExactValuesCommand, EmptyResultsHaveOneShapeInEveryFormat) {
  vxtest::TempDir dir;
  const std::string path = vxtest::writeSimpleFile(dir, "t.parquet", 30, 10);
  const std::vector<std::string> empties = {"read " + path + " --limit 0",
                                            "read " + path + " --where \"id > 1000\"",
                                            "read " + path + " --offset 30",
                                            "head " + path + " -n 0",
                                            "head " + path + " --where \"name == 'none'\"",
                                            "read " + path + " --where \"id > 1000\" --each"};
  for (const auto& command : empties) {
    const auto csv = vxtest::runVxparquet(command + " --format csv");
    EXPECT_EQ(csv.exitCode, 0) << command << csv.err;
    EXPECT_EQ(csv.out, "id,x,name\n") << command;
    const auto lines = vxtest::runVxparquet(command + " --format jsonl");
    EXPECT_EQ(lines.exitCode, 0) << command << lines.err;
    EXPECT_EQ(lines.out, "") << command;
    if (command.find("--each") != std::string::npos) continue;
    const auto json = vxtest::runVxparquet(command + " --format json");
    EXPECT_EQ(json.exitCode, 0) << command << json.err;
    EXPECT_THAT(json.out, HasSubstr("\"rows\":0,\"columns\":{\"id\":[],\"x\":[],\"name\":[]}"))
        << command;
    const auto view = vxtest::runVxparquet(command);
    EXPECT_EQ(view.exitCode, 0) << command << view.err;
    EXPECT_THAT(view.out, StartsWith("0x3 table\n")) << command;
  }
  // A file without row groups, through every command.
  const std::string none = dir.file("none.parquet");
  vxtest::writeParquetWithoutRowGroups(none, vxtest::simpleTable(1)->schema());
  for (const std::string command : {"read", "head", "stats", "count", "info"}) {
    for (const std::string format : {"", " --json"}) {
      const auto result = vxtest::runVxparquet(command + " " + none + format);
      EXPECT_EQ(result.exitCode, 0) << command << format << result.err;
    }
  }
  EXPECT_EQ(vxtest::runVxparquet("read " + none + " --format csv").out, "id,x,name\n");
}

TEST(ExactValuesCommand, CsvOptionsChooseDelimiterHeaderAndMissingText) {
  vxtest::TempDir dir;
  const std::string path = wideValuesFile(dir);
  const auto result = vxtest::runVxparquet("read " + path +
                                           " --vars id,s --format csv --delimiter tab "
                                           "--missing NULL --no-header");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "9007199254740993\t\"\"\nNULL\tNULL\n3\ta\x1b\n");
  EXPECT_EQ(vxtest::runVxparquet("read " + path + " --delimiter ';'").exitCode, 2);
  EXPECT_EQ(vxtest::runVxparquet("read " + path + " --format csv --delimiter ab").exitCode, 2);
  EXPECT_EQ(vxtest::runVxparquet("read " + path + " --format csv --missing 'a,b'").exitCode, 2);
}

TEST(ExactValuesCommand, WriteFromParquetKeepsEveryTypeNullAndNaN) {
  vxtest::TempDir dir;
  const auto point =
      arrow::struct_({arrow::field("a", arrow::int32()), arrow::field("b", arrow::utf8())});
  const auto table = arrow::Table::Make(
      arrow::schema({arrow::field("i32", arrow::int32()), arrow::field("u16", arrow::uint16()),
                     arrow::field("flag", arrow::boolean()),
                     arrow::field("dec", arrow::decimal128(12, 2)),
                     arrow::field("x", arrow::float64()), arrow::field("f", arrow::float32()),
                     arrow::field("t", arrow::timestamp(arrow::TimeUnit::MILLI, "UTC")),
                     arrow::field("day", arrow::date32()),
                     arrow::field("l", arrow::list(arrow::int64())), arrow::field("p", point)}),
      {vxtest::arrayFromJSON(arrow::int32(), "[1, null, -3]"),
       vxtest::arrayFromJSON(arrow::uint16(), "[65535, 0, null]"),
       vxtest::arrayFromJSON(arrow::boolean(), "[true, null, false]"),
       vxtest::arrayFromJSON(arrow::decimal128(12, 2), R"(["8178782.93", null, "-1.00"])"),
       vxtest::arrayFromJSON(arrow::float64(), "[NaN, null, 0.1]"),
       vxtest::arrayFromJSON(arrow::float32(), "[NaN, 1.5, null]"),
       vxtest::arrayFromJSON(arrow::timestamp(arrow::TimeUnit::MILLI, "UTC"), "[0, null, -1]"),
       vxtest::arrayFromJSON(arrow::date32(), "[19000, null, -1]"),
       vxtest::arrayFromJSON(arrow::list(arrow::int64()), "[[9007199254740993, null], null, []]"),
       vxtest::arrayFromJSON(point, R"([{"a": 1, "b": "x"}, null, {"a": null, "b": ""}])")});
  const std::string input = dir.file("in.parquet");
  vxtest::writeParquet(input, table);
  const std::string output = dir.file("out.parquet");
  const auto result = vxtest::runVxparquet("write " + output + " --from " + input +
                                           " --compression zstd --max-row-group-length 2");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(differences(*readWithArrow(input), *readWithArrow(output)), "");
}

TEST(ExactValuesCommand, WriteFromCsvInfersTypesAsArrowDoes) {
  vxtest::TempDir dir;
  const std::string csv = dir.file("in.csv");
  vxtest::writeBytes(csv,
                     "flag,n,t,price,s\ntrue,1,2024-01-01 10:00:00,1.10,a\nfalse,,,2.25,\n"
                     ",9007199254740993,2024-01-02 00:00:00,,\"\"\ntrue,4,,3.00,x\n");
  const std::string output = dir.file("out.parquet");
  const auto result =
      vxtest::runVxparquet("write " + output + " --from " + csv + " --types 'price=decimal(10,2)'");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  const auto table = readWithArrow(output);
  EXPECT_EQ(table->schema()->field(0)->type()->id(), arrow::Type::BOOL);
  EXPECT_EQ(table->schema()->field(1)->type()->id(), arrow::Type::INT64);
  EXPECT_EQ(table->schema()->field(2)->type()->id(), arrow::Type::TIMESTAMP);
  EXPECT_TRUE(table->schema()->field(3)->type()->Equals(arrow::decimal128(10, 2)));
  EXPECT_EQ(table->column(0)->null_count(), 1);
  const auto lines = vxtest::runVxparquet("read " + output + " --vars n,price --format csv");
  EXPECT_EQ(lines.out, "n,price\n1,1.10\n,2.25\n9007199254740993,\n4,3.00\n");
  EXPECT_EQ(
      vxtest::runVxparquet("write " + output + " --from " + csv + " --types 'price=decimal(1)'")
          .exitCode,
      2);
}

TEST(ExactValuesCommand, CorpusFilesRewriteToEqualTables) {
  VX_REQUIRE_INTEROP();
  vxtest::TempDir dir;
  size_t rewritten = 0;
  for (const auto& file : vxtest::interopFiles()) {
    // Files the program cannot read are refused by the rewrite as well; every other one must
    // come back equal.
    const auto read = vxtest::runVxparquet("read '" + file + "' --limit 1 --format csv");
    const std::string output = dir.file("out.parquet");
    const auto write =
        vxtest::runVxparquet("write " + output + " --from '" + file + "' --compression zstd");
    if (read.exitCode != 0) {
      EXPECT_NE(write.exitCode, 0) << file;
      continue;
    }
    if (write.exitCode != 0) {
      // Types the writer of this Arrow release cannot write back are refused with an error,
      // never written changed.
      EXPECT_THAT(write.err, HasSubstr("error")) << file;
      continue;
    }
    EXPECT_EQ(differences(*readWithArrow(file), *readWithArrow(output)), "") << file;
    ++rewritten;
  }
  EXPECT_GT(rewritten, 20u);
}

}  // namespace
