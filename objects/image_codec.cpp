// The image codecs: the stb reader and writer compiled here, privately, with
// zlib doing the PNG writer's deflate.
#include "objects/image_codec.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <zlib.h>

#include "platform/files.h"

namespace {

// The deflate step of the PNG writer: `size` bytes of `bytes` into a zlib
// stream in memory from malloc (the writer releases it with free), its length
// in `out_size`; null on failure. Every stream of this program is deflated at
// zlib's default level, so the writer's own level is not used.
unsigned char* png_deflate(unsigned char* bytes, int size, int* out_size, int /*level*/) {
    uLongf length = compressBound(static_cast<uLong>(size));
    auto* out = static_cast<unsigned char*>(std::malloc(length));
    if (!out) return nullptr;
    if (compress2(out, &length, bytes, static_cast<uLong>(size), Z_DEFAULT_COMPRESSION) != Z_OK) {
        std::free(out);
        return nullptr;
    }
    *out_size = static_cast<int>(length);
    return out;
}

}  // namespace

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#define STBIW_ZLIB_COMPRESS png_deflate
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_NO_STDIO
#define STBI_NO_HDR
#define STBI_NO_LINEAR
#define STBI_NO_PIC
#define STBI_MAX_DIMENSIONS (1 << 16)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#pragma GCC diagnostic ignored "-Wsign-compare"
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wunused-parameter"
#pragma GCC diagnostic ignored "-Wunused-but-set-variable"
#pragma GCC diagnostic ignored "-Wimplicit-fallthrough"
#pragma GCC diagnostic ignored "-Wtype-limits"
#include <stb_image.h>
#include <stb_image_write.h>
#pragma GCC diagnostic pop

namespace vrk {

namespace {

// The Huffman tables of a JPEG's DHT segment [p, end) hold at most 256 codes
// each. The reader of this stb version trusts the counts and writes past its
// table when they add up to more, so such files are refused before decoding.
bool huffman_tables_fit(const uint8_t* p, const uint8_t* end) {
    while (p < end) {
        if (end - p < 17) return false;
        unsigned codes = 0;
        for (int i = 1; i <= 16; ++i) codes += p[i];
        if (codes > 256) return false;
        p += 17 + codes;
    }
    return true;
}

// Walks the markers of a JPEG file image and checks every DHT segment; true
// for bytes that are no JPEG at all (another reader takes them). Entropy-coded
// data needs no special step: in it 0xFF is followed by a stuffed 0 or a
// restart marker, both of which the walk passes over.
bool jpeg_tables_fit(const uint8_t* bytes, std::size_t size) {
    std::size_t i = 0;
    // The reader takes any number of 0xFF fill bytes before a marker.
    if (size < 2 || bytes[0] != 0xFF) return true;
    while (i < size && bytes[i] == 0xFF) ++i;
    if (i >= size || bytes[i] != 0xD8) return true;
    ++i;
    while (i < size) {
        if (bytes[i] != 0xFF) {
            ++i;
            continue;
        }
        while (i < size && bytes[i] == 0xFF) ++i;
        if (i >= size) break;
        const uint8_t marker = bytes[i++];
        if (marker == 0x00 || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8)) continue;
        if (marker == 0xD9) break;
        if (size - i < 2) break;
        const std::size_t length = (std::size_t{bytes[i]} << 8) | bytes[i + 1];
        const std::size_t end = std::min(size, i + length);
        if (marker == 0xC4 && length >= 2 && !huffman_tables_fit(bytes + i + 2, bytes + end))
            return false;
        i = std::max(end, i + 2);
    }
    return true;
}

}  // namespace

bool decode_image(const uint8_t* bytes, std::size_t size, decoded_image& out, std::string& reason) {
    out = decoded_image{};
    if (!bytes || size == 0 || size > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        reason = size == 0 ? "empty buffer" : "buffer too large";
        return false;
    }
    if (!jpeg_tables_fit(bytes, size)) {
        reason = "bad DHT header";
        return false;
    }
    const int length = static_cast<int>(size);
    int w = 0;
    int h = 0;
    int n = 0;
    if (!stbi_info_from_memory(bytes, length, &w, &h, &n)) {
        reason = stbi_failure_reason() ? stbi_failure_reason() : "unknown image type";
        return false;
    }
    if (w <= 0 || h <= 0 || n < 1 || n > 4 ||
        static_cast<uint64_t>(w) * static_cast<uint64_t>(h) * static_cast<uint64_t>(n) >
            kMaxDecodedBytes) {
        reason = "image too large";
        return false;
    }
    unsigned char* pixels = stbi_load_from_memory(bytes, length, &w, &h, &n, 0);
    if (!pixels) {
        // Some faults (a stream that ends early) leave the reason empty.
        const char* why = stbi_failure_reason();
        reason = why && *why ? why : "corrupt image data";
        // A reason may quote bytes of the input (an unknown chunk's name).
        for (char& c : reason)
            if (static_cast<unsigned char>(c) < 32 || static_cast<unsigned char>(c) > 126) c = '?';
        return false;
    }
    const std::size_t count = static_cast<std::size_t>(w) * static_cast<std::size_t>(h) *
                              static_cast<std::size_t>(n);
    out.pixels.assign(pixels, pixels + count);
    stbi_image_free(pixels);
    out.width = w;
    out.height = h;
    out.channels = n;
    return true;
}

bool looks_like_jpeg(const uint8_t* bytes, std::size_t size) {
    return bytes && size >= 3 && bytes[0] == 0xFF && bytes[1] == 0xD8 && bytes[2] == 0xFF;
}

namespace {

void append_piece(void* context, void* data, int size) {
    auto* out = static_cast<std::vector<uint8_t>*>(context);
    const auto* from = static_cast<const uint8_t*>(data);
    out->insert(out->end(), from, from + size);
}

void sink_piece(void* context, void* data, int size) {
    const auto* sink = static_cast<const image_sink*>(context);
    (*sink)(static_cast<const uint8_t*>(data), static_cast<std::size_t>(size));
}

bool encodable(int width, int height, int channels) {
    return width > 0 && height > 0 && channels >= 1 && channels <= 4 &&
           static_cast<uint64_t>(width) * static_cast<uint64_t>(height) *
                   static_cast<uint64_t>(channels) <=
               (uint64_t{1} << 30);
}

}  // namespace

bool encode_png(const uint8_t* pixels, int width, int height, int channels,
                std::vector<uint8_t>& out) {
    if (!pixels || !encodable(width, height, channels)) return false;
    return stbi_write_png_to_func(append_piece, &out, width, height, channels, pixels,
                                  width * channels) != 0;
}

bool encode_jpeg(const uint8_t* pixels, int width, int height, int channels,
                 const image_sink& sink) {
    if (!pixels || !encodable(width, height, channels)) return false;
    return stbi_write_jpg_to_func(sink_piece, const_cast<image_sink*>(&sink), width, height,
                                  channels, pixels, kJpegQuality) != 0;
}

void swap_red_blue(std::vector<uint8_t>& pixels, int channels) {
    if (channels < 3) return;
    const auto step = static_cast<std::size_t>(channels);
    for (std::size_t i = 0; i + 2 < pixels.size(); i += step) std::swap(pixels[i], pixels[i + 2]);
}

bool read_whole_file(const std::string& path, std::vector<uint8_t>& out) {
    std::ifstream file(platform::file_path(path), std::ios::binary);
    if (!file) return false;
    out.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return !file.bad();
}

}  // namespace vrk
