// Time builtins: pausing a script, the clock and millisecond conversions.
//
// A pause never blocks the host: `sleep` marks the calling chain as sleeping
// (vm/sleep.h) and stops the calling block after the call, so the run returns
// "suspended" all the way out and the engine's frame resumes it when the time
// has come. `yield` is a pause of no length: the chain goes on at the next
// frame, after every other block due in this one. `keepalive` pauses until
// something else wakes the block.
//
// `time` reads the monotonic clock in milliseconds, good for measuring
// intervals and nothing else. `millis` answers the second of the local
// minute, in spite of its name. The `..._ms` conversions answer integers; the
// `ms_...` ones always answer a float (and INT 0 for a wrong argument count).
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(sleep);      // (ms) pause the calling chain for ms milliseconds
VRK_BUILTIN(yield);      // () pause the calling chain until the next frame
VRK_BUILTIN(keepalive);  // () pause the calling chain until woken
VRK_BUILTIN(millis);     // () the second of the current local minute, in spite of the name
VRK_BUILTIN(time);       // () monotonic milliseconds

VRK_BUILTIN(seconds_ms);  // (n) n seconds in milliseconds
VRK_BUILTIN(minutes_ms);  // (n) n minutes in milliseconds
VRK_BUILTIN(hours_ms);    // (n) n hours in milliseconds
VRK_BUILTIN(days_ms);     // (n) n days in milliseconds
VRK_BUILTIN(weeks_ms);    // (n) n weeks in milliseconds
VRK_BUILTIN(ms_seconds);  // (ms) seconds, float
VRK_BUILTIN(ms_minutes);  // (ms) minutes, float
VRK_BUILTIN(ms_hours);    // (ms) hours, float
VRK_BUILTIN(ms_days);     // (ms) days, float
VRK_BUILTIN(ms_weeks);    // (ms) weeks, float

}  // namespace vrk::lib
