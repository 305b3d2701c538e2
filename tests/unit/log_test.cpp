// Tests of the log object: line formats, literal and re-interpreted text,
// listeners, the re-entry guard and the syntax reports.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "frontend/compile_state.h"
#include "frontend/syntax_error.h"
#include "platform/console.h"
#include "vm/block.h"

namespace vrk {
namespace {

class LogTest : public ::testing::Test {
protected:
    void SetUp() override { context().main_thread = current_thread_id(); }

    // Runs fn with standard output captured and returns what it wrote.
    template <class F>
    static std::string captured(F fn) {
        testing::internal::CaptureStdout();
        fn();
        platform::flush_stdout();
        return testing::internal::GetCapturedStdout();
    }
};

TEST_F(LogTest, WritersPrefixTheirLinesWithoutColourOnAFile) {
    const std::string out = captured([] {
        log().error("e %d", 1);
        log().warn("w %s", "two");
        log().log("l %c", '3');
        set_console_colour(4);
    });
    // Captured stdout is a file, so no escape sequence may appear.
    EXPECT_EQ(out, "[ERR]: e 1\n[WARN]: w two\n[LOG]: l 3\n");
}

TEST_F(LogTest, NullFormatReturnsAtOnce) {
    int calls = 0;
    const uint32_t id = log().addListener([&](ScriptLogType, const char*) {
        ++calls;
        return true;
    });
    const char* none = nullptr;
    const std::string out = captured([&] {
        log().log(nullptr);
        log().error(nullptr);
        log().warn(nullptr);
        log().raw(nullptr);
        log().logText(none);
        log().errorNamed(nullptr, nullptr);
    });
    EXPECT_EQ(out, "");
    EXPECT_EQ(calls, 0);
    log().removeListener(id);
}

TEST_F(LogTest, LogTextKeepsPercentSignsAndCutsAtTheBuffer) {
    EXPECT_EQ(captured([] { log().logText("100% %d %s %%"); }), "[LOG]: 100% %d %s %%\n");

    const std::string huge(2 * kLogBufferSize, 'x');
    const std::string out = captured([&] { log().logText(huge.c_str()); });
    EXPECT_EQ(out.size(), std::string("[LOG]: ").size() + kLogBufferSize - 1 + 1);
    EXPECT_EQ(out.back(), '\n');
}

TEST_F(LogTest, RawInterpretsPercentASecondTime) {
    // First pass: %s takes the argument; second pass: the result is a format.
    EXPECT_EQ(captured([] { log().raw("%s", "50%% done"); }), "50% done");
    // Missing arguments read as zero; unknown conversions stay as written.
    EXPECT_EQ(captured([] { log().raw("%s", "[%d|%5.1f|%y|%s|%n]"); }), "[0|  0.0|%y|(null)|]");
    // A caller may format into the buffer itself: no first pass then, only the second.
    // The buffer is the format on purpose here, which the format checks flag.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    EXPECT_EQ(captured([] {
                  std::snprintf(log().buffer(), kLogBufferSize, "%s", "a%%b");
                  log().raw(log().buffer());
              }),
              "a%b");
#pragma GCC diagnostic pop
}

TEST_F(LogTest, ListenersSeeTypeAndTextAndLeaveWhenTheyReturnFalse) {
    std::vector<std::pair<ScriptLogType, std::string>> seen;
    int once_calls = 0;
    const std::size_t before = log().listenerCount();
    const uint32_t keep = log().addListener([&](ScriptLogType t, const char* text) {
        seen.emplace_back(t, text);
        return true;
    });
    const uint32_t once = log().addListener([&](ScriptLogType, const char*) {
        ++once_calls;
        return false;
    });
    EXPECT_GT(keep, 0u);
    EXPECT_EQ(once, keep + 1);

    captured([] {
        log().error("bad %d", 7);
        log().warn("careful");
        log().logText("50%");
    });
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0].first, ScriptLogType::error);
    EXPECT_EQ(seen[0].second, "bad 7");
    EXPECT_EQ(seen[1].first, ScriptLogType::warning);
    EXPECT_EQ(seen[2], std::make_pair(ScriptLogType::log, std::string("50%")));
    EXPECT_EQ(once_calls, 1);
    EXPECT_EQ(log().listenerCount(), before + 1);

    EXPECT_TRUE(log().removeListener(keep));
    EXPECT_FALSE(log().removeListener(keep));
    EXPECT_EQ(log().listenerCount(), before);
}

TEST_F(LogTest, ListenerThatLogsProducesNoNestedLine) {
    int calls = 0;
    const uint32_t id = log().addListener([&](ScriptLogType, const char*) {
        ++calls;
        log().logText("nested");
        log().error("nested %d", 2);
        return true;
    });
    const std::string out = captured([] { log().log("outer"); });
    EXPECT_EQ(out, "[LOG]: outer\n");
    EXPECT_EQ(calls, 1);
    log().removeListener(id);
}

// Between frames the main thread writes without the script lock, while a
// worker writes under it: their messages take turns, and none is lost.
TEST_F(LogTest, ThreadsTakeTurnsAndNoMessageIsLost) {
    constexpr int kEach = 20000;
    std::atomic<int> seen{0};
    // The listener takes its time, so that each message is long under way.
    const uint32_t id = log().addListener([&](ScriptLogType, const char* text) {
        volatile std::size_t sum = 0;
        for (int round = 0; round < 200; ++round) sum = sum + std::strlen(text);
        seen.fetch_add(1, std::memory_order_relaxed);
        return true;
    });
    const bool wasQuiet = log().quiet;
    log().quiet = true;  // plain lines are not shown; listeners see them all
    std::atomic<bool> go{false};
    std::thread worker([&go] {
        while (!go.load()) std::this_thread::yield();
        for (int i = 0; i < kEach; ++i) log().log("worker %d", i);
    });
    go.store(true);
    for (int i = 0; i < kEach; ++i) log().log("main %d", i);
    worker.join();
    log().quiet = wasQuiet;
    log().removeListener(id);
    EXPECT_EQ(seen.load(), 2 * kEach);
}

TEST_F(LogTest, ListenerMayRemoveItselfWhileListenersRun) {
    int self_calls = 0;
    int next_calls = 0;
    uint32_t self = 0;
    self = log().addListener([&](ScriptLogType, const char*) {
        ++self_calls;
        EXPECT_TRUE(log().removeListener(self));
        return true;
    });
    const uint32_t next = log().addListener([&](ScriptLogType, const char*) {
        ++next_calls;
        return true;
    });
    captured([] {
        log().log("one");
        log().log("two");
    });
    EXPECT_EQ(self_calls, 1);
    EXPECT_EQ(next_calls, 2);
    EXPECT_FALSE(log().removeListener(self));
    EXPECT_TRUE(log().removeListener(next));
}

TEST_F(LogTest, ErrorNamedIsSilent) {
    int calls = 0;
    const uint32_t id = log().addListener([&](ScriptLogType, const char*) {
        ++calls;
        return true;
    });
    static const char* const name = "substr";
    const std::string out = captured([] { log().errorNamed(&name, "wrong %s", "call"); });
    EXPECT_EQ(out, "");
    EXPECT_EQ(calls, 0);
    // The guard is released afterwards.
    EXPECT_EQ(captured([] { log().log("after"); }), "[LOG]: after\n");
    log().removeListener(id);
}

TEST_F(LogTest, SyntaxReportsNameFileAndLine) {
    EXPECT_EQ(captured([] { syntaxError("bad token", nullptr); }),
              "[ERR]: \n\nINTERNAL FAILURE! bad token\n");

    vrkblock block(nullptr);
    EXPECT_EQ(captured([&] { syntaxError("no state", &block); }),
              "[ERR]: \n\nINTERNAL FAILURE! no state\n");
    EXPECT_EQ(captured([&] { syntaxWarning(&block); }),
              "[ERR]: \n\nINTERNAL FAILURE! deprecated\n");

    compile_state state;
    state.line_number = 12;
    block.compile_state_ptr = &state;
    EXPECT_EQ(captured([&] { syntaxError("bad token", &block); }),
              "[ERR]: \n\nSyntax error: bad token\nIn file: MEMORY\nLine Number: 12\n\n");

    state.file_stack = {"main.vrs", "include/lib.vrs"};
    state.line_number = 3;
    EXPECT_EQ(captured([&] { syntaxWarning(&block); }),
              "[WARN]: \n\nSyntax error: deprecated\nIn file: include/lib.vrs\nLine Number: 3\n\n");
    block.compile_state_ptr = nullptr;
}

}  // namespace
}  // namespace vrk
