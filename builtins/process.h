// Process builtins: ending a script or the whole process, and running
// commands through the system's command processor.
//
// `exit` ends only the calling script: its parser is queued, and the next
// frame retires it. A normal run keeps the host running afterwards; only
// `exitprocess` and `terminateprocess` end the process.
//
// `system` waits for its command and answers the exit code; `systemthread`
// does the same on a worker thread while the calling block sleeps;
// `system_ext` answers everything the command wrote, standard error mixed in
// (builtins/process_run.cpp).
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(exit);              // (text) stop the calling script at the next frame
VRK_BUILTIN(exitprocess);       // (code) end the process with that exit code
VRK_BUILTIN(terminateprocess);  // () end the process abnormally
VRK_BUILTIN(system);            // (cmd) the command's exit code
VRK_BUILTIN(system_ext);        // (cmd) the command's output, standard error included
VRK_BUILTIN(systemthread);      // (cmd) the exit code, waited for on a worker thread
VRK_BUILTIN(subprocess_new);    // () a new idle `subprocess` object (script name `subprocess`)

}  // namespace vrk::lib
