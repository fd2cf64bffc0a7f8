// Partitioned datasets written by the library and read back by its own dataset reader: folder
// names and their escapes, types, file sizes, what happens to files already there, and the
// requests refused before anything is written.
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <arrow/compute/api_vector.h>
#include <arrow/compute/cast.h>
#include <gtest/gtest.h>

#include "host/converter/Converter.hpp"
#include "host/services/Interrupts.hpp"
#include "tests/support/TestSupport.hpp"
#include "tests/write/WriteTestUtil.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Dataset.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/DatasetReader.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/DatasetWriter.hpp"

namespace {

namespace ds = vantro::io::parquet::core::dataset;
namespace fs = std::filesystem;
using vxtest::arrayFromJSON;
using vxtest::table;
using vxtest::TempDir;

ds::DatasetWriteOptions partitionedBy(std::vector<std::string> names,
                                      ds::ExistingFiles existing = ds::ExistingFiles::kRefuse) {
  ds::DatasetWriteOptions options;
  options.partitionBy = std::move(names);
  options.existingFiles = existing;
  return options;
}

// The folder read back through the library's dataset reader, in Arrow's types, one chunk.
std::shared_ptr<arrow::Table> readFolder(const std::string& folder,
                                         ds::DatasetOptions options = {}) {
  ds::DatasetReader reader(
      std::make_shared<ds::Dataset>(std::vector<std::string>{folder}, options));
  std::vector<std::shared_ptr<arrow::Table>> pieces;
  for (size_t p = 0; p < reader.pieces().size(); ++p) pieces.push_back(reader.readPieceTable(p));
  return arrow::ConcatenateTables(pieces).ValueOrDie()->CombineChunks().ValueOrDie();
}

// The rows ordered by the variable `by`.
std::shared_ptr<arrow::Table> sortedBy(const std::shared_ptr<arrow::Table>& data,
                                       const std::string& by) {
  auto order = arrow::compute::SortIndices(*data->GetColumnByName(by)->chunk(0)).ValueOrDie();
  return arrow::compute::Take(data, order).ValueOrDie().table()->CombineChunks().ValueOrDie();
}

std::shared_ptr<arrow::Array> column(const std::shared_ptr<arrow::Table>& data,
                                     const std::string& name) {
  auto found = data->GetColumnByName(name);
  EXPECT_TRUE(found) << name;
  return found ? arrow::Concatenate(found->chunks()).ValueOrDie() : nullptr;
}

// Every file and folder below root (folders with a trailing '/'), sorted.
std::vector<std::string> listing(const std::string& root) {
  std::vector<std::string> entries;
  if (!fs::exists(root)) return entries;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    std::string relative = entry.path().lexically_relative(root).string();
    if (entry.is_directory()) relative += "/";
    entries.push_back(relative);
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

std::string relativeFolder(const std::string& file, const std::string& root) {
  return fs::path(file).parent_path().lexically_relative(root).string();
}

// id: the row's position; year and month interleave, so partitions come in the order first met.
std::shared_ptr<arrow::Table> sales() {
  return table(
      {"id", "year", "amount", "month", "note"},
      {arrayFromJSON(arrow::int64(), "[0, 1, 2, 3, 4, 5, 6]"),
       arrayFromJSON(arrow::int32(), "[2024, 2023, 2024, 2023, 2024, 2024, null]"),
       arrayFromJSON(arrow::float64(), "[1.5, 2.5, null, 4.5, 5.5, 6.5, 7.5]"),
       arrayFromJSON(arrow::utf8(), R"(["Jan", "Feb", "Jan", "Feb", "Mar", "Jan", "Jan"])"),
       arrayFromJSON(arrow::utf8(), R"(["a", null, "c", "d", "e", "f", "g"])")});
}

TEST(DatasetWriter, GroupsRowsIntoPartitionFoldersAndReadsBackTheSameRows) {
  TempDir dir;
  const std::string out = dir.file("out");
  const auto data = sales();
  const auto result = ds::writeDataset(out, data, partitionedBy({"year", "month"}));

  // Partitions in the order first met, one file each; rows keep their order inside.
  ASSERT_EQ(result.partitions, 4u);
  ASSERT_EQ(result.files.size(), 4u);
  std::vector<std::string> folders;
  for (const auto& file : result.files) folders.push_back(relativeFolder(file.path, out));
  EXPECT_EQ(folders, (std::vector<std::string>{"year=2024/month=Jan", "year=2023/month=Feb",
                                               "year=2024/month=Mar",
                                               "year=__HIVE_DEFAULT_PARTITION__/month=Jan"}));
  const auto first = vxtest::write::readBack(result.files[0].path);
  EXPECT_EQ(first->schema()->field_names(), (std::vector<std::string>{"id", "amount", "note"}));
  EXPECT_TRUE(column(first, "id")->Equals(arrayFromJSON(arrow::int64(), "[0, 2, 5]")));
  EXPECT_EQ(result.files[0].rows, 3);
  EXPECT_TRUE(std::regex_match(fs::path(result.files[3].path).filename().string(),
                               std::regex("part-[0-9a-f]{16}-00003\\.parquet")))
      << result.files[3].path;

  // The same rows and values; the partition variables come last, typed by their folder names.
  const auto back = sortedBy(readFolder(out), "id");
  EXPECT_EQ(back->schema()->field_names(),
            (std::vector<std::string>{"id", "amount", "note", "year", "month"}));
  EXPECT_TRUE(
      column(back, "year")
          ->Equals(arrayFromJSON(arrow::int64(), "[2024, 2023, 2024, 2023, 2024, 2024, null]")));
  for (const auto& name : {"id", "amount", "note", "month"}) {
    EXPECT_TRUE(column(back, name)->Equals(column(data, name))) << name;
  }
}

TEST(DatasetWriter, EscapesOddTextsAndReadsThemBackExactly) {
  TempDir dir;
  const std::string out = dir.file("odd");
  const auto data =
      table({"k", "v"},
            {arrayFromJSON(
                 arrow::utf8(),
                 R"(["a/b", "x=y", "%41", "grüße", "", ".hidden", "_x", null, "a b", "..", "1"])"),
             arrayFromJSON(arrow::int32(), "[0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10]")});
  const auto result = ds::writeDataset(out, data, partitionedBy({"k"}));
  std::vector<std::string> folders;
  for (const auto& file : result.files) folders.push_back(relativeFolder(file.path, out));
  EXPECT_EQ(folders, (std::vector<std::string>{
                         "k=a%2Fb", "k=x%3Dy", "k=%2541", "k=grüße", "k=", "k=%2Ehidden", "k=%5Fx",
                         "k=__HIVE_DEFAULT_PARTITION__", "k=a b", "k=%2E.", "k=1"}));
  // Told that k is text, the reader gives every value back, the missing one missing.
  ds::DatasetOptions asText;
  asText.partitioning.types = {{"k", "string"}};
  const auto back = sortedBy(readFolder(out, asText), "v");
  EXPECT_TRUE(column(back, "k")->Equals(column(data, "k")));
}

TEST(DatasetWriter, EveryPartitionableTypeReadsBackAsItsValues) {
  TempDir dir;
  const std::string out = dir.file("types");
  auto dictionary =
      arrow::DictionaryArray::FromArrays(arrow::dictionary(arrow::int8(), arrow::utf8()),
                                         arrayFromJSON(arrow::int8(), "[1, 0, 1, null]"),
                                         arrayFromJSON(arrow::utf8(), R"(["lo", "hi"])"))
          .ValueOrDie();
  const auto data =
      table({"id", "i8", "u64", "b", "d", "w", "c"},
            {arrayFromJSON(arrow::int64(), "[0, 1, 2, 3]"),
             arrayFromJSON(arrow::int8(), "[-128, 127, 0, -1]"),
             arrayFromJSON(arrow::uint64(), "[9223372036854775807, 0, 1, 2]"),
             arrayFromJSON(arrow::boolean(), "[true, false, null, true]"),
             // 1900-03-01, 2024-02-29, 0001-01-01, 9999-12-31
             arrayFromJSON(arrow::date32(), "[-25508, 19782, -719162, 2932896]"),
             arrayFromJSON(arrow::float64(), "[-0.0, 2.0, 9007199254740992, -3]"), dictionary});
  ds::writeDataset(out, data, partitionedBy({"i8", "u64", "b", "d", "w", "c"}));
  EXPECT_TRUE(
      fs::is_directory(out + "/i8=-128/u64=9223372036854775807/b=true/d=1900-03-01/w=0/c=hi"));
  EXPECT_TRUE(fs::is_directory(out + "/i8=0/u64=1/b=__HIVE_DEFAULT_PARTITION__/d=0001-01-01/"
                                     "w=9007199254740992/c=hi"));

  const auto back = sortedBy(readFolder(out), "id");
  EXPECT_TRUE(column(back, "i8")->Equals(arrayFromJSON(arrow::int64(), "[-128, 127, 0, -1]")));
  EXPECT_TRUE(
      column(back, "u64")->Equals(arrayFromJSON(arrow::int64(), "[9223372036854775807, 0, 1, 2]")));
  // Logical values come back as their text: "true" and "false" look like nothing else.
  EXPECT_TRUE(column(back, "b")->Equals(
      arrayFromJSON(arrow::utf8(), R"(["true", "false", null, "true"])")));
  EXPECT_TRUE(column(back, "d")->Equals(column(data, "d")));
  EXPECT_TRUE(
      column(back, "w")->Equals(arrayFromJSON(arrow::int64(), "[0, 2, 9007199254740992, -3]")));
  EXPECT_TRUE(
      column(back, "c")->Equals(arrayFromJSON(arrow::utf8(), R"(["hi", "lo", "hi", null])")));
}

TEST(DatasetWriter, SplitsPartitionsIntoFilesOfAtMostTheRowsAsked) {
  TempDir dir;
  const std::string out = dir.file("split");
  const auto data =
      table({"id", "g"}, {arrayFromJSON(arrow::int64(), "[0,1,2,3,4,5,6,7,8,9,10,11,12]"),
                          arrayFromJSON(arrow::utf8(), R"(["a","a","b","a","a","a",
                                        "b","a","a","a","a","a","b"])")});
  auto options = partitionedBy({"g"});
  options.maxRowsPerFile = 4;
  int configured = 0;
  options.configureFile = [&](vantro::io::parquet::core::write::ParquetWriter& writer,
                              const arrow::Schema& fileSchema) {
    EXPECT_EQ(fileSchema.field_names(), std::vector<std::string>{"id"});
    writer.setMaxRowGroupLength(3);
    ++configured;
  };
  const auto result = ds::writeDataset(out, data, options);
  ASSERT_EQ(result.files.size(), 4u);
  EXPECT_EQ(configured, 4);
  std::vector<int64_t> rows;
  for (const auto& file : result.files) rows.push_back(file.rows);
  EXPECT_EQ(rows, (std::vector<int64_t>{4, 4, 2, 3}));
  // Names sort in the order written: reading the folder gives each partition's rows in order.
  const auto back = readFolder(out);
  EXPECT_TRUE(
      column(back, "id")
          ->Equals(arrayFromJSON(arrow::int64(), "[0, 1, 3, 4, 5, 7, 8, 9, 10, 11, 2, 6, 12]")));
  // The writer's own settings reach each file: row groups of at most 3 rows.
  auto footer = vxtest::write::footer(result.files[0].path);
  EXPECT_EQ(footer->num_row_groups(), 2);

  // Without partition variables the files go into the folder itself.
  const std::string flat = dir.file("flat");
  ds::DatasetWriteOptions plain;
  plain.maxRowsPerFile = 5;
  const auto flatResult = ds::writeDataset(flat, data, plain);
  ASSERT_EQ(flatResult.files.size(), 3u);
  EXPECT_EQ(relativeFolder(flatResult.files[2].path, flat), ".");
  EXPECT_TRUE(column(readFolder(flat), "id")->Equals(column(data, "id")));

  // A table without rows and without partitioning still gives one file, of its schema.
  const std::string empty = dir.file("empty");
  const auto none = ds::writeDataset(empty, data->Slice(0, 0), ds::DatasetWriteOptions{});
  ASSERT_EQ(none.files.size(), 1u);
  EXPECT_EQ(vxtest::write::readBack(none.files[0].path)->schema()->field_names(),
            (std::vector<std::string>{"id", "g"}));
}

// Chunks whose dictionaries differ, with a partition's rows spread over them.
TEST(DatasetWriter, TakesRowsFromChunksOfDifferentDictionaries) {
  TempDir dir;
  const auto type = arrow::dictionary(arrow::int32(), arrow::utf8());
  const auto chunk = [&](const std::string& indices, const std::string& values) {
    return arrow::DictionaryArray::FromArrays(type, arrayFromJSON(arrow::int32(), indices),
                                              arrayFromJSON(arrow::utf8(), values))
        .ValueOrDie();
  };
  auto data = arrow::Table::Make(
      arrow::schema({arrow::field("g", arrow::int8()), arrow::field("c", type)}),
      {std::make_shared<arrow::ChunkedArray>(arrow::ArrayVector{
           arrayFromJSON(arrow::int8(), "[1, 2, 1]"), arrayFromJSON(arrow::int8(), "[2, 1]")}),
       std::make_shared<arrow::ChunkedArray>(arrow::ArrayVector{
           chunk("[0, 1, 0]", R"(["a", "b"])"), chunk("[1, 0]", R"(["x", "y"])")})});
  const auto result = ds::writeDataset(dir.file("d"), data, partitionedBy({"g"}));
  ASSERT_EQ(result.files.size(), 2u);
  const auto ones = vxtest::write::readBack(result.files[0].path);
  auto values = arrow::compute::Cast(*column(ones, "c"), arrow::utf8()).ValueOrDie();
  EXPECT_TRUE(values->Equals(arrayFromJSON(arrow::utf8(), R"(["a", "a", "x"])")))
      << values->ToString();
}

class ExistingFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    old = ds::writeDataset(
        out,
        table({"id", "year"}, {arrayFromJSON(arrow::int64(), "[1, 2, 3]"),
                               arrayFromJSON(arrow::int32(), "[2023, 2024, 2024]")}),
        partitionedBy({"year"}));
    vxtest::writeBytes(out + "/year=2024/README.txt", "notes");
    vxtest::writeBytes(out + "/year=2024/.keep.parquet.crc", "crc");
  }

  std::shared_ptr<arrow::Table> newRows() const {
    return table({"id", "year"}, {arrayFromJSON(arrow::int64(), "[10, 11]"),
                                  arrayFromJSON(arrow::int32(), "[2024, 2025]")});
  }

  TempDir dir;
  std::string out = dir.file("data");
  ds::DatasetWriteResult old;
};

TEST_F(ExistingFiles, AreRefusedByDefaultAndLeftAsTheyWere) {
  const auto before = listing(out);
  const auto error =
      vxtest::expectHostError([&] { ds::writeDataset(out, newRows(), partitionedBy({"year"})); },
                              "VANTRO:parquetio:dataset:TargetNotEmpty");
  EXPECT_EQ(listing(out), before);
  // Hidden files alone (markers, checksums) do not count.
  TempDir other;
  vxtest::writeBytes(other.file("_SUCCESS"), "");
  vxtest::writeBytes(other.file(".x.crc"), "");
  EXPECT_EQ(ds::writeDataset(other.path(), newRows(), partitionedBy({"year"})).files.size(), 2u);
}

TEST_F(ExistingFiles, AddBesideKeepsTheOldFiles) {
  const auto result =
      ds::writeDataset(out, newRows(), partitionedBy({"year"}, ds::ExistingFiles::kAdd));
  EXPECT_TRUE(result.removed.empty());
  for (const auto& file : old.files) EXPECT_TRUE(vxtest::fileExists(file.path)) << file.path;
  fs::remove(out + "/year=2024/README.txt");  // the reader takes Parquet files only
  const auto back = sortedBy(readFolder(out), "id");
  EXPECT_TRUE(column(back, "id")->Equals(arrayFromJSON(arrow::int64(), "[1, 2, 3, 10, 11]")));
  EXPECT_TRUE(column(back, "year")
                  ->Equals(arrayFromJSON(arrow::int64(), "[2023, 2024, 2024, 2024, 2025]")));
}

TEST_F(ExistingFiles, ReplaceRemovesOnlyTheOldParquetFilesOfThePartitionsWritten) {
  // A link to an old file and a file that only looks like Parquet by name are not removed.
  fs::create_symlink(fs::path(old.files[1].path).filename(), out + "/year=2024/link.parquet");
  vxtest::writeBytes(out + "/year=2024/fake.parquet", "PAR1 but not Parquet");
  const auto result = ds::writeDataset(
      out, newRows(), partitionedBy({"year"}, ds::ExistingFiles::kReplacePartitions));
  ASSERT_EQ(result.removed, std::vector<std::string>{old.files[1].path});
  EXPECT_TRUE(vxtest::fileExists(old.files[0].path));  // year=2023: not written to
  EXPECT_FALSE(vxtest::fileExists(old.files[1].path));
  for (const auto& kept : {"README.txt", ".keep.parquet.crc", "fake.parquet"}) {
    EXPECT_TRUE(vxtest::fileExists(out + "/year=2024/" + kept)) << kept;
  }
  EXPECT_TRUE(fs::is_symlink(out + "/year=2024/link.parquet"));
  for (const auto& file : result.files) EXPECT_TRUE(vxtest::fileExists(file.path));
}

TEST_F(ExistingFiles, OfAnotherPartitioningAreNeverJoined) {
  const auto before = listing(out);
  for (const auto mode : {ds::ExistingFiles::kAdd, ds::ExistingFiles::kReplacePartitions}) {
    vxtest::expectHostError([&] { ds::writeDataset(out, newRows(), partitionedBy({}, mode)); },
                            "VANTRO:parquetio:dataset:ExistingLayoutMismatch");
    auto byId = partitionedBy({"id"}, mode);
    vxtest::expectHostError([&] { ds::writeDataset(out, newRows(), byId); },
                            "VANTRO:parquetio:dataset:ExistingLayoutMismatch");
  }
  EXPECT_EQ(listing(out), before);
}

TEST(DatasetWriter, RefusesRequestsWithoutWritingAnything) {
  TempDir dir;
  const std::string out = dir.file("never");
  const auto data =
      table({"id", "x", "l", "s"},
            {arrayFromJSON(arrow::int64(), "[1, 2]"), arrayFromJSON(arrow::float64(), "[1.0, 1.5]"),
             arrayFromJSON(arrow::list(arrow::int32()), "[[1], []]"),
             arrayFromJSON(arrow::utf8(), R"(["__HIVE_DEFAULT_PARTITION__", "b"])")});
  const auto refused = [&](const std::vector<std::string>& partitionBy, const std::string& key,
                           const std::shared_ptr<arrow::Table>& input) {
    vxtest::expectHostError([&] { ds::writeDataset(out, input, partitionedBy(partitionBy)); },
                            "VANTRO:parquetio:dataset:" + key);
    EXPECT_FALSE(fs::exists(out)) << key;
  };
  refused({"nope"}, "UnknownVariable", data);
  refused({"l"}, "InvalidPartitionVariable", data);
  refused({"id", "id"}, "InvalidPartitionVariable", data);
  refused({"x"}, "UnwritablePartitionValue", data);  // 1.5 has no whole-number text
  refused({"s"}, "UnwritablePartitionValue", data);  // the name of missing values
  refused({"b", "a"}, "AllVariablesPartitioned",
          table({"a", "b"},
                {arrayFromJSON(arrow::int8(), "[1]"), arrayFromJSON(arrow::utf8(), R"(["x"])")}));
  refused({"k"}, "UnwritablePartitionValue",
          table({"k", "v"}, {arrayFromJSON(arrow::uint64(), "[9223372036854775808]"),
                             arrayFromJSON(arrow::int8(), "[1]")}));
  refused({"k"}, "UnwritablePartitionValue",
          table({"k", "v"},
                {arrayFromJSON(arrow::float32(), "[NaN]"), arrayFromJSON(arrow::int8(), "[1]")}));
  refused({"k"}, "UnwritablePartitionValue",
          table({"k", "v"}, {arrayFromJSON(arrow::utf8(), "[\"" + std::string(300, 'z') + "\"]"),
                             arrayFromJSON(arrow::int8(), "[1]")}));
  refused(
      {""}, "InvalidPartitionVariable",
      table({"", "v"}, {arrayFromJSON(arrow::int8(), "[1]"), arrayFromJSON(arrow::int8(), "[1]")}));
  refused({"k"}, "InvalidPartitionVariable",
          table({"k", "v"}, {arrayFromJSON(arrow::timestamp(arrow::TimeUnit::SECOND), "[1]"),
                             arrayFromJSON(arrow::int8(), "[1]")}));

  // A file is no folder; nor is an IRI a local one.
  const std::string file = dir.file("file.parquet");
  vxtest::writeBytes(file, "x");
  vxtest::expectHostError([&] { ds::writeDataset(file, data, partitionedBy({"id"})); },
                          "VANTRO:parquetio:dataset:TargetNotFolder");
  EXPECT_EQ(vxtest::readBytes(file), "x");
  vxtest::expectHostError([&] { ds::writeDataset(file + "/sub", data, partitionedBy({"id"})); },
                          "VANTRO:parquetio:dataset:TargetNotFolder");
  vxtest::expectHostError(
      [&] { ds::writeDataset("mem://bucket/out", data, partitionedBy({"id"})); },
      "VANTRO:parquetio:dataset:TargetNotFolder");
}

TEST(DatasetWriter, AFailedFileRemovesEverythingTheWriteMade) {
  TempDir dir;
  const std::string out = dir.file("a/b");
  auto options = partitionedBy({"g"});
  int files = 0;
  // The second file's writer refuses its settings, after the first file is finished.
  options.configureFile = [&](vantro::io::parquet::core::write::ParquetWriter& writer,
                              const arrow::Schema&) {
    if (++files == 2) writer.setVersion("3.0");
  };
  const auto data = table({"id", "g"}, {arrayFromJSON(arrow::int64(), "[1, 2]"),
                                        arrayFromJSON(arrow::utf8(), R"(["x", "y"])")});
  vxtest::expectHostError([&] { ds::writeDataset(out, data, options); },
                          "VANTRO:parquetio:write:InvalidOption");
  EXPECT_EQ(files, 2);
  EXPECT_EQ(listing(dir.path()), std::vector<std::string>{});

  // In a folder that was there, the folder and its other files stay.
  fs::create_directories(out);
  vxtest::writeBytes(out + "/other.txt", "x");
  files = 0;
  options.existingFiles = ds::ExistingFiles::kAdd;
  vxtest::expectHostError([&] { ds::writeDataset(out, data, options); },
                          "VANTRO:parquetio:write:InvalidOption");
  EXPECT_EQ(listing(out), std::vector<std::string>{"other.txt"});
}

// Ctrl-C between files: the host's interrupt, and nothing of the write left.
TEST(DatasetWriter, AnInterruptBetweenFilesRemovesWhatWasWritten) {
  TempDir dir;
  utSetSignalThread();
  auto options = partitionedBy({"g"});
  options.configureFile = [](vantro::io::parquet::core::write::ParquetWriter&,
                             const arrow::Schema&) { utInterruptState::Raise(); };
  const auto data = table({"id", "g"}, {arrayFromJSON(arrow::int64(), "[1, 2]"),
                                        arrayFromJSON(arrow::utf8(), R"(["x", "y"])")});
  vxtest::expectHostError([&] { ds::writeDataset(dir.file("out"), data, options); },
                          "VANTRO:host:Interrupted");
  utInterruptState::Clear();
  EXPECT_EQ(listing(dir.path()), std::vector<std::string>{});
}

TEST(DatasetWriter, WritesAHostTable) {
  TempDir dir;
  const auto data = sales();
  auto host = vantro::io::arrow::core::to_vantro(data).ValueOrDie();
  const std::string out = dir.file("host");
  const auto result = ds::writeDataset(out, host.get(), partitionedBy({"month"}));
  ASSERT_EQ(result.files.size(), 3u);
  const auto back = sortedBy(readFolder(out), "id");
  EXPECT_TRUE(column(back, "month")->Equals(column(data, "month")));
  EXPECT_TRUE(column(back, "id")->Equals(column(data, "id")));
  EXPECT_EQ(back->num_columns(), 5);
}

}  // namespace
