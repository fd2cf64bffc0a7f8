#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>

#include <arrow/memory_pool.h>

namespace foundation::services {

// An Arrow pool for reads (setArrowReadPool). Large blocks come from the C library's
// allocator and grow with realloc, in place or by moving the mapping, where Arrow's allocator
// copies a growing column into fresh pages at each step: a one-off read is faster and peaks
// lower. The C library's allocator is also the one behind the operator delete of hosts whose
// arrays come from operator new (GNU Octave's): a numeric column that Arrow decoded into such a
// block can become the host's array as it is, without a copy (handOver). Small blocks, the
// many buffers of levels, offsets and bitmaps, stay in Arrow's default pool.
class LargeBlockPool : public ::arrow::MemoryPool {
 public:
  // Blocks of at least this many bytes are adoptable.
  static constexpr int64_t kMinAdoptableBytes = int64_t{1} << 20;

  static LargeBlockPool& instance();

  ::arrow::Status Allocate(int64_t size, int64_t alignment, uint8_t** out) override;
  ::arrow::Status Reallocate(int64_t oldSize, int64_t newSize, int64_t alignment,
                             uint8_t** ptr) override;
  void Free(uint8_t* buffer, int64_t size, int64_t alignment) override;
  void ReleaseUnused() override { mSmall->ReleaseUnused(); }
  int64_t bytes_allocated() const override;
  int64_t max_memory() const override;
  // Pure in newer Arrow releases, absent from older ones.
  int64_t total_bytes_allocated() const;
  int64_t num_allocations() const;
  std::string backend_name() const override { return "adoptable"; }

  // Whether data is the start of a live large block of at least bytes; if so the block is
  // Octave's from now on: Arrow's later Free of it frees nothing, and operator delete frees it.
  bool handOver(const void* data, size_t bytes);
  // Undoes handOver when Octave could not take the block after all.
  void takeBack(const void* data);

 private:
  LargeBlockPool();
  ::arrow::Status AllocateLarge(int64_t size, int64_t alignment, uint8_t** out);
  ::arrow::Status ReallocateLarge(int64_t oldSize, int64_t newSize, int64_t alignment,
                                  uint8_t** ptr);
  // Raises max_memory to what is allocated now, where that is more.
  void notePeak();

  ::arrow::MemoryPool* mSmall;
  std::mutex mMutex;
  // Guarded by mMutex: the large blocks Arrow owns, and those handed over to Octave whose
  // Buffer Arrow has yet to free. Octave may free a handed-over block first, and the address may
  // come back for a new block: Arrow's next Free of it then belongs to the handed-over one.
  std::unordered_map<const void*, int64_t> mLarge;
  std::unordered_multimap<const void*, int64_t> mHandedOver;
  std::atomic<int64_t> mLargeBytes{0};
  std::atomic<int64_t> mMaxBytes{0};
  std::atomic<int64_t> mTotalLarge{0};
  std::atomic<int64_t> mLargeCount{0};
};

// Makes the pool the one reads decode into (setArrowReadPool), for hosts at start-up whose reads
// are whole files or row-group lists; streaming a row group at a time does better with Arrow's
// own allocator, which keeps each row group's pages for the next. With keepFreedPages the C
// library keeps the blocks of up to 32 MB that reads free in its heap, so that the next read's
// blocks reuse their pages instead of faulting in fresh ones (a host that reads again and
// again in one process); the idle releaser hands them back once the host has rested. Blocks
// above that keep growing by moving their mapping.
void useLargeBlockPoolForReads(bool keepFreedPages);

}  // namespace foundation::services
