// The host setting of how long Arrow's allocator keeps freed pages: every value gives the same
// reads, and out-of-range values are clamped rather than handed to the allocator.
#include <gtest/gtest.h>

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
    // The wheel's Arrow allocates with jemalloc, so the setting always takes.
    ASSERT_TRUE(foundation::services::setArrowMemoryDecayMs(test.requested));
    EXPECT_EQ(foundation::services::getArrowMemoryDecayMs(), test.kept);
    for (int i = 0; i < 2; ++i) {
      auto table = RowGroupParquetReader(u16(path), {}).readFullFile();
      EXPECT_EQ(int64Column(tableColumn(table.get(), 0)), idRange(0, 5000));
    }
  }
  foundation::services::setArrowMemoryDecayMs(1000);
}

}  // namespace
