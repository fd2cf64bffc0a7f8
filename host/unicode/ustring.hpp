#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// Text conversions of the host. The host keeps texts as UTF-16; the library's narrow texts are
// UTF-8. Conversions never fail: an invalid sequence becomes U+FFFD.
namespace foundation::unicode {

std::u16string utf8_to_ustring(std::string_view utf8);
std::string ustring_to_utf8(std::u16string_view utf16);

// Decodes the code point of UTF-8 starting at data[i] and advances i past it. A malformed
// sequence yields U+FFFD and consumes only its maximal invalid prefix, as the Unicode standard
// recommends. Requires i < size.
char32_t decodeUtf8(const uint8_t* data, size_t size, size_t& i);

// A narrow text of unknown origin (an exception's what(), say), read as UTF-8.
std::u16string to_ustring(const char* text);

}  // namespace foundation::unicode
