// Which columns skip Parquet's dictionary when the host lets the writer choose, and what the
// written file holds then.
#include <arrow/api.h>
#include <gtest/gtest.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>

#include "host/converter/DictionaryChoice.hpp"
#include "host/services/Services.hpp"
#include "host/unicode/ustring.hpp"
#include "tests/converter/ConverterTestUtil.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace vxtest::converter {
namespace {

struct ChoiceCase {
  std::string name;
  std::shared_ptr<arrow::ChunkedArray> column;
  bool mayProfit;
};

std::shared_ptr<arrow::ChunkedArray> chunks(arrow::ArrayVector arrays) {
  return std::make_shared<arrow::ChunkedArray>(std::move(arrays));
}

std::vector<ChoiceCase> choiceCases() {
  const auto int64s = [](const std::string& values) { return json(arrow::int64(), values); };
  return {
      {"Logicals", chunks({json(arrow::boolean(), "[true, false, true, true]")}), false},
      {"DistinctIntegers", chunks({int64s("[1, 2, 3, 4]")}), false},
      {"RepeatedIntegers", chunks({int64s("[1, 1, 2, 2, 1]")}), true},
      {"HalfDistinctMayStillPay", chunks({int64s("[1, 1, 2, 2]")}), true},
      {"SliceSamplesItsOwnValues", chunks({int64s("[5, 5, 5, 5, 1, 2, 3, 4]")->Slice(4)}), false},
      {"ChunksTogether", chunks({int64s("[1, 1]"), int64s("[2, 3, 4, 5, 6]")}), false},
      {"NullsAreNotValues", chunks({int64s("[null, null, null, null, 1, 2]")}), false},
      {"OnlyNulls", chunks({int64s("[null, null]")}), true},
      {"Empty", chunks({int64s("[]")}), true},
      {"DistinctDoubles", chunks({json(arrow::float64(), "[0.5, 1.5, 2.5]")}), false},
      {"DistinctTexts", chunks({json(arrow::utf8(), R"(["a", "b", "c"])")}), false},
      {"RepeatedTexts", chunks({json(arrow::utf8(), R"(["a", "b", "a", "b", "a"])")}), true},
      {"DistinctLargeBinary", chunks({json(arrow::large_binary(), R"(["a", "b"])")}), false},
      {"DistinctTimestamps", chunks({json(arrow::timestamp(arrow::TimeUnit::MICRO), "[1, 2, 3]")}),
       false},
      {"NestedKeepsItsDictionary", chunks({json(arrow::list(arrow::int64()), "[[1], [2]]")}), true},
      {"DictionaryTypedKeepsItsDictionary",
       chunks({json(arrow::dictionary(arrow::int8(), arrow::utf8()), R"(["a", "b"])")}), true},
  };
}

TEST(DictionaryChoice, DistinctFlatValuesAndLogicalsCannotProfit) {
  for (const auto& test : choiceCases()) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(core::DictionaryMayProfit(*test.column), test.mayProfit);
  }
}

// Column i of the file has a dictionary page in its first row group.
std::vector<bool> dictionaryPages(const std::string& path) {
  auto metadata = parquet::ParquetFileReader::OpenFile(path)->metadata();
  std::vector<bool> pages;
  for (int c = 0; c < metadata->num_columns(); ++c) {
    pages.push_back(metadata->RowGroup(0)->ColumnChunk(c)->has_dictionary_page());
  }
  return pages;
}

TEST(DictionaryChoice, TheWriterSkipsOnlyUnprofitableDictionariesWhenTheHostAsks) {
  auto table = arrow::Table::Make(
      arrow::schema({arrow::field("id", arrow::int64()), arrow::field("city", arrow::utf8())}),
      {json(arrow::int64(), "[1, 2, 3, 4, 5, 6]"),
       json(arrow::utf8(), R"(["Oslo", "Lima", "Oslo", "Lima", "Oslo", "Lima"])")});
  const auto host = toHost(table);
  ASSERT_NE(host, nullptr);
  TempDir dir;
  for (const bool choose : {false, true}) {
    SCOPED_TRACE(choose ? "chosen per column" : "every column");
    foundation::services::setChooseDictionaryPerColumn(choose);
    const std::string path = dir.path() + (choose ? "/chosen.parquet" : "/every.parquet");
    vantro::io::parquet::core::write::ParquetWriter writer(
        foundation::unicode::utf8_to_ustring(path));
    writer.setVariableNames({u"id", u"city"});
    writer.write(host.get());
    writer.close();
    foundation::services::setChooseDictionaryPerColumn(false);
    EXPECT_EQ(dictionaryPages(path), (std::vector<bool>{!choose, true}));
    // The values are the same either way.
    auto back = parquet::ParquetFileReader::OpenFile(path)->metadata()->num_rows();
    EXPECT_EQ(back, 6);
  }
}

}  // namespace
}  // namespace vxtest::converter
