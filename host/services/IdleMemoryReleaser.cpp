#include "host/services/IdleMemoryReleaser.hpp"

#include <arrow/memory_pool.h>

#include "host/services/Threads.hpp"

namespace foundation::services {

IdleMemoryReleaser& IdleMemoryReleaser::instance() {
  // Made after Arrow's default pool (callers have asked for it), so destroyed before it: the
  // thread has ended by the time the pool goes.
  static IdleMemoryReleaser releaser;
  return releaser;
}

std::atomic<uint64_t>& IdleMemoryReleaser::activity() {
  static std::atomic<uint64_t> count{0};
  return count;
}

void IdleMemoryReleaser::setIdlePeriod(std::chrono::milliseconds idle) {
  std::unique_lock<std::mutex> lock(mMutex);
  mIdle = idle;
  // Without a thread (a process limit) the pages simply stay with the allocator; the next
  // positive period tries again.
  if (idle.count() > 0 && !mThread.joinable()) mThread = tryStartThread([this] { run(); });
  mChanged.notify_all();
}

void IdleMemoryReleaser::addReleaseStep(std::function<void()> step) {
  std::lock_guard<std::mutex> lock(mMutex);
  mSteps.push_back(std::move(step));
}

int64_t IdleMemoryReleaser::releaseCount() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mReleases;
}

IdleMemoryReleaser::~IdleMemoryReleaser() {
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mStopping = true;
    mChanged.notify_all();
  }
  if (mThread.joinable()) mThread.join();
}

void IdleMemoryReleaser::run() {
  arrow::MemoryPool* pool = arrow::default_memory_pool();
  // Where Arrow stood at the last look: its files' reads and writes and its pool's bytes.
  uint64_t lastActivity = 0;
  int64_t lastBytes = -1;
  bool released = false;
  std::unique_lock<std::mutex> lock(mMutex);
  while (!mStopping) {
    if (mIdle.count() <= 0) {
      mChanged.wait(lock);
      continue;
    }
    const auto period = mIdle;
    if (mChanged.wait_for(lock, period, [&] { return mStopping || mIdle != period; })) continue;
    const uint64_t activityNow = activity().load(std::memory_order_relaxed);
    const int64_t bytes = pool->bytes_allocated();
    if (activityNow != lastActivity || bytes != lastBytes) {
      lastActivity = activityNow;
      lastBytes = bytes;
      released = false;
    } else if (!released) {
      const auto steps = mSteps;
      lock.unlock();
      for (const auto& step : steps) step();
      pool->ReleaseUnused();
      lock.lock();
      released = true;
      ++mReleases;
    }
  }
}

}  // namespace foundation::services
