// The program's JSON and CSV are exact: every double reads back to the same bits, special
// values and nested or binary values keep their kind.
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"

namespace {

using testing::HasSubstr;

TEST(JsonOutput, DoublesReadBackToTheSameBits) {
  std::mt19937_64 random(7);
  std::vector<double> values = {0.1,  0.1 + 0.2, 1e300,    5e-324,
                                -0.0, 1.0 / 3,   2.5e-308, 9007199254740993.0};
  for (int i = 0; i < 500; ++i) {
    const uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof value);
    if (std::isfinite(value)) values.push_back(value);
  }
  arrow::DoubleBuilder builder;
  ASSERT_TRUE(builder.AppendValues(values).ok());
  vxtest::TempDir dir;
  const std::string path = dir.file("doubles.parquet");
  vxtest::writeParquet(path,
                       arrow::Table::Make(arrow::schema({arrow::field("d", arrow::float64())}),
                                          {builder.Finish().ValueOrDie()}));
  for (const std::string format : {"jsonl", "csv"}) {
    const auto result = vxtest::runVxparquet("read " + path + " --format " + format);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::istringstream lines(result.out);
    std::string line;
    if (format == "csv") std::getline(lines, line);  // the header
    size_t i = 0;
    while (std::getline(lines, line)) {
      const std::string number = format == "csv" ? line : line.substr(5, line.size() - 6);
      const double back = std::strtod(number.c_str(), nullptr);
      EXPECT_EQ(std::memcmp(&back, &values[i], sizeof back), 0) << number << " row " << i;
      ++i;
    }
    EXPECT_EQ(i, values.size());
  }
}

TEST(JsonOutput, SpecialNestedAndBinaryValuesKeepTheirKind) {
  const auto lists = arrow::list(arrow::list(arrow::float64()));
  auto table = arrow::Table::Make(
      arrow::schema({arrow::field("d", arrow::float64()), arrow::field("l", lists),
                     arrow::field("one", arrow::list(arrow::int32())),
                     arrow::field("b", arrow::binary())}),
      {vxtest::arrayFromJSON(arrow::float64(), "[Inf, -Inf, NaN]"),
       vxtest::arrayFromJSON(lists, "[[[1.5], null, []], null, [[2, 3]]]"),
       vxtest::arrayFromJSON(arrow::list(arrow::int32()), "[[7], [], null]"),
       vxtest::arrayFromJSON(arrow::binary(), R"(["AB", "", null])")});
  vxtest::TempDir dir;
  const std::string path = dir.file("special.parquet");
  vxtest::writeParquet(path, table);
  const auto result = vxtest::runVxparquet("read " + path + " --format jsonl");
  ASSERT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out,
            "{\"d\":\"Infinity\",\"l\":[[1.5],null,[]],\"one\":[7],\"b\":{\"base64\":\"QUI=\"}}\n"
            "{\"d\":\"-Infinity\",\"l\":null,\"one\":[],\"b\":{\"base64\":\"\"}}\n"
            "{\"d\":\"NaN\",\"l\":[[2,3]],\"one\":null,\"b\":null}\n");
  // The single document says the same.
  const auto json = vxtest::runVxparquet("read " + path + " --json");
  EXPECT_THAT(json.out, HasSubstr("\"d\":[\"Infinity\",\"-Infinity\",\"NaN\"]"));
  EXPECT_THAT(json.out, HasSubstr("\"one\":[[7],[],null]"));
}

}  // namespace
