// The compiler's part of the process context.
//
// Two things of compiling outlive one compile: the block whose token is being
// compiled (so that a text routine deep inside the compiler can name the line in
// its report without being handed the block), and the running numbers of the
// hidden names the compiler makes up for loops, which stay unique across every
// compile of the process. Like the rest of the process context (base/context.h)
// this record is created on first use and never destroyed.
#pragma once

#include <cstdint>

namespace vrk {

struct vrkblock;

struct vrkcompile_context {
    vrkblock* current_compiling_block =
        nullptr;                      // block whose token is being compiled; null between tokens
    uint32_t array_loop_counter = 0;  // numbers the generated names of `list:: = ...` loops
    uint32_t iterative_loop_counter = 0;  // numbers the generated indexes of `for(x::list)` loops
};

// The compiler's part of the process context, created on first use and never freed.
vrkcompile_context& compile_context();

}  // namespace vrk
