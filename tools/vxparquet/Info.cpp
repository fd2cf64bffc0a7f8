// vxparquet info: the metadata summary of one file, as the host shows it.
#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include <arrow/type.h>
#include <arrow/util/compression.h>
#include <arrow/util/key_value_metadata.h>
#include <parquet/exception.h>
#include <parquet/file_reader.h>
#include <parquet/metadata.h>
#include <parquet/types.h>

#include "Cli.hpp"
#include "Files.hpp"
#include "host/converter/Display.hpp"
#include "host/except/Exception.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/common/ReadableWritableFile.hpp"
#include "toolbox/vantro/io/parquet/core/info/ParquetInfo.hpp"
#include "toolbox/vantro/io/parquet/core/info/TypeDescriptions.hpp"

namespace vxparquet {
namespace {

using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;
using vantro::io::parquet::core::dataset::Dataset;
using vantro::io::parquet::core::info::ParquetInfo;
namespace display = vantro::io::arrow::core::display;

// One variable's row of the summary. Compression and encoding are absent (not just empty)
// when the file has no row group to take them from.
struct VariableSummary {
  std::string name;
  std::string hostType;
  std::string description;
  std::string arrowType;
  std::string physicalType;
  std::string convertedType;
  std::string logicalType;
  std::optional<std::string> compression;
  std::optional<std::string> encoding;
};

std::optional<std::string> entry(const std::vector<std::string>& values, size_t i) {
  if (i >= values.size()) return std::nullopt;
  return values[i];
}

std::vector<VariableSummary> summarizeVariables(const ParquetInfo& info) {
  const auto descriptions = vantro::io::parquet::core::info::parquet_types(info.getArrowSchema());
  const auto& names = info.getVariableNames();
  std::vector<VariableSummary> variables;
  variables.reserve(names.size());
  for (size_t i = 0; i < names.size(); ++i) {
    variables.push_back({ustring_to_utf8(names[i]), info.getVariableTypes()[i],
                         ustring_to_utf8(descriptions[i]), info.getArrowTypes()[i],
                         info.getParquetPhysicalTypes()[i], info.getParquetConvertedTypes()[i],
                         info.getParquetLogicalTypes()[i], entry(info.getVariableCompression(), i),
                         entry(info.getVariableEncoding(), i)});
  }
  return variables;
}

// Facts the library's summary leaves out, read from the footer by the program.
struct ChunkFacts {
  std::string path;
  int64_t compressed = 0;
  int64_t uncompressed = 0;
  std::string compression;
  std::vector<std::string> encodings;
};
struct RowGroupFacts {
  int64_t rows = 0;
  int64_t compressed = 0;
  int64_t uncompressed = 0;
  std::vector<ChunkFacts> chunks;
};
struct FooterFacts {
  int64_t rows = 0;
  std::string createdBy;
  std::vector<std::pair<std::string, std::string>> metadata;
  std::vector<RowGroupFacts> rowGroups;
};

FooterFacts readFooter(const std::string& file) {
  namespace common = vantro::io::parquet::core::common;
  FooterFacts facts;
  std::shared_ptr<::parquet::FileMetaData> metadata;
  try {
    metadata =
        ::parquet::ParquetFileReader::Open(common::makeReadableFilePtr(utf8_to_ustring(file)))
            ->metadata();
  } catch (const ::parquet::ParquetException& e) {
    failWith("InvalidFooter", "Unable to read the footer of '" + file + "': " + e.what());
  }
  facts.rows = metadata->num_rows();
  facts.createdBy = metadata->created_by();
  if (const auto kv = metadata->key_value_metadata()) {
    for (int64_t i = 0; i < kv->size(); ++i) facts.metadata.emplace_back(kv->key(i), kv->value(i));
  }
  for (int r = 0; r < metadata->num_row_groups(); ++r) {
    checkInterrupt();
    const auto rowGroup = metadata->RowGroup(r);
    RowGroupFacts group;
    group.rows = rowGroup->num_rows();
    group.uncompressed = rowGroup->total_byte_size();
    for (int c = 0; c < rowGroup->num_columns(); ++c) {
      const auto chunk = rowGroup->ColumnChunk(c);
      ChunkFacts facts;
      facts.path = chunk->path_in_schema()->ToDotString();
      facts.compressed = chunk->total_compressed_size();
      facts.uncompressed = chunk->total_uncompressed_size();
      facts.compression = ::arrow::util::Codec::GetCodecAsString(chunk->compression());
      for (const auto encoding : chunk->encodings()) {
        facts.encodings.push_back(::parquet::EncodingToString(encoding));
      }
      group.compressed += facts.compressed;
      group.chunks.push_back(std::move(facts));
    }
    facts.rowGroups.push_back(std::move(group));
  }
  return facts;
}

// The variables as a tree: nested fields indented under their parent.
void schemaTree(const std::shared_ptr<::arrow::Field>& field, int depth,
                std::vector<std::pair<int, std::string>>& lines) {
  const auto& type = field->type();
  std::string kind = type->ToString();
  if (type->num_fields() > 0) kind = type->name();
  lines.emplace_back(depth, field->name() + ": " + kind + (field->nullable() ? "" : " not null"));
  for (const auto& child : type->fields()) schemaTree(child, depth + 1, lines);
}

std::vector<std::pair<int, std::string>> schemaLines(const ParquetInfo& info) {
  std::vector<std::pair<int, std::string>> lines;
  if (const auto schema = info.getArrowSchema()) {
    for (const auto& field : schema->fields()) schemaTree(field, 0, lines);
  }
  return lines;
}

std::string encodingList(const std::vector<std::string>& encodings) {
  std::string text;
  for (const auto& encoding : encodings) text += (text.empty() ? "" : ",") + encoding;
  return text;
}

// ---- JSON ----

std::string jsonOptional(const std::optional<std::string>& text) {
  return text ? jsonString(*text) : "null";
}

std::string jsonNumbers(const std::vector<uint64_t>& numbers) {
  std::string out = "[";
  for (size_t i = 0; i < numbers.size(); ++i) {
    if (i > 0) out += ", ";
    out += std::to_string(numbers[i]);
  }
  return out + "]";
}

struct Extras {
  bool rowGroups = false;
  bool schema = false;
};

void printJsonExtras(const ParquetInfo& info, const FooterFacts& footer, const Extras& extras) {
  std::printf("  \"rows\": %lld,\n", static_cast<long long>(footer.rows));
  std::printf("  \"createdBy\": %s,\n", jsonString(footer.createdBy).c_str());
  std::printf("  \"metadata\": {");
  for (size_t i = 0; i < footer.metadata.size(); ++i) {
    std::printf("%s%s: %s", i ? ", " : "", jsonString(footer.metadata[i].first).c_str(),
                jsonString(footer.metadata[i].second).c_str());
  }
  std::printf("},\n");
  if (extras.rowGroups) {
    std::printf("  \"rowGroupDetails\": [");
    for (size_t r = 0; r < footer.rowGroups.size(); ++r) {
      const auto& group = footer.rowGroups[r];
      std::printf(
          "%s{\"rowGroup\": %zu, \"rows\": %lld, \"compressedSize\": %lld, "
          "\"uncompressedSize\": %lld, \"columns\": [",
          r ? ", " : "", r + 1, static_cast<long long>(group.rows),
          static_cast<long long>(group.compressed), static_cast<long long>(group.uncompressed));
      for (size_t c = 0; c < group.chunks.size(); ++c) {
        const auto& chunk = group.chunks[c];
        std::string encodings;
        for (const auto& e : chunk.encodings)
          encodings += (encodings.empty() ? "" : ", ") + jsonString(e);
        std::printf(
            "%s{\"path\": %s, \"compressedSize\": %lld, \"uncompressedSize\": %lld, "
            "\"compression\": %s, \"encodings\": [%s]}",
            c ? ", " : "", jsonString(chunk.path).c_str(), static_cast<long long>(chunk.compressed),
            static_cast<long long>(chunk.uncompressed), jsonString(chunk.compression).c_str(),
            encodings.c_str());
      }
      std::printf("]}");
    }
    std::printf("],\n");
  }
  if (extras.schema) {
    std::printf("  \"schema\": [");
    const auto lines = schemaLines(info);
    for (size_t i = 0; i < lines.size(); ++i) {
      std::printf("%s{\"depth\": %d, \"field\": %s}", i ? ", " : "", lines[i].first,
                  jsonString(lines[i].second).c_str());
    }
    std::printf("],\n");
  }
}

void printJson(const ParquetInfo& info, const std::vector<VariableSummary>& variables,
               const FooterFacts& footer, const Extras& extras) {
  std::printf("{\n");
  std::printf("  \"file\": %s,\n", jsonString(ustring_to_utf8(info.getFilename())).c_str());
  printJsonExtras(info, footer, extras);
  std::printf("  \"size\": %llu,\n", static_cast<unsigned long long>(info.getFileSize()));
  std::printf("  \"version\": %s,\n", jsonString(info.getVersion()).c_str());
  std::printf("  \"rowGroups\": %d,\n", info.getNumRowGroups());
  std::printf("  \"rowGroupHeights\": %s,\n", jsonNumbers(info.getRowGroupHeights()).c_str());
  std::printf("  \"rowGroupOffsets\": %s,\n", jsonNumbers(info.getRowGroupOffsets()).c_str());
  std::printf("  \"variables\": [");
  for (size_t i = 0; i < variables.size(); ++i) {
    const auto& v = variables[i];
    std::printf(
        "%s\n    {\"name\": %s, \"hostType\": %s, \"description\": %s, \"arrowType\": %s, "
        "\"physicalType\": %s, \"convertedType\": %s, \"logicalType\": %s, \"compression\": %s, "
        "\"encoding\": %s}",
        i > 0 ? "," : "", jsonString(v.name).c_str(), jsonString(v.hostType).c_str(),
        jsonString(v.description).c_str(), jsonString(v.arrowType).c_str(),
        jsonString(v.physicalType).c_str(), jsonString(v.convertedType).c_str(),
        jsonString(v.logicalType).c_str(), jsonOptional(v.compression).c_str(),
        jsonOptional(v.encoding).c_str());
  }
  std::printf("%s]\n}\n", variables.empty() ? "" : "\n  ");
}

// ---- Human-readable tables ----

// Width on a terminal, counting code points rather than bytes so that names outside ASCII
// keep the columns aligned.
size_t displayWidth(const std::string& text) { return utf8_to_ustring(text).size(); }

// Prints rows as columns two spaces apart; the first row is the heading. Columns are left-aligned
// unless rightAligned says otherwise (numbers).
void printTable(const std::vector<std::vector<std::string>>& rows, const std::string& indent,
                const std::vector<bool>& rightAligned = {}) {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()), 0);
    for (size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], displayWidth(row[c]));
  }
  for (const auto& row : rows) {
    std::string line = indent;
    for (size_t c = 0; c < row.size(); ++c) {
      const size_t padding = widths[c] - displayWidth(row[c]);
      const bool right = c < rightAligned.size() && rightAligned[c];
      if (c > 0) line += "  ";
      if (right) line.append(padding, ' ');
      line += row[c];
      if (!right && c + 1 < row.size()) line.append(padding, ' ');
    }
    std::printf("%s\n", line.c_str());
  }
}

std::string orDash(const std::string& text) { return text.empty() ? "-" : text; }
std::string orDash(const std::optional<std::string>& text) { return text ? orDash(*text) : "-"; }

void printText(const ParquetInfo& info, const std::vector<VariableSummary>& variables,
               const FooterFacts& footer, const Extras& extras) {
  printTable({{"File:", ustring_to_utf8(info.getFilename())},
              {"Size:", std::to_string(info.getFileSize()) + " bytes"},
              {"Version:", orDash(info.getVersion())},
              {"Created by:", orDash(footer.createdBy)},
              {"Rows:", std::to_string(footer.rows)},
              {"Row groups:", std::to_string(info.getNumRowGroups())},
              {"Variables:", std::to_string(variables.size())}},
             "");
  if (!footer.metadata.empty()) {
    std::printf("\nKey-value metadata:\n");
    std::vector<std::vector<std::string>> rows;
    for (const auto& [key, value] : footer.metadata) {
      // ARROW:schema is a long base64 blob: its size says enough.
      rows.push_back({key, key == "ARROW:schema" ? "(" + std::to_string(value.size()) + " bytes)"
                                                 : display::EscapeControl(value)});
    }
    printTable(rows, "  ");
  }
  if (extras.schema) {
    std::printf("\nSchema:\n");
    for (const auto& [depth, text] : schemaLines(info)) {
      std::printf("  %s%s\n", std::string(static_cast<size_t>(depth) * 2, ' ').c_str(),
                  text.c_str());
    }
  }
  if (extras.rowGroups) {
    for (size_t r = 0; r < footer.rowGroups.size(); ++r) {
      const auto& group = footer.rowGroups[r];
      std::printf("\nRow group %zu: %lld rows, %lld bytes compressed, %lld uncompressed\n", r + 1,
                  static_cast<long long>(group.rows), static_cast<long long>(group.compressed),
                  static_cast<long long>(group.uncompressed));
      std::vector<std::vector<std::string>> rows = {
          {"Column", "Compressed", "Uncompressed", "Compression", "Encodings"}};
      for (const auto& chunk : group.chunks) {
        rows.push_back({chunk.path, std::to_string(chunk.compressed),
                        std::to_string(chunk.uncompressed), chunk.compression,
                        encodingList(chunk.encodings)});
      }
      printTable(rows, "  ", {false, true, true, false, false});
    }
  }

  const auto heights = info.getRowGroupHeights();
  const auto offsets = info.getRowGroupOffsets();
  if (!heights.empty()) {
    std::printf("\nRow-group heights and offsets:\n");
    std::vector<std::vector<std::string>> rows = {{"#", "Rows", "Offset"}};
    for (size_t i = 0; i < heights.size(); ++i) {
      rows.push_back(
          {std::to_string(i + 1), std::to_string(heights[i]), std::to_string(offsets[i])});
    }
    printTable(rows, "  ", {true, true, true});
  }

  if (!variables.empty()) {
    std::printf("\nVariables:\n");
    std::vector<std::vector<std::string>> rows = {{"Name", "Host type", "Description", "Arrow type",
                                                   "Physical", "Converted", "Logical",
                                                   "Compression", "Encoding"}};
    for (const auto& v : variables) {
      rows.push_back({v.name, orDash(v.hostType), v.description, v.arrowType,
                      orDash(v.physicalType), v.convertedType, v.logicalType, orDash(v.compression),
                      orDash(v.encoding)});
    }
    printTable(rows, "  ");
  }
}

// The dataset's variables as one table reads them: the union of the files' by name, then
// the partition variables.
struct DatasetVariable {
  std::string name, type;
  bool partition;
};
std::vector<DatasetVariable> datasetVariables(const Dataset& dataset) {
  const auto names = dataset.variableNames();
  const auto types = dataset.variableTypes();
  std::vector<DatasetVariable> variables;
  for (size_t i = 0; i < names.size(); ++i) {
    variables.push_back({names[i], types[i], dataset.partitionIndex(names[i]) >= 0});
  }
  return variables;
}

std::string datasetJson(const Dataset& dataset) {
  std::string text = "{\"files\": " + std::to_string(dataset.fileCount()) +
                     ", \"rows\": " + std::to_string(dataset.rowCount()) +
                     ", \"rowGroups\": " + std::to_string(dataset.rowGroupCount()) +
                     ", \"variables\": [";
  bool first = true;
  for (const auto& v : datasetVariables(dataset)) {
    text += (first ? "" : ", ") + std::string("{\"name\": ") + jsonString(v.name) +
            ", \"hostType\": " + jsonString(v.type) +
            ", \"partition\": " + (v.partition ? "true" : "false") + "}";
    first = false;
  }
  return text + "]}";
}

void printDatasetText(const Dataset& dataset) {
  std::printf("\nAs one dataset: %zu files, %llu rows, %llu row groups\n", dataset.fileCount(),
              static_cast<unsigned long long>(dataset.rowCount()),
              static_cast<unsigned long long>(dataset.rowGroupCount()));
  std::vector<std::vector<std::string>> rows = {{"Name", "Host type", "From"}};
  for (const auto& v : datasetVariables(dataset)) {
    rows.push_back({display::EscapeControl(v.name), v.type, v.partition ? "folders" : "files"});
  }
  printTable(rows, "  ");
}

}  // namespace

int runInfo(const std::vector<std::string>& words) {
  const Arguments args(
      words, {kPartitioningOption},
      {"--json", "--row-groups", "--schema", "--recursive", kStrictFlag, kSkipBadFilesFlag});
  if (args.positional().empty()) throw UsageError{"info needs at least one FILE"};
  const Extras extras{args.flag("--row-groups"), args.flag("--schema")};
  const std::vector<std::string> files =
      expandInputs(args.positional(), args.flag(kSkipBadFilesFlag));
  const bool json = args.flag("--json");
  const bool several = files.size() > 1;

  // One file: its summary. Several: each file's, a failed one reported with its identifier
  // (unless --strict), then the total.
  int64_t rows = 0, rowGroups = 0, bytes = 0;
  size_t failed = 0;
  if (json && several) std::printf("{\"files\": [");
  Progress progress("file", files.size());
  for (size_t i = 0; i < files.size(); ++i) {
    checkInterrupt();
    if (several) progress.step(i);
    if (json && several && i > 0) std::printf(", ");
    if (!json && several) std::printf("%s", i > 0 ? "\n" : "");
    try {
      const ParquetInfo info(utf8_to_ustring(files[i]));
      const auto variables = summarizeVariables(info);
      const FooterFacts footer = readFooter(files[i]);
      rows += footer.rows;
      rowGroups += info.getNumRowGroups();
      bytes += static_cast<int64_t>(info.getFileSize());
      if (json) {
        printJson(info, variables, footer, extras);
      } else {
        printText(info, variables, footer, extras);
      }
    } catch (const foundation::core::except::InterruptException&) {
      throw;
    } catch (const foundation::core::except::IMsgIDException& e) {
      if (!several || args.flag("--strict")) throw;
      ++failed;
      reportError(e.identifier(), e.message());
      if (json) {
        std::printf("{\"file\": %s, \"error\": {\"identifier\": %s, \"message\": %s}}",
                    jsonString(files[i]).c_str(), jsonString(e.identifier()).c_str(),
                    jsonString(e.message()).c_str());
      } else {
        std::printf("File:        %s\nError:       %s\n", files[i].c_str(), e.identifier().c_str());
      }
    }
  }
  // The files together as one table, unless one of them already failed.
  std::shared_ptr<const Dataset> dataset;
  if (several && failed == 0) {
    try {
      dataset = std::make_shared<const Dataset>(args.positional(), datasetOptions(args));
    } catch (const foundation::core::except::InterruptException&) {
      throw;
    } catch (const foundation::core::except::IMsgIDException& e) {
      if (args.flag(kStrictFlag)) throw;
      ++failed;
      reportError(e.identifier(), e.message());
    }
  }
  if (several) {
    if (json) {
      std::printf("]");
      if (dataset) std::printf(", \"dataset\": %s", datasetJson(*dataset).c_str());
      std::printf(
          ", \"total\": {\"files\": %zu, \"failed\": %zu, \"rows\": %lld, "
          "\"rowGroups\": %lld, \"size\": %lld}}\n",
          files.size(), failed, static_cast<long long>(rows), static_cast<long long>(rowGroups),
          static_cast<long long>(bytes));
    } else {
      std::printf("\nTotal: %zu files%s, %lld rows, %lld row groups, %lld bytes\n", files.size(),
                  failed ? (" (" + std::to_string(failed) + " failed)").c_str() : "",
                  static_cast<long long>(rows), static_cast<long long>(rowGroups),
                  static_cast<long long>(bytes));
      if (dataset) printDatasetText(*dataset);
    }
  }
  return failed == 0 ? 0 : 1;
}

}  // namespace vxparquet
