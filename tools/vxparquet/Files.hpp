#pragma once

// Command-line file arguments: files, folders and quoted glob patterns, as the library's
// datasets list them.
#include <string>
#include <vector>

#include "toolbox/vantro/io/parquet/core/dataset/DatasetReader.hpp"

namespace vxparquet {

class Arguments;
namespace dataset = vantro::io::parquet::core::dataset;

// The options every command that reads many files takes: "--partitioning none|hive",
// "--strict" (all files alike: same variables, order and types) and "--skip-bad-files".
inline constexpr const char* kPartitioningOption = "--partitioning";
inline constexpr const char* kStrictFlag = "--strict";
inline constexpr const char* kSkipBadFilesFlag = "--skip-bad-files";
dataset::DatasetOptions datasetOptions(const Arguments& args);

// Each argument as it names files, in the library's way: a folder its files with those of every
// subfolder, a pattern ('*', '?', '[...]', '**') its matches, sorted, names starting with '_'
// or '.' passed over; anything else itself (a file name or an IRI). Throws the library's
// NoMatch and EmptyFolder, and DanglingLink or UnreadableFile unless skipBadFiles.
std::vector<std::string> expandInputs(const std::vector<std::string>& arguments,
                                      bool skipBadFiles = false);

// True when the arguments name exactly one file on its own (neither a folder nor a pattern):
// it is read as that file, without the dataset's listing and schema rules.
bool namesOneFile(const std::vector<std::string>& arguments);

// For --explain, on standard error: each file and row group the reader's filter ruled out
// without reading it, and why.
void printSkippedPieces(const dataset::DatasetReader& reader);

}  // namespace vxparquet
