// The start of a run, shared by the run loop and the direct entry of a
// builtin's block: the hold on the depth budget and the fresh start.
//
// A run from instruction 0 forgets what the block was waiting on and the
// `this` of its last run, cuts its value stack back to the one slot that holds
// the scratch cell (the stack keeps its memory), and drops parameters and a
// pending subscript left from before. Call blocks left over are a fault of the
// code that made them: they are reported and dropped.
#pragma once

#include <cstdint>

#include "base/log.h"
#include "vm/block.h"

namespace vrk {

// Keeps the depth budget: one nested run taken on entry, given back at every
// end of the run.
struct depth_guard {
    uint32_t& left;
    explicit depth_guard(uint32_t& budget) : left(budget) { --left; }
    ~depth_guard() { ++left; }
    depth_guard(const depth_guard&) = delete;
    depth_guard& operator=(const depth_guard&) = delete;
};

[[gnu::always_inline]] inline void fresh_start(vrkblock* b) {
    b->waiting_on = nullptr;
    b->self_cell = nullptr;
    if (b->stack.empty()) {
        b->stack.push_back(&b->scratch);
    } else {
        b->stack.erase(b->stack.begin() + 1, b->stack.end());
        b->stack.front() = &b->scratch;
    }
    b->params.clear();
    b->pending_index = -1;
    if (!b->callblocks.empty()) {
        log().log("callblocks is not zero!");
        b->callblocks.clear();
    }
}

}  // namespace vrk
