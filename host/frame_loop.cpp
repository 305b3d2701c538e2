// The frame loop of the main thread, and its hand-over to a frame thread.
#include "host/frame_loop.h"

#include <thread>

#include "base/context.h"
#include "host/engine.h"
#include "host/host_state.h"
#include "host/run_modes.h"
#include "platform/frame_clock.h"

namespace vrk {

void frame_step(vrkscript& engine, platform::FrameClock* clock) {
    vrkhost_state& host = host_state();
    const bool queued = run_frame(engine);
    const bool keepRunning = host.keepRunningRequested != 0;
    host.keepRunningRequested = 0;
    if (queued || keepRunning) return;
    // A wake that came during the frame is not waited for.
    if (host.wakeRequested.load() == 0 && clock) clock->wait();
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
