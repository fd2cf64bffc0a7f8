#include "Files.hpp"

#include <glob.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "Cli.hpp"

namespace vxparquet {

namespace {

namespace fs = std::filesystem;

bool isPattern(const std::string& text) {
  return text.find_first_of("*?[") != std::string::npos && text.rfind("file:", 0) != 0;
}

std::vector<std::string> globMatches(const std::string& pattern) {
  glob_t matches{};
  std::vector<std::string> files;
  if (::glob(pattern.c_str(), 0, nullptr, &matches) == 0) {
    for (size_t i = 0; i < matches.gl_pathc; ++i) files.emplace_back(matches.gl_pathv[i]);
  }
  ::globfree(&matches);
  std::sort(files.begin(), files.end());
  return files;
}

template <class Iterator>
void collectParquet(const std::string& folder, std::vector<std::string>& files) {
  std::error_code error;
  for (Iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    std::error_code ignored;
    if (it->path().extension() == ".parquet" && it->is_regular_file(ignored)) {
      files.push_back(it->path().string());
    }
  }
  if (error) failWith("CannotListFolder", "Unable to list '" + folder + "': " + error.message());
}

}  // namespace

std::vector<std::string> expandInputs(const std::vector<std::string>& arguments, bool recursive) {
  std::vector<std::string> files;
  for (const auto& argument : arguments) {
    std::error_code error;
    std::vector<std::string> found;
    if (isPattern(argument) && !fs::exists(argument, error)) {
      found = globMatches(argument);
      if (found.empty()) failWith("NoFiles", "No file matches '" + argument + "'.");
    } else if (fs::is_directory(argument, error)) {
      if (recursive) {
        collectParquet<fs::recursive_directory_iterator>(argument, found);
      } else {
        collectParquet<fs::directory_iterator>(argument, found);
      }
      std::sort(found.begin(), found.end());
      if (found.empty())
        failWith("NoFiles", "The folder '" + argument + "' holds no *.parquet file.");
    } else {
      found.push_back(argument);
    }
    files.insert(files.end(), found.begin(), found.end());
  }
  return files;
}

}  // namespace vxparquet
