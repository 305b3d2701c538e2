// Program images: saving a compiled root block, constructing a program from
// bytes, and the file steps around both.
#include "saved/program.h"

#include <fstream>
#include <iterator>

#include "base/log.h"
#include "base/script_lock.h"
#include "frontend/parser.h"
#include "platform/files.h"
#include "platform/system.h"
#include "saved/block_form.h"
#include "saved/relink.h"
#include "values/cache.h"
#include "vm/block.h"

namespace vrk {

void save(const vrkparser* parser, ScriptCacheWriter& writer) {
    if (!parser || !parser->root_block) return;
    toCache(parser->root_block, writer, true);
}

void construct(vrkparser* parser, ScriptCacheReader& reader) {
    if (!parser) return;
    ScriptLock lock;
    vrkblock* root = block_new(parser->engine);
    if (parser->root_block) block_delete(parser->root_block);
    parser->root_block = root;
    fromCache(root, reader);
    register_frame_functions(root, parser->engine);
}

std::vector<uint8_t> program_image(vrkblock* root) {
    std::vector<uint8_t> bytes;
    bytes.reserve(kImageReserve);
    if (!root) return bytes;
    ScriptCacheWriter writer(bytes);
    toCache(root, writer, true);
    return bytes;
}

vrkparser* empty_program_parser(vrkengine* engine) {
    return new vrkparser(engine, "", false, false);
}

void construct_from_bytes(vrkparser* parser, const std::vector<uint8_t>& bytes) {
    ScriptCacheReader reader(bytes, 0);
    construct(parser, reader);
}

bool write_program(vrkblock* root, const std::string& path) {
    const std::vector<uint8_t> bytes = program_image(root);
    std::ofstream out(platform::file_path(path), std::ios::binary | std::ios::trunc);
    if (!out.is_open()) return false;
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    out.close();
    return !out.fail();
}

vrkparser* load_program(vrkengine* engine, const std::string& path) {
    vrkparser* parser = empty_program_parser(engine);
    log().log("loading executable %s", path.c_str());
    std::ifstream in(platform::file_path(path), std::ios::binary);
    if (!in.is_open()) platform::abort_process();
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in),
                                     std::istreambuf_iterator<char>()};
    construct_from_bytes(parser, bytes);
    return parser;
}

}  // namespace vrk
