#pragma once

// The differences between the Arrow and Parquet releases the library builds on (11, and the
// newest that the pyarrow wheel carries), in one place. Everything else is written once.
#include <memory>
#include <utility>
#include <vector>

#include <arrow/io/interfaces.h>
#include <arrow/memory_pool.h>
#include <arrow/status.h>
#include <arrow/table.h>
#include <arrow/util/config.h>
#if ARROW_VERSION_MAJOR >= 21
#include <arrow/compute/initialize.h>
#endif
#include <parquet/arrow/reader.h>
#include <parquet/metadata.h>
#include <parquet/properties.h>

namespace vantro::io::parquet::core::common::compat {

// Parquet's Arrow reader over file, into *reader. Newer releases return it as a Result only.
inline ::arrow::Status OpenFile(std::shared_ptr<::arrow::io::RandomAccessFile> file,
                                ::arrow::MemoryPool* pool,
                                std::unique_ptr<::parquet::arrow::FileReader>* reader) {
#if ARROW_VERSION_MAJOR >= 19
  ARROW_ASSIGN_OR_RAISE(*reader, ::parquet::arrow::OpenFile(std::move(file), pool));
  return ::arrow::Status::OK();
#else
  return ::parquet::arrow::OpenFile(std::move(file), pool, reader);
#endif
}

// Parquet's Arrow reader over a Parquet reader already open, into *out.
inline ::arrow::Status MakeFileReader(::arrow::MemoryPool* pool,
                                      std::unique_ptr<::parquet::ParquetFileReader> reader,
                                      std::unique_ptr<::parquet::arrow::FileReader>* out) {
#if ARROW_VERSION_MAJOR >= 19
  ARROW_ASSIGN_OR_RAISE(*out, ::parquet::arrow::FileReader::Make(pool, std::move(reader)));
  return ::arrow::Status::OK();
#else
  return ::parquet::arrow::FileReader::Make(pool, std::move(reader), out);
#endif
}

// Reads of Parquet's Arrow reader into *out; newer releases return the table as a Result.
#if ARROW_VERSION_MAJOR >= 24
#define VX_COMPAT_READ(call)         \
  ARROW_ASSIGN_OR_RAISE(*out, call); \
  return ::arrow::Status::OK()
#else
#define VX_COMPAT_READ(call) return call
#endif

inline ::arrow::Status ReadTable(::parquet::arrow::FileReader& reader,
                                 std::shared_ptr<::arrow::Table>* out) {
#if ARROW_VERSION_MAJOR >= 24
  VX_COMPAT_READ(reader.ReadTable());
#else
  VX_COMPAT_READ(reader.ReadTable(out));
#endif
}

inline ::arrow::Status ReadTable(::parquet::arrow::FileReader& reader,
                                 const std::vector<int>& columns,
                                 std::shared_ptr<::arrow::Table>* out) {
#if ARROW_VERSION_MAJOR >= 24
  VX_COMPAT_READ(reader.ReadTable(columns));
#else
  VX_COMPAT_READ(reader.ReadTable(columns, out));
#endif
}

inline ::arrow::Status ReadRowGroup(::parquet::arrow::FileReader& reader, int rowGroup,
                                    const std::vector<int>& columns,
                                    std::shared_ptr<::arrow::Table>* out) {
#if ARROW_VERSION_MAJOR >= 24
  VX_COMPAT_READ(reader.ReadRowGroup(rowGroup, columns));
#else
  VX_COMPAT_READ(reader.ReadRowGroup(rowGroup, columns, out));
#endif
}

inline ::arrow::Status ReadRowGroup(::parquet::arrow::FileReader& reader, int rowGroup,
                                    std::shared_ptr<::arrow::Table>* out) {
#if ARROW_VERSION_MAJOR >= 24
  VX_COMPAT_READ(reader.ReadRowGroup(rowGroup));
#else
  VX_COMPAT_READ(reader.ReadRowGroup(rowGroup, out));
#endif
}

inline ::arrow::Status ReadRowGroups(::parquet::arrow::FileReader& reader,
                                     const std::vector<int>& rowGroups,
                                     const std::vector<int>& columns,
                                     std::shared_ptr<::arrow::Table>* out) {
#if ARROW_VERSION_MAJOR >= 24
  VX_COMPAT_READ(reader.ReadRowGroups(rowGroups, columns));
#else
  VX_COMPAT_READ(reader.ReadRowGroups(rowGroups, columns, out));
#endif
}

inline ::arrow::Status GetRecordBatchReader(::parquet::arrow::FileReader& reader,
                                            const std::vector<int>& rowGroups,
                                            const std::vector<int>& columns,
                                            std::shared_ptr<::arrow::RecordBatchReader>* out) {
#if ARROW_VERSION_MAJOR >= 24
  VX_COMPAT_READ(reader.GetRecordBatchReader(rowGroups, columns));
#else
  std::unique_ptr<::arrow::RecordBatchReader> batches;
  ARROW_RETURN_NOT_OK(reader.GetRecordBatchReader(rowGroups, columns, &batches));
  *out = std::move(batches);
  return ::arrow::Status::OK();
#endif
}
#undef VX_COMPAT_READ

// What the writer's version "2.0" means: Parquet 11's PARQUET_2_0 (every 2.x feature), which
// newer releases no longer name; their latest 2.x is the same set of features.
#if ARROW_VERSION_MAJOR >= 19
inline constexpr auto kParquetVersion2 = ::parquet::ParquetVersion::PARQUET_2_6;
#else
ARROW_SUPPRESS_DEPRECATION_WARNING
inline constexpr auto kParquetVersion2 = ::parquet::ParquetVersion::PARQUET_2_0;
ARROW_UNSUPPRESS_DEPRECATION_WARNING
#endif

// Registers Arrow's compute functions (Cast, Take, ...), which newer releases keep in a library
// of their own that must be initialised once. Idempotent.
inline ::arrow::Status initializeCompute() {
#if ARROW_VERSION_MAJOR >= 21
  return ::arrow::compute::Initialize();
#else
  return ::arrow::Status::OK();
#endif
}

// A footer's serialized metadata, decoded (throws ParquetException for one that is not). Newer
// releases take its length as a 64-bit value.
inline std::shared_ptr<::parquet::FileMetaData> DecodeFileMetaData(const uint8_t* data,
                                                                   int64_t size) {
#if ARROW_VERSION_MAJOR >= 26
  return ::parquet::FileMetaData::Make(data, size);
#else
  uint32_t length = static_cast<uint32_t>(size);
  return ::parquet::FileMetaData::Make(data, &length);
#endif
}

// True for Parquet's names of a 2.x format version.
inline bool isParquetVersion2(::parquet::ParquetVersion::type version) {
  return version != ::parquet::ParquetVersion::PARQUET_1_0;
}

}  // namespace vantro::io::parquet::core::common::compat
