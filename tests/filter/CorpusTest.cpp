// Row-group choices on the public Parquet corpus: whatever writer made a file, a row group
// holding a matching row is never skipped.
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/converter/HostValues.hpp"
#include "tests/support/TestSupport.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Expression.hpp"
#include "toolbox/vantro/io/parquet/core/read/RowGroupParquetReader.hpp"

namespace {

namespace hostvalues = vantro::io::arrow::core::host;
using vantro::io::parquet::core::filter::Expression;
using vantro::io::parquet::core::read::RowGroupParquetReader;

// A constant naming row `row` of a host column, for numbers and texts; empty otherwise.
std::string constantOf(const vxArray* column, size_t row) {
  char text[64];
  switch (vxGetClassID(column)) {
    case vxDOUBLE_CLASS: {
      const double value = vxGetPr(column)[row];
      if (!std::isfinite(value)) return "";
      std::snprintf(text, sizeof text, "%.17g", value);
      return text;
    }
    case vxINT32_CLASS:
      return std::to_string(static_cast<const int32_t*>(vxGetData(column))[row]);
    case vxINT64_CLASS:
      return std::to_string(static_cast<const int64_t*>(vxGetData(column))[row]);
    default:
      break;
  }
  if (!hostvalues::IsObject(column, hostvalues::kString)) return "";
  const vxArray* missing = vxGetField(column, 0, hostvalues::kMissing);
  if (missing != nullptr && vxGetLogicals(missing)[row]) return "";
  const auto* offsets =
      static_cast<const uint64_t*>(vxGetData(vxGetField(column, 0, hostvalues::kOffsets)));
  const vxChar* units = vxGetChars(vxGetField(column, 0, hostvalues::kData));
  std::string quoted = "'";
  for (char c : vxtest::u8(std::u16string(reinterpret_cast<const char16_t*>(units) + offsets[row],
                                          offsets[row + 1] - offsets[row]))) {
    quoted += c;
    if (c == '\'') quoted += c;
  }
  return quoted + "'";
}

TEST(FilterCorpus, NoRowGroupWithAMatchIsSkipped) {
  VX_REQUIRE_INTEROP();
  size_t checked = 0;
  for (const auto& file : vxtest::interopFiles()) {
    try {
      RowGroupParquetReader reader(vxtest::u16(file), std::vector<double>{});
      const double groups = reader.getTotalNumRowGroups();
      std::vector<std::string> names;
      for (const auto& name : reader.getVariableNames()) names.push_back(vxtest::u8(name));
      const auto types = reader.getVariableTypes();
      for (size_t v = 0; v < names.size(); ++v) {
        if (names[v].find_first_of(" `'\"") != std::string::npos) continue;
        std::optional<vantro::io::parquet::core::read::Statistics> statistics;
        try {
          statistics.emplace(reader.getStatistics({static_cast<int>(v)}));
        } catch (const foundation::core::except::IMsgIDException&) {
          continue;  // no statistics for this variable
        }
        reader.setSelectedVariableNames({vxtest::u16(names[v])});
        for (double g = 1; g <= groups; ++g) {
          auto table = reader.readRowGroups({g});
          const vxArray* column = vxGetCell(vxGetField(table.get(), 0, hostvalues::kColumns), 0);
          const std::string constant = vantro::io::parquet::core::filter::rowCount(table.get()) > 0
                                           ? constantOf(column, 0)
                                           : "";
          if (constant.empty()) continue;
          const std::string text = "`" + names[v] + "` == " + constant;
          const Expression filter = Expression::parse(text);
          try {
            filter.check(names, types);
          } catch (const foundation::core::except::IMsgIDException&) {
            continue;
          }
          const auto choices =
              filter.chooseRowGroups(*statistics, {names[v]}, reader.getRowGroupHeights());
          ASSERT_TRUE(choices.at(static_cast<size_t>(g) - 1).read)
              << file << ": " << text << " skipped row group " << g << ": "
              << choices[static_cast<size_t>(g) - 1].reason;
          // The row the constant came from matches.
          EXPECT_GE(
              vantro::io::parquet::core::filter::rowCount(filter.filterRows(table.get()).get()), 1u)
              << file << ": " << text;
          ++checked;
        }
      }
    } catch (const foundation::core::except::IMsgIDException&) {
      // Files the library refuses are covered by the read tests.
    }
  }
  EXPECT_GT(checked, 50u);
}

}  // namespace
