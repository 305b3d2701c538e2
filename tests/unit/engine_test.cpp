// The engine: the frame and its sleeper walk, waking by worker threads,
// schedules, retiring scripts, and the sleep routine that hands waiting
// chains to the frame.
#include <string>
#include <utility>
#include <vector>

#include "base/log.h"
#include "frontend/emit.h"
#include "frontend/parser.h"
#include "host/engine.h"
#include "platform/system.h"
#include "support/program.h"
#include "vm/sleep.h"

namespace vrk::test {
namespace {

// Generous bound on frames driven while waiting for something to happen.
constexpr int kFrameCap = 20000;

// Collects log messages of one type while it exists.
class LogCapture {
public:
    explicit LogCapture(ScriptLogType wanted) {
        id = log().addListener([this, wanted](ScriptLogType type, const char* text) {
            if (type == wanted) lines.emplace_back(text);
            return true;
        });
    }
    ~LogCapture() { log().removeListener(id); }
    bool has(const std::string& text) const {
        for (const auto& line : lines)
            if (line.find(text) != std::string::npos) return true;
        return false;
    }
    std::vector<std::string> lines;  // message texts without prefix

private:
    uint32_t id = 0;
};

class EngineTest : public ::testing::Test {
protected:
    void SetUp() override { context().main_thread = current_thread_id(); }

    // A block of this engine with `count` NOP instructions; deleted with the test.
    vrkblock* idle_block(int count = 1) {
        program p = w.block();
        p.block()->engine = &engine;
        for (int i = 0; i < count; ++i) p.emit(Op::NOP);
        return p.block();
    }

    // Counts the runs of `b` that end, through its completion callback.
    static void count_ends(vrkblock* b, int& ends) {
        b->get_completion().on_finish = [&ends, b](vrkblock*, vrkvar*) {
            ++ends;
            count_ends(b, ends);
        };
    }

    // Runs frames until `done` holds or the cap is reached; true if it held.
    template <class Done>
    bool frames_until(Done done) {
        for (int i = 0; i < kFrameCap; ++i) {
            if (done()) return true;
            engine.frame();
            platform::sleep_ms(1);
        }
        return done();
    }

    vrkscript engine;  // declared first: blocks of the workshop refer to it
    workshop w;
};

TEST_F(EngineTest, FrameReportsWhetherBlocksWereSuspendedDuringIt) {
    EXPECT_FALSE(engine.frame()) << "nothing to do";

    vrkblock* waiting = idle_block();
    vrkblock* other = idle_block();
    ASSERT_EQ(vrk::sleep(waiting, kSleepUntilWoken, false, 0), 1);
    EXPECT_FALSE(engine.frame()) << "a block queued before the frame is merged, not counted";
    ASSERT_EQ(engine.sleepingBlocks.size(), 1u);

    int ticks = 0;
    waiting->get_completion().on_tick = [&](vrkblock*) {
        if (ticks++ == 0) vrk::sleep(other, kSleepUntilWoken, false, 0);
    };
    EXPECT_TRUE(engine.frame()) << "a block went to sleep during this frame";
    EXPECT_FALSE(engine.frame());
    EXPECT_EQ(ticks, 2) << "a block waiting until woken is ticked on every pass";
    EXPECT_EQ(engine.sleepingBlocks.size(), 2u) << "blocks waiting until woken stay listed";
    EXPECT_TRUE(waiting->sleeping);
}

TEST_F(EngineTest, SleepingBlockRunsOnlyAfterItsTime) {
    vrkblock* b = idle_block(3);
    int ends = 0;
    count_ends(b, ends);
    b->resume_at = 1;  // as a run that suspended before its second instruction
    const int64_t start = platform::monotonic_ms();
    ASSERT_EQ(vrk::sleep(b, 30, false, 0), 1);
    EXPECT_TRUE(b->sleeping);
    EXPECT_TRUE(b->busy());

    ASSERT_TRUE(frames_until([&] { return ends > 0; }));
    EXPECT_GE(platform::monotonic_ms(), start + 30) << "never resumed early";
    EXPECT_EQ(ends, 1);
    EXPECT_FALSE(b->busy());
    EXPECT_EQ(b->resume_at, 0u);
    engine.frame();
    EXPECT_TRUE(engine.sleepingBlocks.empty()) << "an ended block leaves the list";
}

TEST_F(EngineTest, ScriptCallingSleepResumesWhereItStopped) {
    vrkvar* sleepCell = engine.firstBlock->find_var("sleep");
    ASSERT_NE(sleepCell, nullptr);
    std::vector<int64_t> probes;
    program probe = w.native(
        "probe",
        [&probes](vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& r) {
            probes.push_back(platform::monotonic_ms());
            return &r;
        },
        0);

    // A function that sleeps, called by the top block, which probes afterwards.
    program f = w.function(0);
    f.block()->engine = &engine;
    const uint32_t sleepFn = f.function_var("sleep", sleepCell->block);
    const uint32_t ms = f.constant(40);
    f.call(sleepFn, {ms});
    program top = w.block();
    top.block()->engine = &engine;
    const uint32_t fn = top.function_var("f", f.block());
    const uint32_t probeFn = top.function_var("probe", probe.block());
    top.call(fn, {}).call(probeFn, {});

    const int64_t start = platform::monotonic_ms();
    EXPECT_EQ(top.run(), kSuspended);
    EXPECT_TRUE(probes.empty()) << "the top block stopped at the call";
    EXPECT_TRUE(top.block()->sleeping) << "the outermost block of the chain sleeps";
    EXPECT_FALSE(f.block()->sleeping);
    ASSERT_EQ(engine.newSleepers, std::vector<vrkblock*>{top.block()});

    ASSERT_TRUE(frames_until([&] { return !probes.empty(); }));
    EXPECT_GE(probes.front(), start + 40);
    EXPECT_EQ(probes.size(), 1u);
    EXPECT_FALSE(top.block()->busy());
    EXPECT_FALSE(f.block()->busy());
}

TEST_F(EngineTest, BlockDestroyedDuringTheWalkEndsThatFramesWalk) {
    vrkblock* first = idle_block();
    vrkblock* second = idle_block();
    vrkblock* doomed = block_new(&engine);
    int firstEnds = 0, secondEnds = 0;
    count_ends(second, secondEnds);
    first->get_completion().on_finish = [&](vrkblock*, vrkvar*) {
        ++firstEnds;
        block_delete(doomed);
    };
    for (vrkblock* b : {first, second, doomed}) vrk::sleep(b, 0, false, 0);

    engine.frame();
    EXPECT_EQ(firstEnds, 1);
    EXPECT_EQ(secondEnds, 0) << "the walk stopped when a block died";
    ASSERT_EQ(engine.sleepingBlocks.size(), 1u) << "the ended and the dead entry are swept";
    EXPECT_EQ(engine.sleepingBlocks[0].get(), second);

    engine.frame();
    EXPECT_EQ(secondEnds, 1) << "the rest follow in the next frame";
    EXPECT_TRUE(engine.sleepingBlocks.empty());
}

TEST_F(EngineTest, SleepWalksUpTheCallerChain) {
    vrkblock* outer = idle_block();
    vrkblock* middle = idle_block();
    vrkblock* inner = idle_block();
    outer->caller = outer;
    middle->caller = outer;
    inner->caller = middle;
    EXPECT_EQ(vrk::sleep(inner, 10, false, 0), 1);
    EXPECT_TRUE(outer->sleeping);
    EXPECT_FALSE(inner->sleeping);
    EXPECT_EQ(outer->sleep_ms, 10);
    EXPECT_EQ(engine.newSleepers, std::vector<vrkblock*>{outer});
    EXPECT_EQ(vrk::sleep(middle, 20, false, 0), 1);
    EXPECT_EQ(engine.newSleepers.size(), 1u) << "a block is listed once";
    EXPECT_EQ(outer->sleep_ms, 20);

    // A block holding a thread wait ends the walk; a loop in the chain too.
    vrkblock* waiter = idle_block();
    vrkblock* a = idle_block();
    vrkblock* b = idle_block();
    waiter->wait_mode = 1;
    a->caller = b;
    b->caller = a;
    inner->caller = waiter;
    waiter->caller = outer;
    vrk::sleep(inner, 5, false, 0);
    EXPECT_TRUE(waiter->sleeping);
    vrk::sleep(a, 5, false, 0);
    EXPECT_TRUE(a->sleeping || b->sleeping);

    // With hold the block itself starts a separate run from its beginning.
    vrkblock* held = idle_block();
    held->caller = outer;
    held->resume_at = 4;
    vrk::sleep(held, 0, true, 3);
    EXPECT_TRUE(held->sleeping && held->hold);
    EXPECT_EQ(held->wait_mode, 3);
    EXPECT_EQ(held->resume_at, 0u);
    waiter->wait_mode = 0;
    held->wait_mode = 0;

    LogCapture logs(ScriptLogType::log);
    vrkblock* dying = idle_block();
    dying->destructing = 1;
    EXPECT_EQ(vrk::sleep(dying, 5, false, 0), 0);
    EXPECT_TRUE(logs.has("cannot sleep while destructing!"));
    EXPECT_FALSE(dying->sleeping);
    dying->destructing = 0;
    vrkblock* loose = block_new(nullptr);
    EXPECT_EQ(vrk::sleep(loose, 5, false, 0), 0) << "no engine, no scheduler";
    block_delete(loose);
}

TEST_F(EngineTest, FinishedWorkerWakesItsBlockAndIsReaped) {
    vrkblock* b = idle_block();
    int ends = 0;
    count_ends(b, ends);
    vrk::sleep(b, kSleepUntilWoken, false, 0);
    auto record = std::make_unique<vrkthread_record>();
    vrkthread_record* raw = record.get();
    raw->block = b;
    raw->body = [raw] { raw->finished.store(1); };
    engine.pendingThreads.push_back(std::move(record));

    ASSERT_TRUE(frames_until([&] { return ends > 0; }));
    EXPECT_TRUE(engine.pendingThreads.empty());
    EXPECT_TRUE(engine.activeThreads.empty());
    EXPECT_EQ(engine.activeThreadCount, 0u);
}

TEST_F(EngineTest, PendingThreadsWaitWhileTooManyRun) {
    LogCapture errors(ScriptLogType::error);
    engine.activeThreadCount = 128;
    engine.pendingThreads.push_back(std::make_unique<vrkthread_record>());
    engine.frame();
    EXPECT_EQ(engine.pendingThreads.size(), 1u);
    EXPECT_TRUE(errors.has("thread system overload!"));
    engine.activeThreadCount = 0;
}

TEST_F(EngineTest, ScheduleDueTest) {
    // 2024-01-01 10:30:00 UTC.
    constexpr int64_t start = 1704105000;
    vrkschedule s;
    s.kind = schedule_kind::hours;
    s.period = 2;
    s.start_time = s.last_run = start;
    EXPECT_TRUE(schedule_due(s, start + 2 * 3600)) << "12:30, two hours on";
    s.period = 3;
    EXPECT_FALSE(schedule_due(s, start + 2 * 3600))
        << "(last_run - now) in 32 bits: 2^32-2 is no multiple of 3";
    s.period = 1;
    EXPECT_FALSE(schedule_due(s, start + 2 * 3600 - 60)) << "12:29: minute under the start's";
    EXPECT_FALSE(schedule_due(s, start - 4 * 3600)) << "06:30: hour under the start's hour";
    EXPECT_FALSE(schedule_due(s, start + 3600 + 1800))
        << "12:00 is later than 10:30, yet its minute is under 30: the fields compare one by one";
    s.period = 0;
    EXPECT_FALSE(schedule_due(s, start + 2 * 3600));
    s.period = 2;
    s.kind = 7;
    EXPECT_FALSE(schedule_due(s, start + 2 * 3600));

    s.kind = schedule_kind::hours;
    schedule_mark_run(s, start + 2 * 3600);
    EXPECT_EQ(s.last_run, start + 2 * 3600);
    EXPECT_EQ(s.last_mark, 12);
    EXPECT_FALSE(schedule_due(s, start + 2 * 3600 + 5)) << "at most once per hour value";

    s.kind = schedule_kind::days;
    s.period = 1;
    s.last_run = start;
    schedule_mark_run(s, start + 86400);
    EXPECT_EQ(s.last_mark, 10) << "the hour is kept even for days";
    EXPECT_TRUE(schedule_due(s, start + 86400 + 60))
        << "days compare the day of the month (2) with 10";
}

TEST_F(EngineTest, OneScheduleIsHandledPerFrameInTurn) {
    int runs[2] = {0, 0};
    for (int i = 0; i < 2; ++i) {
        vrkschedule* s = engine.addSchedule();
        EXPECT_EQ(s->id, static_cast<uint64_t>(i));
        s->kind = schedule_kind::seconds;
        s->period = 1;
        s->last_mark = -1;
        s->task = [&runs, i] {
            ++runs[i];
            return false;  // not marked as run: due again
        };
    }
    for (int i = 0; i < 5; ++i) engine.frame();
    EXPECT_EQ(runs[0], 3);
    EXPECT_EQ(runs[1], 2);

    vrkschedule* first = engine.schedules.front().get();
    engine.removeSchedule(first);
    engine.removeSchedule(first);
    ASSERT_EQ(engine.schedules.size(), 1u);
    engine.frame();
    EXPECT_EQ(runs[1], 3) << "the cursor wraps to the remaining record";
}

TEST_F(EngineTest, RetiredScriptLivesUntilItsBlocksAreDone) {
    vrkparser* idle = engine.load("x = 1;", false, true);
    ASSERT_NE(idle, nullptr);
    ASSERT_NE(idle->root_block, nullptr);
    bool idleGone = false;
    engine.reloadParser(idle, false, [&] { idleGone = true; });
    EXPECT_TRUE(idleGone) << "a script with nothing active is destroyed at once";
    EXPECT_TRUE(engine.parsers.empty());
    EXPECT_TRUE(engine.retiredParsers.empty());

    vrkparser* busy = engine.load("y = 2;", false, true);
    ASSERT_NE(busy, nullptr);
    vrkblock* waiting = vrkblock::add_child(busy->root_block, "");
    vrk::sleep(waiting, kSleepUntilWoken, true, 0);
    bool busyGone = false;
    engine.reloadParser(busy, false, [&] { busyGone = true; });
    EXPECT_FALSE(busyGone);
    EXPECT_TRUE(engine.parsers.empty()) << "taken out of the list though still alive";
    ASSERT_EQ(engine.retiredParsers.size(), 1u);
    for (int i = 0; i < 3; ++i) engine.frame();
    EXPECT_EQ(engine.retiredParsers.size(), 1u) << "survives while its block waits";

    vrk::sleep(waiting, 0, false, 0);
    ASSERT_TRUE(frames_until([&] { return busyGone; }));
    EXPECT_TRUE(engine.retiredParsers.empty());

    LogCapture errors(ScriptLogType::error);
    engine.reloadParser(busy, false);
    EXPECT_TRUE(errors.has("parser not found!"));
}

TEST_F(EngineTest, RecompileReportsDisabledAndDropsDisposableScripts) {
    vrkparser* kept = engine.load("a = 1;", false, true);
    vrkparser* dropped = engine.load("b = 2;", false, true);
    vrkparser* leaving = engine.load("c = 3;", false, true);
    ASSERT_TRUE(kept && dropped && leaving);
    dropped->disposable = 1;

    LogCapture errors(ScriptLogType::error);
    LogCapture warnings(ScriptLogType::warning);
    engine.reloadParser(leaving, true);
    EXPECT_TRUE(errors.has("-----DISABLED-----"));
    EXPECT_TRUE(warnings.has("------RECOMPILE-------"));
    EXPECT_TRUE(warnings.has("------DONE-------"));
    ASSERT_EQ(engine.parsers.size(), 1u);
    EXPECT_EQ(engine.parsers[0].get(), kept);
    EXPECT_EQ(kept->compiled, 1);
}

TEST_F(EngineTest, ExitStopsTheCallingScriptAtTheNextFrame) {
    vrkvar* exitCell = engine.firstBlock->find_var("exit");
    ASSERT_NE(exitCell, nullptr);
    vrknative* record = exitCell->value.native;
    vrkparser* script = engine.load("z = 3;", false, true);
    ASSERT_TRUE(script && script->root_block);
    vrkblock* inner = vrkblock::add_child(script->root_block, "");

    LogCapture logs(ScriptLogType::log);
    vrkvar result;
    vrkvar* why = cell_new(Tag::INT);
    set_string(why, "done");
    std::vector<vrkvar*> args{why};
    record->fn(inner, args, record->user, result);
    EXPECT_TRUE(logs.has("EXIT: done"));
    EXPECT_EQ(engine.parsers.size(), 1u) << "the script ends at the engine's next turn";
    engine.frame();
    EXPECT_TRUE(logs.has("remove parser..."));
    EXPECT_TRUE(engine.parsers.empty());

    LogCapture errors(ScriptLogType::error);
    vrkblock* loose = idle_block();
    record->fn(loose, args, record->user, result);
    EXPECT_TRUE(errors.has("parser not found for block!"));
    cell_free(why);
}

TEST_F(EngineTest, SecondRegistrationOfANameIsReported) {
    LogCapture errors(ScriptLogType::error);
    auto nothing = [](vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& r) { return &r; };
    vrkvar* before = engine.firstBlock->find_var("print");
    vrkvar* again = engine.registerFunction("print", nothing, 3, nullptr, "other", true, true);
    EXPECT_EQ(again, before) << "the global keeps its cell";
    EXPECT_EQ(again->aux, 3);
    EXPECT_TRUE(errors.has("double global function print !"));
}

}  // namespace
}  // namespace vrk::test
