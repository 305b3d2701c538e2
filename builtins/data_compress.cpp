// Data buffer builtins that compress: `compress` (deflate in the zlib stream
// format, in place), the `decompress` placeholder, and `createpng`, which
// writes a PNG file image into memory.
//
// Both go through zlib at its default level; the PNG file is made by the image
// codec of the bitmap type (objects/image_codec), whose deflate step is zlib's.
#include <cstdint>
#include <cstdlib>
#include <vector>
#include <zlib.h>

#include "builtins/data.h"
#include "builtins/data_support.h"
#include "objects/image_codec.h"

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
    if (!encode_png(pixels->data(), static_cast<int>(width), static_cast<int>(height),
                    static_cast<int>(channels), file)) {
        report(block, "createpng: the image could not be written!");
        return &result;
    }
    if (std::vector<uint8_t>* out = as_data(&result)) *out = std::move(file);
    return &result;
}

}  // namespace vrk::lib
