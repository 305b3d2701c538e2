// Run-time copies of blocks: class instances, second callers and recursion.
//
// A block is its own activation record, so a block that is busy cannot be
// entered again. Calls that find their function busy run a copy instead, and a
// class blueprint becomes an instance by being copied. A copy shares its source's
// name map and the blocks its code refers to outside itself, and owns fresh
// variables, stack and children.
#pragma once

namespace vrk {

struct vrkvar;
struct vrkblock;

// Makes a new instance of a class blueprint for the cell `dest` (count 1, or 0
// when dest is MOVABLE). Returns the instance block, or null when copying is not
// available.
vrkblock* copyConstruct(vrkvar* dest, vrkblock* blueprint, vrkblock* caller);

// An idle instance of a busy block to run in its place (loads the closure of
// `function_cell` into it), or null. With `force` the limit of copies is ignored.
vrkblock* get_instance(vrkblock* block, vrkvar* function_cell, bool force);

}  // namespace vrk
