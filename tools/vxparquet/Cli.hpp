#pragma once

// Shared pieces of the vxparquet subcommands: argument parsing, output helpers, progress.
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vxparquet {

// A subcommand's arguments: positional words, "--flag" switches and "--name value" (or
// "--name=value") options. "-" alone is a positional word (standard input or output).
class Arguments {
 public:
  // valueOptions names the options that take a value; every other "--word" is a flag. Throws
  // UsageError for an unknown option or a missing value. aliases maps short spellings ("-n")
  // to long ones.
  Arguments(const std::vector<std::string>& words, const std::set<std::string>& valueOptions,
            const std::set<std::string>& flags,
            const std::map<std::string, std::string>& aliases = {});

  const std::vector<std::string>& positional() const { return mPositional; }
  bool flag(const std::string& name) const { return mFlags.count(name) != 0; }
  std::optional<std::string> value(const std::string& name) const;

 private:
  std::vector<std::string> mPositional;
  std::set<std::string> mFlags;
  std::map<std::string, std::string> mValues;
};

// A mistake on the command line; main prints it on one line, points to --help and exits
// with 2.
struct UsageError {
  std::string message;
};

// A failure the program itself detects: identifier "vxparquet:<command>:<key>". main prints
// it like the library's errors and exits with 1.
struct ProgramError {
  std::string identifier;
  std::string message;
};
// The command being run ("read", ...), for identifiers and messages.
const std::string& currentCommand();
void setCurrentCommand(const std::string& command);
[[noreturn]] void failWith(const std::string& key, const std::string& message);

// "vxparquet <command>: error: <identifier>: <text>" on standard error, a context that the
// text repeats ("Unable to read 'x'. Unable to read 'x'. ...") said once.
void reportError(const std::string& identifier, const std::string& message);

// Takes "--threads N" (or "--threads=N") out of a command's words and sets the host's thread
// count from it (0: the default, the CPUs the process may use). Throws UsageError for a bad
// value.
void takeThreadsOption(std::vector<std::string>& words);

// Polls Ctrl-C between pieces of work (row groups, files); throws the host's interrupt.
void checkInterrupt();

// A whole positive number for option; throws UsageError for 0, fractions, signs, text.
uint64_t parseCount(const std::string& text, const std::string& option, bool allowZero = false);
// The option value matched without regard to letter case against the valid spellings, returned
// in its valid spelling; throws UsageError listing the valid ones.
std::string matchChoice(const std::string& value, const std::vector<std::string>& valid,
                        const std::string& option);
// "a, b ,c" -> {"a", "b", "c"}: comma lists with blanks trimmed and empty entries refused.
std::vector<std::string> splitNames(const std::string& text, const std::string& option);

// Splits "a,b,c" at commas (no trimming); an empty text gives an empty list.
std::vector<std::string> splitList(const std::string& text, char separator = ',');
// Parses a list of numbers, "3,1" → {3, 1}; throws UsageError on anything else.
std::vector<double> parseNumberList(const std::string& text, const std::string& option);

// A JSON string literal for UTF-8 text.
std::string jsonString(std::string_view text);

// The columns of the terminal on standard output, or 0 (no limit) when it is not one.
size_t terminalWidth();

// True when standard error is a terminal and standard output is not (progress is shown only
// then).
bool progressWanted();
// "\r<label> i/n, R rows, B MB, E s" on standard error while work goes on, once it has run for half
// a second, and only when standard error is a terminal; finish() clears the line.
class Progress {
 public:
  Progress(std::string label, uint64_t total);
  ~Progress();
  void step(uint64_t done, uint64_t rows = 0, uint64_t bytes = 0);
  void finish();

 private:
  std::string mLabel;
  uint64_t mTotal;
  bool mEnabled;
  bool mShown = false;
  std::chrono::steady_clock::time_point mStart;
};

// Subcommands. Each returns the program's exit code and may throw host exceptions, which main
// reports.
int runCount(const std::vector<std::string>& words);
int runInfo(const std::vector<std::string>& words);
int runRead(const std::vector<std::string>& words);
int runStats(const std::vector<std::string>& words);
int runWrite(const std::vector<std::string>& words);
int runHead(const std::vector<std::string>& words);
int runPlan(const std::vector<std::string>& words);

// The --compression names that this build's Arrow can write, in the order help lists them.
std::vector<std::string> writableCompressions();
// The compression levels a codec takes (lowest, highest); none where it takes no level.
std::optional<std::pair<int, int>> compressionLevelRange(const std::string& codec);

// One line per option and an example, for "vxparquet help COMMAND" and "COMMAND --help"; empty
// for an unknown command.
std::string commandHelp(const std::string& command);

}  // namespace vxparquet
