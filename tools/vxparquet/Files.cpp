#include "Files.hpp"

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "Cli.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Sources.hpp"

namespace vxparquet {

dataset::DatasetOptions datasetOptions(const Arguments& args) {
  dataset::DatasetOptions options;
  options.strict = args.flag(kStrictFlag);
  options.sources.skipBadFiles = args.flag(kSkipBadFilesFlag);
  if (const auto partitioning = args.value(kPartitioningOption)) {
    options.partitioning.hive =
        matchChoice(*partitioning, {"hive", "none"}, kPartitioningOption) == "hive";
  }
  return options;
}

std::vector<std::string> expandInputs(const std::vector<std::string>& arguments,
                                      bool skipBadFiles) {
  dataset::SourceOptions options;
  options.skipBadFiles = skipBadFiles;
  // One argument at a time: a file named twice is counted or described twice, as asked.
  std::vector<std::string> files;
  for (const auto& argument : arguments) {
    for (auto& file : dataset::listSourceFiles({argument}, options)) {
      files.push_back(std::move(file.path));
    }
  }
  return files;
}

bool namesOneFile(const std::vector<std::string>& arguments) {
  if (arguments.size() != 1) return false;
  std::error_code error;
  const std::string& name = arguments.front();
  if (std::filesystem::is_directory(name, error)) return false;
  return !dataset::hasWildcard(name) || std::filesystem::exists(name, error);
}

void printSkippedPieces(const dataset::DatasetReader& reader) {
  for (const auto& skipped : reader.skipped()) {
    const std::string& file = reader.dataset().file(skipped.file).path;
    if (skipped.rowGroup < 0) {
      std::fprintf(stderr, "  %s skipped: %s\n", file.c_str(), skipped.reason.c_str());
    } else {
      std::fprintf(stderr, "  %s row group %d skipped: %s\n", file.c_str(), skipped.rowGroup + 1,
                   skipped.reason.c_str());
    }
  }
}

}  // namespace vxparquet
