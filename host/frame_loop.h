// The frame loop: what the main thread does once a script has started.
//
// The engine's `frame` does one pass of housekeeping and scheduling. The loop
// calls it again and again; after a frame in which no block was suspended and
// no script asked to keep running, it sleeps until the next 1 ms tick of the
// frame clock or until another thread wakes it through the process context's
// wake callback. When every list of the engine is empty (nothing sleeps, is
// scheduled or runs each frame, and no worker exists) it does not tick at all
// and waits for a wake-up alone. Without a clock (one-shot runs have none, and creating one may
// fail) the wait ends at once and the loop polls.
//
// A native module may claim the main thread by setting the engine's
// `mainThreadHandler`. The loop then moves to a thread of its own, where it
// runs for ever, and the main thread calls the handler.
#pragma once

namespace vrk {

class vrkscript;

namespace platform {
class FrameClock;
}

// One round of the loop: a frame, then the wait when there is nothing to do.
void frame_step(vrkscript& engine, platform::FrameClock* clock);

// The loop of a normal run. Only the script functions that end the process
// end it.
void run_frame_loop(vrkscript& engine, platform::FrameClock* clock);

}  // namespace vrk
