// The fast paths of the run loop against the slow ones: the fused number
// paths against the single instructions, and the light entry of if/loop
// bodies against a full run of each body. Every script here is compiled and
// run with both off, then with each on and with both on; what it prints, what
// it logs and the final state of every variable of every block must be the
// same. The cases cover integers, floats, mixed pairs, wrap-around, constants,
// fresh native results, operands that must take the slow path, a block that
// suspends inside a loop, the step budget running out at every instruction of
// a loop, and bodies that break, continue, return, share `this`, suspend in
// nested bodies, or go past the depth budget.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/fast_paths.h"
#include "values/value_context.h"

namespace vrk {
namespace {

using test::Strings;

using outcome = test::run_outcome;

class VmFusedTest : public test::FastPathFixture {
protected:
    void SetUp() override {
        FastPathFixture::SetUp();
        // A native result marked fresh, as builtins that make a new value mark it.
        engine->registerFunction(
            "fresh",
            [](vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& result) -> vrkvar* {
                set_int(&result, 40);
                result.attrs |= attr::FRESH_RESULT;
                return &result;
            },
            0, nullptr, "a fresh integer", true, true);
    }

    // Runs `text` with the fused steps and the light entry on or off.
    outcome run_script(const std::string& text, bool fused, uint64_t budget = 0,
                       bool light = true) {
        value_context().fused_paths = fused;
        value_context().light_entry = light;
        return run_outcome_of(text, budget);
    }

    void expect_same(const std::string& text, uint64_t budget = 0) {
        const outcome slow = run_script(text, false, budget, false);
        for (const auto& [fused, light] :
             {std::pair{true, false}, std::pair{false, true}, std::pair{true, true}}) {
            const outcome fast = run_script(text, fused, budget, light);
            expect_same_outcome(slow, fast,
                                text + (fused ? " fused" : "") + (light ? " light" : "") +
                                    " budget " + std::to_string(budget));
        }
    }
};

TEST_F(VmFusedTest, NumbersGiveWhatTheSingleInstructionsGive) {
    // Integers: the counting loop, every operator, every comparison.
    const std::string integers =
        "t=0; for (i=0; i<50; i++) { t += i; t -= 1; t *= 2; t /= 2; } print(t);"
        "a=7; b=2; c = a + b; d = a - b; e = a * b; f = a / b; z = a / 0; print(c, d, e, f, z);"
        "print(a < b, a <= b, a > b, a >= b, a == b, a != b, a === b, a || b, a && b);"
        "n=0; print(n || n, n && a, b == 2, b != 2, b >= 2, b <= 2);";
    expect_same(integers);
    const outcome ints = run_script(integers, true);
    ASSERT_GE(ints.printed.size(), 6U);
    EXPECT_EQ(ints.printed[0], "1175") << "sum of 0..49 less 50";
    EXPECT_EQ((Strings(ints.printed.begin() + 1, ints.printed.begin() + 6)),
              (Strings{"9", "5", "14", "3", "0"}));

    // Floats and mixed pairs: promotion, division by zero, strict equality.
    expect_same(
        "x=1.5; y=2; x += y; print(x); y += x; print(y); w = y / 0; print(w);"
        "v = 0.5; v *= 3; v -= 1; print(v); u = 3; u /= 1.5; print(u);"
        "print(x < y, y == 5.5, 2 === 2.0, 2 == 2.0, x >= 3.5, x || 0, 0.0 && x);"
        "s = 0.0; for (k = 0.5; k < 4; k++) { s += k; } print(s);");

    // Wrap-around of the integer rule.
    const std::string wrap =
        "m = 9223372036854775807; m += 1; print(m); m -= 1; print(m); p = m * 3; print(p);"
        "q = 0 - m; q -= 2; print(q); r = q / -1; print(r);";
    expect_same(wrap);
    EXPECT_EQ(run_script(wrap, true).printed[0], "-9223372036854775808");
}

TEST_F(VmFusedTest, OperandsOutsideTheFusedPathsTakeTheSingleInstructions) {
    // Constants on the left, fresh native results, texts against numbers, the
    // void value, an unknown name, and a compound store into a constant.
    expect_same(
        "print(3 + 4, 10 - 3 - 2, 2 < 3, 6 / 4);"
        "n = fresh() + 2; m = fresh() < 50; k = fresh(); k += 1; print(n, m, k);"
        "s = \"a\"; s += 1; s += 2.5; print(s); u = \"5\"; print(u < 7, u == 5, 7 > u);"
        "j = none; print(j < 1); g += 4; print(g); h = 2; h += \"x\"; print(h);"
        "arr = [1, 2]; print(arr[0] < arr[1]);");
}

// A sequence is recognised once per instruction; the values it meets are
// tested on every pass. The same code meets integers, floats, texts and
// functions here, in every order.
TEST_F(VmFusedTest, OneCodeMeetsEveryKindOfOperand) {
    const std::string text =
        "f(a, b) { if (a < b) { return a + b; } t = a; t -= b; return t; }"
        "print(f(1, 2)); print(f(2.5, 1)); print(f(\"x\", \"y\")); print(f(3, 1));"
        "print(f(1, 2.5));"
        "for (i = 0; i < 4; i++) { v = i; if (i == 2) { v = \"t\"; } w = f(v, 1.5); print(w); }";
    expect_same(text);
    EXPECT_EQ(run_script(text, true).printed,
              (Strings{"3", "1.500000", "xy", "2", "3.500000", "1.500000", "2.500000", "t1.500000",
                       "1.500000"}));
}

TEST_F(VmFusedTest, AppendsToATextGiveWhatTheSingleInstructionsGive) {
    // Texts, integers, floats and an empty text appended in place; a text
    // appended to itself, a number on the left, a text made by `+` and a fresh
    // result on the left take the single instructions. The temps the appends
    // blank held texts and numbers before. Then every step budget.
    const std::string text =
        "s = \"\"; p = \"ab\"; e = \"\"; n = 7; f = 0.5;"
        "for (i = 0; i < 3; i++) { s += p; s += i; s += f; s += e; } t = s; t = t + \"!\";"
        "d = \"xy\"; d += d; q = 1; q += \"z\"; r = (p + \"c\") + n; k = fresh(); k += \"w\";"
        "print(s, t, d, q, r, k);";
    expect_same(text);
    const outcome fast = run_script(text, true);
    ASSERT_EQ(fast.printed.size(), 6U);
    EXPECT_EQ(fast.printed[0], "ab00.500000ab10.500000ab20.500000");
    EXPECT_EQ(fast.printed[1], fast.printed[0] + "!");
    EXPECT_EQ((Strings(fast.printed.begin() + 2, fast.printed.end())),
              (Strings{"xyxy", "1z", "abc7", "40w"}));
    for (uint64_t budget = 1; budget < 160; budget += 3) expect_same(text, budget);
}

TEST_F(VmFusedTest, OperatorsAfterSubscriptsAndCallsGiveWhatTheSlowPathGives) {
    // The right operand comes from a subscript, a member or a call, so the
    // operator runs on the temp of its operand step: integers, floats, mixed
    // pairs, wrap-around, division by zero, a fresh result on either side, a
    // left operand changed by the call, strings and objects as operands.
    const std::string text =
        "a = [3, 1.5, 9223372036854775807, 0, \"s\"]; r = [hits=7, w=2.5];"
        "t = 0; for (i = 0; i < 4; i++) { t += a[i]; } print(t);"
        "u = 10; u -= a[0]; u *= a[1]; u /= a[3]; print(u);"
        "k = 5; k /= a[0]; k += r.hits; k *= r.w; k -= fresh(); print(k);"
        "m = 9223372036854775807; m += a[2]; print(m);"
        "bump() { g = g + 100; return 1; } g = 1; g += bump(); print(g);"
        "h = fresh(); h += a[0]; print(h); q = a[0] + a[1] * a[0] - r.hits / a[0]; print(q);"
        "s = \"x\"; s += a[0]; print(s); n = 2; n += a[4]; print(n); v = 1; v += a; print(v);"
        "c = 0; for (j = 0; j < 3; j++) { c += r.hits; c -= a[j]; } print(c);";
    expect_same(text);
    for (uint64_t budget = 1; budget < 120; budget += 3) expect_same(text, budget);
    const outcome fast = run_script(text, true);
    EXPECT_EQ((Strings(fast.printed.begin(), fast.printed.begin() + 8)),
              (Strings{"9223372036854775808.000", "0.000000", "-20.000000", "-2", "2", "43",
                       "5.500000", "x3"}));
}

TEST_F(VmFusedTest, SuspendedLoopResumesTheSame) {
    const std::string text =
        "t = 0; for (i = 0; i < 6; i++) { t += i; if (i < 3) { pause(); } t *= 2; } print(t);";
    expect_same(text);
    const outcome fast = run_script(text, true);
    EXPECT_EQ(fast.suspensions, 3);
    EXPECT_EQ(fast.printed, (Strings{"114"}));
}

TEST_F(VmFusedTest, StepBudgetStopsAtTheSameInstruction) {
    // Every budget from 1 up to past the whole run: the run stops at the same
    // instruction, with the same variables, either way.
    const std::string text =
        "t=0; f=0.5; for (i=0; i<4; i++) { t += i; f *= 2; if (t > f) { t -= 1; } } print(t, f);";
    for (uint64_t budget = 1; budget < 200; ++budget) expect_same(text, budget);
    // Bodies of one fused step, and one whose first step is only its load (a
    // string operand), entered without a nested run of the loop.
    const std::string short_bodies =
        "t=0; s=\"\"; for (i=0; i<4; i++) { t += i; } for (j=0; j<3; j++) { s += \"ab\"; } "
        "while (t > 0) { t--; } print(t, s);";
    for (uint64_t budget = 1; budget < 120; ++budget) expect_same(short_bodies, budget);
    // Bodies that only return what they load, numbers and a text, met on
    // every level of a recursion: the flat entry against a nested run of each
    // body, both with the fused steps. (Against the single instructions the
    // report of a stopped run may differ in one respect: it names every temp
    // the block's pool holds, and the fused steps need fewer of them.)
    const std::string returns =
        "f(n) { if (n < 2) { return n; } return f(n - 1) + f(n - 2); } s = \"t\";"
        "g(x) { if (x) { return s; } return 2.5; } print(f(6)); print(g(1)); print(g(0));";
    for (uint64_t budget = 1; budget < 400; ++budget) {
        expect_same_outcome(run_script(returns, true, budget, false),
                            run_script(returns, true, budget, true),
                            "returns, budget " + std::to_string(budget));
    }
    expect_same(returns);
    EXPECT_EQ(run_script(returns, true).printed, (Strings{"8", "t", "2.500000"}));
}

TEST_F(VmFusedTest, BodiesGiveWhatFullRunsGive) {
    // break and continue from nested bodies, return from inside loops and ifs,
    // a while loop left by break, and the values of nested bodies.
    expect_same(
        "f(n) { for (k = 0; k < 10; k++) { if (k == n) { if (k > 2) { return k * 10; } "
        "return k; } } return -1; }"
        "print(f(1), f(5), f(20));"
        "s = 0; for (i = 0; i < 8; i++) { if (i == 2) { continue; } if (i == 6) { break; } "
        "s += i; } print(s, i);"
        "n = 0; while (1) { n++; if (n > 4) { if (n == 5) { break; } } } print(n);"
        "t = 0; for (i = 0; i < 3; i++) { for (j = 0; j < 3; j++) { if (j == i) { continue; } "
        "t += j; } } print(t);");
    // Short bodies: one fused step, a load followed by more instructions, a
    // load of a constant, and a body that answers the value it loads.
    expect_same(
        "t = 0; s = \"\"; e = 2.5; for (i = 0; i < 5; i++) { t += i; } for (i = 0; i < 3; i++) "
        "{ s += \"ab\"; } if (1) { d = e; } while (t > 3) { t--; } for (i = 0; i < 2; i++) "
        "{ e *= t; } k = 5; if (k) { k = s; } print(t, s, d, e, k);");
    // `this` and members of an instance seen from the bodies of a method.
    expect_same(
        "class counter = { total = 0; add(n) { for (i = 0; i < n; i++) { if (i < 3) "
        "{ this.total += i; } else { this.total += 1; } } return this.total; } };"
        "c = counter(); print(c.add(6), c.total);");
    // A suspension two bodies deep, resumed exactly there.
    const std::string nested =
        "t = 0; for (i = 0; i < 4; i++) { if (i > 0) { if (i < 3) { t += 1; pause(); "
        "t *= 3; } } t += i; } print(t);";
    expect_same(nested);
    EXPECT_EQ(run_script(nested, true).suspensions, 2);
    const outcome bodies = run_script(
        "class counter = { total = 0; add(n) { for (i = 0; i < n; i++) { if (i < 3) "
        "{ this.total += i; } else { this.total += 1; } } return this.total; } };"
        "c = counter(); print(c.add(6), c.total);",
        true);
    EXPECT_EQ(bodies.printed, (std::vector<std::string>{"6", "6"})) << "0+1+2, then 1 three times";
}

TEST_F(VmFusedTest, MemberReadsGiveWhatTheSingleInstructionsGive) {
    // Members read and stored through a variable, a member that is a method
    // (its owner binds `this`), members of members, members of an instance
    // held in a parameter, a member added to an instance, and the read of a
    // member of a parameter that holds no instance.
    const std::string text =
        "class point = { x = 1; y = 2.5; inner = 0; sum() { return this.x + this.y; } "
        "scale(k) { this.x = this.x * k; this.y *= k; } };"
        "p = point(); q = point(); q.inner = p; p.scale(3);"
        "print(p.x); print(p.y); print(p.sum()); print(q.inner.x); print(q.inner.sum());"
        "f(o) { return o.x + o.inner.x; } print(f(q));"
        "g(o) { return o.x; } print(g(4)); t = 0;"
        "for (i = 0; i < 5; i++) { t += p.x; p.x += 1; } print(t); print(p.x);";
    expect_same(text);
    EXPECT_EQ(run_script(text, true).printed,
              (Strings{"3", "7.500000", "10.500000", "3", "10.500000", "4", "0", "25", "8"}));
    // Numbers stored into members: the same type, the other number type (the
    // store retags), a text member, a member that is a method, a member of a
    // number (which makes the variable an object), an integer wrapping
    // around, and the store of a text, which is no number.
    const std::string stores =
        "class cell = { i = 0; f = 0.5; s = \"x\"; m() { return 1; } };"
        "c = cell(); n = 9; h = 2.25; w = 9223372036854775807;"
        "c.i = n; c.f = h; print(c.i, c.f); c.i = h; c.f = n; print(c.i, c.f);"
        "c.s = n; c.m = 4; print(c.s, c.m); d = 5; d.i = n; print(d);"
        "c.i = w; c.i = c.i + 1; print(c.i); c.i = c.s; c.f = \"t\"; print(c.i, c.f);";
    expect_same(stores);
    EXPECT_EQ(run_script(stores, true).printed,
              (Strings{"9", "2.250000", "2.250000", "9", "9", "4", "{\n    \"i\": 9\n}",
                       "-9223372036854775808", "9", "t"}));
    // The step budget running out at every instruction of the member reads
    // and stores.
    const std::string loop =
        "class box = { v = 0; w = 0; }; b = box(); for (i = 0; i < 3; i++) { "
        "b.v = b.v + i; b.w = i; } print(b.v, b.w);";
    for (uint64_t budget = 1; budget < 120; ++budget) expect_same(loop, budget);
}

TEST_F(VmFusedTest, DepthBudgetCountsBodiesAlike) {
    // Each body is one nested run against the depth budget, whichever way it
    // is entered: the refusal comes at the same depth, with the same report.
    const std::string text =
        "d = 0; e = 5; if (1) { d = 1; if (1) { d = 2; if (1) { d = 3; if (1) { d = 4; "
        "if (1) { d = e; } } } } } print(d);";
    for (uint32_t budget : {3u, 4u, 5u, 6u, 7u, 8u}) {
        std::vector<outcome> outcomes;
        for (bool light : {false, true}) {
            context().depth_budget = budget;
            context().depth_limit = budget - 1;
            outcomes.push_back(run_script(text, true, 0, light));
            context().depth_budget = 0;
            context().depth_limit = 0;
        }
        EXPECT_EQ(outcomes[0].printed, outcomes[1].printed) << budget;
        EXPECT_EQ(outcomes[0].logged, outcomes[1].logged) << budget;
        EXPECT_EQ(outcomes[0].state, outcomes[1].state) << budget;
    }
    context().depth_budget = 6;
    context().depth_limit = 5;
    const outcome cut = run_script(text, true, 0, true);
    context().depth_budget = 0;
    context().depth_limit = 0;
    ASSERT_FALSE(cut.printed.empty());
    EXPECT_EQ(cut.printed[0], "4") << "the innermost body is refused";
}

}  // namespace
}  // namespace vrk
