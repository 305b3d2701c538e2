// Console output builtins: plain text to standard output past the log, a
// progress bar, clearing the terminal, and the embedding host's output channel.
//
// `cout`, `couts` and `cprogress` write straight to standard output: no log
// prefix, no colour, no listeners. `couts` and `cprogress` end their line with
// a carriage return, so the next write draws over it. `out` hands the text to
// the output handler the embedding host registered for the calling script's
// root block, and does nothing when there is none.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(out);          // (text) to the root block's output handler
VRK_BUILTIN(hideconsole);  // () hides the console window where there is one
VRK_BUILTIN(showconsole);  // () shows it again
VRK_BUILTIN(cout);         // (text) the text and a line feed
VRK_BUILTIN(couts);        // (text) the text and a carriage return
VRK_BUILTIN(coutclear);    // () clears the terminal
VRK_BUILTIN(cprogress);    // (p) a 70-place progress bar for 0 <= p <= 1

}  // namespace vrk::lib
