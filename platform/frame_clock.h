// The pace of the frame loop: a periodic 1 ms tick and a wake-up that any
// thread can send.
//
// Between frames the main thread sleeps until either the next tick comes or
// someone wakes it (a worker that finished, a file that changed). The clock
// hides how that is done: a waitable timer and an event on Windows, a timerfd
// and an eventfd waited on together on Linux. A wake-up is consumed by the
// wait it ends, so one wake ends exactly one wait.
//
// A host with nothing to do need not tick at all: `wait_idle` stops the timer,
// waits for a wake-up alone (or a long safety time-out), and starts the timer
// again before it returns, so the next `wait` ticks as before.
#pragma once

#include <cstdint>
#include <memory>

namespace vrk::platform {

class FrameClock {
public:
    // Period of the tick in milliseconds.
    static constexpr int kPeriodMs = 1;

    // Creates and arms the clock. On failure returns null and stores the
    // system error number in `error`.
    static std::unique_ptr<FrameClock> create(int& error);

    ~FrameClock();
    FrameClock(const FrameClock&) = delete;
    FrameClock& operator=(const FrameClock&) = delete;

    // Ends the current or the next wait; callable from any thread.
    void wake();
    // Blocks until the next tick or a wake-up. False when the wait itself
    // failed (it then returns at once).
    bool wait();
    // Blocks until a wake-up or `timeoutMs` milliseconds, with the tick
    // stopped meanwhile. False when the wait itself failed.
    bool wait_idle(int timeoutMs);

private:
    FrameClock(std::intptr_t timer, std::intptr_t event) : timerHandle(timer), eventHandle(event) {}

    std::intptr_t timerHandle;  // the periodic timer (a descriptor or a handle)
    std::intptr_t eventHandle;  // the wake event (a descriptor or a handle)
};

}  // namespace vrk::platform
