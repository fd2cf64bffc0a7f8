// ParquetInfo on a file with a large footer (2,000 row groups of 50 columns), against the same
// footer work done directly with Arrow's local file class and Parquet's reader.
//
// Last line: info_vs_footer=<ParquetInfo time / raw footer time>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <arrow/api.h>
#include <arrow/io/file.h>
#include <arrow/util/compression.h>
#include <parquet/arrow/reader.h>
#include <parquet/arrow/schema.h>
#include <parquet/arrow/writer.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>
#include <parquet/schema.h>
#include <parquet/types.h>

#include "BenchUtil.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ArrowCompat.hpp"
#include "toolbox/vantro/io/parquet/core/info/ParquetInfo.hpp"

namespace {

// Columns cycle through int64, double, string and a list of int32, so that the footer holds
// dictionary and plain chunks and nested fields as real files do.
std::shared_ptr<arrow::Table> wideTable(int columns, int64_t rows) {
  arrow::FieldVector fields;
  arrow::ArrayVector arrays;
  for (int c = 0; c < columns; ++c) {
    const std::string name = "c" + std::to_string(c);
    switch (c % 4) {
      case 0: {
        arrow::Int64Builder builder;
        for (int64_t r = 0; r < rows; ++r) ARROW_UNUSED(builder.Append(r * c));
        fields.push_back(arrow::field(name, arrow::int64()));
        arrays.push_back(builder.Finish().ValueOrDie());
        break;
      }
      case 1: {
        arrow::DoubleBuilder builder;
        for (int64_t r = 0; r < rows; ++r) ARROW_UNUSED(builder.Append(r * 0.25));
        fields.push_back(arrow::field(name, arrow::float64()));
        arrays.push_back(builder.Finish().ValueOrDie());
        break;
      }
      case 2: {
        arrow::StringBuilder builder;
        for (int64_t r = 0; r < rows; ++r)
          ARROW_UNUSED(builder.Append("s" + std::to_string(r % 9)));
        fields.push_back(arrow::field(name, arrow::utf8()));
        arrays.push_back(builder.Finish().ValueOrDie());
        break;
      }
      default: {
        arrow::ListBuilder builder(arrow::default_memory_pool(),
                                   std::make_shared<arrow::Int32Builder>());
        auto& values = static_cast<arrow::Int32Builder&>(*builder.value_builder());
        for (int64_t r = 0; r < rows; ++r) {
          ARROW_UNUSED(builder.Append());
          ARROW_UNUSED(values.Append(static_cast<int32_t>(r)));
        }
        fields.push_back(arrow::field(name, arrow::list(arrow::int32())));
        arrays.push_back(builder.Finish().ValueOrDie());
        break;
      }
    }
  }
  return arrow::Table::Make(arrow::schema(fields), arrays);
}

std::string writeWideFile(const std::string& folder, int rowGroups, int columns) {
  const int64_t rowsPerGroup = 4;
  const std::string path = folder + "/wide.parquet";
  auto sink = arrow::io::FileOutputStream::Open(path).ValueOrDie();
  const auto status = parquet::arrow::WriteTable(*wideTable(columns, rowGroups * rowsPerGroup),
                                                 arrow::default_memory_pool(), sink, rowsPerGroup);
  if (!status.ok()) {
    std::fprintf(stderr, "writing the benchmark file failed: %s\n", status.ToString().c_str());
    std::exit(2);
  }
  ARROW_UNUSED(sink->Close());
  return path;
}

// What ParquetInfo reports, gathered with Arrow and Parquet alone.
struct FooterValues {
  std::string version;
  std::vector<int64_t> heights;
  std::vector<int64_t> offsets;
  std::vector<std::string> arrowTypes;
  std::vector<std::string> physicalTypes;
  std::vector<std::string> convertedTypes;
  std::vector<std::string> logicalTypes;
  std::vector<std::string> compression;
  std::vector<parquet::Encoding::type> firstEncodings;
};

int firstLeaf(const parquet::arrow::SchemaField& field) {
  return field.column_index != -1 || field.children.empty() ? field.column_index
                                                            : firstLeaf(field.children.front());
}

FooterValues rawFooter(const std::string& path) {
  auto file = arrow::io::ReadableFile::Open(path).ValueOrDie();
  std::unique_ptr<parquet::arrow::FileReader> reader;
  if (!vantro::io::parquet::core::common::compat::OpenFile(file, arrow::default_memory_pool(),
                                                           &reader)
           .ok())
    std::abort();
  std::shared_ptr<arrow::Schema> schema;
  if (!reader->GetSchema(&schema).ok()) std::abort();
  const auto metadata = reader->parquet_reader()->metadata();
  const parquet::SchemaDescriptor* descriptor = metadata->schema();

  FooterValues values;
  values.version = parquet::ParquetVersionToString(metadata->version());
  for (int i = 0; i < metadata->num_row_groups(); ++i) {
    const auto rowGroup = metadata->RowGroup(i);
    values.heights.push_back(rowGroup->num_rows());
    const auto chunk = rowGroup->ColumnChunk(0);
    values.offsets.push_back(chunk->has_dictionary_page() ? chunk->dictionary_page_offset()
                                                          : chunk->data_page_offset());
  }
  for (const auto& field : schema->fields()) values.arrowTypes.push_back(field->type()->ToString());
  const auto& fields = reader->manifest().schema_fields;
  const auto rowGroup0 = metadata->RowGroup(0);
  for (size_t i = 0; i < fields.size(); ++i) {
    const int leaf = firstLeaf(fields[i]);
    const auto& node = descriptor->group_node()->field(static_cast<int>(i));
    values.physicalTypes.push_back(
        parquet::TypeToString(descriptor->Column(leaf)->physical_type()));
    values.convertedTypes.push_back(parquet::ConvertedTypeToString(node->converted_type()));
    values.logicalTypes.push_back(node->logical_type()->ToString());
    const auto chunk = rowGroup0->ColumnChunk(leaf);
    values.compression.push_back(arrow::util::Codec::GetCodecAsString(chunk->compression()));
    values.firstEncodings.push_back(chunk->encodings().front());
  }
  return values;
}

}  // namespace

int main(int argc, char** argv) {
  using vantro::io::parquet::core::info::ParquetInfo;
  const int rowGroups = static_cast<int>(vxbench::intArgument(argc, argv, "--row-groups", 2000));
  const int columns = static_cast<int>(vxbench::intArgument(argc, argv, "--columns", 50));
  const int repetitions = static_cast<int>(vxbench::intArgument(argc, argv, "--repetitions", 9));

  const std::string folder = vxbench::makeTempFolder("info_bench-");
  const std::string path = writeWideFile(folder, rowGroups, columns);
  const std::u16string name = foundation::unicode::utf8_to_ustring(path);
  std::printf("row_groups=%d columns=%d repetitions=%d\n", rowGroups, columns, repetitions);

  // Both sides must see the same file; a mismatch would make the comparison meaningless.
  const ParquetInfo check(name);
  const FooterValues reference = rawFooter(path);
  if (check.getNumRowGroups() != rowGroups ||
      check.getVariableNames().size() != static_cast<size_t>(columns) ||
      check.getArrowTypes() != reference.arrowTypes ||
      check.getParquetLogicalTypes() != reference.logicalTypes) {
    std::fprintf(stderr, "ParquetInfo and the raw footer disagree\n");
    return 1;
  }

  size_t checksum = 0;
  // Alternate the two so that neither profits from a warmer cache or a quieter machine.
  std::vector<double> infoSeconds;
  std::vector<double> rawSeconds;
  for (int i = 0; i < repetitions; ++i) {
    infoSeconds.push_back(
        vxbench::measure([&] { checksum += ParquetInfo(name).getRowGroupHeights().size(); }, 1,
                         i == 0)
            .min);
    rawSeconds.push_back(
        vxbench::measure([&] { checksum += rawFooter(path).heights.size(); }, 1, i == 0).min);
  }
  const auto summarize = [](std::vector<double> seconds) {
    std::sort(seconds.begin(), seconds.end());
    return vxbench::Timing{seconds.front(), seconds[seconds.size() / 2]};
  };
  const vxbench::Timing info = summarize(infoSeconds);
  const vxbench::Timing raw = summarize(rawSeconds);
  vxbench::report("parquet_info", info);
  vxbench::report("raw_footer", raw);
  std::printf("checksum=%zu\n", checksum);
  vxbench::removeFolder(folder);
  std::printf("info_vs_footer=%.3f\n", info.median / raw.median);
  return 0;
}
