// Data buffer builtins that compress: `compress` (deflate in the zlib stream
// format, in place), the `decompress` placeholder, and `createpng`, which
// writes a PNG file image into memory.
//
// Both go through zlib at its default level. The PNG writer is the single-file
// stb writer, compiled into this file only, with its own functions private to
// it and its deflate step routed to zlib as well; it writes no files itself.
#include <cstdint>
#include <cstdlib>
#include <vector>
#include <zlib.h>

#include "builtins/data.h"
#include "builtins/data_support.h"

namespace {

// The deflate step of the PNG writer: `size` bytes of `bytes` into a zlib
// stream in memory from malloc (the writer releases it with free), its length
// in `out_size`; null on failure. The writer's own level is not used: every
// stream of this library is deflated at zlib's default level.
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
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#pragma GCC diagnostic ignored "-Wsign-compare"
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include <stb_image_write.h>
#pragma GCC diagnostic pop

namespace vrk::lib {

using data::arg;
using data::report;

namespace {

// Largest side of an image createpng writes, in pixels, and largest image in
// bytes: the writer counts rows and sizes in plain ints.
constexpr int64_t kMaxPngSide = 1 << 20;
constexpr uint64_t kMaxPngBytes = uint64_t{1} << 28;

// The output bound compress reserves: the larger of two estimates of the
// worst deflate growth.
uint64_t compress_bound(uint64_t n) {
    const uint64_t a = 128 + n * 110 / 100;
    const uint64_t b = 128 + n + 5 * (n / (31 * 1024) + 1);
    return a > b ? a : b;
}

// Appends each piece the PNG writer hands over to the vector behind `context`.
void collect(void* context, void* bytes, int size) {
    auto* out = static_cast<std::vector<uint8_t>*>(context);
    const auto* from = static_cast<const uint8_t*>(bytes);
    out->insert(out->end(), from, from + size);
}

}  // namespace

VRK_BUILTIN(compress) {
    set_int(&result, 0);
    std::vector<uint8_t>* bytes = args.size() == 1 ? data::bytes_of(arg(args, 0)) : nullptr;
    if (!bytes) return &result;
    uLongf length = static_cast<uLongf>(compress_bound(bytes->size()));
    std::vector<uint8_t> out(length);
    if (compress2(out.data(), &length, bytes->data(), static_cast<uLong>(bytes->size()),
                  Z_DEFAULT_COMPRESSION) != Z_OK) {
        report(block, "compression failed!");
        return &result;
    }
    // The compressed stream replaces the bytes of the argument.
    out.resize(length);
    *bytes = std::move(out);
    set_int(&result, 1);
    return &result;
}

VRK_BUILTIN(decompress) {
    report(block, "NNOOOT IMPLEMENTED!!!!");
    return &result;
}

VRK_BUILTIN(createpng) {
    const std::vector<uint8_t>* pixels = args.size() == 4 ? data::bytes_of(arg(args, 0)) : nullptr;
    if (!pixels) {
        report(block, "wrong params!");
        return &result;
    }
    const int64_t width = to_int(arg(args, 1));
    const int64_t height = to_int(arg(args, 2));
    const int64_t channels = to_int(arg(args, 3));
    // The image must fit the buffer: a larger one would be read past its end.
    const bool shape = width > 0 && height > 0 && width <= kMaxPngSide && height <= kMaxPngSide &&
                       channels >= 1 && channels <= 4;
    const uint64_t size =
        shape ? static_cast<uint64_t>(width * channels) * static_cast<uint64_t>(height) : 0;
    if (!shape || size > pixels->size() || size > kMaxPngBytes) {
        report(block, "createpng: the image does not fit the buffer!");
        return &result;
    }
    std::vector<uint8_t> file;
    const int stride = static_cast<int>(width * channels);
    if (!stbi_write_png_to_func(collect, &file, static_cast<int>(width), static_cast<int>(height),
                                static_cast<int>(channels), pixels->data(), stride)) {
        report(block, "createpng: the image could not be written!");
        return &result;
    }
    if (std::vector<uint8_t>* out = as_data(&result)) *out = std::move(file);
    return &result;
}

}  // namespace vrk::lib
