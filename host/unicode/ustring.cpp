#include "host/unicode/ustring.hpp"

#include <cstdint>

namespace foundation::unicode {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Decodes one code point starting at text[i] and advances i; malformed input (bad lead byte,
// truncated or overlong sequence, surrogate, value past U+10FFFF) yields U+FFFD and consumes
// the maximal invalid prefix, as the Unicode standard recommends.
char32_t decodeUtf8(std::string_view text, size_t& i) {
  const auto byte = [&](size_t k) { return static_cast<uint8_t>(text[k]); };
  const uint8_t lead = byte(i++);
  if (lead < 0x80) return lead;
  int extra;
  char32_t cp;
  char32_t lo = 0x80, hi = 0xBF;  // allowed range of the first continuation byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    extra = 1;
    cp = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    extra = 2;
    cp = lead & 0x0F;
    if (lead == 0xE0) lo = 0xA0;
    if (lead == 0xED) hi = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    extra = 3;
    cp = lead & 0x07;
    if (lead == 0xF0) lo = 0x90;
    if (lead == 0xF4) hi = 0x8F;
  } else {
    return kReplacement;
  }
  for (int k = 0; k < extra; ++k) {
    if (i >= text.size()) return kReplacement;
    const uint8_t b = byte(i);
    if (b < lo || b > hi) return kReplacement;
    lo = 0x80;
    hi = 0xBF;
    cp = (cp << 6) | (b & 0x3F);
    ++i;
  }
  return cp;
}

void appendUtf16(std::u16string& out, char32_t cp) {
  if (cp < 0x10000) {
    out.push_back(static_cast<char16_t>(cp));
  } else {
    cp -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
  }
}

void appendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

}  // namespace

std::u16string utf8_to_ustring(std::string_view utf8) {
  std::u16string out;
  out.reserve(utf8.size());
  size_t i = 0;
  while (i < utf8.size()) {
    // ASCII runs are by far the most common case: copy them without decoding.
    while (i < utf8.size() && static_cast<uint8_t>(utf8[i]) < 0x80) {
      out.push_back(static_cast<char16_t>(utf8[i++]));
    }
    if (i < utf8.size()) appendUtf16(out, decodeUtf8(utf8, i));
  }
  return out;
}

std::string ustring_to_utf8(std::u16string_view utf16) {
  std::string out;
  out.reserve(utf16.size());
  for (size_t i = 0; i < utf16.size(); ++i) {
    char32_t unit = utf16[i];
    if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < utf16.size() && utf16[i + 1] >= 0xDC00 &&
        utf16[i + 1] <= 0xDFFF) {
      unit = 0x10000 + ((unit - 0xD800) << 10) + (utf16[++i] - 0xDC00);
    } else if (unit >= 0xD800 && unit <= 0xDFFF) {
      unit = kReplacement;  // lone surrogate
    }
    appendUtf8(out, unit);
  }
  return out;
}

std::u16string to_ustring(const char* text) {
  return text == nullptr ? std::u16string() : utf8_to_ustring(text);
}

}  // namespace foundation::unicode
