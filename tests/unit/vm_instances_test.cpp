// The short paths of instances and stores against the general ones: the
// direct copy of a blueprint's data with its forms looked at once, the
// tear-down of a block's plain variables in line, and the store of a number
// into a plain number variable. Every script here runs with
// `value_context().instance_paths` off and on; what it prints, what it logs,
// the final state of every variable and the holder counts of every instance
// must be the same. The cases cover hidden variables and constants of a class,
// nested classes and member containers, destructors (their order and count),
// an instance held by two variables or by an array, the reassignment of the
// last holder, a constructor that suspends, errors, and stores of numbers of
// every kind (typed, constant, by reference, into elements, fresh results),
// also under every step budget.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/fast_paths.h"
#include "values/value_context.h"

namespace vrk {
namespace {

using outcome = test::run_outcome;

class VmInstancesTest : public test::FastPathFixture {
protected:
    // Runs `text` with the switch off and on and requires the same outcome.
    outcome expect_same(const std::string& text, uint64_t budget = 0) {
        return expect_same_both_ways(&vrkvalue_context::instance_paths, text, budget);
    }
};

// Hidden variables (`height` is computed), constants, a typed field, a member
// list, a nested class; destructors that name who goes; an instance held by
// two variables and by an array; the last holder reassigned.
const char* const kLifetimes =
    "class Shape = { width = 2; height = width * 3 + 1; label = \"s\"; ratio = 1.5;"
    " int amount = 3.7; tags = [1, 2, \"three\"]; nothing = none;"
    " class Inner = { depth = 3; deeper() { return depth * 2; } };"
    " constructor(x, name) { this.width = x; this.label = name; }"
    " destructor() { print(\"bye\", this.label, this.width); }"
    " area() { return width * height; } };"
    "class Plain = { v = 1; };"
    "a = Shape(4, \"a\"); b = a; print(a.area(), b.height, a.tags[2], a.amount);"
    "a = 0; print(\"a let go\"); b = Shape(5, \"b\"); print(\"b replaced\");"
    "list = [Shape(6, \"in list\"), Plain()]; list[1].v = 9; print(list[1].v);"
    "list[0] = 0; print(\"list slot cleared\");"
    "for (i = 0; i < 4; i++) { c = Shape(i, \"loop\"); p = Plain(); p.v = i; }"
    "print(c.width, p.v); c = 0; i = Shape.Inner(); print(i.deeper());"
    "list = 0; print(\"end\");";

TEST_F(VmInstancesTest, LifetimesAndDestructorsAreTheSame) {
    const outcome fast = expect_same(kLifetimes);
    const std::vector<std::string> expected{
        "28", "7",          "three", "3",   "a let go", "bye", "a",
        "4",  "b replaced", "9",     "bye", "in list",  "6",   "list slot cleared"};
    ASSERT_GE(fast.printed.size(), expected.size());
    EXPECT_EQ(std::vector<std::string>(
                  fast.printed.begin(),
                  fast.printed.begin() + static_cast<std::ptrdiff_t>(expected.size())),
              expected);
    EXPECT_EQ(fast.printed.back(), "end");
}

TEST_F(VmInstancesTest, SuspendingConstructorAndErrorsAreTheSame) {
    // A constructor that suspends halfway (its caller waits for it); a
    // destructor that suspends; run-time errors of
    // member access on a number.
    const outcome fast = expect_same(
        "class Slow = { v = 0; constructor(n) { this.v = n; pause(); this.v = this.v * 2; }\n"
        " destructor() { pause(); print(\"gone\", this.v); } };\n"
        "class K = { v = 1; };\n"
        "s = Slow(3); print(s.v); s = Slow(4); print(s.v);\n"
        "k = K(); k.v = 2.5; k.v = k.v + 1; print(k.v);\n"
        "z = 0; w = z.v; z.v = 1; print(w);\n"
        "s = 0; print(\"end\");");
    EXPECT_GE(fast.suspensions, 1);
}

// Stores of numbers: int into int, float into float, int into float and back,
// a number into a VOID cell,
// a typed variable, a by-reference parameter, an element, a member of `this`,
// the result of a builtin, and a loop long enough to reuse its temps.
const char* const kStores =
    "class Counter = { value = 0; add(step) { this.value = this.value + step; } };"
    "k = Counter(); for (i = 0; i < 5; i++) { k.add(3); } print(k.value);"
    "x = 1; y = 2; x = y; f = 1.5; g = 2.5; f = g; f = x; x = g; print(x, y, f, g);"
    "int t = 4; t = 2.75; t = y; print(t);"
    "bump(#v) { v = 7; } q = 5; bump(q); print(q);"
    "set(v) { $v = 11; } r = 1; set(#r); print(r);"
    "a = [1, 2, 3]; a[1] = x; n = a[2]; n = a[0]; print(a[1], n);"
    "m = abs(0 - 9); m = abs(2); print(m); e = none; e = 3; o = none; o = 0.5; print(e, o);"
    "s = 0; w = 0; for (j = 0; j < 20; j++) { s = s + j; w = j; } print(s, w);";

TEST_F(VmInstancesTest, NumberStoresAreTheSame) {
    const outcome fast = expect_same(kStores);
    EXPECT_EQ(fast.printed, (std::vector<std::string>{"15", "2.500000", "2", "2", "2.500000", "2",
                                                      "5", "11", "2.500000", "1", "2.000000", "3",
                                                      "0.500000", "190", "19"}));
}

TEST_F(VmInstancesTest, StepBudgetStopsAtTheSameInstruction) {
    const std::string text =
        "class P = { v = 0; constructor(n) { this.v = n; } add(n) { this.v = this.v + n; } };"
        "t = 0; for (i = 0; i < 3; i++) { p = P(i); p.add(2); t = t + p.v; } print(t);";
    for (uint64_t budget = 1; budget < 260; ++budget) expect_same(text, budget);
}

}  // namespace
}  // namespace vrk
