#pragma once

// Row filters over host tables: parse a filter text once, check it against a file's variables,
// let the footer statistics rule out row groups, then keep exactly the matching rows.
//
// Syntax (keywords in any letter case):
//   x == 1   x = 1   x != 1   x ~= 1   x <> 1   x < 1   x <= 1   x > 1   x >= 1   (also 1 < x)
//   x in (1, 2, 3)          x not in ('a', 'b')
//   x between 1 and 5       x not between 1 and 5        (both bounds included)
//   x is null               x is not null
//   a and b   a & b   a && b      a or b   a | b   a || b      not a   ~a   !a      ( ... )
// Precedence, loosest first: or, and, not, then the comparisons. Variable names are bare words
// (letters, digits, '_', '.') or quoted in backticks: `my variable`. Constants are numbers
// (-1.5e3), text in '..' or ".." (a doubled quote stands for itself), true/false, and dates
// or timestamps, quoted or bare: 2024-01-02, 2024-01-02T03:04:05.123Z, '2024-01-02 03:04+02:00'.
//
// Meaning: a comparison with a missing value (null, NaN, a missing text or datetime) is
// unknown, and a row is kept only when the whole filter is true, so `not (x < 1)` keeps the
// same rows as `x >= 1`. Numbers compare exactly whatever the column's class (an int64 column
// against 9007199254740993 is not rounded); a constant is read at the precision of the
// column, so `x == 0.1` matches the single 0.1 in a single column. Texts compare by Unicode
// code point. A timestamp without an offset is read as UTC for columns with a time zone and as
// the wall-clock time for columns without one.
//
// Errors are host exceptions with these identifiers:
//   "VANTRO:filter:InvalidExpression"   syntax error (arguments: the text, what is wrong)
//   "VANTRO:filter:UnknownVariable"     a variable the file does not have
//   "VANTRO:filter:TypeMismatch"        a constant of another kind than the variable
//   "VANTRO:filter:UnsupportedVariable" a variable of a type that cannot be filtered
//   "VANTRO:filter:InvalidTable"        filterRows given something that is not a host table
//                                       holding every variable of the filter
//
// Use (part of the library `vantro_parquet`):
//   auto filter = vantro::io::parquet::core::filter::Expression::parse(text);
//   filter.check(variableNames, reader.getVariableTypes());        // before reading anything
//   auto statistics = reader.getStatistics(indicesOf(filter.variables()));
//   auto choices = filter.chooseRowGroups(statistics, filter.variables(),
//                                         reader.getRowGroupHeights());
//   ... read the row groups whose choice says read ...
//   auto rows = filter.filterRows(table.get());
// getStatistics refuses variables whose statistics cannot filter (lists, binary, dictionary
// columns): ask for the others only, and pass their names; the rest then "may match".
// An Expression is not meant to be shared between threads (check() records the types).
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/matrix/Matrix.hpp"
#include "toolbox/vantro/io/parquet/core/read/Statistics.hpp"

namespace vantro::io::parquet::core::filter {

struct Node;

// Whether one row group has to be read, and if not, why.
struct RowGroupChoice {
  bool read = true;
  std::string reason;  // empty when read; otherwise e.g. "x < 5: minimum is 7"
};

class Expression {
 public:
  // Parses text; throws InvalidExpression.
  static Expression parse(std::string_view text);

  Expression(Expression&&) noexcept;
  Expression& operator=(Expression&&) noexcept;
  ~Expression();

  // The text as parsed.
  const std::string& text() const { return mText; }
  // Every variable the filter uses, once each, in order of first use.
  std::vector<std::string> variables() const;

  // Checks the filter against a file's variables and their host type names (as
  // getVariableNames/getVariableTypes give them: "double", "int64", "string", "datetime",
  // "logical", "categorical", ...). Throws UnknownVariable, TypeMismatch or
  // UnsupportedVariable; nothing is read. The types are remembered for chooseRowGroups.
  void check(const std::vector<std::string>& names,
             const std::vector<std::string>& hostTypes) const;

  // One choice per row group. statistics holds the columns of statisticsVariables (in that
  // order), as read_statistics returns them for those variables; a filter variable that is
  // not among them, a row group without statistics or a NaN bound mean "may match".
  // rowGroupHeights gives each row group's rows (needed for "is not null").
  std::vector<RowGroupChoice> chooseRowGroups(
      const vantro::io::parquet::core::read::Statistics& statistics,
      const std::vector<std::string>& statisticsVariables,
      const std::vector<uint64_t>& rowGroupHeights) const;

  // True for the rows of table (a host table with "Names" and "Columns") where the filter
  // holds. Throws InvalidTable when a variable of the filter is not a column of table.
  std::vector<bool> matchRows(const vxArray* table) const;

  // A new host table with the same variables and only the matching rows, in their order.
  matrix::unique_array filterRows(const vxArray* table) const;

 private:
  Expression(std::string text, std::unique_ptr<Node> root);

  std::string mText;
  std::unique_ptr<Node> mRoot;
  // Host types seen by check(): a NaN can hide only in "double" and "single" variables.
  mutable std::vector<std::pair<std::string, std::string>> mCheckedTypes;
};

// The rows of a host table (or of one host column) whose positions are listed, in that order:
// numeric, logical, char and cell columns, and the host's string, datetime, duration,
// categorical and nested table objects. Throws InvalidTable for any other value.
matrix::unique_array takeRows(const vxArray* tableOrColumn, const std::vector<size_t>& rows);
// The number of rows of a host table or column.
size_t rowCount(const vxArray* tableOrColumn);

}  // namespace vantro::io::parquet::core::filter
