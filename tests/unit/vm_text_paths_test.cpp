// The direct entry of native blocks from CALL (vm/native_call.h) against the
// full run it stands for, and the text builtins that write their answers
// straight into the result cell. Every script runs with the call paths off and
// on; what it prints and logs, the final state of every variable and the
// number of suspensions must be the same, under every step budget, under a
// tight depth budget with a builtin whose report runs a script listener, and
// with a builtin that suspends its caller.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/context.h"
#include "support/fast_paths.h"
#include "values/value_context.h"

namespace vrk {
namespace {

using outcome = test::run_outcome;

class VmTextPathsTest : public test::FastPathFixture {
protected:
    void TearDown() override {
        context().depth_budget = 0;
        context().depth_limit = 0;
        FastPathFixture::TearDown();
    }

    outcome expect_same(const std::string& text, uint64_t budget = 0) {
        return expect_same_both_ways(&vrkvalue_context::call_paths, text, budget);
    }
};

// The library calls of the strings workload, nested calls whose result is the
// next call's argument, a builtin reached through a variable, results kept in
// variables and read again, and the fall-backs of the text builtins (numbers
// as texts, limits, empty tokens, ranges past the end).
const char* const kTextCalls =
    "s = \"abcabcab\"; rec = \"alpha=1,beta=22,gamma=333\"; total = 0; f = find;"
    "for (i = 0; i < 4; i++) {"
    " total += find(s, \"b\", i);"
    " total += count(split(rec, \",\"));"
    " total += count(replace(substr(s, i, 6), \"a\", \"xy\"));"
    " total += f(s, \"c\", i); }"
    "parts = split(rec, \",\", 2); last = parts[1]; whole = split(rec, \"\");"
    "nums = split(1020304, 0); tail = split(\"a,b,\", \",\");"
    "cut = substr(s, 3); none = substr(s, 99); neg = substr(s, 2, -1);"
    "same = replace(s, \"\", \"q\"); grown = replace(replace(s, \"a\", \"aa\"), \"aa\", \"A\");"
    "print(total, count(parts), last, count(whole), count(nums), nums[2], count(tail), tail[2]);"
    "print(cut, none, neg, same, grown, substr(12345, 1, 2), replace(1001, 0, 7));";

TEST_F(VmTextPathsTest, LibraryCallsGiveWhatTheFullRunGives) {
    const outcome fast = expect_same(kTextCalls);
    ASSERT_EQ(fast.printed.size(), 15U);
    // find 1+1+4+4, count 3 * 4, the replaced pieces 8+8+8+7, c 2+2+2+5.
    EXPECT_EQ(fast.printed[0], "64");
    EXPECT_EQ((std::vector<std::string>(fast.printed.begin() + 1, fast.printed.end())),
              (std::vector<std::string>{"2", "beta=22,gamma=333", "1", "4", "3", "3", "", "abcab",
                                        "", "cabcab", "abcabcab", "AbcAbcAb", "23", "1771"}));
}

TEST_F(VmTextPathsTest, EveryStepBudgetStopsTheSameWay) {
    // The budget runs out at every instruction of the calls, the native
    // block's own one included.
    const std::string text =
        "s = \"abcab\"; t = 0; for (i = 0; i < 2; i++) {"
        " t += count(split(replace(substr(s, i, 4), \"a\", \"x\"), \"b\")); t += find(s, \"b\", i); }"
        "print(t);";
    const outcome full = expect_same(text);
    ASSERT_EQ(full.printed, (std::vector<std::string>{"7"}));
    for (uint64_t budget = 1; budget < 160; ++budget) expect_same(text, budget);
}

TEST_F(VmTextPathsTest, SuspendingBuiltinAndDepthBudgetMatchTheFullRun) {
    // `pause` suspends the calling run from inside a native call; the log
    // listener runs script code nested in the native call that logs, so a
    // depth budget near its end refuses it (or the native call itself) at
    // the same place both ways.
    const std::string text =
        "heard = 0; hear(message) { heard++; } loglistener(hear);"
        "r = \"\"; for (i = 0; i < 3; i++) { r += substr(\"xyz\", i, 1); pause(); r += substr(\"q\"); }"
        "print(r, heard, count(split(r, \"y\")));";
    const outcome full = expect_same(text);
    EXPECT_EQ(full.suspensions, 3);
    ASSERT_EQ(full.printed.size(), 3U);
    EXPECT_EQ(full.printed[0], "xyz");
    EXPECT_EQ(full.printed[1], "3");
    for (uint32_t depth = 2; depth < 7; ++depth) {
        value_context().call_paths = false;
        context().depth_budget = depth;
        context().depth_limit = depth;
        const outcome slow = run_outcome_of(text, 0);
        EXPECT_EQ(context().depth_budget, depth) << "every nested run gave its level back";
        value_context().call_paths = true;
        const outcome fast = run_outcome_of(text, 0);
        EXPECT_EQ(context().depth_budget, depth) << "every nested run gave its level back";
        expect_same_outcome(slow, fast, text + " depth " + std::to_string(depth));
    }
}

TEST_F(VmTextPathsTest, TextComparesGiveWhatEqualsGives) {
    // `==`, `!=` and `===` of two texts in line against the general compare:
    // one character, empty texts, equal lengths that differ only after the
    // first byte, a text against a number and a number text against a number.
    const std::string text =
        "s = \"abcb\"; n = 0; e = \"\"; for (i = 0; i < 4; i++) {"
        " if (s[i] == \"b\") { n++; } if (s[i] != \"c\") { n += 10; } }"
        "a = (e == \"\"); b = (\"ab\" == \"ac\"); c = (\"ab\" === \"ab\"); d = (\"ab\" != \"ab\");"
        "f = (\"1\" == 1); g = (\"x\" == 0); h = (e != \"a\"); k = (\"ba\" == \"bb\");"
        "print(n, a, b, c, d, f, g, h, k);";
    const outcome fast = expect_same_both_ways(&vrkvalue_context::data_paths, text, 0);
    EXPECT_EQ(fast.printed,
              (std::vector<std::string>{"32", "1", "0", "1", "0", "1", "0", "1", "0"}));
    for (uint64_t budget = 1; budget < 120; budget += 5)
        expect_same_both_ways(&vrkvalue_context::data_paths, text, budget);
}

TEST_F(VmTextPathsTest, TextArgumentsGiveWhatTheGeneralCopyGives) {
    // Texts wrapped as arguments into temps that held texts of other lengths
    // (a temp that keeps its buffer must not keep its old characters), an empty
    // text, a parameter by reference that writes back, a text made by `+` and
    // a fresh builtin result as arguments, and texts compared in a loop.
    const std::string text =
        "g(t) { return t + \"|\"; } h(#t) { $t = $t + \"!\"; }"
        "w = [\"a long piece of text\", \"b\", \"\", \"mid size\"]; out = \"\";"
        "for (k = 0; k < 2; k++) { for (i = 0; i < 4; i++) { out += g(w[i]); out += g(\"k\"); } }"
        "r = \"x\"; for (i = 0; i < 3; i++) { h(r); } "
        "p = g(r + \"y\"); q = g(substr(\"abcdef\", 2, 3)); n = 0; s = \"abcbb\";"
        "for (i = 0; i < 5; i++) { if (\"b\" == s[i]) { n++; } if (s[i] != \"bb\") { n += 10; } }"
        "print(out, r, p, q, n);";
    const outcome fast = expect_same(text);
    const std::string round = "a long piece of text|k|b|k||k|mid size|k|";
    EXPECT_EQ(fast.printed,
              (std::vector<std::string>{round + round, "x!!!", "x!!!y|", "cde|", "53"}));
    for (uint64_t budget = 1; budget < 400; budget += 7) expect_same(text, budget);
}

}  // namespace
}  // namespace vrk
