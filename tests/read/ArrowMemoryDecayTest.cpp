// The host setting of how long Arrow's allocator keeps freed pages: every value gives the same
// reads, and out-of-range values are clamped rather than handed to the allocator.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include <arrow/memory_pool.h>

#include "host/services/Services.hpp"
#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::read::RowGroupParquetReader;
using vxtest::u16;
using vxtest::read::idRange;
using vxtest::read::int64Column;
using vxtest::read::tableColumn;

TEST(ArrowMemoryDecay, EverySettingReadsTheSameValues) {
  vxtest::TempDir dir;
  const std::string path = vxtest::writeSimpleFile(dir, "data.parquet", 5000, 1000);
  struct Case {
    int64_t requested;
    int64_t kept;
  };
  for (const Case& test :
       {Case{0, 0}, Case{-1, -1}, Case{-7, -1}, Case{250, 250}, Case{int64_t{1} << 40, INT32_MAX},
        Case{foundation::services::kProgramArrowMemoryDecayMs,
             foundation::services::kProgramArrowMemoryDecayMs}}) {
    SCOPED_TRACE(test.requested);
    // Earlier tests made Arrow's pool: the setting takes where that pool is jemalloc.
    const bool jemalloc = arrow::default_memory_pool()->backend_name() == "jemalloc";
    ASSERT_EQ(foundation::services::setArrowMemoryDecayMs(test.requested), jemalloc);
    if (!jemalloc) continue;
    EXPECT_EQ(foundation::services::getArrowMemoryDecayMs(), test.kept);
    for (int i = 0; i < 2; ++i) {
      auto table = RowGroupParquetReader(u16(path), {}).readFullFile();
      EXPECT_EQ(int64Column(tableColumn(table.get(), 0)), idRange(0, 5000));
    }
  }
  foundation::services::setArrowMemoryDecayMs(1000);
}

// At start-up the setting chooses jemalloc on every build, newer Arrow's mimalloc default
// included, and leaves a pool the user named alone; what it puts into the environment for Arrow
// is gone again afterwards, and what the user put there stays. Each case runs in a fresh process.
TEST(ArrowMemoryDecay, AtStartUpItChoosesJemallocUnlessThePoolWasNamed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        ::unsetenv("ARROW_DEFAULT_MEMORY_POOL");
        const bool set = foundation::services::setArrowMemoryDecayMs(10000);
        const bool clean = ::getenv("ARROW_DEFAULT_MEMORY_POOL") == nullptr;
        std::exit(set && clean && arrow::default_memory_pool()->backend_name() == "jemalloc" ? 0
                                                                                             : 1);
      },
      ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(
      {
        ::setenv("ARROW_DEFAULT_MEMORY_POOL", "system", 1);
        const bool set = foundation::services::setArrowMemoryDecayMs(10000);
        const char* named = ::getenv("ARROW_DEFAULT_MEMORY_POOL");
        std::exit(!set && named != nullptr && std::string(named) == "system" &&
                          arrow::default_memory_pool()->backend_name() == "system"
                      ? 0
                      : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
