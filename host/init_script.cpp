// The host's script functions and their registration.
#include "host/init_script.h"

#include <atomic>
#include <string>

#include "base/context.h"
#include "base/log.h"
#include "host/engine.h"
#include "host/host_state.h"
#include "platform/system.h"
#include "values/cell.h"

namespace vrk {

namespace {

// modulefilename answers from a buffer of this size, terminating zero included.
constexpr std::size_t kModulePathBufferSize = 2048;

// Shared on purpose by modulefilename and working_dir.
constexpr const char* kCurrentDirectoryText = "() returns current directory";

}  // namespace

vrkvar* set_performance_mode(vrkblock*, std::vector<vrkvar*>& args, void*, vrkvar& result) {
    if (args.size() != 1) return &result;
    vrkhost_state& host = host_state();
    host.performanceMode = static_cast<int32_t>(to_int(deref(args[0])));
    log().warn("setting performance mode to %i", host.performanceMode);
    return &result;
}

vrkvar* set_auto_reload(vrkblock*, std::vector<vrkvar*>& args, void*, vrkvar& result) {
    if (args.size() != 1) return &result;
    vrkhost_state& host = host_state();
    // Read by the file watcher's thread.
    std::atomic_ref<uint8_t>(host.autoReload).store(to_int(deref(args[0])) != 0 ? 1 : 0);
    log().warn("setting auto script reload mode to %i", static_cast<int>(host.autoReload));
    return &result;
}

vrkvar* keep_script_running(vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& result) {
    host_state().keepRunningRequested = 1;
    return &result;
}

vrkvar* modulefilename(vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& result) {
    std::string path = platform::executable_path();
    if (path.size() >= kModulePathBufferSize) path.resize(kModulePathBufferSize - 1);
    set_string(&result, path);
    return &result;
}

vrkvar* working_dir(vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& result) {
    set_string(&result, host_state().workingDirectory);
    return &result;
}

vrkvar* scriptarg(vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& result) {
    set_string(&result, host_state().scriptArgument);
    return &result;
}

void init_script(vrkscript* engine) {
    engine->registerFunction("set_performance_mode", set_performance_mode, 1, nullptr,
                             "(mode) 0 = normal, 1 = high performance", false, false);
    engine->registerFunction(
        "set_auto_reload", set_auto_reload, 1, nullptr,
        "(mode) 0 = normal, 1 = reload scripts when a script file on disk changes.", false, false);
    engine->registerFunction("keep_script_running", keep_script_running, 0, nullptr,
                             "() keep script thread running.", false, false);
    engine->registerFunction("modulefilename", modulefilename, 0, nullptr, kCurrentDirectoryText,
                             false, false);
    engine->registerFunction("working_dir", working_dir, 0, nullptr, kCurrentDirectoryText, false,
                             false);
}

void register_scriptarg(vrkscript* engine) {
    engine->registerFunction("scriptarg", scriptarg, 0, nullptr, "returns argument given to script",
                             false, false);
}

}  // namespace vrk
