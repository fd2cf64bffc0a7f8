// A process that may not start threads (a container's process limit) gets a clean error from
// a threaded read and still exits normally.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"

namespace {

TEST(ThreadLimit, AReadThatCannotStartThreadsFailsCleanlyAndExits) {
  if (std::system("command -v prlimit >/dev/null && command -v setpriv >/dev/null") != 0) {
    GTEST_SKIP() << "prlimit and setpriv (util-linux) are needed";
  }
  vxtest::TempDir dir;
  const std::string path = vxtest::writeSimpleFile(dir, "rows.parquet", 50000, 10000);
  ::chmod(dir.path().c_str(), 0755);
  ::chmod(path.c_str(), 0644);
  // Root is not held to the process limit: run as nobody, who owns no other process.
  const std::string asUser =
      ::geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";
  // LeakSanitizer's exit check needs a thread of its own, which the limit forbids.
  const std::string command = "cd / && ASAN_OPTIONS=detect_leaks=0 timeout 60 " + asUser +
                              "prlimit --nproc=1 " + std::string(VX_BINARY_DIR) +
                              "/tools/vxparquet read " + path + " >/dev/null 2>" + dir.file("err");
  const int status = std::system(command.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1) << "124 means the program hung";
  EXPECT_NE(vxtest::readBytes(dir.file("err")).find("VANTRO:parquetio:read:InternalInvalidRead"),
            std::string::npos)
      << vxtest::readBytes(dir.file("err"));
}

}  // namespace
