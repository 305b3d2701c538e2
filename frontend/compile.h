// Compile driver: turns a block's text into instructions.
//
// A block arrives here with a flat `code_text` in which the bodies of its
// children stand as "{##BLKn}" placeholders. The driver cuts that text into
// statements at depth-0 semicolons, hands each statement to the token compiler,
// which emits instructions into the block's `code`, and then compiles the
// children, so that every name of the parent is declared before a child's body
// looks it up. Errors are reported and compilation goes on; the result is
// always true.
//
// Before cutting, the driver repairs the text in two ways: a body that is not
// followed by a semicolon (or by `else`) receives one, and an `if`, `else` or
// `for` head that still has no braced body takes the statements indented deeper
// than itself as a new child block. Marker lines ("##PUSHN=", "##POPN", "##LN=")
// that stood inside a statement become statements of their own in front of it.
//
// One compile state (frontend/compile_state.h) serves the whole tree: the
// outermost call creates it, every block compiled under it borrows it, and it
// is dropped when that call ends.
#pragma once

#include <string>

namespace vrk {

struct vrkblock;

// Compiles `block` and its subtree; a block already compiled is left alone.
bool compile_block(vrkblock* block);

// Compiles `child` at once, in the middle of `parent`'s compile: the per-block
// part of the shared state (type knowledge, line, constant cache, token list)
// is saved around it, so the parent carries on where it was.
void compile_nested(vrkblock* parent, vrkblock* child);

// Makes a new child of `block` from the text `body` and returns the
// placeholder that names it ("##BLK" and the child's index).
std::string add_text_block(vrkblock* block, const std::string& body);

}  // namespace vrk
