// Readable type descriptions, variable names and host type names of a schema's top-level
// fields.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <arrow/api.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/info/TypeDescriptions.hpp"

namespace {

namespace info = vantro::io::parquet::core::info;
using testing::ElementsAre;
using testing::IsEmpty;

// The description of one type, through a one-field schema.
std::string describe(const std::shared_ptr<arrow::DataType>& type) {
  const auto descriptions = info::parquet_types(arrow::schema({arrow::field("f", type)}));
  EXPECT_EQ(descriptions.size(), 1u);
  return descriptions.empty() ? std::string() : vxtest::u8(descriptions[0]);
}

struct Described {
  std::shared_ptr<arrow::DataType> type;
  std::string text;
};

void expectDescriptions(const std::vector<Described>& cases) {
  for (const auto& c : cases) EXPECT_EQ(describe(c.type), c.text) << c.type->ToString();
}

// Decimals never take the fixed-length form; nested types recurse; types without a description
// are unknown at any depth.
TEST(ParquetTypes, EveryArrowTypeHasItsDescription) {
  expectDescriptions({
      {arrow::int8(), "Int8"},
      {arrow::int16(), "Int16"},
      {arrow::int32(), "Int32"},
      {arrow::int64(), "Int64"},
      {arrow::uint8(), "UInt8"},
      {arrow::uint16(), "UInt16"},
      {arrow::uint32(), "UInt32"},
      {arrow::uint64(), "UInt64"},
      {arrow::float16(), "Float16"},
      {arrow::float32(), "Float32"},
      {arrow::float64(), "Float64"},
      {arrow::decimal128(10, 2), "Decimal128[precision=10, scale=2]"},
      {arrow::decimal256(76, 0), "Decimal256[precision=76, scale=0]"},
      {arrow::decimal128(5, -3), "Decimal128[precision=5, scale=-3]"},
      {arrow::fixed_size_binary(16), "FixedLenByteArray[length=16]"},
      {arrow::date32(), "Date32"},
      {arrow::date64(), "Date64"},
      {arrow::time32(arrow::TimeUnit::SECOND), "Time32[unit=seconds]"},
      {arrow::time32(arrow::TimeUnit::MILLI), "Time32[unit=milliseconds]"},
      {arrow::time64(arrow::TimeUnit::MICRO), "Time64[unit=microseconds]"},
      {arrow::time64(arrow::TimeUnit::NANO), "Time64[unit=nanoseconds]"},
      {arrow::timestamp(arrow::TimeUnit::MILLI), "Timestamp[unit=milliseconds]"},
      {arrow::timestamp(arrow::TimeUnit::SECOND, ""), "Timestamp[unit=seconds]"},
      {arrow::timestamp(arrow::TimeUnit::MICRO, "UTC"),
       "Timestamp[unit=microseconds, timezone=UTC]"},
      // The zone text is passed through unchanged, offsets and non-ASCII names included.
      {arrow::timestamp(arrow::TimeUnit::NANO, "+05:30"),
       "Timestamp[unit=nanoseconds, timezone=+05:30]"},
      {arrow::timestamp(arrow::TimeUnit::SECOND, "Europe/Zürich"),
       "Timestamp[unit=seconds, timezone=Europe/Zürich]"},
      {arrow::utf8(), "String"},
      {arrow::large_utf8(), "String"},
      {arrow::binary(), "ByteArray"},
      {arrow::large_binary(), "ByteArray"},
      {arrow::boolean(), "Boolean"},
      {arrow::null(), "Null"},
      {arrow::dictionary(arrow::int8(), arrow::utf8()), "Dictionary<index=Int8, value=String>"},
      {arrow::dictionary(arrow::int32(), arrow::float64()),
       "Dictionary<index=Int32, value=Float64>"},
      {arrow::list(arrow::int32()), "List<Int32>"},
      {arrow::large_list(arrow::int32()), "List<Int32>"},
      {arrow::map(arrow::utf8(), arrow::list(arrow::float64())),
       "Map<key=String, value=List<Float64>>"},
      {arrow::struct_({arrow::field("x", arrow::boolean())}), "Struct<x: Boolean>"},
      {arrow::struct_({}), "Struct<>"},
      {arrow::list(
           arrow::struct_({arrow::field("a", arrow::int64()), arrow::field("b", arrow::utf8())})),
       "List<Struct<a: Int64, b: String>>"},
      {arrow::struct_({arrow::field(
           "inner",
           arrow::struct_({arrow::field("t", arrow::timestamp(arrow::TimeUnit::MILLI, "UTC"))}))}),
       "Struct<inner: Struct<t: Timestamp[unit=milliseconds, timezone=UTC]>>"},
      {arrow::month_interval(), "Unknown"},
      {arrow::day_time_interval(), "Unknown"},
      {arrow::month_day_nano_interval(), "Unknown"},
      {arrow::duration(arrow::TimeUnit::SECOND), "Unknown"},
      {arrow::fixed_size_list(arrow::int32(), 3), "Unknown"},
      {arrow::dense_union({arrow::field("a", arrow::int8())}), "Unknown"},
      {arrow::sparse_union({arrow::field("a", arrow::int8())}), "Unknown"},
      {arrow::list(arrow::month_interval()), "List<Unknown>"},
      {arrow::map(arrow::utf8(), arrow::duration(arrow::TimeUnit::NANO)),
       "Map<key=String, value=Unknown>"},
  });
}

TEST(VariableNames, TopLevelNamesAsUtf16) {
  const auto schema = arrow::schema(
      {arrow::field("plain", arrow::int8()), arrow::field("Größe €", arrow::utf8()),
       arrow::field("", arrow::int8()),
       arrow::field("outer", arrow::struct_({arrow::field("inner", arrow::int8())}))});
  EXPECT_THAT(info::getVariableNames(schema),
              ElementsAre(u"plain", u"Gr\u00f6\u00dfe \u20ac", u"", u"outer"));
}

TEST(EmptySchema, EveryListIsEmpty) {
  const auto schema = arrow::schema(arrow::FieldVector{});
  EXPECT_THAT(info::parquet_types(schema), IsEmpty());
  EXPECT_THAT(info::getVariableNames(schema), IsEmpty());
  EXPECT_THAT(info::getVariableTypes(schema), IsEmpty());
}

TEST(VariableTypes, HostNamesAndEmptyForUnsupportedTypes) {
  const auto schema = arrow::schema({
      arrow::field("b", arrow::boolean()),
      arrow::field("i", arrow::int16()),
      arrow::field("d", arrow::float64()),
      arrow::field("s", arrow::utf8()),
      arrow::field("t", arrow::timestamp(arrow::TimeUnit::MICRO, "UTC")),
      arrow::field("c", arrow::dictionary(arrow::int32(), arrow::utf8())),
      arrow::field("l", arrow::list(arrow::int32())),
      arrow::field("r", arrow::struct_({arrow::field("x", arrow::int8())})),
      arrow::field("iv", arrow::month_interval()),
      arrow::field("fsl", arrow::fixed_size_list(arrow::int8(), 2)),
  });
  EXPECT_THAT(info::getVariableTypes(schema),
              ElementsAre("logical", "int16", "double", "string", "datetime", "categorical", "cell",
                          "table", "", ""));
  // The descriptions still cover what the host cannot convert.
  const auto descriptions = info::parquet_types(schema);
  EXPECT_EQ(descriptions[8], u"Unknown");
  EXPECT_EQ(descriptions[9], u"Unknown");
}

}  // namespace
