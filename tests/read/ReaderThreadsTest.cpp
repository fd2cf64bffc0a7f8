// Arrow's thread pool before each read, and the single-threaded road of Hadoop IRIs.
#include <arrow/util/thread_pool.h>
#include <gtest/gtest.h>

#include "host/services/Services.hpp"
#include "host/vfs/StreamProvider.hpp"
#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using foundation::log::severity::kConfig;
using vantro::io::parquet::core::read::RowGroupParquetReader;
using vxtest::LogCapture;
using vxtest::u16;
using vxtest::read::idRange;
using vxtest::read::int64Column;
using vxtest::read::tableColumn;

constexpr const char* kHadoopMessage =
    "Disabling Arrow thread pool since multi-threaded column reads are not currently supported "
    "for Hadoop IRIs";

bool logged(const LogCapture& log, unsigned severity, const std::string& text) {
  for (const auto& record : log.records()) {
    if (record.severity == severity && record.text.find(text) != std::string::npos) return true;
  }
  return false;
}

class ThreadPoolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    mPath = vxtest::writeSimpleFile(mDir, "data.parquet", 30, 10);
    virtualiostream::registerProvider(
        u"hdfs", std::make_shared<virtualiostream::FolderProvider>(mDir.path()));
  }
  void TearDown() override {
    virtualiostream::registerProvider(u"hdfs", nullptr);
    foundation::services::setNumComputationalThreads(0);
  }

  vxtest::TempDir mDir;
  std::string mPath;
};

TEST_F(ThreadPoolTest, EveryReadSizesThePoolFromTheHost) {
  RowGroupParquetReader reader(u16(mPath), {1, 2, 3});
  LogCapture log(kConfig);
  foundation::services::setNumComputationalThreads(3);
  reader.read();
  EXPECT_TRUE(logged(log, kConfig, "numThreads = 3"));
  EXPECT_EQ(arrow::GetCpuThreadPoolCapacity(), 3);

  // A changed host setting takes effect at the next read, whichever kind it is.
  foundation::services::setNumComputationalThreads(2);
  reader.readRowGroups({1, 2});
  EXPECT_TRUE(logged(log, kConfig, "numThreads = 2"));
  EXPECT_EQ(arrow::GetCpuThreadPoolCapacity(), 2);
  foundation::services::setNumComputationalThreads(5);
  reader.readFullFile();
  EXPECT_EQ(arrow::GetCpuThreadPoolCapacity(), 5);
  EXPECT_FALSE(log.contains(kHadoopMessage));
}

TEST_F(ThreadPoolTest, HadoopIRIsReadOnOneThreadAndLeaveThePool) {
  foundation::services::setNumComputationalThreads(4);
  ASSERT_TRUE(arrow::SetCpuThreadPoolCapacity(4).ok());

  RowGroupParquetReader reader(u"hdfs://namenode/data.parquet", {2, 3});
  EXPECT_EQ(reader.getFilename(), u"hdfs://namenode/data.parquet");
  LogCapture log(kConfig);
  foundation::services::setNumComputationalThreads(1);
  EXPECT_EQ(int64Column(tableColumn(reader.read().get(), 0)), idRange(10, 20));
  EXPECT_EQ(int64Column(tableColumn(reader.readFullFile().get(), 0)), idRange(0, 30));

  EXPECT_TRUE(logged(log, kConfig, kHadoopMessage));
  EXPECT_FALSE(log.contains("numThreads = "));
  EXPECT_EQ(arrow::GetCpuThreadPoolCapacity(), 4);
}

TEST_F(ThreadPoolTest, CapitalisedSchemeIsNotHadoop) {
  // The provider matches the scheme in any case; the Hadoop test does not.
  RowGroupParquetReader reader(u"HDFS://namenode/data.parquet", {1});
  LogCapture log(kConfig);
  foundation::services::setNumComputationalThreads(2);
  EXPECT_EQ(int64Column(tableColumn(reader.read().get(), 0)), idRange(0, 10));
  EXPECT_FALSE(log.contains(kHadoopMessage));
  EXPECT_TRUE(logged(log, kConfig, "numThreads = 2"));
}

}  // namespace
