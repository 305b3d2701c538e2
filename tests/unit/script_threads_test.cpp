// Script threads under load, run through an engine in this process so that
// the sanitizers see every step: thousands of sleeping threads, delayed calls
// by the ten thousand, a signal handler with a thousand waiters, and a date
// schedule that fires.
#include <ctime>
#include <string>
#include <vector>

#include "base/log.h"
#include "frontend/parser.h"
#include "host/engine.h"
#include "platform/system.h"
#include "support/program.h"

namespace vrk::test {
namespace {

// Generous bound on frames driven while a script runs.
constexpr int kFrameCap = 2000000;

class ScriptThreadsTest : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        listener = log().addListener([this](ScriptLogType type, const char* text) {
            (type == ScriptLogType::log ? lines : problems).emplace_back(text);
            return true;
        });
    }
    void TearDown() override { log().removeListener(listener); }

    // Loads the script and drives frames until its top block has ended; false
    // when it has not ended within the cap.
    bool run_script(const std::string& text) {
        vrkparser* script = engine.load(text, false, true);
        if (!script || !script->root_block) return false;
        vrkblock* root = script->root_block;
        run(root, nullptr, 0, kSelfUnchanged);
        for (int i = 0; i < kFrameCap && block_active(root); ++i) engine.frame();
        return !block_active(root);
    }

    bool printed(const std::string& text) const {
        for (const auto& line : lines)
            if (line == text) return true;
        return false;
    }

    vrkscript engine;
    uint32_t listener = 0;
    std::vector<std::string> lines;     // printed lines
    std::vector<std::string> problems;  // errors and warnings
};

TEST_F(ScriptThreadsTest, ThreeThousandSleepingThreadsAllCount) {
    // Three functions of a thousand threads each: one function's copies stay
    // under the count that is reported.
    std::string text = "done = 0;\nsteps = 0;\n";
    for (const char* name : {"a", "b", "c"}) {
        text += std::string("sleeper_") + name +
                "(n) {\n"
                "    i = 0;\n"
                "    while (i < 3) {\n"
                "        sleep(mod(n, 4));\n"
                "        steps = steps + 1;\n"
                "        i++;\n"
                "    }\n"
                "    done = done + 1;\n"
                "}\n"
                "k = 0;\n"
                "while (k < 1000) {\n"
                "    thread(sleeper_" +
                name +
                ", k);\n"
                "    k++;\n"
                "}\n";
    }
    text +=
        "while (done < 3000) {\n"
        "    sleep(1);\n"
        "}\n"
        "print(\"done \" + done + \" steps \" + steps);\n";
    ASSERT_TRUE(run_script(text));
    EXPECT_TRUE(printed("done 3000 steps 9000"));
    EXPECT_TRUE(problems.empty()) << problems.front();
}

TEST_F(ScriptThreadsTest, TenThousandDelayedCallsAllRun) {
    const std::string text =
        "calls = 0;\n"
        "job() {\n"
        "    calls = calls + 1;\n"
        "}\n"
        "batch = 0;\n"
        "while (batch < 10) {\n"
        "    k = 0;\n"
        "    while (k < 1000) {\n"
        "        timedexec(job, mod(k, 3));\n"
        "        k++;\n"
        "    }\n"
        "    while (calls < (batch + 1) * 1000) {\n"
        "        yield();\n"
        "    }\n"
        "    batch++;\n"
        "}\n"
        "yield();\n"
        "print(\"calls \" + calls);\n";
    ASSERT_TRUE(run_script(text));
    EXPECT_TRUE(printed("calls 10000"));
    EXPECT_TRUE(problems.empty()) << problems.front();
}

TEST_F(ScriptThreadsTest, AThousandWaitersAreWokenInTheirOrder) {
    const std::string text =
        "s = signalhandler();\n"
        "woken = 0;\n"
        "in_order = 0;\n"
        "waiter(n) {\n"
        "    s.wait();\n"
        "    if (woken == n) {\n"
        "        in_order = in_order + 1;\n"
        "    }\n"
        "    woken = woken + 1;\n"
        "}\n"
        "k = 0;\n"
        "while (k < 1000) {\n"
        "    thread(waiter, k);\n"
        "    k++;\n"
        "}\n"
        "sleep(2);\n"
        "print(\"before \" + woken);\n"
        "s.notify_one();\n"
        "while (woken < 1) {\n"
        "    yield();\n"
        "}\n"
        "s.notify_all();\n"
        "while (woken < 1000) {\n"
        "    yield();\n"
        "}\n"
        "print(\"woken \" + woken + \" in order \" + in_order);\n";
    ASSERT_TRUE(run_script(text));
    EXPECT_TRUE(printed("before 0"));
    EXPECT_TRUE(printed("woken 1000 in order 1000"));
    EXPECT_TRUE(problems.empty()) << problems.front();
}

TEST_F(ScriptThreadsTest, DueScheduleStartsItsFunctionOncePerHourValue) {
    ASSERT_TRUE(
        run_script("runs = 0;\n"
                   "job() {\n"
                   "    runs = runs + 1;\n"
                   "}\n"
                   "print(\"id \" + everyxseconds(job, 1, \"01.01.2000 00:00\"));\n"));
    ASSERT_TRUE(printed("id 0"));
    ASSERT_EQ(engine.schedules.size(), 1u);
    // A start at the top of this hour, and no run in this hour yet: due now,
    // whatever the time of day.
    vrkschedule& record = *engine.schedules.front();
    const int64_t now = platform::unix_time();
    record.start_time = now - now % 3600;
    record.last_run = record.start_time;
    record.last_mark = -1;
    vrkvar* runs = engine.parsers.front()->root_block->find_var("runs");
    ASSERT_NE(runs, nullptr);
    for (int i = 0; i < 100 && to_int(runs) == 0; ++i) engine.frame();
    EXPECT_EQ(to_int(runs), 1);
    for (int i = 0; i < 100; ++i) engine.frame();
    EXPECT_EQ(to_int(runs), 1) << "the hour of the last run is marked";

    // The record goes with its function's block.
    engine.reloadParser(engine.parsers.front().get(), false);
    for (int i = 0; i < 10; ++i) engine.frame();
    EXPECT_TRUE(engine.schedules.empty());
}

}  // namespace
}  // namespace vrk::test
