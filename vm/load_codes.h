// Sub-codes of LOAD (with `ref` 0) shared by the compiler and the run loop.
//
// LOAD with `ref` 0 does not load a variable: its `arg` says what to put in the
// top slot or what to do with it (true, false, the call start, `return`, ...).
// Most of those codes are fixed by the compiled-program format and written out
// where they are used; the ones named here were added later and are emitted by
// the compiler for the run loop to act on. A code the run loop does not know
// acts as a plain slot-load, so an older run loop passes over them.
#pragma once

#include <cstdint>

namespace vrk {

// A list literal's finished list is handed over: its variable, in the top slot,
// is marked MOVABLE, so that the store or argument that takes the list next
// takes the list itself and leaves the literal empty. LOAD 6, the start of the
// literal's next evaluation, removes the mark again.
inline constexpr int64_t kLoadHandOver = 8;

}  // namespace vrk
