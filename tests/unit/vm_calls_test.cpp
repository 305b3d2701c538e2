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

#include "base/context.h"
#include "support/engine_fixture.h"
#include "values/cell.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/run.h"

namespace vrk {
namespace {

// Everything a run shows.
struct outcome {
    std::vector<std::string> printed;  // arguments of print, as text
    std::vector<std::string> logged;   // log lines
    std::vector<std::string> state;    // every variable, block by block, with holder counts
    int suspensions = 0;               // times the root run came back suspended
};

class VmCallsTest : public test::EngineFixture {
protected:
    void SetUp() override {
        EngineFixture::SetUp();
        // Suspends the calling run after this instruction, as a sleep does.
        engine->registerFunction(
            "pause",
            [](vrkblock* b, std::vector<vrkvar*>&, void*, vrkvar& result) -> vrkvar* {
                if (b) b->suspended = 2;
                return &result;
            },
            0, nullptr, "suspends the caller", true, true);
    }

    void TearDown() override {
        value_context().call_paths = true;
        context().step_budget = 0;
        context().step_budget_spent = false;
        EngineFixture::TearDown();
    }

    static void dump(const vrkblock* b, std::vector<std::string>& out) {
        if (!b) return;
        for (const vrkvar* v : *b->vars) {
            if (!v) continue;
            std::string line = std::to_string(static_cast<int>(v->type)) + ":" + to_string(v) +
                               ":" + std::to_string(v->attrs) + ":" + std::to_string(v->flags);
            if (v->type == Tag::CLASS && v->block && v->block->class_data)
                line += ":" + std::to_string(v->block->class_data->refs) + "/" +
                        std::to_string(v->block->class_data->cells.size());
            out.push_back(line);
        }
        if (b->children)
            for (const vrkblock* c : *b->children) dump(c, out);
    }

    outcome run_script(const std::string& text, bool fast, uint64_t budget = 0) {
        outcome current;
        printed.clear();
        messages.clear();
        value_context().call_paths = fast;
        vrkblock* root = parse(text);
        EXPECT_NE(root, nullptr);
        context().step_budget = budget;
        context().step_budget_spent = false;
        if (root) {
            vrkvar* r = run(root, nullptr, 0, nullptr);
            while (r == kSuspended && current.suspensions < 1000) {
                ++current.suspensions;
                r = resume(root, nullptr, nullptr);
            }
        }
        context().step_budget = 0;
        context().step_budget_spent = false;
        dump(root, current.state);
        current.printed = printed;
        current.logged = messages;
        return current;
    }

    outcome expect_same(const std::string& text, uint64_t budget = 0) {
        const outcome slow = run_script(text, false, budget);
        const outcome fast = run_script(text, true, budget);
        const std::string which = " budget " + std::to_string(budget);
        EXPECT_EQ(slow.printed, fast.printed) << text << which;
        EXPECT_EQ(slow.logged, fast.logged) << text << which;
        EXPECT_EQ(slow.state, fast.state) << text << which;
        EXPECT_EQ(slow.suspensions, fast.suspensions) << text << which;
        return fast;
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

}  // namespace
}  // namespace vrk
