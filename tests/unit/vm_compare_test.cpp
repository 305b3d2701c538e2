// CMP: the comparison codes, the logical operators without short circuit, and
// the faults of the instruction.
#include <string>
#include <vector>

#include "support/program.h"

namespace vrk::test {
namespace {

using VmCompareTest = VmTest;

// lhs OP rhs as the compiler emits it: lhs; ARG 0 1; rhs; CMP code.
vrkvar* compare(workshop& w, const std::function<void(vrkvar*)>& lhs,
                const std::function<void(vrkvar*)>& rhs, int64_t code) {
    program p = w.block();
    const uint32_t l = p.variable("l");
    const uint32_t r = p.variable("r");
    lhs(p.var(l));
    rhs(p.var(r));
    p.load(l).emit(Op::ARG, 0, 1).load(r).emit(Op::CMP, code, p.ref());
    vrkvar* answer = p.run();
    EXPECT_EQ(p.temps_in_use(), 0) << "the kept left operand goes back to the pool";
    EXPECT_EQ(p.block()->stack.size(), 1u);
    return answer;
}

auto integer(int64_t v) {
    return [v](vrkvar* c) { set_int(c, v); };
}
auto floating(double v) {
    return [v](vrkvar* c) { set_float(c, v); };
}

TEST_F(VmCompareTest, CodesGiveTheSharedTruthConstants) {
    struct Case {
        std::function<void(vrkvar*)> lhs;
        std::function<void(vrkvar*)> rhs;
        int64_t code;
        bool expected;
        const char* what;
    };
    const std::vector<Case> cases = {
        {integer(1), floating(1.0), -1, false, "=== needs the same tag"},
        {integer(1), integer(1), -1, true, "=== same tag and equal"},
        {integer(1), floating(1.0), 0, true, "=="},
        {integer(1), floating(1.0), 1, false, "!="},
        {integer(3), integer(2), 2, true, ">="},
        {integer(2), integer(2), 3, true, "<="},
        {integer(3), integer(2), 3, false, "<= is not >="},
        {integer(3), integer(2), 4, true, ">"},
        {integer(3), integer(2), 5, false, "<"},
        {integer(2), integer(3), 5, true, "< the other way"},
        {floating(0.5), integer(0), 6, true, "|| looks at floats when a FLOAT is involved"},
        {integer(0), integer(0), 6, false, "|| of zeros"},
        {floating(0.5), integer(2), 7, true, "&& of 0.5 and 2"},
        {integer(0), integer(1), 7, false, "&& with a zero"},
        {integer(1), integer(1), 9, false, "unknown codes are false"},
    };
    for (const Case& c : cases) {
        vrkvar* answer = compare(w, c.lhs, c.rhs, c.code);
        EXPECT_EQ(answer, c.expected ? true_value() : false_value()) << c.what;
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
    const uint32_t no = p.constant(0);
    // no && probe()
    p.load(no).emit(Op::ARG, 0, 1).call(fn, {}).emit(Op::CMP, 7, p.ref());
    EXPECT_EQ(p.run(), false_value());
    EXPECT_EQ(calls, 1) << "there is no short circuit";
}

TEST_F(VmCompareTest, FaultsAreReported) {
    program one = w.block();
    one.emit(Op::CMP, 0, 0);
    std::string out = output_of([&] { one.run(); });
    EXPECT_NE(out.find("Runtime error: RUNTIME_ERROR"), std::string::npos) << out;

    program p = w.block();
    const uint32_t a = p.constant(1);
    p.load(a).emit(Op::ARG, 0, 1).emit(Op::CMP, 0, 0);
    out = output_of([&] { p.run(); });
    EXPECT_NE(out.find("cmp: invalid value!"), std::string::npos) << out;
    EXPECT_EQ(out.find("Runtime error"), std::string::npos) << "a null operand is no runtime error";
}

}  // namespace
}  // namespace vrk::test
