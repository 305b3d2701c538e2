// The calendar of local time, as the platform's time zone rules give it.
//
// Scripts read the date and the clock of the place the host runs in (`year`,
// `hour`, `timestamp`, ...). Turning the wall clock into local calendar fields
// needs the system's time zone data, so it lives here.
#pragma once

#include <cstdint>

namespace vrk::platform {

// Calendar fields of a moment in local time.
struct calendar_time {
    int year = 1970;  // full year, e.g. 2024
    int month = 1;    // 1 to 12
    int day = 1;      // day of the month, 1 to 31
    int hour = 0;     // 0 to 23
    int minute = 0;   // 0 to 59
    int second = 0;   // 0 to 60 (a leap second reads 60)
};

// Local calendar fields of the wall-clock second `unix_seconds`.
calendar_time local_time(int64_t unix_seconds);

// The wall-clock second of local calendar fields, which may lie outside their
// ranges (a 13th month is the first of the next year, as the C library
// normalises them); daylight saving time as the zone rules give it for that
// date. -1 when there is no such second or it lies before 1970: the calendar
// of scripts starts there on every platform.
int64_t local_to_unix(const calendar_time& fields);

// Milliseconds of the wall clock since 1970-01-01 UTC.
int64_t wall_clock_ms();

}  // namespace vrk::platform
