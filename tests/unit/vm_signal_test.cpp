// Nested bodies (RUN_CHILD): how `return`, `break` and `continue` travel up,
// where they stop, and the suspension of a body.
#include <string>
#include <vector>

#include "frontend/emit.h"
#include "support/program.h"

namespace vrk::test {
namespace {

using VmSignalTest = VmTest;

TEST_F(VmSignalTest, ReturnInsideNestedBodiesEndsTheFunction) {
    program f = w.function(0);
    program outer = w.child(f);
    program inner = w.child(outer);
    inner.load(inner.constant(42)).ret();
    outer.emit(Op::RUN_CHILD, 0, outer.ref()).load(outer.constant(70));
    f.emit(Op::RUN_CHILD, 0, f.ref()).load(f.constant(90));

    vrkvar* r = f.run();
    EXPECT_EQ(r, &inner.block()->result) << "the body's result is passed on, nothing behind runs";
    EXPECT_EQ(to_int(r), 42);
    EXPECT_FALSE(f.block()->return_signal) << "the function body absorbs the signal";
    EXPECT_FALSE(outer.block()->return_signal);
    EXPECT_FALSE(inner.block()->return_signal);
}

TEST_F(VmSignalTest, BreakDoesNotCrossACall) {
    program fn = w.function(0);
    fn.emit(Op::BREAK, 0, fn.ref());
    program loop_body = w.block();
    loop_body.block()->is_loop_body = 1;
    const uint32_t after = loop_body.variable("after");
    loop_body.call(loop_body.function_var("f", fn.block()), {}).load(after).emit(Op::INC);
    loop_body.run();
    EXPECT_EQ(to_int(loop_body.var(after)), 1) << "a break in a function only ends the function";
    EXPECT_FALSE(loop_body.block()->loop_signal);

    // A callee that is no function body ends the caller too, but the signal
    // arrives as zero.
    program body = w.block();
    body.emit(Op::BREAK, 0, body.ref());
    program caller = w.block();
    const uint32_t later = caller.variable("later");
    caller.call(caller.function_var("g", body.block()), {}).load(later).emit(Op::INC);
    caller.run();
    EXPECT_EQ(to_int(caller.var(later)), 0);
    EXPECT_FALSE(caller.block()->loop_signal);
    EXPECT_EQ(caller.temps_in_use(), 0);
}

TEST_F(VmSignalTest, BreakLeavesTheLoopAndContinueStopsAtTheBody) {
    for (int64_t kind_of_break : {0, 1}) {
        // while (c < 3) { c++; { break or continue; } after++; }
        program p = w.block();
        const uint32_t c = p.variable("c");
        const uint32_t after = p.variable("after");
        program body = w.child(p);
        body.block()->is_loop_body = 1;
        program branch = w.child(body);
        branch.emit(Op::BREAK, kind_of_break, branch.ref());
        body.load_from(p, c)
            .emit(Op::INC)
            .emit(Op::RUN_CHILD, 0, body.ref())
            .load_from(p, after)
            .emit(Op::INC);
        p.emit(Op::RUN_CHILD, 0, p.ref());  // 0
        p.load(c)
            .emit(Op::ARG, 0, 1)
            .load(p.constant(3))
            .emit(Op::CMP, cmp_code::LESS, p.ref());  // 1-4
        p.emit(Op::JMP_FALSE_LOOP, 1, p.ref())
            .emit(Op::JMP, -7, p.ref())
            .emit(Op::NOP);  // 5 -> 8, 6 -> 0
        p.run();
        EXPECT_EQ(to_int(p.var(c)), kind_of_break == 0 ? 1 : 3);
        EXPECT_EQ(to_int(p.var(after)), 0) << "the rest of the body is skipped";
        EXPECT_FALSE(p.block()->loop_signal) << "the exit test clears the signal";
    }
}

TEST_F(VmSignalTest, SuspendedBodySuspendsItsParentUntilResumed) {
    int calls = 0;
    program nap = w.native(
        "nap",
        [&calls](vrkblock* caller, std::vector<vrkvar*>&, void*, vrkvar&) -> vrkvar* {
            if (calls++ == 0) caller->suspended = 2;
            return nullptr;
        },
        0);
    program p = w.block();
    const uint32_t after = p.variable("after");
    program body = w.child(p);
    const uint32_t inside = body.variable("inside");
    body.call(body.function_var("nap", nap.block()), {}).load(inside).emit(Op::INC);
    p.emit(Op::NOP).emit(Op::RUN_CHILD, 0, p.ref()).load(after).emit(Op::INC);

    EXPECT_EQ(p.run(), kSuspended);
    EXPECT_EQ(p.block()->resume_at, 1u) << "the RUN_CHILD resumes the body";
    EXPECT_EQ(p.block()->waiting_on, body.block());
    EXPECT_EQ(to_int(body.var(inside)), 0);

    EXPECT_NE(p.resume(), kSuspended);
    EXPECT_EQ(to_int(body.var(inside)), 1);
    EXPECT_EQ(to_int(p.var(after)), 1);
    EXPECT_EQ(p.block()->waiting_on, nullptr);
}

TEST_F(VmSignalTest, AResumedReturnFinishesWithoutChecks) {
    program p = w.block();
    p.emit(Op::NOP).emit(Op::PUSH, 2, 0).ret();
    std::string out = output_of([&] { p.run(); });
    EXPECT_NE(out.find("Runtime error: STACK_CORRUPT\n"), std::string::npos) << out;
    EXPECT_NE(out.find("stack size: 3"), std::string::npos) << out;

    out = output_of([&] { p.run(2); });
    EXPECT_EQ(out.find("STACK_CORRUPT"), std::string::npos) << out;
    EXPECT_TRUE(p.block()->return_signal);
}

}  // namespace
}  // namespace vrk::test
