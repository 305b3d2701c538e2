// Taking temporary cells from a block's temp pool and returning them.
#include "vm/temps.h"

#include "values/cell.h"
#include "values/error_report.h"
#include "values/pools.h"
#include "values/value_context.h"
#include "vm/block.h"

namespace vrk {

namespace {

// Blanks a temp that holds no reference and at most a string, writing exactly
// what the general reset to INT followed by the blanking of take_temp writes:
// the tag INT, the value word, `aux` and `attrs` zero, and `block` cleared only
// where the reset clears it (a reset INT to INT empties in place and clears it;
// a change of tag leaves it). A temp's tag changes from step to step (a string
// subscript, then a number, then a by-reference argument), and the general
// reset decides all of that through the release of references and two
// switches. False leaves the temp untouched for the general reset: a constant
// temp, or one that holds a closure, an instance, an object or a container.
bool blank_temp(vrkvar* cell) {
    if (cell->constant) return false;
    switch (cell->type) {
        case Tag::INT: cell->block = nullptr; break;
        case Tag::FLOAT:
        case Tag::EXT:
        case Tag::VOID:
        case Tag::REF: break;
        case Tag::FUNCTION:
            // Only a closure record the cell owns needs releasing.
            if (cell->value.closure &&
                !(cell->attrs & (attr::SHARED_CLOSURE | attr::NATIVE_FUNCTION)))
                return false;
            break;
        case Tag::STRING:
        case Tag::ERR:
            if (cell->value.str) string_free(cell->value.str);
            break;
        default: return false;
    }
    cell->type = Tag::INT;
    cell->value.i = 0;
    cell->aux = 0;
    cell->attrs = 0;
    return true;
}

// Every case the direct path of take_temp leaves: no pool yet, an empty free
// list, a null entry, a temp that needs the general reset, or the direct
// paths switched off. Kept out of line so that the common case needs no saved
// registers.
[[gnu::noinline]] vrkvar* take_temp_general(vrkblock* block) {
    vrktemp_pool& temps = block->get_temp_pool();
    ++temps.in_use;
    if (!temps.free.empty()) {
        vrkvar* cell = temps.free.back();
        temps.free.pop_back();
        if (cell) {
            reset(cell, Tag::INT);
            cell->value.i = 0;
            cell->attrs = 0;
            return cell;
        }
        // A null entry is dropped and a new temp made in its place.
        report_error(block, "internal", "allocation failure!");
    }
    vrkvar* cell = cell_new(Tag::INT);
    temps.all.push_back(cell);
    return cell;
}

// Gives a temp back when the free list must grow first (or there is no pool yet).
[[gnu::noinline]] void return_temp_general(vrkblock* block, vrkvar* cell) {
    vrktemp_pool& temps = block->get_temp_pool();
    --temps.in_use;
    temps.free.push_back(cell);
}

}  // namespace

vrkvar* take_temp(vrkblock* block) {
    vrktemp_pool* temps = block->temp_pool.get();
    if (temps && !temps->free.empty() && value_context().data_paths) {
        vrkvar* cell = temps->free.back();
        if (cell && blank_temp(cell)) {
            temps->free.pop_back();
            ++temps->in_use;
            return cell;
        }
    }
    return take_temp_general(block);
}

void return_temp(vrkblock* block, vrkvar* cell) {
    vrktemp_pool* temps = block->temp_pool.get();
    // The free list has room almost always: it only grows to the most temps
    // in use at once. Growing it is left to the general path.
    if (temps && temps->free.size() < temps->free.capacity()) {
        --temps->in_use;
        temps->free.push_back(cell);
        return;
    }
    return_temp_general(block, cell);
}

}  // namespace vrk
