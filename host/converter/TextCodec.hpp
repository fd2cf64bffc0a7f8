#pragma once

// Block conversions between the UTF-8 of Arrow strings and the UTF-16 of host char arrays.
// Written for whole columns: callers size the output with the *Length functions first and
// allocate once. Invalid input never fails: each maximal invalid UTF-8 subpart and each lone
// surrogate becomes U+FFFD.
#include <cstddef>
#include <cstdint>

namespace vantro::io::arrow::core::text {

bool IsAscii(const uint8_t* data, size_t size);
bool IsAscii(const char16_t* data, size_t size);

// ASCII only: widens or narrows byte for unit.
void WidenAscii(const uint8_t* data, size_t size, char16_t* out);
void NarrowAscii(const char16_t* data, size_t size, uint8_t* out);

// One pass that copies and checks at once: widens (narrows) byte for unit while the input is
// ASCII. Returns false, leaving `out` partly written, as soon as a non-ASCII value shows up.
bool WidenIfAscii(const uint8_t* data, size_t size, char16_t* out);
bool NarrowIfAscii(const char16_t* data, size_t size, uint8_t* out);

// The number of UTF-16 units that Utf8ToUtf16 writes for these bytes.
size_t Utf16Length(const uint8_t* data, size_t size);
// Writes exactly Utf16Length(data, size) units; returns that count.
size_t Utf8ToUtf16(const uint8_t* data, size_t size, char16_t* out);

// The number of UTF-8 bytes that Utf16ToUtf8 writes for these units.
size_t Utf8Length(const char16_t* data, size_t size);
// Writes exactly Utf8Length(data, size) bytes; returns that count.
size_t Utf16ToUtf8(const char16_t* data, size_t size, uint8_t* out);

}  // namespace vantro::io::arrow::core::text
