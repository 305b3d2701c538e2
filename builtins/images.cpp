// The image builtins: bmp, bmp_setpixel, bmp_circle, bmp_data, jpg_decode, jpg_encode.
#include "builtins/images.h"

#include <functional>
#include <memory>
#include <utility>

#include "base/log.h"
#include "base/script_lock.h"
#include "builtins/arrays_support.h"
#include "objects/bitmap.h"
#include "objects/image_codec.h"
#include "values/json.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/errors.h"

namespace vrk::lib {

namespace {

using arrays::arg;
using arrays::report;

// The colour of bmp_setpixel and bmp_circle: a list of up to three integers
// R, G, B (missing ones 0); any other value is its integer as red alone.
rgb_colour list_colour(vrkvar* cell) {
    int64_t parts[3] = {0, 0, 0};
    if (cell->type == Tag::JSON && cell->value.json) {
        const auto& elements = cell->value.json->elements;
        for (std::size_t i = 0; i < 3 && i < elements.size(); ++i)
            parts[i] = elements[i] ? to_int(elements[i]) : 0;
    } else {
        parts[0] = to_int(cell);
    }
    // Each value is cut to its low byte, as a byte store does.
    return {static_cast<uint8_t>(parts[0]), static_cast<uint8_t>(parts[1]),
            static_cast<uint8_t>(parts[2])};
}

// Runs `work` on a worker thread while `block` sleeps (the result cell is
// handed to it); without an engine to run workers, runs it here.
vrkvar* run_job(vrkblock* block, vrkvar& result, std::function<void(vrkvar*)> work) {
    vrkvalue_context& ctx = value_context();
    if (!ctx.startWorker || !block || !block->engine) {
        work(&result);
        return &result;
    }
    return ctx.startWorker(std::move(work), block, &result);
}

}  // namespace

VRK_BUILTIN(bmp) {
    ScriptBMP* made = bitmap_args::new_result(result);
    const bool with_bytes = !args.empty() && arg(args, 0)->type == Tag::DATA;
    const std::size_t first = with_bytes ? 1 : 0;
    if (args.size() < first + 2) return &result;
    const int64_t w = to_int(arg(args, first));
    const int64_t h = to_int(arg(args, first + 1));
    if (!image_shape_ok(w, h, 3)) {
        report(block, "bmp: wrong image size!");
        return &result;
    }
    // Bytes of exactly w * h * n (n 1 to 4) make an image of n channels;
    // any other size fills a 3-channel image as far as it goes.
    uint32_t channels = 3;
    const std::vector<uint8_t>* bytes = with_bytes ? arg(args, 0)->value.data : nullptr;
    const auto pixels = static_cast<uint64_t>(w * h);
    if (bytes && pixels > 0 && bytes->size() % pixels == 0 && bytes->size() / pixels >= 1 &&
        bytes->size() / pixels <= 4 && image_shape_ok(w, h, bytes->size() / pixels))
        channels = static_cast<uint32_t>(bytes->size() / pixels);
    made->image.create(static_cast<uint32_t>(w), static_cast<uint32_t>(h), channels);
    if (bytes)
        std::copy_n(bytes->begin(), std::min(bytes->size(), made->image.size()),
                    made->image.data.begin());
    return &result;
}

VRK_BUILTIN(bmp_setpixel) {
    if (args.size() != 4) {
        report(block, "setpixel wrong params.");
        return &result;
    }
    ScriptBMP* target = bitmap_args::bitmap_of(arg(args, 0));
    if (!target) return &result;
    target->image.set_pixel(to_int(arg(args, 1)), to_int(arg(args, 2)), list_colour(arg(args, 3)));
    return &result;
}

VRK_BUILTIN(bmp_circle) {
    if (args.size() != 5 && args.size() != 6) {
        report(block, "circle wrong params.");
        return &result;
    }
    ScriptBMP* target = bitmap_args::bitmap_of(arg(args, 0));
    if (!target) {
        report(block, "not a bmp");
        return &result;
    }
    const int64_t x = to_int(arg(args, 1));
    const int64_t y = to_int(arg(args, 2));
    if (!target->image.inside(x, y)) {
        report(block, "out of bounds.");
        return &result;
    }
    const int64_t width = args.size() == 6 ? to_int(arg(args, 5)) : 1;
    target->image.circle(x, y, to_int(arg(args, 3)),
                         width >= 1 && width <= 3 ? static_cast<int>(width) : 1,
                         list_colour(arg(args, 4)));
    return &result;
}

VRK_BUILTIN(bmp_data) {
    if (args.size() != 1) {
        report(block, "setpixel wrong params.");
        return &result;
    }
    if (!bitmap_args::bitmap_of(arg(args, 0))) {
        report(block, "not a bmp!");
        return &result;
    }
    // Still a placeholder: the answer is an empty buffer.
    if (std::vector<uint8_t>* out = as_data(&result)) out->clear();
    log().error("implement later.");
    return &result;
}

VRK_BUILTIN(jpg_decode) {
    vrkvar* source = args.empty() ? nullptr : arg(args, 0);
    if (!source || source->type != Tag::DATA || !source->value.data) {
        report(block, "wrong params!");
        return &result;
    }
    vrkvar* width_cell = args.size() >= 2 ? arg(args, 1) : nullptr;
    vrkvar* height_cell = args.size() >= 3 ? arg(args, 2) : nullptr;
    return run_job(block, result, [block, source, width_cell, height_cell](vrkvar* out) {
        const std::vector<uint8_t>& bytes = *source->value.data;
        decoded_image decoded;
        std::string reason;
        // Error codes: 1 not a JPEG file, 2 a JPEG that does not decode.
        int code = 0;
        if (!looks_like_jpeg(bytes.data(), bytes.size()))
            code = 1;
        else if (!decode_image(bytes.data(), bytes.size(), decoded, reason))
            code = 2;
        ScriptLock lock;
        if (code != 0) {
            report_errorf(block, "external_function", "error decoding the input file %i", code);
            set_int(out, 0);
            return;
        }
        if (width_cell && width_cell->type == Tag::INT) set_int(width_cell, decoded.width);
        if (height_cell && height_cell->type == Tag::INT) set_int(height_cell, decoded.height);
        *source->value.data = std::move(decoded.pixels);
        set_int(out, 1);
    });
}

VRK_BUILTIN(jpg_encode) {
    vrkvar* first = args.empty() ? nullptr : arg(args, 0);
    if (ScriptBMP* image = first ? bitmap_args::bitmap_of(first) : nullptr) {
        // (bmp, opt dataout): the file image goes to `dataout`, or is the result.
        vrkvar* target = args.size() >= 2 ? arg(args, 1) : &result;
        if (!as_data(target)) {
            report(block, "wrong params.");
            return &result;
        }
        image->jobBegin();
        return run_job(block, result, [image, target](vrkvar*) {
            const std::vector<uint8_t> pixels = image->file_order_pixels();
            std::vector<uint8_t> file;
            encode_jpeg(pixels.data(), static_cast<int>(image->image.width),
                        static_cast<int>(image->image.height),
                        static_cast<int>(image->image.bytes_per_pixel),
                        [&file](const uint8_t* bytes, std::size_t size) {
                            file.insert(file.end(), bytes, bytes + size);
                        });
            {
                ScriptLock lock;
                if (std::vector<uint8_t>* out = as_data(target)) *out = std::move(file);
            }
            image->jobEnd();
        });
    }
    // (uchars, width, height, opt out): the bytes are pixels in R, G, B(, A)
    // order; their count sets the channels.
    const bool shape = first && first->type == Tag::DATA && first->value.data && args.size() >= 3;
    const int64_t w = shape ? to_int(arg(args, 1)) : 0;
    const int64_t h = shape ? to_int(arg(args, 2)) : 0;
    const std::size_t size = shape ? first->value.data->size() : 0;
    const bool sides = w > 0 && h > 0 && w <= kMaxImageSide && h <= kMaxImageSide;
    const auto pixels = static_cast<uint64_t>(sides ? w * h : 0);
    const uint64_t channels = pixels ? size / pixels : 0;
    vrkvar* target = args.size() >= 4 ? arg(args, 3) : first;
    if (!shape || !image_shape_ok(w, h, 1) || pixels == 0 || size % pixels != 0 || channels < 1 ||
        channels > 4 || !as_data(target)) {
        report(block, "wrong params.");
        return &result;
    }
    return run_job(block, result, [first, target, w, h, channels](vrkvar* out) {
        std::vector<uint8_t> file;
        const bool ok = encode_jpeg(first->value.data->data(), static_cast<int>(w),
                                    static_cast<int>(h), static_cast<int>(channels),
                                    [&file](const uint8_t* bytes, std::size_t n) {
                                        file.insert(file.end(), bytes, bytes + n);
                                    });
        ScriptLock lock;
        if (ok) {
            if (std::vector<uint8_t>* dest = as_data(target)) *dest = std::move(file);
        }
        set_int(out, ok ? 1 : 0);
    });
}

}  // namespace vrk::lib
