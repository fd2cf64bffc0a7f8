#pragma once

// The files of a dataset from what the user named: files, folders (with every subfolder),
// glob patterns and lists of these.
#include <string>
#include <vector>

namespace vantro::io::parquet::core::dataset {

struct SourceOptions {
  // A dangling link, an unreadable file or (found later, by its footer) a non-Parquet file
  // inside a folder or matched by a pattern: skipped with a warning instead of refused.
  bool skipBadFiles = false;
};

struct SourceFile {
  std::string path;  // as it is opened
  // The folder that partition folders are counted from: the folder named, or the part of a
  // pattern before its first wildcard; empty for a file named on its own.
  std::string root;
  // Found in a folder or by a pattern (its faults are the dataset's to report), rather than
  // named on its own (its faults are the reader's).
  bool found = false;
};

// Each source in order, its files sorted by name; a file reached twice is listed once. In
// folders, and wherever a wildcard matches, names starting with '_' or '.' are passed over
// (writers' markers such as _SUCCESS, _metadata, .crc files and unfinished .partial- files),
// folders included. Patterns: '*', '?' and '[...]' within one name, '**' for any number of
// folder levels; a pattern matching a folder takes the folder's files. A name that exists is
// never read as a pattern, and IRIs ("scheme://...") are passed on as files.
// Throws NoMatch for a pattern without files and EmptyFolder for a folder without files;
// DanglingLink and UnreadableFile for such files found in folders or by patterns, unless
// options.skipBadFiles, which warns (SkippedFile) and leaves them out.
std::vector<SourceFile> listSourceFiles(const std::vector<std::string>& sources,
                                        const SourceOptions& options);

// Whether text holds a wildcard ('*', '?' or '[').
bool hasWildcard(const std::string& text);

}  // namespace vantro::io::parquet::core::dataset
