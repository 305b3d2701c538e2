// A test fixture with an engine of its own, for tests that compile and run
// script text.
//
// Each test gets a fresh engine with a `print` that collects what it prints
// (every argument as text) and a log listener that keeps every message, so a
// test can check both. Blocks made by hand with `make_block` and parsers made by
// `parse`/`run_script` live until the test ends. Fixtures of single test files
// derive from it and add what only they need (their own instruction listing,
// budgets, ...).
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "frontend/compile.h"
#include "frontend/compile_context.h"
#include "frontend/parser.h"
#include "host/engine.h"
#include "values/cell.h"
#include "values/pools.h"
#include "vm/block.h"
#include "vm/run.h"

namespace vrk::test {

using Strings = std::vector<std::string>;

class EngineFixture : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        compile_context().current_compiling_block = nullptr;
        engine = std::make_unique<vrkscript>();
        engine->registerFunction(
            "print",
            [this](vrkblock*, std::vector<vrkvar*>& args, void*, vrkvar& result) -> vrkvar* {
                for (vrkvar* a : args) printed.push_back(to_string(a));
                return &result;
            },
            16, nullptr, "prints its arguments", true, true);
        listener = log().addListener([this](ScriptLogType, const char* text) {
            messages.emplace_back(text);
            return true;
        });
    }

    void TearDown() override {
        log().removeListener(listener);
        for (vrkblock* b : roots) block_delete(b);
        roots.clear();
        parsers.clear();
        engine.reset();
    }

    // A block with `text` as its code text, taken as it stands (no brace
    // splitting); with a parent it is that parent's next child, so "{##BLKn}"
    // in the parent's text names it.
    vrkblock* make_block(const std::string& text, vrkblock* parent = nullptr) {
        vrkblock* b = block_new(engine.get());
        b->code_text = string_new();
        *b->code_text = text;
        if (parent) {
            parent->get_children().push_back(b);
            b->parent = parent;
        } else {
            roots.push_back(b);
        }
        return b;
    }

    // Compiles `text` as a fresh top block and returns it.
    vrkblock* compiled(const std::string& text) {
        vrkblock* b = make_block(text);
        compile_block(b);
        return b;
    }

    // Parses and compiles a whole script; nothing runs but what compiling runs.
    vrkblock* parse(const std::string& text) {
        parsers.push_back(std::make_unique<vrkparser>(engine.get(), text, false, true));
        return parsers.back()->root_block;
    }

    // Parses, compiles and runs a whole script; returns what it printed.
    Strings run_script(const std::string& text, vrkvar* self = nullptr) {
        printed.clear();
        vrkblock* root = parse(text);
        EXPECT_NE(root, nullptr);
        if (root) run(root, nullptr, 0, self);
        return printed;
    }

    // How many messages of the log contain `text`.
    int count_logged(const std::string& text) const {
        int n = 0;
        for (const std::string& m : messages)
            if (m.find(text) != std::string::npos) ++n;
        return n;
    }
    bool logged(const std::string& text) const { return count_logged(text) > 0; }

    std::unique_ptr<vrkscript> engine;                // the engine the scripts run on
    std::vector<std::unique_ptr<vrkparser>> parsers;  // parsers of whole scripts
    std::vector<vrkblock*> roots;                     // top blocks made by make_block
    Strings printed;                                  // what `print` printed, one per argument
    Strings messages;                                 // every message of the log
    uint32_t listener = 0;                            // the log listener's handle
};

}  // namespace vrk::test
