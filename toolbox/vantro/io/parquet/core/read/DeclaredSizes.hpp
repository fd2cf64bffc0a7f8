#pragma once

#include <cstdint>
#include <vector>

#include <arrow/io/interfaces.h>
#include <arrow/status.h>
#include <parquet/arrow/schema.h>
#include <parquet/metadata.h>

namespace vantro::io::parquet::core::read {

// Refuses, from the footer alone, column chunks that declare more decoded bytes than maxBytes or
// than their codec could expand their stored bytes to. Parquet trusts these sizes and allocates
// page by page before it finds a forged one out. rowGroups are 0-based; indices outside the file
// are left for Arrow to report. The status names the column and the row group.
::arrow::Status checkDeclaredChunkSizes(const ::parquet::FileMetaData& metadata,
                                        const std::vector<int>& rowGroups,
                                        const std::vector<int>& columns, uint64_t maxBytes);

// The most bytes of string or binary data Arrow puts in one array with 32-bit offsets; beyond
// it, a column is read as several chunks.
inline constexpr uint64_t kMaxBinaryChunkBytes = (uint64_t{1} << 31) - 2;

// Refuses, from the footer alone, a nested variable (list, map, struct) of fields whose string or
// binary leaf declares more decoded bytes over rowGroups than one chunk holds. Arrow cannot
// convert nested data of several chunks, and finds that out only once it has decompressed and
// decoded all of it (for a 4 KB brotli file declaring 2 GiB: half a minute and 5 GB). The bytes
// counted are the leaf chunks' declared sizes less the 4-byte length of each value: what plain
// encoding holds beside the values themselves. fields are indices into manifest.schema_fields.
::arrow::Status checkNestedChunkSizes(const ::parquet::FileMetaData& metadata,
                                      const ::parquet::arrow::SchemaManifest& manifest,
                                      const std::vector<int32_t>& fields,
                                      const std::vector<int>& rowGroups);

// Refuses, from the page headers, compressed column chunks whose pages declare more decoded
// bytes than the footer declares for the chunk (with room for writers that count loosely).
// Arrow sizes each page's decompression by its header alone, so a forged footer would let a
// small file decompress to gigabytes; the headers are read, never the pages. A header that cannot
// be parsed ends the walk of its chunk: Arrow reports it when it reads the chunk.
::arrow::Status checkPageSizes(::arrow::io::RandomAccessFile& file,
                               const ::parquet::FileMetaData& metadata,
                               const std::vector<int>& rowGroups, const std::vector<int>& columns);

}  // namespace vantro::io::parquet::core::read
