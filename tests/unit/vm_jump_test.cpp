// Jumps: distances, restarts, the bounds rules and the object exception of
// JMP_FALSE.
#include <string>

#include "frontend/emit.h"
#include "support/program.h"
#include "values/object.h"

namespace vrk::test {
namespace {

using VmJumpTest = VmTest;

// An object whose integer value is 0.
class zero_object : public vrkobject {
public:
    int64_t toInt() override { return 0; }
};

TEST_F(VmJumpTest, BackwardJumpsRestartAtZero) {
    for (int64_t back : {int64_t{-8}, int64_t{-1000}}) {
        // do { c++ } while (c < 3), closed by a JMP of distance `back`
        program p = w.block();
        const uint32_t c = p.variable("c");
        p.load(c)
            .emit(Op::INC)
            .load(c)
            .emit(Op::ARG, 0, 1)
            .load(p.constant(3))
            .emit(Op::CMP, cmp_code::LESS, p.ref());
        p.emit(Op::JMP_FALSE, 1, p.ref())
            .emit(Op::JMP, back, p.ref())
            .emit(Op::NOP);  // 6 -> 9 = end; 7 -> 0
        p.run();
        EXPECT_EQ(to_int(p.var(c)), 3) << "distance " << back;
    }
}

TEST_F(VmJumpTest, JumpPastTheEndEndsTheRunWithoutCleanUp) {
    program p = w.block();
    const uint32_t c = p.variable("c");
    p.emit(Op::PUSH, 1, 1).emit(Op::JMP, 5, p.ref()).load(c).emit(Op::INC);
    const std::string out = output_of([&] { p.run(); });
    EXPECT_NE(out.find("Runtime error: JMP_OUT_OF_BOUNDS"), std::string::npos) << out;
    EXPECT_EQ(out.find("did not free temp vars"), std::string::npos) << "no clean-up: " << out;
    EXPECT_EQ(to_int(p.var(c)), 0);
    EXPECT_FALSE(p.block()->busy());
}

TEST_F(VmJumpTest, ConditionalJumpRules) {
    // cond; JMP_x arg; c++; NOP; NOP. Answers whether c++ ran, and what was logged.
    auto run = [this](Op jump, int64_t arg, const std::function<void(vrkvar*)>& cond,
                      std::string* log = nullptr) {
        program p = w.block();
        const uint32_t v = p.variable("v");
        const uint32_t c = p.variable("c");
        if (cond) cond(p.var(v));
        p.load(v).emit(jump, arg, p.ref()).load(c).emit(Op::INC).emit(Op::NOP).emit(Op::NOP);
        if (!cond) p.block()->code[0] = vrkinstr{static_cast<uint8_t>(Op::LOAD), 0, 3};
        const std::string out = output_of([&] { p.run(); });
        if (log) *log = out;
        set_int(p.var(v), 0);
        return to_int(p.var(c)) == 1;
    };
    auto zero = [](vrkvar* c) { set_int(c, 0); };
    auto one = [](vrkvar* c) { set_int(c, 1); };
    EXPECT_FALSE(run(Op::JMP_FALSE, 1, zero)) << "false jumps to index + arg + 2";
    EXPECT_TRUE(run(Op::JMP_FALSE, 1, one));
    EXPECT_TRUE(run(Op::JMP_FALSE, 0, zero)) << "distance 0 jumps nowhere";
    EXPECT_FALSE(run(Op::JMP_FALSE, 5, zero)) << "1 + 5 is the count itself: still in bounds";

    zero_object object;
    auto handle = [&object](vrkvar* c) { make_handle(c, &object); };
    EXPECT_TRUE(run(Op::JMP_FALSE, 1, handle)) << "an object never jumps";
    EXPECT_FALSE(run(Op::JMP_FALSE_LOOP, 1, handle)) << "but leaves a loop";

    std::string log;
    EXPECT_TRUE(run(Op::JMP_FALSE, 10, zero, &log)) << "JMP_FALSE goes on after the report";
    EXPECT_NE(log.find("Runtime error: JMP_OUT_OF_BOUNDS"), std::string::npos) << log;
    EXPECT_FALSE(run(Op::JMP_FALSE_LOOP, 10, zero, &log)) << "JMP_FALSE_LOOP ends the run";
    EXPECT_NE(log.find("Runtime error: JMP_OUT_OF_BOUNDS"), std::string::npos) << log;
    EXPECT_FALSE(run(Op::JMP_FALSE, 1, nullptr, &log)) << "an empty condition ends the run";
    EXPECT_NE(log.find("internal: jump error"), std::string::npos) << log;
}

}  // namespace
}  // namespace vrk::test
