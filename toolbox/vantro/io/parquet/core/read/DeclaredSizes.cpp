#include "toolbox/vantro/io/parquet/core/read/DeclaredSizes.hpp"

#include <algorithm>
#include <string>

#include <arrow/type.h>
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

// String and binary types with 32-bit offsets (their large forms have 64-bit ones).
bool hasInt32Offsets(const ::arrow::DataType& type) {
  return type.id() == ::arrow::Type::STRING || type.id() == ::arrow::Type::BINARY;
}

// The decoded bytes that leaf column declares over rowGroups, at least.
uint64_t declaredValueBytes(const ::parquet::FileMetaData& metadata, int column,
                            const std::vector<int>& rowGroups) {
  uint64_t total = 0;
  for (const int rowGroup : rowGroups) {
    if (rowGroup < 0 || rowGroup >= metadata.num_row_groups()) continue;
    const auto group = metadata.RowGroup(rowGroup);
    if (column < 0 || column >= group->num_columns()) continue;
    const auto chunk = group->ColumnChunk(column);
    const int64_t values =
        chunk->total_uncompressed_size() - 4 * std::max<int64_t>(chunk->num_values(), 0);
    total += static_cast<uint64_t>(std::max<int64_t>(values, 0));
  }
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
