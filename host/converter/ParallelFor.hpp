#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include "host/services/Services.hpp"

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

inline int HostThreads() {
  return static_cast<int>(std::max<int64_t>(1, foundation::services::getNumComputationalThreads()));
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
