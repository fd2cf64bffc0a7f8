#pragma once

// Helpers shared by the converter tests: building host tables by hand and reading them back.
#include <memory>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <gtest/gtest.h>

#include "host/converter/Converter.hpp"
#include "tests/support/TestSupport.hpp"

namespace vxtest::converter {

namespace core = vantro::io::arrow::core;

inline std::shared_ptr<arrow::Array> json(const std::shared_ptr<arrow::DataType>& type,
                                          const std::string& text) {
  return arrayFromJSON(type, text);
}

// A one-column table named "c".
inline std::shared_ptr<arrow::Table> oneColumn(const std::shared_ptr<arrow::Array>& array) {
  return arrow::Table::Make(arrow::schema({arrow::field("c", array->type())}), {array});
}

inline matrix::unique_array toHost(const std::shared_ptr<arrow::Table>& table) {
  auto result = core::to_vantro(table);
  EXPECT_TRUE(result.ok()) << result.status().ToString();
  return result.ok() ? std::move(result).ValueUnsafe() : nullptr;
}

inline std::shared_ptr<arrow::Table> toArrow(const vxArray* table) {
  auto result = core::to_arrow_table(table);
  EXPECT_TRUE(result.ok()) << result.status().ToString();
  return result.ok() ? *result : nullptr;
}

// Column i of a host table (borrowed).
inline vxArray* hostColumn(const vxArray* table, size_t i) {
  return vxGetCell(vxGetField(table, 0, "Columns"), i);
}

// A host table built from owned columns, as a structure or as a "table" object.
inline matrix::unique_array makeHostTable(const std::vector<std::string>& names,
                                          std::vector<matrix::unique_array> columns,
                                          bool asObject = true) {
  const char* fields[] = {"Names", "Columns"};
  vxArray* table = asObject ? vxCreateObjectMatrix(1, 1, "table", 2, fields)
                            : vxCreateStructMatrix(1, 1, 2, fields);
  vxArray* nameCell = vxCreateCellMatrix(1, names.size());
  vxArray* columnCell = vxCreateCellMatrix(1, columns.size());
  for (size_t i = 0; i < names.size(); ++i)
    vxSetCell(nameCell, i, vxCreateString(names[i].c_str()));
  for (size_t i = 0; i < columns.size(); ++i) vxSetCell(columnCell, i, columns[i].release());
  vxSetField(table, 0, "Names", nameCell);
  vxSetField(table, 0, "Columns", columnCell);
  return matrix::unique_array(table);
}

// Owned columns moved into a vector (an initializer list would need copies).
template <typename... Columns>
std::vector<matrix::unique_array> columnsOf(Columns&&... columns) {
  std::vector<matrix::unique_array> out;
  (out.push_back(std::forward<Columns>(columns)), ...);
  return out;
}

template <typename T>
matrix::unique_array numericColumn(vxClassID classID, const std::vector<T>& values) {
  vxArray* column = vxCreateNumericMatrix(values.size(), 1, classID, vxREAL);
  std::copy(values.begin(), values.end(), static_cast<T*>(vxGetData(column)));
  return matrix::unique_array(column);
}

// Expects Arrow -> host -> Arrow to give back `expected` (the input itself by default).
inline void expectRoundTrip(const std::shared_ptr<arrow::Table>& input,
                            std::shared_ptr<arrow::Table> expected = nullptr) {
  if (expected == nullptr) expected = input;
  auto host = toHost(input);
  ASSERT_NE(host, nullptr);
  auto back = toArrow(host.get());
  ASSERT_NE(back, nullptr);
  EXPECT_TRUE(back->schema()->Equals(*expected->schema())) << back->schema()->ToString() << "\nvs\n"
                                                           << expected->schema()->ToString();
  EXPECT_TRUE(back->Equals(*expected)) << back->ToString() << "\nvs\n" << expected->ToString();
}

}  // namespace vxtest::converter
