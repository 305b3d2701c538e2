// Entering a native block from CALL.
//
// A native block's code is the one EXTERNAL instruction. Entering it through
// `resume` costs a whole run: the entry checks, the dispatch of that single
// instruction and the end. `enter_native` does the same steps in line, with
// every effect of that run on the block and the budgets: the depth budget is
// held for the length of the builtin, one step is taken from the step budget,
// the block's stack, parameters and signals start fresh and it ends as the run
// would. Whatever the direct way could not mirror exactly (a step budget about
// to run out, the depth budget at its end, debug tables, a block that is not a
// plain one-instruction native block) takes the full run. The direct way is
// one of the call paths (`value_context().call_paths`).
#pragma once

#include "vm/block.h"

namespace vrk {

// resume(block, caller, nullptr) for the native `block` called by `caller`.
vrkvar* enter_native(vrkblock* block, vrkblock* caller);

}  // namespace vrk
