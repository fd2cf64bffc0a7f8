#pragma once

// The row filter's host exceptions, "VANTRO:filter:<Key>" (texts in the message catalogue).
#include <string>

#include "host/except/Exception.hpp"

namespace vantro::io::parquet::core::filter {

namespace keys {
struct InvalidExpression {};
struct UnknownVariable {};
struct TypeMismatch {};
struct UnsupportedVariable {};
struct InvalidTable {};
}  // namespace keys

inline constexpr const char* kFilterComponent = "VANTRO:filter";

using InvalidExpressionError = ::foundation::core::except::Exception<keys::InvalidExpression>;
using UnknownVariableError = ::foundation::core::except::Exception<keys::UnknownVariable>;
using TypeMismatchError = ::foundation::core::except::Exception<keys::TypeMismatch>;
using UnsupportedVariableError = ::foundation::core::except::Exception<keys::UnsupportedVariable>;
using InvalidTableError = ::foundation::core::except::Exception<keys::InvalidTable>;

// Arguments: the filter text, what is wrong with it.
[[noreturn]] inline void throwInvalidExpression(const std::string& text, const std::string& what) {
  throw InvalidExpressionError(kFilterComponent, "InvalidExpression", {text, what});
}

// Argument: what is wrong with the table.
[[noreturn]] inline void throwInvalidTable(const std::string& what) {
  throw InvalidTableError(kFilterComponent, "InvalidTable", {what});
}

}  // namespace vantro::io::parquet::core::filter
