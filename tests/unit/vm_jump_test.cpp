// Jumps: distances, restarts, the bounds rules and the object exception of
// JMP_FALSE.
#include <string>

#include "objects/object.h"
#include "support/program.h"

namespace vrk::test {
namespace {

using VmJumpTest = VmTest;

// An object whose integer value is 0.
class zero_object : public vrkobject {
public:
    int64_t toInt() override { return 0; }
};

// A counting loop: c += 1 while c < 3, closed by a JMP with distance `back`.
int64_t count_with_back_jump(workshop& w, int64_t back) {
    program p = w.block();
    const uint32_t c = p.variable("c");
    const uint32_t three = p.constant(3);
    p.load(c).emit(Op::INC);                                                // 0 1
    p.load(c).emit(Op::ARG, 0, 1).load(three).emit(Op::CMP, 5, p.ref());   // 2 3 4 5
    p.emit(Op::JMP_FALSE, 1, p.ref());                                      // 6 -> 9 = end
    p.emit(Op::JMP, back, p.ref());                                         // 7
    p.emit(Op::NOP);                                                        // 8
    p.run();
    EXPECT_EQ(p.temps_in_use(), 0);
    return to_int(p.var(c));
}

TEST_F(VmJumpTest, BackwardJumpsAndRestartAtZero) {
    EXPECT_EQ(count_with_back_jump(w, -8), 3) << "7 - 8 + 1 is instruction 0";
    EXPECT_EQ(count_with_back_jump(w, -1000), 3) << "a target before 0 restarts at 0";
}

TEST_F(VmJumpTest, JumpPastTheEndEndsTheRunWithoutCleanUp) {
    program p = w.block();
    const uint32_t c = p.variable("c");
    p.emit(Op::PUSH, 1, 1);  // leaves a temp in use
    p.emit(Op::JMP, 5, p.ref());
    p.load(c).emit(Op::INC);
    const std::string out = output_of([&] { p.run(); });
    EXPECT_NE(out.find("Runtime error: JMP_OUT_OF_BOUNDS"), std::string::npos) << out;
    EXPECT_EQ(out.find("did not free temp vars"), std::string::npos) << "no clean-up: " << out;
    EXPECT_EQ(to_int(p.var(c)), 0) << "nothing after the jump runs";
    EXPECT_FALSE(p.block()->running);
    EXPECT_FALSE(p.block()->busy());
}

// cond; JMP_x arg; c++ ; NOP; NOP. Answers whether the increment ran, and the log.
struct Outcome {
    bool incremented;
    std::string log;
};
Outcome conditional(workshop& w, Op jump, int64_t arg, const std::function<void(vrkvar*)>& cond) {
    program p = w.block();
    const uint32_t v = p.variable("v");
    const uint32_t c = p.variable("c");
    cond(p.var(v));
    p.load(v).emit(jump, arg, p.ref()).load(c).emit(Op::INC).emit(Op::NOP).emit(Op::NOP);
    Outcome o;
    ::testing::internal::CaptureStdout();
    p.run();
    o.log = ::testing::internal::GetCapturedStdout();
    o.incremented = to_int(p.var(c)) == 1;
    // Do not let the test release the object through the handle.
    set_int(p.var(v), 0);
    return o;
}

TEST_F(VmJumpTest, ConditionalJumpRules) {
    auto zero = [](vrkvar* c) { set_int(c, 0); };
    auto one = [](vrkvar* c) { set_int(c, 1); };
    EXPECT_FALSE(conditional(w, Op::JMP_FALSE, 1, zero).incremented) << "false jumps to index + arg + 2";
    EXPECT_TRUE(conditional(w, Op::JMP_FALSE, 1, one).incremented);
    EXPECT_TRUE(conditional(w, Op::JMP_FALSE, 0, zero).incremented) << "distance 0 jumps nowhere";
    EXPECT_TRUE(conditional(w, Op::JMP_FALSE_LOOP, 0, zero).incremented);

    zero_object object;
    auto handle = [&object](vrkvar* c) { make_handle(c, &object); };
    EXPECT_TRUE(conditional(w, Op::JMP_FALSE, 1, handle).incremented) << "an object never jumps";
    EXPECT_FALSE(conditional(w, Op::JMP_FALSE_LOOP, 1, handle).incremented) << "but leaves a loop";
}

TEST_F(VmJumpTest, ConditionalBoundsAndEmptyCondition) {
    auto zero = [](vrkvar* c) { set_int(c, 0); };
    // 1 + 10 is past the 6 instructions.
    Outcome plain = conditional(w, Op::JMP_FALSE, 10, zero);
    EXPECT_NE(plain.log.find("Runtime error: JMP_OUT_OF_BOUNDS"), std::string::npos) << plain.log;
    EXPECT_TRUE(plain.incremented) << "JMP_FALSE goes on after the report";

    Outcome loop = conditional(w, Op::JMP_FALSE_LOOP, 10, zero);
    EXPECT_NE(loop.log.find("Runtime error: JMP_OUT_OF_BOUNDS"), std::string::npos) << loop.log;
    EXPECT_FALSE(loop.incremented) << "JMP_FALSE_LOOP ends the run";

    // 1 + 5 is exactly the count: still in bounds, and the target is past the end.
    Outcome edge = conditional(w, Op::JMP_FALSE, 5, zero);
    EXPECT_EQ(edge.log.find("JMP_OUT_OF_BOUNDS"), std::string::npos) << edge.log;
    EXPECT_FALSE(edge.incremented);

    program p = w.block();
    const uint32_t c = p.variable("c");
    p.emit(Op::LOAD, 3, 0).emit(Op::JMP_FALSE, 1, p.ref()).load(c).emit(Op::INC);
    const std::string out = output_of([&] { p.run(); });
    EXPECT_NE(out.find("internal: jump error"), std::string::npos) << out;
    EXPECT_EQ(to_int(p.var(c)), 0) << "an empty condition ends the run";
}

}  // namespace
}  // namespace vrk::test
