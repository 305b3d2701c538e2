// The bitmap type: the object, its saved form, the shared argument checks, the
// member registration in its fixed order, and the pixel and data members.
#include "objects/bitmap.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "objects/image_codec.h"
#include "objects/vec.h"
#include "values/cache.h"
#include "values/cell.h"
#include "vm/errors.h"

namespace vrk {

// ---- argument checks ---------------------------------------------------------------

namespace bitmap_args {

namespace {

// A colour component: truncated to a byte, values outside 0 to 255 held at the ends.
uint8_t component_byte(float v) {
    if (!(v > 0.0f)) return 0;
    if (v >= 255.0f) return 255;
    return static_cast<uint8_t>(v);
}

}  // namespace

bool colour_of(vrkvar* cell, rgb_colour& out) {
    const ScriptVector* v = cell ? object_as<ScriptVector>(deref(cell)) : nullptr;
    if (!v) return false;
    out = {component_byte(v->component(0)), component_byte(v->component(1)),
           component_byte(v->component(2))};
    return true;
}

ScriptBMP* bitmap_of(vrkvar* cell) { return cell ? object_as<ScriptBMP>(deref(cell)) : nullptr; }

void bad(vrkblock* b, const char* area, const char* message) { report_error(b, area, message); }

vrkvar* arg(std::vector<vrkvar*>& args, std::size_t i) {
    vrkvar* cell = i < args.size() ? args[i] : nullptr;
    if (!cell || is_marker(cell, 11)) return void_value();
    return deref(cell);
}

int64_t int_arg(std::vector<vrkvar*>& args, std::size_t i) { return to_int(arg(args, i)); }

double float_arg(std::vector<vrkvar*>& args, std::size_t i) { return to_float(arg(args, i)); }

ScriptBMP* new_result(vrkvar& result) {
    auto* made = std::make_unique<ScriptBMP>().release();
    set_object(&result, made, true);
    return made;
}

}  // namespace bitmap_args

using namespace bitmap_args;

// ---- the object --------------------------------------------------------------------

ScriptBMP::ScriptBMP() = default;

ScriptBMP::~ScriptBMP() = default;

bool ScriptBMP::serialize(ScriptCacheWriter& writer) {
    vrkobject::serialize(writer);
    writer.u32(image.width);
    writer.u32(image.height);
    writer.u32(image.bytes_per_pixel);
    writer.raw(image.data.data(), image.data.size());
    return true;
}

bool ScriptBMP::deserialize(ScriptCacheReader& reader) {
    const uint32_t w = reader.u32();
    const uint32_t h = reader.u32();
    const uint32_t c = reader.u32();
    // A damaged form gives an empty image rather than any amount of memory.
    if (!image_shape_ok(w, h, c) ||
        static_cast<uint64_t>(w) * h * c > static_cast<uint64_t>(reader.remaining())) {
        image.create(0, 0, 3);
        return true;
    }
    image.create(w, h, c);
    reader.raw(image.data.data(), image.data.size());
    return true;
}

void ScriptBMP::toData(std::vector<uint8_t>& out) { out = image.data; }

vrkobject* ScriptBMP::clone() {
    auto* copy = std::make_unique<ScriptBMP>().release();
    copy->image = image;
    return copy;
}

bool ScriptBMP::load_bytes(const uint8_t* bytes, std::size_t size, std::string& reason) {
    decoded_image decoded;
    if (!decode_image(bytes, size, decoded, reason)) return false;
    swap_red_blue(decoded.pixels, decoded.channels);
    // The decoded bytes become the pixels as they are, without a cleared image first.
    image.width = static_cast<uint32_t>(decoded.width);
    image.height = static_cast<uint32_t>(decoded.height);
    image.bytes_per_pixel = static_cast<uint32_t>(decoded.channels);
    image.row_increment = image.width * image.bytes_per_pixel;
    image.data = std::move(decoded.pixels);
    return true;
}

std::vector<uint8_t> ScriptBMP::file_order_pixels() const {
    std::vector<uint8_t> pixels = image.data;
    swap_red_blue(pixels, static_cast<int>(image.bytes_per_pixel));
    return pixels;
}

bool ScriptBMP::png_bytes(std::vector<uint8_t>& out) const {
    out.clear();
    const std::vector<uint8_t> pixels = file_order_pixels();
    return encode_png(pixels.data(), static_cast<int>(image.width), static_cast<int>(image.height),
                      static_cast<int>(image.bytes_per_pixel), out);
}

// ---- registration ------------------------------------------------------------------

void ScriptBMP::scriptRegister() {
    registerType<ScriptBMP>(script_type_name);
    bitmap_members::register_create_and_pixels();
    bitmap_members::register_loading();
    bitmap_members::register_saving();
    bitmap_members::register_data();
    bitmap_members::register_drawing();
    bitmap_members::register_shape();
    bitmap_members::register_regions();
}

// ---- create, set_pixel, get_pixel and the data members -----------------------------------

namespace bitmap_members {

namespace {

using member_args = std::vector<vrkvar*>;

// Position arguments i and i + 1 when they lie inside the image; otherwise
// the report "out of bounds." under `area`.
bool point_inside(ScriptBMP* self, vrkblock* b, member_args& a, std::size_t i, const char* area) {
    if (self->image.inside(int_arg(a, i), int_arg(a, i + 1))) return true;
    bad(b, area, "out of bounds.");
    return false;
}

}  // namespace

void register_create_and_pixels() {
    scriptFunction<ScriptBMP>(
        "create",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar&) {
            if (a.size() < 2) return bad(b, "create");
            const int64_t w = int_arg(a, 0);
            const int64_t h = int_arg(a, 1);
            const int64_t c = a.size() >= 3 ? int_arg(a, 2) : 3;
            if (!image_shape_ok(w, h, c)) return bad(b, "create");
            self->image.create(static_cast<uint32_t>(w), static_cast<uint32_t>(h),
                               static_cast<uint32_t>(c));
            if (a.size() != 4) return;
            // Bytes of another size than the image are not taken: the image
            // stays black.
            vrkvar* source = arg(a, 3);
            if (source->type == Tag::DATA && source->value.data &&
                source->value.data->size() == self->image.size())
                self->image.data = *source->value.data;
        },
        4, true, false, "(w,h,channels,data)");
    scriptFunction<ScriptBMP>(
        "set_pixel",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar&) {
            if (a.size() != 3) return bad(b, "set_pixel");
            if (!point_inside(self, b, a, 0, "set_pixel")) return;
            rgb_colour c;
            if (!colour_of(arg(a, 2), c)) return bad(b, "set_pixel", "wrong vector.");
            self->image.set_pixel(int_arg(a, 0), int_arg(a, 1), c);
        },
        3, true, false, "(x,y,vec(r,g,b))");
}

void register_data() {
    scriptFunction<ScriptBMP>(
        "get_pixel",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar& result) {
            if (a.size() != 2) return bad(b, "get_pixel");
            if (!point_inside(self, b, a, 0, "get_pixel")) return;
            const rgb_colour c = self->image.get_pixel(int_arg(a, 0), int_arg(a, 1));
            ScriptVector* v = ScriptVector::make(3);
            v->data[0] = c.r;
            v->data[1] = c.g;
            v->data[2] = c.b;
            set_object(&result, v, true);
        },
        2, true, false, "(x,y) returns vec with rgb components");
    scriptFunction<ScriptBMP>(
        "data",
        [](ScriptBMP* self, vrkblock*, member_args&, vrkvar& result) {
            if (std::vector<uint8_t>* out = as_data(&result)) *out = self->image.data;
        },
        0, true, false, "returns a data buffer.");
    scriptFunction<ScriptBMP>(
        "copy_data",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar&) {
            std::vector<uint8_t>* out = a.size() == 1 ? as_data(arg(a, 0)) : nullptr;
            if (!out) return bad(b, "copy_data");
            *out = self->image.data;
        },
        1, true, false, "(buffer) copy image data into buffer.");
    scriptFunction<ScriptBMP>(
        "copy_from",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar&) {
            vrkvar* source = a.size() == 1 ? arg(a, 0) : nullptr;
            if (ScriptBMP* other = source ? bitmap_of(source) : nullptr) {
                if (other != self) self->image = other->image;
                return;
            }
            if (!source || source->type != Tag::DATA || !source->value.data)
                return bad(b, "copy_from");
            // Bytes in image order; a shorter buffer fills the first pixels,
            // a longer one is cut.
            const std::vector<uint8_t>& bytes = *source->value.data;
            std::copy_n(bytes.begin(), std::min(bytes.size(), self->image.size()),
                        self->image.data.begin());
        },
        1, true, false, "(buffer) copy image data into buffer.");
    scriptFunction<ScriptBMP>(
        "scale",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar&) {
            if (a.size() != 1) return bad(b, "scale");
            const double f = float_arg(a, 0);
            for (uint8_t& v : self->image.data) {
                const double s = v * f;
                v = !(s > 0.0) ? 0 : s >= 255.0 ? 255 : static_cast<uint8_t>(s);
            }
        },
        1, true, false, "(buffer) copy image data into buffer.");
}

}  // namespace bitmap_members

}  // namespace vrk
