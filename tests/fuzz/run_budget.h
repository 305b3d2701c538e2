// Budgets for the fuzz targets: how much running one input may do.
//
// Inputs run script code (a script's root block, or the class bodies a loaded
// program runs once), and arbitrary code loops for ever or grows without
// bound. Each input therefore gets a step budget and a depth budget from the
// process context, and the heap is watched: a script that doubles a string in
// a loop takes all memory within a few dozen steps, so once the live heap
// passes its budget the step budget is spent and every run ends at its next
// instruction.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/context.h"

// The allocator interface of the sanitizer runtime the targets are linked with.
extern "C" {
int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*,
                                                                  std::size_t),
                                              void (*free_hook)(const volatile void*));
std::size_t __sanitizer_get_current_allocated_bytes();
}

namespace vrk::fuzz {

// Instructions one input may run in all, its frames included.
inline constexpr uint64_t kStepBudget = 100000;
// Nested runs one input may have; far below what the host stack holds.
inline constexpr uint32_t kDepthBudget = 160;
// Live heap at which an input's runs are stopped, looked at on large
// allocations only.
inline constexpr std::size_t kHeapBudget = std::size_t{64} << 20;
inline constexpr std::size_t kLargeAllocation = std::size_t{64} << 10;

// Called by the sanitizer runtime on every allocation. Only while an input's
// budget is running (between 1 and kStepBudget) does a large heap spend it.
inline void watch_allocation(const volatile void*, std::size_t size) {
    if (size < kLargeAllocation) return;
    vrkcontext& ctx = context();
    if (ctx.step_budget > 1 && ctx.step_budget <= kStepBudget &&
        __sanitizer_get_current_allocated_bytes() > kHeapBudget)
        ctx.step_budget = 1;
}

inline void ignore_release(const volatile void*) {}

// Installs the heap watch; call once, after the process context exists.
inline void watch_heap() {
    __sanitizer_install_malloc_and_free_hooks(watch_allocation, ignore_release);
}

// The budgets of one input, from construction to destruction; afterwards the
// process has the unlimited budgets of the real host again.
struct input_budget {
    input_budget() {
        vrkcontext& ctx = context();
        ctx.step_budget = kStepBudget;
        ctx.step_budget_spent = false;
        ctx.depth_budget = kDepthBudget;
    }
    ~input_budget() {
        vrkcontext& ctx = context();
        ctx.step_budget = 0;
        ctx.depth_budget = 0;
    }
    input_budget(const input_budget&) = delete;
    input_budget& operator=(const input_budget&) = delete;
};

}  // namespace vrk::fuzz
