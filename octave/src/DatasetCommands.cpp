// Commands over the library's datasets (many Parquet files read as one table): pq_read of
// folders, patterns and lists, the readers behind pq_dataset objects, pq_count's listing of
// files and pq_info's dataset summary.
//
// A pq_dataset object keeps its library reader here between calls, in a table of open
// datasets keyed by a number that the object holds; the object's delete closes it. While any
// dataset is open the gateway stays loaded (mexLock), so that `clear` cannot take the readers
// away from objects that still name them.
#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Commands.hpp"
#include "MexArguments.hpp"
#include "OctaveValues.hpp"
#include "StoredUnits.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Dataset.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/DatasetReader.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Sources.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/plan/DatasetPlan.hpp"

namespace vantro::octave {

namespace {

namespace ds = vantro::io::parquet::core::dataset;

[[noreturn]] void invalid(const std::string& message) {
  throw TranslationError{"VANTRO:octave:InvalidArgument", message};
}

void requireArguments(int count, int wanted, const char* command) {
  if (count < wanted) invalid(std::string(command) + ": too few arguments");
}

const mxArray* optionsArgument(int count, const mxArray* args[], int position) {
  return count > position ? args[position] : nullptr;
}

std::vector<std::string> sourcesOf(const mxArray* value) {
  const auto sources = textListOf(value, "the source");
  if (sources.empty()) invalid("the source names no file, folder or pattern");
  return sources;
}

// A 1x1 struct (partition variable -> type) or an Nx2 cell of names and types; names that
// are not field names (a key such as "event-day") need the cell.
std::vector<std::pair<std::string, std::string>> partitionTypesOf(const mxArray* value) {
  static const char* kForm =
      "PartitionTypes must be a 1x1 struct or an Nx2 cell of names and types";
  std::vector<std::pair<std::string, std::string>> types;
  if (mxIsStruct(value)) {
    if (mxGetNumberOfElements(value) != 1) invalid(kForm);
    for (int i = 0; i < mxGetNumberOfFields(value); ++i) {
      types.emplace_back(mxGetFieldNameByNumber(value, i),
                         lowercase(textOf(mxGetFieldByNumber(value, 0, i), "a partition type")));
    }
    return types;
  }
  if (!mxIsCell(value)) invalid(kForm);
  if (mxIsEmpty(value)) return types;
  if (mxGetNumberOfDimensions(value) != 2 || mxGetN(value) != 2) invalid(kForm);
  const size_t rows = mxGetM(value);
  for (size_t r = 0; r < rows; ++r) {
    const mxArray* name = mxGetCell(value, r);
    const mxArray* type = mxGetCell(value, r + rows);
    if (name == nullptr || type == nullptr || !mxIsChar(name) || !mxIsChar(type)) invalid(kForm);
    types.emplace_back(textOf(name, "a partition variable"),
                       lowercase(textOf(type, "a partition type")));
  }
  return types;
}

ds::DatasetOptions datasetOptionsOf(const mxArray* options) {
  ds::DatasetOptions result;
  if (const auto partitioning = optionOf(options, "Partitioning")) {
    const std::string given = textOf(*partitioning, "Partitioning");
    const std::string choice = lowercase(given);
    if (choice != "hive" && choice != "none") {
      invalid("Partitioning must be \"hive\" or \"none\", not \"" + given + "\"");
    }
    result.partitioning.hive = choice == "hive";
  }
  if (const auto types = optionOf(options, "PartitionTypes")) {
    result.partitioning.types = partitionTypesOf(*types);
    if (!result.partitioning.hive && !result.partitioning.types.empty()) {
      invalid("PartitionTypes needs Partitioning \"hive\": without it there are no partitions");
    }
  }
  if (const auto strict = optionOf(options, "Strict")) result.strict = flagOf(*strict, "Strict");
  if (const auto skip = optionOf(options, "SkipBadFiles")) {
    result.sources.skipBadFiles = flagOf(*skip, "SkipBadFiles");
  }
  return result;
}

// The variables that every file holding them stores as seconds (see StoredUnits.hpp): a
// variable that some file keeps in milliseconds stays in milliseconds.
std::vector<std::string> datasetSecondsVariables(const ds::Dataset& dataset) {
  std::vector<std::vector<std::string>> perFile;
  for (size_t f = 0; f < dataset.fileCount(); ++f) {
    perFile.push_back(secondsVariables(*dataset.file(f).metadata));
  }
  std::vector<std::string> seconds;
  const auto names = dataset.variableNames();
  for (size_t v = 0; v < dataset.fileVariableCount(); ++v) {
    bool held = false;
    bool everywhere = true;
    for (size_t f = 0; f < dataset.fileCount() && everywhere; ++f) {
      if (dataset.file(f).schema->GetFieldIndex(names[v]) < 0) continue;
      held = true;
      everywhere = std::find(perFile[f].begin(), perFile[f].end(), names[v]) != perFile[f].end();
    }
    if (held && everywhere) seconds.push_back(names[v]);
  }
  return seconds;
}

// A dataset with its reader, and how its tables become Octave values.
struct OpenDataset {
  std::shared_ptr<const ds::Dataset> dataset;
  std::unique_ptr<ds::DatasetReader> reader;
  ToOctaveOptions translation;
  std::vector<std::string> seconds;
};

// Options are checked before any footer is read: a misspelt value fails at once, not after
// a walk through a thousand files.
OpenDataset openDataset(const mxArray* sources, const mxArray* options) {
  OpenDataset opened;
  opened.translation = translationOptions(options);
  const ds::DatasetOptions datasetOptions = datasetOptionsOf(options);
  std::vector<std::string> variables;
  if (const auto selected = optionOf(options, "Variables")) {
    variables = textListOf(*selected, "Variables");
    if (variables.empty()) invalid("Variables: a dataset is read with at least one variable");
  }
  std::string where;
  if (const auto text = optionOf(options, "Where")) where = textOf(*text, "Where");
  const auto names = sourcesOf(sources);
  opened.dataset = std::make_shared<const ds::Dataset>(names, datasetOptions);
  opened.reader = std::make_unique<ds::DatasetReader>(opened.dataset, variables, where);
  opened.seconds = datasetSecondsVariables(*opened.dataset);
  return opened;
}

mxArray* tableOf(const OpenDataset& opened, const matrix::unique_array& table) {
  restoreSecondsInTable(table.get(), opened.seconds);
  return toOctave(table.get(), opened.translation);
}

mxArray* cellColumnOf(const std::vector<std::string>& texts) {
  mxArray* out = mxCreateCellMatrix(texts.size(), 1);
  for (size_t i = 0; i < texts.size(); ++i) mxSetCell(out, i, textOfUtf8(texts[i]));
  return out;
}

// The pieces as an Nx2 [file rowgroup], both counted from 1.
mxArray* piecesOf(const std::vector<ds::Piece>& pieces) {
  mxArray* out = mxCreateDoubleMatrix(pieces.size(), 2, mxREAL);
  double* data = mxGetPr(out);
  for (size_t i = 0; i < pieces.size(); ++i) {
    data[i] = static_cast<double>(pieces[i].file + 1);
    data[i + pieces.size()] = pieces[i].rowGroup + 1;
  }
  return out;
}

// What the filter ruled out: File, RowGroup (from 1; 0 for a whole file ruled out by its
// partition values) and Reason, one element each.
mxArray* skippedOf(const ds::Dataset& dataset, const std::vector<ds::SkippedPiece>& skipped) {
  static const char* kFields[] = {"File", "RowGroup", "Reason"};
  mxArray* out = mxCreateStructMatrix(skipped.size(), 1, 3, kFields);
  for (size_t i = 0; i < skipped.size(); ++i) {
    mxSetField(out, i, "File", textOfUtf8(dataset.file(skipped[i].file).path));
    mxSetField(out, i, "RowGroup", mxCreateDoubleScalar(skipped[i].rowGroup + 1));
    mxSetField(out, i, "Reason", textOfUtf8(skipped[i].reason));
  }
  return out;
}

std::vector<std::string> filesOf(const ds::Dataset& dataset) {
  std::vector<std::string> files;
  for (size_t f = 0; f < dataset.fileCount(); ++f) files.push_back(dataset.file(f).path);
  return files;
}

mxArray* summaryOf(const ds::Dataset& dataset) {
  static const char* kFields[] = {"Files",         "NumRows",       "NumRowGroups",
                                  "VariableNames", "VariableTypes", "PartitionVariables"};
  mxArray* out = mxCreateStructMatrix(1, 1, sizeof(kFields) / sizeof(kFields[0]), kFields);
  mxSetField(out, 0, "Files", cellColumnOf(filesOf(dataset)));
  mxSetField(out, 0, "NumRows", mxCreateDoubleScalar(static_cast<double>(dataset.rowCount())));
  mxSetField(out, 0, "NumRowGroups",
             mxCreateDoubleScalar(static_cast<double>(dataset.rowGroupCount())));
  mxSetField(out, 0, "VariableNames", cellRowOf(dataset.variableNames()));
  mxSetField(out, 0, "VariableTypes", cellRowOf(dataset.variableTypes()));
  mxSetField(out, 0, "PartitionVariables", cellRowOf(dataset.partitions().names));
  return out;
}

// The open datasets of pq_dataset objects, by their number.
std::map<double, OpenDataset>& openDatasets() {
  static std::map<double, OpenDataset> open;
  return open;
}

OpenDataset& openedBy(const mxArray* id) {
  const auto numbers = numbersOf(id, "the dataset's number");
  const auto found = numbers.size() == 1 ? openDatasets().find(numbers[0]) : openDatasets().end();
  if (found == openDatasets().end()) invalid("the dataset is not open (it was deleted)");
  return found->second;
}

}  // namespace

// plandataset(sources, n, options): the task texts of a dataset, an n x 1 cell. Partition
// types are not part of a task, so they are not taken here.
void planDatasetCommand(int, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 2, "plandataset");
  const mxArray* options = optionsArgument(count, args, 2);
  const auto numbers = numbersOf(args[1], "N");
  if (numbers.size() != 1 || !(numbers[0] >= 1) || numbers[0] > 1e6 ||
      numbers[0] != static_cast<double>(static_cast<uint64_t>(numbers[0]))) {
    invalid("N must be a whole number from 1 to 1000000");
  }
  if (optionOf(options, "PartitionTypes")) invalid("PartitionTypes is not taken by pq_splits");
  OpenDataset opened = openDataset(args[0], options);
  namespace plan = vantro::io::parquet::core::plan;
  plan::TaskDataset source;
  for (const auto& name : sourcesOf(args[0])) {
    source.sources.push_back(::foundation::unicode::utf8_to_ustring(name));
  }
  const auto datasetOptions = datasetOptionsOf(options);
  source.hive = datasetOptions.partitioning.hive;
  source.strict = datasetOptions.strict;
  std::string where;
  if (const auto text = optionOf(options, "Where")) where = textOf(*text, "Where");
  std::vector<std::string> variables;
  if (const auto selected = optionOf(options, "Variables")) {
    variables = textListOf(*selected, "Variables");
  }
  const auto tasks = plan::planDataset(*opened.reader, source, static_cast<uint64_t>(numbers[0]),
                                       where, variables);
  mxArray* texts = mxCreateCellMatrix(tasks.size(), 1);
  for (size_t k = 0; k < tasks.size(); ++k) {
    mxSetCell(texts, k, textOfUtf8(plan::taskToText(tasks[k])));
  }
  out[0] = texts;
}

mxArray* readDatasetTask(const vantro::io::parquet::core::plan::Task& task,
                         const ToOctaveOptions& translation) {
  OpenDataset opened;
  opened.reader = vantro::io::parquet::core::plan::openDatasetTask(task);
  opened.translation = translation;
  opened.seconds = datasetSecondsVariables(opened.reader->dataset());
  return tableOf(opened, opened.reader->readall());
}

void readDatasetCommand(int nout, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "readdataset");
  OpenDataset opened = openDataset(args[0], optionsArgument(count, args, 1));
  out[0] = tableOf(opened, opened.reader->readall());
  if (nout > 1) out[1] = piecesOf(opened.reader->pieces());
}

void datasetInfoCommand(int, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "datasetinfo");
  const ds::Dataset dataset(sourcesOf(args[0]), datasetOptionsOf(optionsArgument(count, args, 1)));
  out[0] = summaryOf(dataset);
}

void listFilesCommand(int, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "listfiles");
  std::vector<std::string> files;
  for (const auto& file : ds::listSourceFiles(sourcesOf(args[0]), ds::SourceOptions{})) {
    files.push_back(file.path);
  }
  out[0] = cellColumnOf(files);
}

// Returns the dataset's number and its summary with the reader's Pieces and Skipped.
void datasetOpenCommand(int nout, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "datasetopen");
  OpenDataset opened = openDataset(args[0], optionsArgument(count, args, 1));
  static double lastId = 0;
  const double id = ++lastId;
  mxArray* summary = summaryOf(*opened.dataset);
  mxAddField(summary, "Pieces");
  mxSetField(summary, 0, "Pieces", piecesOf(opened.reader->pieces()));
  mxAddField(summary, "Skipped");
  mxSetField(summary, 0, "Skipped", skippedOf(*opened.dataset, opened.reader->skipped()));
  openDatasets().emplace(id, std::move(opened));
  if (openDatasets().size() == 1) mexLock();
  out[0] = mxCreateDoubleScalar(id);
  if (nout > 1) out[1] = summary;
}

// The next piece, and the position after it.
void datasetReadCommand(int nout, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "datasetread");
  OpenDataset& opened = openedBy(args[0]);
  out[0] = tableOf(opened, opened.reader->read());
  if (nout > 1) out[1] = mxCreateDoubleScalar(static_cast<double>(opened.reader->position()));
}

void datasetReadAllCommand(int, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "datasetreadall");
  OpenDataset& opened = openedBy(args[0]);
  out[0] = tableOf(opened, opened.reader->readall());
}

void datasetResetCommand(int, mxArray*[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "datasetreset");
  openedBy(args[0]).reader->reset();
}

void datasetHasDataCommand(int, mxArray* out[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "datasethasdata");
  out[0] = mxCreateLogicalScalar(openedBy(args[0]).reader->hasdata());
}

// Closing a number that is not open does nothing: delete runs on objects whose constructor
// failed too.
void datasetCloseCommand(int, mxArray*[], int count, const mxArray* args[]) {
  requireArguments(count, 1, "datasetclose");
  const auto numbers = numbersOf(args[0], "the dataset's number");
  if (numbers.size() != 1 || openDatasets().erase(numbers[0]) == 0) return;
  if (openDatasets().empty()) mexUnlock();
}

}  // namespace vantro::octave
