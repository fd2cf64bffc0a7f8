#pragma once

// Helpers of the reader tests: host tables taken apart, and host values compared.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <arrow/api.h>

#include "host/matrix/Matrix.hpp"
#include "tests/support/TestSupport.hpp"

namespace vxtest::read {

// The "Names" of a host table, as UTF-8.
std::vector<std::string> tableNames(const vxArray_tag* table);
// Column i of a host table (borrowed).
const vxArray_tag* tableColumn(const vxArray_tag* table, size_t i);
// The rows of a host column, whatever its kind.
size_t columnRows(const vxArray_tag* column);
// The rows of a host table: the height of its first column, 0 without columns.
size_t tableRows(const vxArray_tag* table);
// The values of an int64 host column.
std::vector<int64_t> int64Column(const vxArray_tag* column);

// Empty when a and b are equal host values (class, shape, data, and recursively cells and
// fields); otherwise where and how they first differ.
std::string hostDifference(const vxArray_tag* a, const vxArray_tag* b);

// The ids first..last-1.
std::vector<int64_t> idRange(int64_t first, int64_t last);

// Arrow writer properties that keep the Arrow schema, so that dictionaries come back as such.
std::shared_ptr<parquet::ArrowWriterProperties> storeSchema();

}  // namespace vxtest::read
