#pragma once

// Helpers of the write tests: host tables from Arrow tables, reading written files back.
#include <memory>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <arrow/io/file.h>
#include <gtest/gtest.h>
#include <parquet/arrow/reader.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>

#include "host/converter/Converter.hpp"
#include "host/matrix/Matrix.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"

namespace vxtest::write {

// The host table of an Arrow table, through the host converter.
inline matrix::unique_array hostTable(const std::shared_ptr<arrow::Table>& table) {
  auto result = vantro::io::arrow::core::to_vantro(table);
  EXPECT_TRUE(result.ok()) << result.status().ToString();
  return result.ok() ? std::move(result).ValueUnsafe() : nullptr;
}

// A host structure with "Names" and "Columns" cells of the given sizes; columns are double
// column vectors of the given heights.
inline matrix::unique_array hostStruct(const std::vector<std::string>& names,
                                       const std::vector<size_t>& heights) {
  const char* fields[] = {"Names", "Columns"};
  matrix::unique_array table(vxCreateStructMatrix(1, 1, 2, fields));
  vxArray* nameCell = vxCreateCellMatrix(1, names.size());
  for (size_t i = 0; i < names.size(); ++i)
    vxSetCell(nameCell, i, vxCreateString(names[i].c_str()));
  vxArray* columnCell = vxCreateCellMatrix(1, heights.size());
  for (size_t i = 0; i < heights.size(); ++i) {
    vxArray* column = vxCreateDoubleMatrix(heights[i], 1, vxREAL);
    for (size_t r = 0; r < heights[i]; ++r) vxGetPr(column)[r] = static_cast<double>(r);
    vxSetCell(columnCell, i, column);
  }
  vxSetField(table.get(), 0, "Names", nameCell);
  vxSetField(table.get(), 0, "Columns", columnCell);
  return table;
}

// A host double row vector.
inline matrix::unique_array hostDoubles(const std::vector<double>& values) {
  matrix::unique_array array(vxCreateDoubleMatrix(1, values.size(), vxREAL));
  for (size_t i = 0; i < values.size(); ++i) vxGetPr(array.get())[i] = values[i];
  return array;
}

// The whole file as an Arrow table, read with Parquet's Arrow reader.
inline std::shared_ptr<arrow::Table> readBack(const std::string& path) {
  auto input = arrow::io::ReadableFile::Open(path).ValueOrDie();
  std::unique_ptr<parquet::arrow::FileReader> reader;
  PARQUET_THROW_NOT_OK(vantro::io::parquet::core::common::compat::OpenFile(
      input, arrow::default_memory_pool(), &reader));
  std::shared_ptr<arrow::Table> table;
  PARQUET_THROW_NOT_OK(vantro::io::parquet::core::common::compat::ReadTable(*reader, &table));
  return table;
}

inline std::shared_ptr<parquet::FileMetaData> footer(const std::string& path) {
  return parquet::ParquetFileReader::OpenFile(path)->metadata();
}

// Rows of each row group, in footer order.
inline std::vector<int64_t> rowGroupHeights(const std::string& path) {
  const auto metadata = footer(path);
  std::vector<int64_t> heights;
  for (int i = 0; i < metadata->num_row_groups(); ++i) {
    heights.push_back(metadata->RowGroup(i)->num_rows());
  }
  return heights;
}

// Names of the leaf columns, dot-joined as Parquet's per-column settings name them.
inline std::vector<std::string> leafPaths(const std::string& path) {
  const auto metadata = footer(path);
  std::vector<std::string> paths;
  for (int i = 0; i < metadata->num_columns(); ++i) {
    paths.push_back(metadata->schema()->Column(i)->path()->ToDotString());
  }
  return paths;
}

inline std::shared_ptr<arrow::Table> makeTable(
    const std::vector<std::shared_ptr<arrow::Field>>& fields,
    const std::vector<std::shared_ptr<arrow::Array>>& columns) {
  return arrow::Table::Make(arrow::schema(fields), columns);
}

}  // namespace vxtest::write
