// Local calendar time on Linux: localtime_r and mktime with the process's
// time zone.
#include <chrono>
#include <ctime>

#include "platform/local_time.h"

namespace vrk::platform {

calendar_time local_time(int64_t unix_seconds) {
    const std::time_t t = static_cast<std::time_t>(unix_seconds);
    std::tm parts{};
    if (!::localtime_r(&t, &parts)) return {};
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
            parts.tm_hour,        parts.tm_min,     parts.tm_sec};
}

int64_t local_to_unix(const calendar_time& fields) {
    std::tm parts{};
    parts.tm_year = fields.year - 1900;
    parts.tm_mon = fields.month - 1;
    parts.tm_mday = fields.day;
    parts.tm_hour = fields.hour;
    parts.tm_min = fields.minute;
    parts.tm_sec = fields.second;
    parts.tm_isdst = -1;
    const std::time_t t = ::mktime(&parts);
    if (t < 0) return -1;  // also mktime's -1 for a time it cannot represent
    return static_cast<int64_t>(t);
}

int64_t wall_clock_ms() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace vrk::platform
