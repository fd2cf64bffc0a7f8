// Row filtering with footer statistics against a full read followed by the same filter, and a
// preview (the first 10 rows) against a full read. A generated file of --rows rows (10M by
// default) sorted by "key", in 10 row groups, with a filter that selects about 1% of the rows.
// Last line: filter_vs_full=<x> head_vs_full=<y> (targets: at most 0.2 and 0.05).
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <arrow/io/file.h>
#include <parquet/arrow/writer.h>

#include "BenchUtil.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Expression.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

using vantro::io::parquet::core::filter::Expression;
using vantro::io::parquet::core::read::RowGroupParquetReader;

void writeSortedFile(const std::string& path, int64_t rows) {
  arrow::Int64Builder key;
  arrow::DoubleBuilder value;
  (void)key.Reserve(rows);
  (void)value.Reserve(rows);
  for (int64_t i = 0; i < rows; ++i) {
    key.UnsafeAppend(i);
    value.UnsafeAppend(static_cast<double>((i * 2654435761LL) % 1000003) / 7.0);
  }
  auto table = arrow::Table::Make(
      arrow::schema({arrow::field("key", arrow::int64()), arrow::field("value", arrow::float64())}),
      {key.Finish().ValueOrDie(), value.Finish().ValueOrDie()});
  auto sink = arrow::io::FileOutputStream::Open(path).ValueOrDie();
  const auto status =
      parquet::arrow::WriteTable(*table, arrow::default_memory_pool(), sink, (rows + 9) / 10);
  if (!status.ok()) std::fprintf(stderr, "write failed: %s\n", status.ToString().c_str());
  (void)sink->Close();
}

std::vector<std::string> variableNames(const RowGroupParquetReader& reader) {
  std::vector<std::string> names;
  for (const auto& name : reader.getVariableNames()) {
    names.push_back(foundation::unicode::ustring_to_utf8(name));
  }
  return names;
}

}  // namespace

int main(int argc, char** argv) {
  const int64_t rows = vxbench::intArgument(argc, argv, "--rows", 10000000);
  const int repetitions = static_cast<int>(vxbench::intArgument(argc, argv, "--repetitions", 3));
  const std::string folder = vxbench::makeTempFolder("filter_bench");
  const std::string path = folder + "/sorted.parquet";
  writeSortedFile(path, rows);
  const std::u16string file = foundation::unicode::utf8_to_ustring(path);
  // About 1% of the rows, in the middle of one row group.
  const std::string where =
      "key >= " + std::to_string(rows / 2) + " and key < " + std::to_string(rows / 2 + rows / 100);
  const Expression filter = Expression::parse(where);

  size_t fullMatches = 0, filteredMatches = 0;
  const auto full = vxbench::measure(
      [&] {
        RowGroupParquetReader reader(file, std::vector<double>{});
        auto table = reader.readFullFile();
        fullMatches =
            vantro::io::parquet::core::filter::rowCount(filter.filterRows(table.get()).get());
      },
      repetitions);
  size_t rowGroupsRead = 0;
  const auto filtered = vxbench::measure(
      [&] {
        RowGroupParquetReader reader(file, std::vector<double>{});
        const auto names = variableNames(reader);
        filter.check(names, reader.getVariableTypes());
        const auto statistics = reader.getStatistics({0});
        const auto choices =
            filter.chooseRowGroups(statistics, {names[0]}, reader.getRowGroupHeights());
        std::vector<double> chosen;
        for (size_t r = 0; r < choices.size(); ++r) {
          if (choices[r].read) chosen.push_back(static_cast<double>(r + 1));
        }
        rowGroupsRead = chosen.size();
        auto table = reader.readRowGroups(chosen);
        filteredMatches =
            vantro::io::parquet::core::filter::rowCount(filter.filterRows(table.get()).get());
      },
      repetitions);
  const auto head = vxbench::measure(
      [&] {
        RowGroupParquetReader reader(file, std::vector<double>{});
        auto table = reader.readRowGroups({1});
        std::vector<size_t> first(
            std::min<size_t>(10, vantro::io::parquet::core::filter::rowCount(table.get())));
        for (size_t i = 0; i < first.size(); ++i) first[i] = i;
        (void)vantro::io::parquet::core::filter::takeRows(table.get(), first);
      },
      repetitions);

  vxbench::report("full read + filter", full);
  vxbench::report("statistics + filtered read", filtered);
  vxbench::report("head -n 10", head);
  std::printf("rows=%lld matches=%zu (full read: %zu) row_groups_read=%zu of 10\n",
              static_cast<long long>(rows), filteredMatches, fullMatches, rowGroupsRead);
  vxbench::removeFolder(folder);
  if (filteredMatches != fullMatches) {
    std::printf("MISMATCH: the filtered read and the full read disagree\n");
    return 1;
  }
  std::printf("filter_vs_full=%.3f head_vs_full=%.3f\n", filtered.median / full.median,
              head.median / full.median);
  return 0;
}
