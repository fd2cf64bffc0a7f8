#pragma once

// One file of a dataset opened over its kept footer, read one row group at a time with the
// same checks as a single-file read (declared sizes, row counts, threads).
#include <memory>
#include <string>
#include <vector>

#include <arrow/type_fwd.h>

#include "toolbox/vantro/io/parquet/core/dataset/Dataset.hpp"
#include "toolbox/vantro/io/parquet/core/read/ParquetReader.hpp"

namespace vantro::io::parquet::core::dataset {

class PieceReader : public read::ParquetReader {
 public:
  // alone: the reader runs on the calling thread only, without Arrow's pool (many files are
  // then read side by side, one per thread).
  explicit PieceReader(const DatasetFile& file, bool alone = false);

  // The variables called names (those the file has) of one row group (0-based), in order.
  std::shared_ptr<::arrow::Table> readRowGroup(int rowGroup, const std::vector<std::string>& names);

  std::vector<double> getRowGroups() const override { return {}; }
  bool hasdata() const override { return false; }
  void reset() override {}
  matrix::unique_array serialize() const override { return nullptr; }
  void deserialize(const matrix::unique_array&) override {}

 private:
  bool mAlone;

 protected:
  std::shared_ptr<::arrow::Table> readNext() override { return nullptr; }
};

}  // namespace vantro::io::parquet::core::dataset
