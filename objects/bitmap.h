// `ScriptBMP`, the in-memory image of scripts (script type `bitmap`).
//
// A bitmap holds one `bitmap_image` (objects/pixel_store.h): 8-bit pixels with
// 1 to 4 channels in B, G, R, A order, rows from the top. Scripts draw on it
// (circles, lines, rectangles), copy and mix regions, resize it, and load and
// save it as PNG, JPEG or BMP files.
//
// Colours come as `vec` values of R, G, B in 0 to 255 (a missing component is
// 0). Members report a wrong call in the block form with the member's name as
// the area, and go on.
//
// Loading and saving may be slow, so `load`, `load_mem_async`, `save` and
// `save_mem_async` run as jobs on worker threads while the calling block
// sleeps; the `_locked` forms do the same work on the caller. A job counts in
// the object's `jobs`, so the end of a bitmap waits for its jobs. A job works
// on the bitmap's own pixels: a script that draws on the same bitmap from
// another script thread while a job runs gets whatever order the two happen in.
//
// The members are registered in a fixed order (objects/bitmap.cpp); the
// drawing and region members are defined in objects/bitmap_draw.cpp and
// objects/bitmap_regions.cpp, the file members in objects/bitmap_files.cpp.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "objects/object_ext.h"
#include "objects/pixel_store.h"

namespace vrk {

class ScriptBMP : public vrkobject_ext<ScriptBMP, vrkobject_threaded> {
public:
    static constexpr const char* script_type_name = "bitmap";

    // Registers the type and its members, in their fixed order.
    static void scriptRegister();

    ScriptBMP();
    ~ScriptBMP() override;

    bool serialize(ScriptCacheWriter& writer) override;
    bool deserialize(ScriptCacheReader& reader) override;
    void toData(std::vector<uint8_t>& out) override;
    vrkobject* clone() override;

    // Decodes a file image into this bitmap at the file's channel count; false
    // with the decoder's reason when it cannot.
    bool load_bytes(const uint8_t* bytes, std::size_t size, std::string& reason);
    // The pixels in file order (R, G, B(, A)), for the encoders.
    std::vector<uint8_t> file_order_pixels() const;
    // The PNG file of the image; false when it cannot be made (an empty image).
    bool png_bytes(std::vector<uint8_t>& out) const;

    bitmap_image image;  // the pixels
};

// Argument checks shared by the member files.
namespace bitmap_args {

// The colour of a `vec` argument, or false when the cell is no vector.
bool colour_of(vrkvar* cell, rgb_colour& out);
// The live bitmap of a cell, or null.
ScriptBMP* bitmap_of(vrkvar* cell);
// The block-form report of a member: `area` is the member's name.
void bad(vrkblock* b, const char* area, const char* message = "wrong parameters.");
// Argument i as an integer / a float (the arguments are dereferenced).
int64_t int_arg(std::vector<vrkvar*>& args, std::size_t i);
double float_arg(std::vector<vrkvar*>& args, std::size_t i);
// Argument i, dereferenced.
vrkvar* arg(std::vector<vrkvar*>& args, std::size_t i);
// Makes `result` a handle of a new bitmap (fresh result).
ScriptBMP* new_result(vrkvar& result);

}  // namespace bitmap_args

// Member registration of the parts defined in the other bitmap files, called
// from ScriptBMP::scriptRegister in the fixed member order.
namespace bitmap_members {

void register_create_and_pixels();  // create, set_pixel
void register_loading();            // load, load_locked, load_mem, load_mem_async
void register_saving();             // save ... save_mem_async
void register_data();               // get_pixel, data, copy_data, copy_from, scale
void register_drawing();            // circle, line, rect
void register_shape();              // width, height, channels, downscale, upscale, resize
void register_regions();            // region ... flip_y

// A bilinear resize of `src` into `dst`, which is already created at the new
// size with the same channel count.
void resize_into(const bitmap_image& src, bitmap_image& dst);

}  // namespace bitmap_members

}  // namespace vrk
