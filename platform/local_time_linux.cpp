// Local calendar time on Linux: localtime_r with the process's time zone.
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

}  // namespace vrk::platform
