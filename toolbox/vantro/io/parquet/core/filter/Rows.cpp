// Row subsets of host tables and columns.
#include <cstring>
#include <string>
#include <vector>

#include "host/converter/HostValues.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Errors.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Expression.hpp"

namespace vantro::io::parquet::core::filter {

namespace {

namespace hostvalues = vantro::io::arrow::core::host;

matrix::unique_array allocated(vxArray* array) {
  if (array == nullptr) throwInvalidTable("the host could not allocate the filtered rows");
  return matrix::unique_array(array);
}

bool isPlainArray(vxClassID id) {
  return id == vxLOGICAL_CLASS || id == vxCHAR_CLASS ||
         (id >= vxDOUBLE_CLASS && id <= vxUINT64_CLASS);
}

// Fields of an object that hold one element per row; the others describe the whole column.
bool isRowField(const char* name) {
  return std::strcmp(name, hostvalues::kTicks) == 0 || std::strcmp(name, hostvalues::kCodes) == 0 ||
         std::strcmp(name, hostvalues::kValues) == 0 ||
         std::strcmp(name, hostvalues::kMissing) == 0;
}

matrix::unique_array takePlainRows(const vxArray* column, const std::vector<size_t>& rows) {
  const vxClassID id = vxGetClassID(column);
  const size_t m = vxGetM(column), n = vxGetN(column), k = rows.size();
  matrix::unique_array out;
  if (id == vxCHAR_CLASS) {
    out = allocated(vxCreateCharArray(k, n));
  } else if (id == vxLOGICAL_CLASS) {
    out = allocated(vxCreateLogicalMatrix(k, n));
  } else {
    out =
        allocated(vxCreateUninitNumericMatrix(k, n, id, vxIsComplex(column) ? vxCOMPLEX : vxREAL));
  }
  const size_t size = vxGetElementSize(column);
  const auto* from = static_cast<const char*>(vxGetData(column));
  auto* to = static_cast<char*>(vxGetData(out.get()));
  for (size_t c = 0; c < n; ++c) {
    for (size_t i = 0; i < k; ++i) {
      std::memcpy(to + (c * k + i) * size, from + (c * m + rows[i]) * size, size);
    }
  }
  return out;
}

matrix::unique_array takeCellRows(const vxArray* cells, const std::vector<size_t>& rows) {
  const size_t m = vxGetM(cells), n = vxGetN(cells), k = rows.size();
  auto out = allocated(vxCreateCellMatrix(k, n));
  for (size_t c = 0; c < n; ++c) {
    for (size_t i = 0; i < k; ++i) {
      const vxArray* element = vxGetCell(cells, c * m + rows[i]);
      if (element != nullptr)
        vxSetCell(out.get(), c * k + i, allocated(vxDuplicateArray(element)).release());
    }
  }
  return out;
}

matrix::unique_array takeTextRows(const vxArray* strings, const std::vector<size_t>& rows) {
  const vxArray* offsets = vxGetField(strings, 0, hostvalues::kOffsets);
  const vxArray* data = vxGetField(strings, 0, hostvalues::kData);
  const vxArray* missing = vxGetField(strings, 0, hostvalues::kMissing);
  if (offsets == nullptr || vxGetClassID(offsets) != vxUINT64_CLASS || data == nullptr) {
    throwInvalidTable("a string object without its Offsets and Data");
  }
  const auto* from = static_cast<const uint64_t*>(vxGetData(offsets));
  const vxChar* units = vxGetChars(data);
  size_t total = 0;
  for (size_t row : rows) total += from[row + 1] - from[row];

  auto newData = allocated(vxCreateUninitCharArray(1, total));
  auto newOffsets =
      allocated(vxCreateUninitNumericMatrix(rows.size() + 1, 1, vxUINT64_CLASS, vxREAL));
  auto* to = static_cast<uint64_t*>(vxGetData(newOffsets.get()));
  vxChar* toUnits = vxGetChars(newData.get());
  to[0] = 0;
  for (size_t i = 0; i < rows.size(); ++i) {
    const uint64_t length = from[rows[i] + 1] - from[rows[i]];
    if (length != 0) std::memcpy(toUnits + to[i], units + from[rows[i]], length * sizeof(vxChar));
    to[i + 1] = to[i] + length;
  }
  std::vector<hostvalues::Field> fields;
  fields.emplace_back(hostvalues::kData, std::move(newData));
  fields.emplace_back(hostvalues::kOffsets, std::move(newOffsets));
  fields.emplace_back(hostvalues::kMissing, missing != nullptr
                                                ? takePlainRows(missing, rows)
                                                : allocated(vxCreateLogicalMatrix(rows.size(), 1)));
  auto object = hostvalues::MakeObject(hostvalues::kString, std::move(fields));
  if (!object.ok()) throwInvalidTable(object.status().message());
  return std::move(object).ValueUnsafe();
}

matrix::unique_array takeObjectRows(const vxArray* object, const std::vector<size_t>& rows) {
  const int count = vxGetNumberOfFields(object);
  std::vector<const char*> names;
  for (int f = 0; f < count; ++f) names.push_back(vxGetFieldNameByNumber(object, f));
  auto out = allocated(vxCreateObjectMatrix(1, 1, vxGetClassName(object), count, names.data()));
  for (const char* name : names) {
    const vxArray* value = vxGetField(object, 0, name);
    if (value == nullptr) continue;
    vxSetField(out.get(), 0, name,
               isRowField(name) ? takePlainRows(value, rows).release()
                                : allocated(vxDuplicateArray(value)).release());
  }
  return out;
}

matrix::unique_array takeTableRows(const vxArray* table, const std::vector<size_t>& rows) {
  const vxArray* columns = vxGetField(table, 0, hostvalues::kColumns);
  const vxArray* names = vxGetField(table, 0, hostvalues::kNames);
  if (columns == nullptr || names == nullptr || vxGetClassID(columns) != vxCELL_CLASS) {
    throwInvalidTable("a table without its Names and Columns");
  }
  const size_t count = vxGetNumberOfElements(columns);
  auto newColumns = allocated(vxCreateCellMatrix(1, count));
  for (size_t c = 0; c < count; ++c) {
    vxSetCell(newColumns.get(), c, takeRows(vxGetCell(columns, c), rows).release());
  }
  const char* fieldNames[] = {hostvalues::kNames, hostvalues::kColumns};
  auto out = allocated(vxGetClassID(table) == vxSTRUCT_CLASS
                           ? vxCreateStructMatrix(1, 1, 2, fieldNames)
                           : vxCreateObjectMatrix(1, 1, hostvalues::kTable, 2, fieldNames));
  vxSetField(out.get(), 0, hostvalues::kNames, allocated(vxDuplicateArray(names)).release());
  vxSetField(out.get(), 0, hostvalues::kColumns, newColumns.release());
  return out;
}

bool isColumnObject(const vxArray* value) {
  return hostvalues::IsObject(value, hostvalues::kDatetime) ||
         hostvalues::IsObject(value, hostvalues::kDuration) ||
         hostvalues::IsObject(value, hostvalues::kCategorical) ||
         hostvalues::IsObject(value, hostvalues::kInteger);
}

}  // namespace

size_t rowCount(const vxArray* value) {
  if (value == nullptr) throwInvalidTable("a column is missing");
  const vxClassID id = vxGetClassID(value);
  if (hostvalues::IsTable(value)) {
    const vxArray* columns = vxGetField(value, 0, hostvalues::kColumns);
    if (columns == nullptr || vxGetNumberOfElements(columns) == 0) return 0;
    return rowCount(vxGetCell(columns, 0));
  }
  if (isPlainArray(id) || id == vxCELL_CLASS) return vxGetM(value);
  if (hostvalues::IsObject(value, hostvalues::kString)) {
    const vxArray* offsets = vxGetField(value, 0, hostvalues::kOffsets);
    return offsets == nullptr || vxIsEmpty(offsets) ? 0 : vxGetNumberOfElements(offsets) - 1;
  }
  if (isColumnObject(value)) {
    const char* rowField = hostvalues::IsObject(value, hostvalues::kCategorical)
                               ? hostvalues::kCodes
                           : hostvalues::IsObject(value, hostvalues::kInteger) ? hostvalues::kValues
                                                                               : hostvalues::kTicks;
    const vxArray* rows = vxGetField(value, 0, rowField);
    return rows == nullptr ? 0 : vxGetM(rows);
  }
  throwInvalidTable(std::string("a value of class '") + vxGetClassName(value) +
                    "' is not a host column");
}

matrix::unique_array takeRows(const vxArray* value, const std::vector<size_t>& rows) {
  const size_t height = rowCount(value);
  for (size_t row : rows) {
    if (row >= height) throwInvalidTable("row " + std::to_string(row + 1) + " is past the end");
  }
  const vxClassID id = vxGetClassID(value);
  if (hostvalues::IsTable(value)) return takeTableRows(value, rows);
  if (isPlainArray(id)) return takePlainRows(value, rows);
  if (id == vxCELL_CLASS) return takeCellRows(value, rows);
  if (hostvalues::IsObject(value, hostvalues::kString)) return takeTextRows(value, rows);
  return takeObjectRows(value, rows);
}

}  // namespace vantro::io::parquet::core::filter
