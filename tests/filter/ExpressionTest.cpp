// Row filter texts: what they mean (precedence, both spellings, missing values) and what they
// refuse.
#include <functional>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <gtest/gtest.h>

#include "host/converter/Converter.hpp"
#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Expression.hpp"

namespace {

using vantro::io::parquet::core::filter::Expression;

// a: 0..7 with a null at row 8; t: texts; d: dates; f: doubles with a NaN; ok: logicals.
matrix::unique_array sampleTable() {
  auto schema =
      arrow::schema({arrow::field("a", arrow::int32()), arrow::field("t", arrow::utf8()),
                     arrow::field("d", arrow::timestamp(arrow::TimeUnit::MILLI, "UTC")),
                     arrow::field("f", arrow::float64()), arrow::field("ok", arrow::boolean())});
  std::vector<std::shared_ptr<arrow::Array>> columns = {
      vxtest::arrayFromJSON(arrow::int32(), "[0, 1, 2, 3, 4, 5, 6, 7, null]"),
      vxtest::arrayFromJSON(arrow::utf8(),
                            R"(["a", "b", "c", "é", "\ud83d\ude00", "\uffff", "b", "B", null])"),
      vxtest::arrayFromJSON(arrow::timestamp(arrow::TimeUnit::MILLI, "UTC"),
                            // 2024-01-01T00:00:00Z + k days, and one millisecond later for row 1
                            "[1704067200000, 1704067200001, 1704153600000, 1704240000000, "
                            "1704326400000, 1704412800000, 1704499200000, 1704585600000, null]"),
      vxtest::arrayFromJSON(arrow::float64(), "[0.5, 0.1, NaN, -1, 2.5, 1e300, -0.0, 3, null]"),
      vxtest::arrayFromJSON(arrow::boolean(),
                            "[true, false, true, false, true, false, true, false, null]")};
  auto converted = vantro::io::arrow::core::to_vantro(arrow::Table::Make(schema, columns));
  EXPECT_TRUE(converted.ok()) << converted.status().ToString();
  return std::move(converted).ValueUnsafe();
}

std::vector<size_t> matchingRows(const std::string& text, const vxArray* table) {
  const std::vector<bool> matches = Expression::parse(text).matchRows(table);
  std::vector<size_t> rows;
  for (size_t r = 0; r < matches.size(); ++r) {
    if (matches[r]) rows.push_back(r);
  }
  return rows;
}

TEST(FilterExpression, MeaningOfEachForm) {
  const auto table = sampleTable();
  struct Case {
    std::string text;
    std::vector<size_t> rows;
  };
  const std::vector<Case> cases = {
      // Both spellings of every operator.
      {"a == 3", {3}},
      {"a = 3", {3}},
      {"a != 3", {0, 1, 2, 4, 5, 6, 7}},  // the null row is unknown, not "different"
      {"a ~= 3", {0, 1, 2, 4, 5, 6, 7}},
      {"a <> 3", {0, 1, 2, 4, 5, 6, 7}},
      {"a < 2", {0, 1}},
      {"a <= 2", {0, 1, 2}},
      {"a > 5", {6, 7}},
      {"a >= 5", {5, 6, 7}},
      {"5 <= a", {5, 6, 7}},
      {"-1 < a and a < 1", {0}},
      {"a < 1.5", {0, 1}},
      {"a in (1, 3, 99)", {1, 3}},
      {"a not in (1, 3)", {0, 2, 4, 5, 6, 7}},
      {"a between 2 and 4", {2, 3, 4}},
      {"a not between 2 and 4", {0, 1, 5, 6, 7}},
      {"a between 4 and 2", {}},
      {"a is null", {8}},
      {"a is not null", {0, 1, 2, 3, 4, 5, 6, 7}},
      // Precedence: not binds tighter than and, and tighter than or.
      {"a == 1 or a == 2 and a == 3", {1}},
      {"(a == 1 or a == 2) and a == 2", {2}},
      {"not a == 1 and a < 3", {0, 2}},
      {"not (a == 1 and a < 3)", {0, 2, 3, 4, 5, 6, 7}},
      {"a < 2 | a > 6 & a != 7", {0, 1}},
      {"a < 2 || ~(a < 7)", {0, 1, 7}},
      {"!(a >= 2) && a != 0", {1}},
      {"NOT a IN (1,2) AND a IS NOT NULL", {0, 3, 4, 5, 6, 7}},  // keywords in any case
      // Missing values stay unknown under not: the null row never comes back.
      {"not (a < 3)", {3, 4, 5, 6, 7}},
      {"not (a is null)", {0, 1, 2, 3, 4, 5, 6, 7}},
      // Texts compare by code point (U+FFFF sorts below the supplementary emoji).
      {"t == 'b'", {1, 6}},
      {"t == \"B\"", {7}},
      {"t > 'z'", {3, 4, 5}},
      {"t > '\xef\xbf\xbf'", {4}},
      {"t in ('a', 'c')", {0, 2}},
      {"t is null", {8}},
      // Datetimes: quoted or bare, with or without offset, at the column's precision.
      {"d == 2024-01-01T00:00:00Z", {0}},
      {"d == '2024-01-01T00:00:00.001Z'", {1}},
      {"d < 2024-01-02", {0, 1}},
      {"d between '2024-01-02' and '2024-01-03T00:00'", {2, 3}},
      {"d >= 2024-01-06T01:00:00+02:00", {6, 7}},
      // Doubles: NaN is missing, -0 equals 0, constants read as doubles.
      {"f == 0.1", {1}},
      {"f == 0", {6}},
      {"f is null", {2, 8}},
      {"f > 1e299", {5}},
      {"f < -0.5 or f >= 3", {3, 5, 7}},
      // Logicals.
      {"ok == true", {0, 2, 4, 6}},
      {"ok != true", {1, 3, 5, 7}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(matchingRows(c.text, table.get()), c.rows) << c.text;
  }
}

TEST(FilterExpression, ExactIntegersAndSinglePrecision) {
  auto schema =
      arrow::schema({arrow::field("i", arrow::int64()), arrow::field("u", arrow::uint64()),
                     arrow::field("s", arrow::float32())});
  auto table = vantro::io::arrow::core::to_vantro(arrow::Table::Make(
      schema, {vxtest::arrayFromJSON(arrow::int64(), "[9007199254740992, 9007199254740993]"),
               vxtest::arrayFromJSON(arrow::uint64(), "[18446744073709551615, 1]"),
               vxtest::arrayFromJSON(arrow::float32(), "[0.1, 0.2]")}));
  ASSERT_TRUE(table.ok());
  EXPECT_EQ(matchingRows("i == 9007199254740993", table->get()), std::vector<size_t>{1});
  EXPECT_EQ(matchingRows("i > 9007199254740992", table->get()), std::vector<size_t>{1});
  EXPECT_EQ(matchingRows("u == 18446744073709551615", table->get()), std::vector<size_t>{0});
  EXPECT_EQ(matchingRows("u > 9223372036854775807", table->get()), std::vector<size_t>{0});
  EXPECT_EQ(matchingRows("s == 0.1", table->get()), std::vector<size_t>{0});
  // An int64 column with nulls reaches the host as doubles: whole constants stay exact.
  auto widened = vantro::io::arrow::core::to_vantro(
      arrow::Table::Make(arrow::schema({arrow::field("w", arrow::float64())}),
                         {vxtest::arrayFromJSON(arrow::float64(), "[9007199254740992, null]")}));
  ASSERT_TRUE(widened.ok());
  EXPECT_EQ(matchingRows("w == 9007199254740993", widened->get()), std::vector<size_t>{});
  EXPECT_EQ(matchingRows("w < 9007199254740993", widened->get()), std::vector<size_t>{0});
  EXPECT_EQ(matchingRows("s > 0.1", table->get()), std::vector<size_t>{1});
}

// Integer columns compare in integer arithmetic: fractions, constants past int64 either way,
// and the extremes of each width keep their exact order.
TEST(FilterExpression, IntegerColumnsAgainstAnyConstant) {
  auto schema = arrow::schema({arrow::field("i", arrow::int64()), arrow::field("b", arrow::int8()),
                               arrow::field("w", arrow::uint32())});
  auto table = vantro::io::arrow::core::to_vantro(arrow::Table::Make(
      schema, {vxtest::arrayFromJSON(arrow::int64(),
                                     "[-9223372036854775808, -3, -2, 2, 3, 9223372036854775807]"),
               vxtest::arrayFromJSON(arrow::int8(), "[-128, -1, 0, 1, 2, 127]"),
               vxtest::arrayFromJSON(arrow::uint32(), "[0, 1, 2, 3, 4294967294, 4294967295]")}));
  ASSERT_TRUE(table.ok());
  const vxArray* t = table->get();
  using Rows = std::vector<size_t>;
  EXPECT_EQ(matchingRows("i < -2.5", t), (Rows{0, 1}));
  EXPECT_EQ(matchingRows("i <= -2.5", t), (Rows{0, 1}));
  EXPECT_EQ(matchingRows("i > 2.5", t), (Rows{4, 5}));
  EXPECT_EQ(matchingRows("i == 2.5", t), Rows{});
  EXPECT_EQ(matchingRows("i != 2.5", t), (Rows{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(matchingRows("i >= -2", t), (Rows{2, 3, 4, 5}));
  EXPECT_EQ(matchingRows("i < 1e30", t), (Rows{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(matchingRows("i > -1e30", t), (Rows{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(matchingRows("i < 9223372036854775808", t), (Rows{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(matchingRows("i == 9223372036854775807", t), Rows{5});
  EXPECT_EQ(matchingRows("i == -9223372036854775808", t), Rows{0});
  EXPECT_EQ(matchingRows("i < -9223372036854775808", t), Rows{});
  EXPECT_EQ(matchingRows("b between -1.5 and 1.5", t), (Rows{1, 2, 3}));
  EXPECT_EQ(matchingRows("b in (127, -128, 0.5)", t), (Rows{0, 5}));
  EXPECT_EQ(matchingRows("w > 4294967294.5", t), Rows{5});
  EXPECT_EQ(matchingRows("not (w < 3)", t), (Rows{3, 4, 5}));
}

TEST(FilterExpression, SyntaxErrorsAreRefused) {
  const std::vector<std::string> texts = {
      "", "a ==", "a == 1 and", "(a == 1", "a == 1)", "a in ()", "a in (1, 2", "a between 1",
      "a between 1 or 2", "a is nul", "a not 3", "'unterminated", "a == 'unterminated", "a == 1 b",
      "a @ 1", "a == 2024-13-01", "a == 2024-02-30", "a == 1e", "a == 12abc", "a == b", "== 1",
      "and a == 1",
      // Nesting that would exhaust the parser's stack.
      std::string(100000, '(') + "a == 1", std::string(100000, '~') + "a == 1"};
  for (const auto& text : texts) {
    const auto arguments = vxtest::expectHostError([&] { Expression::parse(text); },
                                                   "VANTRO:filter:InvalidExpression");
    ASSERT_TRUE(arguments) << text.substr(0, 40);
    EXPECT_EQ(std::get<std::string>((*arguments)[0]), text);
  }
}

TEST(FilterExpression, VariablesInOrderOfFirstUse) {
  EXPECT_EQ(Expression::parse("b > 1 and (a < 2 or b is null) and `odd name` == 'x'").variables(),
            (std::vector<std::string>{"b", "a", "odd name"}));
}

TEST(FilterExpression, CheckAgainstTheFileRefusesBeforeReading) {
  const std::vector<std::string> names = {"n", "s", "d", "ok", "nested", "span", "bytes"};
  const std::vector<std::string> types = {"int64", "string",   "datetime", "logical",
                                          "table", "duration", "cell"};
  struct Case {
    std::string text;
    std::string identifier;  // empty: accepted
  };
  const std::vector<Case> cases = {
      {"n > 1 and s == 'x' and d < 2024-01-01 and ok == false", ""},
      {"d < '2024-01-01 10:00'", ""},
      {"bytes is null", ""},
      {"missing == 1", "VANTRO:filter:UnknownVariable"},
      {"n == 'x'", "VANTRO:filter:TypeMismatch"},
      {"s == 1", "VANTRO:filter:TypeMismatch"},
      {"d == 5", "VANTRO:filter:TypeMismatch"},
      {"d == 'yesterday'", "VANTRO:filter:TypeMismatch"},
      {"ok == 1", "VANTRO:filter:TypeMismatch"},
      {"n in (1, 'two')", "VANTRO:filter:TypeMismatch"},
      {"nested is null", "VANTRO:filter:UnsupportedVariable"},
      {"span > 1", "VANTRO:filter:UnsupportedVariable"},
      {"bytes == 1", "VANTRO:filter:UnsupportedVariable"},
  };
  for (const auto& c : cases) {
    const Expression expression = Expression::parse(c.text);
    if (c.identifier.empty()) {
      EXPECT_NO_THROW(expression.check(names, types)) << c.text;
    } else {
      EXPECT_TRUE(vxtest::expectHostError([&] { expression.check(names, types); }, c.identifier))
          << c.text;
    }
  }
  const auto arguments = vxtest::expectHostError(
      [&] { Expression::parse("x == 1").check(names, types); }, "VANTRO:filter:UnknownVariable");
  ASSERT_TRUE(arguments);
  EXPECT_EQ(std::get<std::string>((*arguments)[0]), "x");
  EXPECT_NE(std::get<std::string>((*arguments)[1]).find("n, s, d"), std::string::npos);
}

TEST(FilterExpression, FilterRowsKeepsEveryVariableAndOnlyMatchingRows) {
  const auto table = sampleTable();
  const auto filtered = Expression::parse("a in (1, 4) or a is null").filterRows(table.get());
  EXPECT_EQ(vantro::io::parquet::core::filter::rowCount(filtered.get()), 3u);
  auto back = vantro::io::arrow::core::to_arrow_table(filtered.get());
  ASSERT_TRUE(back.ok()) << back.status().ToString();
  EXPECT_EQ((*back)->num_columns(), 5);
  EXPECT_EQ((*back)->GetColumnByName("a")->ToString(),
            arrow::ChunkedArray(vxtest::arrayFromJSON(arrow::int32(), "[1, 4, null]")).ToString());
  EXPECT_EQ(
      (*back)->GetColumnByName("t")->ToString(),
      arrow::ChunkedArray(vxtest::arrayFromJSON(arrow::utf8(), R"(["b", "\ud83d\ude00", null])"))
          .ToString());
  EXPECT_TRUE(vxtest::expectHostError([&] { Expression::parse("zz == 1").filterRows(table.get()); },
                                      "VANTRO:filter:InvalidTable"));
}

}  // namespace
