// libFuzzer target for the whole road of a script: arbitrary text through the
// preprocessor, the parser, the compiler and the run loop.
//
// One engine serves every input (its construction registers every builtin,
// too slow to repeat). Per input the text is loaded as a script given as text
// and compiled at once; its root block runs with a step budget and a depth
// budget, and a few frames follow so that sleeping blocks and scripts that
// asked to stop are dealt with. Then the script is taken out of the engine the
// way a reload does, and whatever the input left behind (globals, stale
// sleeper handles, pending removals) goes with it, so that inputs do not
// depend on each other and memory does not grow.
//
// Builtins that would end the process, wait for real time or touch the world
// outside are registered anew under their names with harmless stand-ins. The
// heap is watched as well: a script that doubles a string in a loop takes all
// memory within a few dozen steps, so once the live heap passes its budget the
// step budget is spent and every run ends at its next instruction.
// Run with -close_fd_mask=1: the log writes to standard output.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/script_lock.h"
#include "frontend/parser.h"
#include "host/engine.h"
#include "host/init_script.h"
#include "tests/fuzz/run_budget.h"
#include "values/cell.h"
#include "values/pools.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/run.h"
#include "vm/sleep.h"

namespace {

using namespace vrk;

// Frames driven after the root block has run.
constexpr int kFrames = 8;

// Stand-in of builtins that end the process or reach outside it: no effect,
// no value.
vrkvar* inert(vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& result) { return &result; }

// Stand-in of `sleep`: the calling chain waits, but only until the next frame.
vrkvar* short_sleep(vrkblock* block, std::vector<vrkvar*>&, void*, vrkvar&) {
    if (block && vrk::sleep(block, 0, false, 1) == 1) block->suspended = 2;
    return reinterpret_cast<vrkvar*>(uintptr_t{1});
}

// Builtins replaced by `inert`, whether their bodies exist yet or not.
const char* const kInertNames[] = {
    "exitprocess", "terminateprocess", "system",        "system_ext",     "systemthread",
    "filewrite",   "fileappend",       "fappend",       "dwritef",        "hideconsole",
    "showconsole", "coutclear",        "loadmodule",    "thread",         "thread_class",
    "everyxdays",  "everyxhours",      "everyxminutes", "everyxseconds",  "timedexec",
    "subprocess",  "signalhandler",    "threadworker",  "filereadthread", "filehashthread",
    "bmp",
};

// Registers `function` anew under `name`, keeping the declared parameter count
// and argument passing of the builtin it replaces. Names not registered stay
// unregistered.
void replace_builtin(vrkscript& engine, const char* name, vrkbuiltin_fn function) {
    vrkvar* cell = engine.firstBlock->find_var(name);
    if (!cell || cell->type != Tag::FUNCTION || !cell->block) return;
    const vrkblock* old = cell->block;
    engine.registerFunction(name, std::move(function), old->param_count, nullptr, "fuzz stand-in",
                            old->plain_args != 0, true);
}

// The cells of the registered functions and variables as registration left
// them. A script may store into them (`print = f;`); what it stores, a function
// of its own for instance, would outlive the script, so every input ends with
// the registered cells put back.
std::vector<vrkvar>& registered_cells() {
    static std::vector<vrkvar>* cells = new std::vector<vrkvar>();
    return *cells;
}

void remember_registered_cells(vrkscript& engine) {
    for (const vrkvar* cell : engine.firstBlock->vars) registered_cells().push_back(*cell);
}

void restore_registered_cells(vrkscript& engine) {
    auto& vars = engine.firstBlock->vars;
    const auto& saved = registered_cells();
    for (std::size_t i = 0; i < vars.size() && i < saved.size(); ++i) {
        vrkvar* cell = vars[i];
        const vrkvar& was = saved[i];
        if (cell->type == was.type && cell->block == was.block &&
            cell->value.ptr == was.value.ptr && cell->flags == was.flags &&
            cell->attrs == was.attrs && cell->aux == was.aux && cell->constant == was.constant)
            continue;
        // A payload of its own goes; the registered one stays with the cell.
        if (cell->value.ptr != was.value.ptr) {
            cell->constant = 0;
            reset(cell, Tag::INT);
        }
        *cell = was;
    }
}

vrkscript& shared_engine() {
    static vrkscript* engine = [] {
        // Freed records are not reused, so that a late use is seen at once.
        value_context().pools.set_pooling(false);
        auto* e = new vrkscript();
        context().main_thread = current_thread_id();
        // The host's own functions, as a one-shot run has them.
        init_script(e);
        register_scriptarg(e);
        for (const char* name : kInertNames) replace_builtin(*e, name, inert);
        replace_builtin(*e, "sleep", short_sleep);
        // The `os` object removes, renames and creates files: the scripts of
        // the fuzzer find a plain 0 in its place. The object itself stays where
        // it is (the pointer registry holds it), untouched.
        for (vrkblock* b : {e->firstBlock, e->globalBlock}) {
            if (vrkvar* os = b ? b->find_var("os") : nullptr) {
                os->constant = 0;
                os->type = Tag::INT;
                os->value.i = 0;
                os->aux = 0;
            }
        }
        remember_registered_cells(*e);
        fuzz::watch_heap();
        return e;
    }();
    return *engine;
}

bool is_loaded(const vrkscript& engine, const vrkparser* parser) {
    return std::any_of(engine.parsers.begin(), engine.parsers.end(),
                       [parser](const auto& p) { return p.get() == parser; });
}

// Takes everything of one input out of the engine.
void clear_input(vrkscript& engine, vrkparser* parser) {
    // First while the script's blocks still exist, so that what the cells let
    // go of is released properly, and again for what a `die` function stored.
    restore_registered_cells(engine);
    engine.parsersToRemove.clear();
    if (is_loaded(engine, parser)) engine.reloadParser(parser, false);
    // Scripts still running are retired by a reload; here they end at once.
    engine.retiredParsers.clear();
    engine.afterRetireCallbacks.clear();
    engine.parsersToRemove.clear();
    engine.frame();

    // Handles of blocks that are gone resolve to nothing.
    auto& sleeping = engine.sleepingBlocks;
    sleeping.erase(std::remove_if(sleeping.begin(), sleeping.end(),
                                  [](const vrkblock_handle& h) { return !h.get(); }),
                   sleeping.end());
    engine.removedSleepers.clear();
    restore_registered_cells(engine);

    // Globals the script declared go too, with what they hold.
    block_delete(engine.globalBlock);
    engine.globalBlock = block_new(nullptr);
    engine.globalBlock->engine = &engine;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    vrkscript& engine = shared_engine();
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (text.empty()) return 0;

    const fuzz::input_budget budget;
    vrkparser* parser = engine.load(text, false, true);
    // As in a one-shot run, the root block runs even when compiling failed.
    if (parser && parser->root_block) run(parser->root_block, nullptr, 0, kSelfUnchanged);
    for (int i = 0; i < kFrames; ++i) {
        if (engine.sleepingBlocks.empty() && engine.newSleepers.empty() &&
            engine.parsersToRemove.empty())
            break;
        engine.frame();
    }

    clear_input(engine, parser);
    return 0;
}
