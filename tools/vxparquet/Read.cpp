// vxparquet read and head: files, some of their row groups or a byte range, optionally
// filtered, as a table, JSON, JSON lines or CSV.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <arrow/array/builder_primitive.h>
#include <arrow/array/util.h>
#include <arrow/compute/api.h>
#include <arrow/scalar.h>
#include <arrow/table.h>

#include "ArrowFormat.hpp"
#include "ArrowTableView.hpp"
#include "Cli.hpp"
#include "Files.hpp"
#include "Split.hpp"
#include "host/converter/Converter.hpp"
#include "host/except/Exception.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/DatasetReader.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Expression.hpp"
#include "toolbox/vantro/io/parquet/core/plan/DatasetPlan.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace vxparquet {

namespace {

using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;
using vantro::io::parquet::core::dataset::Dataset;
using vantro::io::parquet::core::dataset::DatasetOptions;
using vantro::io::parquet::core::dataset::DatasetReader;
using vantro::io::parquet::core::filter::Expression;
using vantro::io::parquet::core::plan::keepTaskPieces;
using vantro::io::parquet::core::read::RowGroupParquetReader;

enum class Format { kTable, kJson, kJsonLines, kCsv };

// What the command was asked to read.
struct ReadRequest {
  std::vector<std::string> files;
  // A folder, a pattern or several files: read as one dataset, by variable names, from these
  // sources (files stays empty).
  bool dataset = false;
  std::vector<std::string> sources;
  DatasetOptions datasetOptions;
  std::optional<std::vector<std::string>> variables;
  std::optional<std::string> where;
  bool explain = false;
  std::optional<std::vector<double>> rowGroups;
  std::optional<std::vector<double>> byteRange;  // offset, size
  bool each = false;
  Format format = Format::kTable;
  std::optional<uint64_t> limit;
  uint64_t offset = 0;
  bool withFile = false;
  // The row groups of each file that one task of a plan reads (--split, --task), or for a
  // dataset's task the pieces it reads.
  std::optional<FileRowGroups> taskRowGroups;
  std::optional<vantro::io::parquet::core::plan::Task> datasetTask;
  format::CsvOptions csv;
};

Format parseFormat(const Arguments& args) {
  if (args.flag("--json")) {
    if (args.value("--format") &&
        matchChoice(*args.value("--format"), {"json"}, "--format") != "json") {
      throw UsageError{"--json and --format exclude each other"};
    }
    return Format::kJson;
  }
  const auto text = args.value("--format");
  if (!text) return Format::kTable;
  const std::string format = matchChoice(*text, {"table", "json", "jsonl", "csv"}, "--format");
  if (format == "json") return Format::kJson;
  if (format == "jsonl") return Format::kJsonLines;
  if (format == "csv") return Format::kCsv;
  return Format::kTable;
}

// The task's selection and filter, unless the command line gives its own.
void takeTaskSelection(const vantro::io::parquet::core::plan::Task& task, ReadRequest& request) {
  if (task.where && request.where && *task.where != *request.where) {
    throw UsageError{"--where differs from the task's filter"};
  }
  if (task.where) request.where = task.where;
  if (task.variables && !request.variables) request.variables = task.variables;
}

// What one task reads: the pieces of its dataset, or the row groups of its files.
void takeTask(const vantro::io::parquet::core::plan::Task& task, ReadRequest& request) {
  if (task.dataset) {
    request.dataset = true;
    for (const auto& source : task.dataset->sources)
      request.sources.push_back(ustring_to_utf8(source));
    request.datasetOptions.partitioning.hive = task.dataset->hive;
    request.datasetOptions.strict = task.dataset->strict;
    // Files that came into the folders since the plan are no part of the task: one that cannot
    // be read (a task file saved beside the data) is left out with a warning, not fatal.
    request.datasetOptions.sources.skipBadFiles = true;
    request.datasetTask = task;
    return;
  }
  auto inputs = inputsOfTask(task);
  request.files = std::move(inputs.files);
  request.taskRowGroups = std::move(inputs.rowGroups);
}

void parseCommon(const Arguments& args, ReadRequest& request) {
  request.format = parseFormat(args);
  const bool csvOptions =
      args.value("--delimiter") || args.value("--missing") || args.flag("--no-header");
  if (csvOptions && request.format != Format::kCsv) {
    throw UsageError{"--delimiter, --missing and --no-header need --format csv"};
  }
  if (const auto delimiter = args.value("--delimiter")) {
    const std::string text = *delimiter == "\\t" || *delimiter == "tab" ? "\t" : *delimiter;
    if (text.size() != 1 || text == "\"" || text == "\n" || text == "\r") {
      throw UsageError{"--delimiter takes one character other than a quote or line end (or 'tab')"};
    }
    request.csv.delimiter = text[0];
  }
  if (const auto missing = args.value("--missing")) {
    if (missing->find_first_of("\"\r\n") != std::string::npos ||
        missing->find(request.csv.delimiter) != std::string::npos) {
      throw UsageError{"--missing cannot hold quotes, line ends or the delimiter"};
    }
    request.csv.missing = *missing;
  }
  request.csv.header = !args.flag("--no-header");
  if (auto vars = args.value("--vars")) request.variables = splitNames(*vars, "--vars");
  request.where = args.value("--where");
  request.datasetOptions = datasetOptions(args);
  if (auto taskFile = args.value("--task")) {
    if (!args.positional().empty()) throw UsageError{"--task takes no FILE"};
    const auto task = readTask(*taskFile, args.value("--root"));
    takeTaskSelection(task, request);
    takeTask(task, request);
    return;
  }
  if (args.value("--root")) throw UsageError{"--root goes with --task"};
  if (auto split = args.value("--split")) {
    const PlanRequest plan{args.positional(), request.datasetOptions, request.where,
                           request.variables};
    takeTask(taskForSplit(plan, parseSplit(*split)), request);
    return;
  }
  const bool oneFileOnly = args.value("--row-groups") || args.value("--byte-range");
  if (!oneFileOnly && !namesOneFile(args.positional())) {
    request.dataset = true;
    request.sources = args.positional();
    return;
  }
  request.files = expandInputs(args.positional(), request.datasetOptions.sources.skipBadFiles);
}

ReadRequest parseRead(const std::vector<std::string>& words) {
  const Arguments args(
      words,
      {"--vars", "--row-groups", "--byte-range", "--where", "--limit", "--offset", "--format",
       "--delimiter", "--missing", "--split", "--task", "--root", kPartitioningOption},
      {"--each", "--json", "--explain", "--recursive", "--with-file", "--no-header", kStrictFlag,
       kSkipBadFilesFlag});
  if (args.positional().empty() && !args.value("--task")) {
    throw UsageError{"read needs at least one FILE"};
  }
  ReadRequest request;
  parseCommon(args, request);
  request.each = args.flag("--each");
  request.explain = args.flag("--explain");
  request.withFile = args.flag("--with-file");
  if (auto list = args.value("--row-groups")) {
    request.rowGroups = parseNumberList(*list, "--row-groups");
    for (double number : *request.rowGroups) {
      if (number < 1) throw UsageError{"--row-groups: row groups are numbered from 1"};
    }
  }
  if (auto range = args.value("--byte-range")) {
    request.byteRange = parseNumberList(*range, "--byte-range");
    if (request.byteRange->size() != 2) throw UsageError{"--byte-range takes OFFSET,SIZE"};
  }
  if (auto limit = args.value("--limit")) request.limit = parseCount(*limit, "--limit", true);
  if (auto offset = args.value("--offset")) request.offset = parseCount(*offset, "--offset", true);
  const int modes = (request.rowGroups ? 1 : 0) + (request.byteRange ? 1 : 0) + request.each;
  if (modes > 1) throw UsageError{"--row-groups, --byte-range and --each exclude each other"};
  if (request.explain && !request.where) throw UsageError{"--explain needs --where"};
  if ((request.taskRowGroups || request.datasetTask) && modes > 0) {
    throw UsageError{"--split and --task exclude --row-groups, --byte-range and --each"};
  }
  if ((request.rowGroups || request.byteRange) && request.files.size() != 1) {
    throw UsageError{"--row-groups and --byte-range take exactly one FILE"};
  }
  const bool wholeTables = request.format == Format::kTable || request.format == Format::kJson;
  if (request.each && wholeTables && (request.dataset || request.files.size() > 1)) {
    throw UsageError{"--each takes one FILE unless --format is jsonl or csv"};
  }
  if (request.each && wholeTables && (request.limit || request.offset > 0)) {
    throw UsageError{"--limit and --offset apply to --each only with --format jsonl or csv"};
  }
  return request;
}

// The table with one more variable, "file", naming the source file on every row.
std::shared_ptr<::arrow::Table> withFileColumn(const std::shared_ptr<::arrow::Table>& table,
                                               const std::string& file) {
  if (table->schema()->GetFieldIndex("file") >= 0) {
    failWith("FileVariableExists", "'" + file + "' has a variable 'file' already.");
  }
  auto names = ::arrow::MakeArrayFromScalar(::arrow::StringScalar(file), table->num_rows());
  if (!names.ok()) failWith("OutOfMemory", names.status().ToString());
  auto result = table->AddColumn(table->num_columns(), ::arrow::field("file", ::arrow::utf8()),
                                 std::make_shared<::arrow::ChunkedArray>(*names));
  if (!result.ok()) failWith("OutOfMemory", result.status().ToString());
  return *result;
}

std::string numberList(const std::vector<double>& numbers) {
  std::string text;
  for (double number : numbers) {
    if (!text.empty()) text += ", ";
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.17g", number);
    text += buffer;
  }
  return text;
}

// Where the rows go, in order: printed as they come for jsonl and csv, kept for the JSON
// document, and only the first and last few kept for the table view.
class Output {
 public:
  explicit Output(const ReadRequest& request) : mRequest(request) {}

  // The shape of the result, known before any row: an empty result prints it alone.
  void start(const std::shared_ptr<::arrow::Schema>& schema, std::vector<std::string> types) {
    mSchema = schema;
    mTypes = std::move(types);
    if (mRequest.format == Format::kCsv && mRequest.csv.header) {
      print(format::CsvHeader(*schema, mRequest.csv));
    }
  }
  bool started() const { return mSchema != nullptr; }
  const std::vector<std::string>& types() const { return mTypes; }

  void add(const std::shared_ptr<::arrow::Table>& rows) {
    switch (mRequest.format) {
      case Format::kJsonLines:
      case Format::kCsv: {
        const auto lines = mRequest.format == Format::kCsv ? format::LineFormat::kCsv
                                                           : format::LineFormat::kJsonLines;
        auto written = format::WriteLines(*rows, lines, mRequest.csv, stdout);
        if (!written.ok()) failWith("CannotWrite", written.status().message());
        mBytes += *written;
        std::fflush(stdout);
        break;
      }
      case Format::kJson:
        mTables.push_back(rows);
        break;
      case Format::kTable:
        mView.add(rows);
        break;
    }
  }
  // Rows of the table view that are counted but never shown, so never read.
  void skip(uint64_t rows) { mView.skip(rows); }
  // Rows kept so far of the table view, for the reader to stop early.
  const TableView& view() const { return mView; }

  void finish(const std::vector<double>& rangeRowGroups) {
    if (mRequest.format == Format::kJson) {
      const std::string document = jsonDocument();
      if (mRequest.byteRange) {
        std::printf("{\"rowGroups\": [%s], \"table\": %s}\n", numberList(rangeRowGroups).c_str(),
                    document.c_str());
      } else {
        std::printf("%s\n", document.c_str());
      }
    } else if (mRequest.format == Format::kTable) {
      if (mRequest.byteRange) {
        const std::string listed = numberList(rangeRowGroups);
        std::printf("Row groups in range: %s\n", listed.empty() ? "none" : listed.c_str());
      }
      print(mView.render(*mSchema, mTypes, terminalWidth()) + "\n");
    }
  }

  bool streams() const {
    return mRequest.format == Format::kJsonLines || mRequest.format == Format::kCsv;
  }
  // Bytes printed so far (streaming formats).
  uint64_t bytes() const { return mBytes; }

 private:
  std::string jsonDocument() const {
    auto table =
        mTables.empty() ? ::arrow::Table::MakeEmpty(mSchema) : ::arrow::ConcatenateTables(mTables);
    if (!table.ok()) {
      failWith("CannotCombine", "Unable to combine the files' rows: " + table.status().ToString());
    }
    auto document = format::JsonDocument(**table, mTypes);
    if (!document.ok()) failWith("CannotFormat", document.status().ToString());
    return std::move(document).ValueUnsafe();
  }
  void print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    mBytes += text.size();
  }

  const ReadRequest& mRequest;
  std::shared_ptr<::arrow::Schema> mSchema;
  std::vector<std::string> mTypes;
  std::vector<std::shared_ptr<::arrow::Table>> mTables;
  TableView mView;
  uint64_t mBytes = 0;
};

// One file's part of a request: the reader (the file is opened once), the row groups to visit
// and the variables to select.
class FileRead {
 public:
  FileRead(const ReadRequest& request, const std::string& file)
      : mRequest(request), mFile(file), mReader(open(request, file)) {
    for (const auto& name : mReader.getVariableNames()) mNames.push_back(ustring_to_utf8(name));
    mTypes = mReader.getVariableTypes();
    chooseVariables();
    if (request.where) {
      mFilter.emplace(Expression::parse(*request.where));
      mFilter->check(mNames, mTypes);
    }
    mRowGroups = request.rowGroups || request.byteRange || request.taskRowGroups
                     ? mReader.getRowGroups()
                     : allRowGroups();
    mListed = mRowGroups;
    if (mFilter) skipByStatistics();
    std::vector<std::u16string> selection;
    for (const auto& name : mSelection) selection.push_back(utf8_to_ustring(name));
    mReader.setSelectedVariableNames(selection);
  }

  const std::vector<std::string>& names() const { return mNames; }
  const std::vector<std::string>& types() const { return mTypes; }
  const std::vector<double>& rowGroupsToRead() const { return mRowGroups; }
  // The row groups asked for (a list, a byte range's, or all), before statistics skip any.
  const std::vector<double>& listedRowGroups() const { return mListed; }

  // The rows of a row group; nullopt for a number the file does not have (reading it then
  // fails with the library's error).
  std::optional<uint64_t> height(double rowGroup) const {
    if (!(rowGroup >= 1 && rowGroup <= static_cast<double>(mHeights.size()))) return std::nullopt;
    return mHeights[static_cast<size_t>(rowGroup) - 1];
  }
  bool filters() const { return mFilter.has_value(); }
  // The host types of the printed variables, in order.
  std::vector<std::string> shownTypes() const {
    std::vector<std::string> types;
    for (const auto& name : mShown) {
      types.push_back(mTypes[std::find(mNames.begin(), mNames.end(), name) - mNames.begin()]);
    }
    if (mRequest.withFile) types.push_back("string");
    return types;
  }

  // The printed variables without rows.
  std::shared_ptr<::arrow::Table> emptyTable() { return finish(mReader.readArrowRowGroups({})); }
  // One row group, filtered, with only the variables asked for.
  std::shared_ptr<::arrow::Table> readRowGroup(double rowGroup) {
    return finish(mReader.readArrowRowGroups({rowGroup}));
  }
  // One row group in pieces of at most batchSize rows, each filtered and handed to take,
  // decoding no further once take returns false.
  template <class Take>
  void readBatches(double rowGroup, int64_t batchSize, Take take) {
    auto batches = mReader.readArrowBatches(rowGroup, batchSize);
    while (auto batch = batches.next()) {
      checkInterrupt();
      auto table = ::arrow::Table::FromRecordBatches({batch});
      if (!table.ok()) failWith("CannotRead", table.status().ToString());
      if (!take(finish(*table))) break;
    }
  }

 private:
  static RowGroupParquetReader open(const ReadRequest& request, const std::string& file) {
    const std::u16string name = utf8_to_ustring(file);
    if (request.byteRange) {
      return RowGroupParquetReader(name, (*request.byteRange)[0], (*request.byteRange)[1]);
    }
    if (request.taskRowGroups) return RowGroupParquetReader(name, request.taskRowGroups->at(file));
    return RowGroupParquetReader(name, request.rowGroups.value_or(std::vector<double>{}));
  }

  std::vector<double> allRowGroups() {
    std::vector<double> all;
    for (double i = 1; i <= mReader.getTotalNumRowGroups(); ++i) all.push_back(i);
    return all;
  }

  void chooseVariables() {
    mShown = mRequest.variables.value_or(mNames);
    for (const auto& name : mShown) {
      if (std::find(mNames.begin(), mNames.end(), name) == mNames.end()) {
        std::string known;
        for (const auto& n : mNames) known += (known.empty() ? "" : ", ") + n;
        failWith("UnknownVariable", "'" + mFile + "' has no variable '" + name +
                                        "'. Its variables are: " + known + ".");
      }
    }
    mSelection = mShown;
    if (mRequest.where) {
      for (const auto& name : Expression::parse(*mRequest.where).variables()) {
        if (std::find(mSelection.begin(), mSelection.end(), name) == mSelection.end() &&
            std::find(mNames.begin(), mNames.end(), name) != mNames.end()) {
          mSelection.push_back(name);
        }
      }
    }
    mHeights = mReader.getRowGroupHeights();
  }

  // Statistics decide per row group; a variable without usable statistics (a type they do not
  // cover, damaged footer values) only means its groups are read.
  void skipByStatistics() {
    std::vector<int> indices;
    std::vector<std::string> covered;
    for (const auto& name : mFilter->variables()) {
      const int index =
          static_cast<int>(std::find(mNames.begin(), mNames.end(), name) - mNames.begin());
      try {
        mReader.getStatistics({index});
        indices.push_back(index);
        covered.push_back(name);
      } catch (const foundation::core::except::IMsgIDException&) {
      }
    }
    const auto statistics = mReader.getStatistics(indices);
    const auto choices = mFilter->chooseRowGroups(statistics, covered, mHeights);
    std::vector<double> kept;
    std::vector<std::string> skipped;
    for (double rowGroup : mRowGroups) {
      const size_t index = static_cast<size_t>(rowGroup) - 1;
      if (index < choices.size() && !choices[index].read) {
        skipped.push_back("  row group " + numberList({rowGroup}) +
                          " skipped: " + choices[index].reason);
      } else {
        kept.push_back(rowGroup);
      }
    }
    if (mRequest.explain) {
      std::fprintf(stderr, "%srow groups: read %zu of %zu\n",
                   mRequest.files.size() > 1 ? (mFile + ": ").c_str() : "", kept.size(),
                   mRowGroups.size());
      for (const auto& line : skipped) std::fprintf(stderr, "%s\n", line.c_str());
    }
    mRowGroups = std::move(kept);
  }

  // The rows the filter keeps and the printed variables, plus the file's name if asked. The
  // filter sees the host values of its own variables only; the printed values stay Arrow's.
  std::shared_ptr<::arrow::Table> finish(std::shared_ptr<::arrow::Table> table) {
    if (mFilter) table = filterRows(table);
    std::vector<int> shown(mShown.size());
    for (size_t i = 0; i < shown.size(); ++i) shown[i] = static_cast<int>(i);
    auto selected = table->SelectColumns(shown);
    if (!selected.ok()) failWith("CannotRead", selected.status().ToString());
    return mRequest.withFile ? withFileColumn(*selected, mFile) : *selected;
  }

  std::shared_ptr<::arrow::Table> filterRows(const std::shared_ptr<::arrow::Table>& table) {
    std::vector<int> used;
    for (const auto& name : mFilter->variables()) {
      const int index = table->schema()->GetFieldIndex(name);
      if (index >= 0) used.push_back(index);
    }
    auto variables = table->SelectColumns(used);
    if (!variables.ok()) failWith("CannotFilter", variables.status().ToString());
    auto host = vantro::io::arrow::core::to_vantro(*variables);
    if (!host.ok()) failWith("CannotFilter", host.status().ToString());
    const std::vector<bool> matches = mFilter->matchRows(host->get());
    ::arrow::BooleanBuilder mask;
    for (const bool match : matches) {
      if (!mask.Append(match).ok()) failWith("OutOfMemory", "No memory for the filter.");
    }
    static const bool computeReady =
        vantro::io::parquet::core::common::compat::initializeCompute().ok();
    (void)computeReady;
    std::shared_ptr<::arrow::Array> maskArray;
    auto finished = mask.Finish(&maskArray);
    auto kept = finished.ok() ? ::arrow::compute::Filter(table, maskArray)
                              : ::arrow::Result<::arrow::Datum>(finished);
    if (!kept.ok()) failWith("CannotFilter", kept.status().ToString());
    return kept->table();
  }

  const ReadRequest& mRequest;
  std::string mFile;
  RowGroupParquetReader mReader;
  std::vector<std::string> mNames;
  std::vector<std::string> mTypes;
  std::vector<std::string> mShown;      // printed, in order
  std::vector<std::string> mSelection;  // printed, then the filter's other variables
  std::vector<uint64_t> mHeights;
  std::optional<Expression> mFilter;
  std::vector<double> mRowGroups;
  std::vector<double> mListed;
};

// The rows still to skip and to print over all files and row groups.
struct Window {
  uint64_t skip = 0;
  std::optional<uint64_t> left;

  bool full() const { return left && *left == 0; }
  // Rows still wanted from here on: the ones to skip and the ones to print.
  std::optional<uint64_t> wanted() const {
    if (!left) return std::nullopt;
    return skip + *left;
  }
  // The part of a piece of rows that falls inside the window.
  std::shared_ptr<::arrow::Table> take(const std::shared_ptr<::arrow::Table>& table) {
    const auto rows = static_cast<uint64_t>(table->num_rows());
    const uint64_t first = std::min(skip, rows);
    skip -= first;
    uint64_t last = rows;
    if (left) last = std::min(rows, first + *left);
    if (left) *left -= last - first;
    if (first == 0 && last == rows) return table;
    return table->Slice(static_cast<int64_t>(first), static_cast<int64_t>(last - first));
  }
};

void checkSameSchema(const FileRead& first, const FileRead& other, const std::string& firstFile,
                     const std::string& otherFile) {
  const size_t count = std::max(first.names().size(), other.names().size());
  for (size_t i = 0; i < count; ++i) {
    const auto describe = [i](const FileRead& read) {
      if (i >= read.names().size()) return std::string("nothing");
      return "'" + read.names()[i] + "' (" + read.types()[i] + ")";
    };
    if (describe(first) != describe(other)) {
      failWith("SchemaMismatch", "'" + otherFile + "' differs from '" + firstFile +
                                     "' at variable " + std::to_string(i + 1) + ": " +
                                     describe(other) + " instead of " + describe(first) + ".");
    }
  }
}

// --each: one table per row group.
void printEachRowGroup(FileRead& read, const ReadRequest& request, Output& output, Window& rows) {
  const auto& rowGroups = read.rowGroupsToRead();
  Progress progress("row group", rowGroups.size());
  bool first = true;
  if (request.format == Format::kJson) std::printf("[");
  for (size_t i = 0; i < rowGroups.size() && !rows.full(); ++i) {
    checkInterrupt();
    auto table = read.readRowGroup(rowGroups[i]);
    const std::string number = numberList({rowGroups[i]});
    if (request.format == Format::kJson) {
      auto document = format::JsonDocument(*table, output.types());
      if (!document.ok()) failWith("CannotFormat", document.status().ToString());
      std::printf("%s{\"rowGroup\": %s, \"table\": %s}", first ? "" : ", ", number.c_str(),
                  document->c_str());
    } else if (request.format == Format::kTable) {
      TableView view;
      view.add(table);
      std::printf("%sRow group %s:\n%s\n", first ? "" : "\n", number.c_str(),
                  view.render(*table->schema(), output.types(), terminalWidth()).c_str());
    } else {
      output.add(rows.take(table));
    }
    first = false;
    progress.step(i + 1);
  }
  progress.finish();
  if (request.format == Format::kJson) std::printf("]\n");
}

// Rows per piece when a read may stop early; pieces of whole row groups otherwise.
constexpr int64_t kBatchRows = 65536;

// The rows of one file's row groups into the output, decoding no more than the output needs:
// with a row limit only until it is reached, and for the table view of a whole file only the
// row groups holding its first and last rows.
void readRows(FileRead& read, const ReadRequest& request, Output& output, Window& rows) {
  const auto& rowGroups = read.rowGroupsToRead();
  bool viewOnly = request.format == Format::kTable && !read.filters() && !rows.left &&
                  rows.skip == 0 && request.files.size() == 1;
  uint64_t total = 0;
  for (double rowGroup : rowGroups) {
    const auto height = read.height(rowGroup);
    viewOnly = viewOnly && height.has_value();
    total += height.value_or(0);
  }
  const uint64_t head = TableView::kHeadRows, tail = TableView::kTailRows;

  Progress groups("row groups", rowGroups.size());
  uint64_t done = 0, position = 0;
  for (double rowGroup : rowGroups) {
    if (rows.full()) break;
    checkInterrupt();
    const uint64_t height = read.height(rowGroup).value_or(0);
    const bool holdsHead = position < head;
    const bool holdsTail = position + height + tail > total;
    if (viewOnly && !holdsHead && !holdsTail) {
      output.skip(height);
    } else if (viewOnly && !holdsTail) {
      // Only the first rows are shown; the rest are counted.
      const auto wanted = static_cast<int64_t>(head - position);
      uint64_t taken = 0;
      read.readBatches(rowGroup, wanted, [&](const std::shared_ptr<::arrow::Table>& piece) {
        output.add(piece);
        taken += static_cast<uint64_t>(piece->num_rows());
        return false;
      });
      output.skip(height - taken);
    } else if (rows.wanted() || viewOnly) {
      const int64_t batchSize =
          static_cast<int64_t>(std::min<uint64_t>(rows.wanted().value_or(kBatchRows), kBatchRows));
      read.readBatches(rowGroup, read.filters() ? kBatchRows : batchSize,
                       [&](const std::shared_ptr<::arrow::Table>& piece) {
                         output.add(rows.take(piece));
                         return !rows.full();
                       });
    } else {
      output.add(rows.take(read.readRowGroup(rowGroup)));
    }
    position += height;
    groups.step(++done, 0, output.bytes());
  }
}

// --explain for a dataset: what the filter ruled out before reading, and why.
void explainPieces(const DatasetReader& reader) {
  const Dataset& dataset = reader.dataset();
  std::fprintf(stderr, "row groups: read %zu of %llu in %zu files\n", reader.pieces().size(),
               static_cast<unsigned long long>(dataset.rowGroupCount()), dataset.fileCount());
  printSkippedPieces(reader);
}

// The printed variables of a dataset read and their host types.
std::pair<std::shared_ptr<::arrow::Schema>, std::vector<std::string>> shownShape(
    const DatasetReader& reader, bool withFile) {
  const Dataset& dataset = reader.dataset();
  const auto names = dataset.variableNames();
  const auto types = dataset.variableTypes();
  std::vector<std::shared_ptr<::arrow::Field>> fields;
  std::vector<std::string> shownTypes;
  for (const auto& name : reader.selectedVariables()) {
    fields.push_back(dataset.schema()->GetFieldByName(name));
    shownTypes.push_back(types[std::find(names.begin(), names.end(), name) - names.begin()]);
  }
  if (withFile) {
    fields.push_back(::arrow::field("file", ::arrow::utf8()));
    shownTypes.push_back("string");
  }
  return {::arrow::schema(std::move(fields)), std::move(shownTypes)};
}

// A folder, a pattern or several files as one table: the dataset's variables by name, its
// pieces (row groups, files in order) read one at a time into the output.
int runDatasetRequest(const ReadRequest& request) {
  auto dataset = std::make_shared<const Dataset>(request.sources, request.datasetOptions);
  DatasetReader reader(dataset, request.variables.value_or(std::vector<std::string>{}),
                       request.where.value_or(""));
  if (request.datasetTask) keepTaskPieces(reader, *request.datasetTask);
  if (request.withFile && dataset->schema()->GetFieldIndex("file") >= 0) {
    failWith("FileVariableExists", "The files have a variable 'file' already.");
  }
  if (request.explain) explainPieces(reader);
  Output output(request);
  auto [schema, types] = shownShape(reader, request.withFile);
  output.start(schema, std::move(types));

  // The table view of all rows shows the first and last few: pieces between them are counted
  // from their footers, never read.
  const auto& pieces = reader.pieces();
  const bool viewOnly =
      request.format == Format::kTable && !request.where && !request.limit && request.offset == 0;
  uint64_t total = 0;
  for (const auto& piece : pieces) total += piece.rows;
  Window rows{request.offset, request.limit};
  Progress progress("row groups", pieces.size());
  uint64_t position = 0;
  for (size_t i = 0; i < pieces.size() && !rows.full(); ++i) {
    checkInterrupt();
    const uint64_t height = pieces[i].rows;
    const bool shown =
        position < TableView::kHeadRows || position + height + TableView::kTailRows > total;
    position += height;
    if (viewOnly && !shown) {
      output.skip(height);
      continue;
    }
    auto table = reader.readPieceTable(i);
    if (request.withFile) table = withFileColumn(table, dataset->file(pieces[i].file).path);
    output.add(rows.take(table));
    progress.step(i + 1, 0, output.bytes());
  }
  progress.finish();
  output.finish({});
  return 0;
}

int runRequest(const ReadRequest& request) {
  if (request.dataset) return runDatasetRequest(request);
  Output output(request);
  Window rows{request.offset, request.limit};
  std::unique_ptr<FileRead> first;
  std::vector<double> rangeRowGroups;
  Progress progress("file", request.files.size());
  for (size_t f = 0; f < request.files.size(); ++f) {
    // The first file is always opened: its variables give an empty result its shape.
    if (f > 0 && rows.full()) break;
    checkInterrupt();
    auto read = std::make_unique<FileRead>(request, request.files[f]);
    if (first) checkSameSchema(*first, *read, request.files[0], request.files[f]);
    if (!output.started()) output.start(read->emptyTable()->schema(), read->shownTypes());
    if (request.byteRange) rangeRowGroups = read->listedRowGroups();
    if (request.each) {
      printEachRowGroup(*read, request, output, rows);
    } else {
      readRows(*read, request, output, rows);
    }
    if (!first) first = std::move(read);
    if (request.files.size() > 1) progress.step(f + 1);
  }
  progress.finish();
  if (!request.each || output.streams()) output.finish(rangeRowGroups);
  return 0;
}

}  // namespace

int runRead(const std::vector<std::string>& words) { return runRequest(parseRead(words)); }

int runHead(const std::vector<std::string>& words) {
  const Arguments args(
      words,
      {"--rows", "--vars", "--where", "--format", "--delimiter", "--missing", kPartitioningOption},
      {"--json", "--no-header", kStrictFlag, kSkipBadFilesFlag}, {{"-n", "--rows"}});
  if (args.positional().empty()) throw UsageError{"head needs a FILE, FOLDER or pattern"};
  ReadRequest request;
  parseCommon(args, request);
  request.limit = args.value("--rows") ? parseCount(*args.value("--rows"), "-n", true) : 10;
  return runRequest(request);
}

}  // namespace vxparquet
