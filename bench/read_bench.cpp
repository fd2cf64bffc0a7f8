// Reading a generated file into host tables, against Arrow's own read of the same columns into
// an Arrow table (its local file class, ReadTable or ReadRowGroup), with the same thread count.
// Both sides open the file, read and drop their result inside the timing; the two alternate
// run by run, and the ratios are of medians:
//   full_read_vs_arrow      readFullFile of every column, against ReadTable
//   numeric_read_vs_arrow   readFullFile of the six numeric columns, against ReadTable
//   rowgroup_read_vs_arrow  read() row group by row group until there is no more data, against
//                           ReadRowGroup of each row group in turn
//   peak_rss_vs_table       peak resident memory of a full read (in a child process, so that
//                           nothing else counts) over the size of the host table it returns
//   stats_vs_footer         footer statistics of 2,000 row groups x 50 columns through the
//                           reader, against StatisticsAsScalars over the same footer directly
//   wide_adapter_vs_arrow   ReadTable of a 2,000-column x 10,000-row file through the library's
//                           file adapter, against Arrow's local file class
//
// Usage: read_bench [--rows N]   (default 10,000,000 rows in 10 row groups)
// Last line: full_read_vs_arrow=<x> numeric_read_vs_arrow=<n> rowgroup_read_vs_arrow=<y>
//            peak_rss_vs_table=<z> stats_vs_footer=<w> wide_adapter_vs_arrow=<v>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <arrow/io/file.h>
#include <arrow/util/thread_pool.h>
#include <parquet/arrow/reader.h>
#include <parquet/arrow/writer.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>
#include <parquet/statistics.h>

#include "BenchFiles.hpp"
#include "BenchUtil.hpp"
#include "host/converter/Converter.hpp"
#include "host/matrix/Matrix.hpp"
#include "host/services/LargeBlockPool.hpp"
#include "host/services/Services.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::read::RowGroupParquetReader;

constexpr int kRowGroups = 10;
constexpr int kRepetitions = 5;

void check(const arrow::Status& status, const char* what) {
  if (status.ok()) return;
  std::fprintf(stderr, "%s: %s\n", what, status.ToString().c_str());
  std::exit(2);
}

// 2,000 row groups of 50 filterable columns, for a large footer full of statistics.
void writeStatsFile(const std::string& path) {
  constexpr int kColumns = 50;
  constexpr int64_t kRowsPerGroup = 20;
  constexpr int64_t kRows = 2000 * kRowsPerGroup;
  arrow::FieldVector fields;
  arrow::ArrayVector columns;
  for (int c = 0; c < kColumns; ++c) {
    const std::string name = "c" + std::to_string(c);
    if (c % 3 == 0) {
      arrow::Int64Builder builder;
      for (int64_t r = 0; r < kRows; ++r) check(builder.Append(r * (c + 1)), "append");
      fields.push_back(arrow::field(name, arrow::int64()));
      columns.push_back(builder.Finish().ValueOrDie());
    } else if (c % 3 == 1) {
      arrow::DoubleBuilder builder;
      for (int64_t r = 0; r < kRows; ++r) check(builder.Append(r * 0.5 + c), "append");
      fields.push_back(arrow::field(name, arrow::float64()));
      columns.push_back(builder.Finish().ValueOrDie());
    } else {
      arrow::StringBuilder builder;
      for (int64_t r = 0; r < kRows; ++r) {
        check(builder.Append("v" + std::to_string(r % 997)), "append");
      }
      fields.push_back(arrow::field(name, arrow::utf8()));
      columns.push_back(builder.Finish().ValueOrDie());
    }
  }
  auto sink = arrow::io::FileOutputStream::Open(path).ValueOrDie();
  check(parquet::arrow::WriteTable(*arrow::Table::Make(arrow::schema(fields), columns),
                                   arrow::default_memory_pool(), sink, kRowsPerGroup),
        "write stats file");
  check(sink->Close(), "close");
}

// 2,000 double columns x 10,000 rows in one row group: many small column chunks, read one by
// one through the file.
void writeWideFile(const std::string& path) {
  constexpr int kColumns = 2000;
  constexpr int64_t kRows = 10000;
  std::mt19937_64 random(5);
  std::uniform_real_distribution<double> real(-1e6, 1e6);
  arrow::FieldVector fields;
  arrow::ArrayVector columns;
  for (int c = 0; c < kColumns; ++c) {
    arrow::DoubleBuilder builder;
    check(builder.Reserve(kRows), "reserve");
    for (int64_t r = 0; r < kRows; ++r) builder.UnsafeAppend(real(random));
    fields.push_back(arrow::field("c" + std::to_string(c), arrow::float64()));
    columns.push_back(builder.Finish().ValueOrDie());
  }
  auto sink = arrow::io::FileOutputStream::Open(path).ValueOrDie();
  auto properties =
      parquet::WriterProperties::Builder().compression(parquet::Compression::SNAPPY)->build();
  check(parquet::arrow::WriteTable(*arrow::Table::Make(arrow::schema(fields), columns),
                                   arrow::default_memory_pool(), sink, kRows, properties),
        "write wide file");
  check(sink->Close(), "close");
}

// Runs fn in a child process, waits for it and returns the child's own resource usage (what
// getrusage(RUSAGE_CHILDREN) reports when it is the only child); exits when the child fails.
template <class Fn>
rusage inChild(Fn&& fn) {
  const pid_t child = fork();
  if (child == 0) {
    fn();
    _exit(0);
  }
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "child process failed\n");
    std::exit(2);
  }
  return usage;
}

// Arrow's own read: its local file class, ReadTable of the given columns, the same pool size.
std::shared_ptr<arrow::Table> arrowReadTable(const std::string& path,
                                             const std::vector<int>& columns) {
  std::unique_ptr<parquet::arrow::FileReader> reader;
  check(
      vantro::io::parquet::core::common::compat::OpenFile(
          arrow::io::ReadableFile::Open(path).ValueOrDie(), arrow::default_memory_pool(), &reader),
      "open");
  reader->set_use_threads(true);
  std::shared_ptr<arrow::Table> table;
  check(vantro::io::parquet::core::common::compat::ReadTable(*reader, columns, &table),
        "ReadTable");
  return table;
}

// The same read through the library's file adapter instead of Arrow's local file class.
std::shared_ptr<arrow::Table> adapterReadTable(const std::string& path,
                                               const std::vector<int>& columns) {
  std::unique_ptr<parquet::arrow::FileReader> reader;
  check(vantro::io::parquet::core::common::compat::OpenFile(
            vantro::io::parquet::core::common::makeReadableFilePtr(
                foundation::unicode::utf8_to_ustring(path)),
            arrow::default_memory_pool(), &reader),
        "open");
  reader->set_use_threads(true);
  std::shared_ptr<arrow::Table> table;
  check(vantro::io::parquet::core::common::compat::ReadTable(*reader, columns, &table),
        "ReadTable");
  return table;
}

// Every row group read on its own into an Arrow table, nothing converted: through Arrow's local
// file class, or through the library's file adapter.
void readRowGroups(const std::string& path, bool throughAdapter) {
  std::shared_ptr<arrow::io::RandomAccessFile> file;
  if (throughAdapter) {
    file = vantro::io::parquet::core::common::makeReadableFilePtr(
        foundation::unicode::utf8_to_ustring(path));
  } else {
    file = arrow::io::ReadableFile::Open(path).ValueOrDie();
  }
  std::unique_ptr<parquet::arrow::FileReader> reader;
  check(vantro::io::parquet::core::common::compat::OpenFile(file, arrow::default_memory_pool(),
                                                            &reader),
        "open");
  reader->set_use_threads(true);
  const std::vector<int> columns{0, 1, 2, 3, 4, 5, 6, 7};
  for (int i = 0; i < reader->num_row_groups(); ++i) {
    std::shared_ptr<arrow::Table> table;
    check(vantro::io::parquet::core::common::compat::ReadRowGroup(*reader, i, columns, &table),
          "ReadRowGroup");
  }
}

// Bytes of host data in a value: numbers, logicals and chars, through cells and fields.
size_t hostBytes(const vxArray_tag* value) {
  if (value == nullptr) return 0;
  const size_t count = vxGetNumberOfElements(value);
  switch (vxGetClassID(value)) {
    case vxCELL_CLASS: {
      size_t bytes = 0;
      for (size_t i = 0; i < count; ++i) bytes += hostBytes(vxGetCell(value, i));
      return bytes;
    }
    case vxSTRUCT_CLASS:
    case vxOBJECT_CLASS: {
      size_t bytes = 0;
      for (int f = 0; f < vxGetNumberOfFields(value); ++f) {
        for (size_t i = 0; i < count; ++i) {
          bytes += hostBytes(vxGetField(value, i, vxGetFieldNameByNumber(value, f)));
        }
      }
      return bytes;
    }
    default:
      return count * vxGetElementSize(value) * (vxIsComplex(value) ? 2 : 1);
  }
}

// Peak resident memory of a full read in a fresh child, and the size of its host table.
std::pair<double, double> fullReadMemory(const std::string& path) {
  int pipeEnds[2];
  if (pipe(pipeEnds) != 0) std::exit(2);
  const rusage usage = inChild([&] {
    RowGroupParquetReader reader(foundation::unicode::utf8_to_ustring(path), {});
    auto table = reader.readFullFile();
    const double bytes = static_cast<double>(hostBytes(table.get()));
    if (write(pipeEnds[1], &bytes, sizeof bytes) != sizeof bytes) _exit(3);
  });
  double tableBytes = 0;
  if (read(pipeEnds[0], &tableBytes, sizeof tableBytes) != sizeof tableBytes) std::exit(2);
  close(pipeEnds[0]);
  close(pipeEnds[1]);
  return {static_cast<double>(usage.ru_maxrss) * 1024.0, tableBytes};
}

double ratio(const vxbench::Timing& ours, const vxbench::Timing& theirs) {
  return ours.median / theirs.median;
}

// The footer statistics decoded directly: every chunk's counts and min/max scalars.
void decodeFooterStatistics(const parquet::FileMetaData& metadata) {
  int64_t seen = 0;
  for (int r = 0; r < metadata.num_row_groups(); ++r) {
    auto rowGroup = metadata.RowGroup(r);
    for (int c = 0; c < rowGroup->num_columns(); ++c) {
      auto chunk = rowGroup->ColumnChunk(c);
      if (!chunk->is_stats_set()) continue;
      auto statistics = chunk->statistics();
      seen += statistics->null_count() + statistics->distinct_count();
      std::shared_ptr<arrow::Scalar> min, max;
      if (parquet::arrow::StatisticsAsScalars(*statistics, &min, &max).ok()) ++seen;
    }
  }
  if (seen < 0) std::printf("unexpected\n");
}

}  // namespace

int main(int argc, char** argv) {
  // As a host program starts (on the newest Arrow's build this also chooses jemalloc).
  foundation::services::setArrowMemoryDecayMs(foundation::services::kProgramArrowMemoryDecayMs);
  // Whole files read once, as the Octave package reads them: columns decode into blocks that
  // grow in place instead of being copied at each step.
  foundation::services::useLargeBlockPoolForReads(/*keepFreedPages=*/false);
  const int64_t rows = vxbench::intArgument(argc, argv, "--rows", 10000000);
  const std::string folder = vxbench::makeTempFolder("read_bench");
  const std::string path = folder + "/bench.parquet";
  const std::string statsPath = folder + "/stats.parquet";
  const std::string widePath = folder + "/wide.parquet";
  const std::u16string upath = foundation::unicode::utf8_to_ustring(path);

  // Generated in a child, so that the writer's memory never counts in this process.
  inChild([&] {
    vxbench::writeBenchFile(path, rows, kRowGroups);
    writeStatsFile(statsPath);
    writeWideFile(widePath);
  });
  const auto memory = fullReadMemory(path);

  const int64_t threads = foundation::services::getNumComputationalThreads();
  check(arrow::SetCpuThreadPoolCapacity(static_cast<int>(threads)), "thread pool");
  std::printf("rows=%lld row_groups=%d threads=%lld\n", static_cast<long long>(rows), kRowGroups,
              static_cast<long long>(threads));

  const std::vector<int> allColumns{0, 1, 2, 3, 4, 5, 6, 7};
  const std::vector<int> numericColumns{0, 1, 2, 3, 4, 5};
  const auto full = vxbench::alternate({[&] { RowGroupParquetReader(upath, {}).readFullFile(); },
                                        [&] { arrowReadTable(path, allColumns); }},
                                       kRepetitions);
  vxbench::report("reader_full_file_all", full[0]);
  vxbench::report("arrow_read_table_all", full[1]);
  // Where the reader's time goes: the Arrow read through the adapter, then the conversion.
  vxbench::report("breakdown_adapter_read_table_all",
                  vxbench::measure([&] { adapterReadTable(path, allColumns); }, kRepetitions));
  const auto arrowTable = arrowReadTable(path, allColumns);
  vxbench::report(
      "breakdown_to_vantro_all",
      vxbench::measure(
          [&] { check(vantro::io::arrow::core::to_vantro(arrowTable).status(), "convert"); },
          kRepetitions));

  const auto numeric = vxbench::alternate(
      {[&] {
         RowGroupParquetReader reader(upath, {});
         reader.setSelectedVariableNames({u"d0", u"d1", u"d2", u"d3", u"i0", u"i1"});
         reader.readFullFile();
       },
       [&] { arrowReadTable(path, numericColumns); }},
      kRepetitions);
  vxbench::report("reader_full_file_numeric", numeric[0]);
  vxbench::report("arrow_read_table_numeric", numeric[1]);

  std::vector<double> everyRowGroup;
  for (int i = 1; i <= kRowGroups; ++i) everyRowGroup.push_back(i);
  const auto rowGroups = vxbench::alternate({[&] {
                                               RowGroupParquetReader reader(upath, everyRowGroup);
                                               while (reader.hasdata()) reader.read();
                                             },
                                             [&] { readRowGroups(path, false); }},
                                            kRepetitions);
  vxbench::report("reader_row_group_by_row_group", rowGroups[0]);
  vxbench::report("arrow_read_row_group_by_row_group", rowGroups[1]);
  vxbench::report("breakdown_adapter_read_row_groups",
                  vxbench::measure([&] { readRowGroups(path, true); }, kRepetitions));

  // The file adapter against Arrow's local file class on many small column chunks, and the
  // reader's whole read of that file.
  std::vector<int> wideColumns(2000);
  for (int i = 0; i < 2000; ++i) wideColumns[i] = i;
  const std::u16string uwide = foundation::unicode::utf8_to_ustring(widePath);
  const auto wide = vxbench::alternate({[&] { adapterReadTable(widePath, wideColumns); },
                                        [&] { arrowReadTable(widePath, wideColumns); },
                                        [&] { RowGroupParquetReader(uwide, {}).readFullFile(); }},
                                       kRepetitions);
  vxbench::report("wide_adapter_read_table", wide[0]);
  vxbench::report("wide_arrow_read_table", wide[1]);
  vxbench::report("wide_reader_full_file", wide[2]);

  std::printf("peak_rss=%.0fMB host_table=%.0fMB\n", memory.first / 1e6, memory.second / 1e6);

  RowGroupParquetReader statsReader(foundation::unicode::utf8_to_ustring(statsPath), {});
  std::vector<int> statsIndices(50);
  for (int i = 0; i < 50; ++i) statsIndices[i] = i;
  const auto statistics =
      vxbench::measure([&] { statsReader.getStatistics(statsIndices); }, kRepetitions);
  vxbench::report("reader_get_statistics", statistics);
  auto footer = parquet::ParquetFileReader::OpenFile(statsPath)->metadata();
  const auto direct = vxbench::measure([&] { decodeFooterStatistics(*footer); }, kRepetitions);
  vxbench::report("footer_statistics_as_scalars", direct);

  vxbench::removeFolder(folder);
  std::printf(
      "full_read_vs_arrow=%.3f numeric_read_vs_arrow=%.3f rowgroup_read_vs_arrow=%.3f "
      "peak_rss_vs_table=%.3f stats_vs_footer=%.3f wide_adapter_vs_arrow=%.3f\n",
      ratio(full[0], full[1]), ratio(numeric[0], numeric[1]), ratio(rowGroups[0], rowGroups[1]),
      memory.first / memory.second, statistics.min / direct.min, ratio(wide[0], wide[1]));
  return 0;
}
