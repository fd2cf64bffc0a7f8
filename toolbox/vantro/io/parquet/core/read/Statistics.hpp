#pragma once

#include <memory>
#include <optional>
#include <vector>

#include <arrow/type_fwd.h>
#include <parquet/arrow/schema.h>
#include <parquet/metadata.h>

#include "host/matrix/Matrix.hpp"

namespace vantro::io::parquet::core::read {

// Footer statistics of the requested variables, one row per row group and one column per
// variable. The host uses them to skip row groups when it filters rows by value.
struct Statistics {
  matrix::unique_array hasNullCount;      // logical R-by-V
  matrix::unique_array hasDistinctCount;  // logical R-by-V
  matrix::unique_array hasMinMax;         // logical R-by-V
  matrix::unique_array nullCount;         // int64 R-by-V, zero where hasNullCount is false
  matrix::unique_array distinctCount;     // int64 R-by-V, zero where hasDistinctCount is false
  matrix::unique_array min;  // 1-by-V cell; cell v holds the R minima, missing where unknown
  matrix::unique_array max;  // 1-by-V cell; cell v holds the R maxima, missing where unknown
};

// Reads the statistics of the top-level fields at variableIndices (all fields when absent)
// from the footer only. Throws UnsupportedRowFilterVariable for a variable whose type cannot
// be filtered, and InternalError for an index out of range.
Statistics read_statistics(std::shared_ptr<::parquet::FileMetaData> metadata,
                           std::shared_ptr<::arrow::Schema> schema,
                           const ::parquet::arrow::SchemaManifest& manifest,
                           std::optional<std::vector<int>> variableIndices);

}  // namespace vantro::io::parquet::core::read
