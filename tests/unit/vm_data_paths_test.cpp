// The direct paths for data against the general routines: the blanking of
// temps whose tag changes between steps, reads of JSON arrays by position and
// of records by a hinted key, text compares and by-reference arguments. Every
// script runs with `value_context().data_paths` off and on; what it prints,
// what it logs and the final state of every variable must be the same. The
// cases cover strings (empty, one byte, multi-byte text, out of range), arrays
// (holes, growth, negative and out-of-range positions, nesting), keyed reads
// (present, absent, a hint made stale by a key added, renamed or erased),
// temps that hold a string, a number, a reference or a function in turn, the
// step budget at every instruction of a loop, and a loop that suspends.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/fast_paths.h"
#include "values/cell.h"
#include "values/json.h"
#include "values/pools.h"
#include "values/value_context.h"
#include "vm/temps.h"

namespace vrk {
namespace {

using outcome = test::run_outcome;

class VmDataPathsTest : public test::FastPathFixture {
protected:
    // Runs `text` with the switch off and on and requires the same outcome.
    outcome expect_same(const std::string& text, uint64_t budget = 0) {
        return expect_same_both_ways(&vrkvalue_context::data_paths, text, budget);
    }
};

TEST_F(VmDataPathsTest, StringSubscriptsAndCompares) {
    // The subscript's temp holds a one-character string, then the compare's
    // number, then the next string: its tag changes every step.
    const outcome o = expect_same(R"(
        s = "abcab";
        n = 0;
        for (i = 0; i < 5; i++) {
            if (s[i] == "b") { n++; }
        }
        print(n);
        e = "";
        print(e[0] == "");
        print(e[-1]);
        one = "x";
        print("" + (one[0] == "x") + one[-1] + (one[1] == ""));
        print(one[2]);
        u = "hé!";
        print("" + (u[1] == u[1]) + (u[2] == u[1]) + (u[1] == "é") + u[3] + count(u));
        t = "longer text than eight bytes";
        p = ["", "", "a", "", "ab", "ab", "ab", "abc", "1", 1, 1.5, "1.5", t,
             "longer text than eight bytes", t, "longer text than eight bytez", "b", "B"];
        m = "";
        for (i = 0; i < 18; i += 2) {
            if (p[i] == p[i + 1]) { m += "1"; } else { m += "0"; }
        }
        print(m);
    )");
    ASSERT_EQ(o.printed.size(), 7U);
    EXPECT_EQ(o.printed[0], "2");
    // Text is indexed by byte: the two bytes of the accented letter are two
    // characters, neither equal to the letter.
    EXPECT_EQ(o.printed[5], "100!4");
    EXPECT_EQ(o.printed[6], "101010100");
}

TEST_F(VmDataPathsTest, ArraysByPosition) {
    const outcome o = expect_same(R"(
        a = [];
        for (i = 0; i < 20; i++) { a[i] = i * 2; }
        total = 0;
        for (i = 0; i < 20; i++) { total += a[i]; }
        print(total);
        h = [];
        h[5] = 1;
        print("" + count(h) + "," + h[2] + "," + h[5]);
        print("" + h[-1] + "," + h[-6] + "," + h[-7] + "," + h[-100]);
        print("" + h[9] + "," + count(h));
        g = [];
        print("" + g[-1] + "," + count(g));
        n = [[1, 2], [3, [4, 5]]];
        print("" + n[1][1][0] + "," + n[0][1] + "," + n[1][1][-1]);
        n[1][1][3] = 9;
        print("" + n[1][1][2] + "," + n[1][1][3] + "," + count(n[1][1]));
        f = 2.7;
        print("" + a[f] + "," + a["3"] + "," + count(a));
    )");
    ASSERT_EQ(o.printed.size(), 8U);
    EXPECT_EQ(o.printed[0], "380");
    EXPECT_EQ(o.printed[1], "6,0,1");
    EXPECT_EQ(o.printed[3], "0,10");
}

TEST_F(VmDataPathsTest, KeyedReadsWithStaleHints) {
    // Each read of `r.k` in a loop keeps its hint in the instruction; adding,
    // renaming and erasing keys in front of it moves the element away.
    expect_same(R"(
        r = [k = 1, m = 2];
        t = 0;
        for (i = 0; i < 6; i++) {
            t += r.k;
            if (i == 1) { setkey(r, 0, "z"); }
            if (i == 2) { push_key(r, "k", 40); }
            if (i == 3) { erase(r, "z"); }
            if (i == 4) { r.k = 7; }
        }
        print("" + t + "," + count(r) + "," + r.z + "," + count(r));
        q = [5, 6, x = 3];
        for (i = 0; i < 3; i++) { t += q.x + q[i]; }
        print("" + t + "," + count(q));
        w = [];
        print("" + w.none + "," + count(w) + "," + w.none + "," + count(w));
        e = [a = 1];
        print("" + e[""] + "," + count(e));
    )");
}

TEST_F(VmDataPathsTest, TempsThatChangeTag) {
    // Arguments by reference, strings, numbers, JSON results and functions
    // (plain, lambdas with captures, builtins) pass through the same temps.
    expect_same(R"(
        twice(v) { return v + v; }
        k = 3;
        add = [k](x) { return x + k; };
        s = "ab";
        out = "";
        j = 0;
        for (i = 0; i < 6; i++) {
            out += twice(s[j]);
            j = 1 - j;
            out += add(i);
            out += count(split("a,b,c", ","));
            out += find(s, "b", 0);
            f = add;
            out += f(1);
            g = twice;
            out += g(i);
        }
        print(out);
    )");
}

TEST_F(VmDataPathsTest, StepBudgetAndSuspension) {
    const std::string loop = R"(
        s = "xyx";
        r = [a = 1, b = 2];
        a = [1, 2, 3];
        n = 0;
        for (i = 0; i < 3; i++) {
            if (s[i] == "x") { n += r.b; }
            n += a[i];
            pause();
        }
        print(n);
    )";
    const outcome whole = expect_same(loop);
    EXPECT_EQ(whole.suspensions, 3);
    for (uint64_t budget = 1; budget < 160; ++budget) expect_same(loop, budget);
}

// A temp's state after take_temp does not depend on the way it was blanked,
// whatever it held; checked on the cells directly, field by field.
TEST_F(VmDataPathsTest, BlankedTempsMatchTheGeneralReset) {
    vrkblock* root = parse("x = 1;");
    ASSERT_NE(root, nullptr);
    auto fill = [](vrkvar* t, int kind, vrkvar* target) {
        switch (kind) {
            case 0: set_int(t, 5); break;
            case 1: set_float(t, 2.5); break;
            case 2: set_string(t, "text"); break;
            case 3: set_ref(t, target); break;
            default: set_int(t, 1); break;
        }
        t->attrs = attr::FRESH_RESULT | attr::NO_REF_WRAP;
        t->aux = 7;
        t->block = reinterpret_cast<vrkblock*>(target);
    };
    vrkvar target;
    for (int kind = 0; kind < 4; ++kind) {
        std::string seen[2];
        for (int direct = 0; direct < 2; ++direct) {
            value_context().data_paths = direct != 0;
            vrkvar* t = take_temp(root);
            fill(t, kind, &target);
            return_temp(root, t);
            vrkvar* again = take_temp(root);
            ASSERT_EQ(again, t);
            seen[direct] = std::to_string(static_cast<int>(again->type)) + ":" +
                           std::to_string(again->value.i) + ":" + std::to_string(again->aux) + ":" +
                           std::to_string(again->attrs) + ":" +
                           std::to_string(reinterpret_cast<uintptr_t>(again->block));
            return_temp(root, again);
        }
        EXPECT_EQ(seen[0], seen[1]) << "kind " << kind;
    }
    value_context().data_paths = true;
}

}  // namespace
}  // namespace vrk
