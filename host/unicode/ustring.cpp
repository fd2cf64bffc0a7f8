#include "host/unicode/ustring.hpp"

#include <cstdint>

namespace foundation::unicode {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

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

char32_t decodeUtf8(const uint8_t* data, size_t size, size_t& i) {
  const uint8_t lead = data[i++];
  if (lead < 0x80) return lead;
  int extra;
  char32_t cp;
  uint8_t lo = 0x80, hi = 0xBF;  // allowed range of the first continuation byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    extra = 1;
    cp = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    extra = 2;
    cp = lead & 0x0F;
    if (lead == 0xE0) lo = 0xA0;  // no overlong forms
    if (lead == 0xED) hi = 0x9F;  // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    extra = 3;
    cp = lead & 0x07;
    if (lead == 0xF0) lo = 0x90;
    if (lead == 0xF4) hi = 0x8F;  // nothing past U+10FFFF
  } else {
    return kReplacement;
  }
  for (int k = 0; k < extra; ++k) {
    if (i >= size || data[i] < lo || data[i] > hi) return kReplacement;
    cp = (cp << 6) | (data[i] & 0x3F);
    lo = 0x80;
    hi = 0xBF;
    ++i;
  }
  return cp;
}

std::u16string utf8_to_ustring(std::string_view utf8) {
  std::u16string out;
  out.reserve(utf8.size());
  size_t i = 0;
  while (i < utf8.size()) {
    // ASCII runs are by far the most common case: copy them without decoding.
    while (i < utf8.size() && static_cast<uint8_t>(utf8[i]) < 0x80) {
      out.push_back(static_cast<char16_t>(utf8[i++]));
    }
    if (i < utf8.size()) {
      appendUtf16(out, decodeUtf8(reinterpret_cast<const uint8_t*>(utf8.data()), utf8.size(), i));
    }
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
