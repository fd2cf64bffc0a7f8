// ParquetInfo over the public parquet-testing corpus: files from many writers.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/info/ParquetInfo.hpp"

namespace {

using testing::Each;
using testing::ElementsAre;
using vantro::io::parquet::core::info::ParquetInfo;

const std::string kInvalidRead = "VANTRO:parquetio:read:InternalInvalidRead";

ParquetInfo corpusInfo(const std::string& name) {
  return ParquetInfo(vxtest::u16(vxtest::interopDir() + "/" + name));
}

TEST(InteropInfo, EveryFileSucceedsOrFailsAsInvalidRead) {
  VX_REQUIRE_INTEROP();
  const auto files = vxtest::interopFiles();
  ASSERT_FALSE(files.empty());
  int summarised = 0;
  for (const auto& file : files) {
    SCOPED_TRACE(file);
    try {
      const ParquetInfo info(vxtest::u16(file));
      const size_t n = info.getVariableNames().size();
      EXPECT_EQ(info.getArrowTypes().size(), n);
      EXPECT_EQ(info.getVariableTypes().size(), n);
      EXPECT_EQ(info.getParquetPhysicalTypes().size(), n);
      EXPECT_EQ(info.getParquetConvertedTypes().size(), n);
      EXPECT_EQ(info.getParquetLogicalTypes().size(), n);
      EXPECT_EQ(info.getVariableCompression().size(), info.getNumRowGroups() > 0 ? n : 0);
      EXPECT_EQ(info.getVariableEncoding().size(), info.getNumRowGroups() > 0 ? n : 0);
      EXPECT_EQ(info.getRowGroupHeights().size(), static_cast<size_t>(info.getNumRowGroups()));
      ++summarised;
    } catch (const foundation::core::except::IMsgIDException& e) {
      EXPECT_EQ(e.identifier(), kInvalidRead) << e.message();
    }
  }
  EXPECT_GT(summarised, static_cast<int>(files.size()) / 2);
}

TEST(InteropInfo, EncryptedFooterIsRefusedAsEncrypted) {
  VX_REQUIRE_INTEROP();
  const std::u16string name =
      vxtest::u16(vxtest::interopDir() + "/uniform_encryption.parquet.encrypted");
  const auto arguments = vxtest::expectHostError([&] { ParquetInfo info(name); },
                                                 "VANTRO:parquetio:read:EncryptedFile");
  ASSERT_TRUE(arguments);
  EXPECT_EQ(std::get<std::u16string>(arguments->at(0)), name);
}

TEST(InteropInfo, ChecksumFilesHoldTwoPlainInt32Columns) {
  VX_REQUIRE_INTEROP();
  // "required int32 a; required int32 b", v1 data pages, uncompressed or snappy.
  for (const auto& [name, codec] :
       {std::pair{"datapage_v1-uncompressed-checksum.parquet", "uncompressed"},
        std::pair{"datapage_v1-snappy-compressed-checksum.parquet", "snappy"},
        std::pair{"datapage_v1-corrupt-checksum.parquet", "uncompressed"}}) {
    SCOPED_TRACE(name);
    const ParquetInfo info = corpusInfo(name);
    EXPECT_THAT(info.getVariableNames(), ElementsAre(u"a", u"b"));
    EXPECT_THAT(info.getParquetPhysicalTypes(), ElementsAre("INT32", "INT32"));
    EXPECT_THAT(info.getVariableTypes(), ElementsAre("int32", "int32"));
    EXPECT_THAT(info.getVariableCompression(), ElementsAre(codec, codec));
    EXPECT_THAT(info.getVariableEncoding(), ElementsAre("plain", "plain"));
    EXPECT_EQ(info.getVersion(), "1.0");
  }
}

TEST(InteropInfo, ConcatenatedGzipMembers) {
  VX_REQUIRE_INTEROP();
  // 513 UINT64 numbers in a single gzip-compressed data page.
  const ParquetInfo info = corpusInfo("concatenated_gzip_members.parquet");
  EXPECT_EQ(info.getNumRowGroups(), 1);
  EXPECT_THAT(info.getRowGroupHeights(), ElementsAre(513u));
  EXPECT_THAT(info.getVariableCompression(), ElementsAre("gzip"));
  EXPECT_THAT(info.getArrowTypes(), ElementsAre("uint64"));
  EXPECT_THAT(info.getParquetLogicalTypes(), ElementsAre("Int(bitWidth=64, isSigned=false)"));
  EXPECT_EQ(info.getVersion(), "2.0");
}

TEST(InteropInfo, SortColumnsHasTwoRowGroups) {
  VX_REQUIRE_INTEROP();
  // INT64 and BYTE_ARRAY columns, two row groups with the same data.
  const ParquetInfo info = corpusInfo("sort_columns.parquet");
  EXPECT_EQ(info.getNumRowGroups(), 2);
  const auto heights = info.getRowGroupHeights();
  ASSERT_EQ(heights.size(), 2u);
  EXPECT_EQ(heights[0], heights[1]);
  EXPECT_THAT(info.getParquetPhysicalTypes(), ElementsAre("INT64", "BYTE_ARRAY"));
  const auto offsets = info.getRowGroupOffsets();
  EXPECT_LT(offsets[0], offsets[1]);
}

TEST(InteropInfo, BloomFilterFileHasOneOptionalStringColumn) {
  VX_REQUIRE_INTEROP();
  const ParquetInfo info = corpusInfo("data_index_bloom_encoding_stats.parquet");
  EXPECT_THAT(info.getParquetPhysicalTypes(), ElementsAre("BYTE_ARRAY"));
  EXPECT_THAT(info.getParquetConvertedTypes(), ElementsAre("UTF8"));
  EXPECT_THAT(info.getVariableTypes(), ElementsAre("string"));
}

TEST(InteropInfo, EncodingRuleOnOtherWritersLists) {
  VX_REQUIRE_INTEROP();
  // [RLE, BIT_PACKED, PLAIN] without a dictionary page: PLAIN plus two others.
  EXPECT_THAT(corpusInfo("binary.parquet").getVariableEncoding(), ElementsAre(""));
  // [RLE] only (boolean RLE encoding): no PLAIN.
  EXPECT_THAT(corpusInfo("rle_boolean_encoding.parquet").getVariableEncoding(), ElementsAre(""));
  // [DELTA_BINARY_PACKED] in every one of its 66 columns.
  const ParquetInfo delta = corpusInfo("delta_binary_packed.parquet");
  EXPECT_EQ(delta.getVariableEncoding().size(), 66u);
  EXPECT_THAT(delta.getVariableEncoding(), Each(""));
  // Dictionary-encoded v2 file: a dictionary page whatever else is listed.
  EXPECT_THAT(corpusInfo("page_v2_empty_compressed.parquet").getVariableEncoding(),
              ElementsAre("dictionary"));
}

TEST(InteropInfo, CompressionNamesFromOtherWriters) {
  VX_REQUIRE_INTEROP();
  EXPECT_THAT(corpusInfo("lz4_raw_compressed.parquet").getVariableCompression(), Each("lz4_raw"));
  EXPECT_THAT(corpusInfo("page_v2_empty_compressed.parquet").getVariableCompression(),
              ElementsAre("zstd"));
  EXPECT_THAT(corpusInfo("hadoop_lz4_compressed.parquet").getVariableCompression(),
              ElementsAre("lz4_hadoop", "lz4_hadoop", "lz4_hadoop"));
}

TEST(InteropInfo, AllTypesPlainFromImpala) {
  VX_REQUIRE_INTEROP();
  const ParquetInfo info = corpusInfo("alltypes_plain.parquet");
  EXPECT_EQ(info.getVersion(), "1.0");
  EXPECT_EQ(info.getVariableNames().size(), 11u);
  EXPECT_EQ(info.getVariableNames()[0], u"id");
  EXPECT_THAT(info.getRowGroupHeights(), ElementsAre(8u));
  EXPECT_EQ(info.getParquetPhysicalTypes()[9], "BYTE_ARRAY");
  EXPECT_EQ(info.getParquetPhysicalTypes()[10], "INT96");
  EXPECT_EQ(info.getVariableEncoding()[0], "dictionary");
  // A dictionary-encoded chunk whose footer lacks the dictionary page offset.
  EXPECT_EQ(info.getVariableEncoding()[1], "");
  EXPECT_EQ(corpusInfo("alltypes_plain.snappy.parquet").getVariableCompression()[0], "snappy");
}

TEST(InteropInfo, NestedFilesReportTopLevelAnnotations) {
  VX_REQUIRE_INTEROP();
  const ParquetInfo lists = corpusInfo("list_columns.parquet");
  EXPECT_THAT(lists.getParquetConvertedTypes(), Each("LIST"));
  EXPECT_THAT(lists.getVariableTypes(), Each("cell"));
  const ParquetInfo maps = corpusInfo("nested_maps.snappy.parquet");
  EXPECT_EQ(maps.getParquetConvertedTypes()[0], "MAP");
}

}  // namespace
