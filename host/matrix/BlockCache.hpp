#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>

namespace arrow {
class MemoryPool;
}

namespace matrix {

// Large data blocks of host arrays that were destroyed, kept for the next arrays of about
// their size. A read makes arrays of the same sizes as the read before it, and the allocator
// cannot serve those from its own free pages: each thread has its own arena, and the thread
// that allocates a column's block changes from read to read, so every read would fault in its
// large blocks anew (a 10M-row text column: 400 MB). The blocks go back to the allocator when
// the host's idle releaser runs, and whenever keeping one would pass the limit.
class BlockCache {
 public:
  // Blocks below this size are left to the allocator, which reuses them well.
  static constexpr size_t kMinBlockBytes = size_t{1} << 20;

  // The process's cache; never destroyed, as blocks may be freed during exit.
  static BlockCache& instance();

  // A kept block of at least `bytes` and at most a quarter more, or nullptr. Its size goes to
  // *capacity.
  uint8_t* take(size_t bytes, size_t* capacity);
  // Keeps a block of `capacity` bytes that came from `pool`, or frees it there when kept
  // blocks would pass the limit.
  void give(uint8_t* block, size_t capacity, arrow::MemoryPool* pool);
  // Frees every kept block.
  void releaseAll();

  size_t keptBytes() const;
  // The most bytes kept at once (default: a quarter of the machine's memory).
  void setLimit(size_t bytes);

 private:
  BlockCache();

  struct Kept {
    uint8_t* block;
    arrow::MemoryPool* pool;
  };
  mutable std::mutex mMutex;
  std::multimap<size_t, Kept> mKept;  // by capacity
  size_t mKeptBytes = 0;
  size_t mLimit;
};

}  // namespace matrix
