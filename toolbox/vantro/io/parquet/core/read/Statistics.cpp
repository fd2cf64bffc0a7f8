#include "toolbox/vantro/io/parquet/core/read/Statistics.hpp"

#include <numeric>
#include <string>
#include <utility>

#include <arrow/api.h>
#include <arrow/array/concatenate.h>
#include <arrow/array/util.h>
#include <parquet/arrow/reader.h>
#include <parquet/exception.h>
#include <parquet/statistics.h>

#include "host/converter/Converter.hpp"
#include "toolbox/vantro/io/parquet/core/common/SchemaLeafIndex.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

namespace vantro::io::parquet::core::read {

namespace {

using ArrayTable = std::vector<std::vector<std::shared_ptr<::arrow::Array>>>;
using MinMaxArrays = std::pair<std::shared_ptr<::arrow::Array>, std::shared_ptr<::arrow::Array>>;

constexpr unsigned kDetail = foundation::log::severity::kDetail;

template <class... Parts>
void logDetail(const Parts&... parts) {
  common::getLogger().log(kDetail, parts...);
}

bool detailEnabled() { return common::getLogger().enabled(kDetail); }

using VANTRO::parquetio::read::InternalError;
using VANTRO::parquetio::read::InternalUnsupportedParquetType;
using VANTRO::parquetio::read::UnsupportedRowFilterVariable;

std::vector<int> resolveIndices(const ::parquet::arrow::SchemaManifest& manifest,
                                std::optional<std::vector<int>> variableIndices) {
  const int numFields = static_cast<int>(manifest.schema_fields.size());
  if (!variableIndices) {
    std::vector<int> all(numFields);
    std::iota(all.begin(), all.end(), 0);
    return all;
  }
  for (int index : *variableIndices) {
    if (index < 0 || index >= numFields) {
      common::throwException<InternalError>("statistics field index conversion", "");
    }
  }
  return std::move(*variableIndices);
}

// Types whose footer minima and maxima order the same way the host compares values, so a row
// group can be skipped on them.
bool isFilterableType(::arrow::Type::type id) {
  switch (id) {
    case ::arrow::Type::NA:
    case ::arrow::Type::BOOL:
    case ::arrow::Type::UINT8:
    case ::arrow::Type::INT8:
    case ::arrow::Type::UINT16:
    case ::arrow::Type::INT16:
    case ::arrow::Type::UINT32:
    case ::arrow::Type::INT32:
    case ::arrow::Type::UINT64:
    case ::arrow::Type::INT64:
    case ::arrow::Type::FLOAT:
    case ::arrow::Type::DOUBLE:
    case ::arrow::Type::STRING:
    case ::arrow::Type::DATE32:
    case ::arrow::Type::DATE64:
    case ::arrow::Type::TIMESTAMP:
    case ::arrow::Type::TIME32:
    case ::arrow::Type::TIME64:
    case ::arrow::Type::LARGE_STRING:
      return true;
    default:
      return false;
  }
}

void validateFilterableVariableType(const std::vector<int>& indices,
                                    std::shared_ptr<::arrow::Schema> schema) {
  VANTRO_PARQUET_TRACE();
  for (int index : indices) {
    const auto& field = schema->field(index);
    const auto& type = field->type();
    if (isFilterableType(type->id())) continue;

    logDetail("Variable ", field->name(),
              " has an unsupported type for filtering: ", type->ToString());
    if (auto hostType = vantro::io::arrow::core::to_vantro_datatype(type)) {
      common::throwException<UnsupportedRowFilterVariable>(field->name(), *hostType);
    }
    common::throwException<InternalUnsupportedParquetType>(field->name());
  }
}

Statistics initializeStatistics(int numRowGroups, int numVariables) {
  VANTRO_PARQUET_TRACE();
  const auto rows = static_cast<size_t>(numRowGroups);
  const auto columns = static_cast<size_t>(numVariables);
  Statistics stats;
  stats.hasNullCount.reset(vxCreateLogicalMatrix(rows, columns));
  stats.hasDistinctCount.reset(vxCreateLogicalMatrix(rows, columns));
  stats.hasMinMax.reset(vxCreateLogicalMatrix(rows, columns));
  stats.nullCount.reset(vxCreateNumericMatrix(rows, columns, vxINT64_CLASS, vxREAL));
  stats.distinctCount.reset(vxCreateNumericMatrix(rows, columns, vxINT64_CLASS, vxREAL));
  return stats;
}

// One null of each variable's type: what a row group without usable statistics contributes
// to the minima and maxima, so that every variable's arrays concatenate to one length.
std::vector<std::shared_ptr<::arrow::Array>> getDefaultMissingValues(
    std::shared_ptr<::arrow::Schema> schema, const std::vector<int>& indices) {
  VANTRO_PARQUET_TRACE();
  std::vector<std::shared_ptr<::arrow::Array>> defaults;
  defaults.reserve(indices.size());
  for (int index : indices) {
    logDetail("Get missing value for field: ", index);
    auto missing =
        ::arrow::MakeArrayOfNull(schema->field(index)->type(), 1, ::arrow::default_memory_pool());
    if (!missing.ok()) {
      common::throwException<InternalError>("empty metadata generation",
                                            "Column index: " + std::to_string(index));
    }
    defaults.push_back(std::move(missing).ValueUnsafe());
  }
  return defaults;
}

std::shared_ptr<::arrow::Array> scalarToArray(const ::arrow::Scalar& scalar) {
  auto array = ::arrow::MakeArrayFromScalar(scalar, 1, ::arrow::default_memory_pool());
  if (!array.ok()) common::throwException<InternalError>("scalar metadata conversion", "");
  return std::move(array).ValueUnsafe();
}

// A scalar that already has the variable's type needs no cast; a cast to the same type would
// only copy it.
::arrow::Result<std::shared_ptr<::arrow::Scalar>> castTo(
    const std::shared_ptr<::arrow::Scalar>& scalar,
    const std::shared_ptr<::arrow::DataType>& type) {
  if (scalar->type->Equals(*type)) return scalar;
  return scalar->CastTo(type);
}

std::optional<MinMaxArrays> getMinMaxMetaData(
    const std::unique_ptr<::parquet::ColumnChunkMetaData>& chunk,
    std::shared_ptr<::arrow::DataType> type) {
  VANTRO_PARQUET_TRACE();
  if (!chunk->is_stats_set()) return std::nullopt;

  std::shared_ptr<::arrow::Scalar> minScalar;
  std::shared_ptr<::arrow::Scalar> maxScalar;
  const ::arrow::Status status =
      ::parquet::arrow::StatisticsAsScalars(*chunk->statistics(), &minScalar, &maxScalar);
  // The texts are built only when someone reads them: this runs once per row group and variable.
  if (detailEnabled()) logDetail("StatisticsAsScalars returned status: ", status.ToString());
  if (!status.ok()) return std::nullopt;

  // The footer holds values of the physical type; the host wants the variable's own type.
  auto minResult = castTo(minScalar, type);
  auto maxResult = castTo(maxScalar, type);
  if (!minResult.ok() || !maxResult.ok()) {
    logDetail("MinResult cast status: ", minResult.status().ToString());
    logDetail("MaxResult cast status: ", maxResult.status().ToString());
    return std::nullopt;
  }
  return MinMaxArrays{scalarToArray(**minResult), scalarToArray(**maxResult)};
}

matrix::unique_array convertArrayVectorToCellArray(const ArrayTable& arrays, int numVariables) {
  VANTRO_PARQUET_TRACE();
  matrix::unique_array cells(vxCreateCellMatrix(1, static_cast<size_t>(numVariables)));
  for (int v = 0; v < numVariables; ++v) {
    // A file without row groups has nothing to concatenate; its cells stay empty.
    if (arrays[v].empty()) continue;

    auto joined = ::arrow::Concatenate(arrays[v], ::arrow::default_memory_pool());
    if (!joined.ok()) {
      logDetail("Error during Concatenate for variable_index ", v, ": ",
                joined.status().ToString());
      common::throwException<InternalError>(
          "metadata array concatenation", "Could not convert variable index: " + std::to_string(v));
    }
    auto hostValues = vantro::io::arrow::core::to_vantro(*joined);
    if (!hostValues.ok()) {
      // Statistics only let the host skip work; a variable whose bounds cannot be shown is
      // read without skipping rather than failing the whole call.
      logDetail("Error during vantro::io::arrow::core::to_vantro for variable_index ", v, ": ",
                hostValues.status().ToString());
      continue;
    }
    vxSetCell(cells.get(), static_cast<size_t>(v), hostValues->release());
  }
  return cells;
}

void setLogical(const matrix::unique_array& matrix, size_t position, bool value) {
  vxGetLogicals(matrix.get())[position] = value;
}

void setInt64(const matrix::unique_array& matrix, size_t position, int64_t value) {
  static_cast<int64_t*>(vxGetData(matrix.get()))[position] = value;
}

// Null and distinct counts of one column chunk; a negative count is as good as none.
void readCounts(const ::parquet::Statistics& chunkStats, Statistics& stats, size_t position) {
  if (chunkStats.HasNullCount() && chunkStats.null_count() >= 0) {
    logDetail("Valid null_count value: ", chunkStats.null_count());
    setLogical(stats.hasNullCount, position, true);
    setInt64(stats.nullCount, position, chunkStats.null_count());
  }
  if (chunkStats.HasDistinctCount() && chunkStats.distinct_count() >= 0) {
    logDetail("Valid distinct_count value: ", chunkStats.distinct_count());
    setLogical(stats.hasDistinctCount, position, true);
    setInt64(stats.distinctCount, position, chunkStats.distinct_count());
  }
}

}  // namespace

namespace {

Statistics readFooterStatistics(const std::shared_ptr<::parquet::FileMetaData>& metadata,
                                const std::shared_ptr<::arrow::Schema>& schema,
                                const ::parquet::arrow::SchemaManifest& manifest,
                                std::optional<std::vector<int>> variableIndices) {
  const std::vector<int> indices = resolveIndices(manifest, std::move(variableIndices));
  validateFilterableVariableType(indices, schema);

  const int numRowGroups = metadata->num_row_groups();
  const int numVariables = static_cast<int>(indices.size());
  Statistics stats = initializeStatistics(numRowGroups, numVariables);
  ArrayTable minArrays(numVariables, std::vector<std::shared_ptr<::arrow::Array>>(numRowGroups));
  ArrayTable maxArrays(numVariables, std::vector<std::shared_ptr<::arrow::Array>>(numRowGroups));
  const auto defaults = getDefaultMissingValues(schema, indices);

  for (int r = 0; r < numRowGroups; ++r) {
    const auto rowGroup = metadata->RowGroup(r);
    for (int v = 0; v < numVariables; ++v) {
      const int f = indices[v];
      logDetail("Main statistics loop for rowgroup index: ", r, " and variable index: ", v,
                " and field index: ", f);
      // The flag matrices start false; only valid statistics below set them.
      const size_t position = static_cast<size_t>(v) * numRowGroups + r;
      minArrays[v][r] = defaults[v];
      maxArrays[v][r] = defaults[v];

      // A nested variable without a leaf column has no statistics of its own.
      const auto leaf = common::schema_field_to_leaf_index(manifest.schema_fields[f]);
      if (!leaf) continue;

      logDetail("Dereferencing metadata for Parquet schema field index: ", *leaf);
      const auto chunk = rowGroup->ColumnChunk(*leaf);
      if (chunk->is_stats_set()) readCounts(*chunk->statistics(), stats, position);

      if (auto minmax = getMinMaxMetaData(chunk, schema->field(f)->type())) {
        logDetail("Setting valid min/max values.");
        setLogical(stats.hasMinMax, position, true);
        minArrays[v][r] = std::move(minmax->first);
        maxArrays[v][r] = std::move(minmax->second);
      }
    }
  }

  stats.min = convertArrayVectorToCellArray(minArrays, numVariables);
  stats.max = convertArrayVectorToCellArray(maxArrays, numVariables);
  return stats;
}

}  // namespace

Statistics read_statistics(std::shared_ptr<::parquet::FileMetaData> metadata,
                           std::shared_ptr<::arrow::Schema> schema,
                           const ::parquet::arrow::SchemaManifest& manifest,
                           std::optional<std::vector<int>> variableIndices) {
  VANTRO_PARQUET_TRACE();
  // Parquet decodes a chunk's statistics only when asked, and reports damaged ones (from any
  // writer, or a hostile file) with an exception of its own, which must not reach the host.
  try {
    return readFooterStatistics(metadata, schema, manifest, std::move(variableIndices));
  } catch (const ::parquet::ParquetException& e) {
    common::throwException<InternalError>("footer statistics decoding", std::string(e.what()));
  }
}

}  // namespace vantro::io::parquet::core::read
