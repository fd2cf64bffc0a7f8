#include "OctaveInterrupts.hpp"

#include <chrono>
#include <csignal>

#include "host/services/Interrupts.hpp"

// Octave's interrupt flags (liboctave, C linkage, so free of the C++ ABI question).
extern "C" {
extern sig_atomic_t octave_interrupt_state;
extern volatile sig_atomic_t octave_signal_caught;
}

namespace vantro::octave {

InterruptBridge::InterruptBridge() {
  utSetSignalThread();
  utInterruptState::Clear();
  mWatcher = std::thread([this] { watch(); });
}

InterruptBridge::~InterruptBridge() {
  mStop.store(true);
  mWatcher.join();
  utInterruptState::Clear();
}

bool InterruptBridge::octaveRequested() {
  return octave_signal_caught != 0 || octave_interrupt_state > 0;
}

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
