#pragma once

// Text to the parsed form of a row filter (internal to the row filter).
#include <memory>
#include <optional>
#include <string_view>

#include "toolbox/vantro/io/parquet/core/filter/Node.hpp"

namespace vantro::io::parquet::core::filter {

// Throws InvalidExpression, saying what was expected where.
std::unique_ptr<Node> parseFilterText(std::string_view text);

// "2024-01-02", "2024-01-02T03:04:05.123456789Z", "2024-01-02 03:04+02:00", ...; nothing when
// text is not such a date. hasOffset tells whether the text named its offset.
std::optional<Instant> parseIsoInstant(std::string_view text, bool* hasOffset = nullptr);

}  // namespace vantro::io::parquet::core::filter
