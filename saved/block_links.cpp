// Naming blocks in saved forms: positions among saved children, the name
// search, the engine's tables, and adoption of blocks no tree owns.
#include "saved/block_links.h"

#include "values/cell.h"
#include "values/pools.h"
#include "vm/block.h"
#include "vm/engine.h"

namespace vrk {

namespace {

// A parent chain longer than this is not a tree but a fault.
constexpr int kMaxParentSteps = 100000;

vrkvar* own_variable(vrkblock* b, const std::string& name) {
    const int64_t index = b->find_var_index(name);
    if (index < 0 || static_cast<uint64_t>(index) >= b->vars.size()) return nullptr;
    // The reserved slots of a class are found through their slot, not by name.
    if (b->is_class_or_instance() && index < static_cast<int64_t>(kClassSlotCount)) return nullptr;
    return b->vars[static_cast<std::size_t>(index)];
}

}  // namespace

bool is_saved_child(const vrkblock* child) {
    return child && (child->kind & (kind::COPY | kind::INSTANCE)) == 0;
}

int32_t saved_child_index(const vrkblock* parent, const vrkblock* child) {
    if (!parent || !parent->children || !child) return -1;
    int32_t position = 0;
    for (const vrkblock* c : *parent->children) {
        if (!is_saved_child(c)) continue;
        if (c == child) return position;
        ++position;
    }
    return -1;
}

vrkblock* saved_child(const vrkblock* parent, int64_t index) {
    if (!parent || !parent->children || index < 0) return nullptr;
    int64_t position = 0;
    for (vrkblock* c : *parent->children) {
        if (!is_saved_child(c)) continue;
        if (position == index) return c;
        ++position;
    }
    return nullptr;
}

std::string block_name(const vrkblock* b) {
    if (!b || !b->code_text) return std::string();
    return *b->code_text;
}

vrkvar* find_named_cell(vrkblock* from, const std::string& name) {
    if (!from || name.empty()) return nullptr;
    int steps = 0;
    for (vrkblock* b = from; b && steps < kMaxParentSteps; b = b->parent, ++steps) {
        if (vrkvar* cell = own_variable(b, name)) return cell;
    }
    vrkengine* engine = from->engine;
    if (!engine) return nullptr;
    if (engine->globalBlock) {
        if (vrkvar* cell = engine->globalBlock->find_var(name)) return cell;
    }
    for (const auto& [cell, cell_name] : engine->namedCells) {
        if (cell_name == name) return cell;
    }
    if (engine->firstBlock) return engine->firstBlock->find_var(name);
    return nullptr;
}

vrkblock* find_named_block(vrkblock* from, const std::string& name) {
    vrkvar* cell = find_named_cell(from, name);
    if (!cell) return nullptr;
    cell = deref(cell);
    if (cell->type != Tag::FUNCTION && cell->type != Tag::CLASS) return nullptr;
    return block_alive(cell->block) ? cell->block : nullptr;
}

bool named_cell_name(const vrkengine* engine, const vrkblock* target, std::string& name) {
    if (!engine || !target) return false;
    for (const auto& [cell, cell_name] : engine->namedCells) {
        if (cell && cell->type == Tag::FUNCTION && cell->block == target) {
            name = cell_name;
            return true;
        }
    }
    return false;
}

bool extern_name(const vrkengine* engine, const vrkblock* target, std::string& name) {
    if (!engine || !target) return false;
    for (const auto& [extern_name, block] : engine->extern_blocks) {
        if (block == target) {
            name = extern_name;
            return true;
        }
    }
    return false;
}

vrkblock* named_cell_block(const vrkengine* engine, const std::string& name) {
    if (!engine) return nullptr;
    for (const auto& [cell, cell_name] : engine->namedCells) {
        if (cell && cell_name == name && cell->type == Tag::FUNCTION) return cell->block;
    }
    return nullptr;
}

void adopt_block(vrkblock* owner, vrkblock* b) {
    // The handle, not the pointer, names the block: should it be gone before
    // its owner, the call-back finds nothing to delete.
    const vrkblock_handle handle = vrkblock_handle::of(b);
    callback_add(
        [handle](uint64_t) {
            if (vrkblock* alive = handle.get()) block_delete(alive);
        },
        0, owner, 1);
}

}  // namespace vrk
