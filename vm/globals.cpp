// Retired and revived global names.
#include "vm/globals.h"

#include "values/cell.h"
#include "vm/block.h"
#include "vm/engine.h"

namespace vrk {

namespace {
const char* const kRetiredSuffix = "__VORKAGC";

vrkblock* global_block(vrkengine* engine) {
    if (!engine->globalBlock) {
        engine->globalBlock = block_new(nullptr);
        engine->globalBlock->engine = engine;
    }
    return engine->globalBlock;
}
}  // namespace

void retire_global(vrkengine* engine, const std::string& name) {
    vrkblock* g = global_block(engine);
    auto& names = g->get_names();
    auto it = names.find(name);
    if (it == names.end()) return;
    uint32_t index = it->second;
    names.erase(it);
    names[name + kRetiredSuffix] = index;
    if (index < g->vars.size()) reset(g->vars[index], Tag::INT);
}

vrkvar* declare_global(vrkengine* engine, const std::string& name) {
    vrkblock* g = global_block(engine);
    auto& names = g->get_names();
    auto retired = names.find(name + kRetiredSuffix);
    if (retired == names.end()) {
        bool existed = names.count(name) != 0;
        vrkvar* cell = g->declare_var(name);
        if (!existed) cell->flags |= flag::GLOBAL_SLOT;
        return cell;
    }
    uint32_t index = retired->second;
    names.erase(retired);
    names[name] = index;
    return index < g->vars.size() ? g->vars[index] : nullptr;
}

}  // namespace vrk
