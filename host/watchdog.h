// The watchdog of one-shot runs: a hard time limit on the whole run.
//
// A one-shot run is meant to end when its script ends. In case it does not,
// a thread watches the clock: it sleeps in short steps (250 ms) until the
// limit (120 s) has passed since the start, then reports "watchdog timeout!"
// and ends the process with the run's exit code. The start time is never
// refreshed, so the limit covers the run as a whole. Stopping the watchdog
// stores 0 as the start time, which makes the elapsed time huge, and wakes the
// thread from its sleep step: it leaves at once without a report, so a run
// that ends does not wait for the rest of a step.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace vrk {

class Watchdog {
public:
    // Time limit of a one-shot run.
    static constexpr int64_t kLimitMs = 120000;
    // Length of one sleep between looks at the clock.
    static constexpr int64_t kPollMs = 250;

    // What happens when the limit is reached; receives the exit code.
    using TimeoutAction = std::function<void(int exitCode)>;

    // Starts the clock and the thread. `exitCode` is read when the limit is
    // reached. Without an action the default one reports and ends the process.
    explicit Watchdog(const int& exitCode, int64_t limitMs = kLimitMs, int64_t pollMs = kPollMs,
                      TimeoutAction onTimeout = {});
    // Stops the watchdog if that has not been done.
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    // Stores 0 as the start time, wakes the thread and waits for it to end.
    void stop();

private:
    void watch();

    std::atomic<int64_t> startTime;  // monotonic ms at the start; 0 once stopped
    const int* exitCode;             // exit code handed to the timeout action
    int64_t limitMs;                 // time limit
    int64_t pollMs;                  // length of one sleep step
    TimeoutAction onTimeout;         // called when the limit is reached
    std::mutex wakeMutex;            // guards the wake-up of a sleep step
    std::condition_variable wake;    // ends a sleep step early when stopped
    std::thread thread;              // the watching thread
};

}  // namespace vrk
