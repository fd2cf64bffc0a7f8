#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace vantro::io::parquet::core::read {

// What a page header says of its page's size, and how many bytes the header itself takes.
struct PageSizes {
  int64_t headerBytes = 0;
  int64_t uncompressedBytes = 0;
  int64_t compressedBytes = 0;
};

// Parses the Thrift compact PageHeader at the start of data[0, size). nullopt when the bytes end
// before the header does (*truncated is then set) or do not form a header with both sizes.
// Never reads outside the range, whatever the bytes.
std::optional<PageSizes> parsePageHeader(const uint8_t* data, size_t size, bool* truncated);

}  // namespace vantro::io::parquet::core::read
