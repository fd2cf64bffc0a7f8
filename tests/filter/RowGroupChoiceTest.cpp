// Row-group choices from footer statistics, against values the test computes itself.
#include <cmath>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Expression.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::filter::Expression;
using vantro::io::parquet::core::filter::RowGroupChoice;
using vantro::io::parquet::core::read::RowGroupParquetReader;

constexpr int64_t kRows = 1000;
constexpr int64_t kGroupRows = 100;

// The generated values, row by row.
struct Row {
  int64_t k;                 // 0..999, sorted
  std::optional<int64_t> g;  // row / 100, null in all of group 3 and at row 450
  double f;                  // k / 2, NaN at row 250
  std::string s;             // "r0000".."r0999"
};

Row rowAt(int64_t k) {
  Row row;
  row.k = k;
  if (k / kGroupRows != 3 && k != 450) row.g = k / kGroupRows;
  row.f = k == 250 ? std::nan("") : k / 2.0;
  char text[16];
  std::snprintf(text, sizeof text, "r%04lld", static_cast<long long>(k));
  row.s = text;
  return row;
}

std::string writeFile(const vxtest::TempDir& dir, bool statistics) {
  arrow::Int64Builder k, g;
  arrow::DoubleBuilder f;
  arrow::StringBuilder s;
  for (int64_t i = 0; i < kRows; ++i) {
    const Row row = rowAt(i);
    EXPECT_TRUE(k.Append(row.k).ok());
    EXPECT_TRUE((row.g ? g.Append(*row.g) : g.AppendNull()).ok());
    EXPECT_TRUE(f.Append(row.f).ok());
    EXPECT_TRUE(s.Append(row.s).ok());
  }
  auto schema =
      arrow::schema({arrow::field("k", arrow::int64()), arrow::field("g", arrow::int64()),
                     arrow::field("f", arrow::float64()), arrow::field("s", arrow::utf8())});
  auto table = arrow::Table::Make(schema, {k.Finish().ValueOrDie(), g.Finish().ValueOrDie(),
                                           f.Finish().ValueOrDie(), s.Finish().ValueOrDie()});
  parquet::WriterProperties::Builder properties;
  if (!statistics) properties.disable_statistics();
  const std::string path = dir.file(statistics ? "stats.parquet" : "nostats.parquet");
  vxtest::writeParquet(path, table, kGroupRows, properties.build());
  return path;
}

std::vector<RowGroupChoice> choose(const std::string& path, const std::string& text) {
  RowGroupParquetReader reader(vxtest::u16(path), std::vector<double>{});
  std::vector<std::string> names;
  for (const auto& name : reader.getVariableNames()) names.push_back(vxtest::u8(name));
  const Expression expression = Expression::parse(text);
  expression.check(names, reader.getVariableTypes());
  const auto statistics = reader.getStatistics({0, 1, 2, 3});
  return expression.chooseRowGroups(statistics, names, reader.getRowGroupHeights());
}

struct Case {
  std::string text;
  std::function<bool(const Row&)> matches;
  // Statistics prove "no match" for every group without matches (else some groups are read
  // although nothing in them matches, which is allowed).
  bool exact;
};

const std::vector<Case>& cases() {
  static const std::vector<Case> all = {
      {"k < 250", [](const Row& r) { return r.k < 250; }, true},
      {"k >= 950", [](const Row& r) { return r.k >= 950; }, true},
      {"k == 512", [](const Row& r) { return r.k == 512; }, true},
      {"k > 999", [](const Row&) { return false; }, true},
      {"k in (5, 777)", [](const Row& r) { return r.k == 5 || r.k == 777; }, true},
      {"k between 120 and 310", [](const Row& r) { return r.k >= 120 && r.k <= 310; }, true},
      {"k not between 100 and 899", [](const Row& r) { return r.k < 100 || r.k > 899; }, true},
      {"not (k < 500) and k < 600", [](const Row& r) { return r.k >= 500 && r.k < 600; }, true},
      {"k < 100 or k >= 900", [](const Row& r) { return r.k < 100 || r.k >= 900; }, true},
      {"g != 5", [](const Row& r) { return r.g && *r.g != 5; }, true},
      {"g not in (7)", [](const Row& r) { return r.g && *r.g != 7; }, true},
      {"g is null", [](const Row& r) { return !r.g; }, true},
      {"g is not null", [](const Row& r) { return r.g.has_value(); }, true},
      {"f >= 480", [](const Row& r) { return r.f >= 480; }, true},
      // NaN is missing for the host but not a Parquet null: no group can be ruled out.
      {"f is null", [](const Row& r) { return std::isnan(r.f); }, false},
      {"s >= 'r0900'", [](const Row& r) { return r.s >= "r0900"; }, true},
      {"s == 'r0123' or k == 999", [](const Row& r) { return r.s == "r0123" || r.k == 999; }, true},
      // Not provable from the statistics of one variable each.
      {"k == 5 and g == 1", [](const Row& r) { return r.k == 5 && r.g == 1; }, false},
  };
  return all;
}

TEST(FilterRowGroups, EachGroupKeptOrSkippedForTheRightReason) {
  vxtest::TempDir dir;
  const std::string path = writeFile(dir, true);
  for (const auto& c : cases()) {
    const auto choices = choose(path, c.text);
    ASSERT_EQ(choices.size(), static_cast<size_t>(kRows / kGroupRows)) << c.text;
    for (size_t group = 0; group < choices.size(); ++group) {
      bool anyMatch = false;
      for (int64_t k = group * kGroupRows; k < static_cast<int64_t>(group + 1) * kGroupRows; ++k) {
        anyMatch = anyMatch || c.matches(rowAt(k));
      }
      // Never skip a group holding a match; skip every other one when the filter allows it.
      if (anyMatch || c.exact) {
        EXPECT_EQ(choices[group].read, anyMatch) << c.text << " group " << group;
      }
      EXPECT_EQ(choices[group].read, choices[group].reason.empty()) << c.text;
    }
  }
}

TEST(FilterRowGroups, ReasonsNameTheTestAndTheBounds) {
  vxtest::TempDir dir;
  const std::string path = writeFile(dir, true);
  auto choices = choose(path, "k >= 950");
  EXPECT_EQ(choices[0].reason, "k >= 950: values lie in [0, 99]");
  choices = choose(path, "g is not null");
  EXPECT_EQ(choices[3].reason, "g is not null: all 100 values are null");
  EXPECT_TRUE(choices[4].read);  // one null among 100
  choices = choose(path, "g is null");
  EXPECT_EQ(choices[0].reason, "g is null: no nulls");
  choices = choose(path, "k < 100 or s == 'x'");
  EXPECT_EQ(choices[5].reason,
            "k < 100: values lie in [500, 599]; s == 'x': values lie in "
            "['r0500', 'r0599']");
}

TEST(FilterRowGroups, MissingStatisticsMeanMayMatch) {
  vxtest::TempDir dir;
  const std::string path = writeFile(dir, false);
  for (const auto& c : cases()) {
    for (const auto& choice : choose(path, c.text)) EXPECT_TRUE(choice.read) << c.text;
  }
  // Statistics of other variables only: the filter's own variable is not covered.
  RowGroupParquetReader reader(vxtest::u16(writeFile(dir, true)), std::vector<double>{});
  const auto statistics = reader.getStatistics({1});
  const auto choices =
      Expression::parse("k > 5000").chooseRowGroups(statistics, {"g"}, reader.getRowGroupHeights());
  for (const auto& choice : choices) EXPECT_TRUE(choice.read);
}

TEST(FilterRowGroups, NaNBoundsMeanMayMatch) {
  // A double column whose only values in a group are NaN: Parquet records no bounds for it.
  vxtest::TempDir dir;
  auto table = arrow::Table::Make(arrow::schema({arrow::field("f", arrow::float64())}),
                                  {vxtest::arrayFromJSON(arrow::float64(), "[NaN, NaN, 1, 2]")});
  const std::string path = dir.file("nan.parquet");
  vxtest::writeParquet(path, table, 2);
  RowGroupParquetReader reader(vxtest::u16(path), std::vector<double>{});
  const auto statistics = reader.getStatistics({0});
  const auto choices =
      Expression::parse("f > 5").chooseRowGroups(statistics, {"f"}, reader.getRowGroupHeights());
  ASSERT_EQ(choices.size(), 2u);
  EXPECT_TRUE(choices[0].read);
  EXPECT_FALSE(choices[1].read);
}

}  // namespace
