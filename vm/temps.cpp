// Taking temporary cells from a block's temp pool and returning them.
#include "vm/temps.h"

#include "values/cell.h"
#include "values/error_report.h"
#include "values/pools.h"
#include "values/value_context.h"
#include "vm/block.h"

namespace vrk {

namespace {

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
    if (value_context().data_paths) {
        if (vrkvar* cell = take_blank_temp(&block->temp_pool)) return cell;
    }
    return take_temp_general(block);
}

void return_temp(vrkblock* block, vrkvar* cell) {
    vrktemp_pool* temps = &block->temp_pool;
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
