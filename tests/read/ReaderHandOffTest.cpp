// The reader hands each Arrow table over to the converter, which may keep Arrow's buffers
// as host arrays. The host tables must equal a copying conversion of the same data and stay
// valid after the reader and its Arrow objects are gone.
#include <arrow/api.h>
#include <arrow/io/file.h>
#include <gtest/gtest.h>
#include <parquet/arrow/reader.h>

#include "host/converter/Converter.hpp"
#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::read::RowGroupParquetReader;
using vxtest::u16;

// Fixed-width columns with and without nulls, text and times, in three row groups.
std::shared_ptr<arrow::Table> mixedTable() {
  const auto schema =
      arrow::schema({arrow::field("d", arrow::float64()), arrow::field("i", arrow::int32()),
                     arrow::field("n", arrow::int64()), arrow::field("s", arrow::utf8()),
                     arrow::field("t", arrow::timestamp(arrow::TimeUnit::MILLI, "UTC"))});
  return arrow::Table::Make(
      schema, {vxtest::arrayFromJSON(arrow::float64(), "[0.5, -1, 2, 3.25, 4, 5, 6]"),
               vxtest::arrayFromJSON(arrow::int32(), "[1, 2, 3, 4, 5, 6, 7]"),
               vxtest::arrayFromJSON(arrow::int64(), "[1, null, 3, 4, null, 6, 7]"),
               vxtest::arrayFromJSON(arrow::utf8(), R"(["a", "b\u00e9", null, "", "d", "e", "f"])"),
               vxtest::arrayFromJSON(schema->field(4)->type(), "[1, 2, 3, null, 5, 6, 7]")});
}

// Arrow's own read of the file, converted by copying.
matrix::unique_array copiedRead(const std::string& path, int rowGroup = -1) {
  std::unique_ptr<parquet::arrow::FileReader> reader;
  EXPECT_TRUE(
      vantro::io::parquet::core::common::compat::OpenFile(
          arrow::io::ReadableFile::Open(path).ValueOrDie(), arrow::default_memory_pool(), &reader)
          .ok());
  std::shared_ptr<arrow::Table> table;
  EXPECT_TRUE((rowGroup < 0 ? vantro::io::parquet::core::common::compat::ReadTable(*reader, &table)
                            : vantro::io::parquet::core::common::compat::ReadRowGroup(
                                  *reader, rowGroup, &table))
                  .ok());
  auto host = vantro::io::arrow::core::to_vantro(table);
  EXPECT_TRUE(host.ok()) << host.status().ToString();
  return std::move(host).ValueOrDie();
}

TEST(ReaderHandOff, HostTablesMatchACopyAndOutliveTheReader) {
  vxtest::TempDir dir;
  const std::string path = dir.file("mixed.parquet");
  vxtest::writeParquet(path, mixedTable(), 3);

  matrix::unique_array whole;
  std::vector<matrix::unique_array> groups;
  {
    RowGroupParquetReader reader(u16(path), std::vector<double>{});
    whole = reader.readFullFile();
    RowGroupParquetReader each(u16(path), std::vector<double>{1, 2, 3});
    while (each.hasdata()) groups.push_back(each.read());
  }
  EXPECT_EQ(vxtest::read::hostDifference(whole.get(), copiedRead(path).get()), "");
  ASSERT_EQ(groups.size(), 3u);
  for (int g = 0; g < 3; ++g) {
    EXPECT_EQ(vxtest::read::hostDifference(groups[g].get(), copiedRead(path, g).get()), "") << g;
  }
}

}  // namespace
