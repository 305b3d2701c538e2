// Commands through the system's command processor (system, system_ext,
// systemthread) and the maker of `subprocess` objects.
#include <cstdio>
#include <memory>
#include <string>

#include "base/script_lock.h"
#include "builtins/files_support.h"
#include "builtins/process.h"
#include "objects/subprocess.h"
#include "platform/shell.h"
#include "values/cell.h"

namespace vrk::lib {

VRK_BUILTIN(system) {
    set_int(&result, 0);
    if (args.size() != 1) return &result;
    // What the program printed so far goes out before the command's output.
    std::fflush(stdout);
    set_int(&result, platform::run_shell(file_support::text_arg(args, 0)));
    return &result;
}

VRK_BUILTIN(system_ext) {
    set_int(&result, 0);
    if (args.size() != 1) return &result;
    std::string output;
    if (!platform::capture_shell(file_support::text_arg(args, 0) + " 2>&1", output)) {
        set_int(&result, -1);
        return &result;
    }
    set_string(&result, output);
    return &result;
}

VRK_BUILTIN(systemthread) {
    set_int(&result, 0);
    if (args.size() != 1) return &result;
    std::fflush(stdout);
    return file_support::run_job(engine, block, result,
                                 [command = file_support::text_arg(args, 0)](vrkvar* cell) {
                                     const int code = platform::run_shell(command);
                                     ScriptLock lock;
                                     set_int(cell, code);
                                 });
}

VRK_BUILTIN(subprocess_new) {
    set_object(&result, std::make_unique<ScriptSubProcess>().release(), true);
    return &result;
}

}  // namespace vrk::lib
