// Disks that fill up under the writer. Whatever the byte at which writing fails, the writer
// raises a host exception, later calls on it fail or do nothing, and once it is destroyed no
// partial output is left behind.
//
// Identifiers: the stream's own VANTRO:vfs:WriteFailure when the failing write came straight
// from the writer's call, VANTRO:parquetio:write:InvalidWrite when Parquet reported it as a
// status (its text then names the WriteFailure).
#include <gtest/gtest.h>

#include "tests/fault/FaultTestSupport.hpp"
#include "tests/write/WriteTestUtil.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace {

using vantro::io::parquet::core::write::ParquetWriter;
using vxtest::fault::outcomeOf;

const std::u16string kName = u"mem://t/out.parquet";
const std::string kKey = "//t/out.parquet";

// How one test writes its file.
enum class Road { kWhole, kRowGroups, kTwoWrites };

class WriteFaultTest : public vxtest::fault::MemoryFileTest,
                       public ::testing::WithParamInterface<Road> {
 protected:
  // Writes the table along the road, closes, and reports how that ended. The writer is
  // destroyed before returning, as the host discards a writer that failed.
  vxtest::fault::Outcome writeFile() {
    const auto table = vxtest::write::hostTable(vxtest::simpleTable(3000));
    const auto heights = vxtest::write::hostDoubles({1000, 1000, 1000});
    ParquetWriter writer(kName);
    writer.setVariableNames({u"id", u"x", u"name"});
    writer.setMaxRowGroupLength(1500);
    const auto outcome = outcomeOf([&] {
      switch (GetParam()) {
        case Road::kWhole:
          writer.write(table.get());
          break;
        case Road::kRowGroups:
          writer.writeRowGroups(table.get(), heights.get());
          break;
        case Road::kTwoWrites:
          writer.write(table.get());
          writer.writeRowGroups(table.get(), heights.get());
          break;
      }
      writer.close();
    });
    if (outcome.failed) {
      // A failed writer must stay safe to use until the host lets go of it.
      (void)outcomeOf([&] { writer.write(table.get()); });
      (void)outcomeOf([&] { writer.close(); });
    }
    return outcome;
  }
};

TEST_P(WriteFaultTest, AFullDiskFailsCleanlyAndLeavesTheOldFile) {
  ASSERT_FALSE(writeFile().failed);
  const std::string reference = *mProvider->get(kKey);
  const auto size = static_cast<int64_t>(reference.size());

  for (const int64_t quota : vxtest::fault::sweepPoints(size, 40, {1, 3, 4, 5, size - 1})) {
    SCOPED_TRACE("disk full after " + std::to_string(quota) + " of " + std::to_string(size) +
                 " bytes");
    setFaults(-1, -1, quota);
    const auto outcome = writeFile();
    if (quota >= size) {
      EXPECT_FALSE(outcome.failed) << outcome;
      ASSERT_TRUE(mProvider->contains(kKey));
      EXPECT_EQ(*mProvider->get(kKey), reference);
      continue;
    }
    ASSERT_TRUE(outcome.failed);
    if (outcome.identifier != "VANTRO:vfs:WriteFailure") {
      EXPECT_EQ(outcome.identifier, "VANTRO:parquetio:write:InvalidWrite") << outcome;
      EXPECT_NE(outcome.message.find("WriteFailure"), std::string::npos) << outcome;
    }
    EXPECT_EQ(*mProvider->get(kKey), reference) << "a failed writer changed the file at its name";
  }
}

INSTANTIATE_TEST_SUITE_P(Roads, WriteFaultTest,
                         ::testing::Values(Road::kWhole, Road::kRowGroups, Road::kTwoWrites),
                         [](const auto& info) {
                           switch (info.param) {
                             case Road::kWhole:
                               return std::string("Whole");
                             case Road::kRowGroups:
                               return std::string("RowGroups");
                             default:
                               return std::string("TwoWrites");
                           }
                         });

}  // namespace
