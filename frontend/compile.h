// Compile driver: turns a block's text into instructions.
//
// A block arrives here with a flat `code_text` in which the bodies of its
// children stand as "{##BLKn}" placeholders. The driver cuts that text into
// statements at depth-0 semicolons, hands each statement to the token compiler,
// which emits instructions into the block's `code`, and then compiles the
// children, so that every name of the parent is declared before a child's body
// looks it up. Errors are reported and compilation goes on; the result is
// always true.
#pragma once

namespace vrk {

struct vrkblock;

// Compiles `block` and its subtree; a block already compiled is left alone.
bool compile_block(vrkblock* block);

}  // namespace vrk
