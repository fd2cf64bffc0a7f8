#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"
#include "tests/write/WriteTestUtil.hpp"

namespace {

using vxtest::runVxparquet;
using namespace vxtest::write;

class WriteCommand : public ::testing::Test {
 protected:
  void SetUp() override { vxtest::writeBytes(csv, "id,x,name\n1,2.5,ab\n2,,cd\n3,4.5,ab\n"); }

  std::shared_ptr<parquet::ColumnChunkMetaData> chunk(int rowGroup, int column) const {
    return footer(out)->RowGroup(rowGroup)->ColumnChunk(column);
  }

  vxtest::TempDir dir;
  std::string csv = dir.file("in.csv");
  std::string out = dir.file("out.parquet");
};

TEST_F(WriteCommand, WritesACsvTableAndSummarises) {
  const auto result = runVxparquet("write " + out + " --from " + csv);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "wrote " + out + ": 3 rows, 1 row groups, 3 variables\n");
  const auto table = readBack(out);
  EXPECT_EQ(table->schema()->field_names(), (std::vector<std::string>{"id", "x", "name"}));
  EXPECT_EQ(table->num_rows(), 3);
  EXPECT_EQ(table->column(1)->null_count(), 1);
  for (int column = 0; column < 3; ++column) {
    EXPECT_EQ(chunk(0, column)->compression(), arrow::Compression::SNAPPY);
  }
}

TEST_F(WriteCommand, OneCompressionAndEncodingForEveryVariable) {
  const auto result =
      runVxparquet("write " + out + " --from " + csv + " --compression zstd --encoding plain");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  for (int column = 0; column < 3; ++column) {
    EXPECT_EQ(chunk(0, column)->compression(), arrow::Compression::ZSTD) << column;
    EXPECT_FALSE(chunk(0, column)->has_dictionary_page()) << column;
  }
}

TEST_F(WriteCommand, CompressionLevelReachesTheCodecOrIsRefused) {
  std::string rows = "a,b\n";
  for (int i = 0; i < 20000; ++i) {
    rows += std::to_string(i % 1000) + ",text" + std::to_string(i % 97) + "\n";
  }
  vxtest::writeBytes(csv, rows);
  const std::string fast = dir.file("fast.parquet");
  const std::string small = dir.file("small.parquet");
  ASSERT_EQ(runVxparquet("write " + fast + " --from " + csv +
                         " --compression zstd "
                         "--compression-level 1")
                .exitCode,
            0);
  ASSERT_EQ(runVxparquet("write " + small + " --from " + csv +
                         " --compression zstd "
                         "--compression-level=19")
                .exitCode,
            0);
  EXPECT_LT(vxtest::readBytes(small).size(), vxtest::readBytes(fast).size());

  // Snappy has no levels; a level that is not a number is a usage mistake.
  auto result = runVxparquet("write " + out + " --from " + csv +
                             " --compression snappy --compression-level 3");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.err.find("vxparquet:write:InvalidCompressionLevel"), std::string::npos)
      << result.err;
  EXPECT_FALSE(vxtest::fileExists(out));
  result = runVxparquet("write " + out + " --from " + csv + " --compression-level high");
  EXPECT_EQ(result.exitCode, 2);
}

// The codecs that help lists, from this build's Arrow: "--compression NAME  a, b, c".
std::vector<std::string> listedCodecs() {
  const std::string help = runVxparquet("help write").out;
  const size_t line = help.find("--compression NAME");
  const size_t end = help.find('\n', line);
  std::string names = help.substr(line + 18, end - line - 18);
  std::vector<std::string> codecs;
  std::string name;
  for (const char c : names + ",") {
    if (c == ',') {
      if (!name.empty()) codecs.push_back(name);
      name.clear();
    } else if (c != ' ') {
      name += c;
    }
  }
  return codecs;
}

TEST_F(WriteCommand, EveryListedCodecWritesAndNoOtherIsAccepted) {
  const auto codecs = listedCodecs();
  ASSERT_GE(codecs.size(), 3u);
  for (const auto& codec : codecs) {
    SCOPED_TRACE(codec);
    const std::string file = dir.file(codec + ".parquet");
    const auto result =
        runVxparquet("write " + file + " --from " + csv + " --compression " + codec);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(readBack(file)->num_rows(), 3);
  }
  for (const char* unlisted : {"lzo", "lz4_raw", "bz2", "nosuch"}) {
    if (std::find(codecs.begin(), codecs.end(), unlisted) != codecs.end()) continue;
    SCOPED_TRACE(unlisted);
    const auto result =
        runVxparquet("write " + out + " --from " + csv + " --compression " + unlisted);
    EXPECT_EQ(result.exitCode, 2) << result.err;
    EXPECT_FALSE(vxtest::fileExists(out));
  }
}

TEST_F(WriteCommand, LevelsOutsideTheCodecsRangeAreRefusedBeforeWriting) {
  const std::string help = runVxparquet("help write").out;
  for (const auto& codec : listedCodecs()) {
    // "gzip 1..9" in the level line: the build's own range.
    const size_t at = help.find(codec + " ", help.find("--compression-level N"));
    if (at == std::string::npos) continue;
    SCOPED_TRACE(codec);
    const int lowest = std::stoi(help.substr(at + codec.size() + 1));
    const int highest = std::stoi(help.substr(help.find("..", at) + 2));
    const std::string base = "write " + out + " --from " + csv + " --compression " + codec;
    auto result = runVxparquet(base + " --compression-level " + std::to_string(highest));
    EXPECT_EQ(result.exitCode, 0) << result.err;
    ::unlink(out.c_str());
    for (const int level : {highest + 1, lowest - 1, 99}) {
      result = runVxparquet(base + " --compression-level " + std::to_string(level));
      EXPECT_EQ(result.exitCode, 1) << level;
      EXPECT_NE(result.err.find("vxparquet:write:InvalidCompressionLevel"), std::string::npos)
          << result.err;
      EXPECT_FALSE(vxtest::fileExists(out));
    }
  }
}

TEST_F(WriteCommand, TypesNamingNoColumnAreRefused) {
  const auto result = runVxparquet("write " + out + " --from " + csv + " --types nosuch=int64");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.err.find("vxparquet:write:UnknownVariable"), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("nosuch"), std::string::npos) << result.err;
  EXPECT_FALSE(vxtest::fileExists(out));
}

TEST_F(WriteCommand, RowGroupOptions) {
  auto result = runVxparquet("write " + out + " --from " + csv + " --row-group-heights 2,1");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(rowGroupHeights(out), (std::vector<int64_t>{2, 1}));

  result = runVxparquet("write " + out + " --from " + csv + " --max-row-group-length 2");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(rowGroupHeights(out), (std::vector<int64_t>{2, 1}));
  EXPECT_NE(result.out.find("3 rows, 2 row groups"), std::string::npos) << result.out;
}

TEST_F(WriteCommand, VersionOption) {
  const auto result = runVxparquet("write " + out + " --from " + csv + " --version 1.0");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(footer(out)->version(), parquet::ParquetVersion::PARQUET_1_0);
}

TEST_F(WriteCommand, ParquetInputWithNestedVariables) {
  const auto pointType =
      arrow::struct_({arrow::field("x", arrow::float64()), arrow::field("y", arrow::utf8())});
  const auto input =
      makeTable({arrow::field("a", arrow::list(arrow::int64())), arrow::field("s", pointType),
                 arrow::field("d", arrow::float64())},
                {vxtest::arrayFromJSON(arrow::list(arrow::int64()), "[[1, 2], [], [3]]"),
                 vxtest::arrayFromJSON(pointType, R"([{"x": 1, "y": "p"}, {"x": 2, "y": null},
                                             {"x": null, "y": "p"}])"),
                 vxtest::arrayFromJSON(arrow::float64(), "[1, 2, 3]")});
  const std::string in = dir.file("nested.parquet");
  vxtest::writeParquet(in, input, 2);

  const auto result = runVxparquet("write " + out + " --from " + in +
                                   " --compression-per-variable a=zstd,s=gzip"
                                   " --encoding-per-variable s=plain");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(leafPaths(out), (std::vector<std::string>{"a.list.element", "s.x", "s.y", "d"}));
  const std::vector<arrow::Compression::type> codecs = {
      arrow::Compression::ZSTD, arrow::Compression::GZIP, arrow::Compression::GZIP,
      arrow::Compression::SNAPPY};
  const std::vector<bool> dictionaries = {true, false, false, true};
  for (int column = 0; column < 4; ++column) {
    EXPECT_EQ(chunk(0, column)->compression(), codecs[column]) << column;
    EXPECT_EQ(chunk(0, column)->has_dictionary_page(), dictionaries[column]) << column;
  }
  // The whole input is one table for the writer, whatever its row groups were.
  EXPECT_EQ(rowGroupHeights(out), (std::vector<int64_t>{3}));
  EXPECT_TRUE(readBack(out)->Equals(*input)) << readBack(out)->ToString();
}

TEST_F(WriteCommand, OptionValuesInAnyCaseAndInvalidOnesListed) {
  auto result =
      runVxparquet("write " + out + " --from " + csv + " --compression Zstd --encoding PLAIN");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(chunk(0, 0)->compression(), arrow::Compression::ZSTD);

  vxtest::TempDir other;
  const std::string fresh = other.file("fresh.parquet");
  for (const std::string option : {"--compression zstdd", "--version 3", "--encoding rle"}) {
    result = runVxparquet("write " + fresh + " --from " + csv + " " + option);
    EXPECT_EQ(result.exitCode, 2) << option;
    EXPECT_NE(result.err.find("is not one of"), std::string::npos) << result.err;
    EXPECT_FALSE(vxtest::fileExists(fresh)) << option;
  }
  // A previous file at the output path stays as it was.
  const std::string before = vxtest::readBytes(out);
  for (const std::string option : {"--compression zstdd", "--version 2.4"}) {
    EXPECT_EQ(runVxparquet("write " + out + " --from " + csv + " " + option).exitCode, 2);
    EXPECT_EQ(vxtest::readBytes(out), before) << option;
  }
}

TEST_F(WriteCommand, InputFormatDecidedByContent) {
  const std::string keep = dir.file("keep.parquet");
  ASSERT_EQ(runVxparquet("write " + keep + " --from " + csv).exitCode, 0);
  const std::string before = vxtest::readBytes(keep);

  vxtest::writeBytes(dir.file("data.dat"), "id,x\n1,2\n");
  vxtest::writeBytes(dir.file("doc.json"), "{\"id\": 1}\n");
  vxtest::writeBytes(dir.file("packed.csv"), std::string("\x1f\x8b\x08\0\0\0", 6) + "rest");
  vxtest::writeBytes(dir.file("empty.parquet"), "");
  for (const std::string input : {"data.dat", "doc.json", "packed.csv", "empty.parquet"}) {
    const auto result = runVxparquet("write " + keep + " --from " + dir.file(input));
    EXPECT_EQ(result.exitCode, 1) << input;
    EXPECT_NE(result.err.find("vxparquet write: error: vxparquet:write:UnknownInputFormat: "),
              std::string::npos)
        << result.err;
    EXPECT_EQ(vxtest::readBytes(keep), before) << input;
  }
  // Told that it is CSV, any name goes; Parquet content under a CSV name is still Parquet.
  auto result =
      runVxparquet("write " + out + " --from " + dir.file("data.dat") + " --from-format CSV");
  EXPECT_EQ(result.exitCode, 0) << result.err;
  const std::string disguised = dir.file("disguised.csv");
  vxtest::writeBytes(disguised, before);
  result = runVxparquet("write " + out + " --from " + disguised);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(readBack(out)->num_rows(), 3);
}

TEST_F(WriteCommand, RowGroupHeightsMustAddUpToTheRows) {
  const auto result = runVxparquet("write " + out + " --from " + csv + " --row-group-heights 2,2");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.err.find("vxparquet:write:RowGroupHeightsMismatch"), std::string::npos);
  EXPECT_FALSE(vxtest::fileExists(out));
}

TEST_F(WriteCommand, CsvOptionsAndStandardStreams) {
  vxtest::writeBytes(dir.file("in.tsv"), "7\tn/a\n8\tq\n");
  auto result = runVxparquet("write " + out + " --from " + dir.file("in.tsv") +
                             " --no-header --null-values n/a --types f0=int8");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  auto table = readBack(out);
  EXPECT_EQ(table->schema()->field_names(), (std::vector<std::string>{"f0", "f1"}));
  EXPECT_EQ(table->column(0)->type()->id(), arrow::Type::INT8);
  EXPECT_EQ(table->column(1)->null_count(), 1);

  // Standard input to standard output; the summary goes to standard error, not into the data.
  const std::string piped = dir.file("piped.parquet");
  const std::string command = std::string(VX_BINARY_DIR) +
                              "/tools/vxparquet write - --from - --from-format csv < " + csv +
                              " > " + piped + " 2> " + dir.file("err");
  ASSERT_EQ(std::system(command.c_str()), 0) << vxtest::readBytes(dir.file("err"));
  EXPECT_EQ(readBack(piped)->num_rows(), 3);
  EXPECT_EQ(vxtest::readBytes(dir.file("err")), "wrote standard output: 3 rows, 3 variables\n");
  EXPECT_EQ(runVxparquet("write " + out + " --from -").exitCode, 2);
}

TEST_F(WriteCommand, DefaultRowGroupsHoldAtMostTwoToTheTwentyRows) {
  arrow::Int8Builder values;
  ASSERT_TRUE(values.AppendEmptyValues(1048577).ok());
  const std::string in = dir.file("big.parquet");
  vxtest::writeParquet(
      in, makeTable({arrow::field("v", arrow::int8())}, {values.Finish().ValueOrDie()}), 1 << 22);
  const auto result = runVxparquet("write " + out + " --from " + in);
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(rowGroupHeights(out), (std::vector<int64_t>{1048576, 1}));
}

TEST_F(WriteCommand, UsageErrors) {
  for (const std::string& arguments :
       {"write " + out, "write --from " + csv,
        "write " + out + " --from " + csv + " --compression-per-variable nope=zstd",
        "write " + out + " --from " + csv + " --compression zstd --compression-per-variable id=lz4",
        "write " + out + " --from " + csv + " --row-group-heights 1,x",
        "write " + out + " --from " + csv + " --max-row-group-length 0",
        "write " + out + " --from " + csv + " --from-format xml"}) {
    const auto result = runVxparquet(arguments);
    EXPECT_EQ(result.exitCode, 2) << arguments;
    EXPECT_FALSE(vxtest::fileExists(out)) << arguments;
  }
}

}  // namespace
