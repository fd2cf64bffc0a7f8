// The host's default thread count fits the process: its CPU affinity and its cgroup's quota.
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "host/services/Services.hpp"
#include "host/services/Threads.hpp"
#include "tests/support/TestSupport.hpp"

namespace {

namespace services = foundation::services;

class CgroupQuota : public ::testing::Test {
 protected:
  // Writes text to root/relative, making its folders.
  void put(const std::string& relative, const std::string& text) {
    std::string path = dir.path();
    size_t start = 0;
    for (size_t slash; (slash = relative.find('/', start)) != std::string::npos;
         start = slash + 1) {
      path = dir.path() + "/" + relative.substr(0, slash);
      ::mkdir(path.c_str(), 0755);
    }
    vxtest::writeBytes(dir.path() + "/" + relative, text);
  }
  int64_t quota() { return services::cgroupCpuQuota(dir.file("self"), dir.path() + "/fs"); }

  vxtest::TempDir dir;
};

TEST_F(CgroupQuota, VersionTwoRoundsUpAndTakesTheSmallestAncestor) {
  put("self", "0::/job/step\n");
  put("fs/job/step/cpu.max", "150000 100000\n");
  EXPECT_EQ(quota(), 2);
  put("fs/job/cpu.max", "100000 100000\n");
  EXPECT_EQ(quota(), 1);
  put("fs/job/cpu.max", "max 100000\n");
  put("fs/job/step/cpu.max", "max 100000\n");
  EXPECT_EQ(quota(), 0);
  put("fs/job/step/cpu.max", "50000 100000\n");  // half a CPU still runs one thread
  EXPECT_EQ(quota(), 1);
}

TEST_F(CgroupQuota, VersionOneReadsTheCpuController) {
  put("self", "5:memory:/m\n4:cpu,cpuacct:/docker/c1\n");
  put("fs/cpu,cpuacct/docker/c1/cpu.cfs_quota_us", "300000\n");
  put("fs/cpu,cpuacct/docker/c1/cpu.cfs_period_us", "100000\n");
  EXPECT_EQ(quota(), 3);
  put("fs/cpu,cpuacct/docker/c1/cpu.cfs_quota_us", "-1\n");
  EXPECT_EQ(quota(), 0);
}

TEST_F(CgroupQuota, MissingOrDamagedFilesMeanNoQuota) {
  EXPECT_EQ(quota(), 0);
  put("self", "garbage\n0::/g\n");
  put("fs/g/cpu.max", "lots 100000\n");
  EXPECT_EQ(quota(), 0);
  put("fs/g/cpu.max", "100000 0\n");
  EXPECT_EQ(quota(), 0);
}

// In a child, so that the test process keeps its own mask.
TEST(ThreadCount, TheDefaultFollowsTheAffinityMask) {
  const int64_t configured = services::getNumComputationalThreads();
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    services::setNumComputationalThreads(0);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(0, &one);
    if (::sched_setaffinity(0, sizeof one, &one) != 0) ::_exit(3);
    if (services::availableCpus() != 1) ::_exit(1);
    if (services::getNumComputationalThreads() != 1) ::_exit(2);
    services::setNumComputationalThreads(5);  // a host setting overrides the mask
    ::_exit(services::getNumComputationalThreads() == 5 ? 0 : 4);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(services::getNumComputationalThreads(), configured);
}

TEST(ThreadCount, TheProgramUnderTasksetUsesOneThread) {
  if (std::system("command -v taskset >/dev/null") != 0) GTEST_SKIP() << "taskset is needed";
  // The library logs the count it sizes Arrow's pool with (mask 'all').
  vxtest::TempDir dir;
  const std::string path = vxtest::writeSimpleFile(dir, "rows.parquet", 1000, 500);
  const std::string program = std::string(VX_BINARY_DIR) + "/tools/vxparquet";
  const std::string log = dir.file("log");
  const std::string command = "VXPARQUET_LOG=all:" + log + " taskset -c 0 " + program + " read " +
                              path + " >/dev/null 2>&1";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const std::string trace = vxtest::readBytes(log);
  EXPECT_NE(trace.find("numThreads = 1"), std::string::npos) << trace.substr(0, 2000);
  const std::string wider = "VXPARQUET_LOG=all:" + log + " taskset -c 0 " + program +
                            " read --threads 3 " + path + " >/dev/null 2>&1";
  ASSERT_EQ(std::system(wider.c_str()), 0);
  EXPECT_NE(vxtest::readBytes(log).find("numThreads = 3"), std::string::npos);
}

TEST(StartableThreads, TryStartThreadRunsTheBody) {
  bool ran = false;
  std::thread thread = services::tryStartThread([&] { ran = true; });
  ASSERT_TRUE(thread.joinable());
  thread.join();
  EXPECT_TRUE(ran);
  EXPECT_EQ(services::countStartableThreads(4), 4);
  EXPECT_EQ(services::countStartableThreads(1), 1);
  services::setLastStartableThreads(2);
  EXPECT_EQ(services::getLastStartableThreads(), 2);
  services::setLastStartableThreads(0);
  EXPECT_GT(services::getLastStartableThreads(), 1000);
}

}  // namespace
