// Hostile script text: the run budgets that bound endless and too deep runs,
// and the inputs that once crashed or hung the front end or the machine. Each
// case runs the whole road, text to run, as a host of untrusted scripts does.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "frontend/compile_context.h"
#include "frontend/parser.h"
#include "host/engine.h"
#include "support/engine_fixture.h"
#include "values/cell.h"
#include "values/pools.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/instruction.h"
#include "vm/run.h"

namespace vrk {
namespace {

using test::Strings;

class RobustnessTest : public test::EngineFixture {
protected:
    void TearDown() override {
        EngineFixture::TearDown();
        set_budgets(0, 0);
        value_context().pools.set_pooling(true);
    }

    // Freed records go back to the allocator at once instead of being kept for
    // reuse, so that a sanitizer build sees any use after release.
    static void pools_off() { value_context().pools.set_pooling(false); }

    static void set_budgets(uint64_t steps, uint32_t depth) {
        context().step_budget = steps;
        context().step_budget_spent = false;
        context().depth_budget = depth;
    }

    // Parses, compiles and runs a script as text; returns what it printed.
    Strings run_script(const std::string& text) {
        printed.clear();
        if (vrkblock* root = parse(text)) run(root, nullptr, 0, kSelfUnchanged);
        return printed;
    }
};

// ---- run budgets ------------------------------------------------------------------

TEST_F(RobustnessTest, NoBudgetMeansNoLimit) {
    set_budgets(0, 0);
    EXPECT_EQ(run_script("n = 0;\nwhile (n < 20000) {\n    n++;\n}\nprint(n);\n"),
              Strings{"20000"});
    EXPECT_EQ(count_logged("budget"), 0);
    EXPECT_GT(context().step_budget, uint64_t{1} << 63)
        << "an unlimited budget counts down from the top";
}

TEST_F(RobustnessTest, StepBudgetEndsAnEndlessLoop) {
    set_budgets(5000, 0);
    EXPECT_EQ(run_script("print(\"before\");\nwhile (1) {\n    x = 1;\n}\nprint(\"after\");\n"),
              Strings{"before"});
    EXPECT_EQ(count_logged("step budget used up"), 1) << "reported once";
    EXPECT_TRUE(context().step_budget_spent);
}

TEST_F(RobustnessTest, StepBudgetUnwindsNestedRuns) {
    set_budgets(5000, 0);
    EXPECT_EQ(run_script("spin(n) {\n    while (1) {\n        n = n + 1;\n    }\n    return n;\n}\n"
                         "v = 1 + spin(0) * 2;\nprint(\"after\");\n"),
              Strings{});
    EXPECT_EQ(count_logged("step budget used up"), 1);
    // The function is idle again: with a new budget it runs once more.
    set_budgets(0, 0);
    EXPECT_EQ(run_script("f() {\n    return 7;\n}\nprint(f());\n"), Strings{"7"});
}

// The unknown name leaves a slot on the root's stack for good, so the root
// never stands at an empty stack again; it still ends at its next instruction.
TEST_F(RobustnessTest, StepBudgetEndsARunWhoseStackNeverEmpties) {
    set_budgets(5000, 0);
    run_script(std::string("U\0-while(1) { ++}\n", 18));
    EXPECT_EQ(count_logged("step budget used up"), 1);
    EXPECT_EQ(parsers.back()->root_block->resume_at, 0u);
}

// A run may be stopped at any instruction of a call: before, between and
// after its arguments, while they are bound, in the callee.
TEST_F(RobustnessTest, StepBudgetStopsAnywhereInACall) {
    const std::string script =
        "one(a) {\n    return a;\n}\nthree(a, b, c) {\n    return a + b + c;\n}\n"
        "class C = {\n    v = 1;\n    get(x) {\n        return v + x;\n    }\n};\n"
        "c = C;\nl = [1, [2, 3], k = \"s\"];\nn = 0;\n"
        "while (1) {\n    n = one(n) + three(1, 2, 3) + one(one(1));\n"
        "    m = c.get(l[1][0]) + one(l.k);\n    l[0] = [m, three(m, n, 1)];\n}\n";
    pools_off();
    // Every stopping point of the first iterations.
    for (uint64_t budget = 1; budget < 400; ++budget) {
        set_budgets(budget, 0);
        messages.clear();
        run_script(script);
        vrkblock* root = parsers.back()->root_block;
        EXPECT_EQ(root->resume_at, 0u) << budget;
        EXPECT_EQ(count_logged("already running"), 0) << budget;
        EXPECT_EQ(count_logged("step budget used up"), 1) << budget;
        parsers.clear();
    }
    set_budgets(0, 0);
    EXPECT_EQ(run_script("one(a) {\n    return a;\n}\nprint(one(4));\n"), Strings{"4"});
}

TEST_F(RobustnessTest, StepBudgetEndsEndlessRecursion) {
    set_budgets(20000, 64);
    run_script(
        "twice(n) {\n    twice(n + 1);\n    twice(n + 1);\n}\ntwice(0);\nprint(\"after\");\n");
    EXPECT_EQ(count_logged("step budget used up"), 1);
    EXPECT_EQ(context().depth_budget, 64u) << "every nested run gave its level back";
}

TEST_F(RobustnessTest, DepthBudgetRefusesTooDeepRuns) {
    set_budgets(0, 40);
    EXPECT_EQ(run_script("down(n) {\n    return down(n + 1);\n}\ndown(0);\nprint(\"after\");\n"),
              Strings{"after"});
    EXPECT_EQ(count_logged("run depth budget used up"), 1);
    EXPECT_EQ(context().depth_budget, 40u);
}

TEST_F(RobustnessTest, DepthBudgetLeavesShallowRunsAlone) {
    set_budgets(0, 40);
    EXPECT_EQ(run_script("sum(n) {\n    if (n == 0) {\n        return 0;\n    }\n"
                         "    return n + sum(n - 1);\n}\nprint(sum(5));\n"),
              Strings{"15"});
    EXPECT_EQ(count_logged("budget"), 0);
}

// ---- front end ----------------------------------------------------------------------

// The command form splits at the first blank even inside quotes, which
// rewrites this token into a longer one of the same shape without end.
TEST_F(RobustnessTest, SelfRewritingCommandFormIsCutOff) {
    run_script("' ' t()");
    EXPECT_GE(count_logged("tokens nest deeper than"), 1);
    EXPECT_EQ(run_script("print(\"still compiles\");\n"), Strings{"still compiles"});
}

TEST_F(RobustnessTest, DeeplyNestedListLiteralIsCutOff) {
    const std::string nested = std::string(700, '[') + "1" + std::string(700, ']');
    run_script("x = " + nested + ";\n");
    EXPECT_GE(count_logged("tokens nest deeper than"), 1);
}

TEST_F(RobustnessTest, NestingWithinTheLimitCompiles) {
    const std::string nested = std::string(60, '(') + "2" + std::string(60, ')');
    EXPECT_EQ(run_script("x = " + nested + " + 1;\nprint(x);\n"), Strings{"3"});
    EXPECT_EQ(count_logged("tokens nest deeper than"), 0);
}

// The anonymous function's body is followed by a `for` without a body, whose
// failure discards everything the block compiled, the function's own cell
// among it, while the declaration still holds that cell. Discarded cells are
// emptied at once and freed when the compile ends. (A use after release that
// a sanitizer build sees.)
TEST_F(RobustnessTest, DeclarationSurvivesItsBlockBeingDiscarded) {
    pools_off();
    run_script("((){}for())");
    EXPECT_GE(count_logged("internal error"), 1);
    EXPECT_EQ(run_script("print(\"after\");\n"), Strings{"after"});
    // The same inside a member chain: the call that follows `Y()` still holds
    // the callee's cell of the discarded block.
    run_script("(a=Y().(y()=))");
    EXPECT_EQ(run_script("print(\"after\");\n"), Strings{"after"});
}

// A global keeps an instance while the script that declared its class goes.
// The instance's methods referred to the class's cells: calling one now
// reports, releasing the instance runs no destructor, and nothing reads the
// freed class. (A use after release that a sanitizer build sees.)
TEST_F(RobustnessTest, AnInstanceOutlivesItsClass) {
    pools_off();
    EXPECT_EQ(run_script("global keeper = 0;\n"
                         "class Box = {\n    n = 4;\n    get() {\n        return this.n;\n    }\n"
                         "    destructor() {\n        print(\"destroyed\");\n    }\n};\n"
                         "keeper = Box();\nprint(keeper.get());\n"),
              Strings{"4"});
    parsers.clear();
    EXPECT_EQ(run_script("print(keeper.n);\nkeeper.get();\nkeeper = 0;\nprint(\"released\");\n"),
              (Strings{"4", "released"}));
    EXPECT_GE(count_logged("NOT_A_FUNCTION"), 1);
}

// A destructor that runs while the program ends stores a new instance into a
// variable the teardown has already emptied, after the class is gone.
TEST_F(RobustnessTest, AnInstanceMadeDuringTeardownOutlivesItsClass) {
    pools_off();
    run_script(
        "made = 0;\nkeep = 0;\nclass C = {\n    destructor() {\n        if (made == 0) {\n"
        "            made = 1;\n            keep = C();\n        }\n    }\n};\na = C();\n");
    parsers.clear();
    EXPECT_EQ(run_script("print(\"after\");\n"), Strings{"after"});
}

// ---- machine --------------------------------------------------------------------------

// The root calls the function `{b(2}` with an argument; its body calls the
// function again with one. Neither call is given a copy (the function declares
// no parameter), so both bind into the same variables, and the inner call is
// refused (the block is running): the chain waits for good. Stopping it must
// put the variables back innermost first, or the function keeps an argument
// cell that the root's clean-up frees.
TEST_F(RobustnessTest, StoppingAChainPutsParametersBackInnermostFirst) {
    // Eight bytes: the source text ends in the literal's NUL on purpose.
    parsers.push_back(std::make_unique<vrkparser>(
        engine.get(), std::string("{b(2}#\t", 8),  // NOLINT(bugprone-string-constructor)
        false, true));
    vrkblock* root = parsers.back()->root_block;
    ASSERT_NE(root, nullptr);
    ASSERT_TRUE(root->children && !root->children->empty());
    vrkblock* body = root->children->front();
    const std::vector<vrkvar*> before = body->vars;

    run(root, nullptr, 0, kSelfUnchanged);
    EXPECT_NE(root->resume_at, 0u) << "the chain waits";
    stop_run(root, true);
    EXPECT_EQ(body->vars, before);
    EXPECT_EQ(root->resume_at, 0u);
    parsers.clear();
}

// A singleton's body calls a member of the singleton with one argument too
// many, and so does a call of the singleton from outside: the error skips the
// choice of a copy, so both bind into the running body's own variable, the
// body first. The body's call is refused (it is running) and waits on the body
// itself, innermost in the chain although it bound first. When the script
// goes, the bindings must be undone newest first, or the variable keeps the
// body's own argument cell, which the body's clean-up frees. (A use after
// release that a sanitizer build sees.)
TEST_F(RobustnessTest, StoppingAChainPutsParametersBackNewestBindingFirst) {
    pools_off();
    run_script("singleton Registry={while t;{Registry.(\"\"}}(Registry.())");
    EXPECT_GE(count_logged("TOO_MANY_PARAMS"), 2);
    EXPECT_GE(count_logged("Script already running!"), 1);
    parsers.clear();
    EXPECT_EQ(run_script("print(\"after\");\n"), Strings{"after"});
}

// A class called as a bare statement leaves its argument, an instance, in the
// constructor's own parameter; the next construction hands that value over to
// the copy of the constructor that runs. The instance's list of the cells that
// hold it must follow, or the instance's tear-down empties a cell freed with
// the constructor. (A use after release that a sanitizer build sees.)
TEST_F(RobustnessTest, AnInstanceHandedToAConstructorCopyFollowsItsCell) {
    pools_off();
    EXPECT_EQ(run_script("class Thing = {\n    n = 1;\n};\n"
                         "class Box = {\n    constructor(item) {\n"
                         "        print(\"boxed \" + item.n);\n    }\n};\n"
                         "Box(Thing());\nt = Thing();\nb = Box(t);\n"),
              Strings{"boxed 1"});
    parsers.clear();
    EXPECT_EQ(run_script("print(\"after\");\n"), Strings{"after"});
}

// ---- values -------------------------------------------------------------------------

// A store into a builtin's name replaces the cell's value; the builtin's
// record stays as it was, whatever the cell holds next: a number, or a lambda,
// whose captures would otherwise be stored over the record.
TEST_F(RobustnessTest, StoringIntoABuiltinNameLeavesItsRecordAlone) {
    int calls = 0;
    auto counting = [&calls](vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& result) -> vrkvar* {
        ++calls;
        return &result;
    };
    std::vector<vrknative*> records;
    for (const char* name : {"probe", "probe2"})
        records.push_back(
            engine->registerFunction(name, counting, 0, nullptr, "counts its calls", false, true)
                ->value.native);
    auto bytes = [](const vrknative* record) {
        const auto* raw = reinterpret_cast<const unsigned char*>(record);
        return std::vector<unsigned char>(raw, raw + sizeof(vrknative));
    };
    const auto before0 = bytes(records[0]);
    const auto before1 = bytes(records[1]);

    run_script(
        "probe = 2;\nprobe = \"text\";\nk = 1;\n"
        "probe2 = [k](x) {\n    return x + k;\n};\nprobe2 = 3;\n");
    EXPECT_EQ(bytes(records[0]), before0);
    EXPECT_EQ(bytes(records[1]), before1);

    std::vector<vrkvar*> args;
    vrkvar result;
    for (vrknative* record : records) record->fn(nullptr, args, nullptr, result);
    EXPECT_EQ(calls, 2);
}

}  // namespace
}  // namespace vrk
