// libFuzzer target for the image reader behind `bitmap.load_mem` and `load`:
// arbitrary bytes are decoded into a bitmap, which must either refuse them
// with a reason or hold a well-formed image. A decoded image is written again
// as PNG and BMP and the PNG read back, so the writers see every shape the
// reader can produce, and the colours must survive that round.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "objects/bitmap.h"
#include "objects/image_codec.h"

namespace {

// Images above this many bytes are only decoded: writing them again would
// make each input slow without reaching new code.
constexpr std::size_t kRewriteLimit = std::size_t{1} << 20;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    vrk::ScriptBMP image;
    std::string reason;
    if (!image.load_bytes(data, size, reason)) {
        if (reason.empty()) std::abort();
        return 0;
    }
    const vrk::bitmap_image& pixels = image.image;
    if (pixels.width == 0 || pixels.height == 0 || pixels.bytes_per_pixel < 1 ||
        pixels.bytes_per_pixel > 4 ||
        pixels.data.size() != std::size_t{pixels.height} * pixels.row_increment)
        std::abort();
    if (pixels.data.size() > kRewriteLimit) return 0;

    std::vector<uint8_t> bmp;
    pixels.bmp_bytes(bmp);
    std::vector<uint8_t> png;
    if (!image.png_bytes(png)) std::abort();
    vrk::ScriptBMP again;
    if (!again.load_bytes(png.data(), png.size(), reason)) std::abort();
    if (again.image.data != pixels.data) std::abort();
    return 0;
}
