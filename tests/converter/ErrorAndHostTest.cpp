// Failure paths of the converter, the host matrix API's ownership rules, allocation counts and
// recorded warnings.
#include <arrow/api.h>
#include <gtest/gtest.h>

#include "host/converter/Converter.hpp"
#include "tests/converter/ConverterTestUtil.hpp"

namespace vxtest::converter {
namespace {

using arrow::field;

// ---- unsupported Arrow types ----------------------------------------------------------

void expectTypeError(const std::shared_ptr<arrow::Array>& column, const std::string& name) {
  auto table =
      arrow::Table::Make(arrow::schema({field("ok", arrow::int8()), field(name, column->type())}),
                         {json(arrow::int8(), "[1]"), column});
  auto result = core::to_vantro(table);
  ASSERT_FALSE(result.ok());
  EXPECT_TRUE(result.status().IsTypeError()) << result.status().ToString();
  auto detail = std::dynamic_pointer_cast<core::TableErrorStatusDetail>(result.status().detail());
  ASSERT_NE(detail, nullptr);
  EXPECT_EQ(detail->column_name(), name);
  EXPECT_TRUE(detail->type()->Equals(*column->type()));
  EXPECT_NE(result.status().message().find(name), std::string::npos);
}

TEST(UnsupportedTypes, NameTheColumnInATypeErrorDetail) {
  expectTypeError(json(arrow::month_interval(), "[1]"), "months");
  expectTypeError(json(arrow::fixed_size_list(arrow::int32(), 2), "[[1, 2]]"), "pairs");
  // Unsupported types hidden inside supported nested ones are found too.
  expectTypeError(json(arrow::list(arrow::month_interval()), "[[1]]"), "nested");
  expectTypeError(
      json(arrow::struct_({field("i", arrow::day_time_interval())}), R"([{"i": [1, 2]}])"),
      "inner");
  auto single = core::to_vantro(json(arrow::month_interval(), "[1]"));
  EXPECT_TRUE(single.status().IsTypeError());
}

// ---- malformed host tables -------------------------------------------------------------

void expectInvalid(const vxArray* table, const std::string& fragment) {
  auto result = core::to_arrow_table(table);
  ASSERT_FALSE(result.ok()) << "expected an error containing: " << fragment;
  EXPECT_TRUE(result.status().IsInvalid()) << result.status().ToString();
  EXPECT_NE(result.status().message().find(fragment), std::string::npos)
      << result.status().message();
}

matrix::unique_array doubles(std::vector<double> values) {
  return numericColumn(vxDOUBLE_CLASS, values);
}

TEST(MalformedTables, SayWhatIsWrongAndWhere) {
  const char* onlyNames[] = {"Names"};
  matrix::unique_array missingColumns(vxCreateStructMatrix(1, 1, 1, onlyNames));
  vxSetField(missingColumns.get(), 0, "Names", vxCreateCellMatrix(1, 0));
  expectInvalid(missingColumns.get(), "no \"Columns\" field");

  auto table = makeHostTable({"a"}, {}, false);
  expectInvalid(table.get(), "1 names but 0 columns");

  table = makeHostTable({"a"}, columnsOf(doubles({1})));
  vxSetField(table.get(), 0, "Columns", vxCreateDoubleScalar(1));
  expectInvalid(table.get(), "\"Columns\" field is not a cell");

  table = makeHostTable({"a"}, columnsOf(doubles({1})));
  vxReplaceCell(vxGetField(table.get(), 0, "Names"), 0, vxCreateDoubleScalar(3));
  expectInvalid(table.get(), "Names{1} is not text");

  std::vector<matrix::unique_array> uneven;
  uneven.push_back(doubles({1, 2, 3}));
  uneven.push_back(doubles({1, 2}));
  table = makeHostTable({"a", "b"}, std::move(uneven));
  expectInvalid(table.get(), "column 'b' has 2 rows but column 'a' has 3");

  // An empty 3x0 array holds no values: it is a column of no rows, not of three.
  std::vector<matrix::unique_array> emptyBeside;
  emptyBeside.push_back(doubles({1, 2, 3}));
  emptyBeside.emplace_back(vxCreateDoubleMatrix(3, 0, vxREAL));
  table = makeHostTable({"a", "e"}, std::move(emptyBeside));
  expectInvalid(table.get(), "column 'e' has 0 rows but column 'a' has 3");

  const char* someField[] = {"x"};
  std::vector<matrix::unique_array> plainStruct;
  plainStruct.emplace_back(vxCreateStructMatrix(1, 1, 1, someField));
  table = makeHostTable({"s"}, std::move(plainStruct));
  expectInvalid(table.get(), "table.s: values of class 'struct' cannot be stored");

  std::vector<matrix::unique_array> complexColumn;
  complexColumn.emplace_back(vxCreateDoubleMatrix(2, 1, vxCOMPLEX));
  table = makeHostTable({"z"}, std::move(complexColumn));
  expectInvalid(table.get(), "complex");

  std::vector<matrix::unique_array> matrixColumn;
  matrixColumn.emplace_back(vxCreateDoubleMatrix(2, 2, vxREAL));
  table = makeHostTable({"m"}, std::move(matrixColumn));
  expectInvalid(table.get(), "must have one column");

  expectInvalid(nullptr, "no table");
  matrix::unique_array notATable(vxCreateDoubleScalar(1));
  expectInvalid(notATable.get(), "not a double");
}

TEST(MalformedTables, BrokenObjectsAndMixedCells) {
  // A string object whose offsets run past its data.
  auto host = toHost(oneColumn(json(arrow::utf8(), R"(["abc"])")));
  auto* offsets =
      static_cast<uint64_t*>(vxGetData(vxGetField(hostColumn(host.get(), 0), 0, "Offsets")));
  offsets[1] = 99;
  expectInvalid(host.get(), "Offsets are out of order or past its Data at row 1");

  // A categorical code past its categories.
  host = toHost(oneColumn(json(arrow::dictionary(arrow::int32(), arrow::utf8()), R"(["a"])")));
  static_cast<int32_t*>(vxGetData(vxGetField(hostColumn(host.get(), 0), 0, "Codes")))[0] = 5;
  expectInvalid(host.get(), "table.c");

  // A datetime whose unit is unknown, and a time of day that does not fit 32 bits.
  host = toHost(oneColumn(json(arrow::timestamp(arrow::TimeUnit::SECOND), "[1]")));
  vxSetField(hostColumn(host.get(), 0), 0, "Unit", vxCreateString("fortnights"));
  expectInvalid(host.get(), "unknown time unit 'fortnights'");
  host = toHost(oneColumn(json(arrow::time32(arrow::TimeUnit::SECOND), "[1]")));
  static_cast<int64_t*>(vxGetData(vxGetField(hostColumn(host.get(), 0), 0, "Ticks")))[0] = 1LL
                                                                                           << 40;
  expectInvalid(host.get(), "row 1 does not fit in time32[s]");

  // A cell whose elements convert to different types.
  vxArray* mixed = vxCreateCellMatrix(2, 1);
  vxSetCell(mixed, 0, vxCreateDoubleScalar(1));
  vxSetCell(mixed, 1, vxCreateLogicalScalar(true));
  std::vector<matrix::unique_array> columns;
  columns.emplace_back(mixed);
  auto table = makeHostTable({"m"}, std::move(columns));
  expectInvalid(table.get(), "different types (double in row 1, bool in row 2)");
}

// ---- host columns the writer side builds by hand --------------------------------------

TEST(HostToArrow, PlainStructTablesCharMatricesAndCellKinds) {
  vxArray* chars = vxCreateCharArray(2, 2);  // rows "ab" and "cd", stored column-major
  const vxChar units[] = {'a', 'c', 'b', 'd'};
  std::copy(units, units + 4, vxGetChars(chars));
  vxArray* bytes = vxCreateCellMatrix(2, 1);
  vxSetCell(bytes, 0, vxCreateNumericMatrix(3, 1, vxUINT8_CLASS, vxREAL));
  vxArray* lists = vxCreateCellMatrix(2, 1);
  vxSetCell(lists, 0, numericColumn<double>(vxDOUBLE_CLASS, {1, 2}).release());
  vxSetCell(lists, 1, vxCreateDoubleMatrix(0, 0, vxREAL));
  std::vector<matrix::unique_array> columns;
  columns.emplace_back(chars);
  columns.emplace_back(bytes);
  columns.emplace_back(lists);
  columns.push_back(numericColumn<int64_t>(vxINT64_CLASS, {INT64_MIN, INT64_MAX}));
  auto table = makeHostTable({"t", "b", "l", "i"}, std::move(columns), /*asObject=*/false);
  auto back = toArrow(table.get());
  ASSERT_NE(back, nullptr);
  auto expected = arrow::Table::Make(
      arrow::schema({field("t", arrow::utf8()), field("b", arrow::binary()),
                     field("l", arrow::list(arrow::float64())), field("i", arrow::int64())}),
      {json(arrow::utf8(), R"(["ab", "cd"])"),
       json(arrow::binary(), "[\"\\u0000\\u0000\\u0000\", null]"),
       json(arrow::list(arrow::float64()), "[[1, 2], null]"),
       json(arrow::int64(), "[-9223372036854775808, 9223372036854775807]")});
  EXPECT_TRUE(back->Equals(*expected)) << back->ToString();
}

// ---- allocation counts -----------------------------------------------------------------

size_t allocationsFor(const std::shared_ptr<arrow::Array>& column) {
  const size_t before = matrix::allocationCount();
  auto host = core::to_vantro(column);
  EXPECT_TRUE(host.ok());
  return matrix::allocationCount() - before;
}

TEST(Allocations, FixedWidthStringAndCategoricalColumnsDoNotAllocatePerRow) {
  const auto repeat = [](const std::string& value, int rows) {
    std::string out = "[";
    for (int i = 0; i < rows; ++i) out += (i ? ", " : "") + value;
    return out + "]";
  };
  for (const auto& [type, value] :
       std::vector<std::pair<std::shared_ptr<arrow::DataType>, std::string>>{
           {arrow::float64(), "1.5"},
           {arrow::int64(), "null"},
           {arrow::utf8(), "\"text\""},
           {arrow::timestamp(arrow::TimeUnit::NANO, "UTC"), "5"},
           {arrow::dictionary(arrow::int32(), arrow::utf8()), "\"cat\""}}) {
    const size_t few = allocationsFor(json(type, repeat(value, 10)));
    const size_t many = allocationsFor(json(type, repeat(value, 5000)));
    EXPECT_EQ(few, many) << type->ToString();
    EXPECT_LE(many, 12u) << type->ToString();
  }
}

// ---- the matrix API --------------------------------------------------------------------

TEST(MatrixApi, OwnershipDuplicationAndFields) {
  const char* fields[] = {"a"};
  matrix::unique_array object(vxCreateObjectMatrix(1, 2, "thing", 1, fields));
  EXPECT_STREQ(vxGetClassName(object.get()), "thing");
  EXPECT_EQ(vxAddField(object.get(), "b"), 1);
  EXPECT_EQ(vxAddField(object.get(), "a"), 0);  // already there
  vxSetField(object.get(), 1, "a", vxCreateDoubleScalar(7));
  vxSetField(object.get(), 1, "b", vxCreateString("x"));
  EXPECT_EQ(vxGetPr(vxGetField(object.get(), 1, "a"))[0], 7);  // kept across the new field
  EXPECT_EQ(vxGetField(object.get(), 0, "a"), nullptr);
  EXPECT_EQ(vxGetField(object.get(), 0, "missing"), nullptr);

  matrix::unique_array copy(vxDuplicateArray(object.get()));
  vxSetField(object.get(), 1, "b", vxCreateString("changed"));
  EXPECT_EQ(matrix::toUString(vxGetField(copy.get(), 1, "b")), u"x");  // deep copy

  matrix::unique_array cell(vxCreateCellMatrix(1, 1));
  vxArray* first = vxCreateDoubleScalar(1);
  vxSetCell(cell.get(), 0, first);
  vxReplaceCell(cell.get(), 0, vxCreateDoubleScalar(2));  // destroys `first`
  EXPECT_EQ(vxGetPr(vxGetCell(cell.get(), 0))[0], 2);

  EXPECT_EQ(vxCreateNumericMatrix(1, 1, vxINT8_CLASS, vxCOMPLEX), nullptr);
  matrix::unique_array complex(vxCreateNumericMatrix(2, 1, vxSINGLE_CLASS, vxCOMPLEX));
  EXPECT_EQ(vxGetElementSize(complex.get()), 8u);
  EXPECT_EQ(vxSetDimensions(complex.get(), 1, 3), 1);
  EXPECT_EQ(vxSetDimensions(complex.get(), 1, 2), 0);
  EXPECT_THROW(matrix::toUString(complex.get()), std::invalid_argument);

  auto text = matrix::fromUString(u"h\u00e9\U0001F600");
  EXPECT_EQ(vxGetStringLength(text.get()), 4u);
  vxChar buffer[2];
  EXPECT_EQ(vxGetUTF16String(text.get(), buffer, 2), 2u);
  EXPECT_EQ(vxGetUTF16String(complex.get(), buffer, 2), static_cast<size_t>(-1));
  matrix::unique_array invalid(vxCreateString("a\xFF"));
  EXPECT_EQ(matrix::toUString(invalid.get()), u"a\uFFFD");
}

TEST(MatrixApi, WarningsAreRecordedInOrderAndEmptied) {
  matrix::setPrintWarnings(false);
  matrix::takeWarnings();
  const char* arguments[] = {"one", "zwei \xC3\xA9"};
  vxWarningMsgId("VANTRO:test:first", 2, arguments);
  vxWarningMsgId("VANTRO:test:second", 0, nullptr);
  const auto warnings = matrix::takeWarnings();
  ASSERT_EQ(warnings.size(), 2u);
  EXPECT_EQ(warnings[0].identifier, "VANTRO:test:first");
  EXPECT_EQ(warnings[0].arguments, (std::vector<std::string>{"one", "zwei \xC3\xA9"}));
  // Unknown identifiers still show their arguments.
  EXPECT_NE(warnings[0].message.find("zwei"), std::string::npos);
  EXPECT_EQ(warnings[1].identifier, "VANTRO:test:second");
  EXPECT_TRUE(matrix::takeWarnings().empty());
  matrix::setPrintWarnings(true);
}

}  // namespace
}  // namespace vxtest::converter
