// Host values of list and map columns and of columns with nulls where the layout is awkward:
// slices with offsets, sliced values under a list, empty and null lists, all-null chunks,
// several chunks, and columns long enough to be split between threads.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <gtest/gtest.h>

#include "host/converter/HostValues.hpp"
#include "host/services/Services.hpp"
#include "tests/converter/ConverterTestUtil.hpp"

namespace vxtest::converter {
namespace {

std::string number(double value) {
  if (std::isnan(value)) return "NaN";
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

// A compact text of a host value: "int64[1,2]", "logical[1,0]", "double[NaN]", "null" for
// the null element, "string[a,<missing>]", "table{Key:int32[1],Value:double[2.5]}".
std::string describe(const vxArray* value) {
  if (value == nullptr) return "<none>";
  const std::string className = vxGetClassName(value);
  if (className == "double" && vxGetM(value) == 0 && vxGetN(value) == 0) return "null";
  if (className == "string") {
    const vxArray* data = vxGetField(value, 0, "Data");
    const auto* offsets = static_cast<const uint64_t*>(vxGetData(vxGetField(value, 0, "Offsets")));
    const vxLogical* missing = vxGetLogicals(vxGetField(value, 0, "Missing"));
    const auto* units = reinterpret_cast<const char16_t*>(vxGetChars(data));
    std::string out = "string[";
    const size_t rows = vxGetM(vxGetField(value, 0, "Missing"));
    for (size_t i = 0; i < rows; ++i) {
      if (i > 0) out += ",";
      if (missing[i]) {
        out += "<missing>";
        continue;
      }
      for (uint64_t u = offsets[i]; u < offsets[i + 1]; ++u) out += static_cast<char>(units[u]);
    }
    return out + "]";
  }
  if (className == "table") {
    const vxArray* names = vxGetField(value, 0, "Names");
    const vxArray* columns = vxGetField(value, 0, "Columns");
    std::string out = "table{";
    for (size_t i = 0; i < vxGetNumberOfElements(names); ++i) {
      if (i > 0) out += ",";
      out += core::host::TextOf(vxGetCell(names, i)) + ":" + describe(vxGetCell(columns, i));
    }
    return out + "}";
  }
  std::string out = className + "[";
  for (size_t i = 0; i < vxGetNumberOfElements(value); ++i) {
    if (i > 0) out += ",";
    double element = 0;
    if (className == "logical") {
      element = vxGetLogicals(value)[i];
    } else {
      auto* bytes = static_cast<const uint8_t*>(vxGetData(value)) + i * vxGetElementSize(value);
      if (className == "double") element = *reinterpret_cast<const double*>(bytes);
      if (className == "single") element = *reinterpret_cast<const float*>(bytes);
      if (className == "int8") element = *reinterpret_cast<const int8_t*>(bytes);
      if (className == "int16") element = *reinterpret_cast<const int16_t*>(bytes);
      if (className == "int32") element = *reinterpret_cast<const int32_t*>(bytes);
      if (className == "int64")
        element = static_cast<double>(*reinterpret_cast<const int64_t*>(bytes));
      if (className == "uint8") element = *reinterpret_cast<const uint8_t*>(bytes);
      if (className == "uint16") element = *reinterpret_cast<const uint16_t*>(bytes);
    }
    out += number(element);
  }
  return out + "]";
}

// Every row of a host cell column, described.
std::vector<std::string> describeRows(const vxArray* cell) {
  std::vector<std::string> rows;
  for (size_t i = 0; i < vxGetNumberOfElements(cell); ++i)
    rows.push_back(describe(vxGetCell(cell, i)));
  return rows;
}

std::vector<std::string> convertRows(const std::shared_ptr<arrow::ChunkedArray>& column) {
  auto table = arrow::Table::Make(arrow::schema({arrow::field("c", column->type())}), {column});
  auto host = toHost(table);
  if (host == nullptr) return {};
  return describeRows(hostColumn(host.get(), 0));
}

std::shared_ptr<arrow::ChunkedArray> chunked(arrow::ArrayVector chunks) {
  return std::make_shared<arrow::ChunkedArray>(std::move(chunks));
}

struct NestedCase {
  std::string name;
  std::shared_ptr<arrow::ChunkedArray> column;
  std::vector<std::string> rows;
};

std::shared_ptr<arrow::Array> listInt64() {
  return json(arrow::list(arrow::int64()), "[[1, 2], [], null, [3], [4, 5, 6]]");
}

// A list array over values that are themselves a slice: the list's offsets count from the
// slice's start, not from the buffer's.
std::shared_ptr<arrow::Array> listOverSlicedValues() {
  const auto values = json(arrow::float64(), "[100, 200, 1.5, null, 2.5, 3.5]")->Slice(2);
  const auto offsets = json(arrow::int32(), "[0, 2, 2, 4]");
  return arrow::ListArray::FromArrays(*offsets, *values).ValueOrDie();
}

std::vector<NestedCase> nestedCases() {
  const auto map = arrow::map(arrow::int32(), arrow::float64());
  return {
      {"ListOfInt64",
       chunked({listInt64()}),
       {"int64[1,2]", "int64[]", "null", "int64[3]", "int64[4,5,6]"}},
      {"SlicedList", chunked({listInt64()->Slice(1, 3)}), {"int64[]", "null", "int64[3]"}},
      {"ListOverSlicedValues",
       chunked({listOverSlicedValues()}),
       {"double[1.5,NaN]", "double[]", "double[2.5,3.5]"}},
      {"NullIntegerElementsMakeTheWholeColumnDouble",
       chunked({json(arrow::list(arrow::int32()), "[[1, null], [2], []]")}),
       {"double[1,NaN]", "double[2]", "double[]"}},
      {"Logicals",
       chunked({json(arrow::list(arrow::boolean()), "[[true, false], [], [true]]")}),
       {"logical[1,0]", "logical[]", "logical[1]"}},
      {"LogicalsWithNulls",
       chunked({json(arrow::list(arrow::boolean()), "[[true, null], [false]]")}),
       {"double[1,NaN]", "double[0]"}},
      {"SinglesWithNulls",
       chunked({json(arrow::list(arrow::float32()), "[[1.5, null], null]")}),
       {"single[1.5,NaN]", "null"}},
      {"AllNullChunk",
       chunked({json(arrow::list(arrow::int16()), "[null, null]")}),
       {"null", "null"}},
      {"SeveralChunks",
       chunked({json(arrow::list(arrow::int16()), "[[1], null]"),
                json(arrow::list(arrow::int16()), "[]"),
                json(arrow::list(arrow::int16()), "[[], [2, 3]]")->Slice(0)}),
       {"int16[1]", "null", "int16[]", "int16[2,3]"}},
      {"LargeList",
       chunked({json(arrow::large_list(arrow::uint8()), "[[255], [], null]")}),
       {"uint8[255]", "uint8[]", "null"}},
      {"ListOfStrings",
       chunked({json(arrow::list(arrow::utf8()), R"([["a", null], [], ["bc"]])")->Slice(1)}),
       {"string[]", "string[bc]"}},
      {"Map",
       chunked({json(map, "[[[1, 2.5], [2, null]], [], null, [[3, 4]]]")->Slice(1)}),
       {"table{Key:int32[],Value:double[]}", "null", "table{Key:int32[3],Value:double[4]}"}},
  };
}

TEST(NestedColumns, EveryRowFromItsRangeOfTheValues) {
  for (const auto& test : nestedCases()) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(convertRows(test.column), test.rows);
  }
}

// Long columns are split between threads: the rows must come out the same, in order.
TEST(NestedColumns, LongColumnsConvertAlikeOnOneAndOnSeveralThreads) {
  auto values = std::make_shared<arrow::Int64Builder>();
  arrow::ListBuilder lists(arrow::default_memory_pool(), values);
  for (int64_t i = 0; i < 50000; ++i) {
    if (i % 97 == 0) {
      ASSERT_TRUE(lists.AppendNull().ok());
      continue;
    }
    ASSERT_TRUE(lists.Append().ok());
    for (int64_t k = 0; k < i % 5; ++k) ASSERT_TRUE(values->Append(i * 10 + k).ok());
  }
  const auto column = chunked({lists.Finish().ValueOrDie()->Slice(7)});
  foundation::services::setNumComputationalThreads(1);
  const auto serial = convertRows(column);
  foundation::services::setNumComputationalThreads(2);
  const auto parallel = convertRows(column);
  foundation::services::setNumComputationalThreads(0);
  ASSERT_EQ(serial.size(), 50000u - 7);
  EXPECT_EQ(parallel, serial);
  EXPECT_EQ(serial[0], "int64[70,71]");
  EXPECT_EQ(serial[97 - 7], "null");
}

// Nulls are found in runs of the validity bitmap; a chunk that starts inside a bitmap byte and
// runs that cross 64-bit words must still put every NaN and missing mark at its own row.
TEST(NullRuns, LandOnTheirRowsAtAnyBitOffset) {
  const auto isNull = [](int64_t i) { return i % 7 == 0 || (i >= 60 && i < 140) || i == 199; };
  arrow::DoubleBuilder doubles;
  arrow::Int32Builder ints;
  arrow::StringBuilder strings;
  arrow::TimestampBuilder stamps(arrow::timestamp(arrow::TimeUnit::MILLI),
                                 arrow::default_memory_pool());
  for (int64_t i = 0; i < 200; ++i) {
    if (isNull(i)) {
      ASSERT_TRUE(doubles.AppendNull().ok() && ints.AppendNull().ok() &&
                  strings.AppendNull().ok() && stamps.AppendNull().ok());
    } else {
      ASSERT_TRUE(doubles.Append(i + 0.5).ok() && ints.Append(static_cast<int32_t>(i)).ok() &&
                  strings.Append("x").ok() && stamps.Append(i * 1000).ok());
    }
  }
  const arrow::ArrayVector whole = {doubles.Finish().ValueOrDie(), ints.Finish().ValueOrDie(),
                                    strings.Finish().ValueOrDie(), stamps.Finish().ValueOrDie()};
  const auto schema =
      arrow::schema({arrow::field("d", arrow::float64()), arrow::field("i", arrow::int32()),
                     arrow::field("s", arrow::utf8()),
                     arrow::field("t", arrow::timestamp(arrow::TimeUnit::MILLI))});
  for (const int64_t offset : {0, 3, 64, 65}) {
    SCOPED_TRACE("offset " + std::to_string(offset));
    arrow::ArrayVector sliced;
    for (const auto& array : whole) sliced.push_back(array->Slice(offset));
    const auto host = toHost(arrow::Table::Make(schema, sliced));
    ASSERT_NE(host, nullptr);
    const double* d = vxGetPr(hostColumn(host.get(), 0));
    const double* i = vxGetPr(hostColumn(host.get(), 1));
    const vxLogical* s = vxGetLogicals(vxGetField(hostColumn(host.get(), 2), 0, "Missing"));
    const vxArray* t = hostColumn(host.get(), 3);
    const vxLogical* tMissing = vxGetLogicals(vxGetField(t, 0, "Missing"));
    const auto* ticks = static_cast<const int64_t*>(vxGetData(vxGetField(t, 0, "Ticks")));
    for (int64_t row = 0; row < 200 - offset; ++row) {
      const int64_t source = row + offset;
      const bool null = isNull(source);
      ASSERT_EQ(std::isnan(d[row]), null) << "row " << row;
      ASSERT_EQ(std::isnan(i[row]), null) << "row " << row;
      ASSERT_EQ(s[row], null) << "row " << row;
      ASSERT_EQ(tMissing[row], null) << "row " << row;
      if (null) {
        ASSERT_EQ(ticks[row], 0) << "row " << row;
      } else {
        ASSERT_EQ(d[row], source + 0.5);
        ASSERT_EQ(i[row], static_cast<double>(source));
        ASSERT_EQ(ticks[row], source * 1000);
      }
    }
  }
}

// A chunk of nulls only, between chunks with values: every row of it is missing.
TEST(NullRuns, AllNullChunksAmongOthers) {
  const auto column =
      chunked({json(arrow::int32(), "[1, null]"), json(arrow::int32(), "[null, null, null]"),
               json(arrow::int32(), "[4]")});
  auto host =
      toHost(arrow::Table::Make(arrow::schema({arrow::field("c", arrow::int32())}), {column}));
  ASSERT_NE(host, nullptr);
  EXPECT_EQ(describe(hostColumn(host.get(), 0)), "double[1,NaN,NaN,NaN,NaN,4]");
  const auto strings =
      chunked({json(arrow::utf8(), R"(["a"])"), json(arrow::utf8(), "[null, null]")});
  EXPECT_EQ(convertRows(chunked({json(arrow::list(arrow::utf8()), R"([["a"], null])")})),
            (std::vector<std::string>{"string[a]", "null"}));
  host = toHost(arrow::Table::Make(arrow::schema({arrow::field("s", arrow::utf8())}), {strings}));
  ASSERT_NE(host, nullptr);
  EXPECT_EQ(describe(hostColumn(host.get(), 0)), "string[a,<missing>,<missing>]");
}

}  // namespace
}  // namespace vxtest::converter
