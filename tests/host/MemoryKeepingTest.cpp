// The host keeps large blocks of destroyed arrays for the next arrays of their size, and gives
// them back to the allocator once Arrow has been idle for the configured time.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

#include <arrow/memory_pool.h>

#include "host/matrix/BlockCache.hpp"
#include "host/matrix/Matrix.hpp"
#include "host/services/IdleMemoryReleaser.hpp"
#include "host/services/Services.hpp"

namespace {

using foundation::services::IdleMemoryReleaser;
using matrix::BlockCache;
using matrix::unique_array;

constexpr size_t kMiB = size_t{1} << 20;
// Doubles that fill 4 MiB: above the size from which blocks are kept.
constexpr size_t kRows = 4 * kMiB / sizeof(double);

// Starts each test with nothing kept and no releaser at work.
class MemoryKeeping : public ::testing::Test {
 protected:
  void SetUp() override {
    IdleMemoryReleaser::instance().setIdlePeriod(std::chrono::milliseconds(0));
    BlockCache::instance().releaseAll();
  }
  void TearDown() override {
    IdleMemoryReleaser::instance().setIdlePeriod(std::chrono::milliseconds(0));
    BlockCache::instance().setLimit(size_t{1} << 40);
    BlockCache::instance().releaseAll();
  }

  static uint8_t* poolBlock(size_t bytes) {
    uint8_t* block = nullptr;
    EXPECT_TRUE(arrow::default_memory_pool()->Allocate(static_cast<int64_t>(bytes), &block).ok());
    return block;
  }
};

TEST_F(MemoryKeeping, BlocksServeOnlyRequestsTheyFitClosely) {
  BlockCache& cache = BlockCache::instance();
  uint8_t* block = poolBlock(4 * kMiB);
  cache.give(block, 4 * kMiB, arrow::default_memory_pool());
  EXPECT_EQ(cache.keptBytes(), 4 * kMiB);

  size_t capacity = 0;
  EXPECT_EQ(cache.take(5 * kMiB, &capacity), nullptr);  // too small
  EXPECT_EQ(cache.take(3 * kMiB, &capacity), nullptr);  // a third wasted
  EXPECT_EQ(cache.take(4 * kMiB - 4096, &capacity), block);
  EXPECT_EQ(capacity, 4 * kMiB);
  EXPECT_EQ(cache.keptBytes(), 0u);
  EXPECT_EQ(cache.take(4 * kMiB, &capacity), nullptr);  // taken once only
  arrow::default_memory_pool()->Free(block, 4 * kMiB);
}

TEST_F(MemoryKeeping, BlocksBeyondTheLimitGoBackToThePool) {
  BlockCache& cache = BlockCache::instance();
  cache.setLimit(6 * kMiB);
  arrow::MemoryPool* pool = arrow::default_memory_pool();
  const int64_t before = pool->bytes_allocated();
  cache.give(poolBlock(4 * kMiB), 4 * kMiB, pool);
  cache.give(poolBlock(4 * kMiB), 4 * kMiB, pool);
  EXPECT_EQ(cache.keptBytes(), 4 * kMiB);
  EXPECT_EQ(pool->bytes_allocated() - before, static_cast<int64_t>(4 * kMiB));
  cache.releaseAll();
  EXPECT_EQ(cache.keptBytes(), 0u);
  EXPECT_EQ(pool->bytes_allocated(), before);
}

// A reused block still holds the values of the array before it: arrays that promise zeros
// must get zeros, and a smaller array on a larger block must free the whole block later.
TEST_F(MemoryKeeping, ArraysOnReusedBlocksStartAsPromised) {
  unique_array first(vxCreateUninitNumericMatrix(kRows, 1, vxDOUBLE_CLASS, vxREAL));
  ASSERT_NE(first, nullptr);
  auto* values = static_cast<double*>(vxGetData(first.get()));
  for (size_t i = 0; i < kRows; ++i) values[i] = 7.0;
  first.reset();
  EXPECT_EQ(BlockCache::instance().keptBytes(), 4 * kMiB);

  unique_array zeroed(vxCreateNumericMatrix(kRows - 100, 1, vxDOUBLE_CLASS, vxREAL));
  ASSERT_NE(zeroed, nullptr);
  EXPECT_EQ(vxGetData(zeroed.get()), static_cast<void*>(values));
  const auto* reused = static_cast<const double*>(vxGetData(zeroed.get()));
  size_t nonZero = 0;
  for (size_t i = 0; i < kRows - 100; ++i) nonZero += reused[i] != 0.0;
  EXPECT_EQ(nonZero, 0u);

  // Duplicates take their own block, and both go back whole.
  unique_array copy(vxDuplicateArray(zeroed.get()));
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(vxGetData(copy.get()), vxGetData(zeroed.get()));
  zeroed.reset();
  copy.reset();
  EXPECT_EQ(BlockCache::instance().keptBytes(), 4 * kMiB + (kRows - 100) * sizeof(double));
}

TEST_F(MemoryKeeping, SmallArraysAreLeftToTheAllocator) {
  unique_array small(vxCreateDoubleMatrix(kMiB / sizeof(double) - 1, 1, vxREAL));
  ASSERT_NE(small, nullptr);
  small.reset();
  EXPECT_EQ(BlockCache::instance().keptBytes(), 0u);
}

// Polls until the condition holds or the time is up.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < end) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return condition();
}

TEST_F(MemoryKeeping, KeptBlocksGoBackOnceArrowIsIdle) {
  unique_array column(vxCreateDoubleMatrix(kRows, 1, vxREAL));
  column.reset();
  ASSERT_EQ(BlockCache::instance().keptBytes(), 4 * kMiB);
  IdleMemoryReleaser& releaser = IdleMemoryReleaser::instance();
  const int64_t releases = releaser.releaseCount();

  // Busy: file input or output keeps noting activity, far more often than the period (a period
  // of seconds, so that a machine loaded by other tests does not stall this loop past it).
  releaser.setIdlePeriod(std::chrono::milliseconds(2000));
  const auto busyUntil = std::chrono::steady_clock::now() + std::chrono::milliseconds(3000);
  while (std::chrono::steady_clock::now() < busyUntil) {
    IdleMemoryReleaser::noteActivity();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(BlockCache::instance().keptBytes(), 4 * kMiB);
  EXPECT_EQ(releaser.releaseCount(), releases);

  // Idle: within a few periods everything kept has gone back, once.
  EXPECT_TRUE(eventually([&] { return BlockCache::instance().keptBytes() == 0; },
                         std::chrono::seconds(20)));
  // The release is counted once all its steps are done, Arrow's purge the last of them.
  EXPECT_TRUE(eventually([&] { return releaser.releaseCount() == releases + 1; },
                         std::chrono::seconds(10)));
  std::this_thread::sleep_for(std::chrono::milliseconds(1000));
  EXPECT_EQ(releaser.releaseCount(), releases + 1);
}

TEST_F(MemoryKeeping, ProgramSettingStartsTheReleaserAndZeroStopsIt) {
  IdleMemoryReleaser& releaser = IdleMemoryReleaser::instance();
  if (!foundation::services::setArrowMemoryDecayMs(200)) {
    GTEST_SKIP() << "Arrow's allocator is not jemalloc here";
  }
  const int64_t before = releaser.releaseCount();
  unique_array column(vxCreateDoubleMatrix(kRows, 1, vxREAL));
  column.reset();
  EXPECT_TRUE(eventually([&] { return BlockCache::instance().keptBytes() == 0; },
                         std::chrono::seconds(10)));
  // The release is counted once all its steps are done.
  EXPECT_TRUE(
      eventually([&] { return releaser.releaseCount() > before; }, std::chrono::seconds(10)));

  ASSERT_TRUE(foundation::services::setArrowMemoryDecayMs(0));
  const int64_t releases = releaser.releaseCount();
  column.reset(vxCreateDoubleMatrix(kRows, 1, vxREAL));
  column.reset();
  std::this_thread::sleep_for(std::chrono::milliseconds(800));
  EXPECT_EQ(BlockCache::instance().keptBytes(), 4 * kMiB);
  EXPECT_EQ(releaser.releaseCount(), releases);
}

}  // namespace
