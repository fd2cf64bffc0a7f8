#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/matrix/Matrix.hpp"
#include "toolbox/vantro/io/parquet/core/read/ParquetReader.hpp"

namespace vantro::io::parquet::core::read {

// Reads a Parquet file piece by piece: one row group per read(), a chosen list of row groups,
// every listed row group at once, or the whole file. Row groups are numbered from 1, as the
// host numbers them, and carried as doubles.
class RowGroupParquetReader : public ParquetReader {
 public:
  // Used before deserialize(): no file, no row groups.
  RowGroupParquetReader();
  // Visits rowGroups in the given order; the numbers are passed to Arrow unchecked.
  RowGroupParquetReader(const std::u16string& filename, const std::vector<double>& rowGroups);
  // Visits the row groups whose first byte lies in [fileOffset, fileOffset + size), so that
  // adjacent ranges covering the file split it between independent readers.
  RowGroupParquetReader(const std::u16string& filename, double fileOffset, double size);
  ~RowGroupParquetReader() override;

  RowGroupParquetReader(RowGroupParquetReader&& other) noexcept;
  RowGroupParquetReader& operator=(RowGroupParquetReader&& other) noexcept;

  std::vector<double> getRowGroups() const override;
  bool hasdata() const override;
  void reset() override;
  // A 1x2 cell: the file name and, as a k-by-1 double matrix, the row groups not yet read.
  matrix::unique_array serialize() const override;
  // Reopens the saved file with every variable selected. The cursor is left as it is.
  void deserialize(const matrix::unique_array& state) override;

  uint64_t getRowGroupIndex() const;
  // Not range-checked: an index at or past the end just means there is no more data.
  void setRowGroupIndex(uint64_t index);

  // The listed row groups as one table, in list order; the cursor does not move.
  matrix::unique_array readRowGroups(std::vector<double> rowGroups);
  // Every row group of the list, whatever the cursor.
  matrix::unique_array readall();
  // Every row group of the file, whatever the list.
  matrix::unique_array readFullFile();

  // The same reads as Arrow tables, every value as the file has it: for programs that print or
  // rewrite the file rather than hand it to the host.
  std::shared_ptr<::arrow::Table> readArrowRowGroups(std::vector<double> rowGroups);
  std::shared_ptr<::arrow::Table> readArrowFullFile();

  // One row group in record batches, each decoded only when asked for, so that a caller that
  // wants a few rows does not pay for the whole row group.
  class Batches {
   public:
    // The next batch of at most the batch size rows, or null after the last.
    std::shared_ptr<::arrow::RecordBatch> next();

   private:
    friend class RowGroupParquetReader;
    const RowGroupParquetReader* mOwner = nullptr;
    std::shared_ptr<::arrow::RecordBatchReader> mBatches;
  };
  // The reader must outlive the batches.
  Batches readArrowBatches(double rowGroup, int64_t batchSize);

 protected:
  std::shared_ptr<::arrow::Table> readNext() override;

 private:
  // The listed row groups (0-based) as Arrow reads them, checked against the footer.
  std::shared_ptr<::arrow::Table> readCheckedRowGroups(const std::vector<int>& indices);
  // A list of row-group numbers as Arrow's 0-based indices.
  std::vector<int> listedIndices(const std::vector<double>& rowGroups) const;
  // A file without row groups still yields one empty table carrying its variables.
  bool shouldReadEmptyOnce() const;

  std::vector<double> mRowGroups;
  uint64_t mRowGroupIndex = 0;
};

}  // namespace vantro::io::parquet::core::read
