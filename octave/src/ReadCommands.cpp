// Commands that only read: info, count, read, the reader's row-group list and saved state,
// statistics.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Commands.hpp"
#include "MexArguments.hpp"
#include "OctaveValues.hpp"
#include "RowFilter.hpp"
#include "StoredUnits.hpp"
#include "host/except/Exception.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/info/ParquetInfo.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupCount.hpp"
#include "toolbox/vantro/io/parquet/core/info/TypeDescriptions.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace vantro::octave {

namespace {

using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;
using vantro::io::parquet::core::read::RowGroupParquetReader;
using vantro::io::parquet::core::read::Statistics;

[[noreturn]] void invalid(const std::string& message) {
  throw TranslationError{"VANTRO:octave:InvalidArgument", message};
}

void requireArguments(int count, int wanted, const char* command) {
  if (count < wanted) invalid(std::string(command) + ": too few arguments");
}

std::vector<double> allRowGroups(double total) {
  std::vector<double> rowGroups;
  for (double i = 1; i <= total; ++i) rowGroups.push_back(i);
  return rowGroups;
}

// A number as the user typed it: whole numbers without a fraction, NaN and Inf by name.
std::string numberText(double number) {
  if (std::isnan(number)) return "NaN";
  if (std::isinf(number)) return number > 0 ? "Inf" : "-Inf";
  char text[32];
  std::snprintf(text, sizeof(text), "%.15g", number);
  return text;
}

// Row groups are numbered from 1 as the user sees them; Arrow would take 1.5 as 1 and report
// a bad one 0-based, so every number is checked here against the file.
std::vector<double> checkedRowGroups(const mxArray* value, double total) {
  const std::vector<double> rowGroups = numbersOf(value, "RowGroups");
  for (double number : rowGroups) {
    if (number >= 1 && number <= total && number == std::floor(number)) continue;
    const std::string file = total == 0   ? "the file has no row groups"
                             : total == 1 ? "the file has row group 1 only"
                                          : "the file has row groups 1 to " + numberText(total);
    invalid("RowGroups: " + numberText(number) + " is not a row group (" + file + ")");
  }
  return rowGroups;
}

// [offset size] in bytes: an offset from the start of the file and a size of at least one
// byte, so that a range always names the row groups it covers.
std::pair<double, double> checkedByteRange(const mxArray* value) {
  const auto range = numbersOf(value, "ByteRange");
  if (range.size() != 2) invalid("ByteRange must be [offset size]");
  if (!std::isfinite(range[0]) || range[0] < 0) {
    invalid("ByteRange: the offset must be a finite number of bytes from 0, not " +
            numberText(range[0]));
  }
  if (!std::isfinite(range[1]) || range[1] <= 0) {
    invalid("ByteRange: the size must be a finite number of bytes above 0, not " +
            numberText(range[1]));
  }
  return {range[0], range[1]};
}

// The reader for the options RowGroups or ByteRange (at most one), else for every row group.
RowGroupParquetReader openReader(const std::u16string& file, const mxArray* options) {
  // An empty RowGroups list is a list: no row groups.
  const mxArray* listed =
      options && mxIsStruct(options) ? mxGetField(options, 0, "RowGroups") : nullptr;
  const auto byteRange = optionOf(options, "ByteRange");
  if (listed && byteRange) invalid("RowGroups and ByteRange exclude each other");
  if (byteRange) {
    const auto [offset, size] = checkedByteRange(*byteRange);
    return RowGroupParquetReader(file, offset, size);
  }
  RowGroupParquetReader probe(file, std::vector<double>{});
  const double total = probe.getTotalNumRowGroups();
  return RowGroupParquetReader(file,
                               listed ? checkedRowGroups(listed, total) : allRowGroups(total));
}

[[noreturn]] void unknownVariable(const std::string& name,
                                  const std::vector<std::u16string>& known) {
  std::string list;
  for (const auto& k : known) list += (list.empty() ? "'" : ", '") + ustring_to_utf8(k) + "'";
  throw TranslationError{"VANTRO:octave:UnknownVariable",
                         "The file has no variable '" + name +
                             "'. Its variables: " + (list.empty() ? "none" : list) + "."};
}

// Selects the Variables option; a name the file lacks is refused with the file's names.
// Returns the names selected, or nothing when every variable is.
std::optional<std::vector<std::u16string>> selectVariables(RowGroupParquetReader& reader,
                                                           const mxArray* options) {
  const auto variables = optionOf(options, "Variables");
  if (!variables) return std::nullopt;
  const std::vector<std::u16string> known = reader.getVariableNames();
  std::vector<std::u16string> names;
  for (const auto& name : textListOf(*variables, "Variables")) {
    names.push_back(utf8_to_ustring(name));
    if (std::find(known.begin(), known.end(), names.back()) == known.end()) {
      unknownVariable(name, known);
    }
  }
  reader.setSelectedVariableNames(names);
  return names;
}

// Parquet C++ 11 writes a distinct count of 0, flagged as present, into every chunk. A chunk
// that holds a value has at least one distinct value, so such a 0 is no count: it is reported
// as absent, as the program vxparquet reports it.
void dropUnsetDistinctCounts(Statistics& stats, const std::vector<uint64_t>& heights) {
  const size_t rowGroups = vxGetM(stats.hasDistinctCount.get());
  const size_t cells = vxGetNumberOfElements(stats.hasDistinctCount.get());
  vxLogical* hasDistinct = vxGetLogicals(stats.hasDistinctCount.get());
  const vxLogical* hasNulls = vxGetLogicals(stats.hasNullCount.get());
  const auto* nulls = static_cast<const int64_t*>(vxGetData(stats.nullCount.get()));
  const auto* distinct = static_cast<const int64_t*>(vxGetData(stats.distinctCount.get()));
  for (size_t i = 0; i < cells; ++i) {
    if (!hasDistinct[i] || distinct[i] != 0) continue;
    const size_t rowGroup = rowGroups == 0 ? 0 : i % rowGroups;
    const uint64_t height = rowGroup < heights.size() ? heights[rowGroup] : 0;
    const bool holdsValues = !hasNulls[i] || static_cast<uint64_t>(nulls[i]) < height;
    if (holdsValues) hasDistinct[i] = false;
  }
}

const mxArray* optionsArgument(int count, const mxArray* args[], int position) {
  return count > position ? args[position] : nullptr;
}

}  // namespace

void infoCommand(int, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "info");
  const std::u16string file = fileNameOf(args[0]);
  // The summary reports every failure as one wrapped read error; opened as a read opens it
  // first, a missing file, a folder or a file that is not Parquet fail as they do in pq_read.
  RowGroupParquetReader(file, std::vector<double>{});
  const vantro::io::parquet::core::info::ParquetInfo info(file);
  static const char* kFields[] = {"Filename",
                                  "FileSize",
                                  "NumRowGroups",
                                  "RowGroupHeights",
                                  "RowGroupOffsets",
                                  "VariableNames",
                                  "VariableTypes",
                                  "VariableCompression",
                                  "VariableEncoding",
                                  "Version",
                                  "ParquetPhysicalTypes",
                                  "ParquetConvertedTypes",
                                  "ParquetLogicalTypes",
                                  "ArrowTypes",
                                  "TypeDescriptions"};
  mxArray* result = mxCreateStructMatrix(1, 1, sizeof(kFields) / sizeof(kFields[0]), kFields);
  mxSetField(result, 0, "Filename", textOfUtf8(ustring_to_utf8(info.getFilename())));
  mxSetField(result, 0, "FileSize", mxCreateDoubleScalar(static_cast<double>(info.getFileSize())));
  mxSetField(result, 0, "NumRowGroups", mxCreateDoubleScalar(info.getNumRowGroups()));
  mxSetField(result, 0, "RowGroupHeights", doubleColumnOf(info.getRowGroupHeights()));
  mxSetField(result, 0, "RowGroupOffsets", doubleColumnOf(info.getRowGroupOffsets()));
  mxSetField(result, 0, "VariableNames", cellRowOf(info.getVariableNames()));
  mxSetField(result, 0, "VariableTypes", cellRowOf(info.getVariableTypes()));
  mxSetField(result, 0, "VariableCompression", cellRowOf(info.getVariableCompression()));
  mxSetField(result, 0, "VariableEncoding", cellRowOf(info.getVariableEncoding()));
  mxSetField(result, 0, "Version", textOfUtf8(info.getVersion()));
  mxSetField(result, 0, "ParquetPhysicalTypes", cellRowOf(info.getParquetPhysicalTypes()));
  mxSetField(result, 0, "ParquetConvertedTypes", cellRowOf(info.getParquetConvertedTypes()));
  mxSetField(result, 0, "ParquetLogicalTypes", cellRowOf(info.getParquetLogicalTypes()));
  mxSetField(result, 0, "ArrowTypes", cellRowOf(info.getArrowTypes()));
  mxSetField(result, 0, "TypeDescriptions",
             cellRowOf(vantro::io::parquet::core::info::parquet_types(info.getArrowSchema())));
  out[0] = result;
}

void countCommand(int, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "count");
  std::vector<std::u16string> files;
  for (const auto& name : textListOf(args[0], "files")) files.push_back(utf8_to_ustring(name));
  out[0] = doubleColumnOf(vantro::io::parquet::core::info::getNumRowGroupsAsync(std::move(files)));
}

void readCommand(int nout, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "read");
  const mxArray* options = optionsArgument(count, args, 1);
  const ToOctaveOptions translation = translationOptions(options);
  const std::u16string file = fileNameOf(args[0]);
  RowGroupParquetReader reader = openReader(file, options);
  const auto requested = selectVariables(reader, options);
  const auto where = whereOf(options, reader);
  const std::vector<std::string> seconds = secondsVariables(file);
  if (where) {
    selectForFilter(reader, requested, *where);
    const std::vector<double> rowGroups =
        keepPossibleRowGroups(reader, *where, reader.getRowGroups());
    const matrix::unique_array table = reader.readRowGroups(rowGroups);
    const matrix::unique_array filtered = filterTable(table.get(), *where, requested);
    restoreSecondsInTable(filtered.get(), seconds);
    out[0] = toOctave(filtered.get(), translation);
    if (nout > 1) out[1] = doubleColumnOf(rowGroups);
    return;
  }
  const bool whole = !(options && mxIsStruct(options) && mxGetField(options, 0, "RowGroups")) &&
                     !optionOf(options, "ByteRange");
  const matrix::unique_array table = whole ? reader.readFullFile() : reader.readall();
  restoreSecondsInTable(table.get(), seconds);
  out[0] = toOctave(table.get(), translation);
  if (nout > 1) out[1] = doubleColumnOf(reader.getRowGroups());
}

void rowGroupsCommand(int nout, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "rowgroups");
  const mxArray* options = optionsArgument(count, args, 1);
  // The reader is made here: every option is checked now, not at its first read.
  translationOptions(options);
  RowGroupParquetReader reader = openReader(fileNameOf(args[0]), options);
  selectVariables(reader, options);
  const auto where = whereOf(options, reader);
  out[0] = doubleColumnOf(where ? keepPossibleRowGroups(reader, *where, reader.getRowGroups())
                                : reader.getRowGroups());
  if (nout > 1) out[1] = mxCreateDoubleScalar(reader.getTotalNumRowGroups());
}

// The reader object's read(): the row group at a 0-based cursor into the RowGroups option,
// read as the library's row-group reader reads it (a file without row groups yields one
// empty table). Returns the table and the cursor after it.
void nextCommand(int nout, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 3, "next");
  const mxArray* options = args[1];
  const ToOctaveOptions translation = translationOptions(options);
  const auto rowGroups = optionOf(options, "RowGroups");
  const std::u16string file = fileNameOf(args[0]);
  RowGroupParquetReader reader(
      file, rowGroups ? numbersOf(*rowGroups, "RowGroups") : std::vector<double>{});
  const auto requested = selectVariables(reader, options);
  const auto where = whereOf(options, reader);
  if (where) selectForFilter(reader, requested, *where);
  const auto cursor = numbersOf(args[2], "the reader's position");
  if (cursor.size() != 1 || !(cursor[0] >= 0)) invalid("the reader's position is not valid");
  reader.setRowGroupIndex(static_cast<uint64_t>(cursor[0]));
  matrix::unique_array table = reader.read();
  if (where) table = filterTable(table.get(), *where, requested);
  restoreSecondsInTable(table.get(), secondsVariables(file));
  out[0] = toOctave(table.get(), translation);
  if (nout > 1) out[1] = mxCreateDoubleScalar(static_cast<double>(reader.getRowGroupIndex()));
}

// A saved reader state goes through the library's own deserialize, which checks it.
void restoreCommand(int nout, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "restore");
  const mxArray* state = args[0];
  if (!mxIsCell(state) || mxGetNumberOfElements(state) != 2) {
    invalid("a reader state is the 1x2 cell that save returns");
  }
  RowGroupParquetReader reader;
  reader.deserialize(toHost(state));
  out[0] = textOfUtf8(ustring_to_utf8(reader.getFilename()));
  if (nout > 1) out[1] = doubleColumnOf(reader.getRowGroups());
}

void statsCommand(int, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "stats");
  const mxArray* options = optionsArgument(count, args, 1);
  const std::u16string file = fileNameOf(args[0]);
  RowGroupParquetReader reader(file, std::vector<double>{});
  const std::vector<std::u16string> known = reader.getVariableNames();
  std::vector<int> indices;
  struct Without {
    std::string variable;
    std::string identifier;
    std::string message;
  };
  std::vector<Without> without;
  if (const auto variables = optionOf(options, "Variables")) {
    for (const auto& name : textListOf(*variables, "Variables")) {
      const auto found = std::find(known.begin(), known.end(), utf8_to_ustring(name));
      if (found == known.end()) unknownVariable(name, known);
      indices.push_back(static_cast<int>(found - known.begin()));
    }
  } else {
    // Every variable that has statistics; the others are listed with the reason, not refused.
    for (size_t i = 0; i < known.size(); ++i) {
      try {
        reader.getStatistics({static_cast<int>(i)});
        indices.push_back(static_cast<int>(i));
      } catch (const foundation::core::except::InterruptException&) {
        throw;
      } catch (const foundation::core::except::IMsgIDException& e) {
        without.push_back({ustring_to_utf8(known[i]), e.identifier(), e.message()});
      }
    }
  }
  std::vector<std::u16string> names;
  std::vector<std::string> utf8Names;
  for (int index : indices) {
    names.push_back(known[index]);
    utf8Names.push_back(ustring_to_utf8(known[index]));
  }

  auto stats = reader.getStatistics(indices);
  dropUnsetDistinctCounts(stats, reader.getRowGroupHeights());
  const std::vector<std::string> seconds = secondsVariables(file);
  restoreSeconds(utf8Names, stats.min.get(), seconds);
  restoreSeconds(utf8Names, stats.max.get(), seconds);
  static const char* kFields[] = {"VariableNames", "HasNullCount", "HasDistinctCount",
                                  "HasMinMax",     "NullCount",    "DistinctCount",
                                  "Min",           "Max",          "WithoutStatistics"};
  mxArray* result = mxCreateStructMatrix(1, 1, sizeof(kFields) / sizeof(kFields[0]), kFields);
  const ToOctaveOptions translation = translationOptions(options);
  mxSetField(result, 0, "VariableNames", cellRowOf(names));
  mxSetField(result, 0, "HasNullCount", toOctave(stats.hasNullCount.get(), translation));
  mxSetField(result, 0, "HasDistinctCount", toOctave(stats.hasDistinctCount.get(), translation));
  mxSetField(result, 0, "HasMinMax", toOctave(stats.hasMinMax.get(), translation));
  mxSetField(result, 0, "NullCount", toOctave(stats.nullCount.get(), translation));
  mxSetField(result, 0, "DistinctCount", toOctave(stats.distinctCount.get(), translation));
  mxSetField(result, 0, "Min", toOctave(stats.min.get(), translation));
  mxSetField(result, 0, "Max", toOctave(stats.max.get(), translation));
  static const char* kWithoutFields[] = {"Variable", "Identifier", "Message"};
  mxArray* withoutStatistics = mxCreateStructMatrix(1, without.size(), 3, kWithoutFields);
  for (size_t i = 0; i < without.size(); ++i) {
    mxSetField(withoutStatistics, i, "Variable", textOfUtf8(without[i].variable));
    mxSetField(withoutStatistics, i, "Identifier", mxCreateString(without[i].identifier.c_str()));
    mxSetField(withoutStatistics, i, "Message", textOfUtf8(without[i].message));
  }
  mxSetField(result, 0, "WithoutStatistics", withoutStatistics);
  out[0] = result;
}

}  // namespace vantro::octave
