#include "host/services/Services.hpp"

#include <sched.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cmath>
#include <exception>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

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

// The CPUs a quota of quota microseconds per period allows, rounded up; 0 for no quota.
int64_t quotaCpus(double quota, double period) {
  if (!(quota > 0) || !(period > 0)) return 0;
  return std::max<int64_t>(1, static_cast<int64_t>(std::ceil(quota / period)));
}

// cgroup v2: "max 100000" or "<quota> <period>" in cpu.max.
int64_t cgroupV2Cpus(const std::string& folder) {
  std::ifstream file(folder + "/cpu.max");
  std::string quota;
  double period = 0;
  if (!(file >> quota >> period) || quota == "max") return 0;
  try {
    return quotaCpus(std::stod(quota), period);
  } catch (const std::exception&) {
    return 0;
  }
}

// cgroup v1: cpu.cfs_quota_us (-1: none) and cpu.cfs_period_us.
int64_t cgroupV1Cpus(const std::string& folder) {
  std::ifstream quotaFile(folder + "/cpu.cfs_quota_us");
  std::ifstream periodFile(folder + "/cpu.cfs_period_us");
  double quota = 0;
  double period = 0;
  if (!(quotaFile >> quota) || !(periodFile >> period)) return 0;
  return quotaCpus(quota, period);
}

// The smallest quota of folder and its ancestors up to root: a limit set on a parent group
// holds for its children too.
int64_t smallestQuota(const std::string& root, std::string path,
                      int64_t (*cpusOf)(const std::string&)) {
  int64_t smallest = 0;
  while (true) {
    const int64_t cpus = cpusOf(root + path);
    if (cpus > 0 && (smallest == 0 || cpus < smallest)) smallest = cpus;
    if (path.empty() || path == "/") break;
    const size_t slash = path.find_last_of('/');
    path = slash == std::string::npos || slash == 0 ? "/" : path.substr(0, slash);
  }
  return smallest;
}

}  // namespace

int64_t cgroupCpuQuota(const std::string& procSelfCgroup, const std::string& cgroupRoot) {
  std::ifstream lines(procSelfCgroup);
  std::string line;
  int64_t smallest = 0;
  const auto keep = [&](int64_t cpus) {
    if (cpus > 0 && (smallest == 0 || cpus < smallest)) smallest = cpus;
  };
  // "<id>:<controllers>:<path>"; v2's single line is "0::<path>".
  while (std::getline(lines, line)) {
    const size_t first = line.find(':');
    const size_t second = first == std::string::npos ? first : line.find(':', first + 1);
    if (second == std::string::npos) continue;
    const std::string controllers = line.substr(first + 1, second - first - 1);
    const std::string path = line.substr(second + 1);
    if (controllers.empty()) {
      keep(smallestQuota(cgroupRoot, path, cgroupV2Cpus));
      continue;
    }
    std::stringstream names(controllers);
    std::string name;
    while (std::getline(names, name, ',')) {
      if (name != "cpu") continue;
      for (const char* folder : {"/cpu,cpuacct", "/cpu", "/cpuacct,cpu"}) {
        keep(smallestQuota(cgroupRoot + folder, path, cgroupV1Cpus));
      }
    }
  }
  return smallest;
}

int64_t availableCpus() {
  int64_t cpus = 0;
  cpu_set_t set;
  CPU_ZERO(&set);
  if (::sched_getaffinity(0, sizeof set, &set) == 0) cpus = CPU_COUNT(&set);
  if (cpus <= 0) cpus = static_cast<int64_t>(std::thread::hardware_concurrency());
  // The quota is the container's, fixed for the process's life: read once.
  static const int64_t quota = cgroupCpuQuota("/proc/self/cgroup", "/sys/fs/cgroup");
  if (quota > 0 && (cpus <= 0 || quota < cpus)) cpus = quota;
  return std::max<int64_t>(cpus, 1);
}

namespace {
std::atomic<::arrow::MemoryPool*>& configuredReadPool() {
  static std::atomic<::arrow::MemoryPool*> pool{nullptr};
  return pool;
}
}  // namespace

::arrow::MemoryPool* getArrowReadPool() {
  ::arrow::MemoryPool* pool = configuredReadPool().load(std::memory_order_acquire);
  return pool != nullptr ? pool : ::arrow::default_memory_pool();
}

void setArrowReadPool(::arrow::MemoryPool* pool) {
  configuredReadPool().store(pool, std::memory_order_release);
}

uint64_t getMaxColumnChunkBytes() {
  const uint64_t configured = configuredChunkBytes().load(std::memory_order_relaxed);
  return configured > 0 ? configured : availableMemory();
}

void setMaxColumnChunkBytes(uint64_t bytes) {
  configuredChunkBytes().store(bytes, std::memory_order_relaxed);
}

int64_t getNumComputationalThreads() {
  const int64_t configured = configuredCount().load(std::memory_order_relaxed);
  return configured > 0 ? configured : availableCpus();
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
