// The core builtins: help, console output, error values, constants and the
// small functions that belong to no other family.
//
// Errors reach a script in three ways, and each builtin of the library uses
// the one its description names: a report to the log after which the builtin
// goes on with a default result (most wrong calls, many of them through the
// silent `errorNamed`); a runtime error against the calling block (`error`);
// or a value, the ERR cell, which carries a message and which a script makes
// with `fail` and tests with `failed`, `iserror`, `failcode` and `geterror`.
//
// Every body has the signature of builtins/registry.h and lives in namespace
// `lib` under its script name.
#pragma once

#include "builtins/registry.h"

namespace vrk {

namespace lib {

VRK_BUILTIN(help);             // () lists every description; (name) looks one up, by address
VRK_BUILTIN(getfunctions);     // JSON of every name and its description
VRK_BUILTIN(print);            // one log line per argument
VRK_BUILTIN(error);            // runtime error "external_function" with the text
VRK_BUILTIN(fail);             // ERR cell with the text as message
VRK_BUILTIN(failed);           // 1 for an ERR argument or a wrong count
VRK_BUILTIN(failcode);         // the message of an ERR argument
VRK_BUILTIN(iserror);          // 1 for an ERR argument
VRK_BUILTIN(geterror);         // the message of an ERR argument, else "errormsg not set."
VRK_BUILTIN(globalvar_exist);  // 1 when a global of that name is registered
VRK_BUILTIN(platform);         // "LINUX" or "WINDOWS"
VRK_BUILTIN(pi);               // FLOAT pi
VRK_BUILTIN(nl);               // (count) line feeds
VRK_BUILTIN(qt);               // (count) double quotes
VRK_BUILTIN(qt2);              // one apostrophe
VRK_BUILTIN(tab);              // (count) tabulators
VRK_BUILTIN(cr);               // one carriage return
VRK_BUILTIN(bs);               // one backspace
VRK_BUILTIN(bsl);              // one backslash
VRK_BUILTIN(sl);               // one slash
VRK_BUILTIN(import);           // loads a native module by name
VRK_BUILTIN(preprocessor);     // runs a text through the source preprocessor
VRK_BUILTIN(loglistener);      // calls a script function with every log message
VRK_BUILTIN(refactor_old);     // returns its argument as text

// Sets the global M_PI: FLOAT pi.
void setup_M_PI(vrkengine* engine, vrkvar* cell);

}  // namespace lib
}  // namespace vrk
