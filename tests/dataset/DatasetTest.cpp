// Datasets made here with Arrow's writer: partitioned folders, drifting schemas, markers and
// stray files, patterns, pruning and exact filtering.
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <gtest/gtest.h>

#include "host/converter/Converter.hpp"
#include "host/matrix/Matrix.hpp"
#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Dataset.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/DatasetReader.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Partitioning.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/SchemaUnion.hpp"

namespace {

namespace ds = vantro::io::parquet::core::dataset;
namespace fs = std::filesystem;
using vxtest::arrayFromJSON;
using vxtest::table;
using vxtest::TempDir;

void write(const TempDir& dir, const std::string& relative,
           const std::shared_ptr<arrow::Table>& data, int64_t rowGroupSize = 1024) {
  const std::string path = dir.file(relative);
  fs::create_directories(fs::path(path).parent_path());
  vxtest::writeParquet(path, data, rowGroupSize);
}

std::shared_ptr<arrow::Table> toArrow(const matrix::unique_array& host) {
  auto result = vantro::io::arrow::core::to_arrow_table(host.get());
  EXPECT_TRUE(result.ok()) << result.status().ToString();
  return result.ok() ? *result : nullptr;
}

std::shared_ptr<ds::Dataset> open(const std::vector<std::string>& sources,
                                  ds::DatasetOptions options = {}) {
  return std::make_shared<ds::Dataset>(sources, options);
}

// year=2023 (old files: id int32, no "note") and year=2024 (id int64, with "note").
class PartitionedDataset : public ::testing::Test {
 protected:
  void SetUp() override {
    write(dir, "data/year=2023/part-0.parquet",
          table({"id", "x"}, {arrayFromJSON(arrow::int32(), "[1, 2, 3]"),
                              arrayFromJSON(arrow::float32(), "[0.5, 1.5, null]")}));
    write(dir, "data/year=2024/part-0.parquet",
          table({"id", "x", "note"}, {arrayFromJSON(arrow::int64(), "[4, 5]"),
                                      arrayFromJSON(arrow::float64(), "[2.5, 3.5]"),
                                      arrayFromJSON(arrow::utf8(), "[\"a\", null]")}));
    vxtest::writeBytes(dir.file("data/_SUCCESS"), "");
    vxtest::writeBytes(dir.file("data/year=2024/.part-0.parquet.crc"), "crc");
  }
  TempDir dir;
};

TEST_F(PartitionedDataset, UnitesSchemasByNameAndAddsPartitions) {
  auto dataset = open({dir.file("data")});
  ASSERT_EQ(dataset->fileCount(), 2u);
  EXPECT_EQ(dataset->variableNames(), (std::vector<std::string>{"id", "x", "note", "year"}));
  EXPECT_TRUE(dataset->schema()->field(0)->type()->Equals(arrow::int64()));
  EXPECT_TRUE(dataset->schema()->field(1)->type()->Equals(arrow::float64()));
  EXPECT_TRUE(dataset->schema()->field(3)->type()->Equals(arrow::int64()));
  EXPECT_EQ(dataset->rowCount(), 5u);

  ds::DatasetReader reader(dataset);
  const auto all = toArrow(reader.readall());
  ASSERT_TRUE(all);
  ASSERT_EQ(all->num_rows(), 5);
  auto combined = all->CombineChunks().ValueOrDie();
  EXPECT_TRUE(combined->GetColumnByName("id")->chunk(0)->Equals(
      arrayFromJSON(arrow::int64(), "[1, 2, 3, 4, 5]")));
  EXPECT_TRUE(combined->GetColumnByName("year")->chunk(0)->Equals(
      arrayFromJSON(arrow::int64(), "[2023, 2023, 2023, 2024, 2024]")));
  // The old files lack "note": missing for their rows.
  EXPECT_EQ(combined->GetColumnByName("note")->null_count(), 4);
}

TEST_F(PartitionedDataset, ReadsPieceByPieceInStableOrder) {
  ds::DatasetReader reader(open({dir.file("data")}), {"year", "id"});
  std::vector<int64_t> rows;
  while (reader.hasdata()) rows.push_back(toArrow(reader.read())->num_rows());
  EXPECT_EQ(rows, (std::vector<int64_t>{3, 2}));
  vxtest::expectHostError([&] { reader.read(); }, "VANTRO:parquetio:dataset:NoMoreData");
  reader.reset();
  EXPECT_TRUE(reader.hasdata());
  vxtest::expectHostError([&] { ds::DatasetReader(open({dir.file("data")}), {"nope"}); },
                          "VANTRO:parquetio:dataset:UnknownVariable");
}

TEST_F(PartitionedDataset, AReaderWithoutPiecesYieldsOneEmptyTableAfterEachReset) {
  ds::DatasetReader none(open({dir.file("data")}), {"id"}, "year > 2030");
  EXPECT_TRUE(none.pieces().empty());
  for (int pass = 0; pass < 2; ++pass) {
    ASSERT_TRUE(none.hasdata());
    EXPECT_EQ(toArrow(none.read())->num_rows(), 0);
    EXPECT_FALSE(none.hasdata());
    vxtest::expectHostError([&] { none.read(); }, "VANTRO:parquetio:dataset:NoMoreData");
    none.reset();
  }
}

TEST_F(PartitionedDataset, PrunesByPartitionAndStatisticsAndFiltersExactly) {
  auto dataset = open({dir.file("data")});
  ds::DatasetReader byYear(dataset, {"id"}, "year == 2024 and id != 5");
  EXPECT_EQ(byYear.pieces().size(), 1u);
  ASSERT_EQ(byYear.skipped().size(), 1u);
  EXPECT_EQ(byYear.skipped()[0].rowGroup, -1);  // the whole file, by its folder
  const auto kept = toArrow(byYear.readall());
  EXPECT_EQ(kept->num_rows(), 1);
  EXPECT_EQ(kept->num_columns(), 1);

  ds::DatasetReader byStatistics(dataset, {}, "id > 3");
  EXPECT_EQ(byStatistics.pieces().size(), 1u);
  // A variable that a file lacks is all-missing there: its file is ruled out.
  ds::DatasetReader byMissing(dataset, {}, "note == 'a'");
  EXPECT_EQ(byMissing.pieces().size(), 1u);
  EXPECT_EQ(toArrow(byMissing.readall())->num_rows(), 1);
}

TEST_F(PartitionedDataset, CountsFromStatisticsWhereTheyDecide) {
  auto dataset = open({dir.file("data")});
  ds::DatasetReader everything(dataset, {}, "year >= 2023 and id >= 1");
  const auto all = everything.countMatches();
  EXPECT_EQ(all.rows, 5u);
  EXPECT_EQ(all.piecesAllMatch, 2u);
  EXPECT_EQ(all.piecesRead, 0u);

  ds::DatasetReader some(dataset, {}, "id == 2");
  const auto one = some.countMatches();
  EXPECT_EQ(one.rows, 1u);
  EXPECT_EQ(one.piecesRead, 1u);
  EXPECT_EQ(one.piecesRuledOut, 1u);
  // NaN and nulls are never proven absent for a double: those groups are read.
  ds::DatasetReader floating(dataset, {}, "x > 0");
  const auto read = floating.countMatches();
  EXPECT_EQ(read.rows, 4u);
  EXPECT_EQ(read.piecesAllMatch, 0u);
}

TEST_F(PartitionedDataset, PartitioningCanBeOffOrTyped) {
  ds::DatasetOptions off;
  off.partitioning.hive = false;
  EXPECT_EQ(open({dir.file("data")}, off)->variableNames(),
            (std::vector<std::string>{"id", "x", "note"}));
  ds::DatasetOptions typed;
  typed.partitioning.types = {{"year", "string"}};
  EXPECT_TRUE(open({dir.file("data")}, typed)->schema()->field(3)->type()->Equals(arrow::utf8()));
  typed.partitioning.types = {{"year", "date"}};
  vxtest::expectHostError([&] { open({dir.file("data")}, typed); },
                          "VANTRO:parquetio:dataset:InvalidPartitionValue");
  typed.partitioning.types = {{"year", "complex"}};
  vxtest::expectHostError([&] { open({dir.file("data")}, typed); },
                          "VANTRO:parquetio:dataset:InvalidOption");
}

TEST_F(PartitionedDataset, StrictModeRefusesDrift) {
  ds::DatasetOptions strict;
  strict.strict = true;
  vxtest::expectHostError([&] { open({dir.file("data")}, strict); },
                          "VANTRO:parquetio:dataset:SchemaMismatch");
}

TEST_F(PartitionedDataset, PatternsReachAcrossLevels) {
  EXPECT_EQ(open({dir.file("data/**/*.parquet")})->fileCount(), 2u);
  EXPECT_EQ(open({dir.file("data/year=202[4]/*.parquet")})->fileCount(), 1u);
  EXPECT_EQ(
      open({dir.file("data/year=2023/part-?.parquet"), dir.file("data/year=2024/part-0.parquet")})
          ->fileCount(),
      2u);
  // Partitions are counted from the folder before the first wildcard.
  EXPECT_EQ(open({dir.file("data/*/*.parquet")})->partitions().names,
            (std::vector<std::string>{"year"}));
  vxtest::expectHostError([&] { open({dir.file("data/**/*.csv")}); },
                          "VANTRO:parquetio:dataset:NoMatch");
}

TEST(DatasetSources, StrayFilesAreRefusedOrSkippedWithAWarning) {
  TempDir dir;
  write(dir, "d/a.parquet", vxtest::simpleTable(3));
  vxtest::writeBytes(dir.file("d/notes.txt"), "not parquet at all");
  vxtest::expectHostError([&] { open({dir.file("d")}); }, "VANTRO:parquetio:dataset:NotParquet");
  ds::DatasetOptions skip;
  skip.sources.skipBadFiles = true;
  (void)matrix::takeWarnings();
  EXPECT_EQ(open({dir.file("d")}, skip)->fileCount(), 1u);
  const auto warnings = matrix::takeWarnings();
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_EQ(warnings[0].identifier, "VANTRO:parquetio:dataset:SkippedFile");

  fs::remove(dir.file("d/notes.txt"));
  fs::create_symlink(dir.file("gone.parquet"), dir.file("d/link.parquet"));
  vxtest::expectHostError([&] { open({dir.file("d")}); }, "VANTRO:parquetio:dataset:DanglingLink");
  EXPECT_EQ(open({dir.file("d")}, skip)->fileCount(), 1u);
  EXPECT_EQ(matrix::takeWarnings().size(), 1u);
}

TEST(DatasetSources, UnreadableFilesAreRefused) {
  if (::geteuid() == 0) GTEST_SKIP() << "root reads every file";
  TempDir dir;
  write(dir, "d/a.parquet", vxtest::simpleTable(3));
  write(dir, "d/b.parquet", vxtest::simpleTable(3));
  fs::permissions(dir.file("d/b.parquet"), fs::perms::none);
  vxtest::expectHostError([&] { open({dir.file("d")}); },
                          "VANTRO:parquetio:dataset:UnreadableFile");
  fs::permissions(dir.file("d/b.parquet"), fs::perms::owner_all);
}

TEST(DatasetSources, EmptyFoldersAndNamedFiles) {
  TempDir dir;
  fs::create_directories(dir.file("empty"));
  vxtest::writeBytes(dir.file("empty/_SUCCESS"), "");
  vxtest::expectHostError([&] { open({dir.file("empty")}); },
                          "VANTRO:parquetio:dataset:EmptyFolder");
  // A file named on its own keeps the reader's own errors.
  vxtest::expectHostError([&] { open({dir.file("missing.parquet")}); }, "VANTRO:vfs:FileNotFound");
}

TEST(DatasetPartitions, InconsistentFoldersAreRefusedNamingBothPaths) {
  TempDir dir;
  write(dir, "d/a=1/b=2/x.parquet", vxtest::simpleTable(1));
  write(dir, "d/b=2/a=1/x.parquet", vxtest::simpleTable(1));
  const auto arguments = vxtest::expectHostError([&] { open({dir.file("d")}); },
                                                 "VANTRO:parquetio:dataset:InconsistentPartitions");
  ASSERT_TRUE(arguments);
  EXPECT_NE(std::get<std::string>((*arguments)[0]).find("a=1/b=2"), std::string::npos);
  EXPECT_NE(std::get<std::string>((*arguments)[1]).find("b=2/a=1"), std::string::npos);
}

TEST(DatasetPartitions, InfersTypesDecodesAndKnowsMissingValues) {
  TempDir dir;
  write(dir, "d/day=2024-01-02/city=Oslo%2FNord/x.parquet", vxtest::simpleTable(1));
  write(dir, "d/day=2024-01-03/city=__HIVE_DEFAULT_PARTITION__/x.parquet", vxtest::simpleTable(1));
  auto dataset = open({dir.file("d")});
  EXPECT_TRUE(dataset->schema()->GetFieldByName("day")->type()->Equals(arrow::date32()));
  const auto city = dataset->partitions().values[1];
  EXPECT_TRUE(city->Equals(arrayFromJSON(arrow::utf8(), "[\"Oslo/Nord\", null]")));
  ds::DatasetReader missing(dataset, {}, "city is null");
  EXPECT_EQ(toArrow(missing.readall())->num_rows(), 1);

  write(dir, "e/id=1/x.parquet", vxtest::simpleTable(1));
  vxtest::expectHostError([&] { open({dir.file("e")}); },
                          "VANTRO:parquetio:dataset:PartitionVariableClash");
  EXPECT_EQ(ds::urlDecode(ds::urlEncode("a/b=c%d")), "a/b=c%d");
}

TEST(DatasetSchema, PromotesOnlyWithoutLoss) {
  using ds::commonType;
  EXPECT_TRUE(commonType(arrow::int8(), arrow::int32())->Equals(arrow::int32()));
  EXPECT_TRUE(commonType(arrow::uint16(), arrow::uint64())->Equals(arrow::uint64()));
  EXPECT_TRUE(commonType(arrow::int32(), arrow::float32())->Equals(arrow::float64()));
  EXPECT_EQ(commonType(arrow::int64(), arrow::float64()), nullptr);
  EXPECT_EQ(commonType(arrow::int32(), arrow::uint32()), nullptr);
  EXPECT_TRUE(commonType(arrow::timestamp(arrow::TimeUnit::MILLI, "UTC"),
                         arrow::timestamp(arrow::TimeUnit::NANO, "UTC"))
                  ->Equals(arrow::timestamp(arrow::TimeUnit::NANO, "UTC")));
  EXPECT_EQ(commonType(arrow::timestamp(arrow::TimeUnit::MILLI, "UTC"),
                       arrow::timestamp(arrow::TimeUnit::MILLI, "Europe/Oslo")),
            nullptr);
  EXPECT_TRUE(commonType(arrow::dictionary(arrow::int32(), arrow::utf8()), arrow::utf8())
                  ->Equals(arrow::large_utf8()) ||
              commonType(arrow::dictionary(arrow::int32(), arrow::utf8()), arrow::utf8())
                  ->Equals(arrow::utf8()));
  EXPECT_TRUE(commonType(arrow::list(arrow::int32()), arrow::large_list(arrow::int64()))
                  ->Equals(arrow::large_list(arrow::int64())));
  EXPECT_EQ(commonType(arrow::utf8(), arrow::int32()), nullptr);
  EXPECT_EQ(
      commonType(arrow::struct_({arrow::field("a", arrow::int32())}), arrow::list(arrow::int32())),
      nullptr);
}

TEST(DatasetSchema, ConflictsNameTheVariableBothFilesAndTypes) {
  TempDir dir;
  write(dir, "d/a.parquet", table({"v"}, {arrayFromJSON(arrow::utf8(), "[\"x\"]")}));
  write(dir, "d/b.parquet", table({"v"}, {arrayFromJSON(arrow::int32(), "[1]")}));
  const auto arguments = vxtest::expectHostError([&] { open({dir.file("d")}); },
                                                 "VANTRO:parquetio:dataset:SchemaConflict");
  ASSERT_TRUE(arguments);
  ASSERT_EQ(arguments->size(), 5u);
  EXPECT_EQ(std::get<std::string>((*arguments)[0]), "v");
  EXPECT_NE(std::get<std::string>((*arguments)[1]).find("a.parquet"), std::string::npos);
  EXPECT_NE(std::get<std::string>((*arguments)[3]).find("b.parquet"), std::string::npos);
}

TEST(DatasetSchema, DictionaryAndTextReadAsText) {
  TempDir dir;
  auto dictionary =
      arrow::DictionaryArray::FromArrays(arrow::dictionary(arrow::int32(), arrow::utf8()),
                                         arrayFromJSON(arrow::int32(), "[0, 1, 0]"),
                                         arrayFromJSON(arrow::utf8(), "[\"p\", \"q\"]"))
          .ValueOrDie();
  write(dir, "d/a.parquet", table({"s"}, {dictionary}));
  write(dir, "d/b.parquet", table({"s"}, {arrayFromJSON(arrow::utf8(), "[\"r\"]")}));
  auto dataset = open({dir.file("d")});
  ds::DatasetReader reader(dataset);
  const auto all = toArrow(reader.readall());
  ASSERT_TRUE(all);
  EXPECT_EQ(all->num_rows(), 4);
}

TEST(DatasetFiles, EmptyFilesAndFilesWithoutRowGroups) {
  TempDir dir;
  const auto empty = table({"id"}, {arrayFromJSON(arrow::int64(), "[]")});
  write(dir, "d/a.parquet", empty);
  vxtest::writeParquetWithoutRowGroups(dir.file("d/b.parquet"), empty->schema());
  auto dataset = open({dir.file("d")});
  EXPECT_EQ(dataset->rowCount(), 0u);
  ds::DatasetReader reader(dataset);
  const auto all = toArrow(reader.readall());
  ASSERT_TRUE(all);
  EXPECT_EQ(all->num_rows(), 0);
  EXPECT_EQ(all->num_columns(), 1);
  ds::DatasetReader pieces(dataset);
  EXPECT_TRUE(pieces.hasdata());  // one table without rows
  EXPECT_EQ(toArrow(pieces.read())->num_rows(), 0);
  EXPECT_FALSE(pieces.hasdata());
}

TEST(DatasetFiles, AThousandSmallFilesInNestedFolders) {
  TempDir dir;
  for (int i = 0; i < 1000; ++i) {
    write(dir, "d/g=" + std::to_string(i % 10) + "/sub/part-" + std::to_string(i) + ".parquet",
          vxtest::simpleTable(3));
  }
  auto dataset = open({dir.file("d")});
  EXPECT_EQ(dataset->fileCount(), 1000u);
  EXPECT_EQ(dataset->rowCount(), 3000u);
  ds::DatasetReader reader(dataset, {"id"}, "g == 3 and id == 1");
  EXPECT_EQ(reader.pieces().size(), 100u);
  EXPECT_EQ(toArrow(reader.readall())->num_rows(), 100);
}

}  // namespace
