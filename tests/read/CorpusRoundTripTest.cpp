// Whatever the reader reads, the writer writes back, and it reads back as the same host value.
#include <gtest/gtest.h>

#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace {

using foundation::core::except::IMsgIDException;
using vantro::io::parquet::core::read::RowGroupParquetReader;
using vantro::io::parquet::core::write::ParquetWriter;
using vxtest::u16;

matrix::unique_array readWhole(const std::string& path) {
  RowGroupParquetReader reader(u16(path), std::vector<double>{});
  return reader.readFullFile();
}

std::vector<std::u16string> namesOf(const vxArray_tag* table) {
  std::vector<std::u16string> names;
  for (const auto& name : vxtest::read::tableNames(table)) names.push_back(u16(name));
  return names;
}

TEST(CorpusRoundTrip, EveryReadableFileWritesBackToEqualHostValues) {
  VX_REQUIRE_INTEROP();
  vxtest::TempDir dir;
  int roundTrips = 0;
  for (const auto& path : vxtest::interopFiles()) {
    SCOPED_TRACE(path);
    matrix::unique_array original;
    try {
      original = readWhole(path);
    } catch (const IMsgIDException&) {
      continue;  // refused on read: nothing to write back
    }
    if (vxtest::read::tableNames(original.get()).empty()) continue;
    const std::string copy = dir.file("copy.parquet");
    try {
      ParquetWriter writer(u16(copy));
      writer.setVariableNames(namesOf(original.get()));
      writer.write(original.get());
      writer.close();
    } catch (const IMsgIDException& e) {
      ADD_FAILURE() << "read but not written back: " << e.identifier() << ": " << e.message();
      continue;
    }
    const auto again = readWhole(copy);
    EXPECT_EQ(vxtest::read::hostDifference(original.get(), again.get()), "");
    ++roundTrips;
  }
  std::printf("[ corpus   ] %d files written back and read again\n", roundTrips);
  EXPECT_GT(roundTrips, 10);
}

}  // namespace
