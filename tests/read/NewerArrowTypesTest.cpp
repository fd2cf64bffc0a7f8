// On the newest Arrow's build: files holding types Arrow 11 does not know read as the host
// values of their older equivalents.
#include <arrow/api.h>
#include <arrow/util/config.h>
#include <gtest/gtest.h>
#include <parquet/properties.h>

#include "host/converter/Converter.hpp"
#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::read::RowGroupParquetReader;

TEST(NewerArrowTypes, ReadAsTheirOlderEquivalents) {
#if ARROW_VERSION_MAJOR < 19
  GTEST_SKIP() << "Arrow " << ARROW_VERSION_STRING << " has none of these types";
#else
  const auto column = [](const std::shared_ptr<arrow::DataType>& type, const char* json) {
    return vxtest::arrayFromJSON(type, json);
  };
  const char* texts = R"(["a", null, "long enough not to be inlined in a view"])";
  arrow::HalfFloatBuilder halves;
  ASSERT_TRUE(halves.Append(15360).ok() && halves.AppendNull().ok() && halves.Append(0).ok());
  const auto halfColumn = halves.Finish().ValueOrDie();
  const auto newer = arrow::Table::Make(
      arrow::schema({arrow::field("h", arrow::float16()), arrow::field("s", arrow::utf8_view()),
                     arrow::field("d32", arrow::decimal32(7, 2)),
                     arrow::field("d64", arrow::decimal64(15, 3)),
                     arrow::field("delta", arrow::utf8())}),
      {halfColumn, column(arrow::utf8_view(), texts),
       column(arrow::decimal32(7, 2), R"(["1.25", null, "-3.50"])"),
       column(arrow::decimal64(15, 3), R"(["123456.789", "0.001", null])"),
       column(arrow::utf8(), texts)});
  const auto older = arrow::Table::Make(
      arrow::schema({arrow::field("h", arrow::float32()), arrow::field("s", arrow::utf8()),
                     arrow::field("d32", arrow::decimal128(7, 2)),
                     arrow::field("d64", arrow::decimal128(15, 3)),
                     arrow::field("delta", arrow::utf8())}),
      {column(arrow::float32(), "[1, null, 0]"), column(arrow::utf8(), texts),
       column(arrow::decimal128(7, 2), R"(["1.25", null, "-3.50"])"),
       column(arrow::decimal128(15, 3), R"(["123456.789", "0.001", null])"),
       column(arrow::utf8(), texts)});

  vxtest::TempDir dir;
  const std::string path = dir.file("newer.parquet");
  // Text pages in DELTA_LENGTH_BYTE_ARRAY, which Arrow 11 cannot decode.
  const auto properties = parquet::WriterProperties::Builder()
                              .disable_dictionary("delta")
                              ->encoding("delta", parquet::Encoding::DELTA_LENGTH_BYTE_ARRAY)
                              ->build();
  vxtest::writeParquet(path, newer, 1024, properties, vxtest::read::storeSchema());

  RowGroupParquetReader reader(vxtest::u16(path), std::vector<double>{});
  EXPECT_EQ(reader.getVariableTypes(),
            (std::vector<std::string>{"single", "string", "double", "double", "string"}));
  const auto read = reader.readFullFile();
  const auto expected = vantro::io::arrow::core::to_vantro(older).ValueOrDie();
  EXPECT_EQ(vxtest::read::hostDifference(read.get(), expected.get()), "");
#endif
}

}  // namespace
