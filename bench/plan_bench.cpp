// The costs of splitting a dataset into tasks: planning (every footer read, in parallel, and
// the split), the size of a task's text, and restoring a task in a worker (parse the text,
// check every file's fingerprint).
//
//   plan_bench [--files N] [--rows R] [--tasks T] [--keep DIR]
//
// Writes N files of R rows (the read benchmark's eight columns, one row group each) into
// year=<y> folders of 100 files, or uses DIR's files when --keep names a folder that has them
// (and leaves them there for bench/scale). Last line:
//   plan_ms_per_1000_files=<p> task_text_bytes=<b> task_restore_ms=<r>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "BenchFiles.hpp"
#include "BenchUtil.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/plan/SplitPlanner.hpp"

namespace {

namespace fs = std::filesystem;
namespace plan = vantro::io::parquet::core::plan;
using foundation::unicode::utf8_to_ustring;

std::vector<std::u16string> parquetFilesUnder(const std::string& folder) {
  std::vector<std::string> found;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file() && entry.path().extension() == ".parquet") {
      found.push_back(entry.path().string());
    }
  }
  std::sort(found.begin(), found.end());
  std::vector<std::u16string> names;
  for (const auto& name : found) names.push_back(utf8_to_ustring(name));
  return names;
}

void writeDataset(const std::string& folder, long long files, long long rows) {
  for (long long i = 0; i < files; ++i) {
    const std::string year = folder + "/year=" + std::to_string(2000 + i / 100);
    fs::create_directories(year);
    vxbench::writeBenchFile(year + "/part-" + std::to_string(i % 100) + ".parquet", rows, 1);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const long long files = vxbench::intArgument(argc, argv, "--files", 1000);
  const long long rows = vxbench::intArgument(argc, argv, "--rows", 2000);
  const long long taskCount = vxbench::intArgument(argc, argv, "--tasks", 100);
  std::string keep;
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::string(argv[i]) == "--keep") keep = argv[i + 1];
  }
  const std::string folder = keep.empty() ? vxbench::makeTempFolder("plan_bench") : keep;
  if (parquetFilesUnder(folder).empty()) writeDataset(folder, files, rows);
  const auto names = parquetFilesUnder(folder);
  std::printf("files=%zu tasks=%lld\n", names.size(), taskCount);

  std::vector<plan::Task> tasks;
  const auto planning = vxbench::measure(
      [&] { tasks = plan::planTasks(plan::describeFiles(names), taskCount); }, 5);
  vxbench::report("plan", planning);

  size_t largest = 0, total = 0;
  std::vector<std::string> texts;
  for (const auto& task : tasks) {
    texts.push_back(plan::taskToText(task));
    largest = std::max(largest, texts.back().size());
    total += texts.back().size();
  }
  std::printf("task text: mean=%zu bytes largest=%zu bytes\n", total / texts.size(), largest);

  const auto restoring = vxbench::measure(
      [&] { plan::checkTaskFiles(plan::taskFromText(texts[texts.size() / 2])); }, 20);
  vxbench::report("restore one task", restoring);

  if (keep.empty()) vxbench::removeFolder(folder);
  std::printf("plan_ms_per_1000_files=%.1f task_text_bytes=%zu task_restore_ms=%.2f\n",
              planning.median * 1e3 * 1000.0 / static_cast<double>(names.size()), largest,
              restoring.median * 1e3);
  return 0;
}
