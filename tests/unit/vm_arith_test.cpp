// Arithmetic instructions: the operand step and binary operators, the bit
// operators, INC/DEC, NOT and INVERT.
#include <functional>
#include <string>
#include <utility>

#include "frontend/emit.h"
#include "support/program.h"

namespace vrk::test {
namespace {

using VmArithTest = VmTest;

TEST_F(VmArithTest, BinarySequenceLandsInTheHiddenVariable) {
    struct Case {
        Op step, op;
        int64_t a, b, expected;
    };
    for (const Case& c :
         {Case{Op::ADD_TMP, Op::ADD, 3, 4, 7}, Case{Op::SUB_TMP, Op::SUB, 3, 4, -1},
          Case{Op::MULT_TMP, Op::MULT, 3, 4, 12}, Case{Op::DIV_TMP, Op::DIV, 12, 4, 3},
          Case{Op::EXP_TMP, Op::EXP, 2, 10, 1024}, Case{Op::BIT_TMP, Op::BIT_OR, 12, 10, 14},
          Case{Op::BIT_TMP, Op::BIT_XOR, 12, 10, 6}, Case{Op::TMP, Op::BIT_AND, 12, 10, 8}}) {
        program p = w.block();
        const uint32_t a = p.constant(c.a);
        p.binary(c.step, c.op, a, p.constant(c.b));
        vrkvar* r = p.run();
        EXPECT_EQ(to_int(r), c.expected) << "op " << int{static_cast<uint8_t>(c.op)};
        EXPECT_FALSE(r->constant) << "the result goes into the hidden variable";
        EXPECT_EQ(to_int(p.var(a)), c.a);
        EXPECT_EQ(p.block()->stack.size(), 1u);
        EXPECT_EQ(p.temps_in_use(), 0) << "the left operand temp goes back to the pool";
    }
}

TEST_F(VmArithTest, NullOperandsAndMissingResultSlots) {
    // left; [SET h]; OP_TMP; undefined or right; OP
    auto run = [this](Op step, Op op, bool null_right, bool with_result_slot,
                      vrkvar** top = nullptr) {
        program p = w.block();
        const uint32_t left = p.constant(3);
        if (with_result_slot) {
            p.binary(step, op, left, left);
        } else {
            p.emit(Op::LOAD, load_code::UNDEFINED, 0).emit(step).load(left).emit(op);
        }
        if (null_right)
            p.block()->code[p.here() - 2] = vrkinstr{static_cast<uint8_t>(Op::LOAD), 0, 3};
        std::string out = output_of([&] { p.run(); });
        if (top) *top = p.top();
        EXPECT_EQ(p.temps_in_use(), 0);
        return out;
    };
    EXPECT_NE(run(Op::ADD_TMP, Op::ADD, true, true).find("Runtime error: NULLPTR"),
              std::string::npos);
    EXPECT_NE(run(Op::BIT_TMP, Op::BIT_OR, true, true).find("Runtime error: NULLPTR"),
              std::string::npos);
    EXPECT_NE(run(Op::BIT_TMP, Op::BIT_AND, true, true).find("Runtime error: NULLTPR"),
              std::string::npos);
    const std::string div = run(Op::DIV_TMP, Op::DIV, true, true);
    EXPECT_NE(div.find("div: division error"), std::string::npos) << "division reports on its own";
    EXPECT_EQ(div.find("NULLPTR"), std::string::npos);

    vrkvar* top = nullptr;
    EXPECT_NE(run(Op::ADD_TMP, Op::ADD, false, false, &top).find("INVALID_STACK"),
              std::string::npos);
    EXPECT_EQ(to_int(top), 3) << "+ without a result slot answers in the result cell";
    EXPECT_EQ(run(Op::SUB_TMP, Op::SUB, false, false, &top).find("INVALID_STACK"),
              std::string::npos);
    EXPECT_EQ(to_int(top), -3) << "other operators use scratch silently";
}

TEST_F(VmArithTest, AppendingToAStringKeepsItsTextAndItsBuffer) {
    // `s += piece`: LOAD s; ADD_TMP; LOAD piece; ADD.
    auto append = [this](const std::string& text, const std::function<uint32_t(program&)>& piece,
                         Op step = Op::ADD_TMP, Op op = Op::ADD, uint16_t flags = 0) {
        program p = w.block();
        const uint32_t s = p.variable("s");
        set_string(p.var(s), text);
        p.var(s)->flags = flags;
        p.var(s)->value.str->reserve(64);
        const char* buffer = p.var(s)->value.str->data();
        const uint32_t with = piece(p);
        p.load(s).emit(step).load(with).emit(op);
        const std::string out = output_of([&] { p.run(); });
        EXPECT_EQ(p.temps_in_use(), 0);
        EXPECT_EQ(p.block()->stack.size(), 1u);
        EXPECT_EQ(p.var(s)->value.str->data(), buffer) << "the text stays where it was";
        return std::make_pair(to_string(p.var(s)), out);
    };
    EXPECT_EQ(append("abc", [](program& p) { return p.constant_string("de"); }).first, "abcde");
    EXPECT_EQ(append("abc", [](program& p) { return p.constant(7); }).first, "abc7");
    EXPECT_EQ(append("", [](program& p) { return p.constant_string("x"); }).first, "x");
    EXPECT_EQ(
        append(
            "T", [](program& p) { return p.constant(12); }, Op::ADD_TMP, Op::ADD, flag::FIXED_TYPE)
            .first,
        "T12")
        << "a typed string appends the same way";
    EXPECT_EQ(
        append("abc",
               [](program& p) { return static_cast<uint32_t>(p.block()->find_var_index("s")); })
            .first,
        "abcabc");
    const auto refused = append(
        "abc", [](program& p) { return p.constant_string("c"); }, Op::SUB_TMP, Op::SUB);
    EXPECT_EQ(refused.first, "abc") << "a refused operator leaves the string alone";
    EXPECT_NE(refused.second.find("SUB_INVALID_TYPE"), std::string::npos);

    // A constant on the left refuses the reset and keeps its text, so the sum is
    // appended to it: the name of an unknown variable is such a constant.
    program k = w.block();
    const uint32_t name = k.constant_string("i");
    k.load(name).emit(Op::ADD_TMP).load(k.constant(4)).emit(Op::ADD);
    k.run();
    EXPECT_EQ(to_string(k.var(name)), "ii4");
    EXPECT_EQ(k.temps_in_use(), 0);

    // A sum into the hidden variable leaves its left operand as it was.
    program p = w.block();
    const uint32_t a = p.variable("a");
    set_string(p.var(a), "left");
    p.binary(Op::ADD_TMP, Op::ADD, a, p.constant_string("-right"));
    EXPECT_EQ(to_string(p.run()), "left-right");
    EXPECT_EQ(to_string(p.var(a)), "left");
    EXPECT_EQ(p.temps_in_use(), 0);
}

TEST_F(VmArithTest, AStringLeftInPlaceSurvivesARunThatEndsBeforeThePlus) {
    // The step budget runs out between the operand step and the `+`: the run
    // ends there, and the string is what it was.
    program p = w.block();
    const uint32_t s = p.variable("s");
    set_string(p.var(s), "abc");
    p.load(s).emit(Op::ADD_TMP).load(p.constant_string("de")).emit(Op::ADD);
    context().step_budget = 3;
    context().step_budget_spent = false;
    output_of([&] { p.run(); });
    context().step_budget = 0;
    context().step_budget_spent = false;
    EXPECT_EQ(to_string(p.var(s)), "abc");
    EXPECT_EQ(p.temps_in_use(), 0);

    // Run again without a budget: the append happens.
    p.run();
    EXPECT_EQ(to_string(p.var(s)), "abcde");
}

TEST_F(VmArithTest, IncrementAndDecrementInPlace) {
    program p = w.block();
    const uint32_t i = p.variable("i", INT64_MAX);
    const uint32_t f = p.variable("f");
    set_float(p.var(f), 0.5);
    const uint32_t k = p.constant(7);
    p.load(i).emit(Op::INC).load(f).emit(Op::DEC).load(k).emit(Op::INC);
    p.run();
    EXPECT_EQ(p.var(i)->value.i, INT64_MIN) << "wraps around";
    EXPECT_DOUBLE_EQ(p.var(f)->value.f, -0.5);
    EXPECT_EQ(p.var(k)->value.i, 7) << "a constant never changes";

    program e = w.block();
    const uint32_t s = e.variable("s");
    set_string(e.var(s), "x");
    e.emit(Op::LOAD, load_code::UNDEFINED, 0)
        .emit(Op::INC)
        .emit(Op::DEC)
        .load(s)
        .emit(Op::INC)
        .emit(Op::DEC);
    const std::string out = output_of([&] { e.run(); });
    for (const char* code :
         {"STACK_ERROR_INC", "INC_STACK_ERROR", "ADD_INVALID_TYPE", "INC_INVALID_TYPE"})
        EXPECT_NE(out.find(std::string("Runtime error: ") + code), std::string::npos) << code;
}

}  // namespace
}  // namespace vrk::test
