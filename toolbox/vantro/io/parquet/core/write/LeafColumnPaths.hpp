#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vantro::io::parquet::core::write {

// The Parquet leaf columns of each top-level variable, in CSR form: variable i owns
// paths()[k] for offsets()[i] <= k < offsets()[i + 1]. A path is the dot-joined column path
// that Parquet's per-column writer settings are keyed by. Immutable once made.
class LeafColumnPaths {
 public:
  const std::vector<uint64_t>& offsets() const { return mOffsets; }
  const std::vector<std::u16string>& paths() const { return mPaths; }

  // The number of variables described (one less than the number of offsets).
  size_t numVariables() const { return mOffsets.size() - 1; }

 private:
  friend std::unique_ptr<LeafColumnPaths> makeLeafColumnPaths(std::vector<uint64_t> offsets,
                                                              std::vector<std::u16string> paths);
  LeafColumnPaths(std::vector<uint64_t> offsets, std::vector<std::u16string> paths);

  std::vector<uint64_t> mOffsets;
  std::vector<std::u16string> mPaths;
};

// Validates and takes both vectors. Throws "LeafColumnPathsEmpty" when either is empty,
// "LeafColumnPathsOffsetsAcending" when the offsets do not strictly increase and
// "LeafColumnPathsSizeMismatch" when the last offset is not the number of paths. The first
// offset need not be 0: paths before it belong to no variable.
std::unique_ptr<LeafColumnPaths> makeLeafColumnPaths(std::vector<uint64_t> offsets,
                                                     std::vector<std::u16string> paths);

}  // namespace vantro::io::parquet::core::write
