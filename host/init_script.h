// The host's own script functions.
//
// Besides the builtin library, the host gives scripts a handful of global
// functions that reach the process-wide values of the command line: the
// performance and auto-reload switches, the request to keep the frame loop
// busy, the executable's path, the working directory and, in one-shot runs
// only, the `--scriptarg` text. `init_script` registers the first five in a
// fixed order on every engine the entry creates; `register_scriptarg` adds the
// sixth before a one-shot script loads.
//
// The functions themselves are declared here as well, so that they can be
// called without going through a script.
#pragma once

#include <vector>

namespace vrk {

class vrkscript;
struct vrkblock;
struct vrkvar;

// Registers set_performance_mode, set_auto_reload, keep_script_running,
// modulefilename and working_dir, in this order.
void init_script(vrkscript* engine);

// Registers scriptarg, which returns the one-shot run's --scriptarg value.
void register_scriptarg(vrkscript* engine);

// (mode): with exactly one argument stores it in performanceMode and warns.
vrkvar* set_performance_mode(vrkblock* block, std::vector<vrkvar*>& args, void* user,
                             vrkvar& result);
// (mode): with exactly one argument stores whether it is non-zero in autoReload and warns.
vrkvar* set_auto_reload(vrkblock* block, std::vector<vrkvar*>& args, void* user, vrkvar& result);
// (): asks the frame loop not to sleep after the current frame.
vrkvar* keep_script_running(vrkblock* block, std::vector<vrkvar*>& args, void* user,
                            vrkvar& result);
// (): the executable's full path.
vrkvar* modulefilename(vrkblock* block, std::vector<vrkvar*>& args, void* user, vrkvar& result);
// (): the working directory in force.
vrkvar* working_dir(vrkblock* block, std::vector<vrkvar*>& args, void* user, vrkvar& result);
// (): the --scriptarg value, "" when none was given.
vrkvar* scriptarg(vrkblock* block, std::vector<vrkvar*>& args, void* user, vrkvar& result);

}  // namespace vrk
