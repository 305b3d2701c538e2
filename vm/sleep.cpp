// The sleep routine: marks the outermost block of a chain and hands it to the engine.
#include "vm/sleep.h"

#include <algorithm>
#include <vector>

#include "base/log.h"
#include "base/script_lock.h"
#include "platform/system.h"
#include "vm/block.h"
#include "vm/engine.h"

namespace vrk {

namespace {

// The outermost block of the running chain above `b`: follows `caller` links
// until a block that is its own caller, one that holds a thread wait, a caller
// that no longer exists, or a link back into the chain.
vrkblock* outermost(vrkblock* b) {
    std::vector<vrkblock*> seen{b};
    while (!b->wait_mode) {
        vrkblock* up = b->caller;
        if (!up || up == b || !block_alive(up)) break;
        if (std::find(seen.begin(), seen.end(), up) != seen.end()) break;
        seen.push_back(up);
        b = up;
    }
    return b;
}

bool refuse_if_destructing(const vrkblock* b) {
    if (!b->destructing) return false;
    log().log("cannot sleep while destructing!");
    return true;
}

}  // namespace

int sleep(vrkblock* block, int64_t ms, bool hold, uint8_t wait_mode) {
    ScriptLock lock;
    if (!block || refuse_if_destructing(block)) return 0;
    vrkblock* t = hold ? block : outermost(block);
    if (refuse_if_destructing(t)) return 0;
    vrkengine* engine = t->engine;
    if (!engine) return 0;

    t->sleep_ms = ms;
    t->sleep_start = platform::monotonic_ms();
    t->sleeping = 1;
    if (hold) {
        t->wait_mode = wait_mode;
        t->resume_at = 0;
        t->hold = 1;
    }

    engine_add_sleeper(engine, t);
    return 1;
}

vrkblock* sleep_root(vrkblock* block) {
    ScriptLock lock;
    return block ? outermost(block) : nullptr;
}

}  // namespace vrk
