// The region members of bitmaps: cutting out and copying regions, writing one
// bitmap into another (plain, mixed by a weight or by a mask), the radial
// light and shade of the set_region_circle family, fills, noise, and the
// whole-image moves (shift, clamp, flips).
#include <algorithm>
#include <cmath>
#include <random>

#include "base/log.h"
#include "objects/bitmap.h"
#include "values/cell.h"

namespace vrk::bitmap_members {

namespace {

using namespace bitmap_args;
using member_args = std::vector<vrkvar*>;

// A rectangle of pixels, already cut to an image.
struct pixel_area {
    int64_t x = 0;  // left column
    int64_t y = 0;  // top row
    int64_t w = 0;  // columns; 0 when empty
    int64_t h = 0;  // rows; 0 when empty
};

// The part of (x, y, w, h) inside `image`; empty when the start is outside or
// a size is not positive.
pixel_area cut(const bitmap_image& image, int64_t x, int64_t y, int64_t w, int64_t h) {
    if (!image.inside(x, y) || w <= 0 || h <= 0) return {};
    return {x, y, std::min<int64_t>(w, image.width - x), std::min<int64_t>(h, image.height - y)};
}

uint8_t to_byte(double v) {
    if (!(v > 0.0)) return 0;
    if (v >= 255.0) return 255;
    return static_cast<uint8_t>(v + 0.5);
}

// The mix of two pixels: `weight` of `top` over `under`, per channel.
std::array<uint8_t, 4> mix(const std::array<uint8_t, 4>& under, const std::array<uint8_t, 4>& top,
                           double weight) {
    std::array<uint8_t, 4> out{};
    for (std::size_t i = 0; i < 4; ++i)
        out[i] = to_byte(top[i] * weight + under[i] * (1.0 - weight));
    return out;
}

// Writes `src` into `dst` at (x, y) with a weight per source pixel; the parts
// of the source past the edges of `dst` (either side) are left out.
template <class Weight>
void blend_into(bitmap_image& dst, const bitmap_image& src, int64_t x, int64_t y, Weight weight) {
    // Far outside nothing of the source can land; held there, the sums stay small.
    x = std::clamp<int64_t>(x, -2 * kMaxImageSide, 2 * kMaxImageSide);
    y = std::clamp<int64_t>(y, -2 * kMaxImageSide, 2 * kMaxImageSide);
    const int64_t from_x = std::max<int64_t>(0, -x);
    const int64_t from_y = std::max<int64_t>(0, -y);
    const int64_t to_x = std::min<int64_t>(src.width, int64_t{dst.width} - x);
    const int64_t to_y = std::min<int64_t>(src.height, int64_t{dst.height} - y);
    for (int64_t sy = from_y; sy < to_y; ++sy)
        for (int64_t sx = from_x; sx < to_x; ++sx) {
            const double w = weight(sx, sy);
            if (w <= 0.0) continue;
            const auto top = src.bgra(sx, sy);
            dst.put_bgra(x + sx, y + sy, w >= 1.0 ? top : mix(dst.bgra(x + sx, y + sy), top, w));
        }
}

// The kind of radial change of the set_region_circle family.
enum class radial { darken, lighten, tint };

// Changes the colour of every pixel within `radius` of (cx, cy) by the weight
// 1 - (d / radius)^power, full at the centre and none at the rim: darken
// scales the colour down by it, lighten moves it towards white, tint towards
// `towards`. Alpha stays.
void radial_change(bitmap_image& image, double cx, double cy, double radius, double power,
                   radial kind, rgb_colour towards) {
    if (!(radius > 0.0)) return;
    // The walk covers the circle's box, cut to the image first.
    const auto left = static_cast<int64_t>(
        std::clamp(std::floor(cx - radius), 0.0, static_cast<double>(image.width)));
    const auto top = static_cast<int64_t>(
        std::clamp(std::floor(cy - radius), 0.0, static_cast<double>(image.height)));
    const double right = std::min<double>(image.width - 1.0, std::ceil(cx + radius));
    const double bottom = std::min<double>(image.height - 1.0, std::ceil(cy + radius));
    const std::array<uint8_t, 4> target =
        kind == radial::tint      ? std::array<uint8_t, 4>{towards.b, towards.g, towards.r, 0}
        : kind == radial::lighten ? std::array<uint8_t, 4>{255, 255, 255, 0}
                                  : std::array<uint8_t, 4>{0, 0, 0, 0};
    for (int64_t y = top; static_cast<double>(y) <= bottom; ++y)
        for (int64_t x = left; static_cast<double>(x) <= right; ++x) {
            const double d = std::hypot(static_cast<double>(x) - cx, static_cast<double>(y) - cy);
            if (d >= radius) continue;
            double w = 1.0 - std::pow(d / radius, power);
            if (!(w > 0.0)) continue;
            w = std::min(w, 1.0);
            auto p = image.bgra(x, y);
            for (std::size_t i = 0; i < 3; ++i) p[i] = to_byte(p[i] + (target[i] - p[i]) * w);
            image.put_bgra(x, y, p);
        }
}

void register_radial(const char* name, radial kind, int count, const char* description) {
    const std::string report = std::string(name) + ": wrong params.";
    scriptFunction<ScriptBMP>(
        name,
        [kind, count, report](ScriptBMP* self, vrkblock*, member_args& a, vrkvar&) {
            rgb_colour c;
            if (a.size() != static_cast<std::size_t>(count) ||
                (kind == radial::tint && !colour_of(arg(a, 4), c))) {
                log().error("%s", report.c_str());
                return;
            }
            radial_change(self->image, float_arg(a, 0), float_arg(a, 1), float_arg(a, 2),
                          float_arg(a, 3), kind, c);
        },
        count, true, false, description);
}

// The noise source: a 32-bit Mersenne Twister per thread, seeded from the
// platform's random device.
std::mt19937& noise_engine() {
    thread_local std::mt19937 engine{std::random_device{}()};
    return engine;
}

}  // namespace

void register_regions() {
    scriptFunction<ScriptBMP>(
        "region",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar& result) {
            if (a.size() < 2) return bad(b, "region");
            const bitmap_image& src = self->image;
            const int64_t x = int_arg(a, 0);
            const int64_t y = int_arg(a, 1);
            // The defaults are the rest of the image (only from a start inside).
            const bool start_inside = src.inside(x, y);
            const int64_t w = a.size() >= 3  ? int_arg(a, 2)
                              : start_inside ? int64_t{src.width} - x
                                             : 0;
            const int64_t h = a.size() >= 4  ? int_arg(a, 3)
                              : start_inside ? int64_t{src.height} - y
                                             : 0;
            const pixel_area area = cut(src, x, y, w, h);
            ScriptBMP* out = new_result(result);
            out->image.create(static_cast<uint32_t>(area.w), static_cast<uint32_t>(area.h),
                              src.bytes_per_pixel);
            const auto row = static_cast<std::size_t>(area.w) * src.bytes_per_pixel;
            for (int64_t r = 0; r < area.h; ++r)
                std::copy_n(src.at(area.x, area.y + r), row, out->image.at(0, r));
        },
        4, true, false, "(x,y,w,h)");
    scriptFunction<ScriptBMP>(
        "copy",
        [](ScriptBMP* self, vrkblock*, member_args&, vrkvar& result) {
            new_result(result)->image = self->image;
        },
        0, true, false, "()");
    scriptFunction<ScriptBMP>(
        "set_region",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar&) {
            ScriptBMP* src = a.size() >= 3 ? bitmap_of(arg(a, 2)) : nullptr;
            if (!src) return bad(b, "set_region");
            const double alpha = a.size() >= 4 ? std::clamp(float_arg(a, 3), 0.0, 1.0) : 1.0;
            if (src == self) {
                // Writing a bitmap into itself reads from a copy.
                const bitmap_image copy = src->image;
                blend_into(self->image, copy, int_arg(a, 0), int_arg(a, 1),
                           [alpha](int64_t, int64_t) { return alpha; });
                return;
            }
            blend_into(self->image, src->image, int_arg(a, 0), int_arg(a, 1),
                       [alpha](int64_t, int64_t) { return alpha; });
        },
        4, true, false, "(x,y, src_img, alpha)");
    scriptFunction<ScriptBMP>(
        "set_region_mask",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar&) {
            ScriptBMP* src = a.size() >= 4 ? bitmap_of(arg(a, 2)) : nullptr;
            ScriptBMP* mask = a.size() >= 4 ? bitmap_of(arg(a, 3)) : nullptr;
            if (!src || !mask) return bad(b, "set_region_mask");
            const int64_t x = int_arg(a, 0);
            const int64_t y = int_arg(a, 1);
            if (!self->image.inside(x, y)) return;
            // The mask's red (or grey) level is the weight of the source; the
            // source is cut to the mask as well as to the image.
            const bitmap_image source = src->image;
            const bitmap_image weights = mask->image;
            blend_into(self->image, source, x, y, [&weights](int64_t sx, int64_t sy) {
                if (!weights.inside(sx, sy)) return 0.0;
                return weights.get_pixel(sx, sy).r / 255.0;
            });
        },
        4, true, false, "(x,y, src_img, mask_img)");
    register_radial("set_region_circle", radial::darken, 4, "(x,y, rad, pow)");
    register_radial("set_region_circle2", radial::lighten, 4, "(x,y, rad, pow)");
    register_radial("set_region_circle3", radial::tint, 5, "(x,y, rad, pow, vec col)");
    scriptFunction<ScriptBMP>(
        "set_region_color",
        [](ScriptBMP* self, vrkblock*, member_args& a, vrkvar&) {
            rgb_colour c;
            if (a.size() != 5 || !colour_of(arg(a, 4), c)) {
                log().error("set_region_color: wrong params.");
                return;
            }
            const pixel_area area = cut(self->image, int_arg(a, 0), int_arg(a, 1), int_arg(a, 2),
                                        int_arg(a, 3));
            for (int64_t y = area.y; y < area.y + area.h; ++y)
                for (int64_t x = area.x; x < area.x + area.w; ++x) self->image.set_pixel(x, y, c);
        },
        5, true, false, "(x,y,w,h, vec(r,g,b))");
    scriptFunction<ScriptBMP>(
        "set_region_noise",
        [](ScriptBMP* self, vrkblock*, member_args& a, vrkvar&) {
            if (a.size() != 5) {
                log().error("set_region_noise: wrong params.");
                return;
            }
            const pixel_area area = cut(self->image, int_arg(a, 0), int_arg(a, 1), int_arg(a, 2),
                                        int_arg(a, 3));
            // Each colour byte moves by an even draw from [-strength, strength].
            // Beyond 512 every draw saturates a byte anyway.
            const double strength = std::min(std::abs(float_arg(a, 4)), 512.0);
            if (area.w == 0 || !(strength > 0.0) || !std::isfinite(strength)) return;
            std::uniform_real_distribution<double> draw(-strength, strength);
            std::mt19937& engine = noise_engine();
            for (int64_t y = area.y; y < area.y + area.h; ++y)
                for (int64_t x = area.x; x < area.x + area.w; ++x) {
                    auto p = self->image.bgra(x, y);
                    for (std::size_t i = 0; i < 3; ++i) p[i] = to_byte(p[i] + draw(engine));
                    if (self->image.bytes_per_pixel < 3) p[1] = p[2] = p[0];
                    self->image.put_bgra(x, y, p);
                }
        },
        5, true, false, "(x,y,w,h,strength)");
    scriptFunction<ScriptBMP>(
        "shift",
        [](ScriptBMP* self, vrkblock*, member_args& a, vrkvar&) {
            if (a.size() != 2) {
                log().error("shift: wrong params.");
                return;
            }
            // Pixels moved past an edge are lost; the uncovered part is black.
            const int64_t dx = std::clamp<int64_t>(int_arg(a, 0), -kMaxImageSide, kMaxImageSide);
            const int64_t dy = std::clamp<int64_t>(int_arg(a, 1), -kMaxImageSide, kMaxImageSide);
            bitmap_image moved;
            moved.create(self->image.width, self->image.height, self->image.bytes_per_pixel);
            const uint32_t n = self->image.bytes_per_pixel;
            for (int64_t y = 0; y < self->image.height; ++y)
                for (int64_t x = 0; x < self->image.width; ++x)
                    if (moved.inside(x + dx, y + dy))
                        std::copy_n(self->image.at(x, y), n, moved.at(x + dx, y + dy));
            self->image.data = std::move(moved.data);
        },
        2, true, false, "(x,y)");
    scriptFunction<ScriptBMP>(
        "clamp",
        [](ScriptBMP* self, vrkblock*, member_args& a, vrkvar&) {
            if (a.size() != 2) {
                log().error("clamp: wrong params.");
                return;
            }
            const int64_t low = int_arg(a, 0);
            const int64_t high = int_arg(a, 1);
            for (uint8_t& v : self->image.data)
                v = static_cast<uint8_t>(
                    std::clamp<int64_t>(std::min(std::max<int64_t>(v, low), high), 0, 255));
        },
        2, true, false, "(min,max)");
    scriptFunction<ScriptBMP>(
        "flip_x",
        [](ScriptBMP* self, vrkblock*, member_args&, vrkvar&) {
            bitmap_image& im = self->image;
            for (uint32_t y = 0; y < im.height; ++y)
                for (uint32_t x = 0; x < im.width / 2; ++x)
                    std::swap_ranges(im.at(x, y), im.at(x, y) + im.bytes_per_pixel,
                                     im.at(im.width - 1 - x, y));
        },
        0, true, false, "()");
    scriptFunction<ScriptBMP>(
        "flip_y",
        [](ScriptBMP* self, vrkblock*, member_args&, vrkvar&) {
            bitmap_image& im = self->image;
            for (uint32_t y = 0; y < im.height / 2; ++y)
                std::swap_ranges(im.at(0, y), im.at(0, y) + im.row_increment,
                                 im.at(0, im.height - 1 - y));
        },
        0, true, false, "()");
}

}  // namespace vrk::bitmap_members
