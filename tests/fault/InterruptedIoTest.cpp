// Ctrl-C during a long read or write, for hosts that ask for it: local files fail their next
// system read or write while an interrupt is pending, on whichever thread Arrow uses. The
// library then raises its own error, the interrupt stays pending for the host to act on, and
// a write leaves the file that was there untouched. Hosts that do not ask see no change.
#include <gtest/gtest.h>

#include <dirent.h>

#include "host/except/Exception.hpp"
#include "host/services/Interrupts.hpp"
#include "host/vfs/Interrupted.hpp"
#include "tests/support/TestSupport.hpp"
#include "tests/write/WriteTestUtil.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/Dataset.hpp"
#include "toolbox/vantro/io/parquet/core/dataset/DatasetReader.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace {

using vantro::io::parquet::core::read::RowGroupParquetReader;
using vantro::io::parquet::core::write::ParquetWriter;

// Clears the interrupt state whatever a test leaves behind.
class InterruptedIoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    utInterruptState::Clear();
    virtualiostream::setStopOnInterrupt(true);
  }
  void TearDown() override {
    utInterruptState::Clear();
    virtualiostream::setStopOnInterrupt(false);
  }
};

size_t entriesIn(const std::string& folder) {
  size_t count = 0;
  if (DIR* dir = ::opendir(folder.c_str())) {
    while (const dirent* entry = ::readdir(dir)) {
      if (std::string(entry->d_name) != "." && std::string(entry->d_name) != "..") ++count;
    }
    ::closedir(dir);
  }
  return count;
}

// The interrupted reader's stream has failed, as after any read failure; a new reader works.
TEST_F(InterruptedIoTest, AReadStopsAtItsNextBlockAndANewReaderWorksOnceCleared) {
  vxtest::TempDir dir;
  const std::string path = vxtest::writeSimpleFile(dir, "t.parquet", 20000, 1000);
  {
    RowGroupParquetReader reader(vxtest::u16(path), {});
    utInterruptState::Raise();
    EXPECT_THROW((void)reader.readFullFile(), foundation::core::except::IMsgIDException);
    EXPECT_TRUE(utInterruptState::IsInterruptPending()) << "the host must still see it";
  }
  utInterruptState::Clear();
  {
    RowGroupParquetReader reader(vxtest::u16(path), {});
    utInterruptState::Raise();
    EXPECT_THROW((void)reader.read(), foundation::core::except::IMsgIDException);
  }
  utInterruptState::Clear();
  RowGroupParquetReader reader(vxtest::u16(path), {});
  ASSERT_NE(reader.readFullFile(), nullptr);
}

// A dataset's reader keeps a file open between its pieces: a piece cut short leaves the piece
// to read again, from the file opened afresh.
TEST_F(InterruptedIoTest, ADatasetPieceCutShortIsReadAgainOnceCleared) {
  namespace ds = vantro::io::parquet::core::dataset;
  vxtest::TempDir dir;
  const std::string path = vxtest::writeSimpleFile(dir, "t.parquet", 20000, 1000);
  ds::DatasetReader reader(
      std::make_shared<ds::Dataset>(std::vector<std::string>{path}, ds::DatasetOptions{}));
  ASSERT_NE(reader.read(), nullptr);
  utInterruptState::Raise();
  EXPECT_THROW((void)reader.read(), foundation::core::except::IMsgIDException);
  utInterruptState::Clear();
  EXPECT_EQ(reader.position(), 1u);
  ASSERT_NE(reader.read(), nullptr);
  EXPECT_EQ(reader.position(), 2u);
}

TEST_F(InterruptedIoTest, OpeningAFileStopsToo) {
  vxtest::TempDir dir;
  const std::string path = vxtest::writeSimpleFile(dir, "t.parquet", 10, 10);
  utInterruptState::Raise();
  EXPECT_THROW(RowGroupParquetReader(vxtest::u16(path), {}),
               foundation::core::except::IMsgIDException);
}

TEST_F(InterruptedIoTest, AWriteFailsAndLeavesThePreviousFile) {
  vxtest::TempDir dir;
  const std::string path = vxtest::writeSimpleFile(dir, "t.parquet", 10, 10);
  const std::string before = vxtest::readBytes(path);
  const auto table = vxtest::write::hostTable(vxtest::simpleTable(50000));
  {
    ParquetWriter writer(vxtest::u16(path));
    writer.setVariableNames({u"id", u"x", u"name"});
    utInterruptState::Raise();
    EXPECT_ANY_THROW({
      writer.write(table.get());
      writer.close();
    });
  }
  EXPECT_EQ(vxtest::readBytes(path), before);
  EXPECT_EQ(entriesIn(dir.path()), 1u) << "no temporary file may stay";
  EXPECT_TRUE(utInterruptState::IsInterruptPending());
}

TEST_F(InterruptedIoTest, WithoutAnInterruptNothingChanges) {
  vxtest::TempDir dir;
  const std::string path = dir.file("t.parquet");
  const auto table = vxtest::write::hostTable(vxtest::simpleTable(1000));
  ParquetWriter writer(vxtest::u16(path));
  writer.setVariableNames({u"id", u"x", u"name"});
  writer.write(table.get());
  writer.close();
  RowGroupParquetReader reader(vxtest::u16(path), {});
  ASSERT_NE(reader.readFullFile(), nullptr);
}

TEST_F(InterruptedIoTest, HostsThatDoNotAskReadOnWithAnInterruptPending) {
  vxtest::TempDir dir;
  const std::string path = vxtest::writeSimpleFile(dir, "t.parquet", 100, 10);
  virtualiostream::setStopOnInterrupt(false);
  utInterruptState::Raise();
  RowGroupParquetReader reader(vxtest::u16(path), {});
  ASSERT_NE(reader.readFullFile(), nullptr);
  EXPECT_TRUE(utInterruptState::IsInterruptPending());
}

}  // namespace
