#include "host/services/Services.hpp"

#include <atomic>
#include <thread>

namespace foundation::services {
namespace {

std::atomic<int64_t>& configuredCount() {
  static std::atomic<int64_t> count{0};
  return count;
}

}  // namespace

int64_t getNumComputationalThreads() {
  const int64_t configured = configuredCount().load(std::memory_order_relaxed);
  if (configured > 0) return configured;
  const unsigned hardware = std::thread::hardware_concurrency();
  return hardware == 0 ? 1 : static_cast<int64_t>(hardware);
}

void setNumComputationalThreads(int64_t count) {
  configuredCount().store(count > 0 ? count : 0, std::memory_order_relaxed);
}

}  // namespace foundation::services
