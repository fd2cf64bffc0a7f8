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

#include "BenchUtil.hpp"
#include "host/matrix/Matrix.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace {

using foundation::unicode::utf8_to_ustring;

constexpr int kRowGroups = 10;
constexpr int kRepetitions = 3;

void check(const arrow::Status& status, const char* what) {
  if (status.ok()) return;
  std::fprintf(stderr, "%s: %s\n", what, status.ToString().c_str());
  std::exit(2);
}

std::shared_ptr<arrow::Schema> benchSchema() {
  return arrow::schema({arrow::field("d0", arrow::float64()), arrow::field("d1", arrow::float64()),
                        arrow::field("d2", arrow::float64()), arrow::field("d3", arrow::float64()),
                        arrow::field("i0", arrow::int64()), arrow::field("i1", arrow::int64()),
                        arrow::field("s", arrow::utf8()),
                        arrow::field("t", arrow::timestamp(arrow::TimeUnit::MICRO))});
}

// One row group of the read benchmark's rows (random doubles, a row number and random
// integers, 12-character texts, microsecond timestamps).
std::shared_ptr<arrow::Table> benchRows(int64_t first, int64_t rows, std::mt19937_64& random) {
  std::uniform_real_distribution<double> real(-1e6, 1e6);
  arrow::ArrayVector columns;
  for (int c = 0; c < 4; ++c) {
    arrow::DoubleBuilder builder;
    check(builder.Reserve(rows), "reserve");
    for (int64_t r = 0; r < rows; ++r) builder.UnsafeAppend(real(random));
    columns.push_back(builder.Finish().ValueOrDie());
  }
  for (int c = 0; c < 2; ++c) {
    arrow::Int64Builder builder;
    check(builder.Reserve(rows), "reserve");
    for (int64_t r = 0; r < rows; ++r) {
      builder.UnsafeAppend(c == 0 ? first + r : static_cast<int64_t>(random() % 1000000));
    }
    columns.push_back(builder.Finish().ValueOrDie());
  }
  arrow::StringBuilder strings;
  char text[16];
  for (int64_t r = 0; r < rows; ++r) {
    std::snprintf(text, sizeof text, "id-%09" PRIu64, static_cast<uint64_t>(random() % 1000000000));
    check(strings.Append(text, 12), "append");
  }
  columns.push_back(strings.Finish().ValueOrDie());
  arrow::TimestampBuilder times(arrow::timestamp(arrow::TimeUnit::MICRO),
                                arrow::default_memory_pool());
  check(times.Reserve(rows), "reserve");
  for (int64_t r = 0; r < rows; ++r) {
    times.UnsafeAppend(1700000000000000 + (first + r) * 1000 +
                       static_cast<int64_t>(random() % 1000));
  }
  columns.push_back(times.Finish().ValueOrDie());
  return arrow::Table::Make(benchSchema(), columns);
}

void makeFile(const std::string& path, int64_t rows) {
  auto sink = arrow::io::FileOutputStream::Open(path).ValueOrDie();
  auto properties =
      parquet::WriterProperties::Builder().compression(parquet::Compression::SNAPPY)->build();
  auto writer = parquet::arrow::FileWriter::Open(*benchSchema(), arrow::default_memory_pool(), sink,
                                                 properties)
                    .ValueOrDie();
  std::mt19937_64 random(42);
  const int64_t perGroup = (rows + kRowGroups - 1) / kRowGroups;
  for (int64_t first = 0; first < rows; first += perGroup) {
    const int64_t count = std::min(perGroup, rows - first);
    check(writer->WriteTable(*benchRows(first, count, random), count), "write");
  }
  check(writer->Close(), "close");
  check(sink->Close(), "close");
}

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
  if (argc >= 3 && std::strcmp(argv[1], "--make") == 0) {
    makeFile(argv[2], vxbench::intArgument(argc, argv, "--rows", 2000000));
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
