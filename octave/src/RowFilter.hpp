#pragma once

// The "Where" option of pq_read and pq_reader over the library's row filter (core/filter):
// the filter is checked against the file before anything is read, row groups whose footer
// statistics rule out a match are dropped from the list, and the rows read are filtered
// exactly.
#include <optional>
#include <string>
#include <vector>

#include <mex.h>

#include "host/matrix/Matrix.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Expression.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace vantro::octave {

using vantro::io::parquet::core::read::RowGroupParquetReader;

// The Where option parsed and checked against the reader's file, or nothing without one.
std::optional<vantro::io::parquet::core::filter::Expression> whereOf(
    const mxArray* options, const RowGroupParquetReader& reader);

// Selects the requested variables (every variable when none are requested) and those the
// filter needs on top.
void selectForFilter(RowGroupParquetReader& reader,
                     const std::optional<std::vector<std::u16string>>& requested,
                     const vantro::io::parquet::core::filter::Expression& where);

// The row groups of the list that may hold matching rows, in list order. Numbers outside the
// file are kept so that the read refuses them as it would without a filter.
std::vector<double> keepPossibleRowGroups(
    RowGroupParquetReader& reader, const vantro::io::parquet::core::filter::Expression& where,
    const std::vector<double>& rowGroups);

// The matching rows of a table read for the filter, with only the requested variables.
matrix::unique_array filterTable(const vxArray* table,
                                 const vantro::io::parquet::core::filter::Expression& where,
                                 const std::optional<std::vector<std::u16string>>& requested);

}  // namespace vantro::octave
