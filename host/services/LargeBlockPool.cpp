#include "host/services/LargeBlockPool.hpp"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "host/services/IdleMemoryReleaser.hpp"
#include "host/services/Services.hpp"

namespace foundation::services {
namespace {

// Statistics that newer Arrow pools keep and older ones lack: 0 there.
template <typename Pool>
auto totalBytesOf(const Pool& pool, int) -> decltype(pool.total_bytes_allocated()) {
  return pool.total_bytes_allocated();
}
template <typename Pool>
int64_t totalBytesOf(const Pool&, long) {
  return 0;
}
template <typename Pool>
auto allocationsOf(const Pool& pool, int) -> decltype(pool.num_allocations()) {
  return pool.num_allocations();
}
template <typename Pool>
int64_t allocationsOf(const Pool&, long) {
  return 0;
}

// Arrow's buffers are aligned to 64 bytes at least.
constexpr int64_t kAlignment = 64;

}  // namespace

LargeBlockPool& LargeBlockPool::instance() {
  // Never destroyed: arrays may outlive every static object.
  static auto* pool = new LargeBlockPool();
  return *pool;
}

LargeBlockPool::LargeBlockPool() : mSmall(::arrow::default_memory_pool()) {}

::arrow::Status LargeBlockPool::Allocate(int64_t size, int64_t alignment, uint8_t** out) {
  if (size < kMinAdoptableBytes) return mSmall->Allocate(size, alignment, out);
  return AllocateLarge(size, alignment, out);
}

::arrow::Status LargeBlockPool::AllocateLarge(int64_t size, int64_t alignment, uint8_t** out) {
  void* block = nullptr;
  if (posix_memalign(&block, static_cast<size_t>(std::max(alignment, kAlignment)),
                     static_cast<size_t>(size)) != 0) {
    return ::arrow::Status::OutOfMemory("malloc of size ", size, " failed");
  }
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mLarge[block] = size;
  }
  mLargeBytes.fetch_add(size);
  notePeak();
  mTotalLarge.fetch_add(size);
  mLargeCount.fetch_add(1);
  *out = static_cast<uint8_t*>(block);
  return ::arrow::Status::OK();
}

::arrow::Status LargeBlockPool::Reallocate(int64_t oldSize, int64_t newSize, int64_t alignment,
                                           uint8_t** ptr) {
  bool owned = false;
  bool handedOver = false;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    owned = mLarge.count(*ptr) != 0;
    handedOver = mHandedOver.count(*ptr) != 0;
  }
  if (owned && newSize >= kMinAdoptableBytes) {
    return ReallocateLarge(oldSize, newSize, alignment, ptr);
  }
  if (!owned && !handedOver && newSize < kMinAdoptableBytes) {
    return mSmall->Reallocate(oldSize, newSize, alignment, ptr);
  }
  // Between the two allocators (or a block no longer Arrow's): a copy.
  uint8_t* moved = nullptr;
  ARROW_RETURN_NOT_OK(Allocate(newSize, alignment, &moved));
  std::memcpy(moved, *ptr, static_cast<size_t>(std::min(oldSize, newSize)));
  Free(*ptr, oldSize, alignment);
  *ptr = moved;
  return ::arrow::Status::OK();
}

// A growing column's block is grown in place where the C library can (the last block of its
// heap, or a mapping it moves), as Arrow's own allocator would; only a block that comes back
// misaligned is copied once more.
::arrow::Status LargeBlockPool::ReallocateLarge(int64_t oldSize, int64_t newSize, int64_t alignment,
                                                uint8_t** ptr) {
  // Out of the table while it moves: only Arrow's one holder of the block reaches it meanwhile.
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mLarge.erase(*ptr);
  }
  void* grown = std::realloc(*ptr, static_cast<size_t>(newSize));
  if (grown == nullptr) {
    std::lock_guard<std::mutex> lock(mMutex);
    mLarge[*ptr] = oldSize;  // realloc left it as it was
    return ::arrow::Status::OutOfMemory("realloc of size ", newSize, " failed");
  }
  // A block that moved may have lost Arrow's alignment: copied once more into an aligned one.
  // The old address is gone by now, so where no aligned block can be had the misaligned one is
  // kept (Arrow's readers do not depend on it).
  const auto required = static_cast<size_t>(std::max(alignment, kAlignment));
  void* aligned = nullptr;
  if (reinterpret_cast<uintptr_t>(grown) % required != 0 &&
      posix_memalign(&aligned, required, static_cast<size_t>(newSize)) == 0) {
    std::memcpy(aligned, grown, static_cast<size_t>(std::min(oldSize, newSize)));
    std::free(grown);
    grown = aligned;
  }
  {
    std::lock_guard<std::mutex> lock(mMutex);
    mLarge[grown] = newSize;
  }
  mLargeBytes.fetch_add(newSize - oldSize);
  notePeak();
  mTotalLarge.fetch_add(std::max<int64_t>(newSize - oldSize, 0));
  *ptr = static_cast<uint8_t*>(grown);
  return ::arrow::Status::OK();
}

void LargeBlockPool::Free(uint8_t* buffer, int64_t size, int64_t alignment) {
  {
    std::lock_guard<std::mutex> lock(mMutex);
    const auto handedOver = mHandedOver.find(buffer);
    if (handedOver != mHandedOver.end()) {
      mHandedOver.erase(handedOver);
      return;
    }
    const auto large = mLarge.find(buffer);
    if (large != mLarge.end()) {
      mLargeBytes.fetch_sub(large->second);
      mLarge.erase(large);
      std::free(buffer);
      return;
    }
  }
  mSmall->Free(buffer, size, alignment);
}

bool LargeBlockPool::handOver(const void* data, size_t bytes) {
  std::lock_guard<std::mutex> lock(mMutex);
  const auto found = mLarge.find(data);
  if (found == mLarge.end() || static_cast<size_t>(found->second) < bytes) return false;
  mLargeBytes.fetch_sub(found->second);
  mHandedOver.emplace(found->first, found->second);
  mLarge.erase(found);
  return true;
}

void LargeBlockPool::takeBack(const void* data) {
  std::lock_guard<std::mutex> lock(mMutex);
  const auto found = mHandedOver.find(data);
  if (found == mHandedOver.end()) return;
  mLargeBytes.fetch_add(found->second);
  mLarge.emplace(found->first, found->second);
  mHandedOver.erase(found);
}

int64_t LargeBlockPool::bytes_allocated() const {
  return mLargeBytes.load() + mSmall->bytes_allocated();
}

int64_t LargeBlockPool::max_memory() const { return mMaxBytes.load(); }

void LargeBlockPool::notePeak() {
  const int64_t now = bytes_allocated();
  int64_t peak = mMaxBytes.load();
  while (now > peak && !mMaxBytes.compare_exchange_weak(peak, now)) {
  }
}

int64_t LargeBlockPool::total_bytes_allocated() const {
  return mTotalLarge.load() + totalBytesOf(*mSmall, 0);
}

int64_t LargeBlockPool::num_allocations() const {
  return mLargeCount.load() + allocationsOf(*mSmall, 0);
}

void useLargeBlockPoolForReads(bool keepFreedPages) {
  if (keepFreedPages) {
    // glibc's largest dynamic threshold.
    constexpr int kLargestMmapThreshold = 32 << 20;
    mallopt(M_MMAP_THRESHOLD, kLargestMmapThreshold);
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    IdleMemoryReleaser::instance().addReleaseStep([] { malloc_trim(0); });
  }
  setArrowReadPool(&LargeBlockPool::instance());
}

}  // namespace foundation::services
