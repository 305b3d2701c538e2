// Closure records of lambda FUNCTION cells: capture on copy, release on change.
//
// A lambda is a function block with a capture list: pairs of (variable of the
// lambda that receives the value, variable it is captured from). The values are
// not taken when the lambda is declared but whenever a FUNCTION cell of it is
// copied by `assign`: the copy gets a fresh closure record holding private
// copies of the captured cells, either copied from the closure the source cell
// owns or, for a source without one, read from the lambda block's own store
// variables. Every captured copy is marked CAPTURED (so it never counts as a
// holder of a class instance) and additionally NO_COUNT when the cell it was
// copied from is a non-counting reference.
//
// A FUNCTION cell owns its closure unless it is SHARED_CLOSURE; a native
// function (NATIVE_FUNCTION) holds a native record in the same word and owns
// nothing. The record carries a count of owners; the last owner frees the
// captured cells with it.
#pragma once

#include <cstdint>

namespace vrk {

struct vrkvar;
struct vrkblock;

// True if a FUNCTION cell with these attrs owns the closure in its value word.
bool closure_owned(const vrkvar* cell, uint16_t attrs);

// Drops the closure a FUNCTION cell owns (judged by `attrs`, the attrs the cell
// had while it held it) and nulls the value word. Nothing for other cells.
void closure_release(vrkvar* cell, uint16_t attrs);

// Gives `dest`, a FUNCTION cell whose block is a lambda, a new closure captured
// from `src` (its closure, or else its block's store variables). `caller` is the
// running block, passed on to the copies. The lambda's capture list and store are
// read through the block hooks (values/block_hooks.h); a block that is no lambda
// gets nothing.
void closure_capture(vrkvar* dest, const vrkvar* src, vrkblock* caller);

}  // namespace vrk
