// The process context: the one process-wide record, in layers.
//
// Everything that must be reachable without an engine pointer lives in the
// process context. It is layered like the code: this part, at the bottom, holds
// what every layer needs (the version text handed to native modules, the global
// script lock and its owner, the log, the wake callback, the run budgets and the
// process-wide switches). The layers above keep their own share in one record
// each, reached the same way: the value pools, the guarded pointer registry and
// the set of live blocks in `value_context()` (values/value_context.h), the
// compiler's running numbers in `compile_context()` (frontend/compile_context.h)
// and the values the command line sets in `host_state()` (host/host_state.h).
// Each part is created on first use by whoever touches it first (the value
// part, which the run loop reaches on every call, is made before every other
// static object instead, so that reaching it needs no first-use test) and is
// never destroyed, so worker threads may use it until the very end of the
// process.
// Nothing else in vorka is a global.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "base/log.h"

namespace vrk {

struct vrkcontext {
    vrkcontext();
    vrkcontext(const vrkcontext&) = delete;
    vrkcontext& operator=(const vrkcontext&) = delete;

    const char* version = "10.5";          // compared by native modules
    const void* module_api = nullptr;      // host function table for modules (vorka/module.h)
    std::recursive_mutex global_lock;      // the global script lock
    std::function<void()> wakeCallback;    // wakes the frame loop; empty until installed
    std::string executableDirectory;       // directory of the executable, no trailing separator
    uint32_t main_thread = 0;              // thread that created the last engine
    std::atomic<uint32_t> lock_thread{0};  // thread holding global_lock now, 0 if none
    uint32_t lock_depth = 0;               // nesting of the lock taken by other threads
    bool debug_info = false;               // keep line and file tables while compiling
    vrklog log;                            // the log object
    // Budgets of script runs, for hosts that run untrusted text; 0 means no
    // limit. Both count down with unsigned wrap-around, so 0 stays unlimited:
    // `step_budget` loses one per instruction and every run stops at its next
    // safe point once it has reached 0; `depth_budget` loses one per entered run
    // and gets it back when that run ends, and a run that would take it to 0 is
    // not entered.
    uint64_t step_budget = 0;        // instructions left to all runs together
    uint32_t depth_budget = 0;       // nested runs left
    uint32_t depth_limit = 0;        // the depth budget as set, named in its report
    bool step_budget_spent = false;  // the step budget ran out (reported once)
};

// The process context, created on first use and never freed.
vrkcontext& context();

}  // namespace vrk
