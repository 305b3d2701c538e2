// The fast paths of calls against the general ones: the copy of a plain
// function cell into the call's temp, and `this` of a method that already
// holds the instance it is called on. Every script here runs with the fast
// paths off and on; what it prints, what it logs, the final state of every
// variable and the holder counts of every instance must be the same. The cases
// cover recursion (copies of busy functions), methods called on one instance
// and then on another, a method called on the class itself, lambdas with
// captures, natives, constructors and destructors, a suspension inside a called
// method, and the step budget running out at every instruction of the calls.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/fast_paths.h"
#include "values/value_context.h"

namespace vrk {
namespace {

using outcome = test::run_outcome;

class VmCallsTest : public test::FastPathFixture {
protected:
    outcome run_script(const std::string& text, bool fast, uint64_t budget = 0) {
        value_context().call_paths = fast;
        return run_outcome_of(text, budget);
    }

    // Runs `text` with the switch off and on and requires the same outcome.
    outcome expect_same(const std::string& text, uint64_t budget = 0) {
        return expect_same_both_ways(&vrkvalue_context::call_paths, text, budget);
    }
};

// Methods on one instance, then on another, then on the class itself; a
// destructor that sees `this`; `this` kept in a field.
const char* const kMethods =
    "class counter = { total = 0; keep = 0;"
    " constructor(start) { this.total = start; }"
    " destructor() { print(\"bye\", this.total); }"
    " add(n) { this.total = this.total + n; return this.total; }"
    " hold() { this.keep = this; } };"
    "a = counter(1); b = counter(10);"
    "for (i = 0; i < 3; i++) { a.add(i); } b.add(5); a.add(100); b.add(1);"
    "print(a.total, b.total, counter.add(2));"
    "b.hold(); b = 0; a.add(1); a = 0; print(\"end\");";

TEST_F(VmCallsTest, MethodsGiveWhatTheGeneralPathGives) {
    const outcome fast = expect_same(kMethods);
    ASSERT_GE(fast.printed.size(), 2U);
    EXPECT_EQ((std::vector<std::string>(fast.printed.begin(), fast.printed.begin() + 2)),
              (std::vector<std::string>{"104", "16"}));
}

TEST_F(VmCallsTest, FunctionsGiveWhatTheGeneralPathGives) {
    // Recursion through copies, a lambda with a capture, a builtin called
    // through a variable, a function passed on as an argument.
    const outcome fast = expect_same(
        "fib(n) { if (n < 2) { return n; } return fib(n - 1) + fib(n - 2); }"
        "k = 5; add = [k](x) { return x + k; };"
        "twice(f, x) { return f(f(x)); }"
        "p = print; p(fib(12), add(1), twice(add, 2), twice(fib, 5));");
    EXPECT_EQ(fast.printed, (std::vector<std::string>{"144", "6", "12", "5"}));
}

TEST_F(VmCallsTest, SuspendedMethodAndStepBudgetStopTheSame) {
    // A method that suspends in its body, resumed where it stopped.
    const std::string paused =
        "class c = { v = 0; step(n) { this.v += n; pause(); this.v *= 2; return this.v; } };"
        "x = c(); t = 0; for (i = 1; i < 4; i++) { t += x.step(i); } print(t, x.v);";
    const outcome fast = expect_same(paused);
    EXPECT_EQ(fast.suspensions, 3);
    // Every budget up to past the whole run of a few calls.
    const std::string text =
        "class c = { v = 0; add(n) { this.v += n; return this.v; } };"
        "f(n) { if (n < 1) { return 0; } return n + f(n - 1); }"
        "x = c(); t = 0; for (i = 0; i < 3; i++) { t += x.add(i) + f(i); } print(t);";
    for (uint64_t budget = 1; budget < 400; budget += 3) expect_same(text, budget);
}

// Argument binding in one step, temps taken in line, numbers returned and
// stored in line, the idle copy chosen in line: calls with one, two and three
// arguments, fewer arguments than parameters (defaults), more (an error),
// by-reference parameters, natives called through a variable with several
// arguments, a lambda, recursion with two arguments (copies chosen on the way
// down and reused on the way up), float and string results, a result that is
// an instance (its destructor runs when the holder lets go), a call of a
// number, and an error inside a called function.
const char* const kCalls =
    "class r = { v = 0; destructor() { print(\"gone\", this.v); } };"
    "make(n) { x = r(); x.v = n; return x; }"
    "add3(a, b, c) { return a + b + c; }"
    "def(a, b = 7) { return a * b; }"
    "swap(#a, #b) { t = a; a = b; b = t; }"
    "half(x) { return x / 2.0; }"
    "greet(s) { return \"hi \" + s; }"
    "ack(m, n) { if (m == 0) { return n + 1; } if (n == 0) { return ack(m - 1, 1); }"
    " return ack(m - 1, ack(m, n - 1)); }"
    "bad(a) { return a + nothing[3]; }"
    "p = print; k = 2; mul = [k](x, y) { return x * y * k; };"
    "u = 1; w = 2; swap(u, w);"
    "p(add3(1, 2, 3), def(3), def(3, 2), half(5), greet(\"you\"), mul(3, 4), u, w);"
    "p(ack(2, 3), add3(1, 2, 3, 4)); n = 5; n(1); p(bad(1));"
    "h = make(4); p(h.v); h = make(5); p(h.v); h = 0; p(\"end\");";

TEST_F(VmCallsTest, BindingAndResultsGiveWhatTheGeneralPathGives) {
    const outcome fast = expect_same(kCalls);
    ASSERT_GE(fast.printed.size(), 10U);
    EXPECT_EQ(
        (std::vector<std::string>(fast.printed.begin(), fast.printed.begin() + 10)),
        (std::vector<std::string>{"6", "21", "6", "2.500000", "hi you", "24", "1", "2", "9", "6"}));
    for (uint64_t budget = 1; budget < 700; budget += 7) expect_same(kCalls, budget);
}

// Integer arguments wrapped in line: into a parameter by reference (which
// takes the general wrapping), into a plain one, an element of a list and a
// call's result as arguments, a function called through a variable, `#` at
// the call, and arguments in a loop; jumps over and back in line.
const char* const kIntegerArguments =
    "bumpref(#x) { $x = $x + 1; }"
    "addone(y) { y = y + 1; return y; }"
    "dbl(u, #w) { $w = u * 2; return u; }"
    "p = print; l = [1, 2, 3]; n = 5; c = 7;"
    "bumpref(n); bumpref(l[1]); p(n, l[1]);"
    "p(addone(n), addone(c), addone(l[2]), addone(addone(3)), n, c);"
    "p(dbl(n, n), n, dbl(4, c), c);"
    "f = dbl; p(f(6, n), n); addone(#c); p(c);"  // a reference plus 1: an error
    "t = 0; for (i = 0; i < 6; i++) { if (i == 2) { continue; } t += addone(i); } p(t);";

TEST_F(VmCallsTest, IntegerArgumentsGiveWhatTheGeneralPathGives) {
    const outcome fast = expect_same(kIntegerArguments);
    EXPECT_EQ(fast.printed, (std::vector<std::string>{"6", "3", "7", "8", "4", "5", "6", "7", "6",
                                                      "12", "4", "8", "6", "12", "8", "18"}));
    for (uint64_t budget = 1; budget < 500; budget += 5) expect_same(kIntegerArguments, budget);
}

TEST_F(VmCallsTest, EverySwitchOffGivesWhatEverySwitchOnGives) {
    // The number stores and the operand temps in line belong to the fused
    // paths: compare all fast paths together with none. (Without a budget: a
    // run stopped in mid-expression reports the temps its pool ever made,
    // and the fused steps make fewer.)
    const auto both = [this](const std::string& text, uint64_t budget) {
        value_context().fused_paths = false;
        value_context().light_entry = false;
        const outcome slow = run_script(text, false, budget);
        value_context().fused_paths = true;
        value_context().light_entry = true;
        const outcome fast = run_script(text, true, budget);
        expect_same_outcome(slow, fast, text + " budget " + std::to_string(budget));
    };
    both(kCalls, 0);
    both(kMethods, 0);
    const std::string recursion =
        "fib(n) { if (n < 2) { return n; } return fib(n - 1) + fib(n - 2); }"
        "t = 0.5; for (i = 0; i < 4; i++) { t = t + fib(i + 5); } print(t, fib(10));";
    both(recursion, 0);
    both(kIntegerArguments, 0);
    // Stores into members and elements through PUSH and SET -2: numbers of
    // either type, a change of type, an element with its pending index, a
    // member that is a list, a constant member.
    both(
        "class m = { i = 1; f = 0.5; l = [1, 2]; const c = 3;"
        " step(n) { this.i = this.i * 2 + n; this.f = this.f + 0.25; this.l[1] = n;"
        " this.i = this.f; this.c = n; return this.i; } };"
        "x = m(); y = 0; for (j = 0; j < 3; j++) { y = y + x.step(j); x.f = j; }"
        "print(x.i, x.f, x.l, x.c, y);",
        0);
}

}  // namespace
}  // namespace vrk
