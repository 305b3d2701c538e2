// The pixel store of bitmaps: pixel access, the drawing routines and the BMP writer.
#include "objects/pixel_store.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "platform/files.h"

namespace vrk {

bool image_shape_ok(int64_t width, int64_t height, int64_t channels) {
    if (width < 0 || height < 0 || channels < 1 || channels > 4) return false;
    if (width > kMaxImageSide || height > kMaxImageSide) return false;
    return static_cast<uint64_t>(width * height * channels) <= kMaxImageBytes;
}

void bitmap_image::create(uint32_t w, uint32_t h, uint32_t channels) {
    width = w;
    height = h;
    bytes_per_pixel = channels;
    row_increment = width * bytes_per_pixel;
    data.assign(static_cast<std::size_t>(height) * row_increment, 0);
}

void bitmap_image::set_pixel(int64_t x, int64_t y, rgb_colour c) {
    if (!inside(x, y)) return;
    uint8_t* p = at(x, y);
    const uint8_t largest = std::max({c.r, c.g, c.b});
    switch (bytes_per_pixel) {
        case 1: p[0] = largest; break;
        case 2:
            p[0] = largest;
            p[1] = largest;
            break;
        default:
            p[0] = c.b;
            p[1] = c.g;
            p[2] = c.r;
            if (bytes_per_pixel == 4) p[3] = largest;
    }
}

rgb_colour bitmap_image::get_pixel(int64_t x, int64_t y) const {
    if (!inside(x, y)) return {};
    const uint8_t* p = at(x, y);
    if (bytes_per_pixel < 3) return {p[0], p[0], p[0]};
    return {p[2], p[1], p[0]};
}

std::array<uint8_t, 4> bitmap_image::bgra(int64_t x, int64_t y) const {
    if (!inside(x, y)) return {0, 0, 0, 0};
    const uint8_t* p = at(x, y);
    switch (bytes_per_pixel) {
        case 1: return {p[0], p[0], p[0], 255};
        case 2: return {p[0], p[0], p[0], p[1]};
        case 3: return {p[0], p[1], p[2], 255};
        default: return {p[0], p[1], p[2], p[3]};
    }
}

void bitmap_image::put_bgra(int64_t x, int64_t y, const std::array<uint8_t, 4>& v) {
    if (!inside(x, y)) return;
    uint8_t* p = at(x, y);
    switch (bytes_per_pixel) {
        case 1: p[0] = std::max({v[0], v[1], v[2]}); break;
        case 2:
            p[0] = std::max({v[0], v[1], v[2]});
            p[1] = v[3];
            break;
        default:
            p[0] = v[0];
            p[1] = v[1];
            p[2] = v[2];
            if (bytes_per_pixel == 4) p[3] = v[3];
    }
}

void bitmap_image::brush(int64_t x, int64_t y, int pen, rgb_colour c) {
    // The brush square is centred on the point, the odd pixel of an even side
    // going right and down.
    const int64_t from = -(pen - 1) / 2;
    for (int64_t dy = from; dy < from + pen; ++dy)
        for (int64_t dx = from; dx < from + pen; ++dx) set_pixel(x + dx, y + dy, c);
}

void bitmap_image::circle(int64_t cx, int64_t cy, int64_t radius, int pen, rgb_colour c) {
    if (radius < 0) return;
    // Far outside the image nothing can be drawn; stop before walking it.
    if (radius > 4 * kMaxImageSide) return;
    cx = std::clamp<int64_t>(cx, -8 * kMaxImageSide, 8 * kMaxImageSide);
    cy = std::clamp<int64_t>(cy, -8 * kMaxImageSide, 8 * kMaxImageSide);
    int64_t x = radius;
    int64_t y = 0;
    int64_t err = 1 - radius;
    while (x >= y) {
        const int64_t points[8][2] = {{cx + x, cy + y}, {cx + y, cy + x}, {cx - y, cy + x},
                                      {cx - x, cy + y}, {cx - x, cy - y}, {cx - y, cy - x},
                                      {cx + y, cy - x}, {cx + x, cy - y}};
        for (const auto& p : points) brush(p[0], p[1], pen, c);
        ++y;
        if (err < 0) {
            err += 2 * y + 1;
        } else {
            --x;
            err += 2 * (y - x) + 1;
        }
    }
}

void bitmap_image::line(int64_t x1, int64_t y1, int64_t x2, int64_t y2, int pen, rgb_colour c) {
    // Points far outside are pulled in so that the walk stays bounded; a line
    // between them is then only approximately the same outside the image.
    const int64_t limit = 4 * kMaxImageSide;
    x1 = std::clamp(x1, -limit, limit);
    y1 = std::clamp(y1, -limit, limit);
    x2 = std::clamp(x2, -limit, limit);
    y2 = std::clamp(y2, -limit, limit);
    const int64_t dx = std::llabs(x2 - x1);
    const int64_t dy = -std::llabs(y2 - y1);
    const int64_t sx = x1 < x2 ? 1 : -1;
    const int64_t sy = y1 < y2 ? 1 : -1;
    int64_t err = dx + dy;
    while (true) {
        brush(x1, y1, pen, c);
        if (x1 == x2 && y1 == y2) break;
        const int64_t e2 = 2 * err;
        if (e2 >= dy) {
            err += dy;
            x1 += sx;
        }
        if (e2 <= dx) {
            err += dx;
            y1 += sy;
        }
    }
}

void bitmap_image::rect(int64_t x1, int64_t y1, int64_t x2, int64_t y2, int pen, rgb_colour c) {
    line(x1, y1, x2, y1, pen, c);
    line(x2, y1, x2, y2, pen, c);
    line(x2, y2, x1, y2, pen, c);
    line(x1, y2, x1, y1, pen, c);
}

namespace {

void put16(std::vector<uint8_t>& out, uint32_t v) {
    out.push_back(static_cast<uint8_t>(v));
    out.push_back(static_cast<uint8_t>(v >> 8));
}

void put32(std::vector<uint8_t>& out, uint32_t v) {
    put16(out, v & 0xFFFF);
    put16(out, v >> 16);
}

}  // namespace

void bitmap_image::bmp_bytes(std::vector<uint8_t>& out) const {
    const uint32_t row = (width * 3 + 3) / 4 * 4;
    const uint32_t image_size = row * height;
    out.clear();
    out.reserve(54 + image_size);
    // File header: "BM", file size, two reserved words, offset of the pixels.
    out.push_back('B');
    out.push_back('M');
    put32(out, 54 + image_size);
    put32(out, 0);
    put32(out, 54);
    // Information header: its size, width, height (positive: bottom-up),
    // one plane, 24 bits, no compression, image size, 2835 pixels per metre
    // (72 dpi) both ways, no palette.
    put32(out, 40);
    put32(out, width);
    put32(out, height);
    put16(out, 1);
    put16(out, 24);
    put32(out, 0);
    put32(out, image_size);
    put32(out, 2835);
    put32(out, 2835);
    put32(out, 0);
    put32(out, 0);
    for (uint32_t y = height; y-- > 0;) {
        for (uint32_t x = 0; x < width; ++x) {
            const auto p = bgra(x, y);
            out.push_back(p[0]);
            out.push_back(p[1]);
            out.push_back(p[2]);
        }
        for (uint32_t pad = width * 3; pad < row; ++pad) out.push_back(0);
    }
}

bool bitmap_image::save_image(const std::string& path) const {
    std::ofstream file(platform::file_path(path), std::ios::binary | std::ios::trunc);
    if (!file) {
        std::cerr << "bitmap_image::save_image(): Error - Could not open file " << path
                  << " for writing!" << std::endl;
        return false;
    }
    std::vector<uint8_t> bytes;
    bmp_bytes(bytes);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(file);
}

}  // namespace vrk
