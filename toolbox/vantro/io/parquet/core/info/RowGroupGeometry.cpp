#include "toolbox/vantro/io/parquet/core/info/RowGroupGeometry.hpp"

namespace vantro::io::parquet::core::read {

int64_t calculateRowGroupOffset(const ::parquet::RowGroupMetaData& rowGroup) {
  const auto firstChunk = rowGroup.ColumnChunk(0);
  return firstChunk->has_dictionary_page() ? firstChunk->dictionary_page_offset()
                                           : firstChunk->data_page_offset();
}

}  // namespace vantro::io::parquet::core::read

namespace vantro::io::parquet::core::info {

std::vector<uint64_t> getRowGroupHeights(const ::parquet::FileMetaData& metadata) {
  std::vector<uint64_t> heights;
  heights.reserve(metadata.num_row_groups());
  for (int i = 0; i < metadata.num_row_groups(); ++i) {
    heights.push_back(static_cast<uint64_t>(metadata.RowGroup(i)->num_rows()));
  }
  return heights;
}

std::vector<uint64_t> getRowGroupOffsets(const ::parquet::FileMetaData& metadata) {
  std::vector<uint64_t> offsets;
  offsets.reserve(metadata.num_row_groups());
  for (int i = 0; i < metadata.num_row_groups(); ++i) {
    offsets.push_back(static_cast<uint64_t>(read::calculateRowGroupOffset(*metadata.RowGroup(i))));
  }
  return offsets;
}

}  // namespace vantro::io::parquet::core::info
