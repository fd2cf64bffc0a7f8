// write_bench [--rows N] [--repetitions R]: writing a host table with ParquetWriter against
// writing the same Arrow table with Parquet's own WriteTable and the same properties; and
// ParquetWriter with the host's per-column dictionary choice on against off (alternated).
// Last line: write_vs_arrow=<x> dictionary_choice_speedup=<off over on> size_ratio=<on/off>
#include <sys/stat.h>

#include <cstdio>
#include <random>
#include <string>

#include <arrow/api.h>
#include <arrow/io/file.h>
#include <parquet/arrow/writer.h>

#include "BenchUtil.hpp"
#include "host/converter/Converter.hpp"
#include "host/services/Services.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriterOptions.hpp"

namespace {

using vantro::io::parquet::core::write::ParquetWriter;
using vantro::io::parquet::core::write::ParquetWriterOptions;

template <class T>
T orDie(arrow::Result<T> result) {
  if (!result.ok()) {
    std::fprintf(stderr, "%s\n", result.status().ToString().c_str());
    std::exit(1);
  }
  return std::move(result).ValueUnsafe();
}

void orDie(const arrow::Status& status) {
  if (!status.ok()) {
    std::fprintf(stderr, "%s\n", status.ToString().c_str());
    std::exit(1);
  }
}

// 4 double, 2 int64, 1 string (12 characters) and 1 timestamp column.
std::shared_ptr<arrow::Table> makeTable(int64_t rows) {
  std::mt19937_64 random(42);
  std::uniform_real_distribution<double> real(-1e6, 1e6);
  arrow::FieldVector fields;
  arrow::ArrayVector columns;
  for (int c = 0; c < 4; ++c) {
    arrow::DoubleBuilder builder;
    orDie(builder.Reserve(rows));
    for (int64_t i = 0; i < rows; ++i) builder.UnsafeAppend(real(random));
    fields.push_back(arrow::field("d" + std::to_string(c), arrow::float64()));
    columns.push_back(orDie(builder.Finish()));
  }
  for (int c = 0; c < 2; ++c) {
    arrow::Int64Builder builder;
    orDie(builder.Reserve(rows));
    for (int64_t i = 0; i < rows; ++i) {
      builder.UnsafeAppend(c == 0 ? i : static_cast<int64_t>(random() % 1000));
    }
    fields.push_back(arrow::field("i" + std::to_string(c), arrow::int64()));
    columns.push_back(orDie(builder.Finish()));
  }
  arrow::StringBuilder names;
  orDie(names.Reserve(rows));
  orDie(names.ReserveData(rows * 12));
  char text[13] = {};
  for (int64_t i = 0; i < rows; ++i) {
    std::snprintf(text, sizeof(text), "name-%07lld", static_cast<long long>(random() % 10000000));
    names.UnsafeAppend(text, 12);
  }
  fields.push_back(arrow::field("s", arrow::utf8()));
  columns.push_back(orDie(names.Finish()));
  arrow::TimestampBuilder times(arrow::timestamp(arrow::TimeUnit::MICRO),
                                arrow::default_memory_pool());
  orDie(times.Reserve(rows));
  for (int64_t i = 0; i < rows; ++i) times.UnsafeAppend(1600000000000000LL + i * 1000);
  fields.push_back(arrow::field("t", arrow::timestamp(arrow::TimeUnit::MICRO)));
  columns.push_back(orDie(times.Finish()));
  return arrow::Table::Make(arrow::schema(fields), columns);
}

void writeHost(const vxArray_tag* host, const std::shared_ptr<arrow::Schema>& schema,
               const std::string& path) {
  ParquetWriter writer(foundation::unicode::utf8_to_ustring(path));
  std::vector<std::u16string> names;
  for (const auto& name : schema->field_names()) {
    names.push_back(foundation::unicode::utf8_to_ustring(name));
  }
  writer.setVariableNames(names);
  writer.write(host);
  writer.close();
}

void writeArrow(const arrow::Table& table, const std::string& path) {
  // The properties ParquetWriter builds from default options: snappy, dictionaries, 2.0.
  const ParquetWriterOptions options;
  auto sink = orDie(arrow::io::FileOutputStream::Open(path));
  orDie(parquet::arrow::WriteTable(table, arrow::default_memory_pool(), sink, table.num_rows(),
                                   options.buildWriterProperties(),
                                   options.buildArrowWriterProperties()));
  orDie(sink->Close());
}

double fileBytes(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? static_cast<double>(status.st_size) : 0;
}

}  // namespace

int main(int argc, char** argv) {
  const int64_t rows = vxbench::intArgument(argc, argv, "--rows", 10'000'000);
  const int repetitions = static_cast<int>(vxbench::intArgument(argc, argv, "--repetitions", 5));
  const std::string folder = vxbench::makeTempFolder("write_bench");
  const std::string path = folder + "/out.parquet";

  const auto table = makeTable(rows);
  const auto host = orDie(vantro::io::arrow::core::to_vantro(table));
  std::printf("rows=%lld columns=%d repetitions=%d\n", static_cast<long long>(rows),
              table->num_columns(), repetitions);

  const auto parquetWriter =
      vxbench::measure([&] { writeHost(host.get(), table->schema(), path); }, repetitions);
  vxbench::report("ParquetWriter", parquetWriter);
  const auto arrowWriter = vxbench::measure([&] { writeArrow(*table, path); }, repetitions);
  vxbench::report("arrow WriteTable", arrowWriter);
  const auto conversion = vxbench::measure(
      [&] { orDie(vantro::io::arrow::core::to_arrow_table(host.get())); }, repetitions);
  vxbench::report("to_arrow_table (part of ParquetWriter)", conversion);

  // The same write with the dictionary tried only where it may pay: four columns of random
  // doubles, a counter and the names are mostly distinct; the column of 1,000 values is not.
  const std::string choicePath = folder + "/choice.parquet";
  const auto choice =
      vxbench::alternate({[&] { writeHost(host.get(), table->schema(), path); },
                          [&] {
                            foundation::services::setChooseDictionaryPerColumn(true);
                            writeHost(host.get(), table->schema(), choicePath);
                            foundation::services::setChooseDictionaryPerColumn(false);
                          }},
                         repetitions);
  vxbench::report("ParquetWriter, dictionary for every column", choice[0]);
  vxbench::report("ParquetWriter, dictionary where it may pay", choice[1]);
  const double sizeRatio = fileBytes(choicePath) / fileBytes(path);
  std::printf("file_bytes_every_column=%.0f file_bytes_where_it_pays=%.0f\n", fileBytes(path),
              fileBytes(choicePath));

  vxbench::removeFolder(folder);
  std::printf("write_vs_arrow=%.3f dictionary_choice_speedup=%.3f size_ratio=%.3f\n",
              parquetWriter.median / arrowWriter.median, choice[0].median / choice[1].median,
              sizeRatio);
  return 0;
}
