// Local calendar time on Windows: the UTC moment as a system time, turned into
// the local time zone's time with the daylight-saving rule of that date.
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

}  // namespace vrk::platform
