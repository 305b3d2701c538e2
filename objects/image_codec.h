// Image file forms: decoding PNG, JPEG, BMP and the other common forms, and
// encoding PNG and JPEG.
//
// The codecs are the single-header stb image reader and writer, compiled into
// objects/image_codec.cpp only (their functions are private to it) with the
// PNG writer's deflate step routed to zlib. Decoding works on bytes in memory:
// a file is read whole first, so the codecs never open files themselves.
//
// The codecs hold pixels in file order, R, G, B(, A); bitmaps hold B, G, R(, A)
// (objects/pixel_store.h). `swap_red_blue` turns one order into the other, and
// the callers apply it on every way in and out, so that a saved and reloaded
// image keeps every colour.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vrk {

// Largest decoded image in bytes; a file that declares more is refused before
// any pixel memory is taken.
inline constexpr uint64_t kMaxDecodedBytes = uint64_t{1} << 28;

// A decoded image in file order.
struct decoded_image {
    std::vector<uint8_t> pixels;  // rows from the top, channels interleaved R, G, B(, A)
    int width = 0;                // pixels
    int height = 0;               // rows
    int channels = 0;             // the file's own channel count, 1 to 4
};

// Decodes a file image at its own channel count. False with the decoder's
// reason ("corrupt JPEG", "unknown image type", ...) when it cannot.
bool decode_image(const uint8_t* bytes, std::size_t size, decoded_image& out, std::string& reason);

// True when the bytes start like a JPEG file (the start-of-image marker).
bool looks_like_jpeg(const uint8_t* bytes, std::size_t size);

// The PNG file of an image in file order, appended to `out`; false on failure.
bool encode_png(const uint8_t* pixels, int width, int height, int channels,
                std::vector<uint8_t>& out);

// Receives the pieces of an encoded file as they are made.
using image_sink = std::function<void(const uint8_t* bytes, std::size_t size)>;

// Quality of every JPEG this program writes (1 to 100).
inline constexpr int kJpegQuality = 90;

// Encodes a JPEG of an image in file order into `sink` piece by piece (an
// alpha channel is ignored); false on failure.
bool encode_jpeg(const uint8_t* pixels, int width, int height, int channels,
                 const image_sink& sink);

// Swaps the first and third channel of every pixel (with three or four
// channels; fewer are left alone): file order to memory order and back.
void swap_red_blue(std::vector<uint8_t>& pixels, int channels);

// Reads a whole file; false when it cannot be opened or read.
bool read_whole_file(const std::string& path, std::vector<uint8_t>& out);

}  // namespace vrk
