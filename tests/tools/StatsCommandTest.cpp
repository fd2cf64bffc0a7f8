// vxparquet stats, run as a program.
#include <arrow/api.h>
#include <arrow/io/file.h>
#include <gtest/gtest.h>
#include <parquet/arrow/writer.h>

#include "tests/support/TestSupport.hpp"

namespace {

using vxtest::arrayFromJSON;

constexpr const char* kHeader = "variable\trow group\tnull count\tdistinct count\tmin\tmax\n";

bool contains(const std::string& text, const std::string& needle) {
  return text.find(needle) != std::string::npos;
}

TEST(StatsCommand, PrintsCountsAndBoundsPerVariableAndRowGroup) {
  vxtest::TempDir dir;
  // id 0..3, x = id/2, name "r<id>", in two row groups.
  const auto file = vxtest::writeSimpleFile(dir, "s.parquet", 4, 2);
  const auto result = vxtest::runVxparquet("stats " + file);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  // Arrow 11 records a distinct count of zero in every chunk it writes, and a floating-point
  // minimum of zero as -0 (so that readers never skip a row group holding -0).
  EXPECT_EQ(result.out, std::string(kHeader) +
                            "id\t1\t0\t-\t0\t1\n"
                            "id\t2\t0\t-\t2\t3\n"
                            "x\t1\t0\t-\t-0\t0.5\n"
                            "x\t2\t0\t-\t1\t1.5\n"
                            "name\t1\t0\t-\tr0\tr1\n"
                            "name\t2\t0\t-\tr2\tr3\n");
}

TEST(StatsCommand, VarsChooseAndOrderTheVariablesInJson) {
  vxtest::TempDir dir;
  const auto file = vxtest::writeSimpleFile(dir, "s.parquet", 4, 4);
  const auto result = vxtest::runVxparquet("stats " + file + " --vars name,id --json");
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out,
            "{\"file\": \"" + file +
                "\", \"rowGroups\": 1, \"variables\": ["
                "{\"name\": \"name\", \"rowGroups\": [{\"rowGroup\": 1, \"hasNullCount\": true, "
                "\"nullCount\": 0, \"hasDistinctCount\": false, \"distinctCount\": null, "
                "\"hasMinMax\": true, \"min\": \"r0\", \"max\": \"r3\"}]}, "
                "{\"name\": \"id\", \"rowGroups\": [{\"rowGroup\": 1, \"hasNullCount\": true, "
                "\"nullCount\": 0, \"hasDistinctCount\": false, \"distinctCount\": null, "
                "\"hasMinMax\": true, \"min\": 0, \"max\": 3}]}], \"unfilterable\": []}\n");
}

TEST(StatsCommand, ShowsTimesDatesAndMissingBounds) {
  vxtest::TempDir dir;
  const auto stamp = arrow::timestamp(arrow::TimeUnit::MILLI, "UTC");
  auto table = arrow::Table::Make(
      arrow::schema({arrow::field("day", arrow::date32()), arrow::field("at", stamp),
                     arrow::field("clock", arrow::time64(arrow::TimeUnit::MICRO)),
                     arrow::field("ok", arrow::boolean()), arrow::field("n", arrow::int32())}),
      {arrayFromJSON(arrow::date32(), "[19000, -1, null, null]"),
       arrayFromJSON(stamp, "[1600000000250, -1, 0, 86400000]"),
       arrayFromJSON(arrow::time64(arrow::TimeUnit::MICRO), "[3723000004, 0, 5, 6]"),
       arrayFromJSON(arrow::boolean(), "[true, false, null, true]"),
       arrayFromJSON(arrow::int32(), "[7, -7, null, null]")});
  const std::string file = dir.file("t.parquet");
  vxtest::writeParquet(file, table, 2);

  const auto result = vxtest::runVxparquet("stats " + file);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_TRUE(contains(result.out, "day\t1\t0\t-\t1969-12-31\t2022-01-08\n")) << result.out;
  const std::string distinct = vxtest::kWritesDistinctCount ? "0" : "-";
  EXPECT_TRUE(contains(result.out, "day\t2\t2\t" + distinct + "\t-\t-\n")) << result.out;
  EXPECT_TRUE(
      contains(result.out, "at\t1\t0\t-\t1969-12-31T23:59:59.999Z\t2020-09-13T12:26:40.250Z\n"))
      << result.out;
  EXPECT_TRUE(contains(result.out, "clock\t1\t0\t-\t00:00:00.000000\t01:02:03.000004\n"))
      << result.out;
  EXPECT_TRUE(contains(result.out, "ok\t2\t1\t-\ttrue\ttrue\n")) << result.out;
  EXPECT_TRUE(contains(result.out, "n\t1\t0\t-\t-7\t7\n")) << result.out;

  // read shows the zone of a timestamp the same way.
  const auto read = vxtest::runVxparquet("read " + file + " --vars at --format csv");
  EXPECT_TRUE(contains(read.out, "\n1969-12-31T23:59:59.999Z\n")) << read.out;

  const auto json = vxtest::runVxparquet("stats " + file + " --vars n --json");
  // All null: a distinct count of 0, where the writer stores one, is then true and shown.
  const std::string distinctJson = vxtest::kWritesDistinctCount
                                       ? "\"hasDistinctCount\": true, \"distinctCount\": 0, "
                                       : "\"hasDistinctCount\": false, \"distinctCount\": null, ";
  EXPECT_TRUE(contains(json.out, "\"rowGroup\": 2, \"hasNullCount\": true, \"nullCount\": 2, " +
                                     distinctJson +
                                     "\"hasMinMax\": false, \"min\": null, \"max\": null}"))
      << json.out;
}

TEST(StatsCommand, FileWithoutRowGroupsPrintsNoRows) {
  vxtest::TempDir dir;
  const std::string file = dir.file("empty.parquet");
  vxtest::writeParquetWithoutRowGroups(file, vxtest::simpleTable(0)->schema());
  const auto text = vxtest::runVxparquet("stats " + file);
  EXPECT_EQ(text.exitCode, 0) << text.err;
  EXPECT_EQ(text.out, kHeader);
  const auto json = vxtest::runVxparquet("stats " + file + " --vars x --json");
  EXPECT_EQ(json.out, "{\"file\": \"" + file +
                          "\", \"rowGroups\": 0, \"variables\": [{\"name\": \"x\", "
                          "\"rowGroups\": []}], \"unfilterable\": []}\n");
}

TEST(StatsCommand, RefusedVariableShowsItsIdentifier) {
  vxtest::TempDir dir;
  auto table = arrow::Table::Make(
      arrow::schema({arrow::field("n", arrow::int32()), arrow::field("b", arrow::binary())}),
      {arrayFromJSON(arrow::int32(), "[1]"), arrayFromJSON(arrow::binary(), R"(["x"])")});
  const std::string file = dir.file("b.parquet");
  vxtest::writeParquet(file, table);

  // Without --vars: every filterable variable, and the others listed with their reason.
  const auto all = vxtest::runVxparquet("stats " + file);
  EXPECT_EQ(all.exitCode, 0) << all.err;
  EXPECT_EQ(all.out, std::string(kHeader) +
                         "n\t1\t0\t-\t1\t1\n\nwithout statistics for filtering:\n"
                         "  b\tVariable 'b' of type 'cell' cannot be used to filter rows. "
                         "(VANTRO:parquetio:read:UnsupportedRowFilterVariable)\n");
  const auto json = vxtest::runVxparquet("stats " + file + " --json");
  EXPECT_TRUE(contains(json.out,
                       "\"unfilterable\": [{\"name\": \"b\", \"identifier\": "
                       "\"VANTRO:parquetio:read:UnsupportedRowFilterVariable\""))
      << json.out;

  // Asked for by name, it is refused with the library's identifier.
  const auto refused = vxtest::runVxparquet("stats " + file + " --vars b");
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_TRUE(refused.out.empty()) << refused.out;
  EXPECT_TRUE(contains(refused.err, "VANTRO:parquetio:read:UnsupportedRowFilterVariable"))
      << refused.err;
}

TEST(StatsCommand, UsageErrorsExitWithTwo) {
  vxtest::TempDir dir;
  const auto file = vxtest::writeSimpleFile(dir, "s.parquet", 2, 2);
  const auto unknown = vxtest::runVxparquet("stats " + file + " --vars id,nope");
  EXPECT_EQ(unknown.exitCode, 1);
  EXPECT_TRUE(contains(unknown.err, "vxparquet:stats:UnknownVariable: ")) << unknown.err;
  EXPECT_TRUE(contains(unknown.err, "'nope'. Its variables are: id, x, name.")) << unknown.err;
  EXPECT_EQ(vxtest::runVxparquet("stats").exitCode, 2);
  // Several files: each table under its name.
  const auto both = vxtest::runVxparquet("stats " + file + " " + file + " --vars id");
  EXPECT_EQ(both.exitCode, 0) << both.err;
  EXPECT_EQ(both.out, "file: " + file + "\n" + kHeader + "id\t1\t0\t-\t0\t1\n\nfile: " + file +
                          "\n" + kHeader + "id\t1\t0\t-\t0\t1\n");
  EXPECT_EQ(vxtest::runVxparquet("stats " + file + " --vars").exitCode, 2);

  const auto missing = vxtest::runVxparquet("stats " + dir.file("nope.parquet"));
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_TRUE(contains(missing.err, "VANTRO:")) << missing.err;
}

}  // namespace
