#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

#include "host/unicode/ustring.hpp"

// The host's diagnostic logger. Severities are single bits; a process-wide mask says which are
// formed at all. The mask starts empty (logging off) unless the environment variable
// VXPARQUET_LOG names one: "VXPARQUET_LOG=<mask>[:<file>]", the mask in decimal or 0x-hex, or
// "all"; without a file, records go to standard error.
namespace foundation::log {

namespace severity {
inline constexpr unsigned kFile = 2;    // file names being opened
inline constexpr unsigned kDetail = 4;  // step-by-step detail
inline constexpr unsigned kConfig = 8;  // configuration choices (thread counts, offsets)
inline constexpr unsigned kError = 16;  // exceptions caught
inline constexpr unsigned kEntry = 32;  // function entry
inline constexpr unsigned kExit = 64;   // function exit
inline constexpr unsigned kVerbose = 128;
inline constexpr unsigned kAll = 0xFE;
}  // namespace severity

unsigned mask();
void setMask(unsigned mask);
// Sends records to a file (appending), or to standard error when path is empty.
void setOutput(const std::string& path);
// Reads VXPARQUET_LOG; called once on first use of any logger, callable again after a change.
void configureFromEnvironment();

// Every record, as formed: severity, indentation depth and text. Used by tests; one capture at
// a time, and capture(nullptr) ends it.
using CaptureFunction = std::function<void(unsigned severity, int indent, std::string_view text)>;
void capture(CaptureFunction fn);

namespace detail {
inline void append(std::ostringstream& out, std::u16string_view text) {
  out << unicode::ustring_to_utf8(text);
}
inline void append(std::ostringstream& out, const std::u16string& text) {
  out << unicode::ustring_to_utf8(text);
}
inline void append(std::ostringstream& out, const char16_t* text) {
  out << unicode::ustring_to_utf8(text);
}
template <class T>
void append(std::ostringstream& out, const T& value) {
  out << value;
}
}  // namespace detail

template <class Char>
class basic_diagnostic_logger {
 public:
  explicit basic_diagnostic_logger(std::string channel);

  bool enabled(unsigned level) const { return (mask() & level) != 0; }
  // True when the core forms records at all.
  bool enabled() const { return mask() != 0; }

  void write(unsigned level, std::string_view text) const;

  // Writes the parts, streamed one after another, when level is enabled. UTF-16 parts are
  // converted to UTF-8.
  template <class... Parts>
  void log(unsigned level, const Parts&... parts) const {
    if (!enabled(level)) return;
    std::ostringstream out;
    (detail::append(out, parts), ...);
    write(level, out.str());
  }

  void indent() { mIndent.fetch_add(1, std::memory_order_relaxed); }
  void unindent() { mIndent.fetch_sub(1, std::memory_order_relaxed); }
  int indentation() const { return mIndent.load(std::memory_order_relaxed); }
  const std::string& channel() const { return mChannel; }

 private:
  std::string mChannel;
  std::atomic<int> mIndent{0};
};

using diagnostic_logger = basic_diagnostic_logger<char>;

// Logs a function's entry and exit around its body. Active only when function entry records
// are enabled at construction; the exit record says " [throw]" when the function is left by an
// exception.
class TraceScope {
 public:
  TraceScope(diagnostic_logger& logger, const char* signature, const char* file, int line);
  ~TraceScope();
  TraceScope(const TraceScope&) = delete;
  TraceScope& operator=(const TraceScope&) = delete;

 private:
  diagnostic_logger* mLogger;  // null when inactive
  const char* mSignature;
  // Where the scope was opened; kept for debuggers, not written to the records.
  [[maybe_unused]] const char* mFile;
  [[maybe_unused]] int mLine;
  int mUncaught;
};

}  // namespace foundation::log
