// The file members of bitmaps: load from a file or from bytes, save by the
// file name's extension, and the PNG file in memory.
//
// The threaded forms run on a worker thread while the calling block sleeps;
// whatever they hand back to the script (reports, the result cell) is written
// under the script lock, as the main thread may be running other blocks.
#include <fstream>

#include "base/log.h"
#include "base/script_lock.h"
#include "objects/bitmap.h"
#include "objects/image_codec.h"
#include "platform/files.h"
#include "values/cell.h"
#include "vm/errors.h"

namespace vrk::bitmap_members {

namespace {

using namespace bitmap_args;
using member_args = std::vector<vrkvar*>;

// The file form a save writes, chosen by the text after the last "." of the path.
enum class file_form { png, jpeg, bmp, unsupported };

file_form form_of(const std::string& path) {
    const std::size_t dot = path.rfind('.');
    // No extension at all writes a BMP.
    if (dot == std::string::npos) return file_form::bmp;
    const std::string ext = path.substr(dot + 1);
    if (ext == "png") return file_form::png;
    if (ext == "jpg") return file_form::jpeg;
    if (ext == "bmp") return file_form::bmp;
    return file_form::unsupported;
}

void load_file(ScriptBMP* self, vrkblock* b, member_args& a, vrkvar& result) {
    if (a.size() != 1) {
        ScriptLock lock;
        return bad(b, "load");
    }
    const std::string path = to_string(arg(a, 0));
    std::vector<uint8_t> bytes;
    std::string reason = "can't fopen";
    bool ok = read_whole_file(path, bytes);
    if (ok) {
        ok = self->load_bytes(bytes.data(), bytes.size(), reason);
        if (ok) self->image.file_name = path;
    }
    ScriptLock lock;
    if (!ok) {
        log().error("%s %s", reason.c_str(), path.c_str());
        bad(b, "load", "can't load image!");
    }
    set_int(&result, ok ? 1 : 0);
}

void load_memory(ScriptBMP* self, vrkblock* b, member_args& a, vrkvar& result) {
    vrkvar* source = a.size() == 1 ? arg(a, 0) : nullptr;
    if (!source || source->type != Tag::DATA || !source->value.data) {
        ScriptLock lock;
        return bad(b, "load_mem");
    }
    const std::vector<uint8_t>& bytes = *source->value.data;
    std::string reason;
    const bool ok = self->load_bytes(bytes.data(), bytes.size(), reason);
    ScriptLock lock;
    if (!ok) {
        log().error("%s", reason.c_str());
        bad(b, "load_mem", "can't load image from mem!");
    }
    set_int(&result, ok ? 1 : 0);
}

// Writes `bytes` to `path`, replacing the file; false when it cannot be opened.
bool write_file(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream file(platform::file_path(path), std::ios::binary | std::ios::trunc);
    if (!file) return false;
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(file);
}

void save_file(ScriptBMP* self, vrkblock* b, member_args& a, vrkvar& result) {
    if (a.size() != 1) {
        ScriptLock lock;
        return bad(b, "save");
    }
    const std::string path = to_string(arg(a, 0));
    const file_form form = form_of(path);
    bool ok = false;
    std::string failure = "could not write the file!";
    switch (form) {
        case file_form::bmp: ok = self->image.save_image(path); break;
        case file_form::png: {
            std::vector<uint8_t> bytes;
            ok = self->png_bytes(bytes) && write_file(path, bytes);
            break;
        }
        case file_form::jpeg: {
            std::ofstream file(platform::file_path(path), std::ios::binary | std::ios::trunc);
            if (!file) break;
            const std::vector<uint8_t> pixels = self->file_order_pixels();
            // The encoder hands its pieces straight to the stream.
            ok = encode_jpeg(pixels.data(), static_cast<int>(self->image.width),
                             static_cast<int>(self->image.height),
                             static_cast<int>(self->image.bytes_per_pixel),
                             [&file](const uint8_t* bytes, std::size_t size) {
                                 file.write(reinterpret_cast<const char*>(bytes),
                                            static_cast<std::streamsize>(size));
                             }) &&
                 static_cast<bool>(file);
            break;
        }
        case file_form::unsupported: failure = "unsupported file format!"; break;
    }
    ScriptLock lock;
    if (!ok) {
        bad(b, "save", failure.c_str());
        bad(b, "save", path.c_str());
    }
    set_int(&result, ok ? 1 : 0);
}

// The PNG file of the image into `out`; an image that cannot be written
// (an empty one) is reported under `area` and leaves `out` empty.
void png_into(ScriptBMP* self, vrkblock* b, std::vector<uint8_t>& out, const char* area) {
    std::vector<uint8_t> bytes;
    const bool ok = self->png_bytes(bytes);
    ScriptLock lock;
    out = std::move(bytes);
    if (!ok) bad(b, area, "could not write the image!");
}

void save_memory_buffer(ScriptBMP* self, vrkblock* b, member_args& a, const char* area) {
    std::vector<uint8_t>* out = nullptr;
    {
        ScriptLock lock;
        out = a.size() == 1 ? as_data(arg(a, 0)) : nullptr;
        if (!out) return bad(b, area);
    }
    png_into(self, b, *out, area);
}

}  // namespace

void register_loading() {
    scriptFunction<ScriptBMP>("load", load_file, 1, true, true, "(path)");
    scriptFunction<ScriptBMP>("load_locked", load_file, 1, true, false, "(path)");
    scriptFunction<ScriptBMP>("load_mem", load_memory, 1, true, false, "(uchars)");
    scriptFunction<ScriptBMP>("load_mem_async", load_memory, 1, true, true, "(uchars)");
}

void register_saving() {
    scriptFunction<ScriptBMP>("save", save_file, 1, true, true, "(path)");
    scriptFunction<ScriptBMP>("save_locked", save_file, 1, true, false, "(path) not threaded");
    scriptFunction<ScriptBMP>(
        "save_mem",
        [](ScriptBMP* self, vrkblock* b, member_args&, vrkvar& result) {
            std::vector<uint8_t> bytes;
            if (!self->png_bytes(bytes)) bad(b, "save_mem", "could not write the image!");
            if (std::vector<uint8_t>* out = as_data(&result)) *out = std::move(bytes);
        },
        0, true, false, "()");
    scriptFunction<ScriptBMP>(
        "save_mem_buffer",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar&) {
            save_memory_buffer(self, b, a, "save_mem_buffer");
        },
        1, true, false, "(buffer)");
    scriptFunction<ScriptBMP>(
        "save_mem_async",
        [](ScriptBMP* self, vrkblock* b, member_args& a, vrkvar&) {
            save_memory_buffer(self, b, a, "save_mem_async");
        },
        1, true, true, "(buffer)");
}

}  // namespace vrk::bitmap_members
