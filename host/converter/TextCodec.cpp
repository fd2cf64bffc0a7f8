#include "host/converter/TextCodec.hpp"

#include "host/unicode/ustring.hpp"

#include <cstring>

namespace vantro::io::arrow::core::text {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr uint64_t kHighBits = 0x8080808080808080ULL;

// Blocks of a fixed size with unaliased pointers: loops the compiler turns into vector code
// even at -O2, where it vectorises only loops without runtime alias or trip-count checks.
constexpr size_t kBlock = 32;

// Copies one block and returns the OR of its inputs, so the ASCII check costs no extra pass.
inline uint8_t WidenBlock(const uint8_t* __restrict data, char16_t* __restrict out) {
  uint8_t any = 0;
  for (size_t k = 0; k < kBlock; ++k) {
    out[k] = data[k];
    any |= data[k];
  }
  return any;
}

inline char16_t NarrowBlock(const char16_t* __restrict data, uint8_t* __restrict out) {
  char16_t any = 0;
  for (size_t k = 0; k < kBlock; ++k) {
    out[k] = static_cast<uint8_t>(data[k]);
    any |= data[k];
  }
  return any;
}

// One pass serves both counting (kWrite false) and writing, so the two always agree.
template <bool kWrite>
size_t DecodeAll(const uint8_t* data, size_t size, char16_t* out) {
  size_t units = 0;
  size_t i = 0;
  while (i < size) {
    // Runs of ASCII go eight bytes at a time.
    while (i + 8 <= size) {
      uint64_t word;
      std::memcpy(&word, data + i, 8);
      if (word & kHighBits) break;
      if (kWrite) WidenAscii(data + i, 8, out + units);
      units += 8;
      i += 8;
    }
    if (i >= size) break;
    const char32_t cp = foundation::unicode::decodeUtf8(data, size, i);
    if (cp < 0x10000) {
      if (kWrite) out[units] = static_cast<char16_t>(cp);
      units += 1;
    } else {
      if (kWrite) {
        out[units] = static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10));
        out[units + 1] = static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF));
      }
      units += 2;
    }
  }
  return units;
}

// Reads one code point from UTF-16, a lone surrogate giving U+FFFD.
char32_t DecodeUtf16(const char16_t* data, size_t size, size_t& i) {
  const char16_t unit = data[i++];
  if (unit < 0xD800 || unit > 0xDFFF) return unit;
  if (unit <= 0xDBFF && i < size && data[i] >= 0xDC00 && data[i] <= 0xDFFF) {
    const char16_t low = data[i++];
    return 0x10000 + ((static_cast<char32_t>(unit) - 0xD800) << 10) + (low - 0xDC00);
  }
  return kReplacement;
}

template <bool kWrite>
size_t EncodeAll(const char16_t* data, size_t size, uint8_t* out) {
  size_t bytes = 0;
  size_t i = 0;
  while (i < size) {
    const char32_t cp = DecodeUtf16(data, size, i);
    if (cp < 0x80) {
      if (kWrite) out[bytes] = static_cast<uint8_t>(cp);
      bytes += 1;
    } else if (cp < 0x800) {
      if (kWrite) {
        out[bytes] = static_cast<uint8_t>(0xC0 | (cp >> 6));
        out[bytes + 1] = static_cast<uint8_t>(0x80 | (cp & 0x3F));
      }
      bytes += 2;
    } else if (cp < 0x10000) {
      if (kWrite) {
        out[bytes] = static_cast<uint8_t>(0xE0 | (cp >> 12));
        out[bytes + 1] = static_cast<uint8_t>(0x80 | ((cp >> 6) & 0x3F));
        out[bytes + 2] = static_cast<uint8_t>(0x80 | (cp & 0x3F));
      }
      bytes += 3;
    } else {
      if (kWrite) {
        out[bytes] = static_cast<uint8_t>(0xF0 | (cp >> 18));
        out[bytes + 1] = static_cast<uint8_t>(0x80 | ((cp >> 12) & 0x3F));
        out[bytes + 2] = static_cast<uint8_t>(0x80 | ((cp >> 6) & 0x3F));
        out[bytes + 3] = static_cast<uint8_t>(0x80 | (cp & 0x3F));
      }
      bytes += 4;
    }
  }
  return bytes;
}

}  // namespace

bool IsAscii(const uint8_t* data, size_t size) {
  size_t i = 0;
  uint64_t any = 0;
  for (; i + 32 <= size; i += 32) {
    uint64_t w[4];
    std::memcpy(w, data + i, 32);
    any |= w[0] | w[1] | w[2] | w[3];
    if (any & kHighBits) return false;
  }
  for (; i < size; ++i) any |= data[i];
  return (any & kHighBits) == 0;
}

bool IsAscii(const char16_t* data, size_t size) {
  char16_t any = 0;
  size_t i = 0;
  for (; i + kBlock <= size; i += kBlock) {
    for (size_t k = 0; k < kBlock; ++k) any |= data[i + k];
    if (any >= 0x80) return false;
  }
  for (; i < size; ++i) any |= data[i];
  return any < 0x80;
}

void WidenAscii(const uint8_t* data, size_t size, char16_t* out) {
  size_t i = 0;
  for (; i + kBlock <= size; i += kBlock) WidenBlock(data + i, out + i);
  for (; i < size; ++i) out[i] = data[i];
}

void NarrowAscii(const char16_t* data, size_t size, uint8_t* out) {
  size_t i = 0;
  for (; i + kBlock <= size; i += kBlock) NarrowBlock(data + i, out + i);
  for (; i < size; ++i) out[i] = static_cast<uint8_t>(data[i]);
}

bool WidenIfAscii(const uint8_t* data, size_t size, char16_t* out) {
  size_t i = 0;
  for (; i + kBlock <= size; i += kBlock) {
    if (WidenBlock(data + i, out + i) >= 0x80) return false;
  }
  uint8_t any = 0;
  for (; i < size; ++i) {
    out[i] = data[i];
    any |= data[i];
  }
  return any < 0x80;
}

bool NarrowIfAscii(const char16_t* data, size_t size, uint8_t* out) {
  size_t i = 0;
  for (; i + kBlock <= size; i += kBlock) {
    if (NarrowBlock(data + i, out + i) >= 0x80) return false;
  }
  char16_t any = 0;
  for (; i < size; ++i) {
    out[i] = static_cast<uint8_t>(data[i]);
    any |= data[i];
  }
  return any < 0x80;
}

size_t Utf16Length(const uint8_t* data, size_t size) {
  return DecodeAll<false>(data, size, nullptr);
}

size_t Utf8ToUtf16(const uint8_t* data, size_t size, char16_t* out) {
  return DecodeAll<true>(data, size, out);
}

size_t Utf8Length(const char16_t* data, size_t size) {
  return EncodeAll<false>(data, size, nullptr);
}

size_t Utf16ToUtf8(const char16_t* data, size_t size, uint8_t* out) {
  return EncodeAll<true>(data, size, out);
}

}  // namespace vantro::io::arrow::core::text
