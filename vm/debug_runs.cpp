// The per-thread stack of running blocks kept with debug tables.
#include "vm/debug_runs.h"

#include <utility>
#include <vector>

namespace vrk {

namespace {

// The runs of this thread, outermost first. Thread-local by nature: a record
// points into the stack frame of a run on this thread.
std::vector<std::pair<const vrkblock*, const uint32_t*>>& runs() {
    thread_local std::vector<std::pair<const vrkblock*, const uint32_t*>> stack;
    return stack;
}

}  // namespace

debug_run_scope::debug_run_scope(const vrkblock* block, const uint32_t* position)
    : recorded(block != nullptr) {
    if (recorded) runs().emplace_back(block, position);
}

debug_run_scope::~debug_run_scope() {
    if (recorded) runs().pop_back();
}

const uint32_t* debug_run_position(const vrkblock* block) {
    const auto& stack = runs();
    for (auto it = stack.rbegin(); it != stack.rend(); ++it)
        if (it->first == block) return it->second;
    return nullptr;
}

}  // namespace vrk
