// Reads give the same host values whichever pool Arrow decodes into: Arrow's default, or the
// host's pool of large blocks that grow with realloc and may become the host's own arrays.
#include <gtest/gtest.h>

#include <arrow/api.h>

#include "host/services/LargeBlockPool.hpp"
#include "host/services/Services.hpp"
#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using foundation::core::except::IMsgIDException;
using foundation::services::LargeBlockPool;
using vantro::io::parquet::core::read::RowGroupParquetReader;
using vxtest::u16;

// The file read whole with Arrow decoding into pool; null where it is refused.
matrix::unique_array readWith(::arrow::MemoryPool* pool, const std::string& path) {
  foundation::services::setArrowReadPool(pool);
  try {
    RowGroupParquetReader reader(u16(path), std::vector<double>{});
    auto table = reader.readFullFile();
    foundation::services::setArrowReadPool(nullptr);
    return table;
  } catch (const IMsgIDException&) {
    foundation::services::setArrowReadPool(nullptr);
    return nullptr;
  }
}

void expectSameEitherWay(const std::string& path) {
  SCOPED_TRACE(path);
  const auto byDefault = readWith(nullptr, path);
  const auto byLargeBlocks = readWith(&LargeBlockPool::instance(), path);
  ASSERT_EQ(byDefault == nullptr, byLargeBlocks == nullptr);
  if (byDefault) {
    EXPECT_EQ(vxtest::read::hostDifference(byDefault.get(), byLargeBlocks.get()), "");
  }
}

TEST(ReadPool, ColumnsOfManyMegabytesReadTheSameThroughEitherPool) {
  // Row groups of 300,000 rows: every column's blocks grow past the large-block size as the
  // row groups of a whole-file read are appended.
  vxtest::TempDir dir;
  const int64_t rows = 900000;
  ::arrow::Int64Builder ids;
  ::arrow::DoubleBuilder values;
  ::arrow::StringBuilder names;
  for (int64_t i = 0; i < rows; ++i) {
    ASSERT_TRUE(ids.Append(i * 3).ok());
    ASSERT_TRUE(i % 11 == 0 ? values.AppendNull().ok() : values.Append(i / 7.0).ok());
    ASSERT_TRUE(names.Append("name-" + std::to_string(i % 1000)).ok());
  }
  const auto table = vxtest::table(
      {"id", "x", "s"},
      {ids.Finish().ValueOrDie(), values.Finish().ValueOrDie(), names.Finish().ValueOrDie()});
  const std::string path = dir.file("large.parquet");
  vxtest::writeParquet(path, table, 300000);
  const int64_t before = LargeBlockPool::instance().bytes_allocated();
  expectSameEitherWay(path);
  // Every block the read took is back once its host values are gone.
  EXPECT_EQ(LargeBlockPool::instance().bytes_allocated(), before);
}

TEST(ReadPool, EveryCorpusFileReadsTheSameThroughEitherPool) {
  VX_REQUIRE_INTEROP();
  for (const auto& path : vxtest::interopFiles()) expectSameEitherWay(path);
}

}  // namespace
