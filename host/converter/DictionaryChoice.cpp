#include "host/converter/DictionaryChoice.hpp"

#include <string_view>
#include <unordered_set>

#include <arrow/api.h>

namespace vantro::io::arrow::core {
namespace {

constexpr size_t kSampleValues = 16384;

// The bytes of value i of a flat chunk: its text or binary value, or its fixed-width slot.
std::string_view ValueBytes(const ::arrow::Array& chunk, int64_t i, int width) {
  switch (chunk.type_id()) {
    case ::arrow::Type::STRING:
    case ::arrow::Type::BINARY:
      return static_cast<const ::arrow::BinaryArray&>(chunk).GetView(i);
    case ::arrow::Type::LARGE_STRING:
    case ::arrow::Type::LARGE_BINARY:
      return static_cast<const ::arrow::LargeBinaryArray&>(chunk).GetView(i);
    default: {
      const uint8_t* values = chunk.data()->GetValues<uint8_t>(1, 0);
      return {reinterpret_cast<const char*>(values + (chunk.offset() + i) * width),
              static_cast<size_t>(width)};
    }
  }
}

// Whether more than half of the first non-null values (up to kSampleValues) are distinct;
// false without values.
bool MostlyDistinct(const ::arrow::ChunkedArray& column, int width) {
  std::unordered_set<std::string_view> distinct;
  size_t sampled = 0;
  for (const auto& chunk : column.chunks()) {
    for (int64_t i = 0; i < chunk->length() && sampled < kSampleValues; ++i) {
      if (chunk->IsNull(i)) continue;
      distinct.insert(ValueBytes(*chunk, i, width));
      ++sampled;
    }
  }
  return sampled > 0 && distinct.size() * 2 > sampled;
}

}  // namespace

bool DictionaryMayProfit(const ::arrow::ChunkedArray& column) {
  const auto& type = *column.type();
  if (type.id() == ::arrow::Type::BOOL) return false;
  if (::arrow::is_base_binary_like(type.id())) return !MostlyDistinct(column, 0);
  if (type.id() != ::arrow::Type::DICTIONARY && ::arrow::is_fixed_width(type.id())) {
    const int bits = static_cast<const ::arrow::FixedWidthType&>(type).bit_width();
    if (bits % 8 == 0) return !MostlyDistinct(column, bits / 8);
  }
  return true;
}

std::vector<std::string> ColumnsWithoutDictionaryProfit(const ::arrow::Table& table) {
  std::vector<std::string> names;
  for (int i = 0; i < table.num_columns(); ++i) {
    if (!DictionaryMayProfit(*table.column(i))) names.push_back(table.field(i)->name());
  }
  return names;
}

}  // namespace vantro::io::arrow::core
