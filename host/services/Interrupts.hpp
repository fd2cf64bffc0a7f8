#pragma once

// The host's interrupt state. The signal thread is the thread that initialised the host (or
// was named with utSetSignalThread); only it polls for interrupts. An interrupt is raised by
// SIGINT once hostInstallInterruptHandler has run, or through utInterruptState::Raise.

// Non-zero when the calling thread is the signal thread.
int utIsSignalThread();
// Makes the calling thread the signal thread.
void utSetSignalThread();

class utInterruptState {
 public:
  // Throws the host's interrupt exception ("VANTRO:host:Interrupted") and clears the pending
  // flag when an interrupt is pending.
  static void ThrowIfInterruptPending();
  static bool IsInterruptPending();
  static void Raise();
  static void Clear();
};

namespace foundation::host {
// Makes the calling thread the signal thread and routes SIGINT to the interrupt state.
void initialize();
}  // namespace foundation::host
