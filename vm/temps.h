// Temporary cells of a block.
//
// The run loop needs short-lived cells for intermediate results on almost every
// instruction, so each block keeps its own pool of them (`vrkblock::temp_pool`,
// made on first use): a temp is taken from the pool's free list and returned
// there, and the cells go back to the cell pools (values/pools.h) only when the
// block is destroyed.
#pragma once

#include <cstdint>
#include <vector>

namespace vrk {

struct vrkvar;
struct vrkblock;

// Temporary cells of one block.
struct vrktemp_pool {
    std::vector<vrkvar*> all;   // every temp this pool ever made
    std::vector<vrkvar*> free;  // those available now
    int16_t in_use = 0;         // up on take, down on return
};

// A temp of `block`, blank (INT 0, no attributes).
vrkvar* take_temp(vrkblock* block);
// Gives a temp back to `block`'s pool.
void return_temp(vrkblock* block, vrkvar* cell);

}  // namespace vrk
