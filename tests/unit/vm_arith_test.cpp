// Arithmetic instructions of the run loop: the operand step and binary
// operators, the bit operators, INC/DEC, NOT and INVERT.
#include <cstdint>
#include <string>

#include "support/program.h"

namespace vrk::test {
namespace {

using VmArithTest = VmTest;

TEST_F(VmArithTest, BinarySequenceLandsInTheHiddenVariable) {
    struct Case {
        Op step;
        Op op;
        int64_t a;
        int64_t b;
        int64_t expected;
    };
    const Case cases[] = {
        {Op::ADD_TMP, Op::ADD, 3, 4, 7},
        {Op::SUB_TMP, Op::SUB, 3, 4, -1},
        {Op::MULT_TMP, Op::MULT, 3, 4, 12},
        {Op::DIV_TMP, Op::DIV, 12, 4, 3},
        {Op::EXP_TMP, Op::EXP, 2, 10, 1024},
        {Op::TMP, Op::ADD, 1, 1, 2},
        {Op::ADD_TMP, Op::ADD, INT64_MAX, 1, INT64_MIN},
    };
    for (const Case& c : cases) {
        program p = w.block();
        const uint32_t a = p.constant(c.a);
        const uint32_t b = p.constant(c.b);
        p.binary(c.step, c.op, a, b);
        vrkvar* r = p.run();
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(to_int(r), c.expected) << "op " << static_cast<int>(c.op);
        EXPECT_FALSE(r->constant) << "the result goes into the hidden variable, not a constant";
        EXPECT_EQ(p.block()->stack.size(), 1u);
        EXPECT_EQ(p.temps_in_use(), 0) << "the left operand temp goes back to the pool";
        EXPECT_EQ(to_int(p.var(a)), c.a) << "operands are left alone";
    }
}

TEST_F(VmArithTest, MixedAndTextOperands) {
    program p = w.block();
    const uint32_t a = p.constant_string("n=");
    const uint32_t b = p.constant(5);
    p.binary(Op::ADD_TMP, Op::ADD, a, b);
    EXPECT_EQ(to_string(p.run()), "n=5");

    program f = w.block();
    const uint32_t x = f.constant_float(1.5);
    const uint32_t y = f.constant(2);
    f.binary(Op::MULT_TMP, Op::MULT, x, y);
    vrkvar* r = f.run();
    EXPECT_EQ(r->type, Tag::FLOAT);
    EXPECT_DOUBLE_EQ(r->value.f, 3.0);
}

TEST_F(VmArithTest, NullOperandsAndMissingResultSlot) {
    program p = w.block();
    const uint32_t a = p.constant(3);
    const uint32_t hidden = p.variable("h", 11);
    // a; SET h; ADD_TMP; undefined; ADD
    p.load(a).set(hidden).emit(Op::ADD_TMP).emit(Op::LOAD, 3, 0).emit(Op::ADD);
    std::string out = output_of([&] { p.run(); });
    EXPECT_NE(out.find("Runtime error: NULLPTR"), std::string::npos) << out;
    EXPECT_EQ(to_int(p.var(hidden)), 3) << "nothing is computed with a null operand";
    EXPECT_EQ(p.temps_in_use(), 0);

    // Division reports its own error instead.
    program d = w.block();
    const uint32_t n = d.constant(3);
    d.load(n).emit(Op::DIV_TMP).emit(Op::LOAD, 3, 0).emit(Op::DIV);
    out = output_of([&] { d.run(); });
    EXPECT_NE(out.find("div: division error"), std::string::npos) << out;
    EXPECT_EQ(out.find("NULLPTR"), std::string::npos);

    // An empty result slot: + reports it and uses the block's result cell.
    program e = w.block();
    const uint32_t one = e.constant(1);
    e.emit(Op::LOAD, 3, 0).emit(Op::ADD_TMP).load(one).emit(Op::ADD);
    out = output_of([&] { e.run(); });
    EXPECT_NE(out.find("Runtime error: INVALID_STACK"), std::string::npos) << out;
    EXPECT_EQ(e.top(), &e.block()->result);

    // Other operators take scratch silently.
    program s = w.block();
    const uint32_t five = s.constant(5);
    s.emit(Op::LOAD, 3, 0).emit(Op::SUB_TMP).load(five).emit(Op::SUB);
    out = output_of([&] { s.run(); });
    EXPECT_EQ(out.find("INVALID_STACK"), std::string::npos);
    EXPECT_EQ(s.top(), &s.block()->scratch);
    EXPECT_EQ(to_int(s.top()), -5);
}

TEST_F(VmArithTest, BitOperatorsAndTheirNullReports) {
    struct Case {
        Op op;
        int64_t expected;
    };
    for (const Case& c : {Case{Op::BIT_OR, 0b1110}, Case{Op::BIT_XOR, 0b0110}, Case{Op::BIT_AND, 0b1000}}) {
        program p = w.block();
        const uint32_t a = p.constant(0b1100);
        const uint32_t b = p.constant(0b1010);
        p.binary(Op::BIT_TMP, c.op, a, b);
        EXPECT_EQ(to_int(p.run()), c.expected);
        EXPECT_EQ(p.temps_in_use(), 0);
    }

    program p = w.block();
    const uint32_t a = p.constant(1);
    p.load(a).emit(Op::BIT_TMP).emit(Op::LOAD, 3, 0).emit(Op::BIT_AND);
    std::string out = output_of([&] { p.run(); });
    EXPECT_NE(out.find("Runtime error: NULLTPR"), std::string::npos) << out;

    program q = w.block();
    const uint32_t c = q.constant(1);
    q.load(c).emit(Op::BIT_TMP).emit(Op::LOAD, 3, 0).emit(Op::BIT_OR);
    out = output_of([&] { q.run(); });
    EXPECT_NE(out.find("Runtime error: NULLPTR"), std::string::npos) << out;
    EXPECT_EQ(q.temps_in_use(), 0);
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
    e.emit(Op::LOAD, 3, 0).emit(Op::INC).emit(Op::DEC).load(s).emit(Op::INC).emit(Op::DEC);
    const std::string out = output_of([&] { e.run(); });
    for (const char* code : {"STACK_ERROR_INC", "INC_STACK_ERROR", "ADD_INVALID_TYPE", "INC_INVALID_TYPE"})
        EXPECT_NE(out.find(std::string("Runtime error: ") + code), std::string::npos) << code;
}

TEST_F(VmArithTest, NotAndInvertAnswerInScratch) {
    program p = w.block();
    const uint32_t zero = p.constant(0);
    const uint32_t five = p.constant(5);
    const uint32_t text_zero = p.constant_string("0");
    const uint32_t json = p.variable("j");
    reset(p.var(json), Tag::JSON);

    auto not_of = [&](uint32_t v) {
        program q = w.block();
        q.load_from(p, v).emit(Op::NOT);
        vrkvar* r = q.run();
        EXPECT_EQ(r, &q.block()->scratch);
        return to_int(r);
    };
    EXPECT_EQ(not_of(zero), 1);
    EXPECT_EQ(not_of(five), 0);
    EXPECT_EQ(not_of(text_zero), 1) << "strings answer by their integer value";
    EXPECT_EQ(not_of(json), 0) << "other tags are not 'not'";

    program inv = w.block();
    inv.load_from(p, five).emit(Op::INVERT);
    EXPECT_EQ(to_int(inv.run()), ~int64_t{5});
}

}  // namespace
}  // namespace vrk::test
