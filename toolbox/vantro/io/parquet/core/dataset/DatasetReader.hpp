#pragma once

// Reads a dataset whole or piece by piece (one row group of one file), in a stable order:
// files as listed, row groups ascending. A row filter prunes before anything is read (files by
// their partition values, row groups by footer statistics) and is applied exactly to the rows.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <arrow/type_fwd.h>

#include "host/matrix/Matrix.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Dataset.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Expression.hpp"

namespace vantro::io::parquet::core::dataset {

class PieceReader;

// One row group of one file.
struct Piece {
  size_t file = 0;
  int rowGroup = 0;  // 0-based
  uint64_t rows = 0;
};

// A file (rowGroup -1) or row group that the filter rules out without reading it, and why.
struct SkippedPiece {
  size_t file = 0;
  int rowGroup = -1;
  std::string reason;
};

// How a count of the rows matching a filter was found.
struct MatchCount {
  uint64_t rows = 0;
  uint64_t piecesRuledOut = 0;  // row groups without a match, by partitions or statistics
  uint64_t piecesAllMatch = 0;  // row groups whose statistics show every row matches
  uint64_t piecesRead = 0;      // row groups read to count
};

class DatasetReader {
 public:
  // variables: the variables to return, in order (empty: all). where: a row filter (empty:
  // none). Throws UnknownVariable for a name the dataset does not have and the row filter's
  // errors for the filter.
  DatasetReader(std::shared_ptr<const Dataset> dataset, std::vector<std::string> variables = {},
                const std::string& where = "");
  ~DatasetReader();

  const Dataset& dataset() const { return *mDataset; }
  const std::vector<std::string>& selectedVariables() const { return mSelected; }
  const std::vector<Piece>& pieces() const { return mPieces; }
  const std::vector<SkippedPiece>& skipped() const { return mSkipped; }
  // Keeps only the pieces for which keep is true (one task's share of the dataset), in their
  // order, and goes back to the first.
  void keepPieces(const std::function<bool(const Piece&)>& keep);

  bool hasdata() const;
  // The next piece as a host table of the selected variables; a reader without pieces yields
  // one table without rows. Throws NoMoreData past the end.
  matrix::unique_array read();
  // Every piece, whatever the cursor, as one host table.
  matrix::unique_array readall();
  // Back to the first piece (a reader without pieces yields its table without rows again).
  void reset() {
    mNext = 0;
    mEmptyDone = false;
  }
  size_t position() const { return mNext; }

  // The rows that match the filter (all rows without one): from statistics where they decide,
  // by reading the filter's variables otherwise.
  MatchCount countMatches();

  // One piece as an Arrow table of the dataset's types, filtered, with the selected
  // variables. Interrupts are polled first.
  std::shared_ptr<::arrow::Table> readPieceTable(size_t piece);

 private:
  void selectVariables(std::vector<std::string> variables);
  void listPieces();
  void pruneByPartitions(std::vector<bool>& keepFile);
  void pruneByStatistics(size_t file, std::vector<bool>& keepRowGroup, std::vector<bool>* allMatch);
  std::shared_ptr<::arrow::Table> conform(std::shared_ptr<::arrow::Table> table, size_t file,
                                          const std::vector<std::string>& names,
                                          int64_t rows) const;
  // The variables called names of one piece, of the dataset's types (partition values and
  // variables the file lacks made up).
  std::shared_ptr<::arrow::Table> readColumns(PieceReader& reader, const Piece& piece,
                                              const std::vector<std::string>& names) const;
  std::vector<bool> matchesOf(const std::shared_ptr<::arrow::Table>& table) const;
  std::shared_ptr<::arrow::Table> keepRows(std::shared_ptr<::arrow::Table> table,
                                           const std::vector<bool>& matches, int64_t kept) const;
  std::shared_ptr<::arrow::Table> emptyTable() const;
  PieceReader& readerFor(size_t file);
  std::shared_ptr<::arrow::Table> readPiece(PieceReader& reader, size_t piece) const;
  std::vector<std::shared_ptr<::arrow::Table>> readEveryPiece();
  matrix::unique_array toHost(std::shared_ptr<::arrow::Table>&& table) const;

  std::shared_ptr<const Dataset> mDataset;
  std::vector<std::string> mSelected;
  std::optional<filter::Expression> mFilter;
  std::optional<filter::Expression> mNegated;  // not (filter): proves that every row matches
  std::vector<Piece> mPieces;
  std::vector<SkippedPiece> mSkipped;
  size_t mNext = 0;
  bool mEmptyDone = false;
  std::unique_ptr<PieceReader> mOpen;  // the file being read, kept between its pieces
  size_t mOpenFile = 0;
};

}  // namespace vantro::io::parquet::core::dataset
