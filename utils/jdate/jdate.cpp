#include "utils/jdate/jdate.h"

// The year is counted from March, so that the leap day is its last day and the lengths of the
// months before it follow the pattern 31 30 31 30 31, which (153 * m + 2) / 5 sums up.
int32 jdate_day_number(int32 year, int32 month, int32 day) {
    const int32 january_or_february = month <= 2 ? 1 : 0;
    const int32 y = year + 4800 - january_or_february;
    const int32 m = month + 12 * january_or_february - 3;
    const int32 leap_days = y / 4 - y / 100 + y / 400;
    constexpr int32 march_1st_4801_bc = -32045;
    return day + (153 * m + 2) / 5 + 365 * y + leap_days + march_1st_4801_bc;
}

a_timestamp jdate_timestamp(const a_broken_time& time) {
    const int32 seconds = (time.hour * 60 + time.minute) * 60 + time.second;
    return {jdate_day_number(time.year, time.month, time.day), static_cast<uint32>(seconds),
            time.microsecond};
}
