// A cell's hold on a class instance, passed on to the block layer's counting.
#include "values/classref.h"

#include "values/block_hooks.h"
#include "values/cell.h"

namespace vrk {

void class_add_holder(vrkvar* cell, vrkblock* block) {
    if (block) block_hooks().hold_instance(cell, block);
}

void clearblock(vrkblock* block, vrkvar* cell, vrkblock* caller, uint16_t saved_flags,
                uint16_t saved_attrs) {
    if (block) block_hooks().release_instance(block, cell, caller, saved_flags, saved_attrs);
}

void clearblock(vrkvar* cell, vrkblock* caller, bool force) {
    if (!cell || cell->type != Tag::CLASS || !cell->block) return;
    block_hooks().release_cell(cell, caller, force);
}

}  // namespace vrk
