#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace foundation::services {

// Returns the pages that Arrow's allocator keeps for reuse to the kernel once Arrow has been
// idle for a while. jemalloc's own decay cannot serve here: even set to a minute, it purged
// most of a read's pages before the next read, a second later (measured on a 10M-row file:
// 147,000 page faults per repeated read, against 54,000 with decay off). So the allocator
// keeps every freed page, and this thread releases them once a whole period has passed
// without file input or output and without a change in the bytes Arrow's default pool holds.
class IdleMemoryReleaser {
 public:
  static IdleMemoryReleaser& instance();

  // Called by the host's files on every read and write: Arrow is at work.
  static void noteActivity() { activity().fetch_add(1, std::memory_order_relaxed); }

  // Release after `idle` without change; zero or less never releases (the thread, once
  // started, waits for the next positive period).
  void setIdlePeriod(std::chrono::milliseconds idle);

  // Adds a step that runs before the pages are released: where the host keeps freed memory of
  // its own, it gives it back to the allocator here.
  void addReleaseStep(std::function<void()> step);

  // The number of times pages were released, for tests.
  int64_t releaseCount() const;

  ~IdleMemoryReleaser();

 private:
  IdleMemoryReleaser() = default;
  static std::atomic<uint64_t>& activity();
  void run();

  mutable std::mutex mMutex;
  std::condition_variable mChanged;
  std::chrono::milliseconds mIdle{0};
  bool mStopping = false;
  int64_t mReleases = 0;
  std::vector<std::function<void()>> mSteps;
  std::thread mThread;
};

}  // namespace foundation::services
