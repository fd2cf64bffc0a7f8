#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include "host/services/Services.hpp"

namespace vantro::io::arrow::core {

// Runs work(i) for i in [0, count) on the host's computational threads: table columns convert
// independently of each other.
template <typename Work>
void ParallelFor(size_t count, Work work) {
  const int threads =
      static_cast<int>(std::max<int64_t>(1, foundation::services::getNumComputationalThreads()));
  if (threads == 1 || count < 2) {
    for (size_t i = 0; i < count; ++i) work(i);
    return;
  }
  tbb::task_arena arena(threads);
  arena.execute([&] { tbb::parallel_for(size_t{0}, count, [&](size_t i) { work(i); }); });
}

}  // namespace vantro::io::arrow::core
