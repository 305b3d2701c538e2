// The direct paths for data against the general routines: the blanking of
// temps whose tag changes between steps, reads of JSON arrays by position and
// of records by a hinted key, text compares and by-reference arguments. Every
// script runs with `value_context().data_paths` off and on; what it prints,
// what it logs and the final state of every variable must be the same. The
// cases cover strings (empty, one byte, multi-byte text, out of range), arrays
// (holes, growth, negative and out-of-range positions, nesting), keyed reads
// (present, absent, a hint made stale by a key added, renamed or erased),
// temps that hold a string, a number, a reference or a function in turn, the
// step budget at every instruction of a loop, and a loop that suspends; and
// the subscript sequences the dispatch runs in one step (vm/element_paths.h).
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

TEST_F(VmDataPathsTest, ElementSequencesInOneStep) {
    // Reads and stores of elements in the sequences the dispatch runs in one
    // step, beside cases that must take the single instructions: numbers of
    // both types and mixed, overflow, division by zero, text and list
    // elements, appends at the end and past it, negative and float positions,
    // keys whose hint is stale, containers that are results or
    // by-reference parameters, the erase constant, fresh results.
    const outcome o = expect_same(R"(
        fill(#arr, n) { for (j = 0; j < n; j++) { arr[j] = j + 0.5; } return count(arr); }
        make() { return [4, 5, 6]; }
        num() { return 3; }
        a = [];
        for (i = 0; i < 8; i++) { a[i] = i * 3; }
        a[3] = 2.5;
        a[4] = "text";
        a[5] = [1, 2];
        f = [1.5, 2, 3, 4];
        s = 0;
        p = 1;
        q = 1000;
        x = 0;
        for (i = 0; i < 4; i++) {
            s += a[i];
            p *= f[i];
            q -= a[i];
            x = a[i];
        }
        print("" + s + "," + p + "," + q + "," + x + "," + count(a));
        u = "";
        for (i = 3; i < 7; i++) { u += a[i]; x = a[i]; }
        print(u + "," + x);
        big = [9223372036854775807, 0, 2];
        w = 1;
        w += big[0];
        d = 7;
        d /= big[1];
        e = 7;
        e /= big[2];
        print("" + w + "," + d + "," + e);
        b = [];
        b[0] = 1;
        b[1] = 2.5;
        b[3] = 4;
        b[-1] = 7;
        b[1] = 8;
        b[1.7] = 9;
        b[count(b)] = num();
        b[0] = null;
        print("" + b[0] + "," + b[1] + "," + b[2] + "," + count(b) + "," + b[-1]);
        r = [name = "r", hits = 7, weight = 3];
        t = 0;
        y = 0;
        for (i = 0; i < 5; i++) {
            t += r.hits;
            r.weight = i;
            y = r.weight;
            if (i == 2) { setkey(r, 0, "hits"); }
            if (i == 3) { erase(r, "hits"); r.hits = 1.5; }
        }
        print("" + t + "," + y + "," + r.hits + "," + count(r));
        v = [];
        print("" + fill(v, 4) + "," + v[3]);
        m = 0;
        z = 0;
        for (i = 0; i < 3; i++) { m += make()[i]; z = make()[i]; }
        print("" + m + "," + z);
        k = [1, 2];
        k[0] = 5;
        g = 1;
        g += k[1];
        h = [[1, 2], [3, 4]];
        h[1][0] = h[0][1] + 10;
        g += h[1][0];
        print("" + k[0] + "," + g);
    )");
    ASSERT_EQ(o.printed.size(), 8U);
    EXPECT_EQ(o.printed[0], "11.500000,36.000000,988.500000,2.500000,8");
    EXPECT_EQ(o.printed[2], "-9223372036854775808,0,3");
    EXPECT_EQ(o.printed[3], "9,0,7,4,3");
    // The hinted read keeps finding the element it found first, even after an
    // element in front of it took the same key.
    EXPECT_EQ(o.printed[4], "29.500000,4,1.500000,2");
}

TEST_F(VmDataPathsTest, ElementSequencesUnderTheStepBudget) {
    // Every budget that ends the run inside one of the sequences, and a
    // suspension between them.
    const std::string loop = R"(
        a = [];
        r = [k = 2];
        n = 0;
        x = 0;
        for (i = 0; i < 3; i++) {
            a[i] = i + 1;
            n += a[i];
            r.k = n;
            n -= r.k;
            x = a[i];
            pause();
        }
        print("" + n + "," + x + "," + count(a));
    )";
    const outcome whole = expect_same(loop);
    EXPECT_EQ(whole.suspensions, 3);
    for (uint64_t budget = 1; budget < 130; ++budget) expect_same(loop, budget);
}

// Keys compare by whole words where they can: every length from empty to
// past two words, equal, and different in each single byte or in length.
TEST_F(VmDataPathsTest, KeyCompareAtEveryLengthAndByte) {
    for (std::size_t n = 0; n <= 20; ++n) {
        std::string a;
        for (std::size_t i = 0; i < n; ++i) a.push_back(static_cast<char>('a' + i));
        const std::string same = a;
        EXPECT_TRUE(json_key_equal(a, same)) << n;
        EXPECT_FALSE(json_key_equal(a, a + "x")) << n;
        EXPECT_FALSE(json_key_equal(a + "x", a)) << n;
        for (std::size_t i = 0; i < n; ++i) {
            std::string other = a;
            other[i] = static_cast<char>(other[i] ^ 0x40);
            EXPECT_FALSE(json_key_equal(a, other)) << n << " at " << i;
        }
    }
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
