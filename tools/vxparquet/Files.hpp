#pragma once

// Command-line file arguments: files, folders and quoted glob patterns.
#include <string>
#include <vector>

namespace vxparquet {

// Each argument as it names files: a glob pattern ("*", "?" or "[") its matches, sorted; a
// folder its *.parquet files, sorted (in subfolders too when recursive); anything else itself
// (a file name or an IRI). Throws ProgramError "NoFiles" for a pattern or folder without
// files.
std::vector<std::string> expandInputs(const std::vector<std::string>& arguments, bool recursive);

}  // namespace vxparquet
