// Process builtins: ending a script or the whole process.
//
// `exit` ends only the calling script: its parser is queued, and the next
// frame retires it. A normal run keeps the host running afterwards; only
// `exitprocess` and `terminateprocess` end the process.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(exit);              // (text) stop the calling script at the next frame
VRK_BUILTIN(exitprocess);       // (code) end the process with that exit code
VRK_BUILTIN(terminateprocess);  // () end the process abnormally

}  // namespace vrk::lib
