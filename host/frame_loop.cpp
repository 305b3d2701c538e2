// The frame loop of the main thread, and its hand-over to a frame thread.
#include "host/frame_loop.h"

#include <mutex>
#include <thread>

#include "base/context.h"
#include "host/engine.h"
#include "host/host_state.h"
#include "host/run_modes.h"
#include "platform/frame_clock.h"

namespace vrk {

namespace {

// Longest idle wait without a wake-up. Everything that gives the host work
// from another thread wakes it (a finished worker, a typed line, a reload);
// the time-out only bounds the delay of anything that forgot to, at a cost of
// a few wake-ups a second.
constexpr int kIdleTimeoutMs = 100;

// True when no frame could do anything before someone wakes the loop: nothing
// sleeps or is scheduled, nothing runs every frame, no worker thread exists,
// nothing waits to be deleted, stopped or reloaded. Read under the global lock,
// since other threads change these lists while they hold it.
bool nothing_to_do(vrkscript& engine) {
    std::lock_guard<std::recursive_mutex> lock(context().global_lock);
    return engine.sleepingBlocks.empty() && engine.newSleepers.empty() &&
           engine.finishedBlocks.empty() && engine.removedSleepers.empty() &&
           engine.parsersToRemove.empty() && engine.pendingThreads.empty() &&
           engine.activeThreads.empty() && engine.deletedObjects.empty() &&
           engine.schedules.empty() && engine.frame_blocks.empty() &&
           engine.objectsBeforeFrame.empty() && engine.objectsAfterFrame.empty() &&
           engine.promptLines.empty() && engine.retiredParsers.empty() &&
           engine.afterRetireCallbacks.empty();
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
        if (nothing_to_do(engine))
            clock->wait_idle(kIdleTimeoutMs);
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
