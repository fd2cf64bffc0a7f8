#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include "host/services/Services.hpp"
#include "host/services/Threads.hpp"

namespace vantro::io::arrow::core {

namespace detail {

// Whether this thread already works inside an arena of the host's threads: nested loops then
// share it instead of starting threads of their own.
inline bool& InsideHostArena() {
  thread_local bool inside = false;
  return inside;
}

// Marks this thread as working inside the host's arena for its lifetime, exceptions included.
class InsideHostArenaScope {
 public:
  InsideHostArenaScope() : mOuter(InsideHostArena()) { InsideHostArena() = true; }
  ~InsideHostArenaScope() { InsideHostArena() = mOuter; }
  InsideHostArenaScope(const InsideHostArenaScope&) = delete;
  InsideHostArenaScope& operator=(const InsideHostArenaScope&) = delete;

 private:
  bool mOuter;
};

// The host's thread count, no more than the process could last start: oneTBB's workers that
// fail to start end the process where it starts them from a worker.
inline int HostThreads() {
  const int64_t threads = std::min(foundation::services::getNumComputationalThreads(),
                                   foundation::services::getLastStartableThreads());
  return static_cast<int>(std::clamp<int64_t>(threads, 1, 4096));
}

template <typename Loop>
void InHostArena(Loop loop) {
  if (InsideHostArena()) {
    loop();
    return;
  }
  tbb::task_arena arena(HostThreads());
  arena.execute([&] {
    InsideHostArenaScope inside;
    loop();
  });
}

}  // namespace detail

// Runs work(i) for i in [0, count) on the host's computational threads: table columns convert
// independently of each other.
template <typename Work>
void ParallelFor(size_t count, Work work) {
  if (detail::HostThreads() == 1 || count < 2) {
    for (size_t i = 0; i < count; ++i) work(i);
    return;
  }
  detail::InHostArena([&] {
    tbb::parallel_for(size_t{0}, count, [&](size_t i) {
      // Pool threads that steal this work start outside any loop of ours.
      detail::InsideHostArenaScope inside;
      work(i);
    });
  });
}

// Runs work(begin, end) over consecutive ranges covering [0, count), each at least `grain`
// long, on the host's computational threads: the rows of one long column split between them.
// Inside ParallelFor the ranges share its threads.
template <typename Work>
void ParallelRanges(int64_t count, int64_t grain, Work work) {
  if (detail::HostThreads() == 1 || count < 2 * grain) {
    if (count > 0) work(int64_t{0}, count);
    return;
  }
  detail::InHostArena([&] {
    tbb::parallel_for(tbb::blocked_range<int64_t>(0, count, grain),
                      [&](const tbb::blocked_range<int64_t>& range) {
                        detail::InsideHostArenaScope inside;
                        work(range.begin(), range.end());
                      });
  });
}

}  // namespace vantro::io::arrow::core
