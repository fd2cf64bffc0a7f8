// The C++ side of bench/octave_read: makes the read benchmark's file and times the library's
// own read of it into host values and the write of those values back to Parquet, the same
// work that pq_read and pq_write do inside Octave.
//
// Usage: octave_host --make FILE [--rows N]   writes the file (default 2,000,000 rows in 10
//                                             row groups, the read benchmark's columns)
//        octave_host --time FILE OUT [VAR...]  prints host_read=<s> host_write=<s> (minimum
//                                             of 3 runs each after a warm-up) for the listed
//                                             variables (default: all)
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include <arrow/api.h>
#include <arrow/io/file.h>
#include <parquet/arrow/writer.h>

#include "BenchFiles.hpp"
#include "BenchUtil.hpp"
#include "host/matrix/Matrix.hpp"
#include "host/services/LargeBlockPool.hpp"
#include "host/services/Services.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace {

using foundation::unicode::utf8_to_ustring;

constexpr int kRowGroups = 10;
constexpr int kRepetitions = 3;

matrix::unique_array readHost(const std::string& path, const std::vector<std::u16string>& names) {
  vantro::io::parquet::core::read::RowGroupParquetReader reader(utf8_to_ustring(path), {});
  reader.setSelectedVariableNames(names);
  return reader.readFullFile();
}

void writeHost(const std::string& path, const vxArray* table,
               const std::vector<std::u16string>& names) {
  vantro::io::parquet::core::write::ParquetWriter writer(utf8_to_ustring(path));
  writer.setVariableNames(names);
  writer.write(table);
  writer.close();
}

}  // namespace

int main(int argc, char** argv) {
  // As the Octave package sets up on its first call.
  foundation::services::setArrowMemoryDecayMs(foundation::services::kProgramArrowMemoryDecayMs);
  foundation::services::useLargeBlockPoolForReads(/*keepFreedPages=*/true);
  if (argc >= 3 && std::strcmp(argv[1], "--make") == 0) {
    vxbench::writeBenchFile(argv[2], vxbench::intArgument(argc, argv, "--rows", 2000000),
                            kRowGroups);
    return 0;
  }
  if (argc < 4 || std::strcmp(argv[1], "--time") != 0) {
    std::fprintf(stderr, "usage: octave_host --make FILE [--rows N] | --time FILE OUT [VAR...]\n");
    return 2;
  }
  const std::string file = argv[2];
  const std::string out = argv[3];
  std::vector<std::u16string> names;
  for (int i = 4; i < argc; ++i) names.push_back(utf8_to_ustring(argv[i]));
  if (names.empty()) {
    for (const char* name : {"d0", "d1", "d2", "d3", "i0", "i1", "s", "t"}) {
      names.push_back(utf8_to_ustring(name));
    }
  }
  const auto read = vxbench::measure([&] { readHost(file, names); }, kRepetitions);
  const matrix::unique_array table = readHost(file, names);
  const auto write = vxbench::measure([&] { writeHost(out, table.get(), names); }, kRepetitions);
  std::printf("host_read=%.4f host_write=%.4f\n", read.min, write.min);
  return 0;
}
