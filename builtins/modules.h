// Builtins that load scripts into the engine from a script: `loadmodule` and `load`.
//
// `loadmodule(text, isfile, runscript)` loads a script from a file (the
// default) or from source text and answers a `vorkamodule` object through
// which the caller reaches the script's variables; the object is tied to the
// calling block and removes the script when it ends. `load(name, args)` loads
// a script file by name, beside the calling script, runs it and ties it to the
// calling block: the loaded script goes when that block ends.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(loadmodule);  // (filename_or_code,isfile,runscript) a vorkamodule object
VRK_BUILTIN(load);        // (name, arguments) loads and runs a script; 1 if it loaded

}  // namespace vrk::lib
