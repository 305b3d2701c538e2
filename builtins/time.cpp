// Pausing builtins and the clock.
#include "builtins/time.h"

#include "platform/local_time.h"
#include "platform/system.h"
#include "values/cell.h"
#include "vm/block.h"
#include "vm/sleep.h"

namespace vrk::lib {

namespace {

// Puts the calling chain to sleep; the calling block stops right after this call.
vrkvar* pause_caller(vrkblock* block, int64_t ms) {
    if (block && vrk::sleep(block, ms, false, 1) == 1) block->suspended = 2;
    // The pointer value 1: no value.
    return reinterpret_cast<vrkvar*>(uintptr_t{1});
}

}  // namespace

VRK_BUILTIN(sleep) {
    if (args.size() != 1) return &result;
    return pause_caller(block, to_int(args[0]));
}

VRK_BUILTIN(keepalive) { return pause_caller(block, kSleepUntilWoken); }

VRK_BUILTIN(millis) {
    set_int(&result, vrk::platform::local_time(vrk::platform::unix_time()).second);
    return &result;
}

}  // namespace vrk::lib
