#include "host/log/DiagnosticLogger.hpp"

#include <cstdlib>
#include <memory>
#include <mutex>

#include "host/log/backend/LogBackend.h"

namespace foundation::log {
namespace {

std::atomic<unsigned>& maskStorage() {
  static std::atomic<unsigned> value{0};
  return value;
}

std::once_flag& environmentOnce() {
  static std::once_flag flag;
  return flag;
}

// The capture function lives here; the backend calls back through a plain C pointer.
std::shared_ptr<CaptureFunction>& captureStorage() {
  static std::shared_ptr<CaptureFunction> fn;
  return fn;
}

void forwardCapture(void* context, unsigned severity, int indent, const char* text, size_t len) {
  (*static_cast<CaptureFunction*>(context))(severity, indent, std::string_view(text, len));
}

unsigned parseMask(const std::string& text) {
  if (text == "all") return severity::kAll;
  return static_cast<unsigned>(std::strtoul(text.c_str(), nullptr, 0));
}

}  // namespace

void configureFromEnvironment() {
  const char* value = std::getenv("VXPARQUET_LOG");
  if (value == nullptr || *value == '\0') return;
  const std::string setting(value);
  const size_t colon = setting.find(':');
  setOutput(colon == std::string::npos ? std::string() : setting.substr(colon + 1));
  maskStorage().store(parseMask(setting.substr(0, colon)));
}

unsigned mask() {
  std::call_once(environmentOnce(), configureFromEnvironment);
  return maskStorage().load(std::memory_order_relaxed);
}

void setMask(unsigned value) {
  std::call_once(environmentOnce(), configureFromEnvironment);
  maskStorage().store(value);
}

void setOutput(const std::string& path) { vxlog_set_output(path.data(), path.size()); }

void capture(CaptureFunction fn) {
  auto& stored = captureStorage();
  if (!fn) {
    vxlog_set_capture(nullptr, nullptr);
    stored.reset();
    return;
  }
  auto next = std::make_shared<CaptureFunction>(std::move(fn));
  vxlog_set_capture(forwardCapture, next.get());
  stored = std::move(next);  // the previous function is no longer referenced by the backend
}

template <class Char>
basic_diagnostic_logger<Char>::basic_diagnostic_logger(std::string channel)
    : mChannel(std::move(channel)) {}

template <class Char>
void basic_diagnostic_logger<Char>::write(unsigned level, std::string_view text) const {
  if (!enabled(level)) return;
  vxlog_write(mChannel.data(), mChannel.size(), level, indentation(), text.data(), text.size());
}

template class basic_diagnostic_logger<char>;

TraceScope::TraceScope(diagnostic_logger& logger, const char* signature, const char* file, int line)
    : mLogger(logger.enabled(severity::kEntry) ? &logger : nullptr),
      mSignature(signature),
      mFile(file),
      mLine(line),
      mUncaught(std::uncaught_exceptions()) {
  if (mLogger == nullptr) return;
  mLogger->write(severity::kEntry, mSignature);
  mLogger->indent();
}

TraceScope::~TraceScope() {
  if (mLogger == nullptr) return;
  mLogger->unindent();
  if (!mLogger->enabled()) return;
  if (std::uncaught_exceptions() > mUncaught) {
    mLogger->write(severity::kExit, std::string(mSignature) + " [throw]");
  } else {
    mLogger->write(severity::kExit, mSignature);
  }
}

}  // namespace foundation::log
