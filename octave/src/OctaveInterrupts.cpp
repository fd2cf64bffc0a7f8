#include "OctaveInterrupts.hpp"

#include <chrono>
#include <csignal>

#include "host/services/Interrupts.hpp"
#include "host/services/Threads.hpp"

// Octave's interrupt flags (liboctave, C linkage, so free of the C++ ABI question).
extern "C" {
extern sig_atomic_t octave_interrupt_state;
extern volatile sig_atomic_t octave_signal_caught;
}

namespace vantro::octave {

InterruptBridge::InterruptBridge() {
  utSetSignalThread();
  utInterruptState::Clear();
  // Without a thread to spare (a process limit) no watcher runs: Octave then stops the caller
  // itself once the call returns.
  mWatcher = foundation::services::tryStartThread([this] { watch(); });
}

InterruptBridge::~InterruptBridge() {
  mStop.store(true);
  if (mWatcher.joinable()) mWatcher.join();
  utInterruptState::Clear();
}

// Octave's SIGINT handler sets octave_signal_caught, then counts the request in
// octave_interrupt_state. Only the count says that it has finished: a request consumed before
// that would be counted again afterwards and stop the caller after all.
bool InterruptBridge::octaveRequested() { return octave_interrupt_state > 0; }

void InterruptBridge::consumeOctaveRequest() {
  octave_signal_caught = 0;
  if (octave_interrupt_state > 0) octave_interrupt_state = 0;
}

void InterruptBridge::watch() {
  while (!mStop.load()) {
    if (octaveRequested()) utInterruptState::Raise();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

}  // namespace vantro::octave
