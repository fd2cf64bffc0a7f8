#pragma once

// Shared pieces of the vxparquet subcommands: argument parsing, output helpers, progress.
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace vxparquet {

// A subcommand's arguments: positional words, "--flag" switches and "--name value" options.
class Arguments {
 public:
  // valueOptions names the options that take a value; every other "--word" is a flag. Throws
  // UsageError for an unknown option or a missing value.
  Arguments(const std::vector<std::string>& words, const std::set<std::string>& valueOptions,
            const std::set<std::string>& flags);

  const std::vector<std::string>& positional() const { return mPositional; }
  bool flag(const std::string& name) const { return mFlags.count(name) != 0; }
  std::optional<std::string> value(const std::string& name) const;

 private:
  std::vector<std::string> mPositional;
  std::set<std::string> mFlags;
  std::map<std::string, std::string> mValues;
};

// A mistake on the command line; main prints it with the usage text and exits with 2.
struct UsageError {
  std::string message;
};

// Splits "a,b,c" at commas (no trimming); an empty text gives an empty list.
std::vector<std::string> splitList(const std::string& text, char separator = ',');
// Parses a list of numbers, "3,1" → {3, 1}; throws UsageError on anything else.
std::vector<double> parseNumberList(const std::string& text, const std::string& option);

// A JSON string literal for UTF-8 text.
std::string jsonString(std::string_view text);

// True when standard error is a terminal (progress is shown only then).
bool progressWanted();
// "\r<label> i/n" on standard error while work goes on; finish() ends the line.
class Progress {
 public:
  Progress(std::string label, uint64_t total);
  void step(uint64_t done);
  void finish();

 private:
  std::string mLabel;
  uint64_t mTotal;
  bool mEnabled;
};

// Subcommands. Each returns the program's exit code and may throw host exceptions, which main
// reports.
int runCount(const std::vector<std::string>& words);
int runInfo(const std::vector<std::string>& words);
int runRead(const std::vector<std::string>& words);
int runStats(const std::vector<std::string>& words);
int runWrite(const std::vector<std::string>& words);

}  // namespace vxparquet
