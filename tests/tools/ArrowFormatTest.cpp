// The program's text of Arrow values against values computed another way: integers by
// std::to_string, decimals from their unscaled integers, dates and timestamps by Arrow's own
// cast to text, and CSV and JSON lines parsed back by Arrow's readers.
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <arrow/compute/api.h>
#include <arrow/csv/api.h>
#include <arrow/io/memory.h>
#include <arrow/json/api.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "tools/vxparquet/ArrowFormat.hpp"

namespace {

namespace format = vxparquet::format;

// The text of every row of a one-column array, "null" for missing values, as JSON or as
// plain text.
std::vector<std::string> texts(const std::shared_ptr<arrow::Array>& array, bool json) {
  auto formatter = format::MakeValueFormatter(*array);
  EXPECT_TRUE(formatter.ok()) << formatter.status().ToString();
  std::vector<std::string> out;
  for (int64_t i = 0; i < array->length(); ++i) {
    std::string text;
    if (json) {
      format::AppendJsonValue(**formatter, i, &text);
    } else if (!(*formatter)->IsNull(i)) {
      (*formatter)->AppendText(i, &text);
    } else {
      text = "null";
    }
    out.push_back(text);
  }
  return out;
}

// The lines a table prints as, through a temporary file as the program writes them.
std::string linesOf(const std::shared_ptr<arrow::Table>& table, format::LineFormat kind,
                    const format::CsvOptions& options = {}) {
  std::FILE* file = std::tmpfile();
  auto written = format::WriteLines(*table, kind, options, file);
  EXPECT_TRUE(written.ok()) << written.status().ToString();
  std::string text(static_cast<size_t>(*written), '\0');
  std::rewind(file);
  EXPECT_EQ(std::fread(text.data(), 1, text.size(), file), text.size());
  std::fclose(file);
  return text;
}

std::shared_ptr<arrow::Array> castToText(const std::shared_ptr<arrow::Array>& array) {
  EXPECT_TRUE(vantro::io::parquet::core::common::compat::initializeCompute().ok());
  auto cast = arrow::compute::Cast(*array, arrow::utf8());
  EXPECT_TRUE(cast.ok()) << cast.status().ToString();
  return *cast;
}

TEST(ArrowFormat, IntegersOfEveryWidthPrintEveryDigitAndNulls) {
  const auto check = [](const std::shared_ptr<arrow::DataType>& type, const std::string& json,
                        const std::vector<std::string>& expected) {
    EXPECT_EQ(texts(vxtest::arrayFromJSON(type, json), true), expected) << type->ToString();
  };
  check(arrow::int8(), "[-128, 127, null]", {"-128", "127", "null"});
  check(arrow::uint8(), "[0, 255, null]", {"0", "255", "null"});
  check(arrow::int16(), "[-32768, null, 32767]", {"-32768", "null", "32767"});
  check(arrow::uint32(), "[4294967295, null]", {"4294967295", "null"});
  check(arrow::int64(), "[-9223372036854775808, 9007199254740993, null]",
        {std::to_string(INT64_MIN), "9007199254740993", "null"});
  check(arrow::uint64(), "[18446744073709551615, null]", {std::to_string(UINT64_MAX), "null"});
  check(arrow::boolean(), "[true, false, null]", {"true", "false", "null"});
}

TEST(ArrowFormat, FloatsKeepNaNApartFromMissing) {
  const auto values = vxtest::arrayFromJSON(arrow::float64(), "[NaN, null, Inf, -Inf, 0.1]");
  EXPECT_EQ(texts(values, true),
            (std::vector<std::string>{"\"NaN\"", "null", "\"Infinity\"", "\"-Infinity\"", "0.1"}));
  EXPECT_EQ(texts(values, false), (std::vector<std::string>{"NaN", "null", "Inf", "-Inf", "0.1"}));
  const auto singles = vxtest::arrayFromJSON(arrow::float32(), "[0.1, 16777217]");
  EXPECT_EQ(texts(singles, true), (std::vector<std::string>{"0.1", "16777216"}));
}

// "123.45" from 12345 and scale 2, built here from the integer's own decimal digits.
std::string scaledText(const std::string& integerDigits, int32_t scale) {
  const bool negative = integerDigits[0] == '-';
  std::string digits = negative ? integerDigits.substr(1) : integerDigits;
  if (scale > 0) {
    if (digits.size() <= static_cast<size_t>(scale)) {
      digits.insert(0, static_cast<size_t>(scale) + 1 - digits.size(), '0');
    }
    digits.insert(digits.size() - static_cast<size_t>(scale), ".");
  }
  return (negative ? "-" : "") + digits;
}

TEST(ArrowFormat, DecimalsPrintTheirExactValue) {
  std::mt19937_64 random(20);
  for (const int32_t scale : {0, 2, 9, 18, 30, 38}) {
    const auto type = arrow::decimal128(38, scale);
    arrow::Decimal128Builder builder(type);
    std::vector<std::string> expected;
    for (int i = 0; i < 300; ++i) {
      // Unscaled integers of every size, from a few digits to the full 38.
      const int64_t high = i % 3 == 0 ? 0 : static_cast<int64_t>(random() >> (i % 62 + 2));
      const arrow::Decimal128 value(i % 2 ? -high : high, random() >> (i % 61));
      if (!value.FitsInPrecision(38)) continue;
      ASSERT_TRUE(builder.Append(value).ok());
      expected.push_back(scaledText(value.ToIntegerString(), scale));
    }
    ASSERT_TRUE(builder.AppendNull().ok());
    expected.push_back("null");
    EXPECT_EQ(texts(builder.Finish().ValueOrDie(), true), expected) << "scale " << scale;
  }
  // The value an issue found rounded: the text is the file's, not a double's.
  EXPECT_EQ(
      texts(vxtest::arrayFromJSON(arrow::decimal128(12, 2), R"(["8178782.93", "-0.05"])"), false),
      (std::vector<std::string>{"8178782.93", "-0.05"}));
  EXPECT_EQ(texts(vxtest::arrayFromJSON(arrow::decimal256(50, 3),
                                        R"(["-12345678901234567890123456789012345678901234.567"])"),
                  true),
            (std::vector<std::string>{"-12345678901234567890123456789012345678901234.567"}));
}

TEST(ArrowFormat, DatesAndTimestampsMatchArrowsOwnText) {
  std::mt19937_64 random(3);
  std::vector<int64_t> ticks = {0, -1, 1, 86399999999, -86400000000, 253402300799999999};
  for (int i = 0; i < 500; ++i) {
    ticks.push_back(static_cast<int64_t>(random() % 40000000000000000ull) - 20000000000000000);
  }
  for (const auto unit : {arrow::TimeUnit::SECOND, arrow::TimeUnit::MILLI, arrow::TimeUnit::MICRO,
                          arrow::TimeUnit::NANO}) {
    arrow::TimestampBuilder builder(arrow::timestamp(unit), arrow::default_memory_pool());
    for (int64_t tick : ticks) {
      // Seconds and milliseconds stay within the years Arrow's cast prints.
      const int64_t scaled = unit == arrow::TimeUnit::SECOND  ? tick / 1000000
                             : unit == arrow::TimeUnit::MILLI ? tick / 1000
                                                              : tick;
      ASSERT_TRUE(builder.Append(scaled).ok());
    }
    const auto values = builder.Finish().ValueOrDie();
    const auto arrowText = castToText(values);
    const auto ours = texts(values, false);
    for (int64_t i = 0; i < values->length(); ++i) {
      std::string expected = static_cast<const arrow::StringArray&>(*arrowText).GetString(i);
      expected[10] = 'T';
      EXPECT_EQ(ours[i], expected) << values->type()->ToString() << " row " << i;
    }
  }
  arrow::Date32Builder dates;
  for (int64_t tick : ticks)
    ASSERT_TRUE(dates.Append(static_cast<int32_t>(tick / 86400000000)).ok());
  const auto dateValues = dates.Finish().ValueOrDie();
  const auto dateText = castToText(dateValues);
  const auto ours = texts(dateValues, false);
  for (int64_t i = 0; i < dateValues->length(); ++i) {
    EXPECT_EQ(ours[i], static_cast<const arrow::StringArray&>(*dateText).GetString(i));
  }
}

TEST(ArrowFormat, ZonesTimesAndDurationsSayWhatTheyAre) {
  const auto utc =
      vxtest::arrayFromJSON(arrow::timestamp(arrow::TimeUnit::MILLI, "UTC"), "[1500, null]");
  EXPECT_EQ(texts(utc, true), (std::vector<std::string>{"\"1970-01-01T00:00:01.500Z\"", "null"}));
  const auto oslo =
      vxtest::arrayFromJSON(arrow::timestamp(arrow::TimeUnit::SECOND, "Europe/Oslo"), "[0]");
  EXPECT_EQ(texts(oslo, false), (std::vector<std::string>{"1970-01-01T00:00:00Z[Europe/Oslo]"}));
  const auto before = vxtest::arrayFromJSON(arrow::timestamp(arrow::TimeUnit::MICRO), "[-1]");
  EXPECT_EQ(texts(before, false), (std::vector<std::string>{"1969-12-31T23:59:59.999999"}));
  const auto times =
      vxtest::arrayFromJSON(arrow::time64(arrow::TimeUnit::NANO), "[45000000000001]");
  EXPECT_EQ(texts(times, false), (std::vector<std::string>{"12:30:00.000000001"}));
  const auto durations = vxtest::arrayFromJSON(arrow::duration(arrow::TimeUnit::MILLI), "[-1500]");
  EXPECT_EQ(texts(durations, true), (std::vector<std::string>{"\"-1500 ms\""}));
}

TEST(ArrowFormat, NestedValuesTakeTheDocumentedShapes) {
  const auto point =
      arrow::struct_({arrow::field("x", arrow::int64()), arrow::field("s", arrow::utf8())});
  EXPECT_EQ(
      texts(vxtest::arrayFromJSON(point, R"([{"x": 1, "s": "a"}, null, {"x": null, "s": null}])"),
            true),
      (std::vector<std::string>{R"({"x":1,"s":"a"})", "null", R"({"x":null,"s":null})"}));
  EXPECT_EQ(
      texts(vxtest::arrayFromJSON(arrow::list(point), R"([[{"x": 2, "s": "b"}, null], [], null])"),
            true),
      (std::vector<std::string>{R"([{"x":2,"s":"b"},null])", "[]", "null"}));
  const auto map = arrow::map(arrow::utf8(), arrow::int32());
  EXPECT_EQ(texts(vxtest::arrayFromJSON(map, R"([[["k", 1], ["k", null]], [], null])"), true),
            (std::vector<std::string>{R"([{"key":"k","value":1},{"key":"k","value":null}])", "[]",
                                      "null"}));
  EXPECT_EQ(
      texts(vxtest::arrayFromJSON(arrow::fixed_size_list(arrow::int8(), 2), "[[1, null]]"), true),
      (std::vector<std::string>{"[1,null]"}));
  EXPECT_EQ(texts(vxtest::arrayFromJSON(arrow::binary(), R"(["AB", ""])"), true),
            (std::vector<std::string>{R"({"base64":"QUI="})", R"({"base64":""})"}));
  const auto dictionary =
      arrow::DictionaryArray::FromArrays(arrow::dictionary(arrow::int8(), arrow::utf8()),
                                         vxtest::arrayFromJSON(arrow::int8(), "[1, null, 0]"),
                                         vxtest::arrayFromJSON(arrow::utf8(), R"(["lo", "hi"])"))
          .ValueOrDie();
  EXPECT_EQ(texts(dictionary, true), (std::vector<std::string>{"\"hi\"", "null", "\"lo\""}));
}

TEST(ArrowFormat, JsonStringsEscapeEveryControlCharacter) {
  std::string text;
  format::AppendJsonString(std::string("a\"b\\c\n\t\x1b\x7f", 9), &text);
  EXPECT_EQ(text, "\"a\\\"b\\\\c\\n\\t\\u001b\x7f\"");
}

std::shared_ptr<arrow::Table> awkwardTexts() {
  return arrow::Table::Make(
      arrow::schema({arrow::field("s", arrow::utf8()), arrow::field("n", arrow::int64())}),
      {vxtest::arrayFromJSON(
           arrow::utf8(),
           R"(["", null, "a,b", "say \"hi\"", "two\nlines", "cr\r", " pad ", "NA", "x;y"])"),
       vxtest::arrayFromJSON(arrow::int64(), "[1, 2, null, 4, 5, 6, 7, 8, 9007199254740993]")});
}

// The CSV back through Arrow's reader, with only an unquoted empty field meaning missing.
std::shared_ptr<arrow::Table> parseCsv(const std::string& text, char delimiter,
                                       const std::string& missing) {
  auto input = std::make_shared<arrow::io::BufferReader>(arrow::Buffer::FromString(text));
  auto parse = arrow::csv::ParseOptions::Defaults();
  parse.delimiter = delimiter;
  parse.newlines_in_values = true;
  auto convert = arrow::csv::ConvertOptions::Defaults();
  convert.null_values = {missing};
  convert.strings_can_be_null = true;
  convert.quoted_strings_can_be_null = false;
  convert.column_types = {{"s", arrow::utf8()}, {"n", arrow::int64()}};
  auto reader = arrow::csv::TableReader::Make(arrow::io::default_io_context(), input,
                                              arrow::csv::ReadOptions::Defaults(), parse, convert)
                    .ValueOrDie();
  return reader->Read().ValueOrDie();
}

TEST(ArrowFormat, CsvTellsEmptyTextsFromMissingOnesAndReadsBack) {
  const auto table = awkwardTexts();
  format::CsvOptions options;
  const std::string csv = format::CsvHeader(*table->schema(), options) +
                          linesOf(table, format::LineFormat::kCsv, options);
  EXPECT_THAT(csv, testing::StartsWith("s,n\n\"\",1\n,2\n\"a,b\",\n\"say \"\"hi\"\"\",4\n"));
  EXPECT_TRUE(parseCsv(csv, ',', "")->Equals(*table)) << csv;

  // Another delimiter and a missing text: a text that reads like it is quoted.
  options.delimiter = ';';
  options.missing = "NA";
  const std::string other = format::CsvHeader(*table->schema(), options) +
                            linesOf(table, format::LineFormat::kCsv, options);
  EXPECT_THAT(other, testing::HasSubstr("\n\"\";1\nNA;2\na,b;NA\n"));
  EXPECT_THAT(other, testing::HasSubstr("\n\"NA\";8\n\"x;y\";9007199254740993\n"));
  EXPECT_TRUE(parseCsv(other, ';', "NA")->Equals(*table)) << other;
}

TEST(ArrowFormat, JsonLinesReadBackThroughArrowsJsonReader) {
  const auto table = arrow::Table::Make(
      arrow::schema({arrow::field("s", arrow::utf8()), arrow::field("n", arrow::int64()),
                     arrow::field("b", arrow::boolean()), arrow::field("d", arrow::float64()),
                     arrow::field("l", arrow::list(arrow::int32()))}),
      {vxtest::arrayFromJSON(arrow::utf8(), R"(["", null, "q\"\n\u001b"])"),
       vxtest::arrayFromJSON(arrow::int64(), "[-9223372036854775808, null, 9007199254740993]"),
       vxtest::arrayFromJSON(arrow::boolean(), "[true, null, false]"),
       vxtest::arrayFromJSON(arrow::float64(), "[0.1, null, 1e300]"),
       vxtest::arrayFromJSON(arrow::list(arrow::int32()), "[[1, null], null, []]")});
  const std::string lines = linesOf(table, format::LineFormat::kJsonLines);
  auto input = std::make_shared<arrow::io::BufferReader>(arrow::Buffer::FromString(lines));
  auto parse = arrow::json::ParseOptions::Defaults();
  parse.explicit_schema = table->schema();
  auto reader = arrow::json::TableReader::Make(arrow::default_memory_pool(), input,
                                               arrow::json::ReadOptions::Defaults(), parse)
                    .ValueOrDie();
  const auto back = reader->Read().ValueOrDie();
  EXPECT_TRUE(back->Equals(*table)) << lines << back->ToString();
}

TEST(ArrowFormat, ManyRowsAreWrittenInOrderAcrossPieces) {
  const int64_t rows = 100000;
  arrow::Int64Builder builder;
  for (int64_t i = 0; i < rows; ++i) ASSERT_TRUE(builder.Append(i * 3).ok());
  // Several chunks, so that batches and pieces both split the rows.
  const auto values = builder.Finish().ValueOrDie();
  const auto chunked = std::make_shared<arrow::ChunkedArray>(
      arrow::ArrayVector{values->Slice(0, 12345), values->Slice(12345)});
  const auto table =
      arrow::Table::Make(arrow::schema({arrow::field("v", arrow::int64())}), {chunked});
  const std::string text = linesOf(table, format::LineFormat::kCsv);
  std::string expected;
  for (int64_t i = 0; i < rows; ++i) expected += std::to_string(i * 3) + "\n";
  EXPECT_EQ(text, expected);
}

TEST(ArrowFormat, JsonDocumentIsColumnOriented) {
  const auto table = awkwardTexts()->Slice(0, 3);
  const auto document = format::JsonDocument(*table, {"string", "int64"});
  ASSERT_TRUE(document.ok());
  EXPECT_EQ(*document, R"({"variables":[{"name":"s","type":"string"},{"name":"n","type":"int64"}],)"
                       R"("rows":3,"columns":{"s":["",null,"a,b"],"n":[1,2,null]}})");
}

}  // namespace
