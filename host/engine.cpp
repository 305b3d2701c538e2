// The engine record: construction, registration of native functions and
// variables, loading and retiring scripts, schedules, and the bookkeeping a
// dying block asks of it. The frame itself is in host/frame.cpp.
#include "host/engine.h"

#include <algorithm>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "builtins/registry.h"
#include "frontend/compile.h"
#include "frontend/parser.h"
#include "host/host_state.h"
#include "host/workers.h"
#include "objects/type_registry.h"
#include "saved/block_image.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/run.h"

namespace vrk {

bool block_active(const vrkblock* b) { return block_alive(b) && b->busy(); }

void vrkscript::block_destroyed(vrkblock* block) {
    removedSleepers.push_back(block);
    sleepersChanged = 1;
    forget_block(block);
}

void vrkscript::add_sleeper(vrkblock* t) {
    // The block is alive and waits, so no entry of it may be swept at the end
    // of the frame: it may have ended and re-entered sleep within one frame,
    // or a block that died earlier may have left its address on the list.
    removedSleepers.erase(std::remove(removedSleepers.begin(), removedSleepers.end(), t),
                          removedSleepers.end());
    const bool known = std::any_of(sleepingBlocks.begin(), sleepingBlocks.end(),
                                   [t](const vrkblock_handle& h) { return h.refers_to(t); }) ||
                       std::find(newSleepers.begin(), newSleepers.end(), t) != newSleepers.end();
    if (!known) newSleepers.push_back(t);
}

void vrkscript::block_finished(vrkblock* block) { finishedBlocks.push_back(block); }

std::vector<vrkparser*> vrkscript::scripts() const {
    std::vector<vrkparser*> list;
    list.reserve(parsers.size());
    for (const auto& p : parsers) list.push_back(p.get());
    return list;
}

vrkscript::vrkscript() {
    vrkcontext& ctx = context();
    ctx.main_thread = current_thread_id();
    install_block_image();
    workingDirectory = ctx.executableDirectory;
    if (!host_state().firstEngine) host_state().firstEngine = this;
    install_engine_hooks(this);
    inHousekeeping = 0;
    firstBlock = block_new(this);
    globalBlock = block_new(nullptr);
    globalBlock->engine = this;
    // Modules come first, so that a builtin of the same name is reported as a
    // second registration.
    register_native_types();
    load_native_modules();
    init_builtins(this);
}

vrkscript::~vrkscript() {
    // The engine lives as long as the process; tests may still destroy one.
    // Scripts go first: their blocks tell the engine lists about their end.
    parsers.clear();
    retiredParsers.clear();
    schedules.clear();
    pendingThreads.clear();
    activeThreads.clear();
    deletedObjects.clear();
    for (auto& [function, typeName] : constructors) cell_free(typeName);
    constructors.clear();
    block_delete(globalBlock);
    globalBlock = nullptr;
    block_delete(firstBlock);
    firstBlock = nullptr;
    if (host_state().firstEngine == this) {
        host_state().firstEngine = nullptr;
        value_context().startWorker = nullptr;
        value_context().deferDeletion = nullptr;
    }
}

vrkvar* vrkscript::registerFunction(const char* name, vrkbuiltin_fn function, int parameterCount,
                                    void* userValue, const char* description, bool plain_args,
                                    bool deref_args) {
    ScriptLock lock;
    auto& names = firstBlock->get_names();
    vrkvar* cell = nullptr;
    auto found = names.find(name);
    if (found != names.end()) {
        cell = firstBlock->vars[found->second];
        log().error("double global function %s !", name);
    } else {
        names[name] = static_cast<uint32_t>(firstBlock->vars.size());
        cell = cell_new(Tag::FUNCTION);
        cell->attrs = attr::NATIVE_FUNCTION;
        cell->flags = flag::CAPTURED;
        firstBlock->vars.push_back(cell);
    }

    vrkblock* block = block_new(this);
    block->code_text = string_new();  // a native block's text is its name
    *block->code_text = name;
    auto* record = new vrknative{std::move(function), userValue, deref_args};
    block->code.push_back(
        vrkinstr{static_cast<uint8_t>(Op::EXTERNAL), reinterpret_cast<uint64_t>(record), -1});
    block->param_count = static_cast<int16_t>(parameterCount);
    block->plain_args = plain_args ? 1 : 0;
    block->native = 1;
    block->parent = firstBlock;
    firstBlock->get_children().push_back(block);

    // The cell is rewritten in place, so an earlier registration's readers see
    // the new function.
    cell->type = Tag::FUNCTION;
    cell->aux = static_cast<uint16_t>(parameterCount);
    cell->block = block;
    cell->value.native = record;
    cell->flags |= flag::CAPTURED;
    cell->attrs |= attr::NATIVE_FUNCTION;

    for (int i = 0; i < parameterCount; ++i) block->vars.push_back(cell_new(Tag::VOID));
    descriptions[name] = description;
    return cell;
}

vrkvar* vrkscript::registerConstructor(const char* name, vrkbuiltin_fn function, int parameterCount,
                                       void* userValue, const char* description, bool plain_args,
                                       bool deref_args, const char* typeName) {
    vrkvar* cell = registerFunction(name, std::move(function), parameterCount, userValue,
                                    description, plain_args, deref_args);
    vrkvar*& type = constructors[cell];
    if (!type) type = cell_new(Tag::STRING);
    set_string(type, typeName);
    type->constant = 1;
    return cell;
}

vrkvar* vrkscript::registerVariable(const char* name, const char* description) {
    ScriptLock lock;
    auto& names = firstBlock->get_names();
    names[name] = static_cast<uint32_t>(firstBlock->vars.size());
    vrkvar* cell = cell_new(Tag::INT);
    cell->flags = flag::GLOBAL_SLOT;
    firstBlock->vars.push_back(cell);
    descriptions[name] = description;
    return cell;
}

vrkparser* vrkscript::load(const std::string& fileName, bool isFile, bool compileNow) {
    if (fileName.empty()) return nullptr;
    ScriptLock lock;
    if (isFile)
        log().log("loading script %s", fileName.c_str());
    else
        log().log("parsing...");
    auto parser = std::make_unique<vrkparser>(this, fileName, isFile, compileNow);
    log().log("done.");
    vrkparser* loaded = parser.get();
    parsers.push_back(std::move(parser));
    return loaded;
}

void vrkscript::call_reload_callbacks() {
    if (reloadCallbacks.empty()) return;
    auto callbacks = std::move(reloadCallbacks);
    reloadCallbacks.clear();
    for (auto& [key, functions] : callbacks) {
        for (auto& function : functions) {
            if (function) function();
        }
    }
}

namespace {

// Adds every active block below `b` (its children, their children, ...).
void collect_active_descendants(vrkblock* b, std::vector<vrkblock*>& out) {
    if (!b->children) return;
    for (vrkblock* child : *b->children) {
        if (!block_alive(child)) continue;
        if (child->busy()) out.push_back(child);
        collect_active_descendants(child, out);
    }
}

}  // namespace

void vrkscript::reloadParser(vrkparser* parser, bool recompileAll, std::function<void()> callback) {
    ScriptLock lock;
    auto found = std::find_if(parsers.begin(), parsers.end(),
                              [parser](const auto& p) { return p.get() == parser; });
    if (!parser || found == parsers.end()) {
        log().error("parser not found!");
        return;
    }

    // Blocks that stay active keep the script alive. Functions named `die` get
    // one run to finish their work, or to start waiting for it.
    std::vector<vrkblock*> active;
    if (vrkblock* root = parser->root_block) {
        if (root->die_blocks) {
            for (vrkblock* die : *root->die_blocks) {
                if (!block_alive(die)) continue;
                run(die, nullptr, 0, kSelfUnchanged);
                if (block_active(die)) active.push_back(die);
            }
        }
        collect_active_descendants(root, active);
    }

    call_reload_callbacks();

    std::unique_ptr<vrkparser> owned = std::move(*found);
    parsers.erase(found);
    if (active.empty()) {
        owned.reset();
        if (callback) callback();
    } else {
        frame();
        retiredParsers.push_back({std::move(owned), std::move(active)});
        if (callback) afterRetireCallbacks.push_back(std::move(callback));
    }

    if (recompileAll) {
        log().warn("------RECOMPILE-------");
        recompile();
        // Printed on every recompile, whatever its outcome.
        log().error("-----DISABLED-----");
        log().warn("------DONE-------\n");
    }
}

void vrkscript::recompile() {
    ScriptLock lock;
    call_reload_callbacks();
    parsers.erase(std::remove_if(parsers.begin(), parsers.end(),
                                 [](const auto& p) { return p->disposable != 0; }),
                  parsers.end());
    for (auto& parser : parsers) {
        // A script read from a file reads it again; one given as text keeps it.
        parser->parse(parser->from_file ? std::string() : parser->source_filename, true);
        if (parser->root_block && compile_block(parser->root_block)) parser->compiled = 1;
    }
    // Only after every script has been compiled, so that they may call each other.
    for (std::size_t i = 0; i < parsers.size(); ++i) {
        if (vrkblock* root = parsers[i]->root_block) run(root, nullptr, 0, kSelfUnchanged);
    }
}

vrkschedule* vrkscript::addSchedule() {
    ScriptLock lock;
    auto record = std::make_unique<vrkschedule>();
    record->id = nextScheduleId++;
    schedules.push_back(std::move(record));
    return schedules.back().get();
}

void vrkscript::removeSchedule(vrkschedule* record) {
    ScriptLock lock;
    auto found = std::find_if(schedules.begin(), schedules.end(),
                              [record](const auto& s) { return s.get() == record; });
    if (found != schedules.end()) schedules.erase(found);
}

vrkschedule* vrkscript::find_schedule(uint64_t id) {
    for (const auto& s : schedules) {
        if (s->id == id) return s.get();
    }
    return nullptr;
}

void vrkscript::forget_block(vrkblock* b) {
    auto drop = [b](std::vector<vrkblock*>& list) {
        list.erase(std::remove(list.begin(), list.end(), b), list.end());
    };
    drop(newSleepers);
    drop(frame_blocks);
    drop(finishedBlocks);
    for (auto it = extern_blocks.begin(); it != extern_blocks.end();) {
        if (it->second == b)
            it = extern_blocks.erase(it);
        else
            ++it;
    }
    rootCallbacks.erase(b);
    outputHandlers.erase(b);
}

}  // namespace vrk
