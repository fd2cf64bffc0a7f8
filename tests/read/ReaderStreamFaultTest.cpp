// Streams that break while a reader is using them.
#include <gtest/gtest.h>

#include "host/vfs/MemoryProvider.hpp"
#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::read::RowGroupParquetReader;

class StreamFaultTest : public ::testing::Test {
 protected:
  void SetUp() override {
    virtualiostream::registerProvider(u"mem", mProvider);
    const std::string path = vxtest::writeSimpleFile(mDir, "data.parquet", 200000, 50000);
    mBytes = vxtest::readBytes(path);
    mProvider->put("//t/data.parquet", mBytes);
  }
  void TearDown() override { virtualiostream::registerProvider(u"mem", nullptr); }

  vxtest::TempDir mDir;
  std::string mBytes;
  std::shared_ptr<virtualiostream::MemoryProvider> mProvider =
      std::make_shared<virtualiostream::MemoryProvider>();
};

TEST_F(StreamFaultTest, ShortReadsStillGiveWholeTables) {
  mProvider->setFaults({-1, 13, -1});
  RowGroupParquetReader reader(u"mem://t/data.parquet", {4, 1});
  EXPECT_EQ(vxtest::read::tableRows(reader.readFullFile().get()), 200000u);
  EXPECT_EQ(vxtest::read::tableRows(reader.read().get()), 50000u);
}

TEST_F(StreamFaultTest, BrokenStreamsFailWithHostErrors) {
  mProvider->setFaults({0, -1, -1});
  // The footer read fails inside Parquet, which reports it as a status naming the host error.
  const auto args =
      vxtest::expectHostError([] { RowGroupParquetReader(u"mem://t/data.parquet", {1}); },
                              "VANTRO:parquetio:read:InternalInvalidRead");
  ASSERT_TRUE(args);
  EXPECT_NE(vxtest::u8(std::get<std::u16string>(args->at(1))).find("VANTRO:vfs:ReadFailure"),
            std::string::npos);

  // Arrow reads the footer from the last 64 KiB; the pages before it then fail, on Arrow's
  // threads for a whole-file read and on this one for a row group.
  ASSERT_GT(mBytes.size(), 4u * 65536);
  mProvider->setFaults({65536 + 1024, -1, -1});
  RowGroupParquetReader whole(u"mem://t/data.parquet", {1, 2});
  EXPECT_THROW(whole.readFullFile(), foundation::core::except::IMsgIDException);
  RowGroupParquetReader each(u"mem://t/data.parquet", {1, 2});
  EXPECT_THROW(each.read(), foundation::core::except::IMsgIDException);
}

}  // namespace
