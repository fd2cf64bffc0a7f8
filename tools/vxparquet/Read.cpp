// vxparquet read and head: files, some of their row groups or a byte range, optionally
// filtered, as a table, JSON, JSON lines or CSV.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <arrow/table.h>

#include "Cli.hpp"
#include "Files.hpp"
#include "host/converter/Converter.hpp"
#include "host/converter/Display.hpp"
#include "host/converter/HostValues.hpp"
#include "host/except/Exception.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Expression.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace vxparquet {

namespace {

namespace display = vantro::io::arrow::core::display;
namespace hostvalues = vantro::io::arrow::core::host;
using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;
using vantro::io::parquet::core::filter::Expression;
using vantro::io::parquet::core::read::RowGroupParquetReader;

enum class Format { kTable, kJson, kJsonLines, kCsv };

// What the command was asked to read.
struct ReadRequest {
  std::vector<std::string> files;
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

void parseCommon(const Arguments& args, ReadRequest& request) {
  request.format = parseFormat(args);
  if (auto vars = args.value("--vars")) request.variables = splitNames(*vars, "--vars");
  request.where = args.value("--where");
  request.files = expandInputs(args.positional(), args.flag("--recursive"));
}

ReadRequest parseRead(const std::vector<std::string>& words) {
  const Arguments args(
      words,
      {"--vars", "--row-groups", "--byte-range", "--where", "--limit", "--offset", "--format"},
      {"--each", "--json", "--explain", "--recursive", "--with-file"});
  if (args.positional().empty()) throw UsageError{"read needs at least one FILE"};
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
  if ((request.rowGroups || request.byteRange) && request.files.size() != 1) {
    throw UsageError{"--row-groups and --byte-range take exactly one FILE"};
  }
  const bool wholeTables = request.format == Format::kTable || request.format == Format::kJson;
  if (request.each && wholeTables && request.files.size() > 1) {
    throw UsageError{"--each takes one FILE unless --format is jsonl or csv"};
  }
  if (request.each && wholeTables && (request.limit || request.offset > 0)) {
    throw UsageError{"--limit and --offset apply to --each only with --format jsonl or csv"};
  }
  return request;
}

// The host table's first `count` columns, taken over without copying.
matrix::unique_array firstColumns(matrix::unique_array table, size_t count) {
  vxArray* columns = vxGetField(table.get(), 0, hostvalues::kColumns);
  vxArray* names = vxGetField(table.get(), 0, hostvalues::kNames);
  const size_t total = vxGetNumberOfElements(columns);
  if (count >= total) return table;
  std::vector<std::string> kept;
  std::vector<matrix::unique_array> moved;
  for (size_t c = 0; c < count; ++c) {
    kept.push_back(hostvalues::TextOf(vxGetCell(names, c)));
    moved.emplace_back(vxGetCell(columns, c));
    vxSetCell(columns, c, nullptr);  // ownership moves to `moved`
  }
  auto result = hostvalues::MakeTable(kept, std::move(moved));
  if (!result.ok()) failWith("OutOfMemory", result.status().ToString());
  return std::move(result).ValueUnsafe();
}

// The table with one more variable, "file", naming the source file on every row.
matrix::unique_array withFileColumn(matrix::unique_array table, const std::string& file) {
  const size_t rows = display::RowCount(table.get());
  vxArray* columns = vxGetField(table.get(), 0, hostvalues::kColumns);
  vxArray* names = vxGetField(table.get(), 0, hostvalues::kNames);
  std::vector<std::string> allNames;
  std::vector<matrix::unique_array> moved;
  for (size_t c = 0; c < vxGetNumberOfElements(columns); ++c) {
    allNames.push_back(hostvalues::TextOf(vxGetCell(names, c)));
    if (allNames.back() == "file") {
      failWith("FileVariableExists", "'" + file + "' has a variable 'file' already.");
    }
    moved.emplace_back(vxGetCell(columns, c));
    vxSetCell(columns, c, nullptr);  // ownership moves to `moved`
  }
  const std::u16string units = utf8_to_ustring(file);
  matrix::unique_array data(vxCreateUninitCharArray(1, units.size() * rows));
  matrix::unique_array offsets(vxCreateUninitNumericMatrix(rows + 1, 1, vxUINT64_CLASS, vxREAL));
  matrix::unique_array missing(vxCreateLogicalMatrix(rows, 1));
  if (!data || !offsets || !missing) failWith("OutOfMemory", "No memory for the file names.");
  auto* offset = static_cast<uint64_t*>(vxGetData(offsets.get()));
  for (size_t r = 0; r <= rows; ++r) offset[r] = r * units.size();
  for (size_t r = 0; r < rows; ++r) {
    std::copy(units.begin(), units.end(), vxGetChars(data.get()) + r * units.size());
  }
  std::vector<hostvalues::Field> fields;
  fields.emplace_back(hostvalues::kData, std::move(data));
  fields.emplace_back(hostvalues::kOffsets, std::move(offsets));
  fields.emplace_back(hostvalues::kMissing, std::move(missing));
  auto column = hostvalues::MakeObject(hostvalues::kString, std::move(fields));
  if (!column.ok()) failWith("OutOfMemory", column.status().ToString());
  allNames.push_back("file");
  moved.push_back(std::move(column).ValueUnsafe());
  auto result = hostvalues::MakeTable(allNames, std::move(moved));
  if (!result.ok()) failWith("OutOfMemory", result.status().ToString());
  return std::move(result).ValueUnsafe();
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

// Concatenates host tables of one schema (several files, several pieces of one file).
matrix::unique_array concatenate(std::vector<matrix::unique_array> tables) {
  if (tables.size() == 1) return std::move(tables[0]);
  std::vector<std::shared_ptr<::arrow::Table>> pieces;
  for (const auto& table : tables) {
    auto piece = vantro::io::arrow::core::to_arrow_table(table.get());
    if (!piece.ok())
      failWith("CannotCombine", "Unable to combine the files' rows: " + piece.status().ToString());
    pieces.push_back(*piece);
  }
  auto joined = ::arrow::ConcatenateTables(pieces);
  if (!joined.ok())
    failWith("CannotCombine", "Unable to combine the files' rows: " + joined.status().ToString());
  auto host = vantro::io::arrow::core::to_vantro(*joined);
  if (!host.ok())
    failWith("CannotCombine", "Unable to combine the files' rows: " + host.status().ToString());
  return std::move(host).ValueUnsafe();
}

// Where the rows go: printed as they come for jsonl and csv, gathered for table and json.
class Sink {
 public:
  explicit Sink(Format format) : mFormat(format) {}

  void add(matrix::unique_array table) {
    const size_t rows = display::RowCount(table.get());
    if (mFormat == Format::kJsonLines) {
      for (size_t r = 0; r < rows; ++r) {
        const std::string line = display::JsonRowObject(table.get(), r);
        std::printf("%s\n", line.c_str());
        mBytes += line.size() + 1;
      }
      std::fflush(stdout);
    } else if (mFormat == Format::kCsv) {
      if (!mHeaderDone) std::printf("%s\n", display::CsvHeader(table.get()).c_str());
      mHeaderDone = true;
      for (size_t r = 0; r < rows; ++r) {
        const std::string line = display::CsvRow(table.get(), r);
        std::printf("%s\n", line.c_str());
        mBytes += line.size() + 1;
      }
      std::fflush(stdout);
    } else {
      mTables.push_back(std::move(table));
    }
  }

  bool streams() const { return mFormat == Format::kJsonLines || mFormat == Format::kCsv; }
  // Bytes printed so far (streaming formats).
  uint64_t bytes() const { return mBytes; }
  std::vector<matrix::unique_array> take() { return std::move(mTables); }

 private:
  Format mFormat;
  bool mHeaderDone = false;
  uint64_t mBytes = 0;
  std::vector<matrix::unique_array> mTables;
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
    mRowGroups = request.rowGroups || request.byteRange ? mReader.getRowGroups() : allRowGroups();
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

  // One row group, filtered, with only the variables asked for.
  matrix::unique_array readRowGroup(double rowGroup) {
    return finish(mReader.readRowGroups({rowGroup}));
  }
  // Several row groups as one table (none: a table without rows).
  matrix::unique_array readRowGroups(const std::vector<double>& rowGroups) {
    return finish(mReader.readRowGroups(rowGroups));
  }
  // The rows of the given row groups that the filter keeps, without reading the variables
  // that are only shown.
  size_t countMatches(double rowGroup) {
    if (!mFilter) return mHeights.at(static_cast<size_t>(rowGroup) - 1);
    std::vector<std::u16string> filterVariables;
    for (const auto& name : mFilter->variables()) filterVariables.push_back(utf8_to_ustring(name));
    mReader.setSelectedVariableNames(filterVariables);
    auto table = mReader.readRowGroups({rowGroup});
    const auto matches = mFilter->matchRows(table.get());
    std::vector<std::u16string> selection;
    for (const auto& name : mSelection) selection.push_back(utf8_to_ustring(name));
    mReader.setSelectedVariableNames(selection);
    return static_cast<size_t>(std::count(matches.begin(), matches.end(), true));
  }

 private:
  static RowGroupParquetReader open(const ReadRequest& request, const std::string& file) {
    const std::u16string name = utf8_to_ustring(file);
    if (request.byteRange) {
      return RowGroupParquetReader(name, (*request.byteRange)[0], (*request.byteRange)[1]);
    }
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

  matrix::unique_array finish(matrix::unique_array table) {
    if (mFilter) table = mFilter->filterRows(table.get());
    table = firstColumns(std::move(table), mShown.size());
    return mRequest.withFile ? withFileColumn(std::move(table), mFile) : std::move(table);
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
  // The positions of a piece of `rows` rows that fall inside the window.
  std::vector<size_t> take(size_t rows) {
    std::vector<size_t> positions;
    const size_t first = static_cast<size_t>(std::min<uint64_t>(skip, rows));
    skip -= first;
    size_t last = rows;
    if (left) last = static_cast<size_t>(std::min<uint64_t>(rows, first + *left));
    for (size_t r = first; r < last; ++r) positions.push_back(r);
    if (left) *left -= last - first;
    return positions;
  }
};

matrix::unique_array window(matrix::unique_array table, Window& rows) {
  const size_t count = display::RowCount(table.get());
  const auto positions = rows.take(count);
  if (positions.size() == count) return table;
  return vantro::io::parquet::core::filter::takeRows(table.get(), positions);
}

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

void printTables(std::vector<matrix::unique_array> tables, const ReadRequest& request,
                 const std::vector<double>& rangeRowGroups) {
  matrix::unique_array table = concatenate(std::move(tables));
  if (request.format == Format::kJson) {
    if (request.byteRange) {
      std::printf("{\"rowGroups\": [%s], \"table\": %s}\n", numberList(rangeRowGroups).c_str(),
                  display::ToJson(table.get()).c_str());
    } else {
      std::printf("%s\n", display::ToJson(table.get()).c_str());
    }
    return;
  }
  if (request.byteRange) {
    const std::string listed = numberList(rangeRowGroups);
    std::printf("Row groups in range: %s\n", listed.empty() ? "none" : listed.c_str());
  }
  display::DisplayOptions options;
  options.width = terminalWidth();
  std::printf("%s\n", display::DisplayValue(table.get(), options).c_str());
}

// --each: one table per row group, read as the host does.
void printEachRowGroup(FileRead& read, const ReadRequest& request, Sink& sink, Window& rows) {
  const auto& rowGroups = read.rowGroupsToRead();
  Progress progress("row group", rowGroups.size());
  bool first = true;
  if (request.format == Format::kJson) std::printf("[");
  for (size_t i = 0; i < rowGroups.size() && !rows.full(); ++i) {
    checkInterrupt();
    auto table = read.readRowGroup(rowGroups[i]);
    const std::string number = numberList({rowGroups[i]});
    if (request.format == Format::kJson) {
      std::printf("%s{\"rowGroup\": %s, \"table\": %s}", first ? "" : ", ", number.c_str(),
                  display::ToJson(table.get()).c_str());
    } else if (request.format == Format::kTable) {
      display::DisplayOptions options;
      options.width = terminalWidth();
      std::printf("%sRow group %s:\n%s\n", first ? "" : "\n", number.c_str(),
                  display::DisplayValue(table.get(), options).c_str());
    } else {
      sink.add(window(std::move(table), rows));
    }
    first = false;
    progress.step(i + 1);
  }
  progress.finish();
  if (request.format == Format::kJson) std::printf("]\n");
}

int runRequest(const ReadRequest& request) {
  Sink sink(request.format);
  Window rows{request.offset, request.limit};
  std::unique_ptr<FileRead> first;
  std::vector<double> rangeRowGroups;
  std::vector<matrix::unique_array> gathered;
  Progress progress("file", request.files.size());
  for (size_t f = 0; f < request.files.size() && !rows.full(); ++f) {
    checkInterrupt();
    auto read = std::make_unique<FileRead>(request, request.files[f]);
    if (first) checkSameSchema(*first, *read, request.files[0], request.files[f]);
    if (request.each) {
      printEachRowGroup(*read, request, sink, rows);
      continue;
    }
    if (request.byteRange) rangeRowGroups = read->listedRowGroups();

    Window before = rows;
    if (!sink.streams() && rows.left) {
      // Gathering with a window: count first, then read the row groups that hold the rows in
      // one piece and cut the window out of it.
      std::vector<double> needed;
      const uint64_t skipBefore = rows.skip;
      for (double rowGroup : read->rowGroupsToRead()) {
        if (rows.full()) break;
        checkInterrupt();
        const size_t matches = read->countMatches(rowGroup);
        rows.take(matches);
        if (matches > 0) needed.push_back(rowGroup);
      }
      Window cut{skipBefore, before.left};
      auto table = read->readRowGroups(needed);
      gathered.push_back(window(std::move(table), cut));
    } else if (sink.streams()) {
      Progress groups("row groups", read->rowGroupsToRead().size());
      uint64_t done = 0, printed = 0;
      for (double rowGroup : read->rowGroupsToRead()) {
        if (rows.full()) break;
        checkInterrupt();
        auto piece = window(read->readRowGroup(rowGroup), rows);
        printed += display::RowCount(piece.get());
        sink.add(std::move(piece));
        groups.step(++done, printed, sink.bytes());
      }
    } else {
      checkInterrupt();
      gathered.push_back(read->readRowGroups(read->rowGroupsToRead()));
    }
    if (!first) first = std::move(read);
    if (request.files.size() > 1) progress.step(f + 1);
  }
  progress.finish();
  if (!request.each && !sink.streams()) {
    if (gathered.empty()) failWith("NoRows", "Nothing was read.");
    printTables(std::move(gathered), request, rangeRowGroups);
  }
  return 0;
}

}  // namespace

int runRead(const std::vector<std::string>& words) { return runRequest(parseRead(words)); }

int runHead(const std::vector<std::string>& words) {
  const Arguments args(words, {"--rows", "--vars", "--where", "--format"}, {"--json"},
                       {{"-n", "--rows"}});
  if (args.positional().size() != 1) throw UsageError{"head takes exactly one FILE"};
  ReadRequest request;
  parseCommon(args, request);
  request.limit = args.value("--rows") ? parseCount(*args.value("--rows"), "-n", true) : 10;
  return runRequest(request);
}

}  // namespace vxparquet
