#pragma once

// Plans of datasets: the pieces that a dataset reader keeps (its filter's pruning done) split
// into tasks as files are, each task naming the dataset, so that whoever reads a task reads its
// files as part of the dataset (its variables and types, partition values from the folders).
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "toolbox/vantro/io/parquet/core/dataset/DatasetReader.hpp"
#include "toolbox/vantro/io/parquet/core/plan/Task.hpp"

namespace vantro::io::parquet::core::plan {

// count tasks of the reader's pieces, as planTasks makes them of files (every piece in exactly
// one task, in the reader's order); each task carries source, the reader's filter text where
// and its selection variables (empty: none).
std::vector<Task> planDataset(const dataset::DatasetReader& reader, const TaskDataset& source,
                              uint64_t count, const std::string& where = "",
                              const std::vector<std::string>& variables = {});

// Narrows a reader of the task's dataset to the task's pieces. Files are matched by their
// absolute paths.
void keepTaskPieces(dataset::DatasetReader& reader, const Task& task);

// The reader of a dataset's task: the dataset listed again from the task's sources, with the
// task's variables and filter, narrowed to the task's pieces. Files that cannot be read and are
// no part of the task (they came after the plan) are left out with a warning. The task's files
// should have been checked with checkTaskFiles.
std::unique_ptr<dataset::DatasetReader> openDatasetTask(const Task& task);

// A local path made absolute and normal; IRIs as they are.
std::string absolutePath(const std::string& name);

}  // namespace vantro::io::parquet::core::plan
