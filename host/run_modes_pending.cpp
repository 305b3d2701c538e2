// Stand-ins for the engine operations of host/run_modes.h while the engine
// cannot load or run scripts yet: each says which road the host took and
// reports that nothing was loaded, so the entry takes its failure branches.
#include "host/run_modes.h"

#include "host/engine.h"
#include "host/log.h"

namespace vrk {

vrkparser* load_script(vrkscript& engine, const std::string& path, bool compileNow) {
    // One-shot runs leave the search path empty; normal runs set it first.
    const char* mode = !compileNow                        ? "compile"
                       : engine.scriptSearchPath.empty() ? "one-shot run"
                                                         : "normal run";
    log().log("mode: %s of %s (scripts do not run yet)", mode, path.c_str());
    return nullptr;
}

vrkblock* root_block(const vrkparser*) { return nullptr; }

void compile_root(vrkblock*) {}

std::vector<uint8_t> save_program(vrkblock*) { return {}; }

vrkparser* new_program_parser(vrkscript&) {
    log().log("mode: compiled run (programs do not run yet)");
    return nullptr;
}

void construct_program(vrkparser*, const std::vector<uint8_t>&) {}

void run_root(vrkblock*) {}

bool root_active(const vrkblock*) { return false; }

bool run_frame(vrkscript&) { return false; }

void reload_parser(vrkscript&, vrkparser*, bool) {}

void start_file_watcher(vrkscript&, const std::string&) {}

}  // namespace vrk
