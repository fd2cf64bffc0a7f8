// Under a process limit (a container's, or prlimit --nproc) every command still ends normally:
// it reads on the threads it can start, or on its own, or refuses with an identifier. It never
// aborts, hangs or floods standard error.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"

namespace {

class ThreadLimit : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::system("command -v prlimit >/dev/null && command -v setpriv >/dev/null") != 0) {
      GTEST_SKIP() << "prlimit and setpriv (util-linux) are needed";
    }
    if (::geteuid() != 0) {
      // Another user's processes would count against the limit too: only a user that owns
      // no other process gives a limit that means what it says.
      GTEST_SKIP() << "switching to an unprivileged user needs root; thread limits not tested";
    }
    ::chmod(dir.path().c_str(), 0777);
    path = vxtest::writeSimpleFile(dir, "rows.parquet", 50000, 10000);
    ::chmod(path.c_str(), 0644);
  }

  // Runs vxparquet with arguments as nobody under --nproc=processes; the exit status.
  int run(int processes, const std::string& arguments) {
    // LeakSanitizer's exit check needs a thread of its own, which the limit forbids.
    const std::string command =
        "cd / && ASAN_OPTIONS=detect_leaks=0 timeout 60 setpriv --reuid=65534 --regid=65534 "
        "--clear-groups prlimit --nproc=" +
        std::to_string(processes) + " " + std::string(VX_BINARY_DIR) + "/tools/vxparquet " +
        arguments + " >" + dir.file("out") + " 2>" + dir.file("err");
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  vxtest::TempDir dir;
  std::string path;
};

TEST_F(ThreadLimit, EveryCommandEndsWithAResultOrAnIdentifier) {
  const std::vector<std::string> commands = {
      "count " + path + " " + path + " " + path + " " + path + " " + path,
      "info " + path,
      "read " + path,
      "read --format csv " + path,
      "head " + path,
      "stats " + path,
      "write " + dir.file("copy.parquet") + " --from " + path,
  };
  for (int processes = 1; processes <= 8; ++processes) {
    for (const auto& command : commands) {
      SCOPED_TRACE("--nproc=" + std::to_string(processes) + " vxparquet " + command);
      const int status = run(processes, command);
      const std::string err = vxtest::readBytes(dir.file("err"));
      ASSERT_TRUE(status == 0 || status == 1) << "status " << status << "\n" << err;
      if (status == 1) {
        EXPECT_NE(err.find(": error: "), std::string::npos) << err;
      }
      // Arrow's allocator may say once, as it loads, that its first thread failed; then the
      // program restarts without those threads.
      size_t allocatorLines = 0;
      for (size_t at = err.find("<jemalloc>"); at != std::string::npos;
           at = err.find("<jemalloc>", at + 1)) {
        ++allocatorLines;
      }
      EXPECT_LE(allocatorLines, 1u) << err;
      EXPECT_EQ(err.find("terminate called"), std::string::npos) << err;
    }
  }
}

TEST_F(ThreadLimit, OneThreadStillReadsTheWholeFile) {
  ASSERT_EQ(run(1, "count " + path), 0) << vxtest::readBytes(dir.file("err"));
  EXPECT_NE(vxtest::readBytes(dir.file("out")).find("5\t50000\t"), std::string::npos);
  ASSERT_EQ(run(1, "read --format csv " + path), 0) << vxtest::readBytes(dir.file("err"));
  const std::string rows = vxtest::readBytes(dir.file("out"));
  EXPECT_EQ(std::count(rows.begin(), rows.end(), '\n'), 50001);
}

}  // namespace
