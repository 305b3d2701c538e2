// Data buffer builtins: the script functions that make and handle the flat
// buffers, and the byte-level conversions, hash and compression around them.
//
// A flat buffer is a cell whose payload is one plain vector: DATA holds bytes
// (the "uchars" of the descriptions), FLOATSET 32-bit floats, DOUBLESET
// doubles, INTSET 32-bit and BIGINTSET 64-bit integers. The makers (`dset` and
// its four siblings) either fill the call's result or turn their first
// argument into the buffer in place; byte access (`dsetb`, `dgetb`, `dsetcpy`,
// `subset`) works on DATA and checks every index against the buffer before it
// touches memory.
//
// The conversions go to and from text: `encode_data` writes two lower-case hex
// digits per byte and `decode_data` reads them back. `datahash` is a cheap
// change detector (not a cryptographic hash) shared with file hashing through
// `data_hash`. `compress` deflates in the zlib stream format, and `createpng`
// writes a PNG file image into memory.
//
// Faults never stop a script. A wrong call of a byte-access function is a
// runtime report against the calling block ("wrong params! %s" and its
// variants); the others report in the block form and answer with an empty
// value of their result type.
//
// Every body has the signature of builtins/registry.h and lives in namespace
// `lib` under its script name (`sizeof` as `size_of`).
#pragma once

#include <cstddef>
#include <cstdint>

#include "builtins/registry.h"

namespace vrk {

// Largest buffer, in bytes, that a maker, a resize or a copy into a buffer
// will produce; a request for more is refused with a report, so that a script
// cannot exhaust memory by one bad number.
inline constexpr uint64_t kMaxBufferBytes = 1'000'000'000;

// The change-detection hash of `size` bytes: the size, plus the first
// size / 8 little-endian 32-bit words, plus every byte from offset
// 4 * (size / 8) to the end, all in 32-bit wrap-around arithmetic. File
// hashing applies the same function to a file's bytes.
uint32_t data_hash(const uint8_t* bytes, std::size_t size);

namespace lib {

// ---- makers and conversions (builtins/data_buffers.cpp) -------------------------
VRK_BUILTIN(dset);            // (var, size, init) DATA; also registered as uchar_buffer
VRK_BUILTIN(floats);          // (var, size, init) FLOATSET
VRK_BUILTIN(doubles);         // (var, size, init) DOUBLESET
VRK_BUILTIN(ints);            // (var, size, init) INTSET
VRK_BUILTIN(longs);           // (var, size, init) BIGINTSET
VRK_BUILTIN(todset);          // (var) the raw bytes of a scalar, a string with its zero
VRK_BUILTIN(to_float_array);  // (var, divisor, offset) a FLOATSET of element / divisor + offset
VRK_BUILTIN(size_of);         // (var) size in bytes (script name `sizeof`)

// ---- byte access (builtins/data_access.cpp) -------------------------------------------
VRK_BUILTIN(dsetb);    // (uchars, index, byte) stores or appends one byte
VRK_BUILTIN(dgetb);    // (uchars, index) one byte as 0..255
VRK_BUILTIN(dsetcpy);  // (uchars, source, offset) copies source into uchars at offset
VRK_BUILTIN(subset);   // (buffer, start, length) a slice of any flat buffer
VRK_BUILTIN(dsize);    // (uchars) byte count
VRK_BUILTIN(dwritef);  // (uchars, filename) writes the bytes to a file

// ---- text and hash (builtins/data_encoding.cpp) ---------------------------------------
VRK_BUILTIN(encode_data);        // (uchars) two lower-case hex digits per byte
VRK_BUILTIN(decode_data);        // (text) the bytes of a hex text
VRK_BUILTIN(char_to_hex);        // (int) "%02X"
VRK_BUILTIN(hex_to_char);        // (text) the text read in base 16
VRK_BUILTIN(encode_url_string);  // (text) percent-encodes the bytes an address cannot hold
VRK_BUILTIN(datahash);           // (uchars) data_hash of the bytes

// ---- compression and images (builtins/data_compress.cpp) ------------------------------
VRK_BUILTIN(compress);    // (uchars) deflates in place, zlib stream format
VRK_BUILTIN(decompress);  // (uchars) not offered: reports and leaves everything alone
VRK_BUILTIN(createpng);   // (uchars, width, height, channels) a PNG file image

}  // namespace lib

}  // namespace vrk
