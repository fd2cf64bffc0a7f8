// Row-group counting over many small files: the parallel and the sequential version, and the
// same footer reads done with Arrow's own local file class as the reference.
//
// Last line: async_speedup=<sync / async> adapter_overhead=<sync / raw Arrow>
#include <cstdio>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <arrow/io/file.h>
#include <parquet/arrow/reader.h>
#include <parquet/arrow/writer.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>

#include "BenchUtil.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/info/RowGroupCount.hpp"

namespace {

std::shared_ptr<arrow::Table> smallTable(int64_t rows) {
  arrow::Int64Builder ids;
  arrow::DoubleBuilder values;
  for (int64_t i = 0; i < rows; ++i) {
    ARROW_UNUSED(ids.Append(i));
    ARROW_UNUSED(values.Append(i * 0.5));
  }
  auto schema =
      arrow::schema({arrow::field("id", arrow::int64()), arrow::field("v", arrow::float64())});
  return arrow::Table::Make(schema, {ids.Finish().ValueOrDie(), values.Finish().ValueOrDie()});
}

std::vector<std::string> writeFiles(const std::string& folder, int count) {
  const auto table = smallTable(400);
  std::vector<std::string> paths;
  for (int i = 0; i < count; ++i) {
    paths.push_back(folder + "/f" + std::to_string(i) + ".parquet");
    auto sink = arrow::io::FileOutputStream::Open(paths.back()).ValueOrDie();
    // 1 to 4 row groups per file.
    const int64_t rowsPerGroup = 400 / (1 + i % 4);
    ARROW_UNUSED(
        parquet::arrow::WriteTable(*table, arrow::default_memory_pool(), sink, rowsPerGroup));
    ARROW_UNUSED(sink->Close());
  }
  return paths;
}

uint64_t rawArrowCount(const std::string& path) {
  auto file = arrow::io::ReadableFile::Open(path).ValueOrDie();
  std::unique_ptr<parquet::arrow::FileReader> reader;
  const auto status = vantro::io::parquet::core::common::compat::OpenFile(
      file, arrow::default_memory_pool(), &reader);
  if (!status.ok()) std::abort();
  return static_cast<uint64_t>(reader->parquet_reader()->metadata()->num_row_groups());
}

}  // namespace

int main(int argc, char** argv) {
  namespace info = vantro::io::parquet::core::info;
  const int fileCount = static_cast<int>(vxbench::intArgument(argc, argv, "--files", 1000));
  const int repetitions = static_cast<int>(vxbench::intArgument(argc, argv, "--repetitions", 7));

  const std::string folder = vxbench::makeTempFolder("count_bench-");
  const auto paths = writeFiles(folder, fileCount);
  std::vector<std::u16string> files;
  for (const auto& path : paths) files.push_back(foundation::unicode::utf8_to_ustring(path));
  std::printf("files=%d repetitions=%d\n", fileCount, repetitions);

  uint64_t checksum = 0;
  const auto sync =
      vxbench::measure([&] { checksum += info::getNumRowGroupsSync(files).size(); }, repetitions);
  const auto async =
      vxbench::measure([&] { checksum += info::getNumRowGroupsAsync(files).size(); }, repetitions);
  const auto raw = vxbench::measure(
      [&] {
        for (const auto& path : paths) checksum += rawArrowCount(path);
      },
      repetitions);
  vxbench::report("sync", sync);
  vxbench::report("async", async);
  vxbench::report("raw_arrow", raw);
  std::printf("checksum=%llu\n", static_cast<unsigned long long>(checksum));
  vxbench::removeFolder(folder);
  std::printf("async_speedup=%.3f adapter_overhead=%.3f\n", sync.median / async.median,
              sync.median / raw.median);
  return 0;
}
