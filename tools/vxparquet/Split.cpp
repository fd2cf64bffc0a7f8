// vxparquet plan, and --split: the same plan on every machine, one task each.
#include "Split.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "Cli.hpp"
#include "Files.hpp"
#include "host/except/Exception.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/DatasetReader.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Expression.hpp"
#include "toolbox/vantro/io/parquet/core/plan/DatasetPlan.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace vxparquet {
namespace {

namespace plan = vantro::io::parquet::core::plan;
using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;
using vantro::io::parquet::core::filter::Expression;
using vantro::io::parquet::core::read::RowGroupParquetReader;

std::optional<uint64_t> environmentNumber(const char* name) {
  const char* text = std::getenv(name);
  if (text == nullptr || *text == '\0') return std::nullopt;
  const std::string value(text);
  if (value.size() > 18 || value.find_first_not_of("0123456789") != std::string::npos) {
    failWith("NoLauncher", std::string(name) + " is '" + value + "', not a whole number.");
  }
  return std::stoull(value);
}

SplitChoice checkedChoice(uint64_t number, uint64_t count, const std::string& source) {
  if (count == 0 || number == 0 || number > count) {
    failWith("NoLauncher", source + " gives task " + std::to_string(number) + " of " +
                               std::to_string(count) + ".");
  }
  return {number, count};
}

std::optional<SplitChoice> fromRankVariables(const char* rankName, const char* sizeName) {
  const auto rank = environmentNumber(rankName);
  const auto size = environmentNumber(sizeName);
  if (!rank || !size) return std::nullopt;
  return checkedChoice(*rank + 1, *size, std::string(rankName) + " and " + sizeName);
}

std::optional<SplitChoice> fromSlurmArray() {
  const auto id = environmentNumber("SLURM_ARRAY_TASK_ID");
  const auto count = environmentNumber("SLURM_ARRAY_TASK_COUNT");
  if (!id || !count) return std::nullopt;
  const uint64_t first = environmentNumber("SLURM_ARRAY_TASK_MIN").value_or(0);
  const uint64_t step =
      std::max<uint64_t>(environmentNumber("SLURM_ARRAY_TASK_STEP").value_or(1), 1);
  if (*id < first || (*id - first) % step != 0) {
    failWith("NoLauncher",
             "SLURM_ARRAY_TASK_ID " + std::to_string(*id) + " is not in the array's range.");
  }
  return checkedChoice((*id - first) / step + 1, *count, "The Slurm job array");
}

// The row groups of one file that a filter's statistics cannot rule out (0-based).
std::vector<int> rowGroupsThatMayMatch(const std::string& file, const plan::PlanFile& described,
                                       const std::string& where) {
  RowGroupParquetReader reader(utf8_to_ustring(file), std::vector<double>{});
  std::vector<std::string> names;
  for (const auto& name : reader.getVariableNames()) names.push_back(ustring_to_utf8(name));
  const auto filter = Expression::parse(where);
  filter.check(names, reader.getVariableTypes());
  std::vector<int> indices;
  std::vector<std::string> covered;
  for (const auto& name : filter.variables()) {
    const int index = static_cast<int>(std::find(names.begin(), names.end(), name) - names.begin());
    try {
      reader.getStatistics({index});  // variables without usable statistics decide nothing
      indices.push_back(index);
      covered.push_back(name);
    } catch (const foundation::core::except::IMsgIDException&) {
    }
  }
  const auto choices =
      filter.chooseRowGroups(reader.getStatistics(indices), covered, reader.getRowGroupHeights());
  std::vector<int> kept;
  for (int rowGroup : described.rowGroups) {
    if (static_cast<size_t>(rowGroup) >= choices.size() || choices[rowGroup].read) {
      kept.push_back(rowGroup);
    }
  }
  return kept;
}

TaskSource& taskSource() {
  static TaskSource source = [](const PlanRequest& request, const SplitChoice& choice) {
    return planSources(request, choice.count).at(choice.number - 1);
  };
  return source;
}

// A dataset: the pieces that the filter leaves, planned by the library.
std::vector<plan::Task> planDataset(const PlanRequest& request, uint64_t count) {
  namespace dataset = vantro::io::parquet::core::dataset;
  auto files = std::make_shared<const dataset::Dataset>(request.sources, request.options);
  const dataset::DatasetReader reader(files, request.variables.value_or(std::vector<std::string>{}),
                                      request.where.value_or(""));
  plan::TaskDataset source;
  for (const auto& name : request.sources) source.sources.push_back(utf8_to_ustring(name));
  source.hive = request.options.partitioning.hive;
  source.strict = request.options.strict;
  return plan::planDataset(reader, source, count, request.where.value_or(""),
                           request.variables.value_or(std::vector<std::string>{}));
}

}  // namespace

void setTaskSource(TaskSource source) { taskSource() = std::move(source); }

plan::Task taskForSplit(const PlanRequest& request, const SplitChoice& choice) {
  return taskSource()(request, choice);
}

std::vector<plan::Task> planSources(const PlanRequest& request, uint64_t count) {
  if (!namesOneFile(request.sources)) return planDataset(request, count);
  auto tasks = planFiles(expandInputs(request.sources, request.options.sources.skipBadFiles), count,
                         request.where);
  for (auto& task : tasks) task.variables = request.variables;
  return tasks;
}

std::pair<size_t, size_t> shareRange(size_t n, const SplitChoice& choice) {
  const auto boundary = [&](uint64_t k) {
    return static_cast<size_t>((static_cast<unsigned __int128>(n) * k) / choice.count);
  };
  return {boundary(choice.number - 1), boundary(choice.number)};
}

std::vector<std::string> shareOf(const std::vector<std::string>& files, const SplitChoice& choice) {
  const auto [first, end] = shareRange(files.size(), choice);
  return {files.begin() + static_cast<std::ptrdiff_t>(first),
          files.begin() + static_cast<std::ptrdiff_t>(end)};
}

ResultGather& gatherSlot() {
  static ResultGather gather;
  return gather;
}
void setResultGather(ResultGather gather) { gatherSlot() = std::move(gather); }
const ResultGather& resultGather() { return gatherSlot(); }

SplitChoice parseSplit(const std::string& text) {
  if (text == "auto") {
    if (auto choice = fromSlurmArray()) return *choice;
    if (auto choice = fromRankVariables("OMPI_COMM_WORLD_RANK", "OMPI_COMM_WORLD_SIZE")) {
      return *choice;
    }
    if (auto choice = fromRankVariables("PMI_RANK", "PMI_SIZE")) return *choice;
    if (auto choice = fromRankVariables("SLURM_PROCID", "SLURM_NTASKS")) return *choice;
    failWith("NoLauncher",
             "--split auto found no job array or MPI launch (SLURM_ARRAY_TASK_ID, "
             "OMPI_COMM_WORLD_RANK, PMI_RANK, SLURM_PROCID); use --split K/N.");
  }
  const auto slash = text.find('/');
  if (slash == std::string::npos) throw UsageError{"--split takes K/N or auto"};
  const uint64_t number = parseCount(text.substr(0, slash), "--split");
  const uint64_t count = parseCount(text.substr(slash + 1), "--split");
  if (number > count) throw UsageError{"--split K/N needs K from 1 to N"};
  return {number, count};
}

std::vector<plan::Task> planFiles(const std::vector<std::string>& files, uint64_t count,
                                  const std::optional<std::string>& where) {
  std::vector<std::u16string> names;
  for (const auto& file : files) names.push_back(utf8_to_ustring(file));
  auto described = plan::describeFiles(names);
  if (where) {
    for (size_t i = 0; i < files.size(); ++i) {
      checkInterrupt();
      plan::keepRowGroups(described[i], rowGroupsThatMayMatch(files[i], described[i], *where));
    }
  }
  auto tasks = plan::planTasks(described, count);
  for (auto& task : tasks) task.where = where;
  return tasks;
}

TaskInputs inputsOfTask(const plan::Task& task) {
  TaskInputs inputs;
  for (const auto& file : task.files) {
    const std::string name = ustring_to_utf8(file.name);
    if (inputs.rowGroups.count(name) == 0) inputs.files.push_back(name);
    for (int rowGroup : file.rowGroups) inputs.rowGroups[name].push_back(rowGroup + 1.0);
  }
  return inputs;
}

plan::Task readTask(const std::string& file, const std::optional<std::string>& root) {
  std::string text;
  if (file == "-") {
    char buffer[65536];
    while (std::fgets(buffer, sizeof buffer, stdin) != nullptr) {
      text += buffer;
      if (!text.empty() && text.back() == '\n') break;
    }
  } else {
    std::FILE* input = std::fopen(file.c_str(), "rb");
    if (input == nullptr) failWith("TaskNotFound", "Unable to open the task file '" + file + "'.");
    char buffer[65536];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, input)) > 0) text.append(buffer, got);
    std::fclose(input);
  }
  std::optional<std::u16string> newRoot;
  if (root) newRoot = utf8_to_ustring(*root);
  auto task = plan::taskFromText(text, newRoot);
  plan::checkTaskFiles(task);
  return task;
}

int runPlan(const std::vector<std::string>& words) {
  const Arguments args(words, {"--tasks", "--where", "--vars", kPartitioningOption},
                       {"--recursive", kSkipBadFilesFlag, kStrictFlag}, {{"-n", "--tasks"}});
  if (args.positional().empty()) throw UsageError{"plan needs at least one FILE"};
  const auto countText = args.value("--tasks");
  if (!countText) throw UsageError{"plan needs -n N, the number of tasks"};
  const uint64_t count = parseCount(*countText, "-n");
  if (count > 1000000) throw UsageError{"-n: at most 1000000 tasks"};
  PlanRequest request{args.positional(), datasetOptions(args), args.value("--where"), {}};
  if (auto vars = args.value("--vars")) request.variables = splitNames(*vars, "--vars");
  for (const auto& task : planSources(request, count)) {
    std::printf("%s\n", plan::taskToText(task).c_str());
  }
  return 0;
}

}  // namespace vxparquet
