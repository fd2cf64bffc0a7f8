#pragma once

#include <cstdint>
#include <functional>
#include <thread>

namespace foundation::services {

// Threads under a process limit (RLIMIT_NPROC, a container's pids limit). std::thread throws
// where pthread_create fails; a thread that nothing catches ends the process, so every thread of
// the host and the library starts through these.

// Starts body on a thread of its own; a thread that is not joinable when the process may not
// start one (body never runs then).
std::thread tryStartThread(std::function<void()> body);

// How many threads, the caller's included, can run work now: the caller plus as many of
// wanted - 1 threads as could be started together (then joined again). 1 when none could.
int64_t countStartableThreads(int64_t wanted);

// The most threads the host's parallel loops may use, as the last read found it (0 or less: no
// limit known, the default). oneTBB's workers that fail to start end the process where they
// start from a worker, so the loops stay within what a probe found.
void setLastStartableThreads(int64_t count);
int64_t getLastStartableThreads();

// The conf text that Arrow's bundled jemalloc reads from JE_ARROW_MALLOC_CONF when it loads.
// Arrow compiles in background purging threads, which a process limit leaves failing (and
// logging) on every new arena; the host's idle releaser returns pages instead.
inline constexpr const char* kArrowJemallocConfVariable = "JE_ARROW_MALLOC_CONF";
inline constexpr const char* kArrowJemallocConf = "background_thread:false";

}  // namespace foundation::services
