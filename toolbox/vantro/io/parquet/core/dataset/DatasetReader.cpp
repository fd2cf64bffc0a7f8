#include "toolbox/vantro/io/parquet/core/dataset/DatasetReader.hpp"

#include <algorithm>
#include <atomic>
#include <exception>

#include <arrow/array/builder_primitive.h>
#include <arrow/array/util.h>
#include <arrow/compute/api_vector.h>
#include <arrow/compute/cast.h>
#include <arrow/datum.h>
#include <arrow/scalar.h>
#include <arrow/table.h>
#include <arrow/type.h>

#include "host/converter/Converter.hpp"
#include "host/converter/ParallelFor.hpp"
#include "host/services/Interrupts.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Errors.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/PieceReader.hpp"
#include "toolbox/vantro/io/parquet/core/read/Statistics.hpp"

namespace vantro::io::parquet::core::dataset {

namespace {

using read::Statistics;

void pollInterrupt() {
  if (utIsSignalThread() != 0) utInterruptState::ThrowIfInterruptPending();
}

template <class T>
T orThrow(::arrow::Result<T> result, const std::u16string& context) {
  common::throwReadExceptIfNotOk(result.status(), context);
  return std::move(result).ValueUnsafe();
}

// One variable's statistics over R row groups (or files).
struct StatisticsColumn {
  matrix::unique_array min, max;  // host columns of R values, or null
  std::vector<bool> hasNullCount, hasMinMax;
  std::vector<int64_t> nullCount;
};

// A value known for every row (a partition value): its bounds are itself.
StatisticsColumn constantColumn(const std::shared_ptr<::arrow::Array>& values,
                                const std::vector<uint64_t>& heights) {
  StatisticsColumn column;
  auto min = ::vantro::io::arrow::core::to_vantro(values);
  auto max = ::vantro::io::arrow::core::to_vantro(values);
  if (min.ok() && max.ok()) {
    column.min = std::move(min).ValueUnsafe();
    column.max = std::move(max).ValueUnsafe();
  }
  for (size_t r = 0; r < heights.size(); ++r) {
    const bool missing = values->IsNull(static_cast<int64_t>(r));
    column.hasNullCount.push_back(true);
    column.hasMinMax.push_back(!missing && column.min != nullptr);
    column.nullCount.push_back(missing ? static_cast<int64_t>(heights[r]) : 0);
  }
  return column;
}

// A variable the file lacks: every value of its rows is missing.
StatisticsColumn missingColumn(const std::vector<uint64_t>& heights) {
  StatisticsColumn column;
  for (uint64_t height : heights) {
    column.hasNullCount.push_back(true);
    column.hasMinMax.push_back(false);
    column.nullCount.push_back(static_cast<int64_t>(height));
  }
  return column;
}

// The one column of statistics read for one variable, taken over.
StatisticsColumn takeColumn(Statistics& statistics, size_t rows) {
  StatisticsColumn column;
  const vxLogical* hasNull = vxGetLogicals(statistics.hasNullCount.get());
  const vxLogical* hasMinMax = vxGetLogicals(statistics.hasMinMax.get());
  const auto* nulls = static_cast<const int64_t*>(vxGetData(statistics.nullCount.get()));
  for (size_t r = 0; r < rows; ++r) {
    column.hasNullCount.push_back(hasNull[r]);
    column.hasMinMax.push_back(hasMinMax[r]);
    column.nullCount.push_back(nulls[r]);
  }
  column.min.reset(vxGetCell(statistics.min.get(), 0));
  vxSetCell(statistics.min.get(), 0, nullptr);  // ownership moves to the column
  column.max.reset(vxGetCell(statistics.max.get(), 0));
  vxSetCell(statistics.max.get(), 0, nullptr);
  return column;
}

Statistics assemble(std::vector<StatisticsColumn>& columns, size_t rows) {
  const size_t count = columns.size();
  Statistics statistics;
  statistics.hasNullCount.reset(vxCreateLogicalMatrix(rows, count));
  statistics.hasDistinctCount.reset(vxCreateLogicalMatrix(rows, count));
  statistics.hasMinMax.reset(vxCreateLogicalMatrix(rows, count));
  statistics.nullCount.reset(vxCreateNumericMatrix(rows, count, vxINT64_CLASS, vxREAL));
  statistics.distinctCount.reset(vxCreateNumericMatrix(rows, count, vxINT64_CLASS, vxREAL));
  statistics.min.reset(vxCreateCellMatrix(1, count));
  statistics.max.reset(vxCreateCellMatrix(1, count));
  vxLogical* hasNull = vxGetLogicals(statistics.hasNullCount.get());
  vxLogical* hasMinMax = vxGetLogicals(statistics.hasMinMax.get());
  auto* nulls = static_cast<int64_t*>(vxGetData(statistics.nullCount.get()));
  for (size_t c = 0; c < count; ++c) {
    for (size_t r = 0; r < rows; ++r) {
      hasNull[c * rows + r] = columns[c].hasNullCount[r];
      hasMinMax[c * rows + r] = columns[c].hasMinMax[r];
      nulls[c * rows + r] = columns[c].nullCount[r];
    }
    if (columns[c].min) vxSetCell(statistics.min.get(), c, columns[c].min.release());
    if (columns[c].max) vxSetCell(statistics.max.get(), c, columns[c].max.release());
  }
  return statistics;
}

bool holdsNestedDictionary(const std::shared_ptr<::arrow::DataType>& type, int depth) {
  if (depth > 0 && type->id() == ::arrow::Type::DICTIONARY) return true;
  for (const auto& child : type->fields()) {
    if (holdsNestedDictionary(child->type(), depth + 1)) return true;
  }
  return false;
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const auto& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

}  // namespace

DatasetReader::DatasetReader(std::shared_ptr<const Dataset> dataset,
                             std::vector<std::string> variables, const std::string& where)
    : mDataset(std::move(dataset)) {
  common::throwReadExceptIfNotOk(common::compat::initializeCompute(), u"dataset");
  if (!where.empty()) {
    mFilter.emplace(filter::Expression::parse(where));
    mFilter->check(mDataset->variableNames(), mDataset->variableTypes());
    mNegated.emplace(filter::Expression::parse("not (" + where + ")"));
    mNegated->check(mDataset->variableNames(), mDataset->variableTypes());
  }
  selectVariables(std::move(variables));
  listPieces();
}

DatasetReader::~DatasetReader() = default;

void DatasetReader::selectVariables(std::vector<std::string> variables) {
  const auto names = mDataset->variableNames();
  if (variables.empty()) variables = names;
  for (const auto& name : variables) {
    if (std::find(names.begin(), names.end(), name) == names.end()) {
      common::throwException<msg::UnknownVariable>(name, joined(names));
    }
  }
  mSelected = variables;
}

void DatasetReader::listPieces() {
  std::vector<bool> keepFile(mDataset->fileCount(), true);
  if (mFilter) pruneByPartitions(keepFile);
  for (size_t f = 0; f < mDataset->fileCount(); ++f) {
    if (!keepFile[f]) continue;
    const auto& metadata = *mDataset->file(f).metadata;
    std::vector<bool> keepRowGroup(static_cast<size_t>(metadata.num_row_groups()), true);
    if (mFilter) pruneByStatistics(f, keepRowGroup, nullptr);
    for (int g = 0; g < metadata.num_row_groups(); ++g) {
      if (keepRowGroup[static_cast<size_t>(g)]) {
        mPieces.push_back(Piece{f, g, static_cast<uint64_t>(metadata.RowGroup(g)->num_rows())});
      }
    }
  }
}

// Files whose partition values rule the filter out are dropped before any of their data is
// read: one "row group" per file, bounded by its partition values.
void DatasetReader::pruneByPartitions(std::vector<bool>& keepFile) {
  const auto& partitions = mDataset->partitions();
  std::vector<std::string> used;
  std::vector<StatisticsColumn> columns;
  std::vector<uint64_t> heights;
  for (size_t f = 0; f < mDataset->fileCount(); ++f) {
    heights.push_back(static_cast<uint64_t>(mDataset->file(f).metadata->num_rows()));
  }
  for (const auto& name : mFilter->variables()) {
    const int p = mDataset->partitionIndex(name);
    if (p < 0) continue;
    used.push_back(name);
    columns.push_back(constantColumn(partitions.values[static_cast<size_t>(p)], heights));
  }
  if (used.empty()) return;
  const Statistics statistics = assemble(columns, heights.size());
  const auto choices = mFilter->chooseRowGroups(statistics, used, heights);
  for (size_t f = 0; f < keepFile.size() && f < choices.size(); ++f) {
    if (choices[f].read) continue;
    keepFile[f] = false;
    mSkipped.push_back(SkippedPiece{f, -1, choices[f].reason});
  }
}

void DatasetReader::pruneByStatistics(size_t f, std::vector<bool>& keepRowGroup,
                                      std::vector<bool>* allMatch) {
  const auto& file = mDataset->file(f);
  const auto& partitions = mDataset->partitions();
  const size_t rowGroups = keepRowGroup.size();
  std::vector<uint64_t> heights;
  for (size_t g = 0; g < rowGroups; ++g) {
    heights.push_back(
        static_cast<uint64_t>(file.metadata->RowGroup(static_cast<int>(g))->num_rows()));
  }
  std::vector<std::string> covered;
  std::vector<StatisticsColumn> columns;
  for (const auto& name : mFilter->variables()) {
    const int p = mDataset->partitionIndex(name);
    if (p >= 0) {
      const auto value = orThrow(
          partitions.values[static_cast<size_t>(p)]->GetScalar(static_cast<int64_t>(f)), file.name);
      const auto repeated = orThrow(
          value->is_valid ? ::arrow::MakeArrayFromScalar(*value, static_cast<int64_t>(rowGroups))
                          : ::arrow::MakeArrayOfNull(value->type, static_cast<int64_t>(rowGroups)),
          file.name);
      columns.push_back(constantColumn(repeated, heights));
      covered.push_back(name);
      continue;
    }
    const int index = file.schema->GetFieldIndex(name);
    if (index < 0) {
      columns.push_back(missingColumn(heights));
      covered.push_back(name);
      continue;
    }
    try {
      Statistics one = read::read_statistics(file.metadata, file.schema, *file.manifest,
                                             std::vector<int>{index});
      columns.push_back(takeColumn(one, rowGroups));
      covered.push_back(name);
    } catch (const foundation::core::except::IMsgIDException&) {
      // Statistics that cannot filter this variable only mean its row groups are read.
    }
  }
  const Statistics statistics = assemble(columns, rowGroups);
  const auto choices = mFilter->chooseRowGroups(statistics, covered, heights);
  for (size_t g = 0; g < rowGroups && g < choices.size(); ++g) {
    if (choices[g].read) continue;
    keepRowGroup[g] = false;
    mSkipped.push_back(SkippedPiece{f, static_cast<int>(g), choices[g].reason});
  }
  if (allMatch == nullptr) return;
  // Every row matches where "not filter" has no match and no value the filter looks at is
  // missing (a comparison with a missing value is never true). NaN is missing too, and
  // statistics do not count it: variables that may hold NaN are never proven.
  const auto negated = mNegated->chooseRowGroups(statistics, covered, heights);
  const auto types = mDataset->variableTypes();
  const auto names = mDataset->variableNames();
  allMatch->assign(rowGroups, false);
  for (size_t g = 0; g < rowGroups && g < negated.size(); ++g) {
    if (negated[g].read || !keepRowGroup[g]) continue;
    bool complete = covered.size() == mFilter->variables().size();
    for (size_t c = 0; complete && c < covered.size(); ++c) {
      const size_t v =
          static_cast<size_t>(std::find(names.begin(), names.end(), covered[c]) - names.begin());
      const bool floating = types[v] == "double" || types[v] == "single";
      complete = columns.size() == covered.size() && !floating &&
                 vxGetLogicals(statistics.hasNullCount.get())[c * rowGroups + g] &&
                 static_cast<const int64_t*>(
                     vxGetData(statistics.nullCount.get()))[c * rowGroups + g] == 0;
    }
    (*allMatch)[g] = complete;
  }
}

void DatasetReader::keepPieces(const std::function<bool(const Piece&)>& keep) {
  mPieces.erase(std::remove_if(mPieces.begin(), mPieces.end(),
                               [&keep](const Piece& piece) { return !keep(piece); }),
                mPieces.end());
  mNext = 0;
  mEmptyDone = false;
}

bool DatasetReader::hasdata() const {
  if (mPieces.empty()) return !mEmptyDone;
  return mNext < mPieces.size();
}

PieceReader& DatasetReader::readerFor(size_t file) {
  if (!mOpen || mOpenFile != file) {
    mOpen.reset();
    mOpen = std::make_unique<PieceReader>(mDataset->file(file));
    mOpenFile = file;
  }
  return *mOpen;
}

std::shared_ptr<::arrow::Table> DatasetReader::conform(std::shared_ptr<::arrow::Table> table,
                                                       size_t f,
                                                       const std::vector<std::string>& names,
                                                       int64_t rows) const {
  const auto& file = mDataset->file(f);
  const auto& schema = mDataset->schema();
  const auto& partitions = mDataset->partitions();
  std::vector<std::shared_ptr<::arrow::Field>> fields;
  std::vector<std::shared_ptr<::arrow::ChunkedArray>> columns;
  for (const auto& name : names) {
    const auto field = schema->GetFieldByName(name);
    fields.push_back(field);
    const int p = mDataset->partitionIndex(name);
    std::shared_ptr<::arrow::Array> made;
    if (p >= 0) {
      const auto value = orThrow(
          partitions.values[static_cast<size_t>(p)]->GetScalar(static_cast<int64_t>(f)), file.name);
      made = orThrow(value->is_valid ? ::arrow::MakeArrayFromScalar(*value, rows)
                                     : ::arrow::MakeArrayOfNull(field->type(), rows),
                     file.name);
    } else if (auto column = table ? table->GetColumnByName(name) : nullptr) {
      if (!column->type()->Equals(*field->type())) {
        // Lossless by construction of the schema: a safe cast never fails here.
        auto cast = orThrow(::arrow::compute::Cast(column, field->type()), file.name);
        column = cast.chunked_array();
      }
      columns.push_back(std::move(column));
      continue;
    } else {
      made = orThrow(::arrow::MakeArrayOfNull(field->type(), rows), file.name);
    }
    columns.push_back(std::make_shared<::arrow::ChunkedArray>(std::move(made)));
  }
  return ::arrow::Table::Make(::arrow::schema(std::move(fields)), std::move(columns), rows);
}

std::vector<bool> DatasetReader::matchesOf(const std::shared_ptr<::arrow::Table>& table) const {
  // Only the filter's variables become host values before the rows are chosen; the others are
  // converted for the rows kept alone.
  auto host = ::vantro::io::arrow::core::to_vantro(table);
  common::throwReadExceptIfNotOk(host.status(), u"dataset");
  return mFilter->matchRows(host->get());
}

std::shared_ptr<::arrow::Table> DatasetReader::keepRows(std::shared_ptr<::arrow::Table> table,
                                                        const std::vector<bool>& matches,
                                                        int64_t kept) const {
  if (kept == table->num_rows()) return table;
  ::arrow::BooleanBuilder mask;
  common::throwReadExceptIfNotOk(mask.Reserve(static_cast<int64_t>(matches.size())), u"dataset");
  for (const bool match : matches) mask.UnsafeAppend(match);
  std::shared_ptr<::arrow::Array> keep;
  common::throwReadExceptIfNotOk(mask.Finish(&keep), u"dataset");
  auto kept_rows = ::arrow::compute::Filter(::arrow::Datum(table), ::arrow::Datum(keep));
  common::throwReadExceptIfNotOk(kept_rows.status(), u"dataset");
  return kept_rows->table();
}

std::shared_ptr<::arrow::Table> DatasetReader::readPieceTable(size_t index) {
  pollInterrupt();
  try {
    return readPiece(readerFor(mPieces.at(index).file), index);
  } catch (...) {
    // A read cut short (Ctrl-C, a failing disk) leaves the file's stream failed: the next
    // read of this file opens it afresh.
    mOpen.reset();
    throw;
  }
}

std::shared_ptr<::arrow::Table> DatasetReader::readColumns(
    PieceReader& reader, const Piece& piece, const std::vector<std::string>& names) const {
  const auto& fileSchema = mDataset->file(piece.file).schema;
  std::vector<std::string> present;
  for (const auto& name : names) {
    if (mDataset->partitionIndex(name) < 0 && fileSchema->GetFieldIndex(name) >= 0) {
      present.push_back(name);
    }
  }
  std::shared_ptr<::arrow::Table> table;
  if (!present.empty()) table = reader.readRowGroup(piece.rowGroup, present);
  return conform(std::move(table), piece.file, names, static_cast<int64_t>(piece.rows));
}

std::shared_ptr<::arrow::Table> DatasetReader::readPiece(PieceReader& reader, size_t index) const {
  const Piece& piece = mPieces.at(index);
  if (!mFilter) return readColumns(reader, piece, mSelected);
  // The filter's variables first: the other variables of a piece without a match are never
  // decoded, and those of the others only once the rows are known.
  const std::vector<std::string> filterNames = mFilter->variables();
  auto filterTable = readColumns(reader, piece, filterNames);
  const std::vector<bool> matches = matchesOf(filterTable);
  const auto kept = std::count(matches.begin(), matches.end(), true);
  std::vector<std::string> others;
  for (const auto& name : mSelected) {
    if (std::find(filterNames.begin(), filterNames.end(), name) == filterNames.end()) {
      others.push_back(name);
    }
  }
  std::shared_ptr<::arrow::Table> othersTable;
  if (kept > 0 && !others.empty()) othersTable = readColumns(reader, piece, others);
  std::vector<std::shared_ptr<::arrow::Field>> fields;
  std::vector<std::shared_ptr<::arrow::ChunkedArray>> columns;
  for (const auto& name : mSelected) {
    const bool filtered =
        std::find(filterNames.begin(), filterNames.end(), name) != filterNames.end();
    const auto& from = filtered ? filterTable : othersTable;
    fields.push_back(mDataset->schema()->GetFieldByName(name));
    if (kept == 0) {
      columns.push_back(
          std::make_shared<::arrow::ChunkedArray>(::arrow::ArrayVector{}, fields.back()->type()));
    } else {
      columns.push_back(from->GetColumnByName(name));
    }
  }
  auto table = ::arrow::Table::Make(::arrow::schema(std::move(fields)), std::move(columns),
                                    kept == 0 ? 0 : static_cast<int64_t>(piece.rows));
  return keepRows(std::move(table), matches, kept);
}

std::shared_ptr<::arrow::Table> DatasetReader::emptyTable() const {
  std::vector<std::shared_ptr<::arrow::Field>> fields;
  for (const auto& name : mSelected) fields.push_back(mDataset->schema()->GetFieldByName(name));
  return orThrow(::arrow::Table::MakeEmpty(::arrow::schema(std::move(fields))), u"dataset");
}

matrix::unique_array DatasetReader::toHost(std::shared_ptr<::arrow::Table>&& table) const {
  auto result = ::vantro::io::arrow::core::to_vantro(std::move(table));
  if (!result.ok()) {
    const auto* detail = dynamic_cast<const ::vantro::io::arrow::core::TableErrorStatusDetail*>(
        result.status().detail().get());
    if (result.status().code() == ::arrow::StatusCode::TypeError && detail != nullptr) {
      common::throwInternalUnsupportedParquetTypeException(detail->column_name());
    }
    common::throwReadExceptIfNotOk(result.status(), u"dataset");
  }
  return std::move(result).ValueUnsafe();
}

matrix::unique_array DatasetReader::read() {
  if (!hasdata()) common::throwException<msg::NoMoreData>();
  if (mPieces.empty()) {
    mEmptyDone = true;
    return toHost(emptyTable());
  }
  auto table = readPieceTable(mNext);
  ++mNext;
  return toHost(std::move(table));
}

matrix::unique_array DatasetReader::readall() {
  if (mPieces.empty()) return toHost(emptyTable());
  std::vector<std::shared_ptr<::arrow::Table>> tables = readEveryPiece();
  mOpen.reset();
  if (tables.size() > 1) {
    // Dictionaries inside nested values cannot be combined, as in single-file reads.
    for (const auto& field : tables.front()->schema()->fields()) {
      if (holdsNestedDictionary(field->type(), 0)) {
        common::throwException<VANTRO::parquetio::read::DictionaryInNestedStructure>(field->name());
      }
    }
  }
  auto combined = orThrow(::arrow::ConcatenateTables(tables), u"dataset");
  tables.clear();
  return toHost(std::move(combined));
}

std::vector<std::shared_ptr<::arrow::Table>> DatasetReader::readEveryPiece() {
  // Runs of pieces from one file each; files are independent, so many small files are read
  // side by side on the host's threads, each opened by the thread that reads it.
  std::vector<std::pair<size_t, size_t>> runs;
  for (size_t i = 0; i < mPieces.size(); ++i) {
    if (runs.empty() || mPieces[runs.back().first].file != mPieces[i].file) runs.push_back({i, i});
    runs.back().second = i + 1;
  }
  std::vector<std::shared_ptr<::arrow::Table>> tables(mPieces.size());
  // With a few files to each thread, a file's columns are decoded on its own thread: the
  // small row groups of many-file datasets cost more to hand out than to decode.
  const bool alone = runs.size() >= 2 * static_cast<size_t>(std::max<int64_t>(
                                            1, foundation::services::getNumComputationalThreads()));
  std::vector<std::exception_ptr> failures(runs.size());
  std::atomic<bool> failed{false};  // once one run fails (or Ctrl-C), the others stop too
  ::vantro::io::arrow::core::ParallelFor(runs.size(), [&](size_t r) {
    try {
      if (failed.load()) return;
      pollInterrupt();
      PieceReader reader(mDataset->file(mPieces[runs[r].first].file), alone);
      for (size_t i = runs[r].first; i < runs[r].second && !failed.load(); ++i) {
        pollInterrupt();
        tables[i] = readPiece(reader, i);
      }
    } catch (...) {
      failures[r] = std::current_exception();
      failed.store(true);
    }
  });
  // Of the failures met, the first in the dataset's order.
  for (const auto& failure : failures) {
    if (failure) std::rethrow_exception(failure);
  }
  return tables;
}

MatchCount DatasetReader::countMatches() {
  MatchCount count;
  count.piecesRuledOut = 0;
  for (const auto& skipped : mSkipped) {
    count.piecesRuledOut +=
        skipped.rowGroup >= 0
            ? 1
            : static_cast<uint64_t>(mDataset->file(skipped.file).metadata->num_row_groups());
  }
  if (!mFilter) {
    for (const auto& piece : mPieces) count.rows += piece.rows;
    count.piecesAllMatch = mPieces.size();
    return count;
  }
  // Statistics first; the filter's variables alone are read for what they leave open.
  const std::vector<std::string> selected = mSelected;
  std::vector<std::string> filterOnly = mFilter->variables();
  mSelected = filterOnly;
  size_t f = mDataset->fileCount();
  std::vector<bool> allMatch;
  for (size_t i = 0; i < mPieces.size(); ++i) {
    const Piece& piece = mPieces[i];
    if (piece.file != f) {
      f = piece.file;
      const auto groups = static_cast<size_t>(mDataset->file(f).metadata->num_row_groups());
      std::vector<bool> keep(groups, true);
      const size_t skippedBefore = mSkipped.size();
      pruneByStatistics(f, keep, &allMatch);
      mSkipped.resize(skippedBefore);  // already counted when the pieces were listed
    }
    if (allMatch[static_cast<size_t>(piece.rowGroup)]) {
      count.rows += piece.rows;
      ++count.piecesAllMatch;
      continue;
    }
    count.rows += static_cast<uint64_t>(readPieceTable(i)->num_rows());
    ++count.piecesRead;
  }
  mOpen.reset();
  selectVariables(selected);
  return count;
}

}  // namespace vantro::io::parquet::core::dataset
