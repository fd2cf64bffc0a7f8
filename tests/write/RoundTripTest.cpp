// Files written from host values read back equal to what was written, for every host type, and
// the per-variable options reach every leaf column of nested variables.
#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"
#include "tests/write/WriteTestUtil.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace {

using vantro::io::parquet::core::write::ParquetWriter;
using vxtest::arrayFromJSON;
using vxtest::u16;
using namespace vxtest::write;

std::shared_ptr<arrow::Array> dictionaryArray(const std::string& indices,
                                              const std::string& values) {
  const auto type = arrow::dictionary(arrow::int32(), arrow::utf8());
  return arrow::DictionaryArray::FromArrays(type, arrayFromJSON(arrow::int32(), indices),
                                            arrayFromJSON(arrow::utf8(), values))
      .ValueOrDie();
}

struct TypeCase {
  std::string name;
  std::shared_ptr<arrow::Array> values;
};

std::vector<TypeCase> typeCases() {
  const auto pointType =
      arrow::struct_({arrow::field("x", arrow::float64()), arrow::field("y", arrow::utf8())});
  const auto mapType = arrow::map(arrow::utf8(), arrow::int64());
  std::vector<TypeCase> cases = {
      {"Logical", arrayFromJSON(arrow::boolean(), "[true, false, true]")},
      {"LogicalNulls", arrayFromJSON(arrow::boolean(), "[true, null, false]")},
      {"Double", arrayFromJSON(arrow::float64(), "[1.5, -0.0, 1e300]")},
      {"DoubleNulls", arrayFromJSON(arrow::float64(), "[1.5, null, 3]")},
      {"Single", arrayFromJSON(arrow::float32(), "[1.5, 2, 3]")},
      {"SingleNulls", arrayFromJSON(arrow::float32(), "[null, 2, 3]")},
      {"String", arrayFromJSON(arrow::utf8(), R"(["a", "h\u00e9llo", "\u65e5\u672c"])")},
      {"StringNulls", arrayFromJSON(arrow::utf8(), R"(["a", null, ""])")},
      {"Binary", arrayFromJSON(arrow::binary(), R"(["ab", "", "c"])")},
      {"BinaryNulls", arrayFromJSON(arrow::binary(), R"(["ab", null, ""])")},
      {"Date", arrayFromJSON(arrow::date32(), "[0, 19000, -1]")},
      {"TimestampMs", arrayFromJSON(arrow::timestamp(arrow::TimeUnit::MILLI), "[0, 1, 2]")},
      {"TimestampNsUtcNulls",
       arrayFromJSON(arrow::timestamp(arrow::TimeUnit::NANO, "UTC"), "[1, null, 3]")},
      {"Duration", arrayFromJSON(arrow::duration(arrow::TimeUnit::SECOND), "[1, 2, 3]")},
      {"DurationNulls", arrayFromJSON(arrow::duration(arrow::TimeUnit::MICRO), "[null, 2, 3]")},
      {"Categorical", dictionaryArray("[0, 1, 0]", R"(["lo", "hi"])")},
      {"CategoricalNulls", dictionaryArray("[0, null, 1]", R"(["lo", "hi"])")},
      {"List", arrayFromJSON(arrow::list(arrow::int64()), "[[1, 2], [], [3]]")},
      {"ListNulls", arrayFromJSON(arrow::list(arrow::float64()), "[[1], null, [null, 2]]")},
      {"Struct", arrayFromJSON(pointType, R"([{"x": 1, "y": "a"}, {"x": 2, "y": "b"},
                                             {"x": 3, "y": "c"}])")},
      {"StructNulls", arrayFromJSON(pointType, R"([{"x": 1, "y": null}, {"x": null, "y": "b"},
                                                  {"x": 3, "y": "c"}])")},
      {"Map", arrayFromJSON(mapType, R"([[["a", 1]], [], [["b", 2], ["c", 3]]])")},
  };
  for (const auto& type : {arrow::int8(), arrow::uint8(), arrow::int16(), arrow::uint16(),
                           arrow::int32(), arrow::uint32(), arrow::int64(), arrow::uint64()}) {
    cases.push_back({type->ToString(), arrayFromJSON(type, "[0, 1, 100]")});
    cases.push_back({type->ToString() + "Nulls", arrayFromJSON(type, "[0, null, 100]")});
  }
  return cases;
}

// Writes a one-variable host table through ParquetWriter and returns what the writer was given
// as an Arrow table (the converter's view of the host table).
std::shared_ptr<arrow::Table> writeHostColumn(const std::string& path,
                                              const std::shared_ptr<arrow::Array>& values,
                                              bool rowGrouped) {
  const auto host = hostTable(makeTable({arrow::field("v", values->type())}, {values}));
  if (!host) return nullptr;
  auto given = vantro::io::arrow::core::to_arrow_table(host.get());
  if (!given.ok()) {
    ADD_FAILURE() << "host value does not convert back: " << given.status().ToString();
    return nullptr;
  }
  ParquetWriter writer(u16(path));
  writer.setVariableNames({u"v"});
  if (rowGrouped) {
    const auto heights = hostDoubles({1, 2});
    writer.writeRowGroups(host.get(), heights.get());
  } else {
    writer.write(host.get());
  }
  writer.close();
  return *given;
}

class HostTypeRoundTrip : public ::testing::TestWithParam<TypeCase> {
 protected:
  void SetUp() override { matrix::setPrintWarnings(false); }
  void TearDown() override {
    matrix::takeWarnings();
    matrix::setPrintWarnings(true);
  }
  vxtest::TempDir dir;
};

TEST_P(HostTypeRoundTrip, ReadsBackWhatWasWritten) {
  for (const bool rowGrouped : {false, true}) {
    const std::string path = dir.file(rowGrouped ? "grouped.parquet" : "whole.parquet");
    const auto given = writeHostColumn(path, GetParam().values, rowGrouped);
    if (!given) return;
    const auto read = readBack(path);
    EXPECT_TRUE(read->Equals(*given)) << "rowGrouped=" << rowGrouped << "\nwritten:\n"
                                      << given->ToString() << "\nread:\n"
                                      << read->ToString();
    EXPECT_EQ(rowGroupHeights(path),
              rowGrouped ? (std::vector<int64_t>{1, 2}) : (std::vector<int64_t>{3}));
    // The file reads back into host values as well.
    EXPECT_TRUE(vantro::io::arrow::core::to_vantro(read).ok());
  }
}

INSTANTIATE_TEST_SUITE_P(Types, HostTypeRoundTrip, ::testing::ValuesIn(typeCases()),
                         [](const auto& info) { return info.param.name; });

// ---------------------------------------------------------------------------------------------
// Options in the written file

class WrittenOptions : public ::testing::Test {
 protected:
  // "a" list<int64>, "s" struct<x double, y string>, "m" map<string, int64>, "d" double.
  static std::shared_ptr<arrow::Table> nestedTable() {
    const auto pointType =
        arrow::struct_({arrow::field("x", arrow::float64()), arrow::field("y", arrow::utf8())});
    const auto mapType = arrow::map(arrow::utf8(), arrow::int64());
    return makeTable({arrow::field("a", arrow::list(arrow::int64())), arrow::field("s", pointType),
                      arrow::field("m", mapType), arrow::field("d", arrow::float64())},
                     {arrayFromJSON(arrow::list(arrow::int64()), "[[1, 2], [], [3]]"),
                      arrayFromJSON(pointType, R"([{"x": 1, "y": "p"}, {"x": 2, "y": "q"},
                                     {"x": 3, "y": "p"}])"),
                      arrayFromJSON(mapType, R"([[["k", 1]], [], [["k", 2], ["l", 3]]])"),
                      arrayFromJSON(arrow::float64(), "[1, 2, 1]")});
  }

  void write(const std::function<void(ParquetWriter&)>& configure) {
    const auto host = hostTable(nestedTable());
    ASSERT_TRUE(host);
    ParquetWriter writer(u16(path));
    writer.setVariableNames({u"a", u"s", u"m", u"d"});
    configure(writer);
    writer.write(host.get());
    writer.close();
  }

  static void setNestedLeafPaths(ParquetWriter& writer) {
    writer.setLeafColumnPaths({0, 1, 3, 5, 6}, {u"a.list.element", u"s.x", u"s.y",
                                                u"m.key_value.key", u"m.key_value.value", u"d"});
  }

  std::shared_ptr<parquet::ColumnChunkMetaData> chunk(int column) const {
    return footer(path)->RowGroup(0)->ColumnChunk(column);
  }

  bool dictionaryEncoded(int column) const {
    const auto encodings = chunk(column)->encodings();
    return std::find(encodings.begin(), encodings.end(), parquet::Encoding::RLE_DICTIONARY) !=
           encodings.end();
  }

  vxtest::TempDir dir;
  std::string path = dir.file("nested.parquet");
};

TEST_F(WrittenOptions, LeafPathsAreNamedAsParquetNamesThem) {
  write([](ParquetWriter&) {});
  EXPECT_EQ(leafPaths(path),
            (std::vector<std::string>{"a.list.element", "s.x", "s.y", "m.key_value.key",
                                      "m.key_value.value", "d"}));
  EXPECT_TRUE(readBack(path)->Equals(*nestedTable()));
}

TEST_F(WrittenOptions, NonCompliantListsKeepArrowsChildName) {
  write([](ParquetWriter& writer) { writer.setUseCompliantNestedTypes(false); });
  EXPECT_EQ(leafPaths(path)[0], "a.list.item");
}

TEST_F(WrittenOptions, DefaultsAreSnappyWithDictionaries) {
  write([](ParquetWriter&) {});
  for (int column = 0; column < 6; ++column) {
    EXPECT_EQ(chunk(column)->compression(), arrow::Compression::SNAPPY) << column;
    EXPECT_TRUE(dictionaryEncoded(column)) << column;
  }
  const auto metadata = footer(path);
  EXPECT_EQ(metadata->version(), parquet::ParquetVersion::PARQUET_2_6);
  ASSERT_NE(metadata->key_value_metadata(), nullptr);
  EXPECT_TRUE(metadata->key_value_metadata()->Contains("ARROW:schema"));
}

TEST_F(WrittenOptions, PerVariableOptionsReachEveryLeaf) {
  write([](ParquetWriter& writer) {
    setNestedLeafPaths(writer);
    writer.setVariableCompression({"zstd", "gzip", "brotli", "uncompressed"});
    writer.setVariableEncoding({"plain", "dictionary", "plain", "dictionary"});
  });
  const std::vector<arrow::Compression::type> codecs = {
      arrow::Compression::ZSTD,   arrow::Compression::GZIP,   arrow::Compression::GZIP,
      arrow::Compression::BROTLI, arrow::Compression::BROTLI, arrow::Compression::UNCOMPRESSED};
  const std::vector<bool> dictionaries = {false, true, true, false, false, true};
  for (int column = 0; column < 6; ++column) {
    EXPECT_EQ(chunk(column)->compression(), codecs[column]) << column;
    EXPECT_EQ(dictionaryEncoded(column), dictionaries[column]) << column;
    EXPECT_EQ(chunk(column)->has_dictionary_page(), dictionaries[column]) << column;
  }
  EXPECT_TRUE(readBack(path)->Equals(*nestedTable()));
}

TEST_F(WrittenOptions, EveryCodecWritesAReadableFile) {
  for (const std::string codec : {"brotli", "gzip", "lz4", "snappy", "uncompressed", "zstd"}) {
    write([&](ParquetWriter& writer) {
      setNestedLeafPaths(writer);
      writer.setVariableCompression({codec, codec, codec, codec});
    });
    EXPECT_TRUE(readBack(path)->Equals(*nestedTable())) << codec;
  }
}

TEST_F(WrittenOptions, VersionAndSchemaFlagsReachTheFile) {
  write([](ParquetWriter& writer) {
    writer.setVersion("1.0");
    writer.setStoreArrowSchema(false);
  });
  const auto metadata = footer(path);
  EXPECT_EQ(metadata->version(), parquet::ParquetVersion::PARQUET_1_0);
  EXPECT_TRUE(metadata->key_value_metadata() == nullptr ||
              !metadata->key_value_metadata()->Contains("ARROW:schema"));
}

TEST_F(WrittenOptions, CodecTheLibraryCannotWriteLeavesNoFile) {
  const auto host = hostTable(nestedTable());
  {
    ParquetWriter writer(u16(path));
    writer.setVariableNames({u"a", u"s", u"m", u"d"});
    setNestedLeafPaths(writer);
    writer.setVariableCompression({"lzo", "lzo", "lzo", "lzo"});
    vxtest::expectHostError([&] { writer.write(host.get()); },
                            "VANTRO:parquetio:write:InvalidWrite");
    // Parquet's writer gave up on the file: this writer is finished.
    const auto arguments = vxtest::expectHostError([&] { writer.write(host.get()); },
                                                   "VANTRO:parquetio:write:InvalidWrite");
    ASSERT_TRUE(arguments);
    EXPECT_EQ(arguments->at(1),
              foundation::core::except::MessageArgument(u"Invalid: Writer already closed"));
    vxtest::expectHostError([&] { writer.close(); }, "VANTRO:parquetio:write:InvalidWrite");
  }
  EXPECT_FALSE(vxtest::fileExists(path));
}

TEST_F(WrittenOptions, RowGroupedListOfCategoricalsWarnsAndStillWrites) {
  matrix::setPrintWarnings(false);
  matrix::takeWarnings();
  const auto categoricals =
      arrow::ListArray::FromArrays(*arrayFromJSON(arrow::int32(), "[0, 2, 2, 3]"),
                                   *dictionaryArray("[0, 1, 0]", R"(["lo", "hi"])"))
          .ValueOrDie();
  const auto host = hostTable(makeTable({arrow::field("c", categoricals->type())}, {categoricals}));
  ASSERT_TRUE(host);
  {
    ParquetWriter writer(u16(path));
    writer.setVariableNames({u"c"});
    const auto heights = hostDoubles({3});
    writer.writeRowGroups(host.get(), heights.get());
    writer.close();
  }
  const auto warnings = matrix::takeWarnings();
  matrix::setPrintWarnings(true);
  const auto given = vantro::io::arrow::core::to_arrow_table(host.get()).ValueOrDie();
  if (given->schema()->field(0)->type()->field(0)->type()->id() != arrow::Type::DICTIONARY) {
    GTEST_SKIP() << "the converter gives " << given->schema()->ToString();
  }
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_EQ(warnings[0].identifier, "VANTRO:parquetio:write:RowGroupedListOfDictionaries");
  EXPECT_EQ(warnings[0].arguments, std::vector<std::string>{"c"});
  EXPECT_TRUE(readBack(path)->Equals(*given));
}

}  // namespace
