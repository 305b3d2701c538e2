// The pointer stack of the run loop (vm/ptr_stack.h): pushes past the room at
// hand, the tail erase of a fresh start, and the view a builtin gets of the
// arguments collected in a caller's `params`, which must see them in order and
// whose changes the stack takes back. Then builtins with more arguments than
// the stack first has room for, and builtins called among the arguments of
// another, through a script.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/engine_fixture.h"
#include "vm/ptr_stack.h"

namespace vrk {
namespace {

// Distinct pointers to push, never read through.
int cells[64];

TEST(PtrStackTest, PushesPopsAndGrowsLikeAVector) {
    vrkptr_stack<int> s;
    std::vector<int*> expected;
    EXPECT_TRUE(s.empty());
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 40; ++i) {
            s.push_back(&cells[i]);
            expected.push_back(&cells[i]);
            ASSERT_EQ(s.size(), expected.size());
            EXPECT_EQ(s.back(), expected.back());
        }
        EXPECT_GE(s.capacity(), s.size());
        for (int i = 0; i < 15; ++i) {
            s.pop_back();
            expected.pop_back();
        }
        EXPECT_EQ(std::vector<int*>(s.begin(), s.end()), expected);
        EXPECT_EQ(s[3], &cells[3]);
        EXPECT_EQ(s.front(), &cells[0]);
    }
    // The tail erase of a fresh start: everything but the first entry.
    s.erase(s.begin() + 1, s.end());
    ASSERT_EQ(s.size(), 1U);
    EXPECT_EQ(s.back(), &cells[0]);
    s.clear();
    EXPECT_TRUE(s.empty());
    s = {&cells[5], &cells[6]};
    EXPECT_EQ(std::vector<int*>(s.begin(), s.end()), (std::vector<int*>{&cells[5], &cells[6]}));
}

TEST(PtrStackTest, TheVectorViewHoldsExactlyTheEntriesAndGivesBackWhatItHolds) {
    vrkptr_stack<int> s;
    s.reserve(16);
    for (int i = 0; i < 3; ++i) s.push_back(&cells[i]);
    std::vector<int*>& view = s.entries_as_vector();
    EXPECT_EQ(view, (std::vector<int*>{&cells[0], &cells[1], &cells[2]}));
    // What a builtin does to its argument list is what the stack holds after.
    view.push_back(&cells[9]);
    s.take_back_entries();
    EXPECT_EQ(std::vector<int*>(s.begin(), s.end()),
              (std::vector<int*>{&cells[0], &cells[1], &cells[2], &cells[9]}));
    s.entries_as_vector().clear();
    s.take_back_entries();
    EXPECT_TRUE(s.empty());
    // Pushes after a view that shrank the room grow it again.
    for (int i = 0; i < 30; ++i) s.push_back(&cells[i]);
    ASSERT_EQ(s.size(), 30U);
    for (int i = 0; i < 30; ++i) EXPECT_EQ(s[static_cast<std::size_t>(i)], &cells[i]);
}

class PtrStackScriptTest : public test::EngineFixture {};

TEST_F(PtrStackScriptTest, BuiltinsReceiveTheirArgumentsInOrder) {
    // Twelve arguments, more than the first room of `params`; builtins among
    // the arguments of a builtin and of a script function; a builtin called
    // in a loop after calls of script functions bound their parameters.
    const test::Strings out = run_script(
        "f(a, b) { return a * 10 + b; }"
        "print(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12);"
        "print(f(1, 2), abs(-3), f(abs(-2), abs(-4)), 4);"
        "for (i = 0; i < 3; i++) { print(f(i, i), i); }");
    EXPECT_EQ(out, (test::Strings{"1", "2",  "3",  "4",  "5",  "6",        "7",         "8",
                                  "9", "10", "11", "12", "12", "3.000000", "24.000000", "4",
                                  "0", "0",  "11", "1",  "22", "2"}));
}

}  // namespace
}  // namespace vrk
