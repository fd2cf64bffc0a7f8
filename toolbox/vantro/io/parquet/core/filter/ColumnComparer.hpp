#pragma once

// One host column seen through a filter leaf's constants (internal to the row filter): which rows
// are missing and how each row's value orders against each constant, exactly.
#include <cstdint>
#include <string>
#include <vector>

#include "host/matrix/matrix.h"
#include "toolbox/vantro/io/parquet/core/filter/Node.hpp"

namespace vantro::io::parquet::core::filter {

// How a host type compares, or kNone when it cannot be filtered.
enum class ValueKind { kNone, kNumber, kLogical, kText, kDatetime, kCellNullOnly };

// From a host type name ("double", "string", "datetime", "cell", ...).
ValueKind valueKindOfType(const std::string& hostType);
// Whether a constant can be compared with values of that kind.
bool acceptsConstant(ValueKind kind, const Constant& constant);
// "number", "text", "logical value" or "datetime", for messages.
std::string constantKindName(const Constant& constant);

class ColumnComparer {
 public:
  // column: a host column (any of the host's column forms). Throws TypeMismatch when a constant
  // cannot be compared with it and UnsupportedVariable when the column cannot be filtered.
  ColumnComparer(const vxArray* column, const std::vector<Constant>& constants,
                 const std::string& variable);

  size_t rows() const { return mRows; }
  bool missing(size_t row) const;
  // Negative, zero or positive as the row's value is below, equal to or above constant i. The
  // row must not be missing.
  int compare(size_t row, size_t constant) const;
  // Double or single values: a NaN is missing without being counted as a null.
  bool floating() const { return mClass == vxDOUBLE_CLASS || mClass == vxSINGLE_CLASS; }
  // The row's value as text, for explanations.
  std::string valueText(size_t row) const;

 private:
  long double number(size_t row) const;
  int64_t integer(size_t row) const;

  // A constant as an integer column sees it, so that its rows compare in integer arithmetic
  // (the long double path costs an x87 conversion per row): all rows on one side of it
  // (always -1 or 1), or its floor and whether it is that whole number.
  struct IntegerBound {
    int always = 0;
    int64_t floor = 0;
    bool whole = true;
    int order(int64_t value) const {
      if (always != 0) return always;
      if (value != floor) return value < floor ? -1 : 1;
      return whole ? 0 : -1;
    }
  };
  static IntegerBound integerBound(long double constant);

  ValueKind mKind = ValueKind::kNone;
  vxClassID mClass = vxUNKNOWN_CLASS;
  size_t mRows = 0;
  const void* mData = nullptr;          // numbers, logicals, datetime ticks, category codes
  const vxLogical* mMissing = nullptr;  // objects' Missing, or null
  const vxArray* mCells = nullptr;      // cell columns
  // Texts: UTF-16 units in code point order (see ColumnComparer.cpp) and their offsets.
  const vxChar* mUnits = nullptr;
  const uint64_t* mOffsets = nullptr;
  // Categorical: each category's order against each constant, [category][constant].
  std::vector<std::vector<int>> mCategoryOrder;
  std::vector<std::string> mCategoryTexts;
  // Datetime: nanoseconds per tick as (seconds, nanoseconds) factors.
  int64_t mTickSeconds = 0;  // seconds per tick when a tick is at least a second
  int64_t mTicksPerSecond = 1;
  std::string mUnit;

  std::vector<long double> mNumbers;         // numeric and logical constants
  std::vector<IntegerBound> mIntegerBounds;  // the same for integer columns other than uint64
  std::vector<std::u16string> mTexts;        // text constants
  std::vector<Instant> mInstants;            // datetime constants
};

}  // namespace vantro::io::parquet::core::filter
