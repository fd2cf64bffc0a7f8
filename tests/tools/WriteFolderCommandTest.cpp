// vxparquet write into a folder of partitions: --partition-by, --max-rows-per-file and
// --existing, run as the built program; the folders are read back with the library's dataset
// reader.
#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"
#include "tests/write/WriteTestUtil.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Dataset.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/DatasetReader.hpp"

namespace {

namespace ds = vantro::io::parquet::core::dataset;
namespace fs = std::filesystem;
using vxtest::runVxparquet;

// The Parquet files below root, relative to it, sorted.
std::vector<std::string> parquetFiles(const std::string& root) {
  std::vector<std::string> files;
  if (!fs::exists(root)) return files;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (entry.is_regular_file()) files.push_back(entry.path().lexically_relative(root).string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::shared_ptr<arrow::Table> readFolder(const std::string& root) {
  ds::DatasetReader reader(
      std::make_shared<ds::Dataset>(std::vector<std::string>{root}, ds::DatasetOptions{}));
  std::vector<std::shared_ptr<arrow::Table>> pieces;
  for (size_t p = 0; p < reader.pieces().size(); ++p) pieces.push_back(reader.readPieceTable(p));
  return arrow::ConcatenateTables(pieces).ValueOrDie()->CombineChunks().ValueOrDie();
}

class WriteFolderCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    vxtest::writeBytes(csv,
                       "id,year,month,x\n1,2024,Jan,1.5\n2,2023,Feb,\n3,2024,Jan,2.5\n"
                       "4,,Mar,3\n");
  }

  vxtest::ProgramResult write(const std::string& options) const {
    return runVxparquet("write " + out + " --from " + csv + " " + options);
  }

  vxtest::TempDir dir;
  std::string csv = dir.file("in.csv");
  std::string out = dir.file("out");
};

TEST_F(WriteFolderCommand, PartitionsTheInputIntoFoldersAndSummarises) {
  const auto result = write("--partition-by year,month");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "wrote " + out + ": 4 rows in 3 files, 3 partitions by year, month, " +
                            "4 variables\n");
  const auto files = parquetFiles(out);
  ASSERT_EQ(files.size(), 3u);
  EXPECT_EQ(fs::path(files[0]).parent_path(), "year=2023/month=Feb");
  EXPECT_EQ(fs::path(files[1]).parent_path(), "year=2024/month=Jan");
  EXPECT_EQ(fs::path(files[2]).parent_path(), "year=__HIVE_DEFAULT_PARTITION__/month=Mar");
  // The files hold the other variables, with the writer's defaults.
  const auto january = vxtest::write::readBack(out + "/" + files[1]);
  EXPECT_EQ(january->schema()->field_names(), (std::vector<std::string>{"id", "x"}));
  EXPECT_EQ(january->num_rows(), 2);
  EXPECT_EQ(vxtest::write::footer(out + "/" + files[1])->RowGroup(0)->ColumnChunk(0)->compression(),
            arrow::Compression::SNAPPY);

  const auto back = readFolder(out);
  EXPECT_EQ(back->schema()->field_names(), (std::vector<std::string>{"id", "x", "year", "month"}));
  EXPECT_TRUE(back->GetColumnByName("id")->chunk(0)->Equals(
      vxtest::arrayFromJSON(arrow::int64(), "[2, 1, 3, 4]")));
  EXPECT_TRUE(back->GetColumnByName("year")->chunk(0)->Equals(
      vxtest::arrayFromJSON(arrow::int64(), "[2023, 2024, 2024, null]")));
}

TEST_F(WriteFolderCommand, WriterOptionsReachEveryFile) {
  // A per-variable setting may name a partition variable: it has no column to apply to.
  const auto result = write(
      "--partition-by month --max-rows-per-file 1 "
      "--compression-per-variable x=zstd,month=gzip --encoding plain");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  const auto files = parquetFiles(out);
  ASSERT_EQ(files.size(), 4u);
  for (const auto& file : files) {
    const auto metadata = vxtest::write::footer(out + "/" + file);
    const auto columns = metadata->RowGroup(0);
    EXPECT_EQ(columns->ColumnChunk(0)->compression(), arrow::Compression::SNAPPY) << file;
    EXPECT_EQ(columns->ColumnChunk(2)->compression(), arrow::Compression::ZSTD) << file;
    EXPECT_FALSE(columns->ColumnChunk(2)->has_dictionary_page()) << file;
  }
  // Without partition variables, --max-rows-per-file alone writes a folder of files.
  const std::string flat = dir.file("flat");
  const auto split = runVxparquet("write " + flat + " --from " + csv + " --max-rows-per-file 3");
  ASSERT_EQ(split.exitCode, 0) << split.err;
  EXPECT_EQ(parquetFiles(flat).size(), 2u);
  EXPECT_EQ(readFolder(flat)->num_rows(), 4);
}

TEST_F(WriteFolderCommand, FilesAlreadyThereAreRefusedAddedToOrReplaced) {
  ASSERT_EQ(write("--partition-by year").exitCode, 0);
  const auto first = parquetFiles(out);

  auto result = write("--partition-by year");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.err.find("vxparquet write: error: VANTRO:parquetio:dataset:TargetNotEmpty"),
            std::string::npos)
      << result.err;
  EXPECT_EQ(parquetFiles(out), first);

  result = write("--partition-by year --existing add");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(parquetFiles(out).size(), 2 * first.size());
  EXPECT_EQ(readFolder(out)->num_rows(), 8);

  // Only the 2024 rows: that partition's old files go, the others stay.
  vxtest::writeBytes(csv, "id,year,month,x\n9,2024,Dec,0.5\n");
  result = write("--partition-by year --existing REPLACE");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "wrote " + out + ": 1 rows in 1 files, 1 partitions by year, " +
                            "4 variables, 2 old files replaced\n");
  const auto back = readFolder(out);
  EXPECT_EQ(back->num_rows(), 5);  // 2023 and missing years twice, 2024 once
  int folders2024 = 0;
  for (const auto& file : parquetFiles(out)) folders2024 += file.rfind("year=2024/", 0) == 0;
  EXPECT_EQ(folders2024, 1);

  result = write("--partition-by year --existing keep");
  EXPECT_EQ(result.exitCode, 2) << result.err;
}

TEST_F(WriteFolderCommand, RefusalsLeaveNoFolder) {
  const std::vector<std::pair<std::string, std::string>> refused = {
      {"--partition-by nope", "VANTRO:parquetio:dataset:UnknownVariable"},
      {"--partition-by x", "VANTRO:parquetio:dataset:UnwritablePartitionValue"},
      {"--partition-by id,year,month,x", "VANTRO:parquetio:dataset:AllVariablesPartitioned"},
  };
  for (const auto& [options, identifier] : refused) {
    const auto result = write(options);
    EXPECT_EQ(result.exitCode, 1) << options;
    EXPECT_NE(result.err.find("vxparquet write: error: " + identifier + ": "), std::string::npos)
        << result.err;
    EXPECT_FALSE(fs::exists(out)) << options;
  }
  // An output that is a file stays the file it was.
  vxtest::writeBytes(out, "not a folder");
  const auto onFile = write("--partition-by year");
  EXPECT_EQ(onFile.exitCode, 1);
  EXPECT_NE(onFile.err.find("VANTRO:parquetio:dataset:TargetNotFolder"), std::string::npos)
      << onFile.err;
  EXPECT_EQ(vxtest::readBytes(out), "not a folder");
  fs::remove(out);

  for (const std::string& arguments :
       {"write - --from " + csv + " --partition-by year",
        "write " + out + " --from " + csv + " --partition-by year --row-group-heights 4",
        "write " + out + " --from " + csv + " --partition-by year --max-rows-per-file x",
        "write " + out + " --from " + csv + " --partition-by year,,month"}) {
    const auto result = runVxparquet(arguments);
    EXPECT_EQ(result.exitCode, 2) << arguments;
    EXPECT_FALSE(fs::exists(out)) << arguments;
  }
}

}  // namespace
