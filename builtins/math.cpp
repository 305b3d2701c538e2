// Math and reflection builtins.
#include "builtins/math.h"

#include "base/log.h"
#include "values/cell.h"
#include "vm/block.h"
#include "vm/copies.h"

namespace vrk::lib {

namespace {

// How many arguments the running call of `fn` received: the caller that
// bound them keeps the displaced parameter cells, one per argument. -1 when
// no caller's binding is in force (a run started by the scheduler, a
// constructor or destructor run, a script thread).
int64_t arguments_given(const vrkblock* fn) {
    const vrkblock* caller = fn->caller;
    if (!caller || caller == fn || !block_alive(caller)) return -1;
    if (!caller->params_bound || caller->callee != fn) return -1;
    return static_cast<int64_t>(caller->params.size());
}

}  // namespace

VRK_BUILTIN(set_internal_param_var) {
    if (args.size() != 3 || !block) {
        log().error("INVALID BLK!");
        set_int(&result, 0);
        return &result;
    }
    vrkvar* parameter = args[1];
    vrkvar* value = args[2];
    if (!is_marker(parameter, 11) && !is_marker(value, 11)) {
        const int64_t position = to_int(args[0]);
        const int64_t given = arguments_given(block);
        // Without a binding to count, a parameter that is still the
        // function's own cell received nothing.
        const bool missing = given >= 0 ? position > given : (parameter->flags & kParameterFlag) != 0;
        if (missing) assign(parameter, value, block);
    }
    set_int(&result, 0);
    return &result;
}

}  // namespace vrk::lib
