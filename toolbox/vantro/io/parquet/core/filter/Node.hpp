#pragma once

// The parsed form of a row filter (internal to the row filter).
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vantro::io::parquet::core::filter {

// A point in time: whole seconds since 1970-01-01T00:00:00 and the nanoseconds after them.
struct Instant {
  int64_t seconds = 0;
  int64_t nanos = 0;  // 0 .. 999'999'999
};

// A constant as written. Numbers keep their text so that each column reads them at its own
// precision; quoted text that looks like a date also carries the instant it names.
struct Constant {
  enum class Kind { kNumber, kText, kBoolean, kDatetime };
  Kind kind = Kind::kNumber;
  std::string text;                // the number's or text's characters, unquoted
  bool boolean = false;            // kBoolean
  std::optional<Instant> instant;  // kDatetime always; kText when the text is an ISO date
  bool hasOffset = false;          // the timestamp named its offset (Z or +hh:mm)
  std::string source;              // as written, for messages
};

enum class Op { kEq, kNe, kLt, kLe, kGt, kGe };

struct Node {
  enum class Kind { kAnd, kOr, kNot, kCompare, kIn, kBetween, kIsNull };
  Kind kind = Kind::kCompare;
  std::vector<std::unique_ptr<Node>> children;  // kAnd, kOr (two or more), kNot (one)

  // Leaves.
  std::string variable;
  Op op = Op::kEq;                  // kCompare
  bool negated = false;             // kIn, kBetween, kIsNull: "not in", "not between", "is not"
  std::vector<Constant> constants;  // kCompare: 1; kIn: 1 or more; kBetween: 2
};

// The filter with every "not" pushed into its leaves; under the rule that a comparison with a
// missing value is unknown, the result keeps exactly the rows the original keeps.
std::unique_ptr<Node> withoutNot(const Node& node, bool negate = false);

// The leaf as text, e.g. "x >= 5", "x in (1, 2)", "x is not null".
std::string describeLeaf(const Node& leaf);

}  // namespace vantro::io::parquet::core::filter
