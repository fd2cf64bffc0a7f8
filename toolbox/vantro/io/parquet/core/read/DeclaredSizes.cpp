#include "toolbox/vantro/io/parquet/core/read/DeclaredSizes.hpp"

#include <algorithm>
#include <optional>
#include <string>

#include <arrow/buffer.h>
#include <arrow/type.h>
#include <parquet/schema.h>

#include "toolbox/vantro/io/parquet/core/read/PageHeaders.hpp"

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

// String and binary types with 32-bit offsets (their large forms have 64-bit ones).
bool hasInt32Offsets(const ::arrow::DataType& type) {
  return type.id() == ::arrow::Type::STRING || type.id() == ::arrow::Type::BINARY;
}

// A size from the footer, where a negative one counts as none.
uint64_t nonNegative(int64_t size) { return static_cast<uint64_t>(std::max<int64_t>(size, 0)); }

// Calls visit(rowGroup, column, chunk) for every chunk of rowGroups x columns (0-based) that
// the file has, up to the first failure; indices outside the file are left for Arrow to report.
template <typename Visit>
::arrow::Status forEachChunk(const ::parquet::FileMetaData& metadata,
                             const std::vector<int>& rowGroups, const std::vector<int>& columns,
                             Visit visit) {
  for (const int rowGroup : rowGroups) {
    if (rowGroup < 0 || rowGroup >= metadata.num_row_groups()) continue;
    const auto group = metadata.RowGroup(rowGroup);
    for (const int column : columns) {
      if (column < 0 || column >= group->num_columns()) continue;
      ARROW_RETURN_NOT_OK(visit(rowGroup, column, *group->ColumnChunk(column)));
    }
  }
  return ::arrow::Status::OK();
}

// The decoded bytes that leaf column declares over rowGroups, at least.
uint64_t declaredValueBytes(const ::parquet::FileMetaData& metadata, int column,
                            const std::vector<int>& rowGroups) {
  uint64_t total = 0;
  const auto countValueBytes = [&](int, int, const ::parquet::ColumnChunkMetaData& chunk) {
    total +=
        nonNegative(chunk.total_uncompressed_size() - 4 * std::max<int64_t>(chunk.num_values(), 0));
    return ::arrow::Status::OK();
  };
  // Counting never fails.
  static_cast<void>(forEachChunk(metadata, rowGroups, {column}, countValueBytes));
  return total;
}

// The first leaf under field with 32-bit offsets whose declared bytes exceed one chunk.
const ::parquet::arrow::SchemaField* oversizedLeaf(const ::parquet::FileMetaData& metadata,
                                                   const ::parquet::arrow::SchemaField& field,
                                                   const std::vector<int>& rowGroups,
                                                   uint64_t& declared) {
  if (field.column_index >= 0) {
    if (!field.field || !hasInt32Offsets(*field.field->type())) return nullptr;
    declared = declaredValueBytes(metadata, field.column_index, rowGroups);
    return declared > kMaxBinaryChunkBytes ? &field : nullptr;
  }
  for (const auto& child : field.children) {
    if (const auto* leaf = oversizedLeaf(metadata, child, rowGroups, declared)) return leaf;
  }
  return nullptr;
}

// Arrow's own bound on one page header.
constexpr int64_t kMaxPageHeaderBytes = 16 << 20;
// A first read that holds most headers whole, statistics included.
constexpr int64_t kFirstHeaderRead = 1024;

// The header of the page at position, read in growing steps up to end; nullopt where none
// parses.
::arrow::Result<std::optional<PageSizes>> readPageHeader(::arrow::io::RandomAccessFile& file,
                                                         int64_t position, int64_t end) {
  for (int64_t length = kFirstHeaderRead;; length *= 4) {
    const int64_t wanted = std::min({length, end - position, kMaxPageHeaderBytes});
    ARROW_ASSIGN_OR_RAISE(auto bytes, file.ReadAt(position, wanted));
    bool truncated = false;
    auto sizes = parsePageHeader(bytes->data(), static_cast<size_t>(bytes->size()), &truncated);
    if (sizes || !truncated || bytes->size() < wanted || wanted < length) return sizes;
  }
}

// Where Arrow starts reading a chunk: its dictionary page when it has one before its data.
int64_t chunkStart(const ::parquet::ColumnChunkMetaData& chunk) {
  int64_t start = chunk.data_page_offset();
  if (chunk.has_dictionary_page() && chunk.dictionary_page_offset() > 0 &&
      chunk.dictionary_page_offset() < start) {
    start = chunk.dictionary_page_offset();
  }
  return start;
}

// The decoded bytes the pages of chunk declare, header bytes included as the footer counts
// them, stopping once they pass limit.
::arrow::Result<uint64_t> pageDeclaredBytes(::arrow::io::RandomAccessFile& file, int64_t fileSize,
                                            const ::parquet::ColumnChunkMetaData& chunk,
                                            uint64_t limit) {
  const int64_t start = chunkStart(chunk);
  const int64_t stored = chunk.total_compressed_size();
  if (start < 0 || stored <= 0 || start >= fileSize) return 0;
  const int64_t end = start + std::min(stored, fileSize - start);
  uint64_t total = 0;
  for (int64_t position = start; position < end && total <= limit;) {
    ARROW_ASSIGN_OR_RAISE(const auto sizes, readPageHeader(file, position, end));
    if (!sizes || sizes->uncompressedBytes < 0 || sizes->compressedBytes < 0) break;
    total += static_cast<uint64_t>(sizes->headerBytes + sizes->uncompressedBytes);
    position += sizes->headerBytes + sizes->compressedBytes;
  }
  return total;
}

}  // namespace

::arrow::Status checkPageSizes(::arrow::io::RandomAccessFile& file,
                               const ::parquet::FileMetaData& metadata,
                               const std::vector<int>& rowGroups, const std::vector<int>& columns) {
  ARROW_ASSIGN_OR_RAISE(const int64_t fileSize, file.GetSize());
  return forEachChunk(metadata, rowGroups, columns,
                      [&](int rowGroup, int column, const ::parquet::ColumnChunkMetaData& chunk) {
                        // Uncompressed pages are used as stored: nothing expands.
                        if (chunk.compression() == ::parquet::Compression::UNCOMPRESSED) {
                          return ::arrow::Status::OK();
                        }
                        const uint64_t declared = nonNegative(chunk.total_uncompressed_size());
                        const uint64_t limit = 2 * declared + kSlack;
                        ARROW_ASSIGN_OR_RAISE(const uint64_t pages,
                                              pageDeclaredBytes(file, fileSize, chunk, limit));
                        if (pages > limit) {
                          return ::arrow::Status::Invalid(
                              "Column '", metadata.schema()->Column(column)->path()->ToDotString(),
                              "' in row group ", rowGroup + 1, " has pages that declare more than ",
                              limit, " decoded bytes where the footer declares ", declared,
                              "; the file is corrupt or forged");
                        }
                        return ::arrow::Status::OK();
                      });
}

::arrow::Status checkDeclaredChunkSizes(const ::parquet::FileMetaData& metadata,
                                        const std::vector<int>& rowGroups,
                                        const std::vector<int>& columns, uint64_t maxBytes) {
  return forEachChunk(
      metadata, rowGroups, columns,
      [&](int rowGroup, int column, const ::parquet::ColumnChunkMetaData& chunk) {
        const uint64_t declared = nonNegative(chunk.total_uncompressed_size());
        const uint64_t stored = nonNegative(chunk.total_compressed_size());
        const uint64_t expansion = maxExpansion(chunk.compression());
        const bool beyondMemory = declared > maxBytes;
        const bool beyondCodec = expansion > 0 && declared > stored * expansion + kSlack;
        if (beyondMemory || beyondCodec) {
          return ::arrow::Status::Invalid(
              "Column '", metadata.schema()->Column(column)->path()->ToDotString(),
              "' in row group ", rowGroup + 1, " declares ", declared, " decoded bytes for ",
              stored, " stored bytes, ",
              beyondMemory ? "more than the " + std::to_string(maxBytes) + " bytes allowed"
                           : std::string("more than its codec can produce"),
              "; the file is corrupt or forged");
        }
        return ::arrow::Status::OK();
      });
}

::arrow::Status checkNestedChunkSizes(const ::parquet::FileMetaData& metadata,
                                      const ::parquet::arrow::SchemaManifest& manifest,
                                      const std::vector<int32_t>& fields,
                                      const std::vector<int>& rowGroups) {
  for (const int32_t index : fields) {
    if (index < 0 || static_cast<size_t>(index) >= manifest.schema_fields.size()) continue;
    const auto& field = manifest.schema_fields[index];
    // Flat columns may come in several chunks: only nested ones cannot.
    if (field.children.empty()) continue;
    uint64_t declared = 0;
    if (const auto* leaf = oversizedLeaf(metadata, field, rowGroups, declared)) {
      return ::arrow::Status::Invalid(
          "Variable '", field.field->name(), "' declares ", declared, " bytes of data in its ",
          leaf->column_index >= 0
              ? metadata.schema()->Column(leaf->column_index)->path()->ToDotString()
              : std::string("field"),
          " leaf over the row groups read, more than the ", kMaxBinaryChunkBytes,
          " bytes that a nested variable can be converted with; read fewer row groups at a time");
    }
  }
  return ::arrow::Status::OK();
}

}  // namespace vantro::io::parquet::core::read
