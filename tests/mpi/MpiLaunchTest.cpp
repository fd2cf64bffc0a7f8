// vxparquet-mpi under a real mpirun: the ranks' rows together are byte for byte what one
// vxparquet read prints, and a failure on any rank reaches rank 0 with its identifier.
#include <cstdlib>
#include <fstream>
#include <string>

#include <arrow/io/file.h>
#include <gtest/gtest.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>

#include "tests/support/TestSupport.hpp"

namespace {

struct Launch {
  int exitCode = -1;
  std::string out;
  std::string err;
};

bool haveMpirun() { return std::system("command -v mpirun >/dev/null 2>&1") == 0; }

Launch mpirun(int ranks, const std::string& arguments) {
  vxtest::TempDir scratch;
  // As root (CI), Open MPI must be told that this is meant; more ranks than cores share them.
  const std::string command =
      "OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1 OMPI_MCA_btl=self,vader "
      "mpirun --oversubscribe -n " +
      std::to_string(ranks) + " " + VX_BINARY_DIR + "/tools/vxparquet-mpi " + arguments + " >" +
      scratch.file("out") + " 2>" + scratch.file("err");
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, vxtest::readBytes(scratch.file("out")),
          vxtest::readBytes(scratch.file("err"))};
}

class MpiLaunchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!haveMpirun()) GTEST_SKIP() << "mpirun is not installed (scripts/setup installs Open MPI)";
    vxtest::writeSimpleFile(mDir, "a.parquet", 4000, 500);
    vxtest::writeSimpleFile(mDir, "b.parquet", 2500, 1000);
  }
  vxtest::TempDir mDir;
};

TEST_F(MpiLaunchTest, RanksPrintWhatOneReadPrints) {
  for (const std::string format : {"csv", "jsonl"}) {
    for (const std::string where : {"", " --where \"id < 100 or id > 3900\""}) {
      const std::string arguments = mDir.path() + " --format " + format + where;
      const auto one = vxtest::runVxparquet("read " + arguments);
      ASSERT_EQ(one.exitCode, 0) << one.err;
      const auto launch = mpirun(3, "read " + arguments);
      ASSERT_EQ(launch.exitCode, 0) << launch.err;
      EXPECT_TRUE(launch.out == one.out) << format << where << ": outputs differ";
    }
  }
}

TEST_F(MpiLaunchTest, EachRankCanWriteItsOwnPart) {
  vxtest::TempDir parts;
  const auto launch =
      mpirun(2, "read " + mDir.path() + " --format csv --output-dir " + parts.path());
  ASSERT_EQ(launch.exitCode, 0) << launch.err;
  const std::string first = vxtest::readBytes(parts.file("part-1.csv"));
  const std::string second = vxtest::readBytes(parts.file("part-2.csv"));
  const auto one = vxtest::runVxparquet("read " + mDir.path() + " --format csv");
  EXPECT_EQ(first + second.substr(second.find('\n') + 1), one.out);
}

TEST_F(MpiLaunchTest, AFailureOnOneRankReachesRankZero) {
  // The last row group of b is damaged: its footer is whole, so only the rank that reads it
  // fails.
  const std::string path = mDir.file("b.parquet");
  int64_t offset = 0;
  {
    auto file = *arrow::io::ReadableFile::Open(path);
    auto metadata = parquet::ParquetFileReader::Open(file)->metadata();
    offset = metadata->RowGroup(metadata->num_row_groups() - 1)->ColumnChunk(0)->data_page_offset();
  }
  std::string bytes = vxtest::readBytes(path);
  for (int64_t i = offset; i < offset + 64; ++i) bytes[i] = static_cast<char>(0xff);
  vxtest::writeBytes(path, bytes);

  const auto launch = mpirun(3, "read " + mDir.path() + " --format csv");
  EXPECT_EQ(launch.exitCode, 1);
  EXPECT_NE(launch.err.find("vxparquet-mpi read: error: VANTRO:parquetio:read:"), std::string::npos)
      << launch.err;
  EXPECT_NE(launch.err.find("(rank 2 of 3)"), std::string::npos) << launch.err;
  EXPECT_TRUE(launch.out.empty());

  const auto usage = mpirun(2, "read " + mDir.path() + " --format table");
  EXPECT_EQ(usage.exitCode, 2) << usage.err;
}

}  // namespace

namespace {

// count and stats over ranks print what one process prints, with and without --where, in both
// layouts; a file that cannot be counted is reported beside the others' counts.
TEST_F(MpiLaunchTest, CountAndStatsReduceToOneProcessAnswer) {
  vxtest::writeSimpleFile(mDir, "c.parquet", 700, 100);
  vxtest::writeSimpleFile(mDir, "d.parquet", 10, 10);
  for (const std::string& arguments :
       {"count " + mDir.path(), "count " + mDir.path() + " --json",
        "count " + mDir.path() + " --where \"id < 300 or id >= 2400\"",
        "count " + mDir.path() + " --where \"id < 300\" --json", "stats " + mDir.path(),
        "stats " + mDir.path() + " --json --vars id"}) {
    const auto one = vxtest::runVxparquet(arguments);
    ASSERT_EQ(one.exitCode, 0) << arguments << ": " << one.err;
    for (int ranks : {2, 3, 5}) {
      const auto launch = mpirun(ranks, arguments);
      ASSERT_EQ(launch.exitCode, 0) << arguments << ": " << launch.err;
      EXPECT_EQ(launch.out, one.out) << ranks << " ranks: " << arguments;
    }
  }
  vxtest::writeBytes(mDir.file("e.parquet"), "not parquet");
  const auto one = vxtest::runVxparquet("count " + mDir.path() + " --json");
  const auto launch = mpirun(3, "count " + mDir.path() + " --json");
  EXPECT_EQ(one.exitCode, 1);
  EXPECT_EQ(launch.exitCode, 1);
  EXPECT_EQ(launch.out, one.out);
  EXPECT_NE(launch.err.find("VANTRO:parquetio:read:InternalInvalidRead"), std::string::npos)
      << launch.err;
}

}  // namespace
