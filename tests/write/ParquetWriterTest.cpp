#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"
#include "tests/write/WriteTestUtil.hpp"

namespace {

using namespace vantro::io::parquet::core::write;

using foundation::core::except::MessageArguments;
using vxtest::expectHostError;
using vxtest::fileExists;
using vxtest::u16;
using namespace vxtest::write;

constexpr const char* kInvalidWrite = "VANTRO:parquetio:write:InvalidWrite";
constexpr const char* kInvalidWriteVars = "VANTRO:parquetio:write:InvalidWriteVars";
constexpr const char* kInvalidZeroVars = "VANTRO:parquetio:write:InvalidZeroVars";

class ParquetWriterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    matrix::setPrintWarnings(false);
    matrix::takeWarnings();
  }
  void TearDown() override { matrix::setPrintWarnings(true); }

  std::string path(const std::string& name = "out.parquet") const { return dir.file(name); }

  // Expects "InvalidWrite" carrying the file name and Arrow's rendering of an Invalid status.
  void expectInvalidWrite(const std::function<void()>& fn, const std::string& filename,
                          const std::string& message) {
    const auto arguments = expectHostError(fn, kInvalidWrite);
    ASSERT_TRUE(arguments);
    EXPECT_EQ(*arguments, (MessageArguments{u16(filename), u16("Invalid: " + message)}));
  }

  vxtest::TempDir dir;
};

// Columns "id" (int64) and "x" (double), with ids from `first`.
std::shared_ptr<arrow::Table> numbers(int64_t rows, int64_t first = 0) {
  arrow::Int64Builder ids;
  arrow::DoubleBuilder xs;
  for (int64_t i = first; i < first + rows; ++i) {
    EXPECT_TRUE(ids.Append(i).ok());
    EXPECT_TRUE(xs.Append(i * 0.5).ok());
  }
  return arrow::Table::Make(
      arrow::schema({arrow::field("id", arrow::int64()), arrow::field("x", arrow::float64())}),
      {ids.Finish().ValueOrDie(), xs.Finish().ValueOrDie()});
}

std::vector<std::u16string> namesOf(const std::shared_ptr<arrow::Table>& table) {
  std::vector<std::u16string> names;
  for (const auto& name : table->schema()->field_names()) names.push_back(u16(name));
  return names;
}

// ---------------------------------------------------------------------------------------------
// Construction and options

TEST_F(ParquetWriterTest, OpensTheOutputAtOnceAndLogsItsName) {
  vxtest::LogCapture log;
  ParquetWriter writer(u16(path()));
  // Opened beside its name: the file appears there only once the writer closes.
  EXPECT_FALSE(fileExists(path()));
  bool sawFilename = false;
  for (const auto& record : log.records()) {
    if (record.text == " filename=" + path()) {
      sawFilename = true;
      EXPECT_EQ(record.severity, foundation::log::severity::kFile);
    }
  }
  EXPECT_TRUE(sawFilename);
  EXPECT_TRUE(log.contains("ParquetWriter::ParquetWriter("));
}

TEST_F(ParquetWriterTest, OpenFailurePropagatesTheHostError) {
  EXPECT_THROW(ParquetWriter(u16(dir.file("missing/folder/out.parquet"))),
               foundation::core::except::IMsgIDException);
}

TEST_F(ParquetWriterTest, VectorOptionsCanBeSetWhileEmptyOnly) {
  ParquetWriter writer(u16(path()));
  writer.setVariableNames({});
  writer.setVariableNames({u"a", u"b"});
  EXPECT_EQ(writer.getVariableNames(), (std::vector<std::u16string>{u"a", u"b"}));
  expectInvalidWrite([&] { writer.setVariableNames({u"c"}); }, path(),
                     "VariableNames cannot be modified.");

  writer.setVariableCompression({"zstd", "gzip"});
  expectInvalidWrite(
      [&] {
        writer.setVariableCompression({"zstd", "gzip"});
      },
      path(), "VariableCompression cannot be modified.");
  writer.setVariableEncoding({"plain", "plain"});
  expectInvalidWrite([&] { writer.setVariableEncoding({}); }, path(),
                     "VariableEncoding cannot be modified.");
  EXPECT_EQ(writer.getVariableCompression(), (std::vector<std::string>{"zstd", "gzip"}));
  EXPECT_EQ(writer.getVariableEncoding(), (std::vector<std::string>{"plain", "plain"}));
}

TEST_F(ParquetWriterTest, VersionCanBeSetOnceSuccessfully) {
  ParquetWriter writer(u16(path()));
  const auto arguments =
      expectHostError([&] { writer.setVersion("3.0"); }, "VANTRO:parquetio:write:InvalidOption");
  ASSERT_TRUE(arguments);
  EXPECT_EQ(*arguments, (MessageArguments{std::string("Version"), std::string("3.0")}));
  writer.setVersion("1.0");
  EXPECT_EQ(writer.getVersion(), "1.0");
  expectInvalidWrite([&] { writer.setVersion("1.0"); }, path(), "Version cannot be modified.");
}

TEST_F(ParquetWriterTest, InvalidLeafPathsLeaveTheEarlierOnes) {
  ParquetWriter writer(u16(path()));
  writer.setLeafColumnPaths({0, 1}, {u"x"});
  expectHostError(
      [&] {
        writer.setLeafColumnPaths({0, 2, 2}, {u"a", u"b"});
      },
      "VANTRO:parquetio:write:LeafColumnPathsOffsetsAcending");
  expectHostError([&] { writer.setLeafColumnPaths({}, {}); },
                  "VANTRO:parquetio:write:LeafColumnPathsEmpty");
  // The first paths are still those in force: one variable.
  writer.setVariableNames({u"a", u"b"});
  const auto table = hostStruct({"a", "b"}, {2, 2});
  const auto arguments = expectHostError([&] { writer.write(table.get()); },
                                         "VANTRO:parquetio:write:LeafColumnPathsNumTopLevelCols");
  ASSERT_TRUE(arguments);
  EXPECT_EQ(*arguments, (MessageArguments{int64_t{1}, int64_t{2}}));
}

// ---------------------------------------------------------------------------------------------
// Shape checks, before any conversion

TEST_F(ParquetWriterTest, RejectsValuesThatAreNotTables) {
  ParquetWriter writer(u16(path()));
  writer.setVariableNames({u"a", u"b", u"c"});
  const matrix::unique_array notATable(vxCreateDoubleScalar(1));
  const auto arguments = expectHostError([&] { writer.write(notATable.get()); }, kInvalidWriteVars);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(*arguments, (MessageArguments{int64_t{3}}));
}

TEST_F(ParquetWriterTest, ZeroVariablesAreReportedBeforeNames) {
  ParquetWriter writer(u16(path()));
  const auto empty = hostStruct({}, {});
  const auto arguments = expectHostError([&] { writer.write(empty.get()); }, kInvalidZeroVars);
  ASSERT_TRUE(arguments);
  EXPECT_TRUE(arguments->empty());
  const auto heights = hostDoubles({1});
  expectHostError([&] { writer.writeRowGroups(empty.get(), heights.get()); }, kInvalidZeroVars);
}

TEST_F(ParquetWriterTest, NamesMustMatchColumnsAndConfiguredNames) {
  ParquetWriter writer(u16(path()));
  const auto table = hostStruct({"a", "b"}, {3, 3});
  // No names configured.
  auto arguments = expectHostError([&] { writer.write(table.get()); }, kInvalidWriteVars);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(*arguments, (MessageArguments{int64_t{0}}));

  writer.setVariableNames({u"a", u"b"});
  const auto mismatched = hostStruct({"a"}, {3, 3});
  arguments =
      expectHostError([&] { writer.validateWriteDimensons(mismatched.get()); }, kInvalidWriteVars);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(*arguments, (MessageArguments{int64_t{2}}));
  EXPECT_NO_THROW(writer.validateWriteDimensons(table.get()));
}

// ---------------------------------------------------------------------------------------------
// Schema checks and the nested-dictionary warnings

std::shared_ptr<arrow::DataType> dictionaryOfStrings() {
  return arrow::dictionary(arrow::int32(), arrow::utf8());
}

TEST_F(ParquetWriterTest, SchemaMetadataIsNotCompared) {
  ParquetWriter writer(u16(path()));
  const auto schema = arrow::schema({arrow::field("a", arrow::float64())});
  writer.validateSchema(schema, false);
  EXPECT_NO_THROW(
      writer.validateSchema(schema->WithMetadata(arrow::key_value_metadata({"k"}, {"v"})), false));
  expectInvalidWrite(
      [&] { writer.validateSchema(arrow::schema({arrow::field("a", arrow::int64())}), false); },
      path(), "Inconsistent Schema");
}

struct DictionaryCase {
  const char* name;
  std::shared_ptr<arrow::DataType> type;
  bool rowGrouped;
  std::vector<std::string> warnings;  // identifiers expected, each with argument "v"
};

class NestedDictionaryWarnings : public ParquetWriterTest,
                                 public ::testing::WithParamInterface<DictionaryCase> {};

TEST_P(NestedDictionaryWarnings, WarnOnlyForRowGroupedNestedDictionaries) {
  const auto& c = GetParam();
  ParquetWriter writer(u16(path()));
  writer.validateSchema(arrow::schema({arrow::field("v", c.type)}), c.rowGrouped);
  const auto warnings = matrix::takeWarnings();
  ASSERT_EQ(warnings.size(), c.warnings.size());
  for (size_t i = 0; i < warnings.size(); ++i) {
    EXPECT_EQ(warnings[i].identifier, c.warnings[i]);
    EXPECT_EQ(warnings[i].arguments, std::vector<std::string>{"v"});
  }
}

const std::string kListWarning = "VANTRO:parquetio:write:RowGroupedListOfDictionaries";
const std::string kNestedWarning = "VANTRO:parquetio:write:NestedRowGroupedListOfDictionaries";

INSTANTIATE_TEST_SUITE_P(
    Types, NestedDictionaryWarnings,
    ::testing::Values(
        DictionaryCase{
            "ListOfDictionaries", arrow::list(dictionaryOfStrings()), true, {kListWarning}},
        DictionaryCase{"LargeListOfDictionaries",
                       arrow::large_list(dictionaryOfStrings()),
                       true,
                       {kListWarning}},
        DictionaryCase{"WholeTableWrite", arrow::list(dictionaryOfStrings()), false, {}},
        DictionaryCase{"TopLevelDictionary", dictionaryOfStrings(), true, {}},
        DictionaryCase{
            "ListOfLists", arrow::list(arrow::list(dictionaryOfStrings())), true, {kNestedWarning}},
        DictionaryCase{"StructFields",
                       arrow::struct_({arrow::field("p", dictionaryOfStrings()),
                                       arrow::field("q", arrow::list(dictionaryOfStrings()))}),
                       true,
                       {kListWarning, kNestedWarning}},
        // A map's children sit under its "entries" struct, one level down.
        DictionaryCase{
            "MapValues", arrow::map(arrow::utf8(), dictionaryOfStrings()), true, {kNestedWarning}},
        DictionaryCase{"ListOfPlainValues", arrow::list(arrow::utf8()), true, {}}),
    [](const auto& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------------------------------------
// Writing

TEST_F(ParquetWriterTest, WritesAndReadsBack) {
  const auto table = numbers(10);
  const auto host = hostTable(table);
  {
    ParquetWriter writer(u16(path()));
    writer.setVariableNames(namesOf(table));
    writer.write(host.get());
    writer.close();
  }
  ASSERT_TRUE(fileExists(path()));
  EXPECT_TRUE(readBack(path())->Equals(*table));
  EXPECT_EQ(footer(path())->created_by(), vxtest::kCreatedBy);
}

TEST_F(ParquetWriterTest, LongTablesAreCutAtTheMaximumRowGroupLength) {
  const auto host = hostTable(numbers(10));
  ParquetWriter writer(u16(path()));
  writer.setVariableNames({u"id", u"x"});
  writer.setMaxRowGroupLength(4);
  writer.write(host.get());
  // Only the length in force at the first write counts.
  writer.setMaxRowGroupLength(100);
  writer.write(host.get());
  writer.close();
  EXPECT_EQ(rowGroupHeights(path()), (std::vector<int64_t>{4, 4, 2, 4, 4, 2}));
}

TEST_F(ParquetWriterTest, RowGroupsFollowTheHeights) {
  // Heights are truncated; rows past their sum are dropped; a height may run past the end; a
  // negative height writes an empty row group and steps back, never before the first row;
  // heights beyond any table's length neither overflow nor slice outside it.
  const struct {
    std::vector<double> heights;
    std::vector<int64_t> expected;
    std::vector<std::shared_ptr<arrow::Table>> rows;
  } cases[] = {
      {{2, 3}, {2, 3}, {numbers(5)}},
      {{2.9, 1.2, 12, 3}, {2, 1, 7, 0}, {numbers(10)}},
      {{3, -1e300, -9.2e18, 2, 1e300, -4, 2},
       {3, 0, 0, 2, 8, 0, 2},
       {numbers(3), numbers(2), numbers(8, 2), numbers(2, 6)}},
  };
  const auto host = hostTable(numbers(10));
  int index = 0;
  for (const auto& c : cases) {
    const std::string file = path(std::to_string(index++) + ".parquet");
    {
      ParquetWriter writer(u16(file));
      writer.setVariableNames({u"id", u"x"});
      const auto heights = hostDoubles(c.heights);
      writer.writeRowGroups(host.get(), heights.get());
    }
    EXPECT_EQ(rowGroupHeights(file), c.expected) << file;
    EXPECT_TRUE(readBack(file)->Equals(*arrow::ConcatenateTables(c.rows).ValueOrDie())) << file;
  }
}

TEST_F(ParquetWriterTest, WholeAndRowGroupedWritesMix) {
  ParquetWriter writer(u16(path()));
  writer.setVariableNames({u"id", u"x"});
  writer.setMaxRowGroupLength(4);
  const auto first = hostTable(numbers(3));
  const auto second = hostTable(numbers(6, 3));
  const auto heights = hostDoubles({1, 5});
  writer.write(first.get());
  writer.writeRowGroups(second.get(), heights.get());
  writer.write(first.get());
  writer.close();
  // A height beyond the maximum length is cut like any table.
  EXPECT_EQ(rowGroupHeights(path()), (std::vector<int64_t>{3, 1, 4, 1, 3}));
  const auto expected =
      arrow::ConcatenateTables({numbers(3), numbers(6, 3), numbers(3)}).ValueOrDie();
  EXPECT_TRUE(readBack(path())->Equals(*expected));
}

TEST_F(ParquetWriterTest, DifferentTypeOnALaterWriteIsInconsistent) {
  ParquetWriter writer(u16(path()));
  writer.setVariableNames({u"id", u"x"});
  const auto host = hostTable(numbers(3));
  writer.write(host.get());
  const auto other = hostTable(arrow::Table::Make(
      arrow::schema({arrow::field("id", arrow::int64()), arrow::field("x", arrow::utf8())}),
      {vxtest::arrayFromJSON(arrow::int64(), "[1]"),
       vxtest::arrayFromJSON(arrow::utf8(), R"(["a"])")}));
  expectInvalidWrite([&] { writer.write(other.get()); }, path(), "Inconsistent Schema");
  writer.close();
  // Nothing of the rejected table was written.
  EXPECT_EQ(rowGroupHeights(path()), (std::vector<int64_t>{3}));
}

TEST_F(ParquetWriterTest, ClosedWriterRefusesToWrite) {
  const auto host = hostTable(numbers(3));
  const auto heights = hostDoubles({3});
  ParquetWriter writer(u16(path()));
  writer.setVariableNames({u"id", u"x"});
  writer.write(host.get());
  writer.close();
  writer.close();  // harmless
  expectInvalidWrite([&] { writer.write(host.get()); }, path(), "Writer already closed");
  expectInvalidWrite([&] { writer.writeRowGroups(host.get(), heights.get()); }, path(),
                     "Writer already closed");
  EXPECT_EQ(rowGroupHeights(path()), (std::vector<int64_t>{3}));
}

TEST_F(ParquetWriterTest, CloseBeforeAnyWriteKeepsTheWriterOpen) {
  const auto host = hostTable(numbers(3));
  ParquetWriter writer(u16(path()));
  writer.setVariableNames({u"id", u"x"});
  writer.close();
  writer.write(host.get());
  writer.close();
  EXPECT_TRUE(readBack(path())->Equals(*numbers(3)));
}

// ---------------------------------------------------------------------------------------------
// No unfinished output is left behind

TEST_F(ParquetWriterTest, WriterThatNeverWroteRemovesItsOutput) {
  { ParquetWriter writer(u16(path())); }
  EXPECT_FALSE(fileExists(path()));
}

TEST_F(ParquetWriterTest, DestructionFinishesAWrittenFile) {
  {
    ParquetWriter writer(u16(path()));
    writer.setVariableNames({u"id", u"x"});
    const auto host = hostTable(numbers(3));
    writer.write(host.get());
  }
  EXPECT_TRUE(readBack(path())->Equals(*numbers(3)));
}

TEST_F(ParquetWriterTest, FailedFirstWritesLeaveNoOutput) {
  const auto host = hostTable(numbers(3));
  {  // A bad option surfaces at the first write.
    ParquetWriter writer(u16(path("option.parquet")));
    writer.setVariableNames({u"id", u"x"});
    writer.setVariableCompression({"zstd", "zstd"});
    expectHostError([&] { writer.write(host.get()); }, "VANTRO:parquetio:write:WrongOptionNumel");
    // The schema is recorded but no file writer exists: the writer is finished, and says so.
    expectInvalidWrite([&] { writer.close(); }, path("option.parquet"),
                       "File not finished: an earlier write failed, so nothing was written");
    expectInvalidWrite([&] { writer.write(host.get()); }, path("option.parquet"),
                       "Writer already closed");
  }
  {  // The converter rejects a table whose columns differ in height.
    ParquetWriter writer(u16(path("convert.parquet")));
    writer.setVariableNames({u"a", u"b"});
    const auto ragged = hostStruct({"a", "b"}, {2, 3});
    const auto arguments = expectHostError([&] { writer.write(ragged.get()); }, kInvalidWrite);
    ASSERT_TRUE(arguments);
    EXPECT_EQ(arguments->at(0), MessageArguments::value_type(u16(path("convert.parquet"))));
  }
  EXPECT_FALSE(fileExists(path("option.parquet")));
  EXPECT_FALSE(fileExists(path("convert.parquet")));
}

TEST_F(ParquetWriterTest, RejectedLaterTableWritesNothingFurther) {
  {
    ParquetWriter writer(u16(path()));
    writer.setVariableNames({u"a"});
    const auto doubles = hostStruct({"a"}, {2});
    const auto text = hostTable(makeTable({arrow::field("a", arrow::utf8())},
                                          {vxtest::arrayFromJSON(arrow::utf8(), R"(["x"])")}));
    writer.write(doubles.get());
    expectInvalidWrite([&] { writer.write(text.get()); }, path(), "Inconsistent Schema");
    const auto ragged = hostStruct({"a"}, {2});
    vxArray* columns = vxGetField(ragged.get(), 0, "Columns");
    vxReplaceCell(columns, 0, vxCreateString("not a column"));
    EXPECT_ANY_THROW(writer.write(ragged.get()));
  }
  EXPECT_EQ(rowGroupHeights(path()), (std::vector<int64_t>{2}));
}

TEST_F(ParquetWriterTest, MovesTransferTheOutput) {
  const auto host = hostTable(numbers(3));
  ParquetWriter first(u16(path("first.parquet")));
  first.setVariableNames({u"id", u"x"});
  first.write(host.get());
  {
    ParquetWriter moved(std::move(first));
    moved.close();
  }
  expectInvalidWrite([&] { first.write(host.get()); }, "", "Writer already closed");
  EXPECT_EQ(rowGroupHeights(path("first.parquet")), (std::vector<int64_t>{3}));

  // Assigning over an unfinished writer removes that writer's output.
  ParquetWriter target(u16(path("replaced.parquet")));
  target = ParquetWriter(u16(path("kept.parquet")));
  EXPECT_FALSE(fileExists(path("replaced.parquet")));
  target.setVariableNames({u"id", u"x"});
  target.write(host.get());
  target.close();
  EXPECT_TRUE(fileExists(path("kept.parquet")));
}

}  // namespace
