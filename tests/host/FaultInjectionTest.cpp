#include <gtest/gtest.h>

#include <arrow/buffer.h>

#include "host/vfs/MemoryProvider.hpp"
#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"

namespace common = vantro::io::parquet::core::common;
namespace vis = virtualiostream;

namespace {

class MemoryFiles : public ::testing::Test {
 protected:
  void SetUp() override { vis::registerProvider(u"mem", provider); }
  void TearDown() override { vis::registerProvider(u"mem", nullptr); }
  std::shared_ptr<vis::MemoryProvider> provider = std::make_shared<vis::MemoryProvider>();
};

}  // namespace

TEST_F(MemoryFiles, ReadWriteAndCleanupLikeLocalFiles) {
  provider->put("//t/in", "0123456789");
  auto in = common::makeReadableFilePtr(u"mem://t/in");
  EXPECT_EQ(in->GetSize().ValueOrDie(), 10);
  EXPECT_EQ(in->ReadAt(7, 10).ValueOrDie()->ToString(), "789");
  EXPECT_EQ(in->Tell().ValueOrDie(), 10);
  EXPECT_EQ(in->GetFilename(), u"mem://t/in");

  // An output replaces the file at its name only when committed; clean-up then keeps it.
  provider->put("//t/out", "old");
  for (const bool commit : {false, true}) {
    auto out = common::makeWritableFilePtr(u"mem://t/out", vis::CleanupPolicy::removeUnfinished);
    ASSERT_TRUE(out->Write("abc", 3).ok());
    ASSERT_TRUE(out->Close().ok());
    EXPECT_EQ(*provider->get("//t/out"), "old");
    if (commit) {
      ASSERT_TRUE(out->Commit().ok());
    }
    out->Cleanup();
    EXPECT_EQ(*provider->get("//t/out"), commit ? "abc" : "old");
  }
}

TEST_F(MemoryFiles, ShortReadsAreReassembled) {
  provider->put("//t/in", std::string(1000, 'z'));
  provider->setFaults({-1, 7, -1});
  auto in = common::makeReadableFilePtr(u"mem://t/in");
  EXPECT_EQ(in->ReadAt(0, 1000).ValueOrDie()->size(), 1000);
}

TEST_F(MemoryFiles, AReadThatBreaksTheStreamRaisesReadFailure) {
  provider->put("//t/in", std::string(100, 'z'));
  provider->setFaults({10, -1, -1});
  auto in = common::makeReadableFilePtr(u"mem://t/in");
  EXPECT_EQ(in->Read(10).ValueOrDie()->size(), 10);
  vxtest::expectHostError([&] { (void)in->Read(10); }, "VANTRO:vfs:ReadFailure");
  // Positional reads are Parquet's road, often from pool threads: a status, not an exception.
  const auto status = in->ReadAt(0, 10).status();
  EXPECT_TRUE(status.IsIOError());
  EXPECT_NE(status.message().find("VANTRO:vfs:ReadFailure"), std::string::npos);
}

TEST_F(MemoryFiles, AFullDiskRaisesWriteFailure) {
  provider->setFaults({-1, -1, 16});
  auto out = common::makeWritableFilePtr(u"mem://t/out", vis::CleanupPolicy::removeUnfinished);
  ASSERT_TRUE(out->Write("0123456789", 10).ok());
  // Parquet's writer calls Write: a status, not an exception, keeping the identifier.
  const auto status = out->Write("0123456789", 10);
  EXPECT_TRUE(status.IsIOError());
  EXPECT_NE(status.message().find("VANTRO:vfs:WriteFailure"), std::string::npos);
  EXPECT_TRUE(out->Write("0", 1).IsIOError());  // the stream stays failed
}

TEST(LocalFiles, AFullDiskRaisesWriteFailure) {
  if (!vxtest::fileExists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  auto out = common::makeWritableFilePtr(u"/dev/full", vis::CleanupPolicy::keep);
  const std::string block(1 << 21, 'x');  // larger than the stream's buffer: written at once
  const auto status = out->Write(block.data(), block.size());
  EXPECT_NE(status.message().find("VANTRO:vfs:WriteFailure"), std::string::npos);
}
