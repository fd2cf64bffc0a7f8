#include "toolbox/vantro/io/parquet/core/dataset/Sources.hpp"

#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>

#include "toolbox/vantro/io/parquet/core/dataset/Errors.hpp"

namespace vantro::io::parquet::core::dataset {

namespace {

namespace fs = std::filesystem;

bool isHidden(const std::string& name) {
  return !name.empty() && (name[0] == '_' || name[0] == '.');
}

bool isIRI(const std::string& text) {
  return text.find("://") != std::string::npos || text.rfind("file:", 0) == 0;
}

// Collects the files of one source, checking what a folder or pattern turned up.
class Collector {
 public:
  explicit Collector(const SourceOptions& options) : mOptions(options) {}

  void addFolder(const fs::path& folder, const std::string& root) {
    std::error_code error;
    std::vector<std::string> files;
    for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end;
         it.increment(error)) {
      const std::string name = it->path().filename().string();
      std::error_code ignored;
      if (isHidden(name)) {
        if (it->is_directory(ignored)) it.disable_recursion_pending();
        continue;
      }
      if (it->is_directory(ignored)) continue;
      files.push_back(it->path().string());
    }
    if (error) {
      common::throwException<msg::UnreadableFile>(folder.string(), error.message());
    }
    std::sort(files.begin(), files.end());
    for (const auto& file : files) addFound(file, root);
  }

  // A file found in a folder or by a pattern: a link to nothing or a file that cannot be read
  // is refused or skipped here; whether it is Parquet is found when its footer is read.
  void addFound(const std::string& file, const std::string& root) {
    std::error_code error;
    const auto status = fs::symlink_status(file, error);
    if (fs::is_symlink(status) && !fs::exists(file, error)) {
      std::error_code ignored;
      const std::string target = fs::read_symlink(file, ignored).string();
      if (!mOptions.skipBadFiles) common::throwException<msg::DanglingLink>(file, target);
      warnSkippedFile(file, "a symbolic link to '" + target + "', which does not exist");
      return;
    }
    if (::access(file.c_str(), R_OK) != 0) {
      const std::string reason = std::strerror(errno);
      if (!mOptions.skipBadFiles) common::throwException<msg::UnreadableFile>(file, reason);
      warnSkippedFile(file, reason);
      return;
    }
    add(SourceFile{file, root, true});
  }

  void add(SourceFile file) {
    if (mSeen.insert(file.path).second) mFiles.push_back(std::move(file));
  }

  size_t size() const { return mFiles.size(); }
  std::vector<SourceFile> take() { return std::move(mFiles); }

 private:
  const SourceOptions& mOptions;
  std::vector<SourceFile> mFiles;
  std::set<std::string> mSeen;
};

std::vector<std::string> splitPath(const std::string& text) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= text.size()) {
    const size_t slash = text.find('/', start);
    const size_t end = slash == std::string::npos ? text.size() : slash;
    if (end > start) parts.push_back(text.substr(start, end - start));
    if (slash == std::string::npos) break;
    start = slash + 1;
  }
  return parts;
}

// Matches the pattern's parts from `part` on below folder, adding files and folders matched.
class PatternMatcher {
 public:
  PatternMatcher(std::vector<std::string> parts, std::string root, Collector& collector)
      : mParts(std::move(parts)), mRoot(std::move(root)), mCollector(collector) {}

  void match(const fs::path& folder, size_t part) {
    const bool last = part + 1 == mParts.size();
    const std::string& pattern = mParts[part];
    std::error_code error;
    if (pattern == "**") {
      if (last) {
        if (fs::is_directory(folder, error)) mMatched.emplace_back(folder.string(), true);
        return;
      }
      match(folder, part + 1);  // no level at all
      for (const auto& sub : subfolders(folder)) match(sub, part);
      return;
    }
    if (!hasWildcard(pattern)) {
      const fs::path next = folder / pattern;
      if (last) {
        if (fs::exists(fs::symlink_status(next, error))) {
          mMatched.emplace_back(next.string(), fs::is_directory(next, error));
        }
      } else if (fs::is_directory(next, error)) {
        match(next, part + 1);
      }
      return;
    }
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
      entries.push_back(*it);
    }
    std::sort(entries.begin(), entries.end());
    for (const auto& entry : entries) {
      const std::string name = entry.path().filename().string();
      // A wildcard never reaches a hidden name; a pattern that spells out the '_' or '.' does.
      if (isHidden(name) && pattern[0] != name[0]) continue;
      if (::fnmatch(pattern.c_str(), name.c_str(), FNM_PERIOD) != 0) continue;
      std::error_code ignored;
      const bool folderEntry = entry.is_directory(ignored);
      if (last) {
        mMatched.emplace_back(entry.path().string(), folderEntry);
      } else if (folderEntry) {
        match(entry.path(), part + 1);
      }
    }
  }

  // What matched, in order: files, and folders whose files are taken.
  void collect() {
    for (const auto& [path, folder] : mMatched) {
      if (folder) {
        mCollector.addFolder(path, mRoot);
      } else {
        mCollector.addFound(path, mRoot);
      }
    }
  }

 private:
  static std::vector<fs::path> subfolders(const fs::path& folder) {
    std::vector<fs::path> found;
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
      std::error_code ignored;
      if (!isHidden(it->path().filename().string()) && it->is_directory(ignored)) {
        found.push_back(it->path());
      }
    }
    std::sort(found.begin(), found.end());
    return found;
  }

  std::vector<std::string> mParts;
  std::string mRoot;
  Collector& mCollector;
  std::vector<std::pair<std::string, bool>> mMatched;
};

void addPattern(const std::string& pattern, Collector& collector) {
  const bool absolute = !pattern.empty() && pattern[0] == '/';
  std::vector<std::string> parts = splitPath(pattern);
  // The folder before the first wildcard is where matching starts and partitions are counted.
  fs::path base = absolute ? fs::path("/") : fs::path(".");
  std::string root = absolute ? "/" : "";
  size_t first = 0;
  while (first + 1 < parts.size() && !hasWildcard(parts[first])) {
    base /= parts[first];
    root += (root.empty() || root == "/" ? "" : "/") + parts[first];
    ++first;
  }
  parts.erase(parts.begin(), parts.begin() + static_cast<std::ptrdiff_t>(first));
  const size_t before = collector.size();
  if (!parts.empty()) {
    PatternMatcher matcher(parts, root.empty() ? "." : root, collector);
    matcher.match(base, 0);
    matcher.collect();
  }
  if (collector.size() == before) common::throwException<msg::NoMatch>(pattern);
}

// Paths found from "./x" are shown as "x", as the user wrote them.
std::string withoutDotSlash(std::string path) {
  while (path.rfind("./", 0) == 0) path.erase(0, 2);
  return path;
}

}  // namespace

bool hasWildcard(const std::string& text) { return text.find_first_of("*?[") != std::string::npos; }

std::vector<SourceFile> listSourceFiles(const std::vector<std::string>& sources,
                                        const SourceOptions& options) {
  Collector collector(options);
  for (const auto& source : sources) {
    std::error_code error;
    if (isIRI(source)) {
      collector.add(SourceFile{source, "", false});
    } else if (fs::is_directory(source, error)) {
      const size_t before = collector.size();
      collector.addFolder(source, source);
      if (collector.size() == before) common::throwException<msg::EmptyFolder>(source);
    } else if (hasWildcard(source) && !fs::exists(fs::symlink_status(source, error))) {
      addPattern(source, collector);
    } else {
      collector.add(SourceFile{source, "", false});
    }
  }
  auto files = collector.take();
  for (auto& file : files) {
    if (file.found) {
      file.path = withoutDotSlash(file.path);
      file.root = withoutDotSlash(file.root);
    }
  }
  return files;
}

}  // namespace vantro::io::parquet::core::dataset
