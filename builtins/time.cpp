// Pausing builtins, the monotonic clock and the millisecond conversions.
#include "builtins/time.h"

#include "platform/local_time.h"
#include "platform/system.h"
#include "values/cell.h"
#include "vm/block.h"
#include "vm/sleep.h"

namespace vrk::lib {

namespace {

// The pointer value 1: no value.
vrkvar* no_value() { return reinterpret_cast<vrkvar*>(uintptr_t{1}); }

// Puts the calling chain to sleep; the calling block stops right after this call.
vrkvar* pause_caller(vrkblock* block, int64_t ms) {
    if (block && vrk::sleep(block, ms, false, 1) == 1) block->suspended = 2;
    return no_value();
}

// `factor` milliseconds per unit, as an integer.
vrkvar* to_ms(std::vector<vrkvar*>& args, vrkvar& result, int64_t factor) {
    // Wrapping arithmetic: a huge count gives a wrapped product, never a fault.
    const auto value = args.size() == 1 ? static_cast<uint64_t>(to_int(args[0])) : 0;
    set_int(&result,
            args.size() == 1 ? static_cast<int64_t>(value * static_cast<uint64_t>(factor)) : 0);
    return &result;
}

// Milliseconds divided down step by step, always a float.
vrkvar* from_ms(std::vector<vrkvar*>& args, vrkvar& result, std::initializer_list<double> steps) {
    if (args.size() != 1) {
        set_int(&result, 0);
        return &result;
    }
    double value = to_float(args[0]);
    for (double step : steps) value /= step;
    set_float(&result, value);
    return &result;
}

}  // namespace

VRK_BUILTIN(sleep) {
    if (args.size() != 1) return &result;
    return pause_caller(block, to_int(args[0]));
}

VRK_BUILTIN(yield) { return pause_caller(block, 0); }

VRK_BUILTIN(keepalive) { return pause_caller(block, kSleepUntilWoken); }

VRK_BUILTIN(millis) {
    set_int(&result, vrk::platform::local_time(vrk::platform::unix_time()).second);
    return &result;
}

VRK_BUILTIN(time) {
    set_int(&result, vrk::platform::monotonic_ms());
    return &result;
}

VRK_BUILTIN(seconds_ms) { return to_ms(args, result, 1000); }
VRK_BUILTIN(minutes_ms) { return to_ms(args, result, 60000); }
VRK_BUILTIN(hours_ms) { return to_ms(args, result, 3600000); }
VRK_BUILTIN(days_ms) { return to_ms(args, result, 86400000); }
VRK_BUILTIN(weeks_ms) { return to_ms(args, result, 604800000); }

VRK_BUILTIN(ms_seconds) { return from_ms(args, result, {1000.0}); }
VRK_BUILTIN(ms_minutes) { return from_ms(args, result, {1000.0, 60.0}); }
VRK_BUILTIN(ms_hours) { return from_ms(args, result, {1000.0, 60.0, 60.0}); }
VRK_BUILTIN(ms_days) { return from_ms(args, result, {1000.0, 60.0, 60.0, 24.0}); }
VRK_BUILTIN(ms_weeks) { return from_ms(args, result, {1000.0, 60.0, 60.0, 24.0, 7.0}); }

}  // namespace vrk::lib
