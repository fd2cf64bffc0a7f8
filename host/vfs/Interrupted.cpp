#include "host/vfs/Interrupted.hpp"

#include <atomic>

#include "host/except/Exception.hpp"
#include "host/services/Interrupts.hpp"

namespace virtualiostream {

namespace {
std::atomic<bool> gStopOnInterrupt{false};
}

void setStopOnInterrupt(bool stop) { gStopOnInterrupt.store(stop); }

void throwIfInterrupted() {
  if (!gStopOnInterrupt.load(std::memory_order_relaxed) ||
      !utInterruptState::IsInterruptPending()) {
    return;
  }
  namespace except = foundation::core::except;
  throw except::InterruptException(except::kHostComponent, "Interrupted", {});
}

}  // namespace virtualiostream
