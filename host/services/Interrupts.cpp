#include "host/services/Interrupts.hpp"

#include <atomic>
#include <csignal>
#include <thread>

#include "host/except/Exception.hpp"

namespace {

std::atomic<bool> gPending{false};

std::atomic<std::thread::id>& signalThread() {
  static std::atomic<std::thread::id> id{};
  return id;
}

extern "C" void onSigint(int) { gPending.store(true); }

}  // namespace

int utIsSignalThread() { return signalThread().load() == std::this_thread::get_id() ? 1 : 0; }

void utSetSignalThread() { signalThread().store(std::this_thread::get_id()); }

void utInterruptState::ThrowIfInterruptPending() {
  if (!gPending.exchange(false)) return;
  namespace except = foundation::core::except;
  throw except::InterruptException(except::kHostComponent, "Interrupted", {});
}

bool utInterruptState::IsInterruptPending() { return gPending.load(); }
void utInterruptState::Raise() { gPending.store(true); }
void utInterruptState::Clear() { gPending.store(false); }

namespace foundation::host {

void initialize() {
  utSetSignalThread();
  std::signal(SIGINT, onSigint);
}

}  // namespace foundation::host
