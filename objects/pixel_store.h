// `bitmap_image`: the pixel store behind the `bitmap` script type, with its
// drawing routines and its own 24-bit BMP writer.
//
// An image is 8-bit with 1 to 4 interleaved channels, rows from the top, each
// row `row_increment` bytes with no padding. The channel order in memory is
// B, G, R, then A; image files and the stb codecs hold R, G, B(, A), so the
// file code swaps the first and third channel on the way in and out
// (objects/image_codec.h). One- and two-channel images hold a grey level (and
// alpha): a colour written to them stores its largest component as the grey
// level, and a grey pixel reads back as that level in R, G and B.
//
// Every routine here checks its coordinates: a point outside the image is
// skipped, never written, so the drawing routines clip at the edges.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace vrk {

// A colour as scripts give it: red, green, blue as bytes.
struct rgb_colour {
    uint8_t r = 0;  // red
    uint8_t g = 0;  // green
    uint8_t b = 0;  // blue
};

// Largest side of an image in pixels, and largest image in bytes: the codecs
// count in plain ints, and a script asking for more gets a report instead.
inline constexpr int64_t kMaxImageSide = 1 << 16;
inline constexpr uint64_t kMaxImageBytes = uint64_t{1} << 30;

// True when an image of that shape may be made.
bool image_shape_ok(int64_t width, int64_t height, int64_t channels);

class bitmap_image {
public:
    std::string file_name;         // name of the file last loaded; unused after load
    uint32_t width = 0;            // pixels per row
    uint32_t height = 0;           // rows
    uint32_t row_increment = 0;    // bytes per row: width * bytes_per_pixel
    uint32_t bytes_per_pixel = 3;  // channels, 1 to 4
    uint32_t channel_mode = 0;     // always 0: B, G, R(, A) order
    std::vector<uint8_t> data;     // rows from the top, row_increment bytes each

    // Clears and sizes the image: every byte zero. The caller has checked the
    // shape with image_shape_ok.
    void create(uint32_t w, uint32_t h, uint32_t channels);
    std::size_t size() const { return data.size(); }
    bool inside(int64_t x, int64_t y) const {
        return x >= 0 && y >= 0 && x < static_cast<int64_t>(width) &&
               y < static_cast<int64_t>(height);
    }
    // First byte of pixel (x, y); the caller has checked `inside`.
    uint8_t* at(int64_t x, int64_t y) {
        return data.data() + static_cast<std::size_t>(y) * row_increment +
               static_cast<std::size_t>(x) * bytes_per_pixel;
    }
    const uint8_t* at(int64_t x, int64_t y) const {
        return data.data() + static_cast<std::size_t>(y) * row_increment +
               static_cast<std::size_t>(x) * bytes_per_pixel;
    }

    // Writes a colour at (x, y); outside the image nothing happens. With four
    // channels the fourth byte becomes the largest of R, G, B.
    void set_pixel(int64_t x, int64_t y, rgb_colour c);
    // The colour at (x, y); black outside.
    rgb_colour get_pixel(int64_t x, int64_t y) const;
    // The pixel as B, G, R, A whatever the channel count (A 255 without alpha).
    std::array<uint8_t, 4> bgra(int64_t x, int64_t y) const;
    // Writes B, G, R, A into the channels the image has.
    void put_bgra(int64_t x, int64_t y, const std::array<uint8_t, 4>& p);

    // Midpoint circle (its eight octants at once) around (cx, cy); `pen` 1 to
    // 3 is the side of the square brush each point is drawn with.
    void circle(int64_t cx, int64_t cy, int64_t radius, int pen, rgb_colour c);
    // Bresenham line from (x1, y1) to (x2, y2), both ends drawn.
    void line(int64_t x1, int64_t y1, int64_t x2, int64_t y2, int pen, rgb_colour c);
    // Outline of the rectangle with corners (x1, y1) and (x2, y2).
    void rect(int64_t x1, int64_t y1, int64_t x2, int64_t y2, int pen, rgb_colour c);

    // The 24-bit BMP file form: file header, 40-byte information header, rows
    // bottom to top, each padded to 4 bytes. Alpha is dropped; a grey level
    // goes to all three colours.
    void bmp_bytes(std::vector<uint8_t>& out) const;
    // Writes the BMP file form to `path`; false (with the report on the
    // standard error stream) when the file cannot be opened.
    bool save_image(const std::string& path) const;

private:
    // Draws one point of a line or circle with the square brush of side `pen`.
    void brush(int64_t x, int64_t y, int pen, rgb_colour c);
};

}  // namespace vrk
