// Lifetime of class instances: reference counting by the cells that hold them.
//
// There is no tracing collector. A CLASS cell that holds an instance counts as a
// holder unless it is a non-counting cell (NO_COUNT, CAPTURED or MOVABLE at the
// time of the copy); the count lives in the instance's class data, together with
// the list of every CLASS cell pointing at it. When the last counting cell lets
// go, the script destructor (reserved slot 1) runs once with `this` bound to the
// instance, and then the instance block is deleted. Blueprints and singletons
// are never released this way.
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
