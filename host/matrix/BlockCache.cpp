#include "host/matrix/BlockCache.hpp"

#include <unistd.h>

#include <arrow/memory_pool.h>

#include "host/services/IdleMemoryReleaser.hpp"

namespace matrix {
namespace {

size_t physicalMemory() {
  const long pages = ::sysconf(_SC_PHYS_PAGES);
  const long pageSize = ::sysconf(_SC_PAGESIZE);
  return pages > 0 && pageSize > 0 ? static_cast<size_t>(pages) * static_cast<size_t>(pageSize)
                                   : size_t{1} << 30;
}

}  // namespace

BlockCache& BlockCache::instance() {
  static BlockCache* cache = [] {
    auto* made = new BlockCache();
    foundation::services::IdleMemoryReleaser::instance().addReleaseStep(
        [made] { made->releaseAll(); });
    return made;
  }();
  return *cache;
}

BlockCache::BlockCache() : mLimit(physicalMemory() / 4) {}

uint8_t* BlockCache::take(size_t bytes, size_t* capacity) {
  foundation::services::IdleMemoryReleaser::noteActivity();
  std::lock_guard<std::mutex> lock(mMutex);
  const auto fit = mKept.lower_bound(bytes);
  if (fit == mKept.end() || fit->first - bytes > bytes / 4) return nullptr;
  uint8_t* block = fit->second.block;
  *capacity = fit->first;
  mKeptBytes -= fit->first;
  mKept.erase(fit);
  return block;
}

void BlockCache::give(uint8_t* block, size_t capacity, arrow::MemoryPool* pool) {
  foundation::services::IdleMemoryReleaser::noteActivity();
  {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mKeptBytes + capacity <= mLimit) {
      mKept.emplace(capacity, Kept{block, pool});
      mKeptBytes += capacity;
      return;
    }
  }
  pool->Free(block, static_cast<int64_t>(capacity));
}

void BlockCache::releaseAll() {
  std::multimap<size_t, Kept> kept;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    kept.swap(mKept);
    mKeptBytes = 0;
  }
  for (const auto& [capacity, block] : kept) {
    block.pool->Free(block.block, static_cast<int64_t>(capacity));
  }
}

size_t BlockCache::keptBytes() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mKeptBytes;
}

void BlockCache::setLimit(size_t bytes) {
  std::lock_guard<std::mutex> lock(mMutex);
  mLimit = bytes;
}

}  // namespace matrix
