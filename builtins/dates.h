// Date builtins: the local calendar and calendar arithmetic.
//
// `year` ... `second` and the three `timestamp` forms read the local calendar
// of the moment of the call. `get_new_date` adds an amount of time to a date
// and answers the new date's fields. It works on a proleptic Gregorian
// calendar counted in days from 1970 and adds years and months as their
// average lengths (365.2425 days, and a twelfth of that), so adding one month
// to the 1st of a month does not always give the 1st of the next one.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(get_new_date);    // (y,m,d,h,mi,s, y2,m2,d2,h2,mi2,s2) the date plus the amount
VRK_BUILTIN(year);            // () the local year
VRK_BUILTIN(month);           // () the local month, 1 to 12
VRK_BUILTIN(day);             // () the local day of the month
VRK_BUILTIN(hour);            // () the local hour
VRK_BUILTIN(minute);          // () the local minute
VRK_BUILTIN(second);          // () the local second
VRK_BUILTIN(timestamp);       // () "dd-mm-yyyy hh:mm:ss"
VRK_BUILTIN(timestamp2);      // () "dd_mm_yyyy_hh_mm_ss"
VRK_BUILTIN(timestamp_json);  // () {year, month, day, hour, minute, second}

}  // namespace vrk::lib
