// The pool of large blocks that reads decode into: which blocks may become a host's arrays, that
// a block handed over is never freed by Arrow too (the sanitizer builds see any double free),
// and that blocks keep their bytes and alignment as they grow and shrink.
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

#include "host/services/LargeBlockPool.hpp"

namespace {

using foundation::services::LargeBlockPool;

constexpr int64_t kLarge = LargeBlockPool::kMinAdoptableBytes;
constexpr int64_t kAlignment = 64;

uint8_t* allocate(int64_t bytes) {
  uint8_t* block = nullptr;
  EXPECT_TRUE(LargeBlockPool::instance().Allocate(bytes, kAlignment, &block).ok());
  return block;
}

TEST(LargeBlockPool, OnlyLiveLargeBlocksOfEnoughBytesAreHandedOverOnce) {
  auto& pool = LargeBlockPool::instance();
  uint8_t* small = allocate(1024);
  uint8_t* large = allocate(kLarge);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(large) % kAlignment, 0u);
  EXPECT_FALSE(pool.handOver(small, 1024));
  EXPECT_FALSE(pool.handOver(large + 64, 64));     // not the block's start
  EXPECT_FALSE(pool.handOver(large, kLarge + 1));  // more than the block holds
  EXPECT_TRUE(pool.handOver(large, kLarge));
  EXPECT_FALSE(pool.handOver(large, kLarge));  // once
  pool.Free(small, 1024, kAlignment);
  // Arrow's Free of a handed-over block frees nothing: its new owner does.
  pool.Free(large, kLarge, kAlignment);
  std::memset(large, 1, kLarge);
  std::free(large);
}

TEST(LargeBlockPool, AStaleFreeAfterTheOwnerFreedNeverFreesABlockAtTheSameAddress) {
  auto& pool = LargeBlockPool::instance();
  uint8_t* first = allocate(kLarge);
  ASSERT_TRUE(pool.handOver(first, kLarge));
  // Octave clears the array before Arrow drops its buffer, which still names the address.
  volatile uintptr_t stale = reinterpret_cast<uintptr_t>(first);
  std::free(first);
  uint8_t* second = allocate(kLarge);  // often the same address
  pool.Free(reinterpret_cast<uint8_t*>(stale), kLarge, kAlignment);
  // The second block is still Arrow's, whole and adoptable.
  std::memset(second, 2, kLarge);
  EXPECT_TRUE(pool.handOver(second, kLarge));
  pool.takeBack(second);
  pool.Free(second, kLarge, kAlignment);
}

TEST(LargeBlockPool, ATakenBackBlockIsFreedByArrowAgain) {
  auto& pool = LargeBlockPool::instance();
  const int64_t before = pool.bytes_allocated();
  uint8_t* block = allocate(kLarge);
  EXPECT_EQ(pool.bytes_allocated(), before + kLarge);
  ASSERT_TRUE(pool.handOver(block, kLarge));
  EXPECT_EQ(pool.bytes_allocated(), before);
  pool.takeBack(block);
  EXPECT_EQ(pool.bytes_allocated(), before + kLarge);
  pool.Free(block, kLarge, kAlignment);
  EXPECT_EQ(pool.bytes_allocated(), before);
}

TEST(LargeBlockPool, GrowingPastTheThresholdKeepsTheBytesAndMakesTheBlockAdoptable) {
  auto& pool = LargeBlockPool::instance();
  uint8_t* block = allocate(4096);
  for (int i = 0; i < 4096; ++i) block[i] = static_cast<uint8_t>(i * 7);
  ASSERT_TRUE(pool.Reallocate(4096, 2 * kLarge, kAlignment, &block).ok());
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % kAlignment, 0u);
  for (int i = 0; i < 4096; ++i) ASSERT_EQ(block[i], static_cast<uint8_t>(i * 7)) << i;
  // Large blocks grow and shrink through the C library, wherever it moves them, aligned.
  for (const int64_t size : {3 * kLarge, 8 * kLarge, kLarge + 4096, 5 * kLarge}) {
    const int64_t before = pool.bytes_allocated();
    ASSERT_TRUE(pool.Reallocate(2 * kLarge, size, kAlignment, &block).ok());
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % kAlignment, 0u);
    EXPECT_EQ(pool.bytes_allocated(), before - 2 * kLarge + size);
    EXPECT_GE(pool.max_memory(), pool.bytes_allocated());
    for (int i = 0; i < 4096; ++i) ASSERT_EQ(block[i], static_cast<uint8_t>(i * 7)) << i;
    ASSERT_TRUE(pool.Reallocate(size, 2 * kLarge, kAlignment, &block).ok());
  }
  EXPECT_TRUE(pool.handOver(block, 2 * kLarge));
  pool.Free(block, 2 * kLarge, kAlignment);
  std::free(block);
}

TEST(LargeBlockPool, ShrinkingBelowTheThresholdMovesTheBytesToArrowsPool) {
  auto& pool = LargeBlockPool::instance();
  uint8_t* block = allocate(2 * kLarge);
  std::memset(block, 9, 2 * kLarge);
  ASSERT_TRUE(pool.Reallocate(2 * kLarge, 512, kAlignment, &block).ok());
  for (int i = 0; i < 512; ++i) ASSERT_EQ(block[i], 9) << i;
  EXPECT_FALSE(pool.handOver(block, 512));
  pool.Free(block, 512, kAlignment);
}

}  // namespace
