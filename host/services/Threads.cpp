#include "host/services/Threads.hpp"

#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <limits>
#include <string>
#include <system_error>
#include <vector>

namespace foundation::services {
namespace {

std::atomic<int64_t>& lastStartable() {
  static std::atomic<int64_t> count{std::numeric_limits<int64_t>::max()};
  return count;
}

// The threads of this process, from /proc/self/status; -1 where it cannot be read.
int64_t liveThreads() {
  std::ifstream status("/proc/self/status");
  std::string key;
  while (status >> key) {
    if (key == "Threads:") {
      int64_t count = -1;
      status >> count;
      return count;
    }
    status.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  return -1;
}

// A joined thread still counts against the process limit for a moment after join returns (the
// kernel releases it after it has told the joiner): waits, briefly, until the process is back
// to `threads`, so that the threads started next (Arrow's, oneTBB's) find their room.
void awaitThreadsReleased(int64_t threads) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
  while (threads >= 0 && liveThreads() > threads && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
}

}  // namespace

std::thread tryStartThread(std::function<void()> body) {
  try {
    return std::thread(std::move(body));
  } catch (const std::system_error&) {
    return std::thread();
  }
}

int64_t countStartableThreads(int64_t wanted) {
  // Each thread waits until all are started: a thread that has ended no longer counts against
  // the limit, so threads that ended at once would prove nothing.
  const int64_t before = wanted > 1 ? liveThreads() : -1;
  std::promise<void> started;
  const std::shared_future<void> allStarted = started.get_future().share();
  std::vector<std::thread> threads;
  for (int64_t i = 1; i < wanted; ++i) {
    std::thread thread = tryStartThread([allStarted] { allStarted.wait(); });
    if (!thread.joinable()) break;
    threads.push_back(std::move(thread));
  }
  started.set_value();
  for (auto& thread : threads) thread.join();
  if (!threads.empty()) awaitThreadsReleased(before);
  return static_cast<int64_t>(threads.size()) + 1;
}

void setLastStartableThreads(int64_t count) {
  lastStartable().store(count > 0 ? count : std::numeric_limits<int64_t>::max(),
                        std::memory_order_relaxed);
}

int64_t getLastStartableThreads() { return lastStartable().load(std::memory_order_relaxed); }

}  // namespace foundation::services
