// Tests of the one-shot watchdog: it fires once its limit has passed, and a
// stopped watchdog never fires.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>

#include "host/watchdog.h"

namespace vrk {
namespace {

TEST(Watchdog, ReportsTheStoredExitCodeWhenTheLimitHasPassed) {
    const int exitCode = 7;
    std::promise<int> fired;
    Watchdog watchdog(exitCode, 0, 1, [&fired](int code) { fired.set_value(code); });
    std::future<int> result = fired.get_future();
    // A watchdog that never fires fails here instead of hanging the suite.
    ASSERT_EQ(result.wait_for(std::chrono::seconds(60)), std::future_status::ready)
        << "never fired";
    EXPECT_EQ(result.get(), 7);
    watchdog.stop();
}

TEST(Watchdog, StoppedBeforeTheLimitNeverFires) {
    const int exitCode = 0;
    std::atomic<int> calls{0};
    {
        Watchdog watchdog(exitCode, Watchdog::kLimitMs, 1, [&calls](int) { ++calls; });
        watchdog.stop();
        watchdog.stop();  // a second stop is harmless
    }
    {
        // Destruction stops a running watchdog too.
        Watchdog watchdog(exitCode, Watchdog::kLimitMs, 1, [&calls](int) { ++calls; });
    }
    EXPECT_EQ(calls.load(), 0);
}

}  // namespace
}  // namespace vrk
