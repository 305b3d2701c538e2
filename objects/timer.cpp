// The interval timer type and its members.
#include "objects/timer.h"

#include <vector>

#include "platform/local_time.h"
#include "values/cell.h"

namespace vrk {

namespace {

using timer_read = uint64_t (*)(const ATimer&);

// A member answering an integer read off the timer.
void reading(const char* name, const char* description, timer_read read) {
    scriptFunction<ATimer>(
        name,
        [read](ATimer* t, vrkblock*, std::vector<vrkvar*>&, vrkvar& result) {
            set_int(&result, static_cast<int64_t>(read(*t)));
        },
        0, false, false, description);
}

}  // namespace

uint64_t ATimer::now_ms() { return static_cast<uint64_t>(platform::wall_clock_ms()); }

void ATimer::scriptRegister() {
    registerType<ATimer>(script_type_name);
    scriptFunction<ATimer>(
        "set_interval",
        [](ATimer* t, vrkblock*, std::vector<vrkvar*>& args, vrkvar&) {
            if (args.size() != 1) return;
            t->interval_ms = static_cast<uint64_t>(to_int(deref(args[0])));
            t->start_ms = now_ms();
        },
        1, false, false, "(int interval_ms) set update interval in milliseconds.");
    scriptFunction<ATimer>(
        "update",
        [](ATimer* t, vrkblock*, std::vector<vrkvar*>&, vrkvar& result) {
            const bool due = t->due();
            if (due) t->start_ms = now_ms();
            set_int(&result, due ? 1 : 0);
        },
        0, false, false,
        "() returns true if interval has passed since last reset. Also resets the timer if so.");
    scriptFunction<ATimer>(
        "check",
        [](ATimer* t, vrkblock*, std::vector<vrkvar*>&, vrkvar& result) {
            set_int(&result, t->due() ? 1 : 0);
        },
        0, false, false,
        "() returns true if interval has passed since last reset. Does not reset the timer.");
    scriptFunction<ATimer>(
        "reset",
        [](ATimer* t, vrkblock*, std::vector<vrkvar*>&, vrkvar&) { t->start_ms = now_ms(); }, 0,
        false, false, "() resets the timer.");
    const char* delay_text = "() returns the delay in ms since last reset.";
    reading("delay", delay_text, [](const ATimer& t) { return t.delay(); });
    reading("millis()", delay_text, [](const ATimer& t) { return t.delay(); });
    reading("seconds", "() returns the delay in seconds since last reset.",
            [](const ATimer& t) { return t.delay() / 1000; });
    const char* minutes_text = "() returns the delay in minutes since last reset.";
    reading("minutes", minutes_text, [](const ATimer& t) { return t.delay() / 60000; });
    reading("hours", minutes_text, [](const ATimer& t) { return t.delay() / 3600000; });
    reading("days", "() returns the delay in days since last reset.",
            [](const ATimer& t) { return t.delay() / 86400000; });
}

}  // namespace vrk
