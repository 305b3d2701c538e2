// Loading scripts from scripts: the `loadmodule` constructor and `load`.
#include "builtins/modules.h"

#include <algorithm>
#include <memory>
#include <string>

#include "base/log.h"
#include "frontend/parser.h"
#include "objects/module.h"
#include "values/cell.h"
#include "values/pools.h"
#include "vm/block.h"
#include "vm/engine.h"
#include "vm/errors.h"
#include "vm/run.h"

namespace vrk::lib {

namespace {

// The source extension; a name that holds its first three characters keeps its own.
constexpr const char* kSourceExtension = ".vrs";

// Loads a script for a module: from a file or from text, compiled at once.
// The engine's search prefix is kept as it was.
vrkparser* load_script(vrkengine* engine, const std::string& text, bool isFile) {
    const std::string searchPath = engine->scriptSearchPath;
    vrkparser* parser = engine->load(text, isFile, true);
    engine->scriptSearchPath = searchPath;
    return parser;
}

// Asks the engine to remove `parser` at its next frame, unless it is gone already.
void remove_later(vrkengine* engine, vrkparser* parser) {
    const std::vector<vrkparser*> scripts = engine->scripts();
    const bool loaded = std::find(scripts.begin(), scripts.end(), parser) != scripts.end();
    const bool queued = std::find(engine->parsersToRemove.begin(), engine->parsersToRemove.end(),
                                  parser) != engine->parsersToRemove.end();
    if (loaded && !queued) engine->parsersToRemove.push_back(parser);
}

// The loaded script whose root block is the top of `block`'s tree, or null.
const vrkparser* script_of(vrkengine* engine, vrkblock* block) {
    vrkblock* root = block;
    while (root && root->parent && block_alive(root->parent)) root = root->parent;
    if (!root) return nullptr;
    const std::vector<vrkparser*> scripts = engine->scripts();
    for (const vrkparser* parser : scripts) {
        if (parser->root_block == root) return parser;
    }
    return nullptr;
}

}  // namespace

VRK_BUILTIN(loadmodule) {
    const bool isFile = args.size() >= 2 && args[1] ? to_int(deref(args[1])) != 0 : true;
    const std::string text = args.empty() || !args[0] ? std::string() : to_string(deref(args[0]));
    vrkparser* parser = load_script(engine, text, isFile);
    if (parser && parser->root_block)
        parser->compiled = 1;
    else
        log().error("cannot load module %s", text.c_str());

    auto* module = std::make_unique<AScript>().release();
    module->engine = engine;
    module->script = parser;
    module->unload = [engine](vrkparser* p) { remove_later(engine, p); };
    set_object(&result, module, true);
    associateBlock(module, block);

    if (args.size() >= 3 && args[2] && to_int(deref(args[2])) != 0 && parser && parser->root_block)
        run(parser->root_block, nullptr, 0, kSelfUnchanged);
    return &result;
}

VRK_BUILTIN(load) {
    if (args.empty() || !args[0]) {
        report_errorf(block, "external_function", "wrong params 20");
        return &result;
    }
    std::string name = to_string(deref(args[0]));
    if (const vrkparser* caller = script_of(engine, block)) name = caller->source_folder + name;
    if (name.find(std::string(kSourceExtension, 3)) == std::string::npos) name += kSourceExtension;
    if (args.size() >= 2 && args[1]) name = "\"" + name + "\" " + to_string(deref(args[1]));

    vrkparser* parser = load_script(engine, name, true);
    if (parser) {
        // The script lives as long as the calling block.
        callback_add([engine, parser](uint64_t) { remove_later(engine, parser); },
                     reinterpret_cast<uint64_t>(parser), block, 0);
    }
    if (parser && parser->root_block) {
        run(parser->root_block, nullptr, 0, kSelfUnchanged);
    } else {
        const std::string message = "failed to load " + name;
        report_error(block, nullptr, message.c_str());
    }
    set_int(&result, parser ? 1 : 0);
    return &result;
}

}  // namespace vrk::lib
