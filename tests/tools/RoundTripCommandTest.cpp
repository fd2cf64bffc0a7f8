// Every corpus file that vxparquet reads writes back with `write OUT --from FILE` and reads
// back equal.
#include <string>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"

namespace {

TEST(RoundTripCommand, EveryReadableCorpusFileWritesBackEqual) {
  VX_REQUIRE_INTEROP();
  vxtest::TempDir dir;
  size_t checked = 0;
  for (const auto& file : vxtest::interopFiles()) {
    const std::string name = file.substr(file.rfind('/') + 1);
    const auto original = vxtest::runVxparquet("read " + file + " --json");
    if (original.exitCode != 0) continue;
    const std::string copy = dir.file("copy.parquet");
    const auto written = vxtest::runVxparquet("write " + copy + " --from " + file);
    ASSERT_EQ(written.exitCode, 0) << name << ": " << written.err;
    const auto back = vxtest::runVxparquet("read " + copy + " --json");
    ASSERT_EQ(back.exitCode, 0) << name << ": " << back.err;
    EXPECT_EQ(back.out, original.out) << name;
    ++checked;
  }
  EXPECT_GE(checked, 20u);
}

}  // namespace
