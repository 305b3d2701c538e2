// The UTF-8 test of `is_utf8`.
//
// The test accepts well-formed UTF-8 as it is exchanged in text: every
// multi-byte sequence must be the shortest form of its code point, no
// surrogate halves (U+D800 to U+DFFF) and nothing above U+10FFFF. On top of
// that it refuses control characters other than tabulator, line feed and
// carriage return, and the byte 127, so that a text that passes is printable
// text. The walk ends at the first zero byte, as for a C string: what follows
// a zero byte is not examined.
#pragma once

#include <cstddef>

namespace vrk {

// True when the bytes up to the first zero (or `size`) form valid text.
bool is_valid_utf8(const char* text, std::size_t size);

}  // namespace vrk
