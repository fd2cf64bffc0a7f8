#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <arrow/type_fwd.h>
#include <parquet/arrow/reader.h>
#include <parquet/arrow/schema.h>
#include <parquet/metadata.h>

namespace vantro::io::parquet::core::info {

// The metadata summary of one Parquet file. Construction opens the file and computes every
// property from the footer and the first row group's column chunks; no column data is read.
// The reader stays open until destruction, for getMetadata and getSchemaManifest.
class ParquetInfo {
 public:
  // Throws VANTRO:parquetio:read:InternalInvalidRead, with filename as given, whatever fails.
  explicit ParquetInfo(const std::u16string& filename);

  ParquetInfo(ParquetInfo&&) = default;
  ParquetInfo& operator=(ParquetInfo&&) = default;
  ParquetInfo(const ParquetInfo&) = delete;
  ParquetInfo& operator=(const ParquetInfo&) = delete;
  ~ParquetInfo() = default;

  const std::u16string& getFilename() const { return mFilename; }
  uint64_t getFileSize() const { return mFileSize; }
  int getNumRowGroups() const { return mNumRowGroups; }
  const std::vector<uint64_t> getRowGroupHeights() const { return mRowGroupHeights; }
  const std::vector<uint64_t> getRowGroupOffsets() const { return mRowGroupOffsets; }
  const std::vector<std::u16string>& getVariableNames() const { return mVariableNames; }
  const std::vector<std::string>& getVariableTypes() const { return mVariableTypes; }
  // Per variable, from row group 0; no entries at all when the file has no row groups.
  const std::vector<std::string>& getVariableCompression() const { return mVariableCompression; }
  const std::vector<std::string>& getVariableEncoding() const { return mVariableEncoding; }
  // "1.0", "2.0" (any 2.x) or empty.
  const std::string& getVersion() const { return mVersion; }
  const std::vector<std::string>& getParquetPhysicalTypes() const { return mParquetPhysicalTypes; }
  const std::vector<std::string>& getParquetConvertedTypes() const {
    return mParquetConvertedTypes;
  }
  const std::vector<std::string>& getParquetLogicalTypes() const { return mParquetLogicalTypes; }
  const std::vector<std::string>& getArrowTypes() const { return mArrowTypes; }
  const std::shared_ptr<::arrow::Schema> getArrowSchema() const { return mArrowSchema; }

  // Both ask the open reader on every call.
  const std::shared_ptr<::parquet::FileMetaData> getMetadata() const;
  const ::parquet::arrow::SchemaManifest& getSchemaManifest() const;

 private:
  void doBuildInfo();
  void setVersion();
  void setArrowSchema();
  void setNumRowGroups();
  void setVariableNames();
  void setVariableTypes();
  void setArrowTypes();
  void setRowGroupHeights();
  void setRowGroupOffsets();
  void setParquetPhysicalTypes();
  void setParquetConvertedTypes();
  void setParquetLogicalTypes();
  void setVariableCompression(const ::parquet::RowGroupMetaData& rowGroup);
  void setVariableEncoding(const ::parquet::RowGroupMetaData& rowGroup);

  std::u16string mFilename;
  uint64_t mFileSize = 0;
  int32_t mNumRowGroups = 0;
  std::vector<uint64_t> mRowGroupHeights;
  std::vector<uint64_t> mRowGroupOffsets;
  std::vector<std::u16string> mVariableNames;
  std::vector<std::string> mVariableTypes;
  std::vector<std::string> mVariableCompression;
  std::vector<std::string> mVariableEncoding;
  std::string mVersion;
  std::vector<std::string> mParquetPhysicalTypes;
  std::vector<std::string> mParquetConvertedTypes;
  std::vector<std::string> mParquetLogicalTypes;
  std::vector<std::string> mArrowTypes;
  std::unique_ptr<::parquet::arrow::FileReader> mFileReader;
  std::shared_ptr<::arrow::Schema> mArrowSchema;
};

}  // namespace vantro::io::parquet::core::info
