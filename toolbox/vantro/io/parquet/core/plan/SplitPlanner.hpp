#pragma once

// Splits the row groups of one file or many into tasks of about equal compressed size, for
// engines that run many workers (MPI ranks, job arrays, Octave workers). The plan depends only
// on the files' footers and the order of the files given, so every process that plans the same
// files gets the same tasks.
#include <cstdint>
#include <string>
#include <vector>

#include "toolbox/vantro/io/parquet/core/plan/Task.hpp"

namespace vantro::io::parquet::core::plan {

// One file as the planner sees it: its name, its version, and the row groups that are still
// candidates (all, or those that pruning kept), in the order they are to be read.
struct PlanFile {
  std::u16string name;  // as the file adapter reports it
  FileFingerprint fingerprint;
  std::vector<int> rowGroups;   // 0-based
  std::vector<uint64_t> bytes;  // compressed bytes of each candidate
  std::vector<uint64_t> rows;   // rows of each candidate
};

// Reads every file's footer, in parallel on the host's threads; every row group of a file is a
// candidate, in footer order. The first file that cannot be opened or is not Parquet ends the
// call with its read error.
std::vector<PlanFile> describeFiles(const std::vector<std::u16string>& files);

// Keeps the candidates of file whose 0-based numbers are listed, in the file's order; numbers
// that are not candidates are ignored.
void keepRowGroups(PlanFile& file, const std::vector<int>& rowGroups);

// count tasks (numbered 1..count) that hold every candidate exactly once. Candidates stay in the
// files' order and each task takes a run of them: a candidate goes to the task in whose share
// of the total compressed bytes its middle byte lies, so no task exceeds its share by more than
// one row group. Tasks are empty where there are fewer row groups than tasks. Throws
// "VANTRO:parquetio:plan:InvalidTask" for a count of 0.
std::vector<Task> planTasks(const std::vector<PlanFile>& files, uint64_t count);

}  // namespace vantro::io::parquet::core::plan
