// CMP: the comparison codes, the logical operators without short circuit, and
// the faults of the instruction.
#include <string>
#include <vector>

#include "frontend/emit.h"
#include "support/program.h"

namespace vrk::test {
namespace {

using VmCompareTest = VmTest;
using fill = std::function<void(vrkvar*)>;

fill integer(int64_t v) {
    return [v](vrkvar* c) { set_int(c, v); };
}
fill floating(double v) {
    return [v](vrkvar* c) { set_float(c, v); };
}

TEST_F(VmCompareTest, CodesAnswerWithTheSharedTruthConstants) {
    struct Case {
        fill lhs, rhs;
        int64_t code;
        bool expected;
    };
    const std::vector<Case> cases = {
        {integer(1), floating(1.0), cmp_code::STRICT_EQUAL, false},
        {integer(1), integer(1), cmp_code::STRICT_EQUAL, true},
        {integer(1), floating(1.0), cmp_code::EQUAL, true},
        {integer(1), floating(1.0), cmp_code::NOT_EQUAL, false},
        {integer(3), integer(2), cmp_code::GREATER_EQUAL, true},
        {integer(3), integer(2), cmp_code::LESS_EQUAL, false},
        {integer(3), integer(2), cmp_code::GREATER, true},
        {integer(3), integer(2), cmp_code::LESS, false},
        {floating(0.5), integer(0), cmp_code::OR, true},
        {integer(0), integer(0), cmp_code::OR, false},
        {floating(0.5), integer(2), cmp_code::AND, true},
        {integer(0), integer(1), cmp_code::AND, false},
        {integer(1), integer(1), 9, false},  // a number without a name answers false
    };
    for (const Case& c : cases) {
        // lhs; ARG 0 1; rhs; CMP code
        program p = w.block();
        const uint32_t l = p.variable("l");
        const uint32_t r = p.variable("r");
        c.lhs(p.var(l));
        c.rhs(p.var(r));
        p.load(l).emit(Op::ARG, 0, 1).load(r).emit(Op::CMP, c.code, p.ref());
        EXPECT_EQ(p.run(), c.expected ? true_value() : false_value()) << "code " << c.code;
        EXPECT_EQ(p.temps_in_use(), 0) << "the kept left operand goes back to the pool";
        EXPECT_EQ(p.block()->stack.size(), 1u);
    }
}

TEST_F(VmCompareTest, AndEvaluatesBothSides) {
    int calls = 0;
    program f = w.native(
        "probe",
        [&calls](vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& res) {
            ++calls;
            set_int(&res, 1);
            return &res;
        },
        0);
    program p = w.block();
    const uint32_t fn = p.function_var("probe", f.block());
    p.load(p.constant(0)).emit(Op::ARG, 0, 1).call(fn, {}).emit(Op::CMP, cmp_code::AND, p.ref());
    EXPECT_EQ(p.run(), false_value());
    EXPECT_EQ(calls, 1) << "there is no short circuit";
}

TEST_F(VmCompareTest, FaultsAreReported) {
    program one = w.block();
    one.emit(Op::CMP, cmp_code::EQUAL, 0);
    EXPECT_NE(output_of([&] { one.run(); }).find("Runtime error: RUNTIME_ERROR"),
              std::string::npos);

    program p = w.block();
    p.load(p.constant(1)).emit(Op::ARG, 0, 1).emit(Op::CMP, cmp_code::EQUAL, 0);
    const std::string out = output_of([&] { p.run(); });
    EXPECT_NE(out.find("cmp: invalid value!"), std::string::npos) << out;
    EXPECT_EQ(out.find("Runtime error"), std::string::npos) << "a null operand is no runtime error";
}

}  // namespace
}  // namespace vrk::test
