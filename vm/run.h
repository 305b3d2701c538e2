// Running blocks: the dispatch loop, calls, suspension and the forced stop.
//
// One routine, `run`, executes one block. It is re-entrant through the host
// stack: calling a script function or entering an `if` body is a nested `run` on
// another block. A run can stop in mid-block (it returns the pointer value 1) and
// be continued later from `resume_at` by whoever waits for it, up to the
// scheduler, which knows nothing of the host stack. Parameters are passed by
// swapping pointers in the callee's variable vector, and the caller puts them
// back on every way out.
#pragma once

#include <cstdint>

#include "vm/block.h"

namespace vrk {

// `self` argument of run meaning "no change and no binding".
inline vrkvar* const kSelfUnchanged = reinterpret_cast<vrkvar*>(~uintptr_t{0});
// Answer of run for a suspended run.
inline vrkvar* const kSuspended = reinterpret_cast<vrkvar*>(uintptr_t{1});

// Runs `block` from instruction `start` (0: a fresh run). `self`: 0 keeps the
// saved self cell, kSelfUnchanged binds nothing, anything else is the `this` of
// this run. Returns the cell in the top slot, kSuspended, or null.
vrkvar* run(vrkblock* block, vrkblock* caller, uint32_t start, vrkvar* self);
// run(block, caller, block->resume_at, self).
vrkvar* resume(vrkblock* block, vrkblock* caller, vrkvar* self);
// Ends the run of `block` whose instruction could not get the memory it
// needed: its working state is given back, the fault reported, and the run
// ends as a normal end does, answering the void value.
vrkvar* end_out_of_memory(vrkblock* block);

// The clean-up at every end of a run: self variable, scratch payload, displaced
// parameters, leaked temps, scoped variables. Most runs have none of them, which
// this tests in line; the work itself is out of line (run_cleanup_work).
void run_cleanup_work(vrkblock* block);
inline void run_cleanup(vrkblock* block) {
    if (block->self_index >= 0 || (block->scratch.attrs & attr::RESULT_BITS) ||
        (block->params_bound && !block->params.empty() && block->callee) ||
        block->temp_pool.in_use != 0 || block->scoped)
        run_cleanup_work(block);
}

// Gives back every temp of the block at once, without a report, and leaves the
// stack with its one bottom slot: for a run abandoned in mid-instruction, whose
// slots and call records may hold temps in any state.
void release_temps(vrkblock* block);

// Stops a suspended chain: from the outermost live caller, and with `cascade`
// down through waiting_on, every stopped block loses its resume point.
void stop_run(vrkblock* block, bool cascade);

// Puts displaced parameter pointers back into the callee's variables.
void restore_params(vrkblock* block);

}  // namespace vrk
