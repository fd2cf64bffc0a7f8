#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vantro::io::parquet::core::info {

// Row-group counts of many files, one per file in input order. The first failure (a file that
// cannot be opened or parsed, an interrupt on the signal thread) ends the call and is rethrown
// unchanged; no partial result is returned.

// Counts the files in parallel on up to the host's thread count, the calling thread among them;
// where the process may start no thread, the calling thread counts them all.
std::vector<uint64_t> getNumRowGroupsAsync(std::vector<std::u16string> files);
// Counts the files one after another on the calling thread.
std::vector<uint64_t> getNumRowGroupsSync(std::vector<std::u16string> files);

}  // namespace vantro::io::parquet::core::info
