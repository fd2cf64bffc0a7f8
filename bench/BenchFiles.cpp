#include "BenchFiles.hpp"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <random>

#include <arrow/api.h>
#include <arrow/io/file.h>
#include <parquet/arrow/writer.h>

namespace vxbench {
namespace {

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

// One row group's worth of random rows, starting at row `first`.
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
  check(strings.Reserve(rows), "reserve");
  check(strings.ReserveData(rows * 12), "reserve");
  char text[16];
  for (int64_t r = 0; r < rows; ++r) {
    std::snprintf(text, sizeof text, "id-%09" PRIu64, static_cast<uint64_t>(random() % 1000000000));
    check(strings.Append(text, 12), "append");
  }
  columns.push_back(strings.Finish().ValueOrDie());
  arrow::TimestampBuilder times(arrow::timestamp(arrow::TimeUnit::MICRO),
                                arrow::default_memory_pool());
  check(times.Reserve(rows), "reserve");
  const int64_t start = 1700000000000000;
  for (int64_t r = 0; r < rows; ++r) {
    times.UnsafeAppend(start + (first + r) * 1000 + static_cast<int64_t>(random() % 1000));
  }
  columns.push_back(times.Finish().ValueOrDie());
  return arrow::Table::Make(benchSchema(), columns);
}

}  // namespace

// Snappy, `rowGroups` row groups, written one row group at a time to keep the writer's memory
// small.
void writeBenchFile(const std::string& path, int64_t rows, int rowGroups) {
  auto sink = arrow::io::FileOutputStream::Open(path).ValueOrDie();
  auto properties =
      parquet::WriterProperties::Builder().compression(parquet::Compression::SNAPPY)->build();
  auto writer = parquet::arrow::FileWriter::Open(*benchSchema(), arrow::default_memory_pool(), sink,
                                                 properties)
                    .ValueOrDie();
  std::mt19937_64 random(42);
  const int64_t perGroup = (rows + rowGroups - 1) / rowGroups;
  for (int64_t first = 0; first < rows; first += perGroup) {
    const int64_t count = std::min(perGroup, rows - first);
    check(writer->WriteTable(*benchRows(first, count, random), count), "write");
  }
  check(writer->Close(), "close");
  check(sink->Close(), "close");
}

}  // namespace vxbench
