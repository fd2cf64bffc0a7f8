// Writing never destroys what was at the output's name: outputs are written beside it and
// replace it only when finished; devices, FIFOs and links are never removed.
#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include <arrow/api.h>
#include <arrow/io/memory.h>
#include <gtest/gtest.h>
#include <parquet/arrow/reader.h>

#include "host/vfs/LocalOutput.hpp"
#include "tests/support/TestSupport.hpp"
#include "tests/write/WriteTestUtil.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace {

using vantro::io::parquet::core::write::ParquetWriter;
using vxtest::u16;
using vxtest::write::hostTable;
using vxtest::write::makeTable;

constexpr const char* kInvalidWrite = "VANTRO:parquetio:write:InvalidWrite";

std::vector<std::string> folderEntries(const std::string& folder) {
  std::vector<std::string> names;
  DIR* dir = ::opendir(folder.c_str());
  while (dirent* entry = ::readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}

std::shared_ptr<arrow::Table> timestamps(const std::string& json) {
  return makeTable({arrow::field("t", arrow::timestamp(arrow::TimeUnit::NANO))},
                   {vxtest::arrayFromJSON(arrow::timestamp(arrow::TimeUnit::NANO), json)});
}

void writeFile(const std::string& path, const std::shared_ptr<arrow::Table>& table) {
  const auto host = hostTable(table);
  ParquetWriter writer(u16(path));
  writer.setVariableNames({u"t"});
  writer.write(host.get());
  writer.close();
}

class SafeOutput : public ::testing::Test {
 protected:
  void SetUp() override {
    old = dir.file("keep.parquet");
    writeFile(old, timestamps("[1000, 2000]"));
    oldBytes = vxtest::readBytes(old);
  }
  // The folder holds exactly what the test put there, and the old file is unchanged.
  void expectUntouched(const std::vector<std::string>& entries = {"keep.parquet"}) {
    EXPECT_EQ(vxtest::readBytes(old), oldBytes);
    EXPECT_EQ(folderEntries(dir.path()), entries);
  }

  vxtest::TempDir dir;
  std::string old;
  std::string oldBytes;
};

TEST_F(SafeOutput, FailedWritesLeaveThePreviousFileAndNoLeftovers) {
  const auto good = hostTable(timestamps("[5000]"));
  const auto lossy = hostTable(timestamps("[5001]"));  // version 1.0 stores microseconds
  const struct Case {
    const char* name;
    std::function<void(ParquetWriter&)> steps;
  } cases[] = {
      {"unknown codec at the first write",
       [&](ParquetWriter& w) {
         w.setVariableCompression({"lzo"});
         EXPECT_THROW(w.write(good.get()), std::exception);
       }},
      {"lossy cast after a good write",
       [&](ParquetWriter& w) {
         w.setVersion("1.0");
         w.write(good.get());
         EXPECT_THROW(w.write(lossy.get()), std::exception);
       }},
      {"never written", [&](ParquetWriter&) {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    {
      ParquetWriter writer(u16(old));
      writer.setVariableNames({u"t"});
      c.steps(writer);
    }
    expectUntouched();
  }
}

TEST_F(SafeOutput, AWriteLeftByAnExceptionIsDiscardedAndANormalEndFinishesTheFile) {
  const auto good = hostTable(timestamps("[5000]"));
  try {
    ParquetWriter writer(u16(old));
    writer.setVariableNames({u"t"});
    writer.write(good.get());
    throw std::runtime_error("interrupted between row groups");
  } catch (const std::runtime_error&) {
  }
  expectUntouched();
  {
    ParquetWriter writer(u16(old));
    writer.setVariableNames({u"t"});
    writer.write(good.get());
  }
  EXPECT_EQ(vxtest::write::readBack(old)->num_rows(), 1);
}

TEST_F(SafeOutput, AProgramEndingAbruptlyDiscardsItsUnfinishedOutputs) {
  const auto good = hostTable(timestamps("[5000]"));
  ParquetWriter writer(u16(old));
  writer.setVariableNames({u"t"});
  writer.write(good.get());
  ASSERT_EQ(folderEntries(dir.path()).size(), 2u);  // the old file and the one being written
  virtualiostream::discardUnfinishedOutputs();
  expectUntouched();
  EXPECT_THROW(writer.close(), std::exception);  // nothing left to move into place
  expectUntouched();
}

TEST_F(SafeOutput, CloseAfterAFailedWriteSaysTheFileWasNotFinished) {
  const auto good = hostTable(timestamps("[5000]"));
  const auto lossy = hostTable(timestamps("[5001]"));
  {
    ParquetWriter writer(u16(old));
    writer.setVariableNames({u"t"});
    writer.setVersion("1.0");
    writer.write(good.get());
    EXPECT_THROW(writer.write(lossy.get()), std::exception);
    const auto arguments = vxtest::expectHostError([&] { writer.close(); }, kInvalidWrite);
    ASSERT_TRUE(arguments);
    EXPECT_EQ(arguments->at(1), foundation::core::except::MessageArgument(
                                    u"Invalid: File not finished: an earlier write failed, so "
                                    u"nothing was written"));
  }
  expectUntouched();
}

TEST_F(SafeOutput, RowGroupHeightsMustBeDoubles) {
  const auto host = hostTable(timestamps("[1000, 2000, 3000, 4000, 5000]"));
  matrix::unique_array heights(vxCreateNumericMatrix(1, 2, vxINT32_CLASS, vxREAL));
  static_cast<int32_t*>(vxGetData(heights.get()))[0] = 2;
  static_cast<int32_t*>(vxGetData(heights.get()))[1] = 3;
  ParquetWriter writer(u16(dir.file("groups.parquet")));
  writer.setVariableNames({u"t"});
  const auto arguments = vxtest::expectHostError(
      [&] { writer.writeRowGroups(host.get(), heights.get()); }, kInvalidWrite);
  ASSERT_TRUE(arguments);
  EXPECT_EQ(arguments->at(1), foundation::core::except::MessageArgument(
                                  u"Invalid: RowGroupHeights must be a double array"));
}

TEST_F(SafeOutput, AFinishedWriteReplacesTheFileAndKeepsItsPermissions) {
  ASSERT_EQ(::chmod(old.c_str(), 0640), 0);
  writeFile(old, timestamps("[7000]"));
  EXPECT_EQ(vxtest::write::readBack(old)->num_rows(), 1);
  struct stat info {};
  ASSERT_EQ(::stat(old.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0640u);
  EXPECT_EQ(folderEntries(dir.path()), std::vector<std::string>{"keep.parquet"});
}

TEST_F(SafeOutput, WritingThroughALinkReplacesItsTargetAndKeepsTheLink) {
  const std::string link = dir.file("link.parquet");
  ASSERT_EQ(::symlink("keep.parquet", link.c_str()), 0);
  {
    ParquetWriter writer(u16(link));
    writer.setVariableNames({u"t"});
    writer.setVariableCompression({"lzo"});
    const auto host = hostTable(timestamps("[1]"));
    EXPECT_THROW(writer.write(host.get()), std::exception);
  }
  expectUntouched({"keep.parquet", "link.parquet"});

  writeFile(link, timestamps("[1, 2, 3]"));
  struct stat info {};
  ASSERT_EQ(::lstat(link.c_str(), &info), 0);
  EXPECT_TRUE(S_ISLNK(info.st_mode));
  EXPECT_EQ(vxtest::write::readBack(old)->num_rows(), 3);
}

TEST_F(SafeOutput, DevicesAreWrittenInPlaceAndNeverRemoved) {
  if (!vxtest::fileExists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  struct stat before {};
  ASSERT_EQ(::stat("/dev/full", &before), 0);
  {
    ParquetWriter writer(u"/dev/full");
    writer.setVariableNames({u"t"});
    const auto host = hostTable(timestamps("[1000]"));
    EXPECT_THROW(
        {
          writer.write(host.get());
          writer.close();
        },
        std::exception);
  }
  struct stat after {};
  ASSERT_EQ(::stat("/dev/full", &after), 0);
  EXPECT_TRUE(S_ISCHR(after.st_mode));
  EXPECT_EQ(after.st_rdev, before.st_rdev);
}

TEST_F(SafeOutput, AFifoReceivesTheWholeFileAndStays) {
  const std::string fifo = dir.file("pipe");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::string received;
  std::thread reader([&] { received = vxtest::readBytes(fifo); });
  writeFile(fifo, timestamps("[1000, 2000, 3000]"));
  reader.join();

  // Parquet's offsets count from the start of the stream, which cannot seek.
  std::unique_ptr<parquet::arrow::FileReader> parquetReader;
  ASSERT_TRUE(vantro::io::parquet::core::common::compat::OpenFile(
                  std::make_shared<arrow::io::BufferReader>(arrow::Buffer::FromString(received)),
                  arrow::default_memory_pool(), &parquetReader)
                  .ok());
  std::shared_ptr<arrow::Table> table;
  ASSERT_TRUE(vantro::io::parquet::core::common::compat::ReadTable(*parquetReader, &table).ok());
  EXPECT_EQ(table->num_rows(), 3);
  struct stat info {};
  ASSERT_EQ(::lstat(fifo.c_str(), &info), 0);
  EXPECT_TRUE(S_ISFIFO(info.st_mode));
}

TEST_F(SafeOutput, AKilledWriterLeavesTheOldFileAndARecognisableLeftover) {
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const auto host = hostTable(timestamps("[1, 2, 3]"));
    ParquetWriter writer(u16(old));
    writer.setVariableNames({u"t"});
    writer.write(host.get());
    ::raise(SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));

  EXPECT_EQ(vxtest::readBytes(old), oldBytes);
  const auto entries = folderEntries(dir.path());
  ASSERT_EQ(entries.size(), 2u);
  const std::string& leftover = entries[0];  // hidden names sort first
  EXPECT_TRUE(virtualiostream::isStagingName(leftover)) << leftover;
  EXPECT_EQ(leftover.rfind(".keep.parquet.partial-", 0), 0u) << leftover;
  EXPECT_FALSE(virtualiostream::isStagingName("keep.parquet"));
  EXPECT_FALSE(virtualiostream::isStagingName(".hidden.parquet"));
}

}  // namespace
