// Conversions that share memory instead of copying it: a consumed Arrow table lending its
// buffers to host arrays, host arrays over memory owned elsewhere, and Arrow tables that borrow
// host values. Each must give the same values as a copy and never let one side's writes show
// on the other.
#include <cstring>
#include <limits>
#include <vector>

#include <arrow/api.h>
#include <gtest/gtest.h>

#include "host/converter/TextCodec.hpp"
#include "host/services/Services.hpp"
#include "tests/converter/ConverterTestUtil.hpp"

namespace vxtest::converter {
namespace {

std::shared_ptr<arrow::Array> doubles(int64_t rows, double first = 0.5) {
  arrow::DoubleBuilder builder;
  for (int64_t i = 0; i < rows; ++i) EXPECT_TRUE(builder.Append(first + i).ok());
  return builder.Finish().ValueOrDie();
}

matrix::unique_array consume(std::shared_ptr<arrow::Table> table) {
  auto result = core::to_vantro(std::move(table));
  EXPECT_TRUE(result.ok()) << result.status().ToString();
  return result.ok() ? std::move(result).ValueUnsafe() : nullptr;
}

double* hostDoubles(const vxArray* table, size_t column = 0) {
  return vxGetPr(hostColumn(table, column));
}

// ---- Arrow to host, consuming the table ----------------------------------------------

// Every kind of column, with nulls, slices, several chunks and text that is not ASCII: the
// consuming conversion must give exactly what the copying one gives.
TEST(ConsumingConversion, GivesTheSameHostTableAsCopying) {
  const auto strings =
      arrow::ChunkedArray::Make({json(arrow::utf8(), R"(["plain", null])"),
                                 json(arrow::utf8(), R"(["caf\u00e9 \ud83d\ude00"])")})
          .ValueOrDie();
  const auto sliced = json(arrow::int32(), "[9, 8, 7, 6, 5]")->Slice(1, 3);
  const auto stamps = json(arrow::timestamp(arrow::TimeUnit::NANO, "UTC"), "[1, 2, null]");
  const auto schema =
      arrow::schema({arrow::field("d", arrow::float64()), arrow::field("dn", arrow::float64()),
                     arrow::field("in", arrow::int16()), arrow::field("slice", arrow::int32()),
                     arrow::field("s", arrow::utf8()), arrow::field("t", stamps->type()),
                     arrow::field("u", arrow::uint64()),
                     arrow::field("nested", arrow::struct_({arrow::field("x", arrow::int64())})),
                     arrow::field("list", arrow::list(arrow::float32()))});
  const auto make = [&] {
    return arrow::Table::Make(
        schema, {std::make_shared<arrow::ChunkedArray>(json(arrow::float64(), "[1.5, -2, 3]")),
                 std::make_shared<arrow::ChunkedArray>(json(arrow::float64(), "[null, 2, 3]")),
                 std::make_shared<arrow::ChunkedArray>(json(arrow::int16(), "[1, null, 3]")),
                 std::make_shared<arrow::ChunkedArray>(sliced), strings,
                 std::make_shared<arrow::ChunkedArray>(stamps),
                 arrow::ChunkedArray::Make({json(arrow::uint64(), "[18446744073709551615]"),
                                            json(arrow::uint64(), "[0, 7]")})
                     .ValueOrDie(),
                 std::make_shared<arrow::ChunkedArray>(
                     json(schema->field(7)->type(), R"([{"x": 1}, null, {"x": 3}])")),
                 std::make_shared<arrow::ChunkedArray>(
                     json(schema->field(8)->type(), "[[1, 2], null, []]"))});
  };
  // Tables built afresh, so that no column of the consumed one is shared with the other.
  const auto copied = toHost(make());
  const auto consumed = consume(make());
  ASSERT_NE(copied, nullptr);
  ASSERT_NE(consumed, nullptr);
  const auto expected = toArrow(copied.get());
  const auto actual = toArrow(consumed.get());
  EXPECT_TRUE(actual->Equals(*expected)) << actual->ToString() << "\nvs\n" << expected->ToString();
}

TEST(ConsumingConversion, FailsLikeCopyingOnAnUnsupportedColumn) {
  auto table =
      arrow::Table::Make(arrow::schema({arrow::field("ok", arrow::int8()),
                                        arrow::field("bad", arrow::month_interval())}),
                         {json(arrow::int8(), "[1]"), json(arrow::month_interval(), "[1]")});
  auto result = core::to_vantro(std::move(table));
  ASSERT_EQ(result.status().code(), arrow::StatusCode::TypeError);
  const auto* detail =
      dynamic_cast<const core::TableErrorStatusDetail*>(result.status().detail().get());
  ASSERT_NE(detail, nullptr);
  EXPECT_EQ(detail->column_name(), "bad");
  EXPECT_EQ(table, nullptr);
}

// The host array takes over the values buffer and keeps it alive once the table is gone,
// including a chunk that starts at an offset into its buffer.
TEST(ConsumingConversion, AdoptedBuffersOutliveTheArrowTable) {
  auto whole = doubles(1000);
  auto offsetChunk = doubles(100, 10.0)->Slice(3, 50);  // the only holder of its buffer
  const uint8_t* adopted = whole->data()->buffers[1]->data();
  auto table = arrow::Table::Make(arrow::schema({arrow::field("whole", arrow::float64()),
                                                 arrow::field("offset", arrow::float64())}),
                                  {std::move(whole), std::move(offsetChunk)});
  auto host = consume(std::move(table));
  ASSERT_NE(host, nullptr);
  // Memory that the freed Arrow objects would have left to the next allocations.
  std::vector<std::shared_ptr<arrow::Array>> churn;
  for (int i = 0; i < 8; ++i) churn.push_back(doubles(1000, -1.0));

  const double* values = hostDoubles(host.get(), 0);
  EXPECT_EQ(static_cast<const void*>(values), static_cast<const void*>(adopted));
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(values[i], 0.5 + i) << i;
  const double* shifted = hostDoubles(host.get(), 1);
  ASSERT_EQ(vxGetM(hostColumn(host.get(), 1)), 50u);
  for (int i = 0; i < 50; ++i) ASSERT_EQ(shifted[i], 13.0 + i) << i;

  // A copy of an adopted array owns its data.
  matrix::unique_array copy(vxDuplicateArray(hostColumn(host.get(), 0)));
  host.reset();
  EXPECT_EQ(vxGetPr(copy.get())[999], 999.5);
}

// Whenever someone else can still see the Arrow memory, the host gets a copy: writing to the
// host array must leave every Arrow array and buffer as it was.
TEST(ConsumingConversion, HostWritesNeverReachArrowMemoryHeldElsewhere) {
  const auto expectUntouched = [](std::shared_ptr<arrow::Table> table,
                                  const std::shared_ptr<arrow::Array>& witness) {
    std::vector<double> saved(witness->length());
    std::memcpy(saved.data(), witness->data()->GetValues<double>(1), saved.size() * 8);
    auto host = consume(std::move(table));
    ASSERT_NE(host, nullptr);
    double* values = hostDoubles(host.get());
    for (size_t i = 0; i < vxGetM(hostColumn(host.get(), 0)); ++i) values[i] = -99.0;
    for (size_t i = 0; i < saved.size(); ++i) {
      ASSERT_EQ(witness->data()->GetValues<double>(1)[i], saved[i]) << i;
    }
  };
  const auto schema = arrow::schema({arrow::field("d", arrow::float64())});

  // The caller keeps its own reference to the table.
  {
    auto array = doubles(64);
    auto table = arrow::Table::Make(schema, {array});
    auto kept = table;
    array.reset();
    expectUntouched(std::move(table), kept->column(0)->chunk(0));
  }
  // The caller keeps the array.
  {
    auto array = doubles(64);
    expectUntouched(arrow::Table::Make(schema, {array}), array);
  }
  // Another array shares the buffer.
  {
    auto array = doubles(64);
    auto other = arrow::MakeArray(array->data()->Copy());
    expectUntouched(arrow::Table::Make(schema, {std::move(array)}), other);
  }
  // The chunk's buffer is a slice of a parent that another slice also shows.
  {
    auto parent = doubles(64)->data()->buffers[1];
    auto mine = arrow::SliceBuffer(parent, 0, 32 * 8);
    auto theirs = arrow::MakeArray(
        arrow::ArrayData::Make(arrow::float64(), 64, {nullptr, arrow::SliceBuffer(parent, 0)}));
    parent.reset();
    auto array =
        arrow::MakeArray(arrow::ArrayData::Make(arrow::float64(), 32, {nullptr, std::move(mine)}));
    expectUntouched(arrow::Table::Make(schema, {std::move(array)}), theirs);
  }
  // The only holder of a buffer over memory that Arrow does not own (and may not write).
  {
    std::vector<double> outside(64, 4.25);
    auto array = arrow::MakeArray(arrow::ArrayData::Make(
        arrow::float64(), 64,
        {nullptr, std::make_shared<arrow::Buffer>(reinterpret_cast<const uint8_t*>(outside.data()),
                                                  64 * 8)}));
    auto host = consume(arrow::Table::Make(schema, {std::move(array)}));
    ASSERT_NE(host, nullptr);
    hostDoubles(host.get())[0] = -99.0;
    EXPECT_EQ(outside[0], 4.25);
  }
}

// A table fresh from a read may lend buffers although its column list lingers elsewhere; a
// column repeated in the table, or an array someone kept, is still copied.
TEST(ConsumingConversion, FreshReadsStillCopyWhatIsShared) {
  auto array = doubles(64);
  auto kept = doubles(64, 100.0);
  auto repeated = std::make_shared<arrow::ChunkedArray>(doubles(64, 7.0));
  const auto schema =
      arrow::schema({arrow::field("a", arrow::float64()), arrow::field("k", arrow::float64()),
                     arrow::field("r1", arrow::float64()), arrow::field("r2", arrow::float64())});
  auto table =
      arrow::Table::Make(schema, {std::make_shared<arrow::ChunkedArray>(array),
                                  std::make_shared<arrow::ChunkedArray>(kept), repeated, repeated});
  const uint8_t* adopted = array->data()->buffers[1]->data();
  array.reset();
  // Arrow's finished bookkeeping: a list of the columns that nobody reads again.
  const auto lingering = table->columns();
  repeated.reset();
  auto result = core::to_vantro_from_read(std::move(table));
  ASSERT_TRUE(result.ok()) << result.status().ToString();
  const auto host = std::move(result).ValueUnsafe();
  EXPECT_EQ(static_cast<const void*>(hostDoubles(host.get(), 0)),
            static_cast<const void*>(adopted));
  hostDoubles(host.get(), 1)[0] = -1.0;
  hostDoubles(host.get(), 2)[0] = -1.0;
  EXPECT_EQ(std::static_pointer_cast<arrow::DoubleArray>(kept)->Value(0), 100.0);
  EXPECT_EQ(hostDoubles(host.get(), 3)[0], 7.0);
  EXPECT_EQ(std::static_pointer_cast<arrow::DoubleArray>(lingering[3]->chunk(0))->Value(0), 7.0);
}

// ---- host arrays over outside memory -------------------------------------------------

TEST(HostArrayOver, ReleasesItsOwnerOnceAndOnlyOnDestroy) {
  int releases = 0;
  const auto release = [](void* count) { ++*static_cast<int*>(count); };
  std::vector<int32_t> values{1, 2, 3};
  vxArray* array =
      vxCreateNumericMatrixOver(3, 1, vxINT32_CLASS, values.data(), release, &releases);
  ASSERT_NE(array, nullptr);
  static_cast<int32_t*>(vxGetData(array))[1] = 20;
  EXPECT_EQ(values[1], 20);
  vxArray* copy = vxDuplicateArray(array);
  vxDestroyArray(array);
  EXPECT_EQ(releases, 1);
  static_cast<int32_t*>(vxGetData(copy))[0] = 10;
  EXPECT_EQ(values[0], 1);
  vxDestroyArray(copy);
  EXPECT_EQ(releases, 1);

  // Refused arrays still let go of what they were handed.
  EXPECT_EQ(vxCreateNumericMatrixOver(3, 1, vxCELL_CLASS, values.data(), release, &releases),
            nullptr);
  EXPECT_EQ(vxCreateNumericMatrixOver(3, 1, vxDOUBLE_CLASS, nullptr, release, &releases), nullptr);
  EXPECT_EQ(releases, 3);

  auto owner = std::make_shared<std::vector<double>>(4, 1.0);
  std::weak_ptr<std::vector<double>> watch = owner;
  auto adopted = matrix::adoptNumeric(2, 2, vxDOUBLE_CLASS, owner->data(), owner);
  owner.reset();
  ASSERT_FALSE(watch.expired());
  EXPECT_EQ(vxGetPr(adopted.get())[3], 1.0);
  adopted.reset();
  EXPECT_TRUE(watch.expired());

  // Without a release function the data stays the caller's: destroying never frees it.
  vxArray* plain = vxCreateNumericMatrixOver(3, 1, vxINT32_CLASS, values.data(), nullptr, nullptr);
  ASSERT_NE(plain, nullptr);
  vxDestroyArray(plain);
  EXPECT_EQ(values[2], 3);
}

// ---- host to Arrow, borrowing --------------------------------------------------------

TEST(BorrowingConversion, MatchesTheCopyIncludingSlicesAndMissingValues) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  std::vector<double> values(200);
  for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<double>(i);
  values[130] = nan;  // past the first blocks of the NaN scan
  std::vector<int64_t> ids(200);
  for (size_t i = 0; i < ids.size(); ++i) ids[i] = static_cast<int64_t>(i) * 3;
  auto host = makeHostTable({"d", "i"}, columnsOf(numericColumn(vxDOUBLE_CLASS, values),
                                                  numericColumn(vxINT64_CLASS, ids)));
  auto stamps = toHost(oneColumn(json(arrow::timestamp(arrow::TimeUnit::MICRO), "[5, null, 7]")));

  const auto copied = toArrow(host.get());
  auto viewed = core::to_arrow_table_view(host.get());
  ASSERT_TRUE(viewed.ok()) << viewed.status().ToString();
  const auto view = *viewed;
  EXPECT_TRUE(view->Equals(*copied));
  EXPECT_EQ(view->column(0)->null_count(), 1);
  const std::vector<std::pair<int64_t, int64_t>> slices{
      {0, 64}, {1, 150}, {129, 3}, {199, 1}, {200, 0}};
  for (const auto& [offset, length] : slices) {
    EXPECT_TRUE(view->Slice(offset, length)->Equals(*copied->Slice(offset, length)))
        << offset << "+" << length;
  }
  // The view reads the host arrays themselves: a later host write shows through it.
  EXPECT_EQ(view->column(1)->chunk(0)->data()->GetValues<int64_t>(1),
            static_cast<const int64_t*>(vxGetData(hostColumn(host.get(), 1))));
  static_cast<int64_t*>(vxGetData(hostColumn(host.get(), 1)))[5] = -1;
  EXPECT_EQ(std::static_pointer_cast<arrow::Int64Array>(view->column(1)->chunk(0))->Value(5), -1);

  auto stampView = core::to_arrow_table_view(stamps.get());
  ASSERT_TRUE(stampView.ok());
  EXPECT_TRUE((*stampView)->Equals(*toArrow(stamps.get())));
}

// ---- text ------------------------------------------------------------------------------

// Non-ASCII found late (past a block, in the tail, in a later chunk) makes the one-pass ASCII
// copy give up partway; the result must still be the full decode.
TEST(TextConversion, FallsBackWhenNonAsciiShowsUpLate) {
  namespace text = vantro::io::arrow::core::text;
  for (const size_t at : {0u, 31u, 32u, 33u, 70u, 99u}) {
    std::string bytes(100, 'a');
    bytes[at] = '\xE9';
    std::vector<char16_t> wide(100);
    EXPECT_FALSE(
        text::WidenIfAscii(reinterpret_cast<const uint8_t*>(bytes.data()), 100, wide.data()))
        << at;
    std::u16string units(100, u'a');
    units[at] = u'\u00e9';
    std::vector<uint8_t> narrow(100);
    EXPECT_FALSE(text::NarrowIfAscii(units.data(), 100, narrow.data())) << at;
  }
  std::string ascii(100, 'z');
  std::vector<char16_t> wide(100);
  EXPECT_TRUE(text::WidenIfAscii(reinterpret_cast<const uint8_t*>(ascii.data()), 100, wide.data()));
  EXPECT_EQ(std::u16string(wide.begin(), wide.end()), std::u16string(100, u'z'));

  const std::string longAscii(40, 'x');
  const auto first = json(arrow::utf8(), "[\"" + longAscii + "\", \"b\"]");
  const auto second = json(arrow::utf8(), "[\"" + longAscii + "\u00e9\", null]");
  auto table = arrow::Table::Make(arrow::schema({arrow::field("c", arrow::utf8())}),
                                  {arrow::ChunkedArray::Make({first, second}).ValueOrDie()});
  expectRoundTrip(table);
  const auto host = toHost(table);
  const vxArray* data = vxGetField(hostColumn(host.get(), 0), 0, "Data");
  EXPECT_EQ(matrix::toUString(data),
            u"" + std::u16string(40, u'x') + u"b" + std::u16string(40, u'x') + u"\u00e9");
}

// Long text columns are widened in ranges of rows on several threads: every row keeps its own
// units and offsets across range and chunk boundaries, in sliced chunks and with nulls, and
// one non-ASCII row in a late range still sends the whole column to the full decode.
TEST(TextConversion, LongColumnsConvertAlikeOnOneAndOnSeveralThreads) {
  const auto chunkOf = [](int64_t rows, int64_t seed, int64_t nonAsciiRow) {
    arrow::StringBuilder builder;
    for (int64_t i = 0; i < rows; ++i) {
      if (i % 1013 == 0) {
        EXPECT_TRUE(builder.AppendNull().ok());
      } else if (i == nonAsciiRow) {
        EXPECT_TRUE(builder.Append("\xC3\xA9t\xC3\xA9").ok());
      } else {
        EXPECT_TRUE(
            builder.Append(std::string(static_cast<size_t>((i + seed) % 7), 'a' + (i % 26))).ok());
      }
    }
    return builder.Finish().ValueOrDie();
  };
  for (const int64_t nonAsciiRow : {int64_t{-1}, int64_t{200000}}) {
    SCOPED_TRACE(nonAsciiRow);
    const auto column = arrow::ChunkedArray::Make(
                            {chunkOf(150000, 1, -1)->Slice(11), chunkOf(210000, 5, nonAsciiRow)})
                            .ValueOrDie();
    const auto table =
        arrow::Table::Make(arrow::schema({arrow::field("c", arrow::utf8())}), {column});
    foundation::services::setNumComputationalThreads(1);
    const auto serial = toHost(table);
    foundation::services::setNumComputationalThreads(2);
    const auto parallel = toHost(table);
    foundation::services::setNumComputationalThreads(0);
    ASSERT_NE(serial, nullptr);
    ASSERT_NE(parallel, nullptr);
    const vxArray* one = hostColumn(serial.get(), 0);
    const vxArray* two = hostColumn(parallel.get(), 0);
    for (const char* field : {"Data", "Offsets", "Missing"}) {
      const vxArray* a = vxGetField(one, 0, field);
      const vxArray* b = vxGetField(two, 0, field);
      ASSERT_EQ(vxGetNumberOfElements(a), vxGetNumberOfElements(b)) << field;
      EXPECT_EQ(
          std::memcmp(vxGetData(a), vxGetData(b), vxGetNumberOfElements(a) * vxGetElementSize(a)),
          0)
          << field;
    }
    // Each row against Arrow's own value.
    const auto* offsets = static_cast<const uint64_t*>(vxGetData(vxGetField(two, 0, "Offsets")));
    const std::u16string data = matrix::toUString(vxGetField(two, 0, "Data"));
    int64_t row = 0;
    for (const auto& chunk : column->chunks()) {
      const auto& strings = static_cast<const arrow::StringArray&>(*chunk);
      for (int64_t i = 0; i < strings.length(); ++i, ++row) {
        if (strings.IsNull(i)) continue;
        const auto expected = vxtest::u16(std::string(strings.GetView(i)));
        ASSERT_EQ(data.substr(offsets[row], offsets[row + 1] - offsets[row]), expected) << row;
      }
    }
    EXPECT_EQ(offsets[row], data.size());
  }
}

// A string object whose rows start past the beginning of Data, with non-ASCII units only in
// the part no row refers to, and one whose non-ASCII unit comes after a long ASCII run.
TEST(TextConversion, NarrowsOnlyTheRowsOfAStringObject) {
  const auto stringColumn = [](const std::u16string& data, const std::vector<uint64_t>& offsets) {
    const char* fields[] = {"Data", "Offsets"};
    vxArray* object = vxCreateObjectMatrix(1, 1, "string", 2, fields);
    vxSetField(object, 0, "Data", matrix::fromUString(data).release());
    vxSetField(object, 0, "Offsets", numericColumn(vxUINT64_CLASS, offsets).release());
    return matrix::unique_array(object);
  };
  auto host = makeHostTable(
      {"a", "b"}, columnsOf(stringColumn(u"\u00e9\u00e9abc", {2, 3, 5}),
                            stringColumn(std::u16string(50, u'q') + u"\u20ac", {0, 50, 51})));
  const auto arrow = toArrow(host.get());
  ASSERT_NE(arrow, nullptr);
  EXPECT_TRUE(arrow->column(0)->chunk(0)->Equals(*json(arrow::utf8(), R"(["a", "bc"])")));
  EXPECT_TRUE(arrow->column(1)->chunk(0)->Equals(
      *json(arrow::utf8(), "[\"" + std::string(50, 'q') + "\", \"\u20ac\"]")));
}

}  // namespace
}  // namespace vxtest::converter
