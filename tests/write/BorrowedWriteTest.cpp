// ParquetWriter reads fixed-width host values in place (the Arrow table it writes borrows
// them). The file must hold exactly what a copying conversion gives, across row-group slices,
// and nothing of a host table may be needed once its write call has returned.
#include <limits>

#include <arrow/api.h>
#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"
#include "tests/write/WriteTestUtil.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace {

using vantro::io::parquet::core::write::ParquetWriter;
using vxtest::u16;
using namespace vxtest::write;

// Doubles with NaN (written as null), integers, times with a missing value and text.
std::shared_ptr<arrow::Table> mixed(int64_t rows, int64_t first) {
  arrow::DoubleBuilder x;
  arrow::Int64Builder id;
  arrow::TimestampBuilder t(arrow::timestamp(arrow::TimeUnit::MICRO, "UTC"),
                            arrow::default_memory_pool());
  arrow::StringBuilder s;
  for (int64_t i = first; i < first + rows; ++i) {
    EXPECT_TRUE((i % 7 == 3 ? x.AppendNull() : x.Append(i * 0.25)).ok());
    EXPECT_TRUE(id.Append(i).ok());
    EXPECT_TRUE((i % 5 == 1 ? t.AppendNull() : t.Append(i * 1000)).ok());
    EXPECT_TRUE(s.Append("row " + std::to_string(i)).ok());
  }
  return arrow::Table::Make(
      arrow::schema({arrow::field("x", arrow::float64()), arrow::field("id", arrow::int64()),
                     arrow::field("t", t.type()), arrow::field("s", arrow::utf8())}),
      {x.Finish().ValueOrDie(), id.Finish().ValueOrDie(), t.Finish().ValueOrDie(),
       s.Finish().ValueOrDie()});
}

TEST(BorrowedWrite, FileMatchesTheCopyAndNeedsNoHostTableAfterEachCall) {
  vxtest::TempDir dir;
  const std::string path = dir.file("borrowed.parquet");
  ParquetWriter writer(u16(path));
  writer.setVariableNames({u"x", u"id", u"t", u"s"});
  {
    auto first = hostTable(mixed(10, 0));
    const auto heights = hostDoubles({3, 4, 3});
    writer.writeRowGroups(first.get(), heights.get());
    // Overwrite and free the host table: a writer still reading it would write garbage.
    auto* ids =
        static_cast<int64_t*>(vxGetData(vxGetCell(vxGetField(first.get(), 0, "Columns"), 1)));
    for (int i = 0; i < 10; ++i) ids[i] = -1;
  }
  {
    auto second = hostTable(mixed(6, 10));
    writer.write(second.get());
  }
  std::vector<std::shared_ptr<arrow::Table>> churn;
  for (int i = 0; i < 4; ++i) churn.push_back(mixed(16, 100));
  writer.close();

  EXPECT_EQ(rowGroupHeights(path), (std::vector<int64_t>{3, 4, 3, 6}));
  const auto expected = arrow::ConcatenateTables({mixed(10, 0), mixed(6, 10)}).ValueOrDie();
  const auto actual = readBack(path);
  EXPECT_TRUE(actual->Equals(*expected)) << actual->ToString() << "\nvs\n" << expected->ToString();
}

}  // namespace
