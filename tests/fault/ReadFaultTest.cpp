// Streams that break or dribble while the read side uses them. Whatever the point of failure,
// every entry point ends with a host exception of its own identifier that still names the
// host's ReadFailure, and never with a crash, a leak or a different exception.
//
// Identifiers: ParquetInfo, counting and the readers raise VANTRO:parquetio:read:
// InternalInvalidRead, whether the failure came at opening (footer) or later (column chunks,
// read on this thread or on Arrow's pool threads).
#include <gtest/gtest.h>

#include <numeric>

#include "host/services/Services.hpp"
#include "tests/fault/FaultTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/info/ParquetInfo.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupCount.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::info::getNumRowGroupsAsync;
using vantro::io::parquet::core::info::getNumRowGroupsSync;
using vantro::io::parquet::core::info::ParquetInfo;
using vantro::io::parquet::core::read::RowGroupParquetReader;
using vxtest::fault::outcomeOf;

constexpr const char* kInvalidRead = "VANTRO:parquetio:read:InternalInvalidRead";
const std::u16string kName = u"mem://t/data.parquet";

// Arrow's first read takes the last 64 KiB (footer included); reads of column chunks follow.
constexpr int64_t kFooterRead = 64 * 1024;

class ReadFaultTest : public vxtest::fault::MemoryFileTest {
 protected:
  static void SetUpTestSuite() {
    vxtest::TempDir dir;
    // Four row groups, comfortably larger than the footer read, so that a failure can come
    // at opening, between row groups and inside one.
    sBytes = new std::string(
        vxtest::readBytes(vxtest::writeSimpleFile(dir, "data.parquet", 40000, 10000)));
  }
  static void TearDownTestSuite() {
    delete sBytes;
    sBytes = nullptr;
  }
  void SetUp() override {
    MemoryFileTest::SetUp();
    mProvider->put("//t/data.parquet", *sBytes);
    mThreads = foundation::services::getNumComputationalThreads();
  }
  void TearDown() override {
    foundation::services::setNumComputationalThreads(mThreads);
    MemoryFileTest::TearDown();
  }

  static int64_t fileSize() { return static_cast<int64_t>(sBytes->size()); }

  // Failure points across the whole file, with the edges of the footer read.
  static std::vector<int64_t> failurePoints() {
    return vxtest::fault::sweepPoints(fileSize() + kFooterRead, 24,
                                      {0, 1, 4, kFooterRead - 1, kFooterRead, kFooterRead + 1});
  }

  // Expects call to end normally or with InternalInvalidRead naming the ReadFailure; returns
  // whether it failed.
  static bool expectReadFailureOrSuccess(const std::function<void()>& call) {
    const auto outcome = outcomeOf(call);
    if (outcome.failed) {
      EXPECT_EQ(outcome.identifier, kInvalidRead) << outcome;
      EXPECT_NE(outcome.message.find("VANTRO:vfs:ReadFailure"), std::string::npos) << outcome;
    }
    return outcome.failed;
  }

  static std::vector<double> allRowGroups() { return {1, 2, 3, 4}; }

  static inline std::string* sBytes = nullptr;
  int64_t mThreads = 0;
};

TEST_F(ReadFaultTest, FileTooSmallForTheSweep) {
  // The sweep only means something when column chunks are read after the footer read.
  EXPECT_GT(fileSize(), 2 * kFooterRead);
}

TEST_F(ReadFaultTest, InfoAndCountingFailCleanlyWhereverTheStreamBreaks) {
  for (const int64_t point : failurePoints()) {
    SCOPED_TRACE("stream breaks after " + std::to_string(point) + " bytes");
    setFaults(point, -1, -1);
    const bool infoFailed = expectReadFailureOrSuccess([] { ParquetInfo info(kName); });
    // Only the footer is read: once it is in, nothing can fail any more.
    if (point == 0) {
      EXPECT_TRUE(infoFailed);
    } else if (point >= kFooterRead) {
      EXPECT_FALSE(infoFailed);
    }
    expectReadFailureOrSuccess([] { (void)getNumRowGroupsSync({kName, kName}); });
    expectReadFailureOrSuccess([] { (void)getNumRowGroupsAsync({kName, kName, kName}); });
  }
}

TEST_F(ReadFaultTest, WholeFileReadsFailCleanlyOnOneThreadAndOnMany) {
  int failedAfterOpening = 0;
  for (const int64_t threads : {1, 2}) {
    foundation::services::setNumComputationalThreads(threads);
    for (const int64_t point : failurePoints()) {
      SCOPED_TRACE(std::to_string(threads) + " threads, stream breaks after " +
                   std::to_string(point) + " bytes");
      setFaults(point, -1, -1);
      bool opened = false;
      const bool failed = expectReadFailureOrSuccess([&] {
        RowGroupParquetReader reader(kName, allRowGroups());
        opened = true;
        EXPECT_EQ(vxtest::fault::tableRows(reader.readFullFile().get()), 40000u);
      });
      if (point == 0) {
        EXPECT_TRUE(failed);
      } else if (point >= fileSize()) {
        EXPECT_FALSE(failed);
      }
      failedAfterOpening += opened && failed;
    }
  }
  // The sweep must reach failures among the column chunks, not only at the footer.
  EXPECT_GT(failedAfterOpening, 4);
}

TEST_F(ReadFaultTest, RowGroupReadsFailCleanlyAndTheReaderStaysUsable) {
  int failedAfterOpening = 0;
  for (const int64_t threads : {1, 2}) {
    foundation::services::setNumComputationalThreads(threads);
    for (const int64_t point : failurePoints()) {
      SCOPED_TRACE(std::to_string(threads) + " threads, stream breaks after " +
                   std::to_string(point) + " bytes");
      setFaults(point, -1, -1);
      std::unique_ptr<RowGroupParquetReader> reader;
      if (expectReadFailureOrSuccess(
              [&] { reader = std::make_unique<RowGroupParquetReader>(kName, allRowGroups()); })) {
        continue;
      }
      uint64_t rows = 0;
      const bool failed = expectReadFailureOrSuccess([&] {
        while (reader->hasdata()) rows += vxtest::fault::tableRows(reader->read().get());
      });
      EXPECT_EQ(failed, rows < 40000u);
      failedAfterOpening += failed;
      // The stream stays broken: later calls fail the same way instead of crashing.
      if (failed) {
        expectReadFailureOrSuccess([&] { (void)reader->readFullFile(); });
        expectReadFailureOrSuccess([&] { (void)reader->readRowGroups({4, 1}); });
        EXPECT_NO_THROW((void)reader->serialize());
      }
    }
  }
  EXPECT_GT(failedAfterOpening, 4);
}

TEST_F(ReadFaultTest, StatisticsNeedOnlyTheFooter) {
  for (const int64_t point : failurePoints()) {
    SCOPED_TRACE("stream breaks after " + std::to_string(point) + " bytes");
    setFaults(point, -1, -1);
    expectReadFailureOrSuccess([] {
      RowGroupParquetReader reader(kName, {});
      const auto statistics = reader.getStatistics({0, 1, 2});
      EXPECT_EQ(vxGetNumberOfElements(statistics.nullCount.get()), 12u);
    });
  }
}

TEST_F(ReadFaultTest, ShortReadsGiveTheSameResults) {
  for (const int64_t chunk : {1, 7, 4093}) {
    SCOPED_TRACE("reads of at most " + std::to_string(chunk) + " bytes");
    setFaults(-1, chunk, -1);
    const ParquetInfo info(kName);
    EXPECT_EQ(info.getNumRowGroups(), 4);
    EXPECT_EQ(getNumRowGroupsAsync({kName, kName}), (std::vector<uint64_t>{4, 4}));
    if (chunk == 1) continue;  // byte by byte through whole files takes too long to be useful
    RowGroupParquetReader reader(kName, {2, 4});
    EXPECT_EQ(vxtest::fault::tableRows(reader.read().get()), 10000u);
    EXPECT_EQ(vxtest::fault::tableRows(reader.readFullFile().get()), 40000u);
    EXPECT_NO_THROW((void)reader.getStatistics({0}));
  }
}

}  // namespace
