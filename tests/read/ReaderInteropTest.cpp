// Files written by other Parquet writers, and files that are not Parquet at all.
#include <arrow/table.h>
#include <arrow/util/config.h>
#include <gtest/gtest.h>

#include "host/converter/Converter.hpp"
#include "tests/read/ReaderTestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using foundation::core::except::IMsgIDException;
using vantro::io::parquet::core::read::RowGroupParquetReader;
using vxtest::u16;

// Exposes the Arrow tables that read() converts, to rebuild a file from its row groups.
class ArrowSideReader : public RowGroupParquetReader {
 public:
  using RowGroupParquetReader::readNext;
  using RowGroupParquetReader::RowGroupParquetReader;
};

std::vector<double> allRowGroups(double count) {
  std::vector<double> rowGroups;
  for (double i = 1; i <= count; ++i) rowGroups.push_back(i);
  return rowGroups;
}

// The file read row group by row group, joined on the Arrow side and converted once.
matrix::unique_array readPieceByPiece(const std::string& path) {
  ArrowSideReader reader(u16(path), std::vector<double>{});
  reader = ArrowSideReader(u16(path), allRowGroups(reader.getTotalNumRowGroups()));
  std::vector<std::shared_ptr<arrow::Table>> pieces;
  while (reader.hasdata()) pieces.push_back(reader.readNext());
  auto joined = arrow::ConcatenateTables(pieces);
  if (!joined.ok()) ADD_FAILURE() << joined.status().ToString();
  auto host = vantro::io::arrow::core::to_vantro(*joined);
  if (!host.ok()) throw std::runtime_error(host.status().ToString());
  return std::move(host).ValueOrDie();
}

TEST(InteropTest, EveryCorpusFileReadsAlikeWholeAndByRowGroup) {
  VX_REQUIRE_INTEROP();
  int compared = 0;
  for (const auto& path : vxtest::interopFiles()) {
    SCOPED_TRACE(path);
    // Arrow 11's gzip stops after a file's first gzip member, and what it leaves in the last
    // value then depends on the memory it got: no read of it can be compared (README, Safety).
    if (ARROW_VERSION_MAJOR < 12 && path.find("concatenated_gzip_members") != std::string::npos) {
      continue;
    }
    matrix::unique_array whole;
    try {
      RowGroupParquetReader reader(u16(path), std::vector<double>{});
      whole = reader.readFullFile();
      // The same file through the host's own row-group path.
      RowGroupParquetReader each(u16(path), allRowGroups(reader.getTotalNumRowGroups()));
      std::vector<uint64_t> heights = each.getRowGroupHeights();
      for (uint64_t height : heights) {
        if (!each.hasdata()) break;
        EXPECT_EQ(vxtest::read::tableRows(each.read().get()), height);
      }
    } catch (const IMsgIDException& e) {
      // Refusing a file is allowed, as long as it is refused with a host error.
      std::printf("[ refused  ] %s: %s\n", path.c_str(), e.message().c_str());
      continue;
    }
    try {
      const std::string difference =
          vxtest::read::hostDifference(whole.get(), readPieceByPiece(path).get());
      EXPECT_EQ(difference, "");
      ++compared;
    } catch (const IMsgIDException& e) {
      std::printf("[ refused  ] %s by row group: %s\n", path.c_str(), e.message().c_str());
    }
  }
  EXPECT_GT(compared, 10);
}

class BadInputTest : public ::testing::Test {
 protected:
  vxtest::TempDir mDir;
};

TEST_F(BadInputTest, MissingFileOrFolder) {
  vxtest::expectHostError([&] { RowGroupParquetReader(mDir.ufile("missing.parquet"), {1}); },
                          "VANTRO:vfs:FileNotFound");
  vxtest::expectHostError([&] { RowGroupParquetReader(u16(mDir.path()), 0, 100); },
                          "VANTRO:vfs:IsDirectory");
}

TEST_F(BadInputTest, FilesThatAreNotParquet) {
  const std::string csv = mDir.file("table.csv");
  vxtest::writeBytes(csv, "a,b\n1,2\n3,4\n");
  const std::string empty = mDir.file("empty.parquet");
  vxtest::writeBytes(empty, "");
  const std::string complete = vxtest::writeSimpleFile(mDir, "whole.parquet", 100, 10);
  const std::string bytes = vxtest::readBytes(complete);
  const std::string truncated = mDir.file("truncated.parquet");
  vxtest::writeBytes(truncated, bytes.substr(0, bytes.size() / 2));

  for (const auto& path : {csv, empty, truncated}) {
    SCOPED_TRACE(path);
    auto arguments = vxtest::expectHostError([&] { RowGroupParquetReader(u16(path), {1}); },
                                             "VANTRO:parquetio:read:InternalInvalidRead");
    ASSERT_TRUE(arguments);
    EXPECT_EQ(std::get<std::u16string>((*arguments)[0]), u16(path));
  }
}

TEST_F(BadInputTest, DamagedPagesFailWithHostErrors) {
  const std::string path = vxtest::writeSimpleFile(mDir, "damaged.parquet", 1000, 100);
  std::string bytes = vxtest::readBytes(path);
  // Zero the pages between the magic and the footer; the footer itself stays readable.
  RowGroupParquetReader intact(u16(path), {});
  const auto offsets = intact.getRowGroupOffsets();
  std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(offsets[0]),
            bytes.begin() + static_cast<std::ptrdiff_t>(offsets.back()), '\0');
  vxtest::writeBytes(path, bytes);

  RowGroupParquetReader reader(u16(path), {1, 2});
  try {
    reader.readFullFile();
    ADD_FAILURE() << "zeroed pages were read";
  } catch (const IMsgIDException& e) {
    EXPECT_EQ(e.identifier(), "VANTRO:parquetio:read:InternalInvalidRead") << e.message();
  }
  vxtest::expectHostError([&] { reader.read(); }, "VANTRO:parquetio:read:InternalInvalidRead");
}

}  // namespace
