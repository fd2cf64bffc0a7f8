#include "ArrowTableView.hpp"

#include <algorithm>

#include "ArrowFormat.hpp"
#include "Cli.hpp"
#include "host/converter/Display.hpp"

namespace vxparquet {

namespace display = vantro::io::arrow::core::display;

void TableView::add(const std::shared_ptr<::arrow::Table>& rows) {
  const auto count = static_cast<uint64_t>(rows->num_rows());
  if (count == 0) return;
  if (mHeadRows < kHeadRows) {
    const uint64_t taken = std::min(count, kHeadRows - mHeadRows);
    mHead.emplace_back(mRows, rows->Slice(0, static_cast<int64_t>(taken)));
    mHeadRows += taken;
  }
  const uint64_t last = std::min(count, kTailRows);
  mTail.emplace_back(mRows + count - last, rows->Slice(static_cast<int64_t>(count - last)));
  mRows += count;
  // Drop tail pieces that the newer ones cover.
  uint64_t kept = 0;
  size_t from = mTail.size();
  while (from > 0 && kept < kTailRows)
    kept += static_cast<uint64_t>(mTail[--from].second->num_rows());
  mTail.erase(mTail.begin(), mTail.begin() + static_cast<std::ptrdiff_t>(from));
}

namespace {

// A cell as the table view shows it: texts quoted, missing values marked.
std::string CellText(const format::ValueFormatter& values, int64_t row) {
  if (values.IsNull(row)) return "<missing>";
  std::string text;
  values.AppendText(row, &text);
  return values.IsText() ? "\"" + text + "\"" : text;
}

}  // namespace

std::string TableView::render(const ::arrow::Schema& schema, const std::vector<std::string>& types,
                              size_t width) const {
  display::TextTable text;
  text.rows = mRows;
  text.types = types;
  const int columns = schema.num_fields();
  text.cells.resize(static_cast<size_t>(columns));
  for (const auto& field : schema.fields()) text.names.push_back(field->name());
  text.alignRight.assign(static_cast<size_t>(columns), false);

  // The rows to show, each once and in order: the head pieces come first, then the tail's.
  struct RowRef {
    uint64_t number;
    const ::arrow::Table* piece;
    int64_t row;
  };
  std::vector<RowRef> shown;
  for (const auto* pieces : {&mHead, &mTail}) {
    for (const auto& [start, piece] : *pieces) {
      for (int64_t r = 0; r < piece->num_rows(); ++r) {
        const uint64_t number = start + static_cast<uint64_t>(r);
        const bool wanted = number < kHeadRows || number + kTailRows >= mRows;
        if (wanted && (shown.empty() || number > shown.back().number)) {
          shown.push_back({number, piece.get(), r});
        }
      }
    }
  }
  for (const auto& ref : shown) text.shownRows.push_back(ref.number);
  for (int c = 0; c < columns; ++c) {
    for (const auto& ref : shown) {
      int64_t row = ref.row;
      for (const auto& chunk : ref.piece->column(c)->chunks()) {
        if (row >= chunk->length()) {
          row -= chunk->length();
          continue;
        }
        auto formatter = format::MakeValueFormatter(*chunk);
        if (!formatter.ok()) failWith("CannotFormat", formatter.status().ToString());
        text.alignRight[static_cast<size_t>(c)] = (*formatter)->IsNumber();
        text.cells[static_cast<size_t>(c)].push_back(CellText(**formatter, row));
        break;
      }
    }
  }
  display::DisplayOptions options;
  options.width = width;
  options.headRows = kHeadRows;
  options.tailRows = kTailRows;
  return display::DisplayGrid(text, options);
}

}  // namespace vxparquet
