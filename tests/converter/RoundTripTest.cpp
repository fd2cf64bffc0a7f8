// Arrow -> host -> Arrow round trips for every supported type, and the host values in between.
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>

#include <arrow/api.h>
#include <gtest/gtest.h>

#include "host/converter/Converter.hpp"
#include "tests/converter/ConverterTestUtil.hpp"

namespace vxtest::converter {
namespace {

using arrow::field;

struct TypeCase {
  std::shared_ptr<arrow::DataType> type;
  std::string values;  // JSON
};

// Types whose values, nulls included, come back unchanged.
class LosslessRoundTrip : public ::testing::TestWithParam<TypeCase> {};

TEST_P(LosslessRoundTrip, WithAndWithoutNulls) {
  const auto& param = GetParam();
  expectRoundTrip(oneColumn(json(param.type, param.values)));
  // An empty cell has nothing to tell a list from binary: it comes back as binary.
  const auto emptyType =
      core::to_vantro_datatype(param.type) == "cell" ? arrow::binary() : param.type;
  expectRoundTrip(oneColumn(json(param.type, "[]")), oneColumn(json(emptyType, "[]")));
}

INSTANTIATE_TEST_SUITE_P(
    Types, LosslessRoundTrip,
    ::testing::Values(
        TypeCase{arrow::boolean(), "[true, false, true]"},
        TypeCase{arrow::int8(), "[-128, 0, 127]"}, TypeCase{arrow::uint8(), "[0, 255]"},
        TypeCase{arrow::int16(), "[-32768, 32767]"}, TypeCase{arrow::uint16(), "[0, 65535]"},
        TypeCase{arrow::int32(), "[-2147483648, 2147483647]"},
        TypeCase{arrow::uint32(), "[0, 4294967295]"},
        TypeCase{arrow::int64(), "[-9223372036854775808, 9223372036854775807, 0]"},
        TypeCase{arrow::uint64(), "[0, 18446744073709551615]"},
        TypeCase{arrow::float32(), "[1.5, null, -0.0]"},
        TypeCase{arrow::float64(), "[1e300, null, -2.5]"},
        TypeCase{arrow::utf8(), R"(["a", null, "", "héllo wörld", "日本語", "😀x"])"},
        TypeCase{arrow::binary(), R"(["a\u00ff", null, ""])"},
        TypeCase{arrow::date32(), "[0, -719162, 2932896, null]"},
        TypeCase{arrow::date64(), "[86400000, null]"},
        TypeCase{arrow::timestamp(arrow::TimeUnit::SECOND), "[0, null, -1]"},
        TypeCase{arrow::timestamp(arrow::TimeUnit::MILLI, "UTC"), "[1, null]"},
        TypeCase{arrow::timestamp(arrow::TimeUnit::NANO, "America/New_York"),
                 "[1700000000123456789, -9223372036854775807, null]"},
        TypeCase{arrow::time32(arrow::TimeUnit::SECOND), "[0, 86399, null]"},
        TypeCase{arrow::time32(arrow::TimeUnit::MILLI), "[86399999, null]"},
        TypeCase{arrow::time64(arrow::TimeUnit::MICRO), "[1, null]"},
        TypeCase{arrow::time64(arrow::TimeUnit::NANO), "[86399999999999, null]"},
        TypeCase{arrow::duration(arrow::TimeUnit::NANO), "[-9223372036854775807, 5, null]"},
        TypeCase{arrow::duration(arrow::TimeUnit::SECOND), "[3600, null]"},
        TypeCase{arrow::dictionary(arrow::int32(), arrow::utf8()), R"(["b", "a", null, "b"])"},
        TypeCase{arrow::dictionary(arrow::int8(), arrow::utf8(), true), R"(["x", null])"},
        TypeCase{arrow::list(arrow::int64()), "[[1, 2], null, [], [9223372036854775807]]"},
        TypeCase{arrow::list(arrow::list(arrow::utf8())), R"([[["a"], []], null, [null]])"},
        TypeCase{
            arrow::list(arrow::struct_({field("a", arrow::int32()), field("s", arrow::utf8())})),
            R"([[{"a": 1, "s": "x"}, {"a": 2, "s": null}], null, []])"},
        TypeCase{arrow::map(arrow::utf8(), arrow::float64()),
                 R"([[["k", 1], ["j", null]], null, []])"},
        TypeCase{arrow::map(arrow::int64(), arrow::list(arrow::int32())),
                 R"([[[1, [1, 2]], [2, null]], [[-9223372036854775808, []]]])"},
        TypeCase{arrow::struct_({field("a", arrow::int64()), field("b", arrow::utf8()),
                                 field("t", arrow::timestamp(arrow::TimeUnit::MICRO, "UTC"))}),
                 R"([{"a": 1, "b": "x", "t": 5}, {"a": 2, "b": null, "t": null}])"}));

// Types whose host value cannot say everything: what Arrow type comes back.
TEST(LossyRoundTrip, IntegersAndLogicalsWithNullsComeBackAsDouble) {
  expectRoundTrip(oneColumn(json(arrow::int32(), "[1, null, -3]")),
                  oneColumn(json(arrow::float64(), "[1, null, -3]")));
  expectRoundTrip(oneColumn(json(arrow::boolean(), "[true, null]")),
                  oneColumn(json(arrow::float64(), "[1, null]")));
  // Decided once per list column, so that every element of the cell has one class.
  expectRoundTrip(oneColumn(json(arrow::list(arrow::int8()), "[[1, null], [2], []]")),
                  oneColumn(json(arrow::list(arrow::float64()), "[[1, null], [2], []]")));
  // 64-bit integers keep their type, nulls and all.
  expectRoundTrip(oneColumn(json(arrow::map(arrow::utf8(), arrow::int64()),
                                 R"([[["k", 9007199254740993], ["j", null]], []])")));
}

TEST(LossyRoundTrip, WideAndEncodedTypesComeBackAsTheirPlainForms) {
  expectRoundTrip(oneColumn(json(arrow::large_utf8(), R"(["a", null])")),
                  oneColumn(json(arrow::utf8(), R"(["a", null])")));
  // 1.0 as half-float bits (JSON texts of half floats mean bits or values depending on Arrow's
  // release).
  arrow::HalfFloatBuilder halves;
  ASSERT_TRUE(halves.Append(15360).ok() && halves.AppendNull().ok());
  expectRoundTrip(oneColumn(halves.Finish().ValueOrDie()),
                  oneColumn(json(arrow::float32(), "[1.0, null]")));
  expectRoundTrip(oneColumn(json(arrow::null(), "[null, null]")),
                  oneColumn(json(arrow::float64(), "[null, null]")));
  expectRoundTrip(oneColumn(json(arrow::decimal128(10, 2), R"(["12.34", null])")),
                  oneColumn(json(arrow::float64(), "[12.34, null]")));
  expectRoundTrip(oneColumn(json(arrow::fixed_size_binary(2), R"(["ab", null])")),
                  oneColumn(json(arrow::binary(), R"(["ab", null])")));
  auto dictionary = json(arrow::float64(), "[1.5, 2.5]");
  auto indices = json(arrow::int16(), "[1, 0, null]");
  auto encoded = *arrow::DictionaryArray::FromArrays(
      arrow::dictionary(arrow::int16(), arrow::float64()), indices, dictionary);
  expectRoundTrip(oneColumn(encoded), oneColumn(json(arrow::float64(), "[2.5, 1.5, null]")));
}

TEST(TableShape, EmptyZeroRowAndZeroColumnTables) {
  auto fromNull = toHost(nullptr);
  auto back = toArrow(fromNull.get());
  EXPECT_EQ(back->num_columns(), 0);
  EXPECT_EQ(back->num_rows(), 0);

  auto schema = arrow::schema(
      {field("a", arrow::int64()), field("s", arrow::utf8()), field("l", arrow::binary())});
  expectRoundTrip(*arrow::Table::MakeEmpty(schema));

  // Columns with no chunks at all.
  std::vector<std::shared_ptr<arrow::ChunkedArray>> noChunks;
  for (const auto& f : schema->fields()) {
    noChunks.push_back(std::make_shared<arrow::ChunkedArray>(arrow::ArrayVector{}, f->type()));
  }
  expectRoundTrip(arrow::Table::Make(schema, noChunks, 0));

  // Without columns a host table cannot hold a row count.
  auto noColumns = arrow::Table::Make(arrow::schema({}), arrow::ArrayVector{}, 7);
  auto host = toHost(noColumns);
  EXPECT_EQ(toArrow(host.get())->num_rows(), 0);
}

TEST(TableShape, SeveralChunksAndSlicesConvertAsOneColumn) {
  auto ints = json(arrow::int64(), "[0, 1, 2, 3, 4, 5, 6, 7, 8, 9]");
  auto strings = json(arrow::utf8(), R"(["a", "bb", "ççç", null, "d", "e", "f", "g", "h", "i"])");
  auto stamps =
      json(arrow::timestamp(arrow::TimeUnit::NANO, "UTC"), "[0, 1, 2, null, 4, 5, 6, 7, 8, 9]");
  auto doubles = json(arrow::float64(), "[0, 1, null, 3, 4, 5, 6, 7, 8, 9]");
  auto lists = json(arrow::list(arrow::int32()),
                    "[[0], [1], null, [3, 3], [], [5], [6], [7], "
                    "[8], [9]]");
  auto structs = json(arrow::struct_({field("v", arrow::int16())}),
                      R"([{"v": 0}, {"v": 1}, {"v": 2}, {"v": 3}, {"v": 4}, {"v": 5},
                         {"v": 6}, {"v": 7}, {"v": 8}, {"v": 9}])");
  std::vector<std::shared_ptr<arrow::ChunkedArray>> chunked;
  arrow::FieldVector fields;
  int k = 0;
  for (const auto& array : {ints, strings, stamps, doubles, lists, structs}) {
    // Uneven slices with non-zero offsets, and an empty chunk between them.
    chunked.push_back(std::make_shared<arrow::ChunkedArray>(
        arrow::ArrayVector{array->Slice(1, 3), array->Slice(4, 0), array->Slice(4, 5)}));
    fields.push_back(field("c" + std::to_string(k++), array->type()));
  }
  auto table = arrow::Table::Make(arrow::schema(fields), chunked);
  expectRoundTrip(table);

  auto host = toHost(table);
  const auto* first = static_cast<const int64_t*>(vxGetData(hostColumn(host.get(), 0)));
  EXPECT_EQ(std::vector<int64_t>(first, first + 8), (std::vector<int64_t>{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(TableShape, ChunksWithDifferentDictionariesAreUnified) {
  auto type = arrow::dictionary(arrow::int32(), arrow::utf8());
  auto a = *arrow::DictionaryArray::FromArrays(type, json(arrow::int32(), "[0, 1]"),
                                               json(arrow::utf8(), R"(["x", "y"])"));
  auto b = *arrow::DictionaryArray::FromArrays(type, json(arrow::int32(), "[1, null, 0]"),
                                               json(arrow::utf8(), R"(["y", "z"])"));
  auto table =
      arrow::Table::Make(arrow::schema({field("c", type)}),
                         {std::make_shared<arrow::ChunkedArray>(arrow::ArrayVector{a, b})});
  auto back = toArrow(toHost(table).get());
  ASSERT_NE(back, nullptr);
  auto decoded = json(arrow::utf8(), R"(["x", "y", "z", null, "y"])");
  auto combined = *arrow::Concatenate(back->column(0)->chunks());
  const auto& dict = static_cast<const arrow::DictionaryArray&>(*combined);
  for (int64_t i = 0; i < decoded->length(); ++i) {
    if (decoded->IsNull(i)) {
      EXPECT_TRUE(dict.IsNull(i));
    } else {
      EXPECT_EQ(dict.dictionary()->GetScalar(dict.GetValueIndex(i)).ValueOrDie()->ToString(),
                decoded->GetScalar(i).ValueOrDie()->ToString());
    }
  }
}

TEST(TableShape, LargeColumnsSurviveIntact) {
  constexpr int64_t kRows = 300000;
  arrow::Int64Builder ints;
  arrow::StringBuilder strings;
  for (int64_t i = 0; i < kRows; ++i) {
    ASSERT_TRUE(ints.Append(i * 7919 - 5).ok());
    ASSERT_TRUE(
        (i % 97 == 0 ? strings.AppendNull() : strings.Append("row" + std::to_string(i))).ok());
  }
  auto table =
      arrow::Table::Make(arrow::schema({field("i", arrow::int64()), field("s", arrow::utf8())}),
                         {*ints.Finish(), *strings.Finish()});
  expectRoundTrip(table);
}

// ---- the host values in between -------------------------------------------------------

TEST(HostValues, NullsBecomeNaNOrMissingMarks) {
  auto host = toHost(oneColumn(json(arrow::uint32(), "[4294967295, null]")));
  const double* values = vxGetPr(hostColumn(host.get(), 0));
  ASSERT_NE(values, nullptr);
  EXPECT_EQ(values[0], 4294967295.0);
  EXPECT_TRUE(std::isnan(values[1]));

  auto cell = toHost(oneColumn(json(arrow::binary(), R"([null, "xy"])")));
  const vxArray* cells = hostColumn(cell.get(), 0);
  EXPECT_EQ(vxGetClassID(vxGetCell(cells, 0)), vxDOUBLE_CLASS);
  EXPECT_TRUE(vxIsEmpty(vxGetCell(cells, 0)));
  EXPECT_EQ(vxGetClassID(vxGetCell(cells, 1)), vxUINT8_CLASS);
  EXPECT_EQ(vxGetM(vxGetCell(cells, 1)), 2u);
}

// 64-bit integers with nulls keep their class in an "integer" object with a Missing mask,
// whatever their values, at the top level and inside lists alike; they convert back to the
// same Arrow array.
TEST(HostValues, IntegersWithNullsKeepEveryValue) {
  const struct Case {
    std::shared_ptr<arrow::DataType> type;
    const char* values;
  } cases[] = {
      {arrow::int64(), "[-9007199254740992, null]"},
      {arrow::int64(), "[9007199254740993, null, -9223372036854775808]"},
      {arrow::uint64(), "[18446744073709551615, null]"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.type->ToString() + " " + c.values);
    const auto table = oneColumn(json(c.type, c.values));
    auto host = toHost(table);
    const vxArray* column = hostColumn(host.get(), 0);
    ASSERT_STREQ(vxGetClassName(column), "integer");
    const vxArray* values = vxGetField(column, 0, "Values");
    EXPECT_EQ(vxGetClassID(values),
              c.type->id() == arrow::Type::INT64 ? vxINT64_CLASS : vxUINT64_CLASS);
    const vxLogical* missing = vxGetLogicals(vxGetField(column, 0, "Missing"));
    EXPECT_TRUE(missing[1]);
    EXPECT_FALSE(missing[0]);
    expectRoundTrip(table);
  }
  // Without nulls the column stays a plain int64 array.
  auto plain = toHost(oneColumn(json(arrow::int64(), "[9007199254740993, 1]")));
  EXPECT_EQ(vxGetClassID(hostColumn(plain.get(), 0)), vxINT64_CLASS);
  // In a list column every element is an integer object, with or without nulls of its own.
  auto lists =
      toHost(oneColumn(json(arrow::list(arrow::int64()), "[[1, null], [9007199254740993], null]")));
  const vxArray* cells = hostColumn(lists.get(), 0);
  ASSERT_EQ(vxGetClassID(cells), vxCELL_CLASS);
  EXPECT_STREQ(vxGetClassName(vxGetCell(cells, 0)), "integer");
  const vxArray* second = vxGetCell(cells, 1);
  ASSERT_STREQ(vxGetClassName(second), "integer");
  EXPECT_EQ(static_cast<const int64_t*>(vxGetData(vxGetField(second, 0, "Values")))[0],
            9007199254740993);
}

// Decimals become the double nearest their exact value, which strtod finds from the text.
TEST(HostValues, DecimalsBecomeTheNearestDouble) {
  std::mt19937_64 random(11);
  for (const int32_t scale : {0, 2, 7, 20, 30}) {
    arrow::Decimal128Builder builder(arrow::decimal128(38, scale));
    std::vector<double> expected;
    for (int i = 0; i < 2000; ++i) {
      // Small unscaled integers take the one-division path, large ones the text.
      const int64_t high = i % 2 ? static_cast<int64_t>(random() >> 40) : 0;
      const uint64_t low = i % 4 < 2 ? random() >> (i % 53 + 11) : random();
      arrow::Decimal128 value(i % 3 == 0 ? -high : high, low);
      if (i % 3 == 0 && high == 0) value.Negate();
      if (!value.FitsInPrecision(38)) continue;
      ASSERT_TRUE(builder.Append(value).ok());
      expected.push_back(std::strtod(value.ToString(scale).c_str(), nullptr));
    }
    auto host = toHost(oneColumn(builder.Finish().ValueOrDie()));
    const double* converted = vxGetPr(hostColumn(host.get(), 0));
    for (size_t i = 0; i < expected.size(); ++i) {
      ASSERT_EQ(converted[i], expected[i]) << "scale " << scale << " row " << i;
    }
  }
  // The value an issue found: 8178782.93 is the double the literal names.
  auto host = toHost(oneColumn(json(arrow::decimal128(12, 2), R"(["8178782.93"])")));
  EXPECT_EQ(vxGetPr(hostColumn(host.get(), 0))[0], 8178782.93);
}

TEST(HostValues, StringObjectHoldsUtf16WithOffsets) {
  auto host = toHost(oneColumn(json(arrow::utf8(), R"(["ab", null, "é😀"])")));
  const vxArray* strings = hostColumn(host.get(), 0);
  EXPECT_STREQ(vxGetClassName(strings), "string");
  EXPECT_EQ(matrix::toUString(vxGetField(strings, 0, "Data")), u"ab\u00e9\U0001F600");
  const auto* offsets = static_cast<const uint64_t*>(vxGetData(vxGetField(strings, 0, "Offsets")));
  EXPECT_EQ(std::vector<uint64_t>(offsets, offsets + 4), (std::vector<uint64_t>{0, 2, 2, 5}));
  const vxLogical* missing = vxGetLogicals(vxGetField(strings, 0, "Missing"));
  EXPECT_EQ(std::vector<bool>(missing, missing + 3), (std::vector<bool>{false, true, false}));
}

TEST(HostValues, InvalidUtf8BecomesReplacementCharacters) {
  // Truncated sequence, stray continuation byte, overlong form, surrogate, and a sequence cut
  // at the end of a value that must not swallow the next value.
  const std::string bad[] = {"a\xE6\x97", "\x80z", "\xC0\xAF", "\xED\xA0\x80", "\xF0\x9F"};
  arrow::StringBuilder builder;
  for (const auto& value : bad) ASSERT_TRUE(builder.Append(value).ok());
  ASSERT_TRUE(builder.Append("ok").ok());
  auto host = toHost(oneColumn(*builder.Finish()));
  const vxArray* strings = hostColumn(host.get(), 0);
  EXPECT_EQ(matrix::toUString(vxGetField(strings, 0, "Data")),
            u"a\uFFFD"
            u"\uFFFDz"
            u"\uFFFD\uFFFD"
            u"\uFFFD\uFFFD\uFFFD"
            u"\uFFFD"
            u"ok");
  auto back = toArrow(host.get());
  EXPECT_EQ(back->column(0)->GetScalar(5).ValueOrDie()->ToString(), "ok");
  EXPECT_EQ(back->column(0)->GetScalar(0).ValueOrDie()->ToString(), "a\xEF\xBF\xBD");
}

TEST(HostValues, DatetimeKeepsUnitZoneAndKind) {
  auto host = toHost(oneColumn(
      json(arrow::timestamp(arrow::TimeUnit::NANO, "Asia/Tokyo"), "[1700000000123456789, null]")));
  const vxArray* stamps = hostColumn(host.get(), 0);
  EXPECT_STREQ(vxGetClassName(stamps), "datetime");
  EXPECT_EQ(matrix::toUString(vxGetField(stamps, 0, "Unit")), u"ns");
  EXPECT_EQ(matrix::toUString(vxGetField(stamps, 0, "TimeZone")), u"Asia/Tokyo");
  EXPECT_EQ(matrix::toUString(vxGetField(stamps, 0, "Kind")), u"timestamp");
  const auto* ticks = static_cast<const int64_t*>(vxGetData(vxGetField(stamps, 0, "Ticks")));
  EXPECT_EQ(ticks[0], 1700000000123456789);
  EXPECT_TRUE(vxGetLogicals(vxGetField(stamps, 0, "Missing"))[1]);

  auto times = toHost(oneColumn(json(arrow::time32(arrow::TimeUnit::MILLI), "[5]")));
  EXPECT_STREQ(vxGetClassName(hostColumn(times.get(), 0)), "duration");
  EXPECT_EQ(matrix::toUString(vxGetField(hostColumn(times.get(), 0), 0, "Kind")), u"time32");
}

TEST(HostValues, StructsAreNestedTablesAndMapsAreKeyValueTables) {
  auto host = toHost(
      oneColumn(json(arrow::map(arrow::utf8(), arrow::float64()), R"([[["a", 1.5], ["b", 2]]])")));
  const vxArray* entries = vxGetCell(hostColumn(host.get(), 0), 0);
  EXPECT_STREQ(vxGetClassName(entries), "table");
  const vxArray* names = vxGetField(entries, 0, "Names");
  EXPECT_EQ(matrix::toUString(vxGetCell(names, 0)), u"Key");
  EXPECT_EQ(matrix::toUString(vxGetCell(names, 1)), u"Value");
  EXPECT_EQ(vxGetPr(hostColumn(entries, 1))[0], 1.5);

  // A null struct row shows as missing in each field.
  auto nested = toHost(
      oneColumn(json(arrow::struct_({field("x", arrow::float64())}), R"([{"x": 1}, null])")));
  const vxArray* inner = hostColumn(nested.get(), 0);
  EXPECT_STREQ(vxGetClassName(inner), "table");
  EXPECT_TRUE(std::isnan(vxGetPr(hostColumn(inner, 0))[1]));
}

// A missing value inside a cell (the 0x0 double) has no type: wherever it stands in place of a
// list, map or nested table, it takes the type of its column instead of deciding it.
TEST(HostValues, MissingValuesInsideCellsTakeTheirColumnsType) {
  const auto inner = arrow::map(arrow::int32(), arrow::boolean());
  const struct Case {
    std::shared_ptr<arrow::DataType> type;
    const char* values;
  } cases[] = {
      {arrow::map(arrow::utf8(), inner),
       R"([[["a", [[1, true]]]], [["b", null]], [["c", null], ["d", [[2, false]]]]])"},
      {arrow::list(arrow::list(arrow::float64())), "[[[1.5], null], [null], [[2.5]]]"},
      {arrow::list(arrow::struct_({field("x", arrow::list(arrow::int32()))})),
       R"([[{"x": null}], [{"x": [1, 2]}]])"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.type->ToString());
    expectRoundTrip(oneColumn(json(c.type, c.values)));
  }
}

// Whether integers become double is decided for the whole column, not per chunk (row group).
TEST(HostValues, ListsOfIntegersGetOneClassAcrossChunks) {
  const auto type = arrow::list(arrow::int64());
  const auto column = std::make_shared<arrow::ChunkedArray>(
      arrow::ArrayVector{json(type, "[[1, null]]"), json(type, "[[2, 3]]")});
  const auto table = arrow::Table::Make(arrow::schema({field("c", type)}), {column});
  const auto host = toHost(table);
  const vxArray* cells = hostColumn(host.get(), 0);
  ASSERT_EQ(vxGetNumberOfElements(cells), 2u);
  // 64-bit integers with nulls somewhere: an integer object in every cell.
  EXPECT_STREQ(vxGetClassName(vxGetCell(cells, 0)), "integer");
  EXPECT_STREQ(vxGetClassName(vxGetCell(cells, 1)), "integer");
  const auto narrow = arrow::list(arrow::int16());
  const auto narrowColumn = std::make_shared<arrow::ChunkedArray>(
      arrow::ArrayVector{json(narrow, "[[1, null]]"), json(narrow, "[[2, 3]]")});
  const auto narrowHost =
      toHost(arrow::Table::Make(arrow::schema({field("c", narrow)}), {narrowColumn}));
  EXPECT_EQ(vxGetClassID(vxGetCell(hostColumn(narrowHost.get(), 0), 0)), vxDOUBLE_CLASS);
  EXPECT_EQ(vxGetClassID(vxGetCell(hostColumn(narrowHost.get(), 0), 1)), vxDOUBLE_CLASS);
}

TEST(DataTypeNames, FollowTheHostTypeTable) {
  using core::to_vantro_datatype;
  EXPECT_EQ(to_vantro_datatype(arrow::boolean()), "logical");
  EXPECT_EQ(to_vantro_datatype(arrow::uint16()), "uint16");
  EXPECT_EQ(to_vantro_datatype(arrow::float16()), "single");
  EXPECT_EQ(to_vantro_datatype(arrow::decimal256(40, 3)), "double");
  EXPECT_EQ(to_vantro_datatype(arrow::null()), "double");
  EXPECT_EQ(to_vantro_datatype(arrow::large_utf8()), "string");
  EXPECT_EQ(to_vantro_datatype(arrow::fixed_size_binary(4)), "cell");
  EXPECT_EQ(to_vantro_datatype(arrow::date64()), "datetime");
  EXPECT_EQ(to_vantro_datatype(arrow::time64(arrow::TimeUnit::NANO)), "duration");
  EXPECT_EQ(to_vantro_datatype(arrow::dictionary(arrow::int8(), arrow::utf8())), "categorical");
  EXPECT_EQ(to_vantro_datatype(arrow::dictionary(arrow::int8(), arrow::int16())), "int16");
  EXPECT_EQ(to_vantro_datatype(arrow::map(arrow::utf8(), arrow::int8())), "cell");
  EXPECT_EQ(to_vantro_datatype(arrow::struct_({field("a", arrow::int8())})), "table");
  EXPECT_EQ(to_vantro_datatype(arrow::month_interval()), std::nullopt);
  EXPECT_EQ(to_vantro_datatype(arrow::fixed_size_list(arrow::int8(), 2)), std::nullopt);
  // Nested types are only as supported as their contents.
  EXPECT_EQ(to_vantro_datatype(arrow::list(arrow::day_time_interval())), std::nullopt);
  EXPECT_EQ(to_vantro_datatype(arrow::struct_({field("i", arrow::month_interval())})),
            std::nullopt);
}

}  // namespace
}  // namespace vxtest::converter
