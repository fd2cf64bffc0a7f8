#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <arrow/io/type_fwd.h>
#include <arrow/status.h>
#include <arrow/type_fwd.h>
#include <parquet/arrow/reader.h>
#include <parquet/arrow/schema.h>
#include <parquet/metadata.h>

#include "host/matrix/Matrix.hpp"
#include "toolbox/vantro/io/parquet/core/read/Statistics.hpp"

namespace vantro::io::parquet::core::read {

// Reads one Parquet file into host tables. Opens the file through the library's adapter, keeps
// an Arrow file reader on it and remembers which top-level variables are selected. How the file
// is walked (row group by row group, a list of them, ...) is left to the derived class, which
// supplies readNext() and the cursor operations.
class ParquetReader {
 public:
  // The selected top-level variables and the Parquet leaf columns they occupy.
  struct SelectedVariables {
    // Selects the fields called names, in the order asked. A name the file does not have, or
    // asked more often than the file has fields of that name, selects nothing.
    ::arrow::Status setArrowFieldIndices(const std::vector<std::u16string>& names);
    // Recomputes parquetColumnIndices from arrowFieldIndices.
    ::arrow::Status setParquetColumnIndices();
    std::vector<std::u16string> getSelectedVariableNames() const;

    // Top-level schema fields, in selection order.
    std::vector<int32_t> arrowFieldIndices;
    // Their leaf columns, field by field: the column list of every Arrow read.
    std::vector<int32_t> parquetColumnIndices;
    // The manifest of the owning reader's Arrow file reader; not owned.
    const ::parquet::arrow::SchemaManifest* manifest = nullptr;
  };

  explicit ParquetReader(const std::u16string& filename);
  virtual ~ParquetReader();

  ParquetReader(const ParquetReader&) = delete;
  ParquetReader& operator=(const ParquetReader&) = delete;
  ParquetReader(ParquetReader&& other) noexcept;
  ParquetReader& operator=(ParquetReader&& other) noexcept;

  virtual std::vector<double> getRowGroups() const = 0;
  virtual bool hasdata() const = 0;
  virtual void reset() = 0;
  virtual matrix::unique_array serialize() const = 0;
  virtual void deserialize(const matrix::unique_array& state) = 0;

  // The next piece of the file as a host table; throws "No more data" past the end.
  matrix::unique_array read();

  void setSelectedVariableNames(const std::vector<std::u16string>& names);
  std::vector<std::u16string> getSelectedVariableNames() const;

  // The name as the file adapter reports it, not necessarily as it was given.
  const std::u16string& getFilename() const;
  double getTotalNumRowGroups() const;
  // All top-level variables of the file, whatever is selected.
  std::vector<std::u16string> getVariableNames() const;
  std::vector<std::string> getVariableTypes() const;
  const std::vector<uint64_t> getRowGroupHeights() const;
  const std::vector<uint64_t> getRowGroupOffsets() const;

  Statistics getStatistics(const std::vector<int>& variableIndices);

  // Whether reads of several row groups or of the whole file decode and convert variable by
  // variable on the host's threads (the default), or decode the whole Arrow table first and
  // convert it after. Both give the same host tables; variable by variable keeps at most one
  // variable per thread in Arrow's memory beside the host table. Process-wide.
  static void setReadVariableByVariable(bool enabled);
  static bool getReadVariableByVariable();

 protected:
  ParquetReader();

  // Opens filename and selects every variable.
  void init(const std::u16string& filename);

  virtual std::shared_ptr<::arrow::Table> readNext() = 0;

  const ::parquet::FileMetaData& getMetadata() const;
  std::shared_ptr<::arrow::Schema> getSchema() const;

  // Sizes Arrow's process-wide CPU pool from the host's thread count, or reads on one thread
  // for Hadoop IRIs. Runs before every read so that a changed host setting takes effect.
  void setupArrowThreadPool();

  // Row groups holding a dictionary inside a nested variable cannot be combined; refuses such
  // variables before reading more than one row group.
  void checkForRowGroupedNestedDictionary() const;
  void throwIfNestedDictionary(const std::shared_ptr<::arrow::Field>& field, uint64_t depth,
                               const std::string& variableName, int variableIndex) const;

  // The host table of an Arrow table, which it consumes; a null table stands for a reader
  // without a file.
  matrix::unique_array toHostTable(std::shared_ptr<::arrow::Table>&& table) const;
  // Refuses a table read from row groups whose footer declares another number of rows.
  void checkRowCount(const std::shared_ptr<::arrow::Table>& table, int64_t footerRows) const;

  // The selected variables of rowGroups (0-based; every row group when null) as a host table,
  // refusing a result whose row count differs from footerRows: variable by variable, or through
  // one Arrow table (see setReadVariableByVariable).
  matrix::unique_array readSelected(const std::vector<int>* rowGroups, int64_t footerRows);

  // Refuses calls that need a file on a reader that has none.
  void requireFile() const;
  // Refuses selected column chunks of rowGroups (0-based) whose declared decoded size is
  // impossible or beyond the host's bound, before Arrow reads any page of them.
  void checkDeclaredSizes(const std::vector<int>& rowGroups) const;
  // Rows the footer declares for rowGroups (0-based).
  int64_t footerRows(const std::vector<int>& rowGroups) const;

  // Runs an Arrow call, turning a Parquet exception that escapes it into a host error.
  ::arrow::Status guarded(const std::function<::arrow::Status()>& call) const;

  std::u16string mFilename;
  // The file the reader reads, for the page headers that checkDeclaredSizes reads itself.
  std::shared_ptr<::arrow::io::RandomAccessFile> mFile;
  std::unique_ptr<::parquet::arrow::FileReader> mFileReader;
  SelectedVariables mSelectedVariables;
  // Whether Arrow's reads may use its pool, as setupArrowThreadPool last decided.
  bool mArrowThreads = true;

 private:
  matrix::unique_array readTableThenConvert(const std::vector<int>* rowGroups, int64_t footerRows);
  matrix::unique_array readVariableByVariable(const std::vector<int>* rowGroups,
                                              int64_t footerRows);
};

}  // namespace vantro::io::parquet::core::read
