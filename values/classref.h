// A cell takes hold of and lets go of a class instance.
//
// A CLASS cell that holds an instance may count as one of its holders; when the
// last counting holder lets go, the instance's script destructor runs and the
// instance is deleted (the counting and the destructor run: vm/instances.h).
// These are the value layer's words for it, used by `assign` and every type
// change: running script code is the block layer's business, so they pass the
// instance on through the block hooks (values/block_hooks.h). A cell without a
// block never reaches them.
#pragma once

#include <cstdint>

namespace vrk {

struct vrkvar;
struct vrkblock;

// Release by the cell itself (used by every type change). With `force` the
// instance is destroyed even if other holders remain. Afterwards the cell holds
// INT 0 with no block.
void clearblock(vrkvar* cell, vrkblock* caller, bool force);

// Release of `block` on behalf of a cell whose content `assign` has already
// replaced; `saved_flags` are the cell's flags at the time it held the block and
// `cell` (may be null) is the cell to take out of the instance's cell list.
void clearblock(vrkblock* block, vrkvar* cell, vrkblock* caller, uint16_t saved_flags,
                uint16_t saved_attrs);

// Adds a counting holder to an instance (payload copy of assign).
void class_add_holder(vrkvar* cell, vrkblock* block);

}  // namespace vrk
