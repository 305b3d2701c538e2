// Tests of the host's script functions: what they store and report, and how
// init_script registers them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "host/engine.h"
#include "host/host_state.h"
#include "host/init_script.h"
#include "values/cell.h"
#include "vm/block.h"

namespace vrk {
namespace {

// Collects warnings written while it exists.
class WarningCapture {
public:
    WarningCapture() {
        id = log().addListener([this](ScriptLogType type, const char* text) {
            if (type == ScriptLogType::warning) lines.emplace_back(text);
            return true;
        });
    }
    ~WarningCapture() { log().removeListener(id); }
    std::vector<std::string> lines;  // warning texts without prefix

private:
    uint32_t id = 0;
};

// A cell that frees itself.
struct Cell {
    explicit Cell(Tag tag = Tag::INT) : cell(cell_new(tag)) {}
    ~Cell() { cell_free(cell); }
    vrkvar* cell;  // the owned cell
};

TEST(HostFunctions, SwitchesActOnlyOnExactlyOneArgument) {
    vrkhost_state& host = host_state();
    host.performanceMode = 0;
    host.autoReload = 0;
    WarningCapture capture;
    Cell result, two, five;
    set_int(two.cell, 2);
    set_int(five.cell, 5);

    std::vector<vrkvar*> none;
    std::vector<vrkvar*> pair{two.cell, five.cell};
    EXPECT_EQ(set_performance_mode(nullptr, none, nullptr, *result.cell), result.cell);
    set_performance_mode(nullptr, pair, nullptr, *result.cell);
    set_auto_reload(nullptr, pair, nullptr, *result.cell);
    EXPECT_EQ(host.performanceMode, 0);
    EXPECT_EQ(host.autoReload, 0);
    EXPECT_TRUE(capture.lines.empty());

    std::vector<vrkvar*> one{two.cell};
    set_performance_mode(nullptr, one, nullptr, *result.cell);
    EXPECT_EQ(host.performanceMode, 2);
    one[0] = five.cell;
    set_auto_reload(nullptr, one, nullptr, *result.cell);
    EXPECT_EQ(host.autoReload, 1);  // non-zero-ness, not the value
    EXPECT_EQ(capture.lines, (std::vector<std::string>{"setting performance mode to 2",
                                                       "setting auto script reload mode to 1"}));
    host.performanceMode = 0;
    host.autoReload = 0;
}

TEST(HostFunctions, ReturnTheProcessWideValues) {
    vrkhost_state& host = host_state();
    host.workingDirectory = "some/dir";
    host.scriptArgument = "a b";
    host.keepRunningRequested = 0;
    std::vector<vrkvar*> none;
    Cell result;

    EXPECT_EQ(working_dir(nullptr, none, nullptr, *result.cell), result.cell);
    EXPECT_EQ(to_string(result.cell), "some/dir");
    scriptarg(nullptr, none, nullptr, *result.cell);
    EXPECT_EQ(to_string(result.cell), "a b");
    modulefilename(nullptr, none, nullptr, *result.cell);
    EXPECT_EQ(result.cell->type, Tag::STRING);
    EXPECT_FALSE(to_string(result.cell).empty());
    keep_script_running(nullptr, none, nullptr, *result.cell);
    EXPECT_EQ(host.keepRunningRequested, 1);

    host.workingDirectory.clear();
    host.scriptArgument.clear();
    host.keepRunningRequested = 0;
}

TEST(HostFunctions, RegisteredInOrderWithTheirDescriptions) {
    vrkscript engine;
    init_script(&engine);
    auto& names = engine.firstBlock->get_names();
    const char* order[] = {"set_performance_mode", "set_auto_reload", "keep_script_running",
                           "modulefilename", "working_dir"};
    for (std::size_t i = 1; i < std::size(order); ++i) {
        ASSERT_EQ(names.count(order[i]), 1u) << order[i];
        EXPECT_LT(names[order[i - 1]], names[order[i]]) << order[i];
    }
    EXPECT_EQ(names.count("scriptarg"), 0u);
    register_scriptarg(&engine);
    EXPECT_EQ(names.count("scriptarg"), 1u);

    auto description = [&engine](const std::string& name) {
        for (const auto& [key, text] : engine.descriptions)
            if (name == key) return std::string(text);
        return std::string("(none)");
    };
    EXPECT_EQ(description("modulefilename"), "() returns current directory");
    EXPECT_EQ(description("working_dir"), "() returns current directory");
    EXPECT_EQ(description("scriptarg"), "returns argument given to script");
    EXPECT_EQ(description("set_auto_reload"),
              "(mode) 0 = normal, 1 = reload scripts when a script file on disk changes.");
}

}  // namespace
}  // namespace vrk
