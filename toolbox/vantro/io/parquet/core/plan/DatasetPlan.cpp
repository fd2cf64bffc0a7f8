#include "toolbox/vantro/io/parquet/core/plan/DatasetPlan.hpp"

#include <filesystem>
#include <map>
#include <set>
#include <system_error>

#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/plan/SplitPlanner.hpp"

namespace vantro::io::parquet::core::plan {

using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;

std::string absolutePath(const std::string& name) {
  if (name.find("://") != std::string::npos || name.rfind("file:", 0) == 0) return name;
  std::error_code error;
  const auto absolute = std::filesystem::absolute(name, error);
  return error ? name : absolute.lexically_normal().string();
}

std::vector<Task> planDataset(const dataset::DatasetReader& reader, const TaskDataset& source,
                              uint64_t count, const std::string& where,
                              const std::vector<std::string>& variables) {
  const auto& files = reader.dataset();
  std::vector<std::u16string> names;
  for (size_t f = 0; f < files.fileCount(); ++f) {
    names.push_back(utf8_to_ustring(absolutePath(files.file(f).path)));
  }
  // The fingerprints come from one more read of each tail, on the host's threads.
  auto described = describeFiles(names);
  std::vector<std::vector<int>> kept(described.size());
  for (const auto& piece : reader.pieces()) kept[piece.file].push_back(piece.rowGroup);
  for (size_t f = 0; f < described.size(); ++f) keepRowGroups(described[f], kept[f]);

  TaskDataset absolute = source;
  for (auto& name : absolute.sources) name = utf8_to_ustring(absolutePath(ustring_to_utf8(name)));
  auto tasks = planTasks(described, count);
  for (auto& task : tasks) {
    if (!where.empty()) task.where = where;
    if (!variables.empty()) task.variables = variables;
    task.dataset = absolute;
  }
  return tasks;
}

void keepTaskPieces(dataset::DatasetReader& reader, const Task& task) {
  std::map<std::string, std::set<int>> pieces;
  for (const auto& file : task.files) {
    pieces[absolutePath(ustring_to_utf8(file.name))].insert(file.rowGroups.begin(),
                                                            file.rowGroups.end());
  }
  const auto& files = reader.dataset();
  std::vector<std::string> paths;
  for (size_t f = 0; f < files.fileCount(); ++f) paths.push_back(absolutePath(files.file(f).path));
  reader.keepPieces([&](const dataset::Piece& piece) {
    const auto found = pieces.find(paths[piece.file]);
    return found != pieces.end() && found->second.count(piece.rowGroup) != 0;
  });
}

std::unique_ptr<dataset::DatasetReader> openDatasetTask(const Task& task) {
  dataset::DatasetOptions options;
  std::vector<std::string> sources;
  if (task.dataset) {
    for (const auto& source : task.dataset->sources) sources.push_back(ustring_to_utf8(source));
    options.partitioning.hive = task.dataset->hive;
    options.strict = task.dataset->strict;
  } else {
    for (const auto& file : task.files) sources.push_back(ustring_to_utf8(file.name));
  }
  options.sources.skipBadFiles = true;
  auto files = std::make_shared<const dataset::Dataset>(sources, options);
  auto reader = std::make_unique<dataset::DatasetReader>(
      files, task.variables.value_or(std::vector<std::string>{}), task.where.value_or(""));
  keepTaskPieces(*reader, task);
  return reader;
}

}  // namespace vantro::io::parquet::core::plan
