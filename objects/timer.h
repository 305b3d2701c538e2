// `ATimer`, the interval timer of scripts (script type `vrk_timer`).
//
// A timer remembers when it was last reset and, optionally, an interval.
// `update` answers whether the interval has passed since the last reset and
// resets the timer when it has, so a script calling it in a loop gets a true
// answer once per interval; `check` asks the same without resetting. The other
// members read the time since the last reset in several units. The clock is
// the wall clock in milliseconds, so a timer made without arguments (reset at
// 0) reads the current time since 1970 as its delay.
//
// One member is named `millis()`, parentheses included: a script reaches it
// only by a string key (`t["millis()"]`). It answers the same as `delay`.
#pragma once

#include <cstdint>

#include "objects/object_ext.h"

namespace vrk {

class ATimer : public vrkobject_ext<ATimer, vrkobject> {
public:
    static constexpr const char* script_type_name = "vrk_timer";

    // Registers the type and its members.
    static void scriptRegister();

    // The timer's clock: wall-clock milliseconds.
    static uint64_t now_ms();

    // Milliseconds since the last reset (wrapping, as unsigned arithmetic does).
    uint64_t delay() const { return now_ms() - start_ms; }
    // True when an interval is set and it has passed since the last reset.
    bool due() const { return interval_ms != 0 && now_ms() >= start_ms + interval_ms; }

    uint64_t start_ms = 0;     // wall-clock milliseconds of the last reset
    uint64_t interval_ms = 0;  // the interval; 0 means none
};

}  // namespace vrk
