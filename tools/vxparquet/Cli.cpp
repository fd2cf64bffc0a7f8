#include "Cli.hpp"

#include "host/converter/Display.hpp"
#include "host/services/Interrupts.hpp"
#include "host/services/Services.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace vxparquet {

Arguments::Arguments(const std::vector<std::string>& words,
                     const std::set<std::string>& valueOptions, const std::set<std::string>& flags,
                     const std::map<std::string, std::string>& aliases) {
  bool optionsEnded = false;
  for (size_t i = 0; i < words.size(); ++i) {
    std::string word = words[i];
    if (optionsEnded || word == "-" || word.empty() || word[0] != '-') {
      mPositional.push_back(word);
      continue;
    }
    if (word == "--") {
      optionsEnded = true;
      continue;
    }
    const auto alias = aliases.find(word);
    if (alias != aliases.end()) word = alias->second;
    std::optional<std::string> inlineValue;
    const size_t equals = word.find('=');
    if (word.rfind("--", 0) == 0 && equals != std::string::npos) {
      inlineValue = word.substr(equals + 1);
      word = word.substr(0, equals);
    }
    if (valueOptions.count(word) != 0) {
      if (!inlineValue && i + 1 >= words.size()) throw UsageError{word + " needs a value"};
      mValues[word] = inlineValue ? *inlineValue : words[++i];
    } else if (flags.count(word) != 0 && !inlineValue) {
      mFlags.insert(word);
    } else if (flags.count(word) != 0) {
      throw UsageError{word + " takes no value"};
    } else {
      throw UsageError{"unknown option " + word};
    }
  }
}

namespace {
std::string& commandSlot() {
  static std::string command;
  return command;
}
std::string lowerCase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}
}  // namespace

const std::string& currentCommand() { return commandSlot(); }
void setCurrentCommand(const std::string& command) { commandSlot() = command; }

void failWith(const std::string& key, const std::string& message) {
  throw ProgramError{"vxparquet:" + currentCommand() + ":" + key, message};
}

namespace {
std::string withoutRepeatedContext(const std::string& message) {
  const size_t end = message.find(". ");
  if (end == std::string::npos) return message;
  const std::string first = message.substr(0, end + 2);
  if (message.compare(end + 2, first.size(), first) == 0) {
    return first + message.substr(end + 2 + first.size());
  }
  return message;
}
}  // namespace

void reportError(const std::string& identifier, const std::string& message) {
  std::fprintf(stderr, "vxparquet %s: error: %s: %s\n", currentCommand().c_str(),
               identifier.c_str(), withoutRepeatedContext(message).c_str());
}

void checkInterrupt() { utInterruptState::ThrowIfInterruptPending(); }

uint64_t parseCount(const std::string& text, const std::string& option, bool allowZero) {
  uint64_t value = 0;
  bool valid = !text.empty() && text.size() <= 19;
  for (char c : text) valid = valid && c >= '0' && c <= '9';
  if (valid) value = std::stoull(text);
  if (!valid || (value == 0 && !allowZero)) {
    throw UsageError{option + ": '" + text + "' is not a whole number" +
                     (allowZero ? "" : " of at least 1")};
  }
  return value;
}

std::string matchChoice(const std::string& value, const std::vector<std::string>& valid,
                        const std::string& option) {
  std::string list;
  for (const auto& choice : valid) {
    if (lowerCase(choice) == lowerCase(value)) return choice;
    list += (list.empty() ? "" : ", ") + choice;
  }
  throw UsageError{option + ": '" + value + "' is not one of " + list};
}

std::vector<std::string> splitNames(const std::string& text, const std::string& option) {
  std::vector<std::string> names;
  for (auto part : splitList(text)) {
    const size_t first = part.find_first_not_of(" \t");
    const size_t last = part.find_last_not_of(" \t");
    part = first == std::string::npos ? std::string() : part.substr(first, last - first + 1);
    if (part.empty()) throw UsageError{option + ": empty name in '" + text + "'"};
    if (std::find(names.begin(), names.end(), part) != names.end()) {
      throw UsageError{option + ": '" + part + "' is named twice"};
    }
    names.push_back(part);
  }
  if (names.empty()) throw UsageError{option + " needs at least one name"};
  return names;
}

std::optional<std::string> Arguments::value(const std::string& name) const {
  const auto it = mValues.find(name);
  if (it == mValues.end()) return std::nullopt;
  return it->second;
}

std::vector<std::string> splitList(const std::string& text, char separator) {
  std::vector<std::string> parts;
  if (text.empty()) return parts;
  size_t start = 0;
  while (true) {
    const size_t end = text.find(separator, start);
    parts.push_back(text.substr(start, end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return parts;
}

std::vector<double> parseNumberList(const std::string& text, const std::string& option) {
  std::vector<double> numbers;
  for (const auto& part : splitList(text)) {
    std::string trimmed = part;
    trimmed.erase(0, trimmed.find_first_not_of(' '));
    trimmed.erase(trimmed.find_last_not_of(' ') + 1);
    numbers.push_back(static_cast<double>(parseCount(trimmed, option, true)));
  }
  if (numbers.empty()) throw UsageError{option + " needs at least one number"};
  return numbers;
}

std::string jsonString(std::string_view text) {
  return vantro::io::arrow::core::display::JsonString(std::string(text));
}

size_t terminalWidth() {
  winsize size{};
  if (::isatty(STDOUT_FILENO) == 0) return 0;
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}

// Progress would tear the data's lines apart when both go to the same terminal: it is shown
// only while the data goes elsewhere (a file, a pipe).
bool progressWanted() { return ::isatty(STDERR_FILENO) != 0 && ::isatty(STDOUT_FILENO) == 0; }

Progress::Progress(std::string label, uint64_t total)
    : mLabel(std::move(label)),
      mTotal(total),
      mEnabled(progressWanted()),
      mStart(std::chrono::steady_clock::now()) {}

Progress::~Progress() { finish(); }

void Progress::step(uint64_t done, uint64_t rows, uint64_t bytes) {
  if (!mEnabled) return;
  const double elapsed =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
  if (elapsed < 0.5) return;
  std::string line = "\r" + mLabel + " " + std::to_string(done) + "/" + std::to_string(mTotal);
  if (rows > 0) line += ", " + std::to_string(rows) + " rows";
  char seconds[32];
  if (bytes > 0) {
    std::snprintf(seconds, sizeof seconds, ", %.1f MB", static_cast<double>(bytes) / 1e6);
    line += seconds;
  }
  std::snprintf(seconds, sizeof seconds, ", %.1f s", elapsed);
  line += seconds;
  std::fputs(line.c_str(), stderr);
  std::fflush(stderr);
  mShown = true;
}

void Progress::finish() {
  if (mShown) std::fputs("\r\033[K", stderr);
  mShown = false;
}

// "--threads N" (or "--threads=N"), taken by every command: the host's thread count for
// Arrow's pool, the conversions and counting. 0 restores the default (the CPUs the process may
// use). Removed from words before the command reads them.
void takeThreadsOption(std::vector<std::string>& words) {
  for (size_t i = 0; i < words.size(); ++i) {
    if (words[i] == "--") return;
    std::optional<std::string> value;
    size_t taken = 1;
    if (words[i] == "--threads") {
      if (i + 1 >= words.size()) throw UsageError{"--threads needs a value"};
      value = words[i + 1];
      taken = 2;
    } else if (words[i].rfind("--threads=", 0) == 0) {
      value = words[i].substr(10);
    }
    if (!value) continue;
    const uint64_t count = parseCount(*value, "--threads", /*allowZero=*/true);
    if (count > 65536) throw UsageError{"--threads takes at most 65536"};
    foundation::services::setNumComputationalThreads(static_cast<int64_t>(count));
    words.erase(words.begin() + static_cast<std::ptrdiff_t>(i),
                words.begin() + static_cast<std::ptrdiff_t>(i + taken));
    --i;
  }
}

}  // namespace vxparquet
