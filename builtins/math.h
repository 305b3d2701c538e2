// Math and reflection builtins: numbers, and what a script may learn about
// its own values and functions.
//
// `set_internal_param_var` belongs here as reflection on the running call: the
// compiler puts a call of it in front of the body of every function that
// declares a default for a parameter (`f(a, b = 2)` starts with
// `set_internal_param_var(2,b,2);`), and it stores the default when the call
// that is running passed fewer arguments than the parameter's position.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(set_internal_param_var);  // (position, parameter, default) always INT 0

}  // namespace vrk::lib
