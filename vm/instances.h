// Lifetime of class instances: reference counting by the cells that hold them.
//
// There is no tracing collector. A CLASS cell that holds an instance counts as a
// holder unless it is a non-counting cell (NO_COUNT, CAPTURED or MOVABLE at the
// time of the copy); the count lives in the instance's class data, together with
// the list of every CLASS cell pointing at it. When the last counting cell lets
// go, the script destructor (reserved slot 1) runs once with `this` bound to the
// instance, and then the instance block is deleted. Blueprints and singletons
// are never released this way.
//
// Cells take hold of and let go of instances in the value layer (`assign`, a
// type change), which calls these routines through its block hooks
// (values/block_hooks.h, installed by vm/block_hooks.cpp); the value layer's
// own face of them is values/classref.h.
#pragma once

#include <cstdint>
#include <string>

namespace vrk {

struct vrkvar;
struct vrkblock;

// CLASS payload copy: a blueprint is instantiated into `dest` (copyConstruct);
// a singleton is shared as it is; an instance is shared and `dest` becomes one
// of its holders. `source` is not null.
void instance_copy(vrkvar* dest, vrkblock* source, vrkblock* caller);

// Adds `cell` as a holder of `instance` (counting unless non-counting).
void instance_hold(vrkvar* cell, vrkblock* instance);

// Release of `instance` on behalf of a cell whose content has already been
// replaced; `saved_flags`/`saved_attrs` are the cell's at the time it held the
// block and `cell` (may be null) is taken out of the instance's cell list.
void instance_release(vrkblock* instance, vrkvar* cell, vrkblock* caller, uint16_t saved_flags,
                      uint16_t saved_attrs);

// Release by a CLASS cell with a block itself. With `force` the instance is
// destroyed even if other holders remain. Afterwards the cell holds INT 0.
void instance_release_cell(vrkvar* cell, vrkblock* caller, bool force);

// Appends the text form of a CLASS cell holding `block`: the class name (nothing
// for a class without one), or "CLASS" for a block without class data.
void instance_text(const vrkblock* block, std::string& out);

}  // namespace vrk
