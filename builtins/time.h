// Time builtins: pausing a script and reading the clock.
//
// A pause never blocks the host: `sleep` marks the calling chain as sleeping
// (vm/sleep.h) and stops the calling block after the call, so the run returns
// "suspended" all the way out and the engine's frame resumes it when the time
// has come. `keepalive` pauses until something else wakes the block.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(sleep);      // (ms) pause the calling chain for ms milliseconds
VRK_BUILTIN(keepalive);  // () pause the calling chain until woken
VRK_BUILTIN(millis);     // () the second of the current local minute, in spite of the name

}  // namespace vrk::lib
