// Script thread builtins: starting, stopping and waiting for script threads.
//
// A script thread is a private copy of a function block that the engine's
// scheduler runs on the main thread, between the other blocks it resumes:
// threads are cooperative and take turns wherever one of them sleeps or
// yields. `thread(f, args...)` takes an idle copy of `f` (its own block when
// that is idle), puts the arguments into the copy's parameters and hands it
// to the scheduler, which starts it at its next pass. The answer is a thread
// handle, a PTR cell naming the copy (aux 0xFFFF), which `joinable`, `join`
// and `terminate` accept. A copy whose thread has ended goes back among the
// function's idle copies and serves the next call, so a handle kept after
// the end of its thread may name the copy's next run.
//
// `~f(x)` in a script is `thread(f, x)`, and `~o.m(x)` is
// `thread_class(o.m, o, x)`, which also binds `this`.
//
// `timedexec(f, ms)` runs `f` once after `ms` milliseconds, in the function's
// own block when that is idle, else in a copy, so that each call runs once.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(thread);        // (func, ...) start func as a script thread: a thread handle
VRK_BUILTIN(thread_class);  // (func, object, ...) the same with `this` bound to the object
VRK_BUILTIN(terminate);     // (handle or func) end a thread at once
VRK_BUILTIN(timedexec);     // (func, ms) run func once after ms milliseconds
VRK_BUILTIN(joinable);      // (handle) 1 when the thread has ended, 0 while it runs
VRK_BUILTIN(join);          // (handle) wait for the thread's end; answers its value

}  // namespace vrk::lib
