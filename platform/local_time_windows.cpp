// Local calendar time on Windows: the UTC moment as a system time, turned into
// the local time zone's time with the daylight-saving rule of that date; the
// way back through the C runtime's mktime.
#include <ctime>
#include <windows.h>

#include "platform/local_time.h"

namespace vrk::platform {

namespace {

// 100-ns intervals from 1601-01-01 (the system's epoch) to 1970-01-01.
constexpr int64_t kEpochOffset = 116444736000000000LL;
constexpr int64_t kTicksPerSecond = 10000000LL;

}  // namespace

calendar_time local_time(int64_t unix_seconds) {
    // Moments before 1601 have no system time; they read as the default.
    if (unix_seconds < -kEpochOffset / kTicksPerSecond) return {};
    const uint64_t ticks = static_cast<uint64_t>(unix_seconds * kTicksPerSecond + kEpochOffset);
    FILETIME utc_file{};
    utc_file.dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFFu);
    utc_file.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    SYSTEMTIME utc{};
    SYSTEMTIME local{};
    if (!::FileTimeToSystemTime(&utc_file, &utc)) return {};
    if (!::SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local)) return {};
    return {local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute, local.wSecond};
}

int64_t local_to_unix(const calendar_time& fields) {
    // The C runtime's mktime applies the zone's rules and normalises fields
    // out of their ranges; it has no moments before 1970.
    std::tm parts{};
    parts.tm_year = fields.year - 1900;
    parts.tm_mon = fields.month - 1;
    parts.tm_mday = fields.day;
    parts.tm_hour = fields.hour;
    parts.tm_min = fields.minute;
    parts.tm_sec = fields.second;
    parts.tm_isdst = -1;
    const __time64_t t = ::_mktime64(&parts);
    if (t < 0) return -1;
    return static_cast<int64_t>(t);
}

int64_t wall_clock_ms() {
    FILETIME now{};
    ::GetSystemTimeAsFileTime(&now);
    const uint64_t ticks = (static_cast<uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    return (static_cast<int64_t>(ticks) - kEpochOffset) / 10000;
}

}  // namespace vrk::platform
