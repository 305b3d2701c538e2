// Fixture for tests that run one script with a fast path switched off and on
// and compare everything the two runs show.
//
// The run loop and the call path have fast paths that must give exactly the
// effects of the general instructions they stand for; each can be switched off
// through `value_context()`. A test sets the switches, runs a script with
// `run_outcome_of` (under a step budget if it likes, resuming the root while it
// comes back suspended) and compares two outcomes with `expect_same_outcome`:
// what was printed, what was logged, the final state of every variable of every
// block (tag, text, attributes, flags and the holder counts of an instance) and
// the number of suspensions. `pause()` suspends the calling run, as a sleep does.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/context.h"
#include "engine_fixture.h"
#include "values/cell.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/run.h"

namespace vrk::test {

// Everything a run shows.
struct run_outcome {
    std::vector<std::string> printed;  // arguments of print, as text
    std::vector<std::string> logged;   // log lines
    std::vector<std::string> state;    // every variable, block by block, with holder counts
    int suspensions = 0;               // times the root run came back suspended
};

class FastPathFixture : public EngineFixture {
protected:
    void SetUp() override {
        EngineFixture::SetUp();
        engine->registerFunction(
            "pause",
            [](vrkblock* b, std::vector<vrkvar*>&, void*, vrkvar& result) -> vrkvar* {
                if (b) b->suspended = 2;
                return &result;
            },
            0, nullptr, "suspends the caller", true, true);
    }

    void TearDown() override {
        value_context().fused_paths = true;
        value_context().light_entry = true;
        value_context().call_paths = true;
        value_context().data_paths = true;
        value_context().instance_paths = true;
        context().step_budget = 0;
        context().step_budget_spent = false;
        EngineFixture::TearDown();
    }

    static void dump(const vrkblock* b, std::vector<std::string>& out) {
        if (!b) return;
        for (const vrkvar* v : b->vars) {
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

    // Compiles and runs `text` with the switches as they are, under a step
    // budget (0: none), resuming the root while it comes back suspended.
    run_outcome run_outcome_of(const std::string& text, uint64_t budget) {
        run_outcome current;
        printed.clear();
        messages.clear();
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

    // A fast-path switch of value_context(), named by its member.
    using path_switch = bool vrkvalue_context::*;

    // Runs `text` with one switch off, then on, under the same step budget and
    // requires the same outcome; returns the outcome with the switch on.
    run_outcome expect_same_both_ways(path_switch which, const std::string& text, uint64_t budget) {
        value_context().*which = false;
        const run_outcome slow = run_outcome_of(text, budget);
        value_context().*which = true;
        const run_outcome fast = run_outcome_of(text, budget);
        expect_same_outcome(slow, fast, text + " budget " + std::to_string(budget));
        return fast;
    }

    static void expect_same_outcome(const run_outcome& slow, const run_outcome& fast,
                                    const std::string& what) {
        EXPECT_EQ(slow.printed, fast.printed) << what;
        EXPECT_EQ(slow.logged, fast.logged) << what;
        EXPECT_EQ(slow.state, fast.state) << what;
        EXPECT_EQ(slow.suspensions, fast.suspensions) << what;
    }
};

}  // namespace vrk::test
