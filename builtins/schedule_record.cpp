// The due test of schedule records.
#include "builtins/schedule_record.h"

#include <chrono>

namespace vrk {

namespace {

// The parts of a wall-clock second the due test reads, in UTC.
struct utc_parts {
    int64_t hour = 0;          // 0 to 23
    int64_t minute = 0;        // 0 to 59
    int64_t day_of_month = 0;  // 1 to 31
};

utc_parts utc_of(int64_t seconds_since_epoch) {
    using namespace std::chrono;
    const sys_seconds t{seconds{seconds_since_epoch}};
    const sys_days day = floor<days>(t);
    const year_month_day date{day};
    const hh_mm_ss<seconds> clock{t - day};
    return {clock.hours().count(), clock.minutes().count(),
            static_cast<int64_t>(static_cast<unsigned>(date.day()))};
}

// Seconds in one unit of the period, 0 for an unknown kind.
double unit_seconds(int32_t kind) {
    switch (kind) {
        case schedule_kind::seconds: return 1.0;
        case schedule_kind::minutes: return 60.0;
        case schedule_kind::hours: return 3600.0;
        case schedule_kind::days: return 86400.0;
        default: return 0.0;
    }
}

}  // namespace

bool schedule_due(const vrkschedule& record, int64_t now) {
    const double unit = unit_seconds(record.kind);
    // A period of 0 has no multiples to wait for; such a record never runs.
    if (unit == 0.0 || record.period == 0) return false;
    // last_run - now, in this order: the distance is negative once the start has
    // passed, and its 32-bit unsigned image is what the period must divide.
    const double distance = static_cast<double>(record.last_run - now) / unit;
    const auto units = static_cast<uint32_t>(static_cast<int64_t>(distance));
    if (units % record.period != 0) return false;

    const utc_parts current = utc_of(now);
    const utc_parts start = utc_of(record.start_time);
    if (current.hour < start.hour || current.minute < start.minute) return false;

    const int64_t mark = record.kind == schedule_kind::days ? current.day_of_month : current.hour;
    return mark != record.last_mark;
}

void schedule_mark_run(vrkschedule& record, int64_t now) {
    record.last_run = now;
    // The hour for every kind, though kind 3 compares the day of the month.
    record.last_mark = utc_of(now).hour;
}

}  // namespace vrk
