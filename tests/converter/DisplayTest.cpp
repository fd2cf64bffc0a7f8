// Printed and JSON forms of host values.
#include <sstream>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <gtest/gtest.h>

#include "host/converter/Display.hpp"
#include "tests/converter/ConverterTestUtil.hpp"

namespace vxtest::converter {
namespace {

namespace display = vantro::io::arrow::core::display;
using arrow::field;

std::shared_ptr<arrow::Table> smallTable() {
  return arrow::Table::Make(
      arrow::schema({field("id", arrow::int64()), field("name", arrow::utf8()),
                     field("when", arrow::timestamp(arrow::TimeUnit::NANO, "UTC")),
                     field("x", arrow::float64())}),
      {json(arrow::int64(), "[1, 2, 3]"), json(arrow::utf8(), R"(["a\"b", null, "ç"])"),
       json(arrow::timestamp(arrow::TimeUnit::NANO, "UTC"), "[-1, 1700000000123456789, null]"),
       json(arrow::float64(), "[0.5, null, 1e20]")});
}

TEST(Display, TableShowsNamesTypesAndRows) {
  auto host = toHost(smallTable());
  const std::string text = display::DisplayValue(host.get());
  EXPECT_NE(text.find("3x4 table"), std::string::npos) << text;
  for (const char* expected :
       {"id", "name", "when", "int64", "string", "datetime", "\"a\"b\"", "<missing>",
        "1969-12-31T23:59:59.999999999Z", "2023-11-14T22:13:20.123456789Z", "NaN", "1e+20"}) {
    EXPECT_NE(text.find(expected), std::string::npos) << expected << " in\n" << text;
  }
}

TEST(Display, WideTablesGiveWayInTheMiddleColumns) {
  std::vector<std::shared_ptr<arrow::Field>> fields;
  std::vector<std::shared_ptr<arrow::Array>> columns;
  for (int c = 0; c < 12; ++c) {
    fields.push_back(field("column_" + std::to_string(c), arrow::int64()));
    columns.push_back(json(arrow::int64(), "[123456, 7]"));
  }
  auto host = toHost(arrow::Table::Make(arrow::schema(fields), columns));
  display::DisplayOptions options;
  options.width = 60;
  const std::string text = display::DisplayValue(host.get(), options);
  EXPECT_NE(text.find("2x12 table"), std::string::npos) << text;
  EXPECT_NE(text.find("column_0"), std::string::npos) << text;
  EXPECT_NE(text.find("column_11"), std::string::npos) << text;
  EXPECT_EQ(text.find("column_6"), std::string::npos) << text;
  EXPECT_NE(text.find("\u2026"), std::string::npos) << text;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    size_t width = 0;
    for (unsigned char c : line) width += (c & 0xC0) != 0x80;
    EXPECT_LE(width, 60u) << line;
  }
  // Without a width every column shows.
  EXPECT_NE(display::DisplayValue(host.get()).find("column_6"), std::string::npos);
}

TEST(Display, LongTablesShowHeadAndTail) {
  arrow::Int32Builder builder;
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(builder.Append(1000 + i).ok());
  auto host = toHost(oneColumn(*builder.Finish()));
  const std::string text = display::DisplayValue(host.get());
  EXPECT_NE(text.find("1004"), std::string::npos);
  EXPECT_EQ(text.find("1005"), std::string::npos);
  EXPECT_NE(text.find("..."), std::string::npos);
  EXPECT_NE(text.find("1099"), std::string::npos);
}

TEST(Display, JsonIsValidAndNullsAreNull) {
  auto host = toHost(smallTable());
  EXPECT_EQ(display::ToJson(host.get()),
            R"({"variables":[{"name":"id","type":"int64"},{"name":"name","type":"string"},)"
            R"({"name":"when","type":"datetime"},{"name":"x","type":"double"}],"rows":3,)"
            R"("columns":{"id":[1,2,3],"name":["a\"b",null,"ç"],)"
            R"("when":["1969-12-31T23:59:59.999999999Z","2023-11-14T22:13:20.123456789Z",null],)"
            R"("x":[0.5,null,1e+20]}})");
  auto nested = toHost(oneColumn(json(arrow::list(arrow::int64()), "[[1, 2], null]")));
  EXPECT_EQ(display::ToJson(nested.get()),
            R"({"variables":[{"name":"c","type":"cell"}],"rows":2,"columns":{"c":[[1,2],null]}})");
}

TEST(Display, DatesTimesAndDurationsUseTheirUnits) {
  auto host = toHost(arrow::Table::Make(
      arrow::schema({field("d", arrow::date32()), field("t", arrow::time32(arrow::TimeUnit::MILLI)),
                     field("z", arrow::timestamp(arrow::TimeUnit::SECOND, "Europe/Paris")),
                     field("u", arrow::duration(arrow::TimeUnit::MICRO))}),
      {json(arrow::date32(), "[-719162]"), json(arrow::time32(arrow::TimeUnit::MILLI), "[3723004]"),
       json(arrow::timestamp(arrow::TimeUnit::SECOND, "Europe/Paris"), "[0]"),
       json(arrow::duration(arrow::TimeUnit::MICRO), "[-5]")}));
  const std::string text = display::ToJson(host.get());
  for (const char* expected :
       {"0001-01-01", "01:02:03.004", "1970-01-01T00:00:00Z[Europe/Paris]", "-5 us"}) {
    EXPECT_NE(text.find(expected), std::string::npos) << expected << " in " << text;
  }
}

}  // namespace
}  // namespace vxtest::converter
