// ParquetInfo on generated files: what it reports, the rules behind version, compression and
// encoding, files without row groups, failures and trace records.
#include <sys/stat.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <arrow/api.h>
#include <arrow/util/compression.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <parquet/metadata.h>
#include <parquet/properties.h>
#include <parquet/schema.h>

#include "tests/info/InfoFixtures.hpp"
#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/info/ParquetInfo.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupGeometry.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vantro::io::parquet::core::info::ParquetInfo;
using vxtest::info::ChunkFooter;

namespace severity = foundation::log::severity;
const std::string kInvalidRead = "VANTRO:parquetio:read:InternalInvalidRead";

uint64_t sizeOf(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 ? static_cast<uint64_t>(info.st_size) : 0;
}

class ParquetInfoTest : public testing::Test {
 protected:
  ParquetInfo infoOf(const std::string& path) { return ParquetInfo(vxtest::u16(path)); }

  // A file with table written by Arrow with the given writer properties, in one row group.
  std::string write(
      const std::shared_ptr<arrow::Table>& table,
      std::shared_ptr<parquet::WriterProperties> properties = parquet::default_writer_properties(),
      int64_t rowGroupSize = 1 << 20) {
    const std::string path = dir.file("f" + std::to_string(++mFiles) + ".parquet");
    vxtest::writeParquet(path, table, rowGroupSize, std::move(properties));
    return path;
  }

  vxtest::TempDir dir;

 private:
  int mFiles = 0;
};

TEST_F(ParquetInfoTest, SummarisesASimpleFile) {
  const std::string path = vxtest::writeSimpleFile(dir, "simple.parquet", 10, 4);
  const ParquetInfo info = infoOf(path);

  EXPECT_EQ(vxtest::u8(info.getFilename()), path);
  EXPECT_EQ(info.getFileSize(), sizeOf(path));
  EXPECT_EQ(info.getNumRowGroups(), 3);
  EXPECT_THAT(info.getRowGroupHeights(), ElementsAre(4u, 4u, 2u));
  EXPECT_EQ(info.getRowGroupOffsets(),
            vantro::io::parquet::core::info::getRowGroupOffsets(*info.getMetadata()));
  EXPECT_EQ(info.getVersion(), "2.0");
  EXPECT_THAT(info.getVariableNames(), ElementsAre(u"id", u"x", u"name"));
  EXPECT_THAT(info.getVariableTypes(), ElementsAre("int64", "double", "string"));
  EXPECT_THAT(info.getArrowTypes(), ElementsAre("int64", "double", "string"));
  EXPECT_THAT(info.getParquetPhysicalTypes(), ElementsAre("INT64", "DOUBLE", "BYTE_ARRAY"));
  EXPECT_THAT(info.getParquetConvertedTypes(), ElementsAre("NONE", "NONE", "UTF8"));
  EXPECT_THAT(info.getParquetLogicalTypes(), ElementsAre("None", "None", "String"));
  EXPECT_THAT(info.getVariableCompression(),
              ElementsAre("uncompressed", "uncompressed", "uncompressed"));
  EXPECT_THAT(info.getVariableEncoding(), ElementsAre("dictionary", "dictionary", "dictionary"));
  ASSERT_NE(info.getArrowSchema(), nullptr);
  EXPECT_EQ(info.getArrowSchema()->num_fields(), 3);
  EXPECT_EQ(info.getMetadata()->num_rows(), 10);
  EXPECT_EQ(info.getSchemaManifest().schema_fields.size(), 3u);
}

TEST_F(ParquetInfoTest, FileWithoutRowGroupsHasNoCompressionOrEncodingEntries) {
  const std::string path = dir.file("empty.parquet");
  vxtest::writeParquetWithoutRowGroups(path, vxtest::simpleTable(0)->schema());
  const ParquetInfo info = infoOf(path);

  EXPECT_EQ(info.getNumRowGroups(), 0);
  EXPECT_THAT(info.getRowGroupHeights(), IsEmpty());
  EXPECT_THAT(info.getRowGroupOffsets(), IsEmpty());
  EXPECT_THAT(info.getVariableCompression(), IsEmpty());
  EXPECT_THAT(info.getVariableEncoding(), IsEmpty());
  EXPECT_EQ(info.getVariableNames().size(), 3u);
  EXPECT_EQ(info.getVariableTypes().size(), 3u);
  EXPECT_EQ(info.getArrowTypes().size(), 3u);
  EXPECT_THAT(info.getParquetPhysicalTypes(), ElementsAre("INT64", "DOUBLE", "BYTE_ARRAY"));
  EXPECT_EQ(info.getParquetConvertedTypes().size(), 3u);
  EXPECT_EQ(info.getParquetLogicalTypes().size(), 3u);
  EXPECT_EQ(info.getVersion(), "2.0");
}

TEST_F(ParquetInfoTest, OnlyTheMajorFormatVersionIsReported) {
  const auto table = vxtest::simpleTable(3);
  const struct {
    parquet::ParquetVersion::type version;
    const char* text;
  } cases[] = {{parquet::ParquetVersion::PARQUET_1_0, "1.0"},
               {parquet::ParquetVersion::PARQUET_2_4, "2.0"},
               {parquet::ParquetVersion::PARQUET_2_6, "2.0"}};
  for (const auto& c : cases) {
    const auto path =
        write(table, parquet::WriterProperties::Builder().version(c.version)->build());
    EXPECT_EQ(infoOf(path).getVersion(), c.text) << parquet::ParquetVersionToString(c.version);
  }
}

TEST_F(ParquetInfoTest, CompressionIsArrowsLowerCaseCodecNamePerVariable) {
  std::vector<std::pair<arrow::Compression::type, std::string>> codecs = {
      {arrow::Compression::UNCOMPRESSED, "uncompressed"},
      {arrow::Compression::SNAPPY, "snappy"},
      {arrow::Compression::GZIP, "gzip"},
      {arrow::Compression::ZSTD, "zstd"},
      {arrow::Compression::BROTLI, "brotli"},
      {arrow::Compression::LZ4, "lz4_raw"}};
  arrow::FieldVector fields;
  arrow::ArrayVector columns;
  parquet::WriterProperties::Builder builder;
  std::vector<std::string> expected;
  for (const auto& [codec, name] : codecs) {
    if (!arrow::util::Codec::IsAvailable(codec)) continue;
    const std::string column = "c" + std::to_string(fields.size());
    fields.push_back(arrow::field(column, arrow::utf8()));
    columns.push_back(vxtest::arrayFromJSON(arrow::utf8(), R"(["a", "b", "a"])"));
    builder.compression(column, codec);
    expected.push_back(name);
  }
  ASSERT_GE(expected.size(), 2u);
  const auto path = write(arrow::Table::Make(arrow::schema(fields), columns), builder.build());
  EXPECT_EQ(infoOf(path).getVariableCompression(), expected);
}

TEST_F(ParquetInfoTest, HadoopLz4HasItsOwnName) {
  // Parquet's old LZ4 codec id reads as Hadoop's framing, which Arrow names apart from lz4_raw.
  const std::string path = dir.file("lz4hadoop.parquet");
  ChunkFooter chunk;
  chunk.compression = arrow::Compression::LZ4_HADOOP;
  vxtest::info::writeFooterOnly(
      path,
      parquet::schema::GroupNode::Make("schema", parquet::Repetition::REQUIRED,
                                       {vxtest::info::int64Node("a")}),
      5, {chunk});
  EXPECT_THAT(infoOf(path).getVariableCompression(), ElementsAre("lz4_hadoop"));
}

TEST_F(ParquetInfoTest, EncodingFromArrowWriterSettings) {
  const auto table = vxtest::info::repetitiveTable(100);
  using Builder = parquet::WriterProperties::Builder;
  // Dictionary pages, also after falling back to PLAIN once the dictionary grew too large.
  EXPECT_THAT(infoOf(write(table)).getVariableEncoding(), ElementsAre("dictionary"));
  EXPECT_THAT(
      infoOf(write(table, Builder().dictionary_pagesize_limit(8)->build())).getVariableEncoding(),
      ElementsAre("dictionary"));
  // [PLAIN, RLE], with V1 and V2 data pages alike.
  EXPECT_THAT(infoOf(write(table, Builder().disable_dictionary()->build())).getVariableEncoding(),
              ElementsAre("plain"));
  EXPECT_THAT(infoOf(write(table, Builder()
                                      .disable_dictionary()
                                      ->data_page_version(parquet::ParquetDataPageVersion::V2)
                                      ->build()))
                  .getVariableEncoding(),
              ElementsAre("plain"));
  // [DELTA_BINARY_PACKED, RLE]: no PLAIN at all.
  EXPECT_THAT(infoOf(write(table, Builder()
                                      .disable_dictionary()
                                      ->encoding(parquet::Encoding::DELTA_BINARY_PACKED)
                                      ->build()))
                  .getVariableEncoding(),
              ElementsAre(""));
}

TEST_F(ParquetInfoTest, EncodingRuleOnEncodingListsArrowDoesNotWrite) {
  if (ARROW_VERSION_MAJOR >= 19) {
    GTEST_SKIP() << "this Parquet builds a chunk's encoding list from page statistics, which a "
                    "footer made without pages lacks";
  }
  // A fallback recorded without a dictionary page lists [<data encoding>, RLE, PLAIN].
  ChunkFooter plainPlusTwo;  // [PLAIN, RLE, PLAIN]
  plainPlusTwo.dictionaryFallback = true;
  ChunkFooter deltaRlePlain;  // [DELTA_BINARY_PACKED, RLE, PLAIN]
  deltaRlePlain.dictionaryFallback = true;
  deltaRlePlain.encoding = parquet::Encoding::DELTA_BINARY_PACKED;
  ChunkFooter plainRle;  // [PLAIN, RLE]
  ChunkFooter dictionary;
  dictionary.hasDictionary = true;
  dictionary.dictionaryFallback = true;
  const auto root = parquet::schema::GroupNode::Make(
      "schema", parquet::Repetition::REQUIRED,
      {vxtest::info::int64Node("a"), vxtest::info::int64Node("b"), vxtest::info::int64Node("c"),
       vxtest::info::int64Node("d")});
  const std::string path = dir.file("encodings.parquet");
  vxtest::info::writeFooterOnly(path, root, 4, {plainPlusTwo, deltaRlePlain, plainRle, dictionary});

  const ParquetInfo info = infoOf(path);
  const auto chunk = [&](int i) { return info.getMetadata()->RowGroup(0)->ColumnChunk(i); };
  ASSERT_EQ(chunk(0)->encodings().size(), 3u);
  ASSERT_EQ(chunk(1)->encodings().size(), 3u);
  ASSERT_FALSE(chunk(1)->has_dictionary_page());
  ASSERT_EQ(chunk(2)->encodings().size(), 2u);
  EXPECT_THAT(info.getVariableEncoding(), ElementsAre("", "", "plain", "dictionary"));
}

TEST_F(ParquetInfoTest, OnlyTheFirstRowGroupDecidesCompressionAndEncoding) {
  if (ARROW_VERSION_MAJOR >= 19) {
    GTEST_SKIP() << "this Parquet builds a chunk's encoding list from page statistics, which a "
                    "footer made without pages lacks";
  }
  ChunkFooter plain;
  ChunkFooter dictionary;
  dictionary.hasDictionary = true;
  const std::string path = dir.file("two.parquet");
  vxtest::info::writeFooterOnly(
      path,
      parquet::schema::GroupNode::Make("schema", parquet::Repetition::REQUIRED,
                                       {vxtest::info::int64Node("a")}),
      {{2, {plain}}, {2, {dictionary}}});
  EXPECT_THAT(infoOf(path).getVariableEncoding(), ElementsAre("plain"));
}

TEST_F(ParquetInfoTest, NestedVariablesReportTheirFirstLeafAndTopLevelAnnotation) {
  const auto table = arrow::Table::Make(
      arrow::schema({arrow::field("l", arrow::list(arrow::int32())),
                     arrow::field("m", arrow::map(arrow::utf8(), arrow::float64())),
                     arrow::field("s", arrow::struct_({arrow::field("a", arrow::boolean()),
                                                       arrow::field("b", arrow::utf8())}))}),
      {vxtest::arrayFromJSON(arrow::list(arrow::int32()), "[[1, 2], [], null]"),
       vxtest::arrayFromJSON(arrow::map(arrow::utf8(), arrow::float64()),
                             R"([[["k", 1.5]], [], null])"),
       vxtest::arrayFromJSON(
           arrow::struct_({arrow::field("a", arrow::boolean()), arrow::field("b", arrow::utf8())}),
           R"([{"a": true, "b": "x"}, null, {"a": false, "b": null}])")});
  const auto path = write(table, parquet::WriterProperties::Builder()
                                     .compression("m.key_value.key", arrow::Compression::SNAPPY)
                                     ->compression("s.b", arrow::Compression::SNAPPY)
                                     ->build());
  const ParquetInfo info = infoOf(path);

  EXPECT_THAT(info.getParquetPhysicalTypes(), ElementsAre("INT32", "BYTE_ARRAY", "BOOLEAN"));
  EXPECT_THAT(info.getParquetConvertedTypes(), ElementsAre("LIST", "MAP", "NONE"));
  EXPECT_THAT(info.getParquetLogicalTypes(), ElementsAre("List", "Map", "None"));
  EXPECT_THAT(info.getVariableCompression(), ElementsAre("uncompressed", "snappy", "uncompressed"));
  // Booleans are never dictionary-encoded: the struct's first leaf "s.a" decides.
  EXPECT_THAT(info.getVariableEncoding(), ElementsAre("dictionary", "dictionary", "plain"));
  EXPECT_THAT(info.getVariableTypes(), ElementsAre("cell", "cell", "table"));
  EXPECT_THAT(info.getArrowTypes(),
              ElementsAre("list<" + vxtest::kListElementName + ": int32>",
                          "map<string, double ('m')>", "struct<a: bool, b: string>"));
}

TEST_F(ParquetInfoTest, VariableWithoutLeafHasEmptyPhysicalCompressionAndEncoding) {
  if (ARROW_VERSION_MAJOR >= 19) {
    GTEST_SKIP() << "this Parquet builds a chunk's encoding list from page statistics, which a "
                    "footer made without pages lacks";
  }
  // An empty group has no leaf; Arrow reads it as an empty struct.
  const auto root = parquet::schema::GroupNode::Make(
      "schema", parquet::Repetition::REQUIRED,
      {vxtest::info::int64Node("a"),
       parquet::schema::GroupNode::Make("nothing", parquet::Repetition::OPTIONAL, {}),
       vxtest::info::int64Node("b")});
  const std::string path = dir.file("leafless.parquet");
  vxtest::info::writeFooterOnly(path, root, 2, {ChunkFooter{}, ChunkFooter{}});
  const ParquetInfo info = infoOf(path);

  EXPECT_THAT(info.getVariableNames(), ElementsAre(u"a", u"nothing", u"b"));
  EXPECT_THAT(info.getParquetPhysicalTypes(), ElementsAre("INT64", "", "INT64"));
  EXPECT_THAT(info.getVariableCompression(), ElementsAre("uncompressed", "", "uncompressed"));
  EXPECT_THAT(info.getVariableEncoding(), ElementsAre("plain", "", "plain"));
  EXPECT_THAT(info.getParquetConvertedTypes(), ElementsAre("NONE", "NONE", "NONE"));
  EXPECT_EQ(info.getArrowTypes()[1], "struct<>");
}

TEST_F(ParquetInfoTest, FilenameIsTheNameTheAdapterReports) {
  const std::string path = vxtest::writeSimpleFile(dir, "iri.parquet", 3, 3);
  const ParquetInfo info(vxtest::u16("FILE://" + path));
  EXPECT_EQ(vxtest::u8(info.getFilename()), path);
  EXPECT_EQ(info.getNumRowGroups(), 1);
}

// Failures: whatever breaks, the caller sees InternalInvalidRead with the name it gave.
class ParquetInfoFailure : public ParquetInfoTest {
 protected:
  // Expects the error and returns its second argument, the underlying failure's text.
  std::string expectInvalidRead(const std::u16string& name) {
    const auto arguments = vxtest::expectHostError([&] { ParquetInfo info(name); }, kInvalidRead);
    if (!arguments) return "";
    EXPECT_EQ(arguments->size(), 2u);
    EXPECT_EQ(std::get<std::u16string>(arguments->at(0)), name);
    const std::string detail = vxtest::u8(std::get<std::u16string>(arguments->at(1)));
    EXPECT_FALSE(detail.empty());
    return detail;
  }
};

TEST_F(ParquetInfoFailure, EveryBrokenInputIsAnInvalidReadWithTheGivenName) {
  const std::string bytes = vxtest::readBytes(vxtest::writeSimpleFile(dir, "whole.parquet", 20, 5));
  vxtest::writeBytes(dir.file("empty.parquet"), "");
  vxtest::writeBytes(dir.file("notes.txt"), "this is not a parquet file, only some words\n");
  // Keeps the trailing length and magic but drops the start of the footer they describe.
  vxtest::writeBytes(dir.file("cut.parquet"),
                     "PAR1" + bytes.substr(bytes.size() - 40, 32) + bytes.substr(bytes.size() - 8));
  vxtest::writeBytes(dir.file("half.parquet"), bytes.substr(0, bytes.size() / 2));
  // A schema without leaves gives row groups without column chunks: the row-group offset has
  // no first chunk to look at, and Parquet throws its own exception.
  const auto root = parquet::schema::GroupNode::Make(
      "schema", parquet::Repetition::REQUIRED,
      {parquet::schema::GroupNode::Make("nothing", parquet::Repetition::OPTIONAL, {})});
  vxtest::info::writeFooterOnly(dir.file("noleaves.parquet"), root, 1, {});

  const std::pair<std::u16string, std::string> cases[] = {
      {dir.ufile("missing.parquet"), ""},
      {vxtest::u16(dir.path()), ""},
      {dir.ufile("empty.parquet"), "size is 0 bytes"},
      {dir.ufile("notes.txt"), "magic bytes"},
      {dir.ufile("cut.parquet"), ""},
      {dir.ufile("half.parquet"), ""},
      {dir.ufile("noleaves.parquet"), "requested metadata for column"},
      {dir.ufile("f\xC3\xBCr \xE2\x82\xAC.parquet"), ""},
  };
  for (const auto& [name, detail] : cases) {
    SCOPED_TRACE(vxtest::u8(name));
    EXPECT_THAT(expectInvalidRead(name), HasSubstr(detail));
  }
}

// Trace records, read back from the logger.
TEST_F(ParquetInfoTest, TracesConstructionAndEverySetterInOrder) {
  const std::string path = vxtest::writeSimpleFile(dir, "trace.parquet", 4, 2);
  vxtest::LogCapture capture;
  { const ParquetInfo info = infoOf(path); }

  std::vector<std::string> entered;
  int depthOfConstructor = -1;
  for (const auto& record : capture.records()) {
    if (record.severity != severity::kEntry) continue;
    const auto at = record.text.find("ParquetInfo::");
    if (at == std::string::npos) continue;
    const std::string name = record.text.substr(at + 13, record.text.find('(', at) - at - 13);
    if (name == "ParquetInfo") depthOfConstructor = record.indent;
    if (name.rfind("set", 0) == 0) entered.push_back(name);
  }
  EXPECT_THAT(
      entered,
      ElementsAre("setVersion", "setArrowSchema", "setNumRowGroups", "setVariableNames",
                  "setVariableTypes", "setArrowTypes", "setRowGroupHeights", "setRowGroupOffsets",
                  "setParquetPhysicalTypes", "setParquetConvertedTypes", "setParquetLogicalTypes",
                  "setVariableCompression", "setVariableEncoding"));
  EXPECT_GE(depthOfConstructor, 0);
  EXPECT_TRUE(capture.contains(" filename=" + path));
  EXPECT_TRUE(capture.contains("getMetadata"));
  EXPECT_TRUE(capture.contains("getSchemaManifest"));
  EXPECT_FALSE(capture.contains("[throw]"));
  EXPECT_FALSE(capture.contains("Exception caught"));
}

TEST_F(ParquetInfoTest, FailureLogsTheCaughtException) {
  vxtest::writeBytes(dir.file("bad.parquet"), "not parquet at all");
  vxtest::LogCapture capture;
  EXPECT_THROW(ParquetInfo(dir.ufile("bad.parquet")), std::exception);

  const auto records = capture.records();
  const auto caught = std::find_if(records.begin(), records.end(), [](const auto& r) {
    return r.text.rfind("Exception caught: ", 0) == 0;
  });
  ASSERT_NE(caught, records.end());
  EXPECT_EQ(caught->severity, severity::kError);
  EXPECT_THAT(caught->text, HasSubstr("InternalInvalidRead"));
}

}  // namespace
