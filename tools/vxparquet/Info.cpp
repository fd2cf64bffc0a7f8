// vxparquet info: the metadata summary of one file, as the host shows it.
#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "Cli.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/info/ParquetInfo.hpp"
#include "toolbox/vantro/io/parquet/core/info/TypeDescriptions.hpp"

namespace vxparquet {
namespace {

using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;
using vantro::io::parquet::core::info::ParquetInfo;

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

void printJson(const ParquetInfo& info, const std::vector<VariableSummary>& variables) {
  std::printf("{\n");
  std::printf("  \"file\": %s,\n", jsonString(ustring_to_utf8(info.getFilename())).c_str());
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

void printText(const ParquetInfo& info, const std::vector<VariableSummary>& variables) {
  printTable({{"File:", ustring_to_utf8(info.getFilename())},
              {"Size:", std::to_string(info.getFileSize()) + " bytes"},
              {"Version:", orDash(info.getVersion())},
              {"Row groups:", std::to_string(info.getNumRowGroups())},
              {"Variables:", std::to_string(variables.size())}},
             "");

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

}  // namespace

int runInfo(const std::vector<std::string>& words) {
  const Arguments args(words, {}, {"--json"});
  if (args.positional().size() != 1) throw UsageError{"info needs exactly one FILE"};

  const ParquetInfo info(utf8_to_ustring(args.positional()[0]));
  const auto variables = summarizeVariables(info);
  if (args.flag("--json")) {
    printJson(info, variables);
  } else {
    printText(info, variables);
  }
  return 0;
}

}  // namespace vxparquet
