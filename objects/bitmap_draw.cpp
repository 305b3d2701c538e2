// The drawing and shape members of bitmaps: circle, line, rect, the size
// properties, and the members that make a resized copy (downscale, upscale,
// resize).
#include <algorithm>
#include <cmath>
#include <vector>

#include "objects/bitmap.h"
#include "values/cell.h"

namespace vrk::bitmap_members {

namespace {

using namespace bitmap_args;
using member_args = std::vector<vrkvar*>;

// A pen width of 1 to 3; anything else draws with width 1.
int pen_of(int64_t width) { return width >= 1 && width <= 3 ? static_cast<int>(width) : 1; }

// The checks the three drawing members share: the argument count, the first
// point inside the image, and the colour. `vector_area` and `vector_text` are
// the report of a wrong colour, which differ between the members.
bool drawing_call(ScriptBMP* self, vrkblock* b, member_args& a, std::size_t count, const char* area,
                  const char* vector_area, const char* vector_text, rgb_colour& colour) {
    if (a.size() != count) {
        bad(b, area);
        return false;
    }
    if (!self->image.inside(int_arg(a, 0), int_arg(a, 1))) {
        bad(b, area, "out of bounds.");
        return false;
    }
    if (!colour_of(arg(a, count - 1), colour)) {
        bad(b, vector_area, vector_text);
        return false;
    }
    return true;
}

void size_property(const char* name, uint32_t bitmap_image::*field) {
    registerScriptFunction<ScriptBMP>(name,
                                      [field](ScriptBMP* self, vrkvar* value, vrkvar*, bool set) {
                                          // The size is the image's: a write changes nothing.
                                          if (!set) set_int(value, self->image.*field);
                                      });
}

}  // namespace

// A bilinear resize of `src` into `dst`, already created at the new size: the
// target pixel (x, y) samples the source at ((sw - 1) * x / (w - 1),
// (sh - 1) * y / (h - 1)), rounded to the nearest byte; a target side of one
// pixel samples the first row or column.
void resize_into(const bitmap_image& src, bitmap_image& dst) {
    if (src.width == 0 || src.height == 0) return;
    const uint32_t channels = dst.bytes_per_pixel;
    // Where each target column samples: the left source column, its right
    // neighbour (the same at the last column) and the weight of the right one.
    struct tap {
        std::size_t left;   // byte offset of the left pixel in a row
        std::size_t right;  // byte offset of the right pixel in a row
        double weight;      // weight of the right pixel
    };
    std::vector<tap> columns(dst.width);
    for (uint32_t x = 0; x < dst.width; ++x) {
        const double u = dst.width > 1 ? static_cast<double>(x) / (dst.width - 1) : 0.0;
        const double fx = (src.width - 1) * u;
        const auto x0 = static_cast<uint32_t>(fx);
        const uint32_t x1 = std::min(x0 + 1, src.width - 1);
        columns[x] = {std::size_t{x0} * channels, std::size_t{x1} * channels, fx - x0};
    }
    for (uint32_t y = 0; y < dst.height; ++y) {
        const double v = dst.height > 1 ? static_cast<double>(y) / (dst.height - 1) : 0.0;
        const double fy = (src.height - 1) * v;
        const auto y0 = static_cast<uint32_t>(fy);
        const uint32_t y1 = std::min(y0 + 1, src.height - 1);
        const double ty = fy - y0;
        const uint8_t* upper = src.at(0, y0);
        const uint8_t* lower = src.at(0, y1);
        uint8_t* out = dst.at(0, y);
        for (const tap& t : columns) {
            for (uint32_t ch = 0; ch < channels; ++ch) {
                const double top = upper[t.left + ch] +
                                   (upper[t.right + ch] - upper[t.left + ch]) * t.weight;
                const double bottom = lower[t.left + ch] +
                                      (lower[t.right + ch] - lower[t.left + ch]) * t.weight;
                *out++ = static_cast<uint8_t>(std::min(255.0, top + (bottom - top) * ty + 0.5));
            }
        }
    }
}

void register_drawing() {
    scriptFunction<ScriptBMP>(
        "circle",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar&) {
            rgb_colour c;
            if (!drawing_call(self, b, a, 5, "circle", "save", "wrong vector.", c)) return;
            self->image.circle(int_arg(a, 0), int_arg(a, 1), int_arg(a, 2), pen_of(int_arg(a, 3)),
                               c);
        },
        5, true, false, "(x,y,radius,linewidth,vec(r,g,b))");
    scriptFunction<ScriptBMP>(
        "line",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar&) {
            rgb_colour c;
            if (!drawing_call(self, b, a, 6, "line", "line", "wrong vector", c)) return;
            self->image.line(int_arg(a, 0), int_arg(a, 1), int_arg(a, 2), int_arg(a, 3),
                             pen_of(int_arg(a, 4)), c);
        },
        6, true, false, "(x1,y1,x2,y2,linewidth,vec(r,g,b))");
    scriptFunction<ScriptBMP>(
        "rect",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar&) {
            rgb_colour c;
            if (!drawing_call(self, b, a, 6, "rect", "rect", "wrong vector.", c)) return;
            self->image.rect(int_arg(a, 0), int_arg(a, 1), int_arg(a, 2), int_arg(a, 3),
                             pen_of(int_arg(a, 4)), c);
        },
        6, true, false, "(x,y,x2,y2,linewidth,vec(r,g,b))");
}

void register_shape() {
    size_property("width", &bitmap_image::width);
    size_property("height", &bitmap_image::height);
    size_property("channels", &bitmap_image::bytes_per_pixel);
    scriptFunction<ScriptBMP>(
        "downscale",
        [](ScriptBMP* self, vrkblock*, member_args&, vrkvar& result) {
            // Each target pixel is the mean of its 2x2 source block (an odd
            // last row or column is dropped).
            const bitmap_image& src = self->image;
            ScriptBMP* out = new_result(result);
            out->image.create(src.width / 2, src.height / 2, src.bytes_per_pixel);
            for (uint32_t y = 0; y < out->image.height; ++y)
                for (uint32_t x = 0; x < out->image.width; ++x)
                    for (uint32_t ch = 0; ch < src.bytes_per_pixel; ++ch) {
                        const unsigned sum = src.at(2 * x, 2 * y)[ch] +
                                             src.at(2 * x + 1, 2 * y)[ch] +
                                             src.at(2 * x, 2 * y + 1)[ch] +
                                             src.at(2 * x + 1, 2 * y + 1)[ch];
                        out->image.at(x, y)[ch] = static_cast<uint8_t>((sum + 2) / 4);
                    }
        },
        0, true, false, "()");
    scriptFunction<ScriptBMP>(
        "upscale",
        [](ScriptBMP* self, vrkblock* b, member_args&, vrkvar& result) {
            // Each source pixel becomes a 2x2 block.
            const bitmap_image& src = self->image;
            if (!image_shape_ok(int64_t{src.width} * 2, int64_t{src.height} * 2,
                                src.bytes_per_pixel))
                return bad(b, "upscale", "out of bounds.");
            ScriptBMP* out = new_result(result);
            out->image.create(src.width * 2, src.height * 2, src.bytes_per_pixel);
            for (uint32_t y = 0; y < out->image.height; ++y)
                for (uint32_t x = 0; x < out->image.width; ++x)
                    std::copy_n(src.at(x / 2, y / 2), src.bytes_per_pixel, out->image.at(x, y));
        },
        0, true, false, "()");
    scriptFunction<ScriptBMP>(
        "resize",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar& result) {
            if (a.size() != 2) return bad(b, "resize");
            const int64_t w = int_arg(a, 0);
            const int64_t h = int_arg(a, 1);
            if (!image_shape_ok(w, h, self->image.bytes_per_pixel)) return bad(b, "resize");
            ScriptBMP* out = new_result(result);
            out->image.create(static_cast<uint32_t>(w), static_cast<uint32_t>(h),
                              self->image.bytes_per_pixel);
            resize_into(self->image, out->image);
        },
        2, true, false, "(w,h)");
}

}  // namespace vrk::bitmap_members
