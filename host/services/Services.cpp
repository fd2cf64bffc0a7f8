#include "host/services/Services.hpp"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <fstream>
#include <string>
#include <thread>

#include <arrow/memory_pool.h>

#include "host/services/IdleMemoryReleaser.hpp"

namespace foundation::services {
namespace {

std::atomic<int64_t>& configuredCount() {
  static std::atomic<int64_t> count{0};
  return count;
}

std::atomic<bool>& dictionaryPerColumn() {
  static std::atomic<bool> choose{false};
  return choose;
}

std::atomic<int64_t>& configuredDecayMs() {
  static std::atomic<int64_t> milliseconds{1000};
  return milliseconds;
}

std::atomic<uint64_t>& configuredChunkBytes() {
  static std::atomic<uint64_t> bytes{0};
  return bytes;
}

// MemAvailable of /proc/meminfo: what can be allocated without swapping; else free pages.
uint64_t availableMemory() {
  std::ifstream meminfo("/proc/meminfo");
  std::string key;
  uint64_t kilobytes = 0;
  std::string unit;
  while (meminfo >> key >> kilobytes >> unit) {
    if (key == "MemAvailable:") return kilobytes * 1024;
  }
  const long pages = ::sysconf(_SC_AVPHYS_PAGES);
  const long pageSize = ::sysconf(_SC_PAGESIZE);
  return pages > 0 && pageSize > 0 ? static_cast<uint64_t>(pages) * pageSize : UINT64_MAX;
}

// Makes jemalloc Arrow's allocator where the build's default is another (newer Arrow's
// mimalloc returns freed pages within milliseconds and has no setting), unless
// ARROW_DEFAULT_MEMORY_POOL names one. Arrow reads the choice once, when its pool is first
// asked for; the variable is taken out of the environment again, so that programs started
// from this one keep their own default.
bool chooseJemalloc() {
  const bool setHere = ::getenv("ARROW_DEFAULT_MEMORY_POOL") == nullptr &&
                       ::setenv("ARROW_DEFAULT_MEMORY_POOL", "jemalloc", 1) == 0;
  const bool jemalloc = ::arrow::default_memory_pool()->backend_name() == "jemalloc";
  if (setHere) ::unsetenv("ARROW_DEFAULT_MEMORY_POOL");
  return jemalloc;
}

}  // namespace

uint64_t getMaxColumnChunkBytes() {
  const uint64_t configured = configuredChunkBytes().load(std::memory_order_relaxed);
  return configured > 0 ? configured : availableMemory();
}

void setMaxColumnChunkBytes(uint64_t bytes) {
  configuredChunkBytes().store(bytes, std::memory_order_relaxed);
}

int64_t getNumComputationalThreads() {
  const int64_t configured = configuredCount().load(std::memory_order_relaxed);
  if (configured > 0) return configured;
  const unsigned hardware = std::thread::hardware_concurrency();
  return hardware == 0 ? 1 : static_cast<int64_t>(hardware);
}

bool getChooseDictionaryPerColumn() {
  return dictionaryPerColumn().load(std::memory_order_relaxed);
}

void setChooseDictionaryPerColumn(bool choose) {
  dictionaryPerColumn().store(choose, std::memory_order_relaxed);
}

bool setArrowMemoryDecayMs(int64_t milliseconds) {
  const int clamped = static_cast<int>(std::clamp<int64_t>(milliseconds, -1, INT32_MAX));
  // A positive time is kept by the idle releaser; jemalloc itself keeps every page then.
  const int jemallocDecay = clamped > 0 ? -1 : clamped;
  if (!chooseJemalloc()) return false;
  // It reaches the allocator's arenas made from now on, those of Arrow's and the host's
  // threads among them; the first arena, made as the library loads, keeps Arrow's 1000 ms.
  if (!::arrow::jemalloc_set_decay_ms(jemallocDecay).ok()) return false;
  IdleMemoryReleaser::instance().setIdlePeriod(std::chrono::milliseconds(std::max(clamped, 0)));
  configuredDecayMs().store(clamped, std::memory_order_relaxed);
  return true;
}

int64_t getArrowMemoryDecayMs() { return configuredDecayMs().load(std::memory_order_relaxed); }

void setNumComputationalThreads(int64_t count) {
  configuredCount().store(count > 0 ? count : 0, std::memory_order_relaxed);
}

}  // namespace foundation::services
