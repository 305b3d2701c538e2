// The frame loop of the main thread, and its hand-over to a frame thread.
#include "host/frame_loop.h"

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <thread>

#include "base/context.h"
#include "host/engine.h"
#include "host/host_state.h"
#include "host/run_modes.h"
#include "platform/frame_clock.h"
#include "platform/system.h"
#include "vm/block.h"
#include "vm/sleep.h"

namespace vrk {

namespace {

// Longest idle wait without a wake-up. Everything that gives the host work
// from another thread wakes it (a finished worker, a typed line, a reload);
// the time-out only bounds the delay of anything that forgot to, at a cost of
// a few wake-ups a second.
constexpr int kIdleTimeoutMs = 100;

// True when nothing but sleeping blocks could give a frame work.
bool nothing_else_to_do(vrkscript& engine) {
    return engine.newSleepers.empty() && engine.finishedBlocks.empty() &&
           engine.removedSleepers.empty() && engine.parsersToRemove.empty() &&
           engine.pendingThreads.empty() && engine.activeThreads.empty() &&
           engine.deletedObjects.empty() && engine.schedules.empty() &&
           engine.frame_blocks.empty() && engine.objectsBeforeFrame.empty() &&
           engine.objectsAfterFrame.empty() && engine.promptLines.empty() &&
           engine.retiredParsers.empty() && engine.afterRetireCallbacks.empty();
}

// How long the loop may wait, at most, before a frame has anything to do; 0
// when the next tick is needed. The wait is kIdleTimeoutMs when nothing sleeps
// or is scheduled, nothing runs every frame, no worker thread exists, nothing
// waits to be deleted, stopped or reloaded. When besides that only blocks
// sleep, for a time and without a callback on every pass, the loop waits until
// the first of them is due. Read under the global lock, since other threads
// change these lists while they hold it.
int64_t quiet_time_ms(vrkscript& engine) {
    std::lock_guard<std::recursive_mutex> lock(context().global_lock);
    if (!nothing_else_to_do(engine)) return 0;
    int64_t quiet = kIdleTimeoutMs;
    if (engine.sleepingBlocks.empty()) return quiet;
    const int64_t now = platform::monotonic_ms();
    for (const vrkblock_handle& handle : engine.sleepingBlocks) {
        const vrkblock* b = handle.get();
        if (!b || !b->sleeping || (b->completion && b->completion->on_tick)) return 0;
        if (b->sleep_ms == kSleepUntilWoken) continue;  // woken by a frame's run or a wake-up
        const int64_t due = b->sleep_start + b->sleep_ms - now;
        if (b->sleep_ms == 0 || due <= 1) return 0;
        quiet = std::min(quiet, due);
    }
    return quiet;
}

}  // namespace

void frame_step(vrkscript& engine, platform::FrameClock* clock) {
    vrkhost_state& host = host_state();
    const bool queued = run_frame(engine);
    const bool keepRunning = host.keepRunningRequested != 0;
    host.keepRunningRequested = 0;
    if (queued || keepRunning) return;
    // A wake that came during the frame is not waited for. With nothing to
    // do, the loop waits for a wake-up alone instead of ticking.
    if (host.wakeRequested.load() == 0 && clock) {
        if (const int64_t quiet = quiet_time_ms(engine); quiet > 0)
            clock->wait_idle(static_cast<int>(quiet));
        else
            clock->wait();
    }
    host.wakeRequested.exchange(0);
}

void run_frame_loop(vrkscript& engine, platform::FrameClock* clock) {
    while (!engine.mainThreadHandler) frame_step(engine, clock);

    std::thread frames([&engine, clock] {
        for (;;) frame_step(engine, clock);
    });
    engine.mainThreadHandler();
    frames.join();
}

}  // namespace vrk
