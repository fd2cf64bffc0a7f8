#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include <arrow/type_fwd.h>
#include <parquet/arrow/writer.h>

#include "host/matrix/matrix.h"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriterOptions.hpp"

namespace vantro::io::parquet::core::write {

// Writes host tables to one Parquet file. The output is opened at construction; Parquet's
// Arrow file writer is opened on the first write, with the schema of that first table and
// properties built from the options, and every later write appends row groups to it. A writer
// destroyed without a successful close removes its output.
class ParquetWriter {
 public:
  explicit ParquetWriter(const std::u16string& filename);
  ~ParquetWriter();

  ParquetWriter(ParquetWriter&& other) noexcept;
  ParquetWriter& operator=(ParquetWriter&& other) noexcept;
  ParquetWriter(const ParquetWriter&) = delete;
  ParquetWriter& operator=(const ParquetWriter&) = delete;

  const std::vector<std::u16string>& getVariableNames() const;
  const std::vector<std::string>& getVariableCompression() const;
  const std::vector<std::string>& getVariableEncoding() const;
  const std::string getVersion() const;
  bool getStoreArrowSchema() const;
  bool getUseCompliantNestedTypes() const;
  int64_t getMaxRowGroupLength() const;

  // Each may be set while it is still empty (or, for the version, not yet set); a value once
  // given cannot be replaced.
  void setVariableNames(const std::vector<std::u16string>& names);
  void setVariableCompression(const std::vector<std::string>& compression);
  void setVariableEncoding(const std::vector<std::string>& encoding);
  void setVersion(const std::string& version);

  // Only the values in force at the first write count.
  void setStoreArrowSchema(bool store);
  void setUseCompliantNestedTypes(bool compliant);
  void setMaxRowGroupLength(int64_t length);
  // Forwarded without a check, like the free setters; counts at the first write.
  void setCompressionLevel(int level);

  // Replaces the leaf column paths of the variables (validated first).
  void setLeafColumnPaths(std::vector<uint64_t> offsets, std::vector<std::u16string> paths);

  // Appends the table; Parquet splits it into row groups of at most the maximum row-group
  // length.
  void write(const vxArray_tag* table);
  // Appends one row group per height (a double array); rows past the heights' sum are dropped.
  void writeRowGroups(const vxArray_tag* table, const vxArray_tag* rowGroupHeights);
  // The same for an Arrow table, written as it is: a file read into Arrow and written again
  // keeps every type, null and NaN. Its columns take the variable names in order.
  void writeArrow(const std::shared_ptr<::arrow::Table>& table);
  void writeArrowRowGroups(const std::shared_ptr<::arrow::Table>& table,
                           const std::vector<int64_t>& rowGroupHeights);
  // Finishes the file. Does nothing before the first write or after an earlier close.
  void close();

  std::shared_ptr<::arrow::Table> buildArrowTable(const vxArray_tag* table);
  void validateWriteDimensons(const vxArray_tag* table);
  void validateSchema(const std::shared_ptr<::arrow::Schema>& schema, bool rowGrouped);
  // Warns when a row-grouped write holds dictionaries inside nested variables.
  void checkForNestedDictionary(bool rowGrouped) const;

 private:
  void require(bool condition, const std::string& message) const;
  std::shared_ptr<::arrow::Table> checkedArrowTable(const vxArray_tag* table);
  std::shared_ptr<::arrow::Table> checkedArrowTable(const std::shared_ptr<::arrow::Table>& table);
  void writeSlices(const std::shared_ptr<::arrow::Table>& table,
                   const std::vector<int64_t>& rowGroupHeights);
  void openFileWriter(const std::shared_ptr<::arrow::Schema>& schema);
  void writeChunk(const ::arrow::Table& table, int64_t chunkSize);
  // Closes (when finish is true), or else removes the unfinished output; never throws.
  void release(bool finish) noexcept;

  std::u16string mFilename;
  ParquetWriterOptions mOptions;
  bool mVersionSet = false;
  std::shared_ptr<common::ReadableWritableFile> mFile;
  std::shared_ptr<::arrow::Schema> mSchema;
  std::unique_ptr<::parquet::arrow::FileWriter> mFileWriter;
  // Exceptions in flight when the writer was made: more at destruction means the host left the
  // write by an exception.
  int mUncaughtExceptions = std::uncaught_exceptions();
};

}  // namespace vantro::io::parquet::core::write
