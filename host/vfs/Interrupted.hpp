#pragma once

namespace virtualiostream {

// Whether local files stop on a pending interrupt (off unless a host turns it on). A host
// whose users interrupt long reads and writes (an interactive environment) turns it on: the
// library polls only between files and steps, never inside Arrow's reads and writes.
void setStopOnInterrupt(bool stop);

// When stopping is on and an interrupt is pending, throws the host's interrupt exception and
// leaves the interrupt pending, on any thread. Local files call it before every read and
// write that reaches the system: the read or write fails, the library raises its own error,
// the host still sees its interrupt pending, and an unfinished output is discarded as after
// any failure.
void throwIfInterrupted();

}  // namespace virtualiostream
