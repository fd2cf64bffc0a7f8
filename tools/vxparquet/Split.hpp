#pragma once

// Splits of the program's inputs into tasks, for job arrays and MPI launches: the plan command,
// and the task that --split K/N or --split auto picks out of the same plan.
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "toolbox/vantro/io/parquet/core/dataset/Dataset.hpp"
#include "toolbox/vantro/io/parquet/core/plan/SplitPlanner.hpp"
#include "toolbox/vantro/io/parquet/core/plan/Task.hpp"

namespace vxparquet {

// Task `number` (1-based) of `count`.
struct SplitChoice {
  uint64_t number = 1;
  uint64_t count = 1;
};

// "K/N" with 1 <= K <= N, or "auto": K and N from the launcher's environment, in this order:
// a Slurm job array (SLURM_ARRAY_TASK_ID, _MIN, _STEP, _COUNT), Open MPI
// (OMPI_COMM_WORLD_RANK, _SIZE), MPICH and Intel MPI (PMI_RANK, PMI_SIZE), Slurm's srun
// (SLURM_PROCID, SLURM_NTASKS). Throws UsageError for a malformed value and ProgramError
// "NoLauncher" for auto outside any launcher.
SplitChoice parseSplit(const std::string& text);

// The tasks of a plan over files (already expanded): with a filter, the row groups that its
// statistics rule out are in no task.
std::vector<vantro::io::parquet::core::plan::Task> planFiles(
    const std::vector<std::string>& files, uint64_t count, const std::optional<std::string>& where);

// What a plan covers: the sources as the command line names them, how they are read, and the
// selection and filter that every task carries.
struct PlanRequest {
  std::vector<std::string> sources;
  vantro::io::parquet::core::dataset::DatasetOptions options;
  std::optional<std::string> where;
  std::optional<std::vector<std::string>> variables;
};

// The tasks of a plan over the sources. One file on its own is planned as that file; a folder,
// a pattern or several files as one dataset: the filter's partitions and statistics prune
// first, and every task names the dataset, so that its reader reads the files as part of it.
std::vector<vantro::io::parquet::core::plan::Task> planSources(const PlanRequest& request,
                                                               uint64_t count);

// Where --split gets its task. By default each process plans the sources itself (the plan is
// the same everywhere); a launcher that plans once and hands every process its task
// (vxparquet-mpi) installs its own source. Every process of a launch calls it at the same point.
using TaskSource = std::function<vantro::io::parquet::core::plan::Task(const PlanRequest& request,
                                                                       const SplitChoice& choice)>;
void setTaskSource(TaskSource source);
vantro::io::parquet::core::plan::Task taskForSplit(const PlanRequest& request,
                                                   const SplitChoice& choice);

// The row groups (1-based) of each file that one task reads, for the read-side commands.
using FileRowGroups = std::map<std::string, std::vector<double>>;
// The files of a task in its order, with their row groups.
struct TaskInputs {
  std::vector<std::string> files;
  FileRowGroups rowGroups;
};
TaskInputs inputsOfTask(const vantro::io::parquet::core::plan::Task& task);

// The task text in file ('-': standard input; its first line), looked for under root when
// given, with every file checked against its fingerprint.
vantro::io::parquet::core::plan::Task readTask(const std::string& file,
                                               const std::optional<std::string>& root);

// Share K of N of n files, for the commands that work file by file (count, stats): the files
// [first, end) of a run of whole files, the runs as equal in number as can be.
std::pair<size_t, size_t> shareRange(size_t n, const SplitChoice& choice);
std::vector<std::string> shareOf(const std::vector<std::string>& files, const SplitChoice& choice);

// Under a launcher whose processes each take a share (vxparquet-mpi), a command that reduces
// its shares sends its result to rank 0: gather(mine) returns every rank's in rank order on
// rank 0 and nothing on the others. Empty when the program runs on its own; stats then prints
// its share as a whole document, and in a launch as its part of the whole one.
using ResultGather = std::function<std::vector<std::string>(const std::string& mine)>;
void setResultGather(ResultGather gather);
const ResultGather& resultGather();

int runPlan(const std::vector<std::string>& words);

}  // namespace vxparquet
