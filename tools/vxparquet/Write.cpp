// vxparquet write: writes a CSV or Parquet file's table through the library's ParquetWriter, as
// the host would write one of its tables.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <arrow/csv/api.h>
#include <arrow/io/file.h>
#include <arrow/table.h>
#include <parquet/arrow/schema.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>
#include <parquet/schema.h>

#include "Cli.hpp"
#include "host/converter/Converter.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"
#include "toolbox/vantro/io/parquet/core/write/ParquetWriter.hpp"

namespace vxparquet {
namespace {

using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;
using vantro::io::parquet::core::write::ParquetWriter;

// Arrow failures outside the library (reading the CSV input) are the program's own errors.
template <class T>
T valueOrFail(::arrow::Result<T> result, const std::string& what) {
  if (!result.ok()) throw std::runtime_error(what + ": " + result.status().ToString());
  return std::move(result).ValueUnsafe();
}

bool isParquetFile(const std::string& path) {
  std::ifstream input(path, std::ios::binary);
  char magic[4] = {};
  input.read(magic, sizeof(magic));
  return input.gcount() == 4 && std::string(magic, 4) == "PAR1";
}

matrix::unique_array readCsv(const std::string& path) {
  auto input = valueOrFail(::arrow::io::ReadableFile::Open(path), "cannot open " + path);
  auto reader = valueOrFail(
      ::arrow::csv::TableReader::Make(
          ::arrow::io::default_io_context(), input, ::arrow::csv::ReadOptions::Defaults(),
          ::arrow::csv::ParseOptions::Defaults(), ::arrow::csv::ConvertOptions::Defaults()),
      "cannot read " + path);
  auto table = valueOrFail(reader->Read(), "cannot read " + path);
  return valueOrFail(vantro::io::arrow::core::to_vantro(table), "cannot convert " + path);
}

// A Parquet input goes through the library's own reader, a CSV input through Arrow's.
matrix::unique_array readInput(const std::string& path) {
  if (isParquetFile(path)) {
    return vantro::io::parquet::core::read::RowGroupParquetReader(utf8_to_ustring(path), {})
        .readFullFile();
  }
  return readCsv(path);
}

// The leaf columns of each variable, named as Parquet's per-column settings name them (the
// dot-joined column path, e.g. "a.list.element"), grouped by variable.
struct LeafPaths {
  std::vector<uint64_t> offsets;
  std::vector<std::u16string> paths;
};

LeafPaths leafPathsOf(const ::arrow::Schema& schema, bool compliantNestedTypes) {
  ::parquet::ArrowWriterProperties::Builder arrowProperties;
  if (compliantNestedTypes) arrowProperties.enable_compliant_nested_types();
  std::shared_ptr<::parquet::SchemaDescriptor> descriptor;
  const auto status = ::parquet::arrow::ToParquetSchema(
      &schema, *::parquet::default_writer_properties(), *arrowProperties.build(), &descriptor);
  if (!status.ok()) throw std::runtime_error("cannot map the schema: " + status.ToString());

  LeafPaths leaves;
  leaves.offsets.assign(schema.num_fields() + 1, 0);
  for (int i = 0; i < descriptor->num_columns(); ++i) {
    const int variable = descriptor->group_node()->FieldIndex(*descriptor->GetColumnRoot(i));
    ++leaves.offsets[variable + 1];
    leaves.paths.push_back(utf8_to_ustring(descriptor->Column(i)->path()->ToDotString()));
  }
  for (size_t i = 1; i < leaves.offsets.size(); ++i) leaves.offsets[i] += leaves.offsets[i - 1];
  return leaves;
}

// One value per variable: `single` for all, or "name=value" pairs over `fallback`.
std::vector<std::string> perVariable(const std::vector<std::string>& names,
                                     const std::optional<std::string>& single,
                                     const std::optional<std::string>& pairs,
                                     const std::string& fallback, const std::string& option) {
  std::vector<std::string> values(names.size(), single.value_or(fallback));
  if (!pairs) return values;
  for (const auto& pair : splitList(*pairs)) {
    const size_t equals = pair.rfind('=');
    if (equals == std::string::npos) {
      throw UsageError{option + ": '" + pair + "' is not name=value"};
    }
    const std::string name = pair.substr(0, equals);
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) throw UsageError{option + ": no variable named '" + name + "'"};
    values[found - names.begin()] = pair.substr(equals + 1);
  }
  return values;
}

void requireAtMostOne(const Arguments& args, const std::string& a, const std::string& b) {
  if (args.value(a) && args.value(b)) throw UsageError{a + " and " + b + " exclude each other"};
}

struct Summary {
  int64_t rows = 0;
  int rowGroups = 0;
};

Summary summarize(const std::string& path) {
  namespace common = vantro::io::parquet::core::common;
  auto file = common::makeReadableFilePtr(utf8_to_ustring(path));
  const auto metadata = ::parquet::ParquetFileReader::Open(file)->metadata();
  return {metadata->num_rows(), metadata->num_row_groups()};
}

}  // namespace

int runWrite(const std::vector<std::string>& words) {
  const Arguments args(
      words,
      {"--from", "--compression", "--compression-per-variable", "--encoding",
       "--encoding-per-variable", "--version", "--row-group-heights", "--max-row-group-length"},
      {});
  if (args.positional().size() != 1) throw UsageError{"write needs exactly one output file"};
  if (!args.value("--from")) throw UsageError{"write needs --from IN"};
  requireAtMostOne(args, "--compression", "--compression-per-variable");
  requireAtMostOne(args, "--encoding", "--encoding-per-variable");
  requireAtMostOne(args, "--row-group-heights", "--max-row-group-length");
  const std::string output = args.positional()[0];

  const matrix::unique_array table = readInput(*args.value("--from"));
  const auto arrowTable =
      valueOrFail(vantro::io::arrow::core::to_arrow_table(table.get()), "cannot convert input");
  const auto& schema = *arrowTable->schema();

  ParquetWriter writer(utf8_to_ustring(output));
  std::vector<std::u16string> names;
  for (const auto& name : schema.field_names()) names.push_back(utf8_to_ustring(name));
  writer.setVariableNames(names);
  if (const auto version = args.value("--version")) writer.setVersion(*version);
  if (const auto length = args.value("--max-row-group-length")) {
    const auto numbers = parseNumberList(*length, "--max-row-group-length");
    if (numbers.size() != 1) throw UsageError{"--max-row-group-length takes one number"};
    writer.setMaxRowGroupLength(static_cast<int64_t>(numbers[0]));
  }

  // Per-variable settings reach a variable's columns through its leaf paths.
  const bool compression = args.value("--compression") || args.value("--compression-per-variable");
  const bool encoding = args.value("--encoding") || args.value("--encoding-per-variable");
  if (compression || encoding) {
    LeafPaths leaves = leafPathsOf(schema, writer.getUseCompliantNestedTypes());
    writer.setLeafColumnPaths(std::move(leaves.offsets), std::move(leaves.paths));
  }
  if (compression) {
    writer.setVariableCompression(perVariable(schema.field_names(), args.value("--compression"),
                                              args.value("--compression-per-variable"), "snappy",
                                              "--compression-per-variable"));
  }
  if (encoding) {
    writer.setVariableEncoding(perVariable(schema.field_names(), args.value("--encoding"),
                                           args.value("--encoding-per-variable"), "dictionary",
                                           "--encoding-per-variable"));
  }

  if (const auto heights = args.value("--row-group-heights")) {
    const auto values = parseNumberList(*heights, "--row-group-heights");
    matrix::unique_array hostHeights(vxCreateDoubleMatrix(1, values.size(), vxREAL));
    std::copy(values.begin(), values.end(), vxGetPr(hostHeights.get()));
    writer.writeRowGroups(table.get(), hostHeights.get());
  } else {
    writer.write(table.get());
  }
  writer.close();

  const Summary summary = summarize(output);
  std::printf("wrote %s: %lld rows, %d row groups, %zu variables\n", output.c_str(),
              static_cast<long long>(summary.rows), summary.rowGroups, names.size());
  return 0;
}

}  // namespace vxparquet
