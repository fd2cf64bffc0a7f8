#include <gtest/gtest.h>

#include <arrow/buffer.h>
#include <parquet/arrow/reader.h>

#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"

namespace common = vantro::io::parquet::core::common;
using vxtest::u16;

TEST(ReadableWritableFile, ShortReadStopsAtTheEndAndStaysUsable) {
  vxtest::TempDir dir;
  vxtest::writeBytes(dir.file("f"), std::string(100, 'x'));
  auto file = common::makeReadableFilePtr(dir.ufile("f"));
  ASSERT_TRUE(file->Seek(60).ok());
  const auto buffer = file->Read(100).ValueOrDie();
  EXPECT_EQ(buffer->size(), 40);
  EXPECT_EQ(file->Tell().ValueOrDie(), 100);
  // The stream is still good: seek back and read again.
  ASSERT_TRUE(file->Seek(10).ok());
  EXPECT_EQ(file->Read(5).ValueOrDie()->size(), 5);
  EXPECT_EQ(file->Tell().ValueOrDie(), 15);
  EXPECT_EQ(file->ReadAt(98, 10).ValueOrDie()->ToString(), "xx");
}

TEST(ReadableWritableFile, ZeroByteReadIsAnEmptyBuffer) {
  vxtest::TempDir dir;
  vxtest::writeBytes(dir.file("f"), "abc");
  auto file = common::makeReadableFilePtr(dir.ufile("f"));
  EXPECT_EQ(file->Read(0).ValueOrDie()->size(), 0);
  EXPECT_EQ(file->GetSize().ValueOrDie(), 3);
  EXPECT_FALSE(file->supports_zero_copy());
}

TEST(ReadableWritableFile, SizeIsTheSizeAtOpenWhileWriting) {
  vxtest::TempDir dir;
  auto file = common::makeWritableFilePtr(dir.ufile("out"), virtualiostream::CleanupPolicy::keep);
  ASSERT_TRUE(file->Write("hello", 5).ok());
  ASSERT_TRUE(file->WriteAt(0, "J", 1).ok());
  EXPECT_EQ(file->GetSize().ValueOrDie(), 0);
  EXPECT_FALSE(file->closed());
  ASSERT_TRUE(file->Close().ok());
  EXPECT_TRUE(file->closed());
  EXPECT_EQ(vxtest::readBytes(dir.file("out")), "Jello");
}

TEST(ReadableWritableFile, ClosedFileRefusesIOWithAStatus) {
  vxtest::TempDir dir;
  auto file = common::makeWritableFilePtr(dir.ufile("out"), virtualiostream::CleanupPolicy::keep);
  ASSERT_TRUE(file->Close().ok());
  EXPECT_TRUE(file->Write("x", 1).IsInvalid());
  EXPECT_TRUE(file->Tell().status().IsInvalid());
  EXPECT_TRUE(file->Seek(0).IsInvalid());
  EXPECT_TRUE(file->Read(1).status().IsInvalid());
  EXPECT_TRUE(file->Close().ok());
}

TEST(ReadableWritableFile, CleanupFollowsThePolicyGivenAtOpen) {
  vxtest::TempDir dir;
  {
    auto kept =
        common::makeWritableFilePtr(dir.ufile("kept"), virtualiostream::CleanupPolicy::keep);
    auto removed = common::makeWritableFilePtr(dir.ufile("removed"),
                                               virtualiostream::CleanupPolicy::removeUnfinished);
    ASSERT_TRUE(kept->Close().ok());
    ASSERT_TRUE(removed->Close().ok());
    kept->Cleanup();
    removed->Cleanup();
    // Still usable after Close.
    EXPECT_EQ(removed->GetFilename(), dir.ufile("removed"));
  }
  EXPECT_TRUE(vxtest::fileExists(dir.file("kept")));
  EXPECT_FALSE(vxtest::fileExists(dir.file("removed")));
}

TEST(ReadableWritableFile, FilenameIsTheLocalPathForFileIRIsInAnyCase) {
  vxtest::TempDir dir;
  vxtest::writeBytes(dir.file("a b"), "x");
  for (const std::string scheme : {"file", "FILE", "fIlE"}) {
    auto file = common::makeReadableFilePtr(u16(scheme + "://" + dir.path() + "/a%20b"));
    EXPECT_EQ(file->GetFilename(), dir.ufile("a b"));
  }
}

TEST(ReadableWritableFile, FilenameIsTheIRITextForOtherSchemes) {
  vxtest::TempDir dir;
  vxtest::writeBytes(dir.file("x"), "x");
  virtualiostream::registerProvider(u"hdfs",
                                    std::make_shared<virtualiostream::FolderProvider>(dir.path()));
  auto file = common::makeReadableFilePtr(u"hdfs://nn/x");
  EXPECT_EQ(file->GetFilename(), u"hdfs://nn/x");
  virtualiostream::registerProvider(u"hdfs", nullptr);
}

TEST(ReadableWritableFile, FactoriesLogTheFileName) {
  vxtest::TempDir dir;
  vxtest::writeBytes(dir.file("f"), "x");
  vxtest::LogCapture capture;
  common::makeReadableFilePtr(dir.ufile("f"));
  EXPECT_TRUE(capture.contains(" filename=" + dir.file("f")));
  EXPECT_TRUE(capture.contains("makeReadableFilePtr"));
}

TEST(ReadableWritableFile, ParquetReadsThroughTheAdapterWithThreads) {
  vxtest::TempDir dir;
  const auto path = vxtest::writeSimpleFile(dir, "t.parquet", 5000, 1000);
  std::unique_ptr<parquet::arrow::FileReader> reader;
  ASSERT_TRUE(vantro::io::parquet::core::common::compat::OpenFile(
                  common::makeReadableFilePtr(u16(path)), arrow::default_memory_pool(), &reader)
                  .ok());
  reader->set_use_threads(true);
  std::shared_ptr<arrow::Table> table;
  ASSERT_TRUE(vantro::io::parquet::core::common::compat::ReadTable(*reader, &table).ok());
  EXPECT_TRUE(table->Equals(*vxtest::simpleTable(5000)));
}
