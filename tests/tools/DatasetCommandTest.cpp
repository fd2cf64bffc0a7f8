// The program on folders, patterns and lists of files read as one dataset: variables matched
// by name with lossless promotions, hive partitions, pruning, count --where, and the ways a
// folder can be refused.
#include <unistd.h>

#include <filesystem>
#include <string>

#include <arrow/api.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using vxtest::arrayFromJSON;
using vxtest::runVxparquet;
using vxtest::table;
using vxtest::TempDir;

// sales/year=2023 holds old files (id int32, no "note"), sales/year=2024 newer ones (id int64,
// with "note"), beside a writer's _SUCCESS marker.
class SalesFolder : public ::testing::Test {
 protected:
  void SetUp() override {
    write("sales/year=2023/part-0.parquet",
          table({"id", "amount"}, {arrayFromJSON(arrow::int32(), "[1, 2, 3]"),
                                   arrayFromJSON(arrow::float32(), "[0.5, 1.5, null]")}),
          2);
    write("sales/year=2024/part-0.parquet",
          table({"id", "amount", "note"}, {arrayFromJSON(arrow::int64(), "[9007199254740993, 5]"),
                                           arrayFromJSON(arrow::float64(), "[2.5, 3.5]"),
                                           arrayFromJSON(arrow::utf8(), "[\"a\", null]")}));
    vxtest::writeBytes(dir.file("sales/_SUCCESS"), "");
  }
  void write(const std::string& relative, const std::shared_ptr<arrow::Table>& data,
             int64_t rowGroupSize = 1024) {
    fs::create_directories(fs::path(dir.file(relative)).parent_path());
    vxtest::writeParquet(dir.file(relative), data, rowGroupSize);
  }
  std::string sales() const { return dir.file("sales"); }

  TempDir dir;
};

TEST_F(SalesFolder, ReadsTheFolderAsOneTableByName) {
  auto result = runVxparquet("read " + sales() + " --format csv");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out,
            "id,amount,note,year\n1,0.5,,2023\n2,1.5,,2023\n3,,,2023\n"
            "9007199254740993,2.5,a,2024\n5,3.5,,2024\n");
  // A pattern over the folders and a list of the two files give the same rows (no partitions
  // for files named on their own).
  result = runVxparquet("read '" + sales() + "/**/*.parquet' --format csv --vars id,year");
  EXPECT_EQ(result.out, "id,year\n1,2023\n2,2023\n3,2023\n9007199254740993,2024\n5,2024\n")
      << result.err;
  result = runVxparquet("read " + dir.file("sales/year=2023/part-0.parquet") + " " +
                        dir.file("sales/year=2024/part-0.parquet") + " --format jsonl --vars id");
  EXPECT_EQ(result.out,
            "{\"id\":1}\n{\"id\":2}\n{\"id\":3}\n{\"id\":9007199254740993}\n{\"id\":5}\n")
      << result.err;
  result = runVxparquet("read " + sales() + " --partitioning none --format csv --vars note");
  EXPECT_EQ(result.out, "note\n\n\n\na\n\n") << result.err;
}

TEST_F(SalesFolder, FiltersPruneFilesAndRowGroupsBeforeReading) {
  auto result = runVxparquet("read " + sales() + " --where \"year = 2024 and id > 5\" --explain " +
                             "--format csv --vars id,note --with-file");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "id,note,file\n9007199254740993,a," +
                            dir.file("sales/year=2024/part-0.parquet") + "\n");
  EXPECT_THAT(result.err, HasSubstr("row groups: read 1 of 3 in 2 files"));
  EXPECT_THAT(result.err, HasSubstr("year=2023/part-0.parquet skipped: "));

  // Missing variables count as missing values: "note is null" keeps the old files' rows.
  result = runVxparquet("read " + sales() + " --where \"note is null\" --format csv --vars id");
  EXPECT_EQ(result.out, "id\n1\n2\n3\n5\n") << result.err;

  result = runVxparquet("count " + sales() + " --where \"year = 2023 or id = 5\" --explain");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "4\n");
  // Both 2023 row groups are decided by their partition value alone; the 2024 file is read.
  EXPECT_THAT(result.err, HasSubstr("2 matched whole by statistics, 1 read"));
  result = runVxparquet("count " + sales() + " --where \"year > 2030\" --json");
  EXPECT_EQ(result.out,
            "{\"where\": \"year > 2030\", \"rows\": 0, \"files\": 2, \"rowGroups\": {\"total\": "
            "3, \"ruledOut\": 3, \"allMatch\": 0, \"read\": 0}}\n");
}

TEST_F(SalesFolder, LimitsHeadsAndEmptyResultsKeepTheDatasetShape) {
  auto result = runVxparquet("head " + sales() + " -n 2 --format csv");
  EXPECT_EQ(result.out, "id,amount,note,year\n1,0.5,,2023\n2,1.5,,2023\n") << result.err;
  result = runVxparquet("read " + sales() + " --offset 2 --limit 2 --format csv --vars id");
  EXPECT_EQ(result.out, "id\n3\n9007199254740993\n") << result.err;
  result = runVxparquet("read " + sales() + " --where \"id < 0\" --format csv");
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "id,amount,note,year\n");
  result = runVxparquet("read " + sales() + " --format jsonl --vars year --where \"id > 4\"");
  EXPECT_EQ(result.out, "{\"year\":2024}\n{\"year\":2024}\n") << result.err;
  // The table view shows the dataset's types.
  result = runVxparquet("read " + sales());
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("int64"));
  EXPECT_THAT(result.out, HasSubstr("9007199254740993"));
}

TEST_F(SalesFolder, InfoEndsWithTheDatasetItMakes) {
  auto result = runVxparquet("info " + sales());
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("As one dataset: 2 files, 5 rows, 3 row groups"));
  EXPECT_THAT(result.out, HasSubstr("year    int64      folders"));
  result = runVxparquet("info " + sales() + " --json");
  const auto document = vxtest::parseJson(result.out);
  EXPECT_EQ(document.get<int>("dataset.files"), 2);
  int names = 0;
  for (const auto& variable : document.get_child("dataset.variables")) {
    const auto name = variable.second.get<std::string>("name");
    const auto type = variable.second.get<std::string>("hostType");
    if (name == "id") {
      EXPECT_EQ(type, "int64");
    } else if (name == "amount") {
      EXPECT_EQ(type, "double");
    }
    EXPECT_EQ(variable.second.get<bool>("partition"), name == "year");
    ++names;
  }
  EXPECT_EQ(names, 4);
}

TEST_F(SalesFolder, StrictModeAndConflictsAreRefusedWithIdentifiers) {
  auto result = runVxparquet("read " + sales() + " --strict --format csv");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err,
              HasSubstr("vxparquet read: error: VANTRO:parquetio:dataset:SchemaMismatch"));

  result = runVxparquet("read " + sales() + " --vars nothing");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("VANTRO:parquetio:dataset:UnknownVariable"));
  result = runVxparquet("read " + sales() + " --partitioning flat");
  EXPECT_EQ(result.exitCode, 2);

  // Text against a number has no common type, even where --vars leaves the variable out.
  write("sales/year=2025/part-0.parquet",
        table({"id"}, {arrayFromJSON(arrow::utf8(), "[\"seven\"]")}));
  result = runVxparquet("read " + sales() + " --format csv --vars amount");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("VANTRO:parquetio:dataset:SchemaConflict"));
  result = runVxparquet("info " + sales());
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("VANTRO:parquetio:dataset:SchemaConflict"));
  EXPECT_THAT(result.out, Not(HasSubstr("As one dataset")));
}

TEST_F(SalesFolder, BadFilesInAFolderAreRefusedOrSkippedWithAWarning) {
  vxtest::writeBytes(dir.file("sales/year=2024/notes.txt"), "not parquet at all");
  auto result = runVxparquet("read " + sales() + " --format csv");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("VANTRO:parquetio:dataset:NotParquet"));
  EXPECT_EQ(result.out, "");
  result = runVxparquet("read " + sales() + " --skip-bad-files --format csv --vars id");
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "id\n1\n2\n3\n9007199254740993\n5\n");
  EXPECT_THAT(result.err, HasSubstr("VANTRO:parquetio:dataset:SkippedFile"));

  // A link to nothing, in every command that lists a folder.
  fs::remove(dir.file("sales/year=2024/notes.txt"));
  fs::create_symlink(dir.file("gone.parquet"), dir.file("sales/year=2024/link.parquet"));
  for (const std::string command : {"read", "count", "info", "stats", "head"}) {
    result = runVxparquet(command + " " + sales());
    EXPECT_EQ(result.exitCode, 1) << command;
    EXPECT_THAT(result.err, HasSubstr("VANTRO:parquetio:dataset:DanglingLink")) << command;
  }
  result = runVxparquet("count " + sales() + " --skip-bad-files");
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("3\t5\ttotal of 2 files"));
}

TEST(DatasetSourcesCommand, PatternsAndFoldersWithoutFilesAreErrors) {
  TempDir dir;
  fs::create_directories(dir.file("empty/sub"));
  vxtest::writeBytes(dir.file("empty/_SUCCESS"), "");
  for (const std::string command : {"read", "count", "info", "head"}) {
    auto result = runVxparquet(command + " " + dir.file("empty"));
    EXPECT_EQ(result.exitCode, 1) << command;
    EXPECT_THAT(result.err, HasSubstr("VANTRO:parquetio:dataset:EmptyFolder")) << command;
    result = runVxparquet(command + " '" + dir.path() + "/*.parquet'");
    EXPECT_EQ(result.exitCode, 1) << command;
    EXPECT_THAT(result.err, HasSubstr("VANTRO:parquetio:dataset:NoMatch")) << command;
  }
}

TEST(DatasetSourcesCommand, ManySmallFilesCountAndReadInNameOrder) {
  TempDir dir;
  fs::create_directories(dir.file("many"));
  for (int i = 0; i < 300; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "many/part-%04d.parquet", i);
    vxtest::writeParquet(
        dir.file(name),
        table({"i"}, {arrayFromJSON(arrow::int32(), "[" + std::to_string(i) + "]")}), 16);
  }
  auto result = runVxparquet("count " + dir.file("many") + " --json");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(vxtest::parseJson(result.out).get<int>("total.rows"), 300);
  result = runVxparquet("count " + dir.file("many") + " --where \"i >= 100\"");
  EXPECT_EQ(result.out, "200\n") << result.err;
  result = runVxparquet("read " + dir.file("many") + " --format csv --offset 297");
  EXPECT_EQ(result.out, "i\n297\n298\n299\n") << result.err;
}

}  // namespace
