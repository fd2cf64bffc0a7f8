// Every corpus file that vxparquet reads writes back with `write OUT --from FILE` and reads
// back equal.
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"

namespace {

TEST(RoundTripCommand, EveryReadableCorpusFileWritesBackEqual) {
  VX_REQUIRE_INTEROP();
  // Missing elements inside cells decide a cell's type until the converter gives them their
  // column's type (the converter's fix on main); these two may still be refused meanwhile.
  const std::set<std::string> pendingConverterFix = {"nested_maps.snappy.parquet",
                                                     "nullable.impala.parquet"};
  vxtest::TempDir dir;
  size_t checked = 0;
  for (const auto& file : vxtest::interopFiles()) {
    const std::string name = file.substr(file.rfind('/') + 1);
    const auto original = vxtest::runVxparquet("read " + file + " --json");
    if (original.exitCode != 0) continue;
    const std::string copy = dir.file("copy.parquet");
    const auto written = vxtest::runVxparquet("write " + copy + " --from " + file);
    if (written.exitCode != 0 && pendingConverterFix.count(name) != 0) continue;
    ASSERT_EQ(written.exitCode, 0) << name << ": " << written.err;
    const auto back = vxtest::runVxparquet("read " + copy + " --json");
    ASSERT_EQ(back.exitCode, 0) << name << ": " << back.err;
    EXPECT_EQ(back.out, original.out) << name;
    ++checked;
  }
  EXPECT_GE(checked, 20u);
}

}  // namespace
