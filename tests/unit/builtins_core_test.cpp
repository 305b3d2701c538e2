// The core builtins as a script reaches them, through the cells the engine
// registered: help and its address-keyed look-up, error values, print forms,
// constants, and the time builtins that pause the calling chain.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "builtins/registry.h"
#include "host/engine.h"
#include "platform/system.h"
#include "support/log_capture.h"
#include "values/json.h"
#include "vm/block.h"
#include "vm/sleep.h"

namespace vrk {
namespace {

using test::LogCapture;

class BuiltinsCoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        caller = block_new(&engine);
    }
    void TearDown() override {
        for (vrkvar* c : owned) cell_free(c);
        reset(&result, Tag::INT);
        block_delete(caller);
    }

    // Calls the registered builtin `name` from `caller` as the run loop would.
    vrkvar* call(const char* name, std::vector<vrkvar*> args) {
        vrkvar* cell = engine.firstBlock->find_var(name);
        EXPECT_NE(cell, nullptr) << name;
        if (!cell) return nullptr;
        EXPECT_EQ(cell->type, Tag::FUNCTION);
        reset(&result, Tag::INT);
        vrknative* record = cell->value.native;
        return record->fn(caller, args, record->user, result);
    }
    vrkvar* cell(Tag tag) {
        owned.push_back(cell_new(tag));
        return owned.back();
    }
    vrkvar* text(const std::string& s) {
        vrkvar* c = cell(Tag::INT);
        set_string(c, s);
        return c;
    }
    vrkvar* number(int64_t v) {
        vrkvar* c = cell(Tag::INT);
        set_int(c, v);
        return c;
    }

    vrkscript engine;
    vrkblock* caller = nullptr;  // the block the builtins are called from
    vrkvar result;               // the call's result cell
    std::vector<vrkvar*> owned;  // argument cells of the test
};

TEST_F(BuiltinsCoreTest, HelpFindsNoFunctionByNameButListsThemAll) {
    LogCapture logs;
    EXPECT_EQ(call("help", {text("print")}), nullptr) << "void result";
    const auto errors = logs.of(ScriptLogType::error);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].rfind("\nexternal_function: function not found\nIn File:\n", 0), 0u)
        << errors[0];

    logs.entries.clear();
    EXPECT_EQ(call("help", {}), &result);
    const auto lines = logs.of(ScriptLogType::log);
    EXPECT_EQ(lines.size(), engine.descriptions.size());
    EXPECT_NE(std::find(lines.begin(), lines.end(), "FN: print DESC: (string) prints a string."),
              lines.end());
    EXPECT_NE(std::find(lines.begin(), lines.end(), "FN: M_PI DESC: Pi"), lines.end());

    call("getfunctions", {});
    ASSERT_EQ(result.type, Tag::JSON);
    EXPECT_EQ(result.value.json->elements.size(), engine.descriptions.size());
    bool seen = false;
    for (vrkelement* e : result.value.json->elements) {
        if (e->key && *e->key == "fail") {
            seen = true;
            EXPECT_EQ(to_string(e), "(string) returns an error.");
        }
    }
    EXPECT_TRUE(seen);
}

TEST_F(BuiltinsCoreTest, ErrorValues) {
    vrkvar* r = call("fail", {});
    ASSERT_EQ(r->type, Tag::ERR);
    vrkvar* emptyError = cell(Tag::INT);
    assign(emptyError, r);
    EXPECT_EQ(to_string(call("geterror", {emptyError})), "")
        << "empty message, not the default text";
    EXPECT_EQ(to_int(call("failed", {emptyError})), 1);
    EXPECT_EQ(to_int(call("iserror", {emptyError})), 1);

    vrkvar* boom = cell(Tag::INT);
    assign(boom, call("fail", {text("boom")}));
    EXPECT_EQ(boom->type, Tag::ERR);
    EXPECT_EQ(to_string(call("geterror", {boom})), "boom");
    EXPECT_EQ(to_string(call("failcode", {boom})), "boom");

    vrkvar* one = number(1);
    EXPECT_EQ(to_int(call("failed", {one, number(2)})), 1) << "a wrong count counts as failed";
    EXPECT_EQ(to_int(call("failed", {one})), 0);
    EXPECT_EQ(to_int(call("iserror", {one})), 0);
    EXPECT_EQ(to_string(call("geterror", {one})), "errormsg not set.");
    EXPECT_EQ(to_string(call("failcode", {one})), "");

    LogCapture logs;
    EXPECT_EQ(to_string(call("geterror", {})), "errormsg not set.");
    EXPECT_EQ(to_int(call("iserror", {})), 0);
    EXPECT_TRUE(logs.entries.empty()) << "wrong counts are reported silently";

    call("error", {text("bad %d thing")});
    const auto errors = logs.of(ScriptLogType::error);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].rfind("\nexternal_function: bad %d thing\n", 0), 0u) << errors[0];
}

TEST_F(BuiltinsCoreTest, PrintFormsByTag) {
    vrkvar* data = cell(Tag::DATA);
    *as_data(data) = {1, 2, 255};
    vrkvar* floats = cell(Tag::FLOATSET);
    *as_floatset(floats) = {1.5f, -2.0f};
    vrkvar* doubles = cell(Tag::DOUBLESET);
    *as_doubleset(doubles) = {0.25};
    vrkvar* ints = cell(Tag::INTSET);
    *as_intset(ints) = {-3, 4};
    vrkvar* bigs = cell(Tag::BIGINTSET);
    *as_bigintset(bigs) = {9000000000LL, -1};
    vrkvar* dangling = cell(Tag::INT);
    set_ref(dangling, nullptr);
    vrkvar* nothing = cell(Tag::VOID);
    vrkvar* emptyData = cell(Tag::DATA);

    LogCapture logs;
    EXPECT_EQ(call("print", {data, floats, doubles, ints, bigs, dangling, nothing, emptyData,
                             text("100% sure"), number(-7)}),
              &result);
    EXPECT_EQ(logs.of(ScriptLogType::log),
              (std::vector<std::string>{"1,2,255", "1.500000,-2.000000", "0.250000", "-3,4",
                                        "9000000000,-1", "ref", "void", "", "100% sure", "-7"}));
    EXPECT_EQ(result.type, Tag::INT) << "the result stays untouched";
}

TEST_F(BuiltinsCoreTest, ConstantsAndCharacters) {
    EXPECT_EQ(to_string(call("nl", {})), "\n");
    EXPECT_EQ(to_string(call("nl", {number(3)})), "\n\n\n");
    EXPECT_EQ(to_string(call("qt", {number(2)})), "\"\"");
    EXPECT_EQ(to_string(call("tab", {number(0)})), "");
    EXPECT_EQ(to_string(call("tab", {number(-4)})), "");
    EXPECT_EQ(to_string(call("qt2", {})), "'");
    EXPECT_EQ(to_string(call("bs", {})), "\b");
    EXPECT_EQ(to_string(call("bsl", {})), "\\");
    EXPECT_EQ(to_string(call("sl", {})), "/");
    EXPECT_EQ(to_string(call("cr", {})), "\r");
    EXPECT_EQ(to_string(call("platform", {})), platform::platform_name());
    EXPECT_DOUBLE_EQ(to_float(call("pi", {})), 3.14159265359);
    vrkvar* mpi = engine.firstBlock->find_var("M_PI");
    ASSERT_NE(mpi, nullptr);
    EXPECT_EQ(mpi->type, Tag::FLOAT);
    EXPECT_DOUBLE_EQ(mpi->value.f, 3.14159265359);

    EXPECT_EQ(to_int(call("globalvar_exist", {text("print")})), 1);
    EXPECT_EQ(to_int(call("globalvar_exist", {text("no_such_thing")})), 0);
    EXPECT_EQ(to_int(call("globalvar_exist", {})), 0);
    EXPECT_EQ(to_string(call("refactor_old", {number(12)})), "12");
}

TEST_F(BuiltinsCoreTest, SleepAndKeepaliveStopTheCallerAndParkItsChain) {
    vrkblock* outer = block_new(&engine);
    outer->caller = outer;
    caller->caller = outer;

    EXPECT_EQ(call("sleep", {}), &result) << "no argument: no pause";
    EXPECT_EQ(caller->suspended, 0);
    EXPECT_TRUE(engine.newSleepers.empty());

    vrkvar* r = call("sleep", {number(250)});
    EXPECT_EQ(reinterpret_cast<uintptr_t>(r), 1u) << "the no-value marker";
    EXPECT_EQ(caller->suspended, 2) << "the calling block stops after the call";
    EXPECT_TRUE(outer->sleeping);
    EXPECT_EQ(outer->sleep_ms, 250);
    EXPECT_EQ(engine.newSleepers, std::vector<vrkblock*>{outer});

    caller->suspended = 0;
    call("keepalive", {});
    EXPECT_EQ(caller->suspended, 2);
    EXPECT_EQ(outer->sleep_ms, kSleepUntilWoken);
    EXPECT_EQ(engine.newSleepers.size(), 1u);

    const int64_t second = to_int(call("millis", {}));
    EXPECT_GE(second, 0);
    EXPECT_LE(second, 60);

    caller->suspended = 0;
    caller->caller = nullptr;
    outer->sleeping = 0;
    block_delete(outer);
}

TEST_F(BuiltinsCoreTest, TableOrderAndArgumentSwitches) {
    const auto table = builtin_table();
    int functions = 0, plainFunctions = 0, constructors = 0, plainConstructors = 0;
    std::vector<std::string> names, variables, keepRefs;
    for (const vrkbuiltin_row& row : table) {
        names.emplace_back(row.name);
        if (row.kind == vrkrow_kind::variable) {
            variables.emplace_back(row.name);
            continue;
        }
        if (!row.deref_args) keepRefs.emplace_back(row.name);
        if (row.kind == vrkrow_kind::constructor) {
            ++constructors;
            plainConstructors += row.plain_args;
            EXPECT_NE(row.constructs, nullptr) << row.name;
        } else {
            ++functions;
            plainFunctions += row.plain_args;
        }
    }
    EXPECT_EQ(functions + constructors, 271);
    EXPECT_EQ(constructors, 9);
    EXPECT_EQ(plainFunctions, 150);
    EXPECT_EQ(functions - plainFunctions, 112);
    EXPECT_EQ(plainConstructors, 2) << "bmp and subprocess";
    EXPECT_EQ(variables, (std::vector<std::string>{"os", "M_PI"}));
    EXPECT_EQ(keepRefs, (std::vector<std::string>{"vtype", "vscripttype"}));
    std::vector<std::string> sorted = names;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end()) << "names are unique";

    auto at = [&](const std::string& name) {
        return std::find(names.begin(), names.end(), name) - names.begin();
    };
    EXPECT_EQ(at("os"), 0);
    EXPECT_EQ(at("loadmodule"), 1);
    EXPECT_EQ(at("M_PI"), at("import") + 1);
    EXPECT_EQ(at("print"), at("M_PI") + 1);
    EXPECT_EQ(names.back(), "refactor_old");
    auto row = [&](const std::string& name) -> const vrkbuiltin_row& { return table[at(name)]; };
    EXPECT_EQ(row("get_new_date").param_count, 12);
    EXPECT_EQ(row("files").param_count, 16);
    EXPECT_EQ(row("everyxhours").param_count, 3);
    EXPECT_EQ(row("map").param_count, 5);
    EXPECT_EQ(row("bmp_circle").param_count, 6);
    EXPECT_EQ(row("subprocess").param_count, 0);
    EXPECT_TRUE(row("max").plain_args);
    EXPECT_FALSE(row("min").plain_args) << "the uneven pattern is kept";
    EXPECT_STREQ(row("millis").description, "get current second");
    EXPECT_STREQ(row("sqrt").description, "");
    EXPECT_STREQ(row("import").description, "no description");

    // Registration follows the table: indexes rise in table order.
    const auto& index = engine.firstBlock->get_names();
    EXPECT_LT(index.at("import"), index.at("M_PI"));
    EXPECT_LT(index.at("M_PI"), index.at("print"));
    EXPECT_LT(index.at("sleep"), index.at("help"));
    EXPECT_LT(index.at("help"), index.at("millis"));
    EXPECT_EQ(engine.firstBlock->find_var("sleep")->value.native->user, nullptr)
        << "rows before help carry no user value";
    EXPECT_EQ(engine.firstBlock->find_var("help")->value.native->user, &engine);
    EXPECT_EQ(engine.firstBlock->find_var("print")->block->plain_args, 1);
    EXPECT_EQ(engine.firstBlock->find_var("exit")->block->plain_args, 0);
}

}  // namespace
}  // namespace vrk
