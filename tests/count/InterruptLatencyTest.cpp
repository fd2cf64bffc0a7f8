// How soon a long count stops once the host raises an interrupt: the host promises its users
// that Ctrl+C ends a call within a fraction of a second, so the bound here is generous (1 s)
// and the measured latency is reported (aim: 100 ms).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <iostream>
#include <thread>

#include "host/except/Exception.hpp"
#include "host/services/Interrupts.hpp"
#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupCount.hpp"

namespace info = vantro::io::parquet::core::info;

namespace {

using Clock = std::chrono::steady_clock;
using CountFunction = std::vector<uint64_t> (*)(std::vector<std::u16string>);

constexpr size_t kFiles = 10000;
constexpr auto kRaiseAfter = std::chrono::milliseconds(30);
constexpr auto kBound = std::chrono::milliseconds(1000);

class InterruptLatency : public ::testing::TestWithParam<std::pair<const char*, CountFunction>> {
 protected:
  static void SetUpTestSuite() {
    sDir = new vxtest::TempDir;
    sFiles = new std::vector<std::u16string>;
    // Copies of one small file: writing 10,000 files with Parquet's writer would take longer
    // than the test itself.
    const std::string bytes =
        vxtest::readBytes(vxtest::writeSimpleFile(*sDir, "source.parquet", 10, 5));
    for (size_t i = 0; i < kFiles; ++i) {
      const std::string name = "f" + std::to_string(i) + ".parquet";
      vxtest::writeBytes(sDir->file(name), bytes);
      sFiles->push_back(sDir->ufile(name));
    }
  }
  static void TearDownTestSuite() {
    delete sFiles;
    delete sDir;
  }
  void TearDown() override { utInterruptState::Clear(); }

  static inline vxtest::TempDir* sDir = nullptr;
  static inline std::vector<std::u16string>* sFiles = nullptr;
};

INSTANTIATE_TEST_SUITE_P(BothVersions, InterruptLatency,
                         ::testing::Values(std::make_pair("sync", &info::getNumRowGroupsSync),
                                           std::make_pair("async", &info::getNumRowGroupsAsync)),
                         [](const auto& info) { return std::string(info.param.first); });

TEST_P(InterruptLatency, ACountEndsWithTheInterruptSoonAfterItIsRaised) {
  foundation::host::initialize();  // this thread becomes the signal thread
  utInterruptState::Clear();
  std::atomic<int64_t> raisedAt{0};
  std::thread raiser([&] {
    std::this_thread::sleep_for(kRaiseAfter);
    raisedAt = Clock::now().time_since_epoch().count();
    utInterruptState::Raise();
  });

  bool interrupted = false;
  try {
    (void)GetParam().second(*sFiles);
  } catch (const foundation::core::except::InterruptException&) {
    interrupted = true;
  }
  const auto endedAt = Clock::now();
  raiser.join();

  ASSERT_TRUE(interrupted) << "the count of " << kFiles
                           << " files finished before the interrupt: make it longer";
  const auto latency = endedAt - Clock::time_point(Clock::duration(raisedAt.load()));
  const double ms = std::chrono::duration<double, std::milli>(latency).count();
  std::cout << "[ latency  ] " << GetParam().first << ": " << ms << " ms from Raise to the "
            << "interrupt exception\n";
  RecordProperty("latency_ms", std::to_string(ms));
  EXPECT_LT(latency, kBound);
}

}  // namespace
