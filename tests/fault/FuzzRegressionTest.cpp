// Inputs the fuzzers found faults with, replayed through the fuzzers' own code: each must now
// end in host errors only.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/fuzz/FuzzInputs.hpp"
#include "tests/support/TestSupport.hpp"

namespace {

std::vector<std::filesystem::path> savedInputs(const std::string& target) {
  std::vector<std::filesystem::path> inputs;
  const std::filesystem::path folder =
      std::filesystem::path(VX_SOURCE_DIR) / "tests" / "fuzz" / "regressions" / target;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.is_regular_file() && entry.path().filename() != ".gitkeep") {
      inputs.push_back(entry.path());
    }
  }
  return inputs;
}

template <class Replay>
void replayAll(const std::string& target, Replay replay) {
  for (const auto& path : savedInputs(target)) {
    SCOPED_TRACE(path.string());
    const std::string bytes = vxtest::readBytes(path.string());
    EXPECT_NO_THROW(replay(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
  }
}

TEST(FuzzRegressions, ReadInputsEndInHostErrorsOnly) {
  replayAll("read", vxfuzz::readParquetBytes);
}

TEST(FuzzRegressions, WriteInputsEndInHostErrorsOnly) {
  replayAll("write", vxfuzz::writeHostTable);
}

}  // namespace
