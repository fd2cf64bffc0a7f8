#include "toolbox/vantro/io/parquet/core/plan/Fingerprint.hpp"

#include <array>
#include <cstring>

#include <arrow/buffer.h>
#include <arrow/status.h>

namespace vantro::io::parquet::core::plan {
namespace {

constexpr int64_t kTailBytes = 8;  // footer length (little-endian uint32) and magic
constexpr const char* kHashPrefix = "fnv1a64:";

uint64_t fnv1a64(const uint8_t* data, int64_t size) {
  uint64_t hash = 14695981039346656037ull;
  for (int64_t i = 0; i < size; ++i) {
    hash ^= data[i];
    hash *= 1099511628211ull;
  }
  return hash;
}

}  // namespace

::arrow::Result<Footer> readFooter(::arrow::io::RandomAccessFile& file) {
  ARROW_ASSIGN_OR_RAISE(const int64_t size, file.GetSize());
  if (size < kTailBytes + 4) {
    return ::arrow::Status::Invalid("The file is too short (", size, " bytes) to be Parquet");
  }
  std::array<uint8_t, kTailBytes> tail{};
  ARROW_ASSIGN_OR_RAISE(const int64_t got, file.ReadAt(size - kTailBytes, kTailBytes, tail.data()));
  if (got != kTailBytes) return ::arrow::Status::IOError("Unable to read the file's last bytes");
  if (std::memcmp(tail.data() + 4, "PAR1", 4) != 0 &&
      std::memcmp(tail.data() + 4, "PARE", 4) != 0) {
    return ::arrow::Status::Invalid("Parquet magic bytes not found in footer");
  }
  const int64_t footerLength = static_cast<int64_t>(tail[0]) | static_cast<int64_t>(tail[1]) << 8 |
                               static_cast<int64_t>(tail[2]) << 16 |
                               static_cast<int64_t>(tail[3]) << 24;
  if (footerLength > size - kTailBytes - 4) {
    return ::arrow::Status::Invalid("The footer declares ", footerLength,
                                    " bytes, more than the file holds");
  }
  ARROW_ASSIGN_OR_RAISE(auto footer, file.ReadAt(size - kTailBytes - footerLength, footerLength));
  if (footer->size() != footerLength) {
    return ::arrow::Status::IOError("Unable to read the file's footer");
  }
  return Footer{
      FileFingerprint{static_cast<uint64_t>(size), fnv1a64(footer->data(), footer->size())},
      std::move(footer)};
}

::arrow::Result<FileFingerprint> fingerprintFile(::arrow::io::RandomAccessFile& file) {
  ARROW_ASSIGN_OR_RAISE(auto footer, readFooter(file));
  return footer.fingerprint;
}

std::string footerHashText(uint64_t hash) {
  static const char* kDigits = "0123456789abcdef";
  std::string text = kHashPrefix;
  for (int shift = 60; shift >= 0; shift -= 4) text += kDigits[(hash >> shift) & 0xf];
  return text;
}

bool parseFooterHash(const std::string& text, uint64_t& hash) {
  const size_t prefix = std::strlen(kHashPrefix);
  if (text.size() != prefix + 16 || text.compare(0, prefix, kHashPrefix) != 0) return false;
  uint64_t value = 0;
  for (size_t i = prefix; i < text.size(); ++i) {
    const char c = text[i];
    int digit;
    if (c >= '0' && c <= '9') {
      digit = c - '0';
    } else if (c >= 'a' && c <= 'f') {
      digit = c - 'a' + 10;
    } else {
      return false;
    }
    value = value << 4 | static_cast<uint64_t>(digit);
  }
  hash = value;
  return true;
}

}  // namespace vantro::io::parquet::core::plan
