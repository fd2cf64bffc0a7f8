#pragma once

#include <cstdint>
#include <vector>

#include <parquet/metadata.h>

// The shape of a file's row groups, from its footer alone.
namespace vantro::io::parquet::core::info {

// Rows per row group, in footer order.
std::vector<uint64_t> getRowGroupHeights(const ::parquet::FileMetaData& metadata);

// Byte offset at which each row group starts, in footer order (see calculateRowGroupOffset).
std::vector<uint64_t> getRowGroupOffsets(const ::parquet::FileMetaData& metadata);

}  // namespace vantro::io::parquet::core::info

namespace vantro::io::parquet::core::read {

// Where a row group starts: its first column chunk's dictionary page when it has one, else its
// first data page. The row group's own file-offset field is not used: writers fill it
// inconsistently, while the page offsets are always there. Throws Parquet's exception for a row
// group without columns.
int64_t calculateRowGroupOffset(const ::parquet::RowGroupMetaData& rowGroup);

}  // namespace vantro::io::parquet::core::read
