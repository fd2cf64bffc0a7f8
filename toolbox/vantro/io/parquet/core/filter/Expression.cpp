#include "toolbox/vantro/io/parquet/core/filter/Expression.hpp"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "host/converter/HostValues.hpp"
#include "toolbox/vantro/io/parquet/core/filter/ColumnComparer.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Errors.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Node.hpp"
#include "toolbox/vantro/io/parquet/core/filter/Parser.hpp"

namespace vantro::io::parquet::core::filter {

namespace {

namespace hostvalues = vantro::io::arrow::core::host;
using vantro::io::parquet::core::read::Statistics;

template <class Visit>
void forEachLeaf(const Node& node, const Visit& visit) {
  if (node.children.empty()) {
    visit(node);
    return;
  }
  for (const auto& child : node.children) forEachLeaf(*child, visit);
}

// A leaf's truth per row: true only where it is known to hold.
std::vector<bool> leafMatches(const Node& leaf, const ColumnComparer& values) {
  const size_t rows = values.rows();
  std::vector<bool> matches(rows, false);
  for (size_t r = 0; r < rows; ++r) {
    const bool missing = values.missing(r);
    if (leaf.kind == Node::Kind::kIsNull) {
      matches[r] = missing != leaf.negated;
      continue;
    }
    if (missing) continue;
    switch (leaf.kind) {
      case Node::Kind::kCompare: {
        const int c = values.compare(r, 0);
        switch (leaf.op) {
          case Op::kEq:
            matches[r] = c == 0;
            break;
          case Op::kNe:
            matches[r] = c != 0;
            break;
          case Op::kLt:
            matches[r] = c < 0;
            break;
          case Op::kLe:
            matches[r] = c <= 0;
            break;
          case Op::kGt:
            matches[r] = c > 0;
            break;
          case Op::kGe:
            matches[r] = c >= 0;
            break;
        }
        break;
      }
      case Node::Kind::kIn: {
        bool found = false;
        for (size_t k = 0; k < leaf.constants.size() && !found; ++k)
          found = values.compare(r, k) == 0;
        matches[r] = found != leaf.negated;
        break;
      }
      case Node::Kind::kBetween: {
        const bool inside = values.compare(r, 0) >= 0 && values.compare(r, 1) <= 0;
        matches[r] = inside != leaf.negated;
        break;
      }
      default:
        break;
    }
  }
  return matches;
}

const vxArray* columnOf(const vxArray* table, const std::string& name) {
  const vxArray* names = vxGetField(table, 0, hostvalues::kNames);
  const vxArray* columns = vxGetField(table, 0, hostvalues::kColumns);
  if (names == nullptr || columns == nullptr) return nullptr;
  const size_t count = std::min(vxGetNumberOfElements(names), vxGetNumberOfElements(columns));
  for (size_t i = 0; i < count; ++i) {
    const vxArray* text = vxGetCell(names, i);
    if (hostvalues::IsText(text) && hostvalues::TextOf(text) == name) return vxGetCell(columns, i);
  }
  return nullptr;
}

std::vector<bool> evaluate(const Node& node, const vxArray* table, size_t rows) {
  if (node.children.empty()) {
    const vxArray* column = columnOf(table, node.variable);
    if (column == nullptr) throwInvalidTable("the table has no variable '" + node.variable + "'");
    const ColumnComparer values(column, node.constants, node.variable);
    if (values.rows() != rows) {
      throwInvalidTable("variable '" + node.variable + "' has " + std::to_string(values.rows()) +
                        " rows instead of " + std::to_string(rows));
    }
    return leafMatches(node, values);
  }
  std::vector<bool> result = evaluate(*node.children[0], table, rows);
  for (size_t c = 1; c < node.children.size(); ++c) {
    const std::vector<bool> next = evaluate(*node.children[c], table, rows);
    for (size_t r = 0; r < rows; ++r) {
      result[r] = node.kind == Node::Kind::kAnd ? (result[r] && next[r]) : (result[r] || next[r]);
    }
  }
  return result;
}

// The statistics of one variable, as ColumnComparers over its minima and maxima.
struct VariableBounds {
  std::optional<ColumnComparer> min;
  std::optional<ColumnComparer> max;
  size_t column = 0;  // its column in the statistics matrices
};

class RowGroupJudge {
 public:
  using CheckedTypes = std::vector<std::pair<std::string, std::string>>;

  RowGroupJudge(const Statistics& statistics, const std::vector<std::string>& variables,
                const std::vector<uint64_t>& heights, const CheckedTypes& types)
      : mStatistics(statistics), mVariables(variables), mHeights(heights), mTypes(types) {}

  // Empty when the row group may hold matching rows; otherwise why it holds none.
  std::optional<std::string> whyNoMatch(const Node& node, size_t rowGroup) {
    if (node.children.empty()) return leafWhyNoMatch(node, rowGroup);
    if (node.kind == Node::Kind::kAnd) {
      for (const auto& child : node.children) {
        if (auto reason = whyNoMatch(*child, rowGroup)) return reason;
      }
      return std::nullopt;
    }
    std::string reasons;
    for (const auto& child : node.children) {
      auto reason = whyNoMatch(*child, rowGroup);
      if (!reason) return std::nullopt;
      reasons += (reasons.empty() ? "" : "; ") + *reason;
    }
    return reasons;
  }

 private:
  bool flag(const vxArray* matrix, size_t rowGroup, size_t column) const {
    if (matrix == nullptr || vxGetClassID(matrix) != vxLOGICAL_CLASS) return false;
    const size_t rows = vxGetM(matrix);
    if (rowGroup >= rows || column >= vxGetN(matrix)) return false;
    return vxGetLogicals(matrix)[column * rows + rowGroup];
  }

  std::optional<int64_t> nullCount(size_t rowGroup, size_t column) const {
    if (!flag(mStatistics.hasNullCount.get(), rowGroup, column)) return std::nullopt;
    const vxArray* counts = mStatistics.nullCount.get();
    if (counts == nullptr || vxGetClassID(counts) != vxINT64_CLASS) return std::nullopt;
    return static_cast<const int64_t*>(vxGetData(counts))[column * vxGetM(counts) + rowGroup];
  }

  // Bounds of the leaf's variable read against the leaf's constants, or nothing when the
  // statistics do not cover it. A leaf's constants differ from another's, so each leaf gets
  // its own comparers.
  VariableBounds* boundsOf(const Node& leaf) {
    auto found = mBounds.find(&leaf);
    if (found != mBounds.end()) return found->second ? &*found->second : nullptr;
    std::optional<VariableBounds> bounds;
    const auto it = std::find(mVariables.begin(), mVariables.end(), leaf.variable);
    if (it != mVariables.end()) {
      bounds.emplace();
      bounds->column = static_cast<size_t>(it - mVariables.begin());
      bounds->min = comparer(mStatistics.min.get(), bounds->column, leaf);
      bounds->max = comparer(mStatistics.max.get(), bounds->column, leaf);
    }
    auto& slot = mBounds[&leaf];
    slot = std::move(bounds);
    return slot ? &*slot : nullptr;
  }

  // Statistics that the converter could not express, or of an unexpected form, only cost the
  // chance to skip.
  std::optional<ColumnComparer> comparer(const vxArray* cells, size_t column, const Node& leaf) {
    if (cells == nullptr || vxGetClassID(cells) != vxCELL_CLASS ||
        column >= vxGetNumberOfElements(cells)) {
      return std::nullopt;
    }
    const vxArray* values = vxGetCell(cells, column);
    if (values == nullptr) return std::nullopt;
    try {
      return ColumnComparer(values, leaf.constants, leaf.variable);
    } catch (const ::foundation::core::except::IMsgIDException&) {
      return std::nullopt;
    }
  }

  std::optional<std::string> leafWhyNoMatch(const Node& leaf, size_t rowGroup) {
    VariableBounds* bounds = boundsOf(leaf);
    if (bounds == nullptr) return std::nullopt;
    const std::string name = describeLeaf(leaf);
    const uint64_t height = rowGroup < mHeights.size() ? mHeights[rowGroup] : 0;

    if (leaf.kind == Node::Kind::kIsNull) {
      const auto nulls = nullCount(rowGroup, bounds->column);
      if (!nulls) return std::nullopt;
      // NaN is missing to the host but not a null to Parquet: only non-float columns can
      // prove "no missing value".
      if (!leaf.negated && *nulls == 0 && !mayHoldNaN(leaf, *bounds)) return name + ": no nulls";
      if (leaf.negated && height > 0 && static_cast<uint64_t>(*nulls) == height) {
        return name + ": all " + std::to_string(height) + " values are null";
      }
      return std::nullopt;
    }

    // A comparison is never true of a null: a group of nulls only holds no match.
    const auto nulls = nullCount(rowGroup, bounds->column);
    if (nulls && height > 0 && static_cast<uint64_t>(*nulls) == height) {
      return name + ": all " + std::to_string(height) + " values are null";
    }
    if (!flag(mStatistics.hasMinMax.get(), rowGroup, bounds->column) || !bounds->min ||
        !bounds->max || rowGroup >= bounds->min->rows() || rowGroup >= bounds->max->rows() ||
        bounds->min->missing(rowGroup) || bounds->max->missing(rowGroup)) {
      return std::nullopt;
    }
    const ColumnComparer& min = *bounds->min;
    const ColumnComparer& max = *bounds->max;
    const size_t r = rowGroup;
    const std::string range = "values lie in [" + min.valueText(r) + ", " + max.valueText(r) + "]";
    const auto none = [&](bool skip) -> std::optional<std::string> {
      if (skip) return name + ": " + range;
      return std::nullopt;
    };
    switch (leaf.kind) {
      case Node::Kind::kCompare:
        switch (leaf.op) {
          case Op::kEq:
            return none(min.compare(r, 0) > 0 || max.compare(r, 0) < 0);
          case Op::kNe:
            return none(min.compare(r, 0) == 0 && max.compare(r, 0) == 0);
          case Op::kLt:
            return none(min.compare(r, 0) >= 0);
          case Op::kLe:
            return none(min.compare(r, 0) > 0);
          case Op::kGt:
            return none(max.compare(r, 0) <= 0);
          case Op::kGe:
            return none(max.compare(r, 0) < 0);
        }
        return std::nullopt;
      case Node::Kind::kIn: {
        if (leaf.negated) {
          bool allEqualOne = false;
          for (size_t k = 0; k < leaf.constants.size(); ++k) {
            allEqualOne = allEqualOne || (min.compare(r, k) == 0 && max.compare(r, k) == 0);
          }
          return none(allEqualOne);
        }
        for (size_t k = 0; k < leaf.constants.size(); ++k) {
          if (min.compare(r, k) <= 0 && max.compare(r, k) >= 0) return std::nullopt;
        }
        return none(true);
      }
      case Node::Kind::kBetween:
        if (leaf.negated) return none(min.compare(r, 0) >= 0 && max.compare(r, 1) <= 0);
        return none(max.compare(r, 0) < 0 || min.compare(r, 1) > 0);
      default:
        return std::nullopt;
    }
  }

  // Whether the variable may hold NaN values: by its checked type, else by the class of its
  // statistics (an integer column with nulls may come as doubles: then assume it may).
  bool mayHoldNaN(const Node& leaf, const VariableBounds& bounds) const {
    for (const auto& [name, type] : mTypes) {
      if (name == leaf.variable) return type == "double" || type == "single";
    }
    return (bounds.min && bounds.min->floating()) || (bounds.max && bounds.max->floating());
  }

  const Statistics& mStatistics;
  const std::vector<std::string>& mVariables;
  const std::vector<uint64_t>& mHeights;
  const CheckedTypes& mTypes;
  std::map<const Node*, std::optional<VariableBounds>> mBounds;
};

size_t statisticsRowGroups(const Statistics& statistics, size_t heights) {
  const vxArray* flags = statistics.hasMinMax.get();
  return flags == nullptr ? heights : std::max(heights, vxGetM(flags));
}

}  // namespace

Expression::Expression(std::string text, std::unique_ptr<Node> root)
    : mText(std::move(text)), mRoot(std::move(root)) {}
Expression::Expression(Expression&&) noexcept = default;
Expression& Expression::operator=(Expression&&) noexcept = default;
Expression::~Expression() = default;

Expression Expression::parse(std::string_view text) {
  const std::string owned(text);
  auto parsed = parseFilterText(owned);
  return Expression(owned, withoutNot(*parsed));
}

std::vector<std::string> Expression::variables() const {
  std::vector<std::string> names;
  forEachLeaf(*mRoot, [&](const Node& leaf) {
    if (std::find(names.begin(), names.end(), leaf.variable) == names.end()) {
      names.push_back(leaf.variable);
    }
  });
  return names;
}

void Expression::check(const std::vector<std::string>& names,
                       const std::vector<std::string>& hostTypes) const {
  mCheckedTypes.clear();
  forEachLeaf(*mRoot, [&](const Node& leaf) {
    const auto it = std::find(names.begin(), names.end(), leaf.variable);
    if (it == names.end()) {
      std::string known;
      for (const auto& name : names) known += (known.empty() ? "" : ", ") + name;
      throw UnknownVariableError(kFilterComponent, "UnknownVariable", {leaf.variable, known});
    }
    const size_t index = static_cast<size_t>(it - names.begin());
    const std::string type = index < hostTypes.size() ? hostTypes[index] : std::string();
    mCheckedTypes.emplace_back(leaf.variable, type);
    const ValueKind kind = valueKindOfType(type);
    const bool nullTest = leaf.kind == Node::Kind::kIsNull;
    if (kind == ValueKind::kNone || (kind == ValueKind::kCellNullOnly && !nullTest)) {
      throw UnsupportedVariableError(kFilterComponent, "UnsupportedVariable",
                                     {leaf.variable, type.empty() ? "unknown" : type});
    }
    for (const Constant& constant : leaf.constants) {
      if (!acceptsConstant(kind, constant)) {
        throw TypeMismatchError(kFilterComponent, "TypeMismatch",
                                {leaf.variable, type, constantKindName(constant), constant.source});
      }
    }
  });
}

std::vector<RowGroupChoice> Expression::chooseRowGroups(
    const Statistics& statistics, const std::vector<std::string>& statisticsVariables,
    const std::vector<uint64_t>& rowGroupHeights) const {
  const size_t count = statisticsRowGroups(statistics, rowGroupHeights.size());
  RowGroupJudge judge(statistics, statisticsVariables, rowGroupHeights, mCheckedTypes);
  std::vector<RowGroupChoice> choices(count);
  for (size_t r = 0; r < count; ++r) {
    if (auto reason = judge.whyNoMatch(*mRoot, r)) {
      choices[r].read = false;
      choices[r].reason = std::move(*reason);
    }
  }
  return choices;
}

std::vector<bool> Expression::matchRows(const vxArray* table) const {
  if (!hostvalues::IsTable(table)) throwInvalidTable("the value to filter is not a host table");
  return evaluate(*mRoot, table, rowCount(table));
}

matrix::unique_array Expression::filterRows(const vxArray* table) const {
  const std::vector<bool> matches = matchRows(table);
  std::vector<size_t> rows;
  for (size_t r = 0; r < matches.size(); ++r) {
    if (matches[r]) rows.push_back(r);
  }
  return takeRows(table, rows);
}

}  // namespace vantro::io::parquet::core::filter
