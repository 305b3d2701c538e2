// The engine record: construction, registration of native functions and
// variables, and the bookkeeping a dying block asks of it.
#include "host/engine.h"

#include <algorithm>

#include "host/context.h"
#include "host/log.h"
#include "host/script_lock.h"
#include "objects/object.h"
#include "vm/block.h"

namespace vrk {

vrkblock* vrkblock_handle::get() const {
    return dynamic_cast<vrkblock*>(registry_get(index, id));
}

vrkblock_handle vrkblock_handle::of(vrkblock* b) {
    if (!b) return {};
    return {b->registry_index, b->registry_id};
}

vrkobject* vrkobject_handle::get() const {
    return dynamic_cast<vrkobject*>(registry_get(index, id));
}

vrkscript::vrkscript() {
    vrkcontext& ctx = context();
    ctx.main_thread = current_thread_id();
    workingDirectory = ctx.executableDirectory;
    if (!ctx.firstEngine) ctx.firstEngine = this;
    inHousekeeping = 0;
    firstBlock = block_new(this);
    globalBlock = block_new(nullptr);
    globalBlock->engine = this;
}

vrkscript::~vrkscript() {
    // The engine lives as long as the process; tests may still destroy one.
    block_delete(globalBlock);
    globalBlock = nullptr;
    block_delete(firstBlock);
    firstBlock = nullptr;
    if (context().firstEngine == this) context().firstEngine = nullptr;
}

vrkvar* vrkscript::registerFunction(const char* name, vrkbuiltin_fn function, int parameterCount,
                                    void* userValue, const char* description, bool plain_args,
                                    bool deref_args) {
    ScriptLock lock;
    auto& names = firstBlock->get_names();
    vrkvar* cell = nullptr;
    auto found = names.find(name);
    if (found != names.end()) {
        cell = (*firstBlock->vars)[found->second];
        log().error("double global function %s !", name);
    } else {
        names[name] = static_cast<uint32_t>(firstBlock->vars->size());
        cell = cell_new(Tag::FUNCTION);
        cell->attrs = attr::NATIVE_FUNCTION;
        cell->flags = flag::CAPTURED;
        firstBlock->vars->push_back(cell);
    }

    vrkblock* block = block_new(this);
    block->code_text = string_new();  // a native block's text is its name
    *block->code_text = name;
    auto* record = new vrknative{std::move(function), userValue, deref_args};
    block->code.push_back(vrkinstr{static_cast<uint8_t>(Op::EXTERNAL),
                                   reinterpret_cast<uint64_t>(record), -1});
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

    for (int i = 0; i < parameterCount; ++i) block->vars->push_back(cell_new(Tag::VOID));
    descriptions[name] = description;
    return cell;
}

vrkvar* vrkscript::registerVariable(const char* name, const char* description) {
    ScriptLock lock;
    auto& names = firstBlock->get_names();
    names[name] = static_cast<uint32_t>(firstBlock->vars->size());
    vrkvar* cell = cell_new(Tag::INT);
    cell->flags = flag::GLOBAL_SLOT;
    firstBlock->vars->push_back(cell);
    descriptions[name] = description;
    return cell;
}

void vrkscript::forget_block(vrkblock* b) {
    auto drop = [b](std::vector<vrkblock*>& list) {
        list.erase(std::remove(list.begin(), list.end(), b), list.end());
    };
    drop(newSleepers);
    drop(frame_blocks);
    for (auto it = extern_blocks.begin(); it != extern_blocks.end();) {
        if (it->second == b)
            it = extern_blocks.erase(it);
        else
            ++it;
    }
    rootCallbacks.erase(b);
}

}  // namespace vrk
