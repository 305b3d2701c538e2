// Temporary cells of a block.
//
// The run loop needs short-lived cells for intermediate results on almost every
// instruction, so each block keeps its own pool of them (`vrkblock::temp_pool`):
// a temp is taken from the pool's free list and returned there, and the cells
// go back to the cell pools (values/pools.h) only when the block is destroyed.
#pragma once

#include <cstdint>
#include <vector>

#include "values/cell.h"
#include "values/pools.h"
#include "vm/ptr_stack.h"

namespace vrk {

struct vrkblock;

// Temporary cells of one block.
struct vrktemp_pool {
    std::vector<vrkvar*> all;   // every temp this pool ever made
    vrkptr_stack<vrkvar> free;  // those available now
    int16_t in_use = 0;         // up on take, down on return
};

// Blanks a free temp in line when letting go of what it holds releases at
// most a string, writing exactly what the general reset to INT followed by the
// blanking of take_temp writes: the tag INT, the value word, `aux` and `attrs`
// zero, and `block` cleared only where the reset clears it (a reset INT to INT
// empties in place and clears it; a change of tag leaves it). A temp's tag
// changes from step to step (a string subscript, then a number, then a
// by-reference argument, the copy of a function a call keeps), and the general
// reset decides all of that through the release of references and two
// switches. False leaves the temp untouched for the general reset: a constant
// temp, or one that holds a closure it owns, an instance, an object or a
// container.
[[gnu::always_inline]] inline bool blank_temp(vrkvar* cell) {
    if (cell->constant) return false;
    // Tags whose reset to INT releases nothing and keeps the block word.
    constexpr uint32_t kPlain = (1U << static_cast<unsigned>(Tag::FLOAT)) |
                                (1U << static_cast<unsigned>(Tag::EXT)) |
                                (1U << static_cast<unsigned>(Tag::VOID)) |
                                (1U << static_cast<unsigned>(Tag::REF));
    const Tag tag = cell->type;
    if (tag == Tag::INT) {
        cell->block = nullptr;
    } else if (tag == Tag::FUNCTION) {
        // Only a closure record the cell owns needs releasing.
        if (cell->value.closure && !(cell->attrs & (attr::SHARED_CLOSURE | attr::NATIVE_FUNCTION)))
            return false;
    } else if (tag == Tag::STRING || tag == Tag::ERR) {
        if (cell->value.str) string_free(cell->value.str);
    } else if (!((kPlain >> static_cast<unsigned>(tag)) & 1U)) {
        return false;
    }
    cell->type = Tag::INT;
    cell->value.i = 0;
    cell->aux = 0;
    cell->attrs = 0;
    return true;
}

// The next free temp of `pool`, taken and blanked in line (blank_temp), or
// null, with the pool untouched, when there is none or it needs the general
// reset.
[[gnu::always_inline]] inline vrkvar* take_blank_temp(vrktemp_pool* pool) {
    if (!pool || pool->free.empty()) return nullptr;
    vrkvar* cell = pool->free.back();
    if (!cell || !blank_temp(cell)) return nullptr;
    pool->free.pop_back();
    ++pool->in_use;
    return cell;
}

// A temp of `block`, blank (INT 0, no attributes).
vrkvar* take_temp(vrkblock* block);
// Gives a temp back to `block`'s pool.
void return_temp(vrkblock* block, vrkvar* cell);

}  // namespace vrk
