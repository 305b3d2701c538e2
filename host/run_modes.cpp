// The engine operations of the run modes, on a real engine.
//
// Compile mode writes the program image of the compiled root block; a compiled
// run builds an empty parser and constructs the program from the file's bytes.
#include "host/run_modes.h"

#include "base/context.h"
#include "base/log.h"
#include "frontend/compile.h"
#include "frontend/parser.h"
#include "host/engine.h"
#include "host/reload.h"
#include "saved/program.h"
#include "vm/block.h"
#include "vm/run.h"

namespace vrk {

vrkparser* load_script(vrkscript& engine, const std::string& path, bool compileNow) {
    return engine.load(path, true, compileNow);
}

vrkblock* root_block(const vrkparser* parser) { return parser ? parser->root_block : nullptr; }

void compile_root(vrkblock* root) {
    if (root) compile_block(root);
}

std::vector<uint8_t> save_program(vrkblock* root) { return program_image(root); }

vrkparser* new_program_parser(vrkscript& engine) { return empty_program_parser(&engine); }

void construct_program(vrkparser* parser, const std::vector<uint8_t>& bytes) {
    construct_from_bytes(parser, bytes);
}

vrkparser* create_prompt_parser(vrkscript& engine) {
    // The engine loads no empty text, so the script starts as a comment.
    return engine.load("// prompt\n", false, true);
}

void run_root(vrkblock* root) {
    // A root that suspends has handed its waiting block to the engine already.
    if (root) run(root, nullptr, 0, kSelfUnchanged);
}

bool root_active(const vrkblock* root) { return block_active(root); }

bool run_frame(vrkscript& engine) { return engine.frame(); }

void reload_parser(vrkscript& engine, vrkparser* parser, bool recompileAll) {
    engine.reloadParser(parser, recompileAll);
    // The reloaded script may have put blocks to sleep while the frame loop
    // waited with nothing to do.
    if (context().wakeCallback) context().wakeCallback();
}

void start_file_watcher(vrkscript&, const std::string& directory) {
    start_watcher_thread(directory);
}

}  // namespace vrk
