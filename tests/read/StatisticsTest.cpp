// read_statistics over generated files: flags, counts and bounds against values computed from
// the written data; refusals; corner shapes; the public corpus.
#include "toolbox/vantro/io/parquet/core/read/Statistics.hpp"

#include <cstring>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <arrow/compute/api_aggregate.h>
#include <arrow/io/file.h>
#include <gtest/gtest.h>
#include <parquet/arrow/reader.h>
#include <parquet/arrow/writer.h>
#include <parquet/statistics.h>

#include "host/converter/Converter.hpp"
#include "tests/read/ReaderTestSupport.hpp"
#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::read::read_statistics;
using vantro::io::parquet::core::read::Statistics;
using vxtest::arrayFromJSON;
using vxtest::TempDir;

constexpr const char* kInternalError = "VANTRO:parquetio:read:InternalError";
constexpr const char* kUnsupportedFilter = "VANTRO:parquetio:read:UnsupportedRowFilterVariable";
constexpr const char* kUnsupportedType = "VANTRO:parquetio:read:InternalUnsupportedParquetType";

// The footer side of an opened file, which is all read_statistics looks at.
struct Footer {
  std::unique_ptr<parquet::arrow::FileReader> reader;
  std::shared_ptr<arrow::Schema> schema;

  std::shared_ptr<parquet::FileMetaData> metadata() const {
    return reader->parquet_reader()->metadata();
  }
  const parquet::arrow::SchemaManifest& manifest() const { return reader->manifest(); }

  Statistics stats(std::optional<std::vector<int>> indices = std::nullopt) const {
    return read_statistics(metadata(), schema, manifest(), std::move(indices));
  }
};

arrow::Status openFooter(const std::string& path, Footer* footer) {
  ARROW_ASSIGN_OR_RAISE(auto file, arrow::io::ReadableFile::Open(path));
  ARROW_RETURN_NOT_OK(vantro::io::parquet::core::common::compat::OpenFile(
      std::move(file), arrow::default_memory_pool(), &footer->reader));
  return footer->reader->GetSchema(&footer->schema);
}

Footer openFooter(const std::string& path) {
  Footer footer;
  const arrow::Status status = openFooter(path, &footer);
  EXPECT_TRUE(status.ok()) << status.ToString();
  return footer;
}

Footer writeAndOpen(
    const TempDir& dir, const std::shared_ptr<arrow::Table>& table, int64_t rowGroupSize,
    std::shared_ptr<parquet::WriterProperties> properties = parquet::default_writer_properties()) {
  const std::string path = dir.file("stats.parquet");
  vxtest::writeParquet(path, table, rowGroupSize, std::move(properties));
  return openFooter(path);
}

bool flagAt(const matrix::unique_array& flags, size_t r, size_t v) {
  return vxGetLogicals(flags.get())[v * vxGetM(flags.get()) + r];
}

int64_t countAt(const matrix::unique_array& counts, size_t r, size_t v) {
  return static_cast<const int64_t*>(vxGetData(counts.get()))[v * vxGetM(counts.get()) + r];
}

bool hostEquals(const vxArray* a, const vxArray* b) {
  return vxtest::read::hostDifference(a, b).empty();
}

// Expects cell v of cells to hold what the converter makes of the expected Arrow array.
void expectCellHolds(const matrix::unique_array& cells, size_t v,
                     const std::shared_ptr<arrow::Array>& expected) {
  auto converted = vantro::io::arrow::core::to_vantro(expected);
  ASSERT_TRUE(converted.ok()) << converted.status().ToString();
  EXPECT_TRUE(hostEquals(vxGetCell(cells.get(), v), converted->get()))
      << "cell " << v << " differs from " << expected->ToString();
}

struct Bounds {
  std::shared_ptr<arrow::Array> min;
  std::shared_ptr<arrow::Array> max;
};

// Per-row-group minima and maxima of column computed from the data itself; null where a row
// group holds only nulls.
Bounds boundsOf(const std::shared_ptr<arrow::ChunkedArray>& column, int64_t rowGroupSize) {
  arrow::ScalarVector minima, maxima;
  for (int64_t offset = 0; offset < column->length(); offset += rowGroupSize) {
    auto minmax = arrow::compute::MinMax(column->Slice(offset, rowGroupSize));
    EXPECT_TRUE(minmax.ok()) << minmax.status().ToString();
    const auto& pair = minmax->scalar_as<arrow::StructScalar>();
    minima.push_back(pair.value[0]);
    maxima.push_back(pair.value[1]);
  }
  auto build = [&](const arrow::ScalarVector& scalars) {
    auto builder = arrow::MakeBuilder(column->type()).ValueOrDie();
    EXPECT_TRUE(builder->AppendScalars(scalars).ok());
    return builder->Finish().ValueOrDie();
  };
  return {build(minima), build(maxima)};
}

// Nine rows of every filterable kind of value, in row groups of three; the last row group of
// "maybe" holds only nulls.
std::shared_ptr<arrow::Table> mixedTable() {
  auto schema = arrow::schema({
      arrow::field("i32", arrow::int32()),
      arrow::field("i64", arrow::int64()),
      arrow::field("f64", arrow::float64()),
      arrow::field("f32", arrow::float32()),
      arrow::field("flag", arrow::boolean()),
      arrow::field("text", arrow::utf8()),
      arrow::field("day", arrow::date32()),
      arrow::field("stamp", arrow::timestamp(arrow::TimeUnit::MICRO, "UTC")),
      arrow::field("clock", arrow::time32(arrow::TimeUnit::MILLI)),
      arrow::field("nanos", arrow::time64(arrow::TimeUnit::NANO)),
      arrow::field("u8", arrow::uint8()),
      arrow::field("maybe", arrow::int64()),
  });
  return arrow::Table::Make(
      schema, {
                  arrayFromJSON(arrow::int32(), "[5, -3, 9, null, 2, 2, 7, 1, -8]"),
                  arrayFromJSON(arrow::int64(), "[9007199254740993, 1, -4, 3, 3, 3, 0, null, 12]"),
                  arrayFromJSON(arrow::float64(), "[1.5, -2.25, 0, 1e10, null, 3, -7.5, 8, 8]"),
                  arrayFromJSON(arrow::float32(), "[0.5, 0.25, 4, -1, -1, null, 2, 3, 1]"),
                  arrayFromJSON(arrow::boolean(),
                                "[true, true, true, false, true, null, false, false, false]"),
                  arrayFromJSON(arrow::utf8(),
                                R"(["pear", "apple", "fig", null, "Zebra", "zoo", "é", "", "b"])"),
                  arrayFromJSON(arrow::date32(), "[19000, 18000, 20000, 1, 2, 3, null, null, -5]"),
                  arrayFromJSON(arrow::timestamp(arrow::TimeUnit::MICRO, "UTC"),
                                "[1600000000000000, 1, 2, 3, 4, 5, 6, 7, -1700000000000000]"),
                  arrayFromJSON(arrow::time32(arrow::TimeUnit::MILLI),
                                "[1000, 500, 86399999, 0, 7, 6, null, 5, 4]"),
                  arrayFromJSON(arrow::time64(arrow::TimeUnit::NANO),
                                "[86399999999999, 1, 2, 30, 20, 10, 0, 0, 0]"),
                  arrayFromJSON(arrow::uint8(), "[255, 0, 128, 1, 2, 3, 4, 5, 6]"),
                  arrayFromJSON(arrow::int64(), "[1, 2, 3, 4, 5, 6, null, null, null]"),
              });
}

TEST(ReadStatistics, CountsAndBoundsOfEveryRowGroupMatchTheData) {
  TempDir dir;
  const auto table = mixedTable();
  const Footer footer = writeAndOpen(dir, table, 3);
  ASSERT_EQ(footer.metadata()->num_row_groups(), 3);

  const Statistics stats = footer.stats();
  const int numVariables = table->num_columns();
  for (const auto* matrix : {&stats.hasNullCount, &stats.hasDistinctCount, &stats.hasMinMax,
                             &stats.nullCount, &stats.distinctCount}) {
    EXPECT_EQ(vxGetM(matrix->get()), 3u);
    EXPECT_EQ(vxGetN(matrix->get()), static_cast<size_t>(numVariables));
  }
  EXPECT_EQ(vxGetClassID(stats.hasMinMax.get()), vxLOGICAL_CLASS);
  EXPECT_EQ(vxGetClassID(stats.nullCount.get()), vxINT64_CLASS);
  EXPECT_EQ(vxGetN(stats.min.get()), static_cast<size_t>(numVariables));
  EXPECT_EQ(vxGetN(stats.max.get()), static_cast<size_t>(numVariables));

  for (int v = 0; v < numVariables; ++v) {
    SCOPED_TRACE(table->field(v)->name());
    const auto column = table->column(v);
    for (int r = 0; r < 3; ++r) {
      const auto rows = column->Slice(r * 3, 3);
      EXPECT_TRUE(flagAt(stats.hasNullCount, r, v));
      EXPECT_EQ(countAt(stats.nullCount, r, v), rows->null_count());
      // Distinct counts are whatever the writer put in the footer (Arrow 11 writes zero).
      const auto chunkStats = footer.metadata()->RowGroup(r)->ColumnChunk(v)->statistics();
      EXPECT_EQ(flagAt(stats.hasDistinctCount, r, v), chunkStats->HasDistinctCount());
      EXPECT_EQ(countAt(stats.distinctCount, r, v), chunkStats->distinct_count());
      EXPECT_EQ(flagAt(stats.hasMinMax, r, v), rows->null_count() < rows->length());
    }
    const Bounds expected = boundsOf(column, 3);
    expectCellHolds(stats.min, v, expected.min);
    expectCellHolds(stats.max, v, expected.max);
  }
}

TEST(ReadStatistics, BoundsTakeTheStoredArrowTypeOfEachVariable) {
  // With the Arrow schema stored in the file, the footer's physical values (byte arrays, signed
  // 32- and 64-bit integers) must be cast back to the variable's own type; unsigned columns
  // must also be ordered as unsigned.
  TempDir dir;
  const auto paris = arrow::timestamp(arrow::TimeUnit::NANO, "Europe/Paris");
  auto table = arrow::Table::Make(
      arrow::schema({arrow::field("big", arrow::large_utf8()), arrow::field("u32", arrow::uint32()),
                     arrow::field("u64", arrow::uint64()), arrow::field("i8", arrow::int8()),
                     arrow::field("ns", paris)}),
      {arrayFromJSON(arrow::large_utf8(), R"(["b", "a", "c", null])"),
       arrayFromJSON(arrow::uint32(), "[4000000000, 3, 1, 2]"),
       arrayFromJSON(arrow::uint64(), "[18446744073709551615, 3, 0, 9223372036854775808]"),
       arrayFromJSON(arrow::int8(), "[-128, 127, 0, null]"),
       arrayFromJSON(paris, "[1600000000000000001, -1, 5, 4]")});
  const std::string path = dir.file("typed.parquet");
  vxtest::writeParquet(
      path, table, 2,
      parquet::WriterProperties::Builder().version(parquet::ParquetVersion::PARQUET_2_6)->build(),
      parquet::ArrowWriterProperties::Builder().store_schema()->build());
  const Footer footer = openFooter(path);
  ASSERT_TRUE(footer.schema->Equals(*table->schema())) << footer.schema->ToString();

  const Statistics stats = footer.stats();
  for (int v = 0; v < table->num_columns(); ++v) {
    SCOPED_TRACE(table->field(v)->name());
    EXPECT_TRUE(flagAt(stats.hasMinMax, 0, v));
    EXPECT_TRUE(flagAt(stats.hasMinMax, 1, v));
    const Bounds expected = boundsOf(table->column(v), 2);
    expectCellHolds(stats.min, v, expected.min);
    expectCellHolds(stats.max, v, expected.max);
  }
}

TEST(ReadStatistics, NumericBoundsAreTheHostValuesOfEachRowGroup) {
  TempDir dir;
  auto table = arrow::Table::Make(
      arrow::schema({arrow::field("x", arrow::float64())}),
      {arrayFromJSON(arrow::float64(), "[3, 1, 2, null, null, -1, 10, 20, 30]")});
  const Statistics stats = writeAndOpen(dir, table, 2).stats();

  // Row groups: [3,1] [2,null] [null,-1] [10,20] [30].
  const vxArray* minima = vxGetCell(stats.min.get(), 0);
  const vxArray* maxima = vxGetCell(stats.max.get(), 0);
  ASSERT_NE(minima, nullptr);
  ASSERT_EQ(vxGetClassID(minima), vxDOUBLE_CLASS);
  ASSERT_EQ(vxGetNumberOfElements(minima), 5u);
  const std::vector<double> lows(vxGetPr(minima), vxGetPr(minima) + 5);
  const std::vector<double> highs(vxGetPr(maxima), vxGetPr(maxima) + 5);
  EXPECT_EQ(lows, (std::vector<double>{1, 2, -1, 10, 30}));
  EXPECT_EQ(highs, (std::vector<double>{3, 2, -1, 20, 30}));
  EXPECT_EQ(countAt(stats.nullCount, 1, 0), 1);
  EXPECT_EQ(countAt(stats.nullCount, 2, 0), 1);
}

TEST(ReadStatistics, ColumnWrittenWithoutStatisticsKeepsDefaults) {
  TempDir dir;
  auto table = arrow::Table::Make(
      arrow::schema({arrow::field("a", arrow::int32()), arrow::field("b", arrow::int32())}),
      {arrayFromJSON(arrow::int32(), "[1, null, 3, 4]"),
       arrayFromJSON(arrow::int32(), "[5, 6, null, 8]")});
  auto properties = parquet::WriterProperties::Builder().disable_statistics("a")->build();
  const Statistics stats = writeAndOpen(dir, table, 2, properties).stats();

  for (int r = 0; r < 2; ++r) {
    EXPECT_FALSE(flagAt(stats.hasNullCount, r, 0));
    EXPECT_FALSE(flagAt(stats.hasMinMax, r, 0));
    EXPECT_EQ(countAt(stats.nullCount, r, 0), 0);
    EXPECT_TRUE(flagAt(stats.hasNullCount, r, 1));
    EXPECT_TRUE(flagAt(stats.hasMinMax, r, 1));
  }
  expectCellHolds(stats.min, 0, arrayFromJSON(arrow::int32(), "[null, null]"));
  expectCellHolds(stats.min, 1, arrayFromJSON(arrow::int32(), "[5, 8]"));
  expectCellHolds(stats.max, 1, arrayFromJSON(arrow::int32(), "[6, 8]"));
}

TEST(ReadStatistics, RowGroupWhoseBoundsWereDroppedKeepsItsNullCount) {
  // The writer omits minima and maxima longer than max_statistics_size, but still records the
  // null count: one row group of the same column then has bounds and the other has not.
  TempDir dir;
  const std::string longText(100, 'q');
  auto table = arrow::Table::Make(
      arrow::schema({arrow::field("s", arrow::utf8())}),
      {arrayFromJSON(arrow::utf8(), R"(["b", "a", ")" + longText + R"(", null])")});
  auto properties = parquet::WriterProperties::Builder().max_statistics_size(10)->build();
  const Statistics stats = writeAndOpen(dir, table, 2, properties).stats();

  EXPECT_TRUE(flagAt(stats.hasMinMax, 0, 0));
  EXPECT_FALSE(flagAt(stats.hasMinMax, 1, 0));
  EXPECT_TRUE(flagAt(stats.hasNullCount, 1, 0));
  EXPECT_EQ(countAt(stats.nullCount, 1, 0), 1);
  expectCellHolds(stats.min, 0, arrayFromJSON(arrow::utf8(), R"(["a", null])"));
  expectCellHolds(stats.max, 0, arrayFromJSON(arrow::utf8(), R"(["b", null])"));
}

TEST(ReadStatistics, IndicesChooseAndOrderTheColumns) {
  TempDir dir;
  const Footer footer = writeAndOpen(dir, vxtest::simpleTable(6), 3);

  // simpleTable: id (int64), x (double), name (string).
  const Statistics reordered = footer.stats(std::vector<int>{2, 0});
  ASSERT_EQ(vxGetN(reordered.hasMinMax.get()), 2u);
  expectCellHolds(reordered.min, 0, arrayFromJSON(arrow::utf8(), R"(["r0", "r3"])"));
  expectCellHolds(reordered.min, 1, arrayFromJSON(arrow::int64(), "[0, 3]"));
  expectCellHolds(reordered.max, 1, arrayFromJSON(arrow::int64(), "[2, 5]"));

  const Statistics repeated = footer.stats(std::vector<int>{1, 1});
  ASSERT_EQ(vxGetN(repeated.min.get()), 2u);
  EXPECT_TRUE(hostEquals(vxGetCell(repeated.min.get(), 0), vxGetCell(repeated.min.get(), 1)));

  const Statistics none = footer.stats(std::vector<int>{});
  EXPECT_EQ(vxGetN(none.hasMinMax.get()), 0u);
  EXPECT_EQ(vxGetM(none.hasMinMax.get()), 2u);
}

TEST(ReadStatistics, IndexOutsideTheSchemaIsAnInternalError) {
  TempDir dir;
  const Footer footer = writeAndOpen(dir, vxtest::simpleTable(4), 2);
  for (const std::vector<int>& indices : {std::vector<int>{0, 3}, std::vector<int>{-1}}) {
    const auto arguments = vxtest::expectHostError([&] { footer.stats(indices); }, kInternalError);
    ASSERT_TRUE(arguments);
    ASSERT_EQ(arguments->size(), 2u);
    EXPECT_EQ(std::get<std::string>((*arguments)[0]), "statistics field index conversion");
    EXPECT_EQ(std::get<std::string>((*arguments)[1]), "");
  }
}

TEST(ReadStatistics, FileWithoutRowGroupsGivesEmptyMatricesAndCells) {
  // Arrow writes one empty row group for an empty table; a writer closed before any write
  // leaves none.
  TempDir dir;
  const std::string path = dir.file("empty.parquet");
  vxtest::writeParquetWithoutRowGroups(path, vxtest::simpleTable(0)->schema());
  const Footer footer = openFooter(path);
  ASSERT_EQ(footer.metadata()->num_row_groups(), 0);

  const Statistics stats = footer.stats();
  for (const auto* matrix : {&stats.hasNullCount, &stats.hasDistinctCount, &stats.hasMinMax,
                             &stats.nullCount, &stats.distinctCount}) {
    EXPECT_EQ(vxGetM(matrix->get()), 0u);
    EXPECT_EQ(vxGetN(matrix->get()), 3u);
  }
  for (const auto* cells : {&stats.min, &stats.max}) {
    ASSERT_EQ(vxGetClassID(cells->get()), vxCELL_CLASS);
    ASSERT_EQ(vxGetM(cells->get()), 1u);
    ASSERT_EQ(vxGetN(cells->get()), 3u);
    for (size_t v = 0; v < 3; ++v) {
      const vxArray* element = vxGetCell(cells->get(), v);
      EXPECT_TRUE(element == nullptr || vxIsEmpty(element));
    }
  }
}

TEST(ReadStatistics, VariableWithoutALeafColumnKeepsDefaults) {
  // A manifest entry that reaches no leaf column (possible for a childless group) has no
  // statistics of its own, whatever its Arrow type.
  TempDir dir;
  const Footer footer = writeAndOpen(dir, vxtest::simpleTable(4), 2);
  parquet::arrow::SchemaManifest manifest = footer.manifest();
  manifest.schema_fields[0].column_index = -1;
  manifest.schema_fields[0].children.clear();

  const Statistics stats = read_statistics(footer.metadata(), footer.schema, manifest, {});
  for (int r = 0; r < 2; ++r) {
    EXPECT_FALSE(flagAt(stats.hasNullCount, r, 0));
    EXPECT_FALSE(flagAt(stats.hasMinMax, r, 0));
    EXPECT_TRUE(flagAt(stats.hasMinMax, r, 1));
  }
  expectCellHolds(stats.min, 0, arrayFromJSON(arrow::int64(), "[null, null]"));
  expectCellHolds(stats.max, 0, arrayFromJSON(arrow::int64(), "[null, null]"));
}

TEST(ReadStatistics, HostWorkDoesNotGrowWithTheRowGroups) {
  // One concatenation and one host conversion per variable: a file of many row groups costs
  // the host as many arrays as a file of one.
  TempDir dir;
  auto table = vxtest::simpleTable(64);
  const Footer one = writeAndOpen(dir, table, 64);
  size_t before = matrix::allocationCount();
  { const Statistics stats = one.stats(); }
  const size_t oneRowGroup = matrix::allocationCount() - before;

  TempDir otherDir;
  const Footer many = writeAndOpen(otherDir, table, 1);
  ASSERT_EQ(many.metadata()->num_row_groups(), 64);
  before = matrix::allocationCount();
  { const Statistics stats = many.stats(); }
  EXPECT_EQ(matrix::allocationCount() - before, oneRowGroup);
}

TEST(ReadStatistics, LogsEachStepOfTheLoop) {
  TempDir dir;
  const Footer footer = writeAndOpen(dir, vxtest::simpleTable(4), 2);
  vxtest::LogCapture capture;
  footer.stats(std::vector<int>{2});

  EXPECT_TRUE(capture.contains(
      "Main statistics loop for rowgroup index: 1 and variable index: 0 and field index: 2"));
  EXPECT_TRUE(capture.contains("Dereferencing metadata for Parquet schema field index: 2"));
  EXPECT_TRUE(capture.contains("Get missing value for field: 2"));
  EXPECT_TRUE(capture.contains("Valid null_count value: 0"));
  EXPECT_TRUE(capture.contains("StatisticsAsScalars returned status: OK"));
  EXPECT_TRUE(capture.contains("Setting valid min/max values."));
  bool detailAtFour = false;
  for (const auto& record : capture.records()) {
    if (record.text.rfind("Main statistics loop", 0) == 0) detailAtFour = record.severity == 4;
  }
  EXPECT_TRUE(detailAtFour);
}

TEST(ReadStatistics, ReaderGivesTheStatisticsOfFileWideFieldIndices) {
  // The reader passes its own footer; the indices number the file's fields whatever the
  // reader has selected.
  TempDir dir;
  const std::string path = vxtest::writeSimpleFile(dir, "r.parquet", 6, 4);
  vantro::io::parquet::core::read::RowGroupParquetReader reader(vxtest::u16(path), {1, 2});
  reader.setSelectedVariableNames({u"name"});
  const Statistics viaReader = reader.getStatistics({0, 2});

  const Statistics direct = openFooter(path).stats(std::vector<int>{0, 2});
  for (auto member :
       {&Statistics::hasNullCount, &Statistics::hasDistinctCount, &Statistics::hasMinMax,
        &Statistics::nullCount, &Statistics::distinctCount, &Statistics::min, &Statistics::max}) {
    EXPECT_TRUE(hostEquals((viaReader.*member).get(), (direct.*member).get()));
  }
  expectCellHolds(viaReader.max, 0, arrayFromJSON(arrow::int64(), "[3, 5]"));
}

// ---- Refusals -----------------------------------------------------------------------------

struct Refusal {
  std::shared_ptr<arrow::DataType> type;
  std::string hostType;
};

// Validation looks only at the Arrow schema, so a one-column footer can carry any type.
void expectRefused(const Refusal& refusal) {
  SCOPED_TRACE(refusal.type->ToString());
  TempDir dir;
  const Footer footer = writeAndOpen(dir, vxtest::simpleTable(2), 1);
  auto schema =
      arrow::schema({arrow::field("ok", arrow::int64()), arrow::field("bad", refusal.type),
                     arrow::field("name", arrow::utf8())});
  vxtest::LogCapture capture(foundation::log::severity::kDetail);
  const auto arguments = vxtest::expectHostError(
      [&] { read_statistics(footer.metadata(), schema, footer.manifest(), std::nullopt); },
      kUnsupportedFilter);
  ASSERT_TRUE(arguments);
  ASSERT_EQ(arguments->size(), 2u);
  EXPECT_EQ(std::get<std::string>((*arguments)[0]), "bad");
  EXPECT_EQ(std::get<std::string>((*arguments)[1]), refusal.hostType);
  EXPECT_TRUE(capture.contains("Variable bad has an unsupported type for filtering: " +
                               refusal.type->ToString()));
  EXPECT_FALSE(capture.contains("Main statistics loop"));
}

TEST(ReadStatistics, UnfilterableTypesAreRefusedWithTheHostTypeName) {
  const std::vector<Refusal> refusals = {
      {arrow::binary(), "cell"},
      {arrow::large_binary(), "cell"},
      {arrow::fixed_size_binary(4), "cell"},
      {arrow::decimal128(10, 2), "double"},
      {arrow::float16(), "single"},
      {arrow::duration(arrow::TimeUnit::SECOND), "duration"},
      {arrow::dictionary(arrow::int32(), arrow::utf8()), "categorical"},
      {arrow::list(arrow::int32()), "cell"},
      {arrow::large_list(arrow::int32()), "cell"},
      {arrow::struct_({arrow::field("a", arrow::int32())}), "table"},
  };
  for (const auto& refusal : refusals) expectRefused(refusal);
}

TEST(ReadStatistics, UnfilterableTypeWithoutHostTypeIsAnUnsupportedParquetType) {
  TempDir dir;
  const Footer footer = writeAndOpen(dir, vxtest::simpleTable(2), 1);
  auto schema = arrow::schema({arrow::field("gap", arrow::month_day_nano_interval())});
  const auto arguments = vxtest::expectHostError(
      [&] { read_statistics(footer.metadata(), schema, footer.manifest(), std::vector<int>{0}); },
      kUnsupportedType);
  ASSERT_TRUE(arguments);
  ASSERT_EQ(arguments->size(), 1u);
  EXPECT_EQ(std::get<std::string>((*arguments)[0]), "gap");
}

TEST(ReadStatistics, WrittenNestedAndBinaryVariablesAreRefusedOnlyWhenAskedFor) {
  TempDir dir;
  auto table = arrow::Table::Make(
      arrow::schema({arrow::field("n", arrow::int32()),
                     arrow::field("l", arrow::list(arrow::int32())),
                     arrow::field("s", arrow::struct_({arrow::field("a", arrow::int32())})),
                     arrow::field("b", arrow::binary())}),
      {arrayFromJSON(arrow::int32(), "[1, 2]"),
       arrayFromJSON(arrow::list(arrow::int32()), "[[1], null]"),
       arrayFromJSON(arrow::struct_({arrow::field("a", arrow::int32())}), R"([{"a": 1}, null])"),
       arrayFromJSON(arrow::binary(), R"(["x", "y"])")});
  const Footer footer = writeAndOpen(dir, table, 1);

  const Statistics stats = footer.stats(std::vector<int>{0});
  EXPECT_EQ(vxGetN(stats.min.get()), 1u);
  const auto expectRefusedAt = [&](int index, const char* name, const char* hostType) {
    const auto arguments = vxtest::expectHostError(
        [&] {
          footer.stats(std::vector<int>{0, index});
        },
        kUnsupportedFilter);
    ASSERT_TRUE(arguments);
    EXPECT_EQ(std::get<std::string>((*arguments)[0]), name);
    EXPECT_EQ(std::get<std::string>((*arguments)[1]), hostType);
  };
  expectRefusedAt(1, "l", "cell");
  expectRefusedAt(2, "s", "table");
  expectRefusedAt(3, "b", "cell");
  // Without indices every variable is asked for, and the first refusal wins.
  const auto arguments = vxtest::expectHostError([&] { footer.stats(); }, kUnsupportedFilter);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(std::get<std::string>((*arguments)[0]), "l");
}

// ---- Public corpus --------------------------------------------------------------------------

// Every filterable variable of every corpus file yields statistics of the right shape; other
// variables are refused with a host error, never a crash or a foreign exception.
TEST(ReadStatistics, CorpusFilesNeverCrash) {
  VX_REQUIRE_INTEROP();
  using foundation::core::except::IMsgIDException;
  int filesRead = 0;
  for (const auto& path : vxtest::interopFiles()) {
    SCOPED_TRACE(path);
    Footer footer;
    try {
      if (!openFooter(path, &footer).ok()) continue;
    } catch (const std::exception&) {
      continue;  // files Parquet itself cannot open are not ours to judge
    }
    ++filesRead;
    const int rowGroups = footer.metadata()->num_row_groups();
    for (int f = 0; f < footer.schema->num_fields(); ++f) {
      try {
        const Statistics stats = footer.stats(std::vector<int>{f});
        EXPECT_EQ(vxGetM(stats.hasMinMax.get()), static_cast<size_t>(rowGroups));
        EXPECT_EQ(vxGetN(stats.min.get()), 1u);
      } catch (const IMsgIDException& e) {
        EXPECT_TRUE(e.identifier() == kUnsupportedFilter || e.identifier() == kUnsupportedType)
            << e.identifier() << ": " << e.message();
      } catch (const std::exception& e) {
        ADD_FAILURE() << "field " << f << ": " << e.what();
      }
    }
  }
  EXPECT_GT(filesRead, 0);
}

}  // namespace
