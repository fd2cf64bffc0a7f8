#include "toolbox/vantro/io/parquet/core/write/LeafColumnPaths.hpp"

#include <algorithm>
#include <functional>

#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

namespace vantro::io::parquet::core::write {

namespace msg = VANTRO::parquetio::write;
using common::throwException;

LeafColumnPaths::LeafColumnPaths(std::vector<uint64_t> offsets, std::vector<std::u16string> paths)
    : mOffsets(std::move(offsets)), mPaths(std::move(paths)) {}

std::unique_ptr<LeafColumnPaths> makeLeafColumnPaths(std::vector<uint64_t> offsets,
                                                     std::vector<std::u16string> paths) {
  if (offsets.empty() || paths.empty()) {
    throwException<msg::LeafColumnPathsEmpty>();
  }
  // adjacent_find with >= finds the first pair that is not strictly increasing.
  if (std::adjacent_find(offsets.begin(), offsets.end(), std::greater_equal<uint64_t>()) !=
      offsets.end()) {
    throwException<msg::LeafColumnPathsOffsetsAcending>();
  }
  if (offsets.back() != paths.size()) {
    throwException<msg::LeafColumnPathsSizeMismatch>();
  }
  return std::unique_ptr<LeafColumnPaths>(
      new LeafColumnPaths(std::move(offsets), std::move(paths)));
}

}  // namespace vantro::io::parquet::core::write
