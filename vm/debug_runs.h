// Where each running block is, for traces that name the statement being run.
//
// The run loop keeps the position of the instruction it executes in a local
// variable; a block stores a position only when its run is suspended. A trace
// of a block that is running therefore cannot see where that block is. When
// debug tables are kept, every run records its block and a pointer to its
// position variable for as long as it runs, and the trace asks for it. The
// records form a stack per thread, since each thread's runs nest on its own
// C++ stack.
#pragma once

#include <cstdint>

namespace vrk {

struct vrkblock;

// Records `block` as running at `*position` until the scope ends; does nothing
// for a null block (debug tables off).
class debug_run_scope {
public:
    debug_run_scope(const vrkblock* block, const uint32_t* position);
    ~debug_run_scope();
    debug_run_scope(const debug_run_scope&) = delete;
    debug_run_scope& operator=(const debug_run_scope&) = delete;

private:
    bool recorded;  // whether the constructor pushed a record
};

// The position of the innermost run of `block` on this thread, or null when
// the block is not running here with a record.
const uint32_t* debug_run_position(const vrkblock* block);

}  // namespace vrk
