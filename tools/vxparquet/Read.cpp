// vxparquet read: a file, some of its row groups or a byte range of it, as host tables.
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "Cli.hpp"
#include "host/converter/Display.hpp"
#include "host/unicode/ustring.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace vxparquet {

namespace {

namespace display = vantro::io::arrow::core::display;
using foundation::unicode::utf8_to_ustring;
using vantro::io::parquet::core::read::RowGroupParquetReader;

// What the command was asked to read.
struct ReadRequest {
  std::string file;
  std::optional<std::vector<std::string>> variables;
  std::optional<std::vector<double>> rowGroups;
  std::optional<std::vector<double>> byteRange;  // offset, size
  bool each = false;
  bool json = false;
};

ReadRequest parseRequest(const std::vector<std::string>& words) {
  const Arguments args(words, {"--vars", "--row-groups", "--byte-range"}, {"--each", "--json"});
  if (args.positional().size() != 1) throw UsageError{"read takes exactly one FILE"};

  ReadRequest request;
  request.file = args.positional()[0];
  request.each = args.flag("--each");
  request.json = args.flag("--json");
  if (auto vars = args.value("--vars")) request.variables = splitList(*vars);
  if (auto list = args.value("--row-groups")) {
    request.rowGroups = parseNumberList(*list, "--row-groups");
  }
  if (auto range = args.value("--byte-range")) {
    request.byteRange = parseNumberList(*range, "--byte-range");
    if (request.byteRange->size() != 2) {
      throw UsageError{"--byte-range takes OFFSET,SIZE"};
    }
  }
  const int modes = (request.rowGroups ? 1 : 0) + (request.byteRange ? 1 : 0) + request.each;
  if (modes > 1) throw UsageError{"--row-groups, --byte-range and --each exclude each other"};
  return request;
}

std::vector<double> allRowGroups(double count) {
  std::vector<double> rowGroups;
  for (double i = 1; i <= count; ++i) rowGroups.push_back(i);
  return rowGroups;
}

// The reader the request calls for; every row group is listed unless a list or range says
// otherwise.
RowGroupParquetReader openReader(const ReadRequest& request) {
  const std::u16string file = utf8_to_ustring(request.file);
  if (request.byteRange) {
    return RowGroupParquetReader(file, (*request.byteRange)[0], (*request.byteRange)[1]);
  }
  if (request.rowGroups) return RowGroupParquetReader(file, *request.rowGroups);
  RowGroupParquetReader probe(file, std::vector<double>{});
  return RowGroupParquetReader(file, allRowGroups(probe.getTotalNumRowGroups()));
}

std::string numberList(const std::vector<double>& numbers) {
  std::string text;
  for (double number : numbers) {
    if (!text.empty()) text += ", ";
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.17g", number);
    text += buffer;
  }
  return text;
}

// One table per row group, read as the host does: read() while hasdata().
void printEachRowGroup(RowGroupParquetReader& reader, bool json) {
  const std::vector<double> rowGroups = reader.getRowGroups();
  Progress progress("row group", rowGroups.size());
  bool first = true;
  if (json) std::printf("[");
  while (reader.hasdata()) {
    // A file without row groups yields one empty table, numbered by no row group.
    const uint64_t index = reader.getRowGroupIndex();
    const std::string number =
        index < rowGroups.size() ? numberList({rowGroups[index]}) : std::string("none");
    auto table = reader.read();
    if (json) {
      std::printf("%s{\"rowGroup\": %s, \"table\": %s}", first ? "" : ", ",
                  number == "none" ? "null" : number.c_str(), display::ToJson(table.get()).c_str());
    } else {
      std::printf("%sRow group %s:\n%s\n", first ? "" : "\n", number.c_str(),
                  display::DisplayValue(table.get()).c_str());
    }
    first = false;
    progress.step(reader.getRowGroupIndex());
  }
  progress.finish();
  if (json) std::printf("]\n");
}

}  // namespace

int runRead(const std::vector<std::string>& words) {
  const ReadRequest request = parseRequest(words);
  RowGroupParquetReader reader = openReader(request);
  if (request.variables) {
    std::vector<std::u16string> names;
    for (const auto& name : *request.variables) names.push_back(utf8_to_ustring(name));
    reader.setSelectedVariableNames(names);
  }

  if (request.each) {
    printEachRowGroup(reader, request.json);
    return 0;
  }

  // A range reads the row groups that start inside it; without a list or range, the file.
  const bool whole = !request.rowGroups && !request.byteRange;
  auto table = whole ? reader.readFullFile() : reader.readall();
  if (request.json) {
    if (request.byteRange) {
      std::printf("{\"rowGroups\": [%s], \"table\": %s}\n",
                  numberList(reader.getRowGroups()).c_str(), display::ToJson(table.get()).c_str());
    } else {
      std::printf("%s\n", display::ToJson(table.get()).c_str());
    }
    return 0;
  }
  if (request.byteRange) {
    const std::string listed = numberList(reader.getRowGroups());
    std::printf("Row groups in range: %s\n", listed.empty() ? "none" : listed.c_str());
  }
  std::printf("%s\n", display::DisplayValue(table.get()).c_str());
  return 0;
}

}  // namespace vxparquet
