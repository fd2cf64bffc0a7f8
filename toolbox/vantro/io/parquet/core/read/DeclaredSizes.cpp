#include "toolbox/vantro/io/parquet/core/read/DeclaredSizes.hpp"

#include <parquet/schema.h>

namespace vantro::io::parquet::core::read {
namespace {

// The most a codec can expand its input, rounded up generously; 0 where there is no useful
// bound (brotli and bzip2 reach ratios in the millions on repetitive data).
uint64_t maxExpansion(::parquet::Compression::type codec) {
  switch (codec) {
    case ::parquet::Compression::UNCOMPRESSED:
      return 2;
    case ::parquet::Compression::SNAPPY:  // at most 64 bytes per 3-byte copy
      return 32;
    case ::parquet::Compression::LZ4:
    case ::parquet::Compression::LZ4_FRAME:
    case ::parquet::Compression::LZ4_HADOOP:  // 255 bytes per length byte
      return 300;
    case ::parquet::Compression::GZIP:  // deflate stops near 1032:1
      return 1100;
    case ::parquet::Compression::ZSTD:  // a 128 KiB block takes at least 4 bytes
      return 1 << 16;
    default:
      return 0;
  }
}

// Page headers and small dictionaries stay uncompressed whatever the codec.
constexpr uint64_t kSlack = 1 << 20;

}  // namespace

::arrow::Status checkDeclaredChunkSizes(const ::parquet::FileMetaData& metadata,
                                        const std::vector<int>& rowGroups,
                                        const std::vector<int>& columns, uint64_t maxBytes) {
  for (const int rowGroup : rowGroups) {
    if (rowGroup < 0 || rowGroup >= metadata.num_row_groups()) continue;
    const auto group = metadata.RowGroup(rowGroup);
    for (const int column : columns) {
      if (column < 0 || column >= group->num_columns()) continue;
      const auto chunk = group->ColumnChunk(column);
      const auto declared =
          static_cast<uint64_t>(std::max<int64_t>(chunk->total_uncompressed_size(), 0));
      const auto stored =
          static_cast<uint64_t>(std::max<int64_t>(chunk->total_compressed_size(), 0));
      const uint64_t expansion = maxExpansion(chunk->compression());
      const bool beyondMemory = declared > maxBytes;
      const bool beyondCodec = expansion > 0 && declared > stored * expansion + kSlack;
      if (beyondMemory || beyondCodec) {
        return ::arrow::Status::Invalid(
            "Column '", metadata.schema()->Column(column)->path()->ToDotString(), "' in row group ",
            rowGroup + 1, " declares ", declared, " decoded bytes for ", stored, " stored bytes, ",
            beyondMemory ? "more than the " + std::to_string(maxBytes) + " bytes allowed"
                         : std::string("more than its codec can produce"),
            "; the file is corrupt or forged");
      }
    }
  }
  return ::arrow::Status::OK();
}

}  // namespace vantro::io::parquet::core::read
