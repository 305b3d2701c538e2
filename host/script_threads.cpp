// The engine's side of script threads: whether a block is in the scheduler's
// hands, and the forced end of a thread.
#include <algorithm>

#include "base/script_lock.h"
#include "host/engine.h"
#include "vm/block.h"
#include "vm/run.h"

namespace vrk {

bool vrkscript::is_scheduled(const vrkblock* b) const {
    if (!b) return false;
    if (std::find(newSleepers.begin(), newSleepers.end(), b) != newSleepers.end()) return true;
    // An entry whose block has ended in this frame stays in the list until the
    // frame's end; it no longer counts.
    if (std::find(removedSleepers.begin(), removedSleepers.end(), b) != removedSleepers.end())
        return false;
    return std::any_of(sleepingBlocks.begin(), sleepingBlocks.end(),
                       [b](const vrkblock_handle& h) { return h.refers_to(b); });
}

bool vrkscript::stop_thread(vrkblock* b) {
    ScriptLock lock;
    if (!block_alive(b) || b->native) return false;
    // A block the run loop is inside cannot be taken apart under it.
    if (b->running) return false;
    const bool waited = b->busy();
    stop_run(b, true);
    b->sleeping = 0;
    b->hold = 0;
    b->wait_mode = 0;
    b->sleep_ms = 0;
    newSleepers.erase(std::remove(newSleepers.begin(), newSleepers.end(), b), newSleepers.end());
    if (std::find(removedSleepers.begin(), removedSleepers.end(), b) == removedSleepers.end())
        removedSleepers.push_back(b);
    if (!waited) return true;
    // Whoever waits for the end of this run (a join, a thread worker) is told
    // that it has ended, without a value.
    if (b->completion) {
        b->completion->on_tick = nullptr;
        if (b->completion->on_finish) {
            auto on_finish = std::move(b->completion->on_finish);
            b->completion->on_finish = nullptr;
            on_finish(b, void_value());
        }
    }
    return true;
}

}  // namespace vrk
