// Commands that split files into tasks and read one task: pq_splits and pq_read_task.
#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include <arrow/table.h>

#include "Commands.hpp"
#include "MexArguments.hpp"
#include "OctaveValues.hpp"
#include "RowFilter.hpp"
#include "host/converter/Converter.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"
#include "toolbox/vantro/io/parquet/core/plan/SplitPlanner.hpp"

namespace vantro::octave {

namespace {

namespace plan = vantro::io::parquet::core::plan;
using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;
using vantro::io::parquet::core::filter::Expression;

[[noreturn]] void invalid(const std::string& message) {
  throw TranslationError{"VANTRO:octave:InvalidArgument", message};
}

std::vector<std::string> utf8Names(const std::vector<std::u16string>& names) {
  std::vector<std::string> utf8;
  for (const auto& name : names) utf8.push_back(ustring_to_utf8(name));
  return utf8;
}

Expression checkedFilter(const std::string& text, const RowGroupParquetReader& reader) {
  auto where = Expression::parse(text);
  where.check(utf8Names(reader.getVariableNames()), reader.getVariableTypes());
  return where;
}

// One file's part of a task: the listed row groups, the task's variables, filtered.
matrix::unique_array readTaskFile(const plan::TaskFile& file, const plan::Task& task) {
  std::vector<double> rowGroups;
  for (int rowGroup : file.rowGroups) rowGroups.push_back(rowGroup + 1.0);
  RowGroupParquetReader reader(file.name, rowGroups);
  std::optional<std::vector<std::u16string>> requested;
  if (task.variables) {
    const auto known = reader.getVariableNames();
    requested.emplace();
    for (const auto& name : *task.variables) {
      requested->push_back(utf8_to_ustring(name));
      if (std::find(known.begin(), known.end(), requested->back()) == known.end()) {
        std::string list;
        for (const auto& k : utf8Names(known)) list += (list.empty() ? "" : ", ") + k;
        throw TranslationError{"VANTRO:octave:UnknownVariable",
                               "'" + ustring_to_utf8(file.name) + "' has no variable '" + name +
                                   "'. Its variables: " + list + "."};
      }
    }
    reader.setSelectedVariableNames(*requested);
  }
  if (!task.where) return reader.readall();
  const Expression where = checkedFilter(*task.where, reader);
  selectForFilter(reader, requested, where);
  const auto table = reader.readRowGroups(keepPossibleRowGroups(reader, where, rowGroups));
  return filterTable(table.get(), where, requested);
}

// The files' tables as one: they must have the same variables and types.
matrix::unique_array concatenate(std::vector<matrix::unique_array> tables) {
  if (tables.size() == 1) return std::move(tables[0]);
  std::vector<std::shared_ptr<::arrow::Table>> pieces;
  auto fail = [](const ::arrow::Status& status) {
    throw TranslationError{"VANTRO:octave:CannotCombine",
                           "Unable to combine the files of the task: " + status.ToString()};
  };
  for (const auto& table : tables) {
    auto piece = vantro::io::arrow::core::to_arrow_table(table.get());
    if (!piece.ok()) fail(piece.status());
    pieces.push_back(*piece);
  }
  auto joined = ::arrow::ConcatenateTables(pieces);
  if (!joined.ok()) fail(joined.status());
  auto host = vantro::io::arrow::core::to_vantro(*joined);
  if (!host.ok()) fail(host.status());
  return std::move(host).ValueUnsafe();
}

}  // namespace

// plan(files, n, options): the task texts, an n x 1 cell.
void planCommand(int, mxArray* out[], int count, const mxArray* args[]) {
  if (count < 2) invalid("plan: too few arguments");
  std::vector<std::u16string> files;
  for (const auto& name : textListOf(args[0], "SOURCE")) files.push_back(utf8_to_ustring(name));
  const auto numbers = numbersOf(args[1], "N");
  if (numbers.size() != 1 || !(numbers[0] >= 1) || numbers[0] > 1e6 ||
      numbers[0] != static_cast<double>(static_cast<uint64_t>(numbers[0]))) {
    invalid("N must be a whole number from 1 to 1000000");
  }
  const mxArray* options = count > 2 ? args[2] : nullptr;
  auto described = plan::describeFiles(files);
  std::optional<std::string> whereText;
  if (const auto where = optionOf(options, "Where")) whereText = textOf(*where, "Where");
  if (whereText) {
    for (auto& file : described) {
      RowGroupParquetReader reader(file.name, std::vector<double>{});
      std::vector<double> all;
      for (int rowGroup : file.rowGroups) all.push_back(rowGroup + 1.0);
      std::vector<int> kept;
      for (double rowGroup :
           keepPossibleRowGroups(reader, checkedFilter(*whereText, reader), all)) {
        kept.push_back(static_cast<int>(rowGroup) - 1);
      }
      plan::keepRowGroups(file, kept);
    }
  }
  std::optional<std::vector<std::string>> variables;
  if (const auto names = optionOf(options, "Variables"))
    variables = textListOf(*names, "Variables");
  auto tasks = plan::planTasks(described, static_cast<uint64_t>(numbers[0]));
  mxArray* texts = mxCreateCellMatrix(tasks.size(), 1);
  for (size_t k = 0; k < tasks.size(); ++k) {
    tasks[k].variables = variables;
    tasks[k].where = whereText;
    mxSetCell(texts, k, textOfUtf8(plan::taskToText(tasks[k])));
  }
  out[0] = texts;
}

// fingerprint(file): the file's fingerprint as text, "<size> fnv1a64:<hash of the footer>".
void fingerprintCommand(int, mxArray* out[], int count, const mxArray* args[]) {
  if (count < 1) invalid("fingerprint: too few arguments");
  const std::u16string file = fileNameOf(args[0]);
  auto adapter = vantro::io::parquet::core::common::makeReadableFilePtr(file);
  auto fingerprint = plan::fingerprintFile(*adapter);
  vantro::io::parquet::core::common::throwReadExceptIfNotOk(fingerprint.status(),
                                                            adapter->GetFilename());
  out[0] = textOfUtf8(std::to_string(fingerprint->size) + " " +
                      plan::footerHashText(fingerprint->footerHash));
}

// checkfingerprint(file, text): refuses a file whose fingerprint is no longer text.
void checkFingerprintCommand(int, mxArray*[], int count, const mxArray* args[]) {
  if (count < 2) invalid("checkfingerprint: too few arguments");
  const std::string saved = textOf(args[1], "the saved fingerprint");
  const auto space = saved.find(' ');
  plan::TaskFile file;
  file.name = fileNameOf(args[0]);
  if (space == std::string::npos || saved.find_first_not_of("0123456789") != space ||
      !plan::parseFooterHash(saved.substr(space + 1), file.fingerprint.footerHash)) {
    invalid("the saved state's third element is not a fingerprint that save made");
  }
  file.fingerprint.size = std::stoull(saved.substr(0, space));
  plan::Task task;
  task.files.push_back(file);
  plan::checkTaskFiles(task);
}

// task(text, options): the rows of one task as a table; options Root and DatesAs.
void taskCommand(int, mxArray* out[], int count, const mxArray* args[]) {
  if (count < 1) invalid("task: too few arguments");
  const mxArray* options = count > 1 ? args[1] : nullptr;
  std::optional<std::u16string> root;
  if (const auto folder = optionOf(options, "Root"))
    root = utf8_to_ustring(textOf(*folder, "Root"));
  const plan::Task task = plan::taskFromText(textOf(args[0], "TASK"), root);
  plan::checkTaskFiles(task);
  std::vector<matrix::unique_array> tables;
  if (!task.dataset) {
    for (const auto& file : task.files) tables.push_back(readTaskFile(file, task));
  }
  ToOctaveOptions translation;
  if (const auto dates = optionOf(options, "DatesAs")) {
    const std::string choice = textOf(*dates, "DatesAs");
    if (choice != "ticks" && choice != "datenum")
      invalid("DatesAs must be \"ticks\" or \"datenum\"");
    translation.datesAsDatenum = choice == "datenum";
  }
  if (task.dataset) {
    out[0] = readDatasetTask(task, translation);
    return;
  }
  if (tables.empty()) {
    out[0] = mxCreateStructMatrix(1, 1, 0, nullptr);  // a task without row groups
    return;
  }
  out[0] = toOctave(concatenate(std::move(tables)).get(), translation);
}

}  // namespace vantro::octave
