// Worker threads of the engine: starting native work on operating-system
// threads on behalf of a sleeping block.
//
// `vrkscript::returnThread` is the one door. It puts the block to sleep until
// woken, wraps the work in a thread record and starts a thread for it at once
// while fewer than 2048 run; beyond that the record is parked ("thread system
// overload!") and a later frame starts it, last parked first, but only while
// fewer than 128 run. The worker never touches a block: it writes its result
// into the return cell, raises the record's `finished` flag and calls the
// frame clock's wake callback, so that the frame loop reaps the record at once
// and wakes the block on the main thread.
//
// Layers below the host reach the same door through the process context
// (`startWorker`), and native objects queue their deferred deletions the same
// way (`deferDeletion`); `install_engine_hooks` sets both for an engine.
#pragma once

#include <cstdint>

namespace vrk {

class vrkscript;

// Running workers above which returnThread parks new work.
inline constexpr uint32_t kImmediateStartLimit = 2048;
// Running workers above which a frame starts no parked work.
inline constexpr uint32_t kPendingDrainLimit = 128;

// Points the context's worker and deletion hooks at `engine` (the first engine
// keeps them).
void install_engine_hooks(vrkscript* engine);

}  // namespace vrk
