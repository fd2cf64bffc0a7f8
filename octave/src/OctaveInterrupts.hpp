#pragma once

// Octave's interrupt request (Ctrl-C) as the host's interrupt state, for the length of one
// call into the library.
#include <atomic>
#include <thread>

namespace vantro::octave {

// While it lives, the calling thread (Octave's interpreter thread) is the host's signal thread
// and a watcher raises the host interrupt as soon as Octave has caught a signal. Octave's own
// SIGINT handler only records the signal; the library polls the host state between row groups
// and files. The host state is left clear when it goes, so an interrupt never outlives its
// call; a request the library did not act on stays pending for Octave, which then stops the
// caller itself.
class InterruptBridge {
 public:
  InterruptBridge();
  ~InterruptBridge();
  InterruptBridge(const InterruptBridge&) = delete;
  InterruptBridge& operator=(const InterruptBridge&) = delete;

  // True when Octave asked for an interrupt during this call.
  static bool octaveRequested();
  // The library stopped on Octave's request and reports it as its own error: Octave must not
  // interrupt the caller a second time, so that try/catch sees that error.
  static void consumeOctaveRequest();

 private:
  void watch();

  std::atomic<bool> mStop{false};
  std::thread mWatcher;
};

}  // namespace vantro::octave
