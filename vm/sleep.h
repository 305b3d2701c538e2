// Putting a block to sleep: how a running chain of calls pauses and waits.
//
// A block can wait only through the engine: the engine's frame resumes a
// sleeping block when its time has come. It knows nothing of the host stack,
// so when a function called from a function sleeps, the whole chain of callers
// must stop, and only the outermost block of the chain is handed to the engine.
// When the engine resumes it, its pending call resumes the callee, and so on
// down to the block that asked to sleep. `sleep` therefore walks up the caller
// links from the block it is given and marks the outermost one.
//
// With `hold` the block itself is marked, as the start of a separate run (a
// script thread, a delayed call): it will be run from its first instruction,
// and `wait_mode` says how the engine treats it when that run has ended.
//
// A time of -1 (all bits set) means "until woken"; waking is
// `sleep(block, 0, false, 0)`, which makes the block due at the next frame.
#pragma once

#include <cstdint>

namespace vrk {

struct vrkblock;

// Length of a sleep that lasts until something wakes the block.
inline constexpr int64_t kSleepUntilWoken = -1;

// Puts the chain of `block` to sleep for `ms` milliseconds. Returns 1, or 0 when
// refused (the block is being destroyed, or it belongs to no engine). The
// caller of a builtin that sleeps must still stop its own run after the call.
int sleep(vrkblock* block, int64_t ms, bool hold, uint8_t wait_mode);

// The block that sleeps on behalf of `block` when its chain pauses (without
// `hold`): the outermost block of the running chain above it. Callbacks that
// the scheduler calls while a chain waits (`on_tick`) go on that block.
vrkblock* sleep_root(vrkblock* block);

}  // namespace vrk
