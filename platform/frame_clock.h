// The pace of the frame loop: a periodic 1 ms tick and a wake-up that any
// thread can send.
//
// Between frames the main thread sleeps until either the next tick comes or
// someone wakes it (a worker that finished, a file that changed). The clock
// hides how that is done: a waitable timer and an event on Windows, a timerfd
// and an eventfd waited on together on Linux. A wake-up is consumed by the
// wait it ends, so one wake ends exactly one wait.
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

private:
    FrameClock(std::intptr_t timer, std::intptr_t event) : timerHandle(timer), eventHandle(event) {}

    std::intptr_t timerHandle;  // the periodic timer (a descriptor or a handle)
    std::intptr_t eventHandle;  // the wake event (a descriptor or a handle)
};

}  // namespace vrk::platform
