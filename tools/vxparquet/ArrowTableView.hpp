#pragma once

// The table view of rows that arrive in pieces: the first and last few rows are kept, the
// others only counted, so that memory does not grow with the rows.
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <arrow/table.h>

namespace vxparquet {

class TableView {
 public:
  static constexpr uint64_t kHeadRows = 5;
  static constexpr uint64_t kTailRows = 5;

  // The next rows, in order.
  void add(const std::shared_ptr<::arrow::Table>& rows);
  // Rows that pass unread: counted, never shown (the caller knows they are not among the
  // first or last rows).
  void skip(uint64_t rows) { mRows += rows; }
  uint64_t rows() const { return mRows; }

  // "RxC table", the names, the host types, then the kept rows numbered from 1; width limits
  // the columns shown (0: no limit).
  std::string render(const ::arrow::Schema& schema, const std::vector<std::string>& types,
                     size_t width) const;

 private:
  // Pieces of rows with the number of their first row.
  using Piece = std::pair<uint64_t, std::shared_ptr<::arrow::Table>>;
  std::vector<Piece> mHead;
  std::vector<Piece> mTail;
  uint64_t mHeadRows = 0;
  uint64_t mRows = 0;
};

}  // namespace vxparquet
