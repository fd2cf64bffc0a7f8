#include "RowFilter.hpp"

#include <algorithm>

#include "MexArguments.hpp"
#include "OctaveValues.hpp"
#include "host/converter/HostValues.hpp"
#include "host/unicode/ustring.hpp"

namespace vantro::octave {

namespace {

using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;
namespace host = vantro::io::arrow::core::host;

std::vector<std::string> utf8Names(const std::vector<std::u16string>& names) {
  std::vector<std::string> out;
  for (const auto& name : names) out.push_back(ustring_to_utf8(name));
  return out;
}

}  // namespace

std::optional<vantro::io::parquet::core::filter::Expression> whereOf(
    const mxArray* options, const RowGroupParquetReader& reader) {
  const auto text = optionOf(options, "Where");
  if (!text) return std::nullopt;
  // The parser refuses nesting deep enough to exhaust the interpreter thread's stack.
  auto where = vantro::io::parquet::core::filter::Expression::parse(textOf(*text, "Where"));
  where.check(utf8Names(reader.getVariableNames()), reader.getVariableTypes());
  return where;
}

void selectForFilter(RowGroupParquetReader& reader,
                     const std::optional<std::vector<std::u16string>>& requested,
                     const vantro::io::parquet::core::filter::Expression& where) {
  if (!requested) return;  // Every variable is selected already.
  std::vector<std::u16string> names = *requested;
  for (const auto& name : where.variables()) {
    const std::u16string wide = utf8_to_ustring(name);
    if (std::find(names.begin(), names.end(), wide) == names.end()) names.push_back(wide);
  }
  reader.setSelectedVariableNames(names);
}

std::vector<double> keepPossibleRowGroups(
    RowGroupParquetReader& reader, const vantro::io::parquet::core::filter::Expression& where,
    const std::vector<double>& rowGroups) {
  const std::vector<std::string> fileNames = utf8Names(reader.getVariableNames());
  const std::vector<std::string> variables = where.variables();
  std::vector<int> indices;
  for (const auto& name : variables) {
    indices.push_back(
        static_cast<int>(std::find(fileNames.begin(), fileNames.end(), name) - fileNames.begin()));
  }
  const auto statistics = reader.getStatistics(indices);
  const auto choices = where.chooseRowGroups(statistics, variables, reader.getRowGroupHeights());
  std::vector<double> kept;
  for (double number : rowGroups) {
    const bool inFile = number >= 1 && number <= static_cast<double>(choices.size());
    if (!inFile || choices[static_cast<size_t>(number) - 1].read) kept.push_back(number);
  }
  return kept;
}

matrix::unique_array filterTable(const vxArray* table,
                                 const vantro::io::parquet::core::filter::Expression& where,
                                 const std::optional<std::vector<std::u16string>>& requested) {
  matrix::unique_array filtered = where.filterRows(table);
  if (!requested) return filtered;
  // Only the requested variables, in the order asked; the filter's own come off again.
  const vxArray* names = vxGetField(filtered.get(), 0, host::kNames);
  vxArray* columns = vxGetField(filtered.get(), 0, host::kColumns);
  std::vector<std::string> keptNames;
  std::vector<matrix::unique_array> keptColumns;
  for (const auto& wanted : *requested) {
    const std::string name = ustring_to_utf8(wanted);
    for (size_t i = 0; i < vxGetNumberOfElements(names); ++i) {
      if (host::TextOf(vxGetCell(names, i)) != name) continue;
      keptNames.push_back(name);
      // Moved, not copied: the cell lets go of the column without destroying it.
      keptColumns.emplace_back(vxGetCell(columns, i));
      vxSetCell(columns, i, nullptr);
      break;
    }
  }
  auto result = host::MakeTable(keptNames, std::move(keptColumns));
  if (!result.ok()) throw TranslationError{"VANTRO:octave:OutOfMemory", result.status().ToString()};
  return std::move(result).ValueUnsafe();
}

}  // namespace vantro::octave
