#include "tests/read/ReaderTestSupport.hpp"

#include <cstring>
#include <numeric>

#include <arrow/io/file.h>
#include <parquet/arrow/writer.h>

namespace vxtest::read {

std::vector<std::string> tableNames(const vxArray_tag* table) {
  std::vector<std::string> names;
  const vxArray_tag* cell = vxGetField(table, 0, "Names");
  if (cell == nullptr) return names;
  for (size_t i = 0; i < vxGetNumberOfElements(cell); ++i) {
    names.push_back(u8(matrix::toUString(vxGetCell(cell, i))));
  }
  return names;
}

const vxArray_tag* tableColumn(const vxArray_tag* table, size_t i) {
  return vxGetCell(vxGetField(table, 0, "Columns"), i);
}

size_t columnRows(const vxArray_tag* column) {
  if (vxGetClassID(column) != vxOBJECT_CLASS) return vxGetM(column);
  const std::string kind = vxGetClassName(column);
  if (kind == "table") return tableRows(column);
  if (kind == "string") return vxGetM(vxGetField(column, 0, "Offsets")) - 1;
  if (kind == "categorical") return vxGetM(vxGetField(column, 0, "Codes"));
  if (kind == "integer") return vxGetM(vxGetField(column, 0, "Values"));
  return vxGetM(vxGetField(column, 0, "Ticks"));  // datetime, duration
}

size_t tableRows(const vxArray_tag* table) {
  const vxArray_tag* columns = vxGetField(table, 0, "Columns");
  if (columns == nullptr || vxGetNumberOfElements(columns) == 0) return 0;
  return columnRows(vxGetCell(columns, 0));
}

std::vector<int64_t> int64Column(const vxArray_tag* column) {
  EXPECT_EQ(vxGetClassID(column), vxINT64_CLASS);
  if (vxGetClassID(column) != vxINT64_CLASS) return {};
  const auto* data = static_cast<const int64_t*>(vxGetData(column));
  return std::vector<int64_t>(data, data + vxGetNumberOfElements(column));
}

namespace {

std::string describe(const vxArray_tag* a) {
  return std::string(vxGetClassName(a)) + " " + std::to_string(vxGetM(a)) + "x" +
         std::to_string(vxGetN(a));
}

bool isContainer(vxClassID id) {
  return id == vxCELL_CLASS || id == vxSTRUCT_CLASS || id == vxOBJECT_CLASS;
}

}  // namespace

std::string hostDifference(const vxArray_tag* a, const vxArray_tag* b) {
  if (a == nullptr || b == nullptr) {
    return a == b ? "" : std::string("one value is missing");
  }
  if (vxGetClassID(a) != vxGetClassID(b) || vxGetM(a) != vxGetM(b) || vxGetN(a) != vxGetN(b) ||
      std::strcmp(vxGetClassName(a), vxGetClassName(b)) != 0 || vxIsComplex(a) != vxIsComplex(b)) {
    return describe(a) + " vs " + describe(b);
  }
  const size_t count = vxGetNumberOfElements(a);
  const vxClassID id = vxGetClassID(a);
  if (id == vxCELL_CLASS) {
    for (size_t i = 0; i < count; ++i) {
      std::string inner = hostDifference(vxGetCell(a, i), vxGetCell(b, i));
      if (!inner.empty()) return "cell " + std::to_string(i) + ": " + inner;
    }
    return "";
  }
  if (isContainer(id)) {
    const int fields = vxGetNumberOfFields(a);
    if (fields != vxGetNumberOfFields(b)) return "field counts differ";
    for (int f = 0; f < fields; ++f) {
      const char* name = vxGetFieldNameByNumber(a, f);
      for (size_t i = 0; i < count; ++i) {
        std::string inner = hostDifference(vxGetField(a, i, name), vxGetField(b, i, name));
        if (!inner.empty()) return std::string("field ") + name + ": " + inner;
      }
    }
    return "";
  }
  // Numbers, logicals and chars: byte-wise, so that NaNs at the same places compare equal.
  const size_t bytes = count * vxGetElementSize(a) * (vxIsComplex(a) ? 2 : 1);
  if (bytes != 0 && std::memcmp(vxGetData(a), vxGetData(b), bytes) != 0) {
    return describe(a) + ": data differ";
  }
  return "";
}

std::vector<int64_t> idRange(int64_t first, int64_t last) {
  std::vector<int64_t> ids(static_cast<size_t>(last - first));
  std::iota(ids.begin(), ids.end(), first);
  return ids;
}

std::shared_ptr<parquet::ArrowWriterProperties> storeSchema() {
  return parquet::ArrowWriterProperties::Builder().store_schema()->build();
}

}  // namespace vxtest::read
