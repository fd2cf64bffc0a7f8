#include "Cli.hpp"

#include "host/converter/Display.hpp"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace vxparquet {

Arguments::Arguments(const std::vector<std::string>& words,
                     const std::set<std::string>& valueOptions,
                     const std::set<std::string>& flags) {
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word.rfind("--", 0) != 0 || word == "--") {
      mPositional.push_back(word);
    } else if (valueOptions.count(word) != 0) {
      if (i + 1 >= words.size()) throw UsageError{word + " needs a value"};
      mValues[word] = words[++i];
    } else if (flags.count(word) != 0) {
      mFlags.insert(word);
    } else {
      throw UsageError{"unknown option " + word};
    }
  }
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
    char* end = nullptr;
    const double value = std::strtod(part.c_str(), &end);
    if (part.empty() || end == nullptr || *end != '\0') {
      throw UsageError{option + ": '" + part + "' is not a number"};
    }
    numbers.push_back(value);
  }
  return numbers;
}

std::string jsonString(std::string_view text) {
  return vantro::io::arrow::core::display::JsonString(std::string(text));
}

bool progressWanted() { return ::isatty(STDERR_FILENO) != 0; }

Progress::Progress(std::string label, uint64_t total)
    : mLabel(std::move(label)), mTotal(total), mEnabled(progressWanted()) {}

void Progress::step(uint64_t done) {
  if (!mEnabled) return;
  std::fprintf(stderr, "\r%s %llu/%llu", mLabel.c_str(), static_cast<unsigned long long>(done),
               static_cast<unsigned long long>(mTotal));
  std::fflush(stderr);
}

void Progress::finish() {
  if (mEnabled) std::fprintf(stderr, "\n");
}

}  // namespace vxparquet
