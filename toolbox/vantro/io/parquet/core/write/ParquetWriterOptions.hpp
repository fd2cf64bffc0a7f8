#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <parquet/properties.h>

#include "toolbox/vantro/io/parquet/core/write/LeafColumnPaths.hpp"

namespace vantro::io::parquet::core::write {

// What the host may choose about a Parquet file before it is written, and its translation into
// the two property objects of Parquet's Arrow file writer. A plain value: it never refuses a
// change; texts are checked when the properties are built.
class ParquetWriterOptions {
 public:
  ParquetWriterOptions();
  ParquetWriterOptions(ParquetWriterOptions&&) noexcept;
  ParquetWriterOptions& operator=(ParquetWriterOptions&&) noexcept;
  ParquetWriterOptions(const ParquetWriterOptions&) = delete;
  ParquetWriterOptions& operator=(const ParquetWriterOptions&) = delete;
  ~ParquetWriterOptions();

  const std::vector<std::u16string>& getVariableNames() const;
  const std::vector<std::string>& getVariableEncoding() const;
  const std::vector<std::string>& getVariableCompression() const;
  // "1.0" or "2.0".
  const std::string getVersion() const;
  bool getStoreArrowSchema() const;
  bool getUseCompliantNestedTypes() const;
  int64_t getMaxRowGroupLength() const;
  // Null until paths are set.
  const LeafColumnPaths* getLeafColumnPaths() const { return mLeafColumnPaths.get(); }

  void setVariableNames(const std::vector<std::u16string>& names);
  void setVariableEncoding(const std::vector<std::string>& encoding);
  void setVariableCompression(const std::vector<std::string>& compression);
  // Accepts exactly "1.0" and "2.0"; throws "InvalidOption" ("Version", text) otherwise and
  // keeps the previous version.
  void setVersion(const std::string& version);
  void setStoreArrowSchema(bool store);
  void setUseCompliantNestedTypes(bool compliant);
  void setMaxRowGroupLength(int64_t length);
  void setLeafColumnPaths(std::unique_ptr<LeafColumnPaths> paths);
  // The codec's level for every column (zstd 1..22, gzip 1..9, brotli 0..11, ...); a codec
  // without levels refuses one when the file is opened. Unset, each codec uses its default.
  void setCompressionLevel(int level) { mCompressionLevel = level; }
  std::optional<int> getCompressionLevel() const { return mCompressionLevel; }
  // Top-level flat columns written without a dictionary while no encoding is set.
  void setColumnsWithoutDictionary(std::vector<std::string> names);

  // Validates the options and builds the column-level properties: compression and dictionary
  // switch per leaf column, row-group length and format version.
  std::shared_ptr<::parquet::WriterProperties> buildWriterProperties() const;
  std::shared_ptr<::parquet::ArrowWriterProperties> buildArrowWriterProperties() const;

 private:
  void validate() const;
  void setCompression(::parquet::WriterProperties::Builder& builder) const;
  void setEncoding(::parquet::WriterProperties::Builder& builder) const;
  // The UTF-8 leaf paths of variable i.
  std::vector<std::string> leafPathsOf(size_t variable) const;

  std::vector<std::u16string> mVariableNames;
  std::vector<std::string> mVariableEncoding;
  std::vector<std::string> mVariableCompression;
  std::vector<std::string> mColumnsWithoutDictionary;
  ::parquet::ParquetVersion::type mVersion;
  bool mStoreArrowSchema = true;
  bool mUseCompliantNestedTypes = true;
  int64_t mMaxRowGroupLength = 64 * 1024 * 1024;
  std::optional<int> mCompressionLevel;
  std::unique_ptr<LeafColumnPaths> mLeafColumnPaths;
};

}  // namespace vantro::io::parquet::core::write
