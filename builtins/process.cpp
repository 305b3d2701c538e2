// Ending scripts and the process.
#include "builtins/process.h"

#include <string>

#include "base/log.h"
#include "frontend/parser.h"
#include "platform/system.h"
#include "values/cell.h"
#include "vm/block.h"
#include "vm/engine.h"

namespace vrk::lib {

namespace {

// The loaded script whose tree holds `block`, or null.
vrkparser* parser_of(vrkengine* engine, vrkblock* block) {
    vrkblock* root = block;
    while (root && root->parent) root = root->parent;
    if (!root) return nullptr;
    for (vrkparser* parser : engine->scripts()) {
        if (parser->root_block == root) return parser;
    }
    return nullptr;
}

}  // namespace

VRK_BUILTIN(exit) {
    if (args.size() == 1) {
        const std::string text = to_string(args[0]);
        log().log("EXIT: %s\n", text.c_str());
    }
    vrkparser* parser = parser_of(engine, block);
    if (!parser) {
        log().error("parser not found for block!");
        return &result;
    }
    engine->parsersToRemove.push_back(parser);
    return &result;
}

VRK_BUILTIN(exitprocess) {
    vrk::platform::exit_process(args.size() == 1 ? static_cast<int>(to_int(args[0])) : 0);
}

VRK_BUILTIN(terminateprocess) { vrk::platform::abort_process(); }

}  // namespace vrk::lib
