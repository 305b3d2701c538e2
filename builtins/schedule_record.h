// Schedule records: script functions the engine calls on a calendar rhythm.
//
// Each `everyx...` call of a script makes one record (builtins/schedules.cpp),
// owned by the engine's schedule list. The engine looks at exactly one record per frame, in turn, and
// decides with `schedule_due` whether its task should run now. The test is
// arithmetic on wall-clock seconds and broken-down UTC time and has some edges
// that are part of the behaviour: the distance from the last run is taken as
// (last run - now), not the other way round, cut to 32 unsigned bits before the
// modulo by the period; the hour and the minute of now are each compared with
// those of the start time on their own; and a record runs at most once per hour
// value (for days: per day of the month), because `last_mark` keeps the hour of
// the last run whatever the kind.
#pragma once

#include <cstdint>
#include <functional>

namespace vrk {

// Unit of a schedule's period.
namespace schedule_kind {
inline constexpr int32_t seconds = 0;
inline constexpr int32_t minutes = 1;
inline constexpr int32_t hours = 2;
inline constexpr int32_t days = 3;
}  // namespace schedule_kind

struct vrkschedule {
    int32_t kind = 0;            // schedule_kind: 0 seconds, 1 minutes, 2 hours, 3 days
    uint64_t period = 0;         // run every `period` units
    int64_t last_run = 0;        // wall-clock seconds of the last run; starts as start_time
    int64_t start_time = 0;      // wall-clock seconds of the start given by the script
    int64_t last_mark = 0;       // hour of the last run (compared with the day for kind 3)
    std::function<bool()> task;  // starts the function; false when it could not
    uint64_t id = 0;             // from the engine's schedule counter
};

// True when the record's task is due at wall-clock second `now`.
bool schedule_due(const vrkschedule& record, int64_t now);

// Records a run that took place at `now`.
void schedule_mark_run(vrkschedule& record, int64_t now);

}  // namespace vrk
