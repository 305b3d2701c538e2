// Constructors of the native types for script threads: `threadworker`,
// `signalhandler` and `vrk_timer` (objects/threadworker.h,
// objects/signalhandler.h, objects/timer.h).
//
// `threadworker(f)` attaches `f`; without an argument the worker starts with
// no function (`attach` gives it one later). `vrk_timer(ms)` starts with
// that interval, reset now; `vrk_timer()` has neither interval nor reset
// time.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(threadworker);   // (function) a new thread worker
VRK_BUILTIN(signalhandler);  // () a new signal handler
VRK_BUILTIN(vrk_timer);      // (interval_ms) a new timer

}  // namespace vrk::lib
