// The date builtins: local calendar fields and date arithmetic.
#include "builtins/dates.h"

#include <cstdio>
#include <optional>
#include <string>

#include "platform/local_time.h"
#include "platform/system.h"
#include "values/cell.h"
#include "values/json.h"

namespace vrk::lib {

namespace {

// Seconds of the average year and month that `get_new_date` adds.
constexpr int64_t kYearSeconds = 31556952;
constexpr int64_t kMonthSeconds = 2629746;
constexpr int64_t kDaySeconds = 86400;

// Checked arithmetic: an amount that does not fit makes no date.
std::optional<int64_t> mul(int64_t a, int64_t b) {
    int64_t r = 0;
    if (__builtin_mul_overflow(a, b, &r)) return std::nullopt;
    return r;
}
std::optional<int64_t> add(std::optional<int64_t> a, std::optional<int64_t> b) {
    int64_t r = 0;
    if (!a || !b || __builtin_add_overflow(*a, *b, &r)) return std::nullopt;
    return r;
}

int64_t floor_div(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// Days from 1970-01-01 of a civil date; months outside 1 to 12 are not
// normalised (their month term is extrapolated).
std::optional<int64_t> days_from_civil(int64_t y, int64_t m, int64_t d) {
    // Far beyond any calendar a script could mean; keeps the products in range.
    constexpr int64_t kLimit = int64_t{1} << 40;
    if (y < -kLimit || y > kLimit || m < -kLimit || m > kLimit || d < -kLimit || d > kLimit)
        return std::nullopt;
    if (m < 3) y -= 1;
    const int64_t era = floor_div(y, 400);
    const int64_t yoe = y - era * 400;
    // March is month 0 of the computing year, so February and its leap day end it.
    const int64_t month_days = m < 3 ? (153 * m + 1379) / 5 : (153 * m - 457) / 5;
    return era * 146097 - 719468 + yoe * 365 + yoe / 4 - yoe / 100 + d - 1 + month_days;
}

struct civil {
    int64_t year;   // full year
    int64_t month;  // 1 to 12
    int64_t day;    // 1 to 31
};

civil civil_from_days(int64_t z) {
    z += 719468;
    const int64_t era = floor_div(z, 146097);
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    const int64_t day = doy - (153 * mp + 2) / 5 + 1;
    const int64_t month = mp < 10 ? mp + 3 : mp - 9;
    return {yoe + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

void put(vrkjson* json, const char* key, int64_t value) {
    vrkelement* element = element_new_keyed(key);
    set_int(element, value);
    json->elements.push_back(element);
}

platform::calendar_time now_local() { return platform::local_time(platform::unix_time()); }

vrkvar* answer_int(vrkvar& result, int64_t value) {
    set_int(&result, value);
    return &result;
}

// The local date and time of now in a printf form taking day, month, year,
// hour, minute and second in that order.
vrkvar* answer_stamp(vrkvar& result, const char* format) {
    const platform::calendar_time t = now_local();
    char text[96];
    std::snprintf(text, sizeof text, format, t.day, t.month, t.year, t.hour, t.minute, t.second);
    set_string(&result, text);
    return &result;
}

}  // namespace

VRK_BUILTIN(get_new_date) {
    if (args.size() != 12) return &result;
    int64_t v[12];
    for (std::size_t i = 0; i < 12; ++i) v[i] = to_int(args[i]);
    reset(&result, Tag::JSON);

    const std::optional<int64_t> days = days_from_civil(v[0], v[1], v[2]);
    if (!days) return &result;
    std::optional<int64_t> total = mul(*days, kDaySeconds);
    total = add(total, mul(v[3], 3600));
    total = add(total, mul(v[4], 60));
    total = add(total, v[5]);
    total = add(total, mul(v[6], kYearSeconds));
    total = add(total, mul(v[7], kMonthSeconds));
    total = add(total, mul(v[8], kDaySeconds));
    total = add(total, mul(v[9], 3600));
    total = add(total, mul(v[10], 60));
    total = add(total, v[11]);
    // An amount that does not fit in the clock leaves the array empty.
    if (!total) return &result;

    const int64_t day_count = floor_div(*total, kDaySeconds);
    const int64_t in_day = *total - day_count * kDaySeconds;
    const civil date = civil_from_days(day_count);
    vrkjson* json = result.value.json;
    put(json, "day", date.day);
    put(json, "month", date.month);
    put(json, "year", date.year);
    put(json, "hour", in_day / 3600);
    put(json, "minute", in_day % 3600 / 60);
    put(json, "second", in_day % 60);
    return &result;
}

VRK_BUILTIN(year) { return answer_int(result, now_local().year); }
VRK_BUILTIN(month) { return answer_int(result, now_local().month); }
VRK_BUILTIN(day) { return answer_int(result, now_local().day); }
VRK_BUILTIN(hour) { return answer_int(result, now_local().hour); }
VRK_BUILTIN(minute) { return answer_int(result, now_local().minute); }
VRK_BUILTIN(second) { return answer_int(result, now_local().second); }

VRK_BUILTIN(timestamp) { return answer_stamp(result, "%02d-%02d-%04d %02d:%02d:%02d"); }
VRK_BUILTIN(timestamp2) { return answer_stamp(result, "%02d_%02d_%04d_%02d_%02d_%02d"); }

VRK_BUILTIN(timestamp_json) {
    const platform::calendar_time t = now_local();
    reset(&result, Tag::JSON);
    vrkjson* json = result.value.json;
    put(json, "year", t.year);
    put(json, "month", t.month);
    put(json, "day", t.day);
    put(json, "hour", t.hour);
    put(json, "minute", t.minute);
    put(json, "second", t.second);
    return &result;
}

}  // namespace vrk::lib
