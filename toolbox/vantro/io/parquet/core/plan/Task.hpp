#pragma once

// A task: some row groups of some files, as a text that can travel to another process or
// machine (JSON on one line). Files are named relative to a root folder, so that the data can
// be mounted elsewhere, and carry the fingerprint they had when the task was planned: a task is
// never read against another version of a file.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "toolbox/vantro/io/parquet/core/plan/Fingerprint.hpp"

namespace vantro::io::parquet::core::plan {

struct TaskFile {
  std::u16string name;  // absolute, or an IRI
  FileFingerprint fingerprint;
  std::vector<int> rowGroups;  // 0-based, in reading order
};

// The dataset a task's files belong to: whoever reads the task reads them as part of it (the
// dataset's variables and partition folders), not as files on their own.
struct TaskDataset {
  std::vector<std::u16string> sources;  // folders, patterns or files, as planned
  bool hive = true;                     // key=value folders are variables
  bool strict = false;                  // every file alike
};

struct Task {
  uint64_t number = 0;  // 1-based
  uint64_t count = 0;
  std::vector<TaskFile> files;
  uint64_t bytes = 0;  // compressed bytes of its row groups
  uint64_t rows = 0;
  // What the planner was asked for, so that whoever reads the task reads the same rows.
  std::optional<std::vector<std::string>> variables;
  std::optional<std::string> where;
  std::optional<TaskDataset> dataset;
};

// The text of a task, one line of JSON:
//   {"task":1,"tasks":4,"root":"/data/sales","bytes":..,"rows":..,
//    "files":[{"path":"year=2024/part-0.parquet","size":..,"footer":"fnv1a64:..","row_groups":[1,2]}],
//    "variables":["a","b"],"where":"a > 1",
//    "dataset":{"sources":["sales"],"partitioning":"hive","strict":false}}
// root is the deepest folder that holds every file and the dataset's sources; row groups are
// numbered from 1. Names that are IRIs of another scheme than "file" are kept whole, with an
// empty root.
std::string taskToText(const Task& task);

// Reads a task text. With newRoot, the files are looked for under that folder instead of the
// task's root. Throws "VANTRO:parquetio:plan:InvalidTask" for a text that is not a task.
Task taskFromText(const std::string& text, const std::optional<std::u16string>& newRoot = {});

// Opens each file of the task and compares its fingerprint; throws
// "VANTRO:parquetio:plan:FileChanged" naming the first file that differs, and the file's own
// read error for one that cannot be opened.
void checkTaskFiles(const Task& task);

}  // namespace vantro::io::parquet::core::plan
