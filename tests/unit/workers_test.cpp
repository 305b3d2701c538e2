// Worker threads started by returnThread: the immediate start limit and the
// parking beyond it, the drain of parked work by later frames, an exception in
// the work, and the wake-up of the block only after its work has finished.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "host/engine.h"
#include "host/workers.h"
#include "support/program.h"
#include "support/saved_support.h"
#include "vm/sleep.h"

namespace vrk::test {
namespace {

// A gate the workers wait at until the test opens it.
class gate {
public:
    void wait() {
        std::unique_lock<std::mutex> lock(m_);
        cv_.wait(lock, [this] { return open_; });
    }
    void open() {
        {
            std::lock_guard<std::mutex> lock(m_);
            open_ = true;
        }
        cv_.notify_all();
    }

private:
    std::mutex m_;                // guards open_
    std::condition_variable cv_;  // signalled when the gate opens
    bool open_ = false;           // workers may pass
};

std::size_t count_of(const LogRecorder& log, const std::string& text) {
    std::size_t n = 0;
    for (const auto& e : log.entries) n += e.text == text;
    return n;
}

class WorkersTest : public ::testing::Test {
protected:
    void SetUp() override { context().main_thread = current_thread_id(); }

    // Runs frames until `done` holds; false if it never does.
    template <class Done>
    bool frames_until(Done done) {
        for (int i = 0; i < 200000; ++i) {
            if (done()) return true;
            engine.frame();
            std::this_thread::yield();
        }
        return done();
    }

    bool all_finished() {
        for (const auto& r : engine.activeThreads)
            if (!r->finished.load()) return false;
        return true;
    }

    vrkscript engine;  // owns the thread records
    workshop w;        // owns the blocks
};

TEST_F(WorkersTest, ThreeThousandStartsParkTheWorkBeyond2048) {
    gate g;
    std::atomic<int> done{0};
    OwnedCell cell;
    LogRecorder log;
    for (int i = 0; i < 3000; ++i) {
        engine.returnThread(
            [&g, &done](vrkvar*) {
                g.wait();
                done.fetch_add(1);
            },
            nullptr, cell.get());
    }
    EXPECT_EQ(engine.activeThreadCount, kImmediateStartLimit);
    EXPECT_EQ(engine.pendingThreads.size(), 3000u - kImmediateStartLimit);
    EXPECT_EQ(count_of(log, "thread system overload!"), 3000u - kImmediateStartLimit)
        << "one report for each parked call";

    g.open();
    while (!all_finished()) std::this_thread::yield();
    engine.frame();
    // The frame reaped every finished worker, then started parked work while
    // fewer than 128 ran, and said once that the rest must wait.
    EXPECT_EQ(engine.activeThreadCount, kPendingDrainLimit);
    EXPECT_EQ(engine.pendingThreads.size(), 3000u - kImmediateStartLimit - kPendingDrainLimit);
    EXPECT_EQ(count_of(log, "thread system overload!"), 3000u - kImmediateStartLimit + 1);

    ASSERT_TRUE(frames_until(
        [&] { return engine.pendingThreads.empty() && engine.activeThreads.empty(); }));
    EXPECT_EQ(done.load(), 3000);
    EXPECT_EQ(engine.activeThreadCount, 0u);
}

TEST_F(WorkersTest, BlockWakesOnlyAfterItsWorkEndsEvenByAnException) {
    program p = w.block();
    p.block()->engine = &engine;
    p.emit(Op::NOP);
    vrkblock* b = p.block();
    int ends = 0;
    b->get_completion().on_finish = [&ends](vrkblock*, vrkvar*) { ++ends; };

    gate g;
    OwnedCell cell;
    LogRecorder log;
    engine.returnThread(
        [&g](vrkvar* result) {
            g.wait();
            set_int(result, 7);
            throw std::runtime_error("worker failure");
        },
        b, cell.get());
    EXPECT_EQ(b->suspended, 2);
    for (int i = 0; i < 5; ++i) engine.frame();
    EXPECT_EQ(ends, 0) << "the block waits while its work runs";

    g.open();
    ASSERT_TRUE(frames_until([&] { return ends > 0; }));
    EXPECT_EQ(cell->value.i, 7);
    EXPECT_EQ(log.errors(), 0u) << "an exception in the work is dropped silently";
    EXPECT_TRUE(engine.activeThreads.empty());
}

TEST_F(WorkersTest, EmptyWorkLeavesTheBlockAsleep) {
    program p = w.block();
    p.block()->engine = &engine;
    p.emit(Op::NOP);
    vrkblock* b = p.block();
    int ends = 0;
    b->get_completion().on_finish = [&ends](vrkblock*, vrkvar*) { ++ends; };
    OwnedCell cell;
    EXPECT_EQ(engine.returnThread({}, b, cell.get()), cell.get());
    EXPECT_TRUE(engine.activeThreads.empty());
    EXPECT_TRUE(engine.pendingThreads.empty());
    for (int i = 0; i < 5; ++i) engine.frame();
    EXPECT_EQ(ends, 0);
    vrk::sleep(b, 0, false, 0);
    ASSERT_TRUE(frames_until([&] { return ends > 0; }));
}

}  // namespace
}  // namespace vrk::test
