// Splitting one file between readers by byte ranges.
#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::read::RowGroupParquetReader;
using vxtest::u16;
using vxtest::read::int64Column;
using vxtest::read::tableColumn;

// One reader per adjacent range [cuts[i], cuts[i+1]); returns each reader's row groups.
std::vector<std::vector<double>> splitAt(const std::string& path, const std::vector<double>& cuts) {
  std::vector<std::vector<double>> lists;
  for (size_t i = 0; i + 1 < cuts.size(); ++i) {
    RowGroupParquetReader reader(u16(path), cuts[i], cuts[i + 1] - cuts[i]);
    lists.push_back(reader.getRowGroups());
  }
  return lists;
}

// Row group i + 1 must be listed exactly once, by the range holding its first byte.
void expectEachRowGroupOnce(const std::vector<std::vector<double>>& lists,
                            const std::vector<double>& cuts, const std::vector<uint64_t>& offsets) {
  std::vector<int> seen(offsets.size(), 0);
  for (size_t range = 0; range < lists.size(); ++range) {
    EXPECT_TRUE(std::is_sorted(lists[range].begin(), lists[range].end()));
    for (double rowGroup : lists[range]) {
      const auto index = static_cast<size_t>(rowGroup) - 1;
      ASSERT_LT(index, offsets.size());
      ++seen[index];
      const auto offset = static_cast<double>(offsets[index]);
      EXPECT_GE(offset, cuts[range]);
      EXPECT_LT(offset, cuts[range + 1]);
    }
  }
  EXPECT_EQ(seen, std::vector<int>(offsets.size(), 1));
}

TEST(ByteRangeTest, AdjacentRangesShareOutEveryRowGroupOnce) {
  vxtest::TempDir dir;
  std::mt19937 random(20240611);
  for (int file = 0; file < 8; ++file) {
    SCOPED_TRACE("file " + std::to_string(file));
    const int64_t rows = std::uniform_int_distribution<int64_t>(1, 3000)(random);
    const int64_t groupRows = std::uniform_int_distribution<int64_t>(1, 400)(random);
    // Half the files without dictionaries: row groups then start at a data page.
    parquet::WriterProperties::Builder builder;
    if (file % 2 == 1) builder.disable_dictionary();
    const std::string path = dir.file("split" + std::to_string(file) + ".parquet");
    vxtest::writeParquet(path, vxtest::simpleTable(rows), groupRows, builder.build());

    RowGroupParquetReader whole(u16(path), {});
    const auto offsets = whole.getRowGroupOffsets();
    const auto size = static_cast<double>(vxtest::readBytes(path).size());

    for (int split = 0; split < 5; ++split) {
      std::vector<double> cuts{0.0, size};
      const int pieces = std::uniform_int_distribution<int>(1, 12)(random);
      for (int i = 0; i < pieces; ++i) {
        // Some cuts exactly at a row group's first byte, the rest anywhere.
        if (i % 3 == 0) {
          cuts.push_back(static_cast<double>(
              offsets[std::uniform_int_distribution<size_t>(0, offsets.size() - 1)(random)]));
        } else {
          cuts.push_back(
              std::uniform_int_distribution<int64_t>(0, static_cast<int64_t>(size))(random));
        }
      }
      std::sort(cuts.begin(), cuts.end());
      expectEachRowGroupOnce(splitAt(path, cuts), cuts, offsets);
    }
  }
}

TEST(ByteRangeTest, RangeReadersTogetherReadEveryRowOnce) {
  vxtest::TempDir dir;
  const std::string path = vxtest::writeSimpleFile(dir, "rows.parquet", 1000, 70);
  const double size = static_cast<double>(vxtest::readBytes(path).size());
  std::vector<int64_t> ids;
  for (double start : {0.0, size / 3, 2 * size / 3}) {
    RowGroupParquetReader reader(u16(path), start, size / 3 + 1);
    reader.setSelectedVariableNames({u"id"});
    while (reader.hasdata()) {
      auto part = int64Column(tableColumn(reader.read().get(), 0));
      ids.insert(ids.end(), part.begin(), part.end());
    }
  }
  std::sort(ids.begin(), ids.end());
  EXPECT_EQ(ids, vxtest::read::idRange(0, 1000));
}

TEST(ByteRangeTest, BoundaryBelongsToTheLaterRange) {
  vxtest::TempDir dir;
  const std::string path = vxtest::writeSimpleFile(dir, "edge.parquet", 40, 10);
  const auto offsets = RowGroupParquetReader(u16(path), {}).getRowGroupOffsets();
  const double k = static_cast<double>(offsets[2]);
  const double size = static_cast<double>(vxtest::readBytes(path).size());

  EXPECT_EQ(RowGroupParquetReader(u16(path), 0, k).getRowGroups(), std::vector<double>({1, 2}));
  EXPECT_EQ(RowGroupParquetReader(u16(path), k, size - k).getRowGroups(),
            std::vector<double>({3, 4}));

  RowGroupParquetReader beyond(u16(path), static_cast<double>(offsets[3]) + 1, size);
  EXPECT_TRUE(beyond.getRowGroups().empty());
  EXPECT_FALSE(beyond.hasdata());
  EXPECT_TRUE(RowGroupParquetReader(u16(path), 0, 0).getRowGroups().empty());
}

}  // namespace
