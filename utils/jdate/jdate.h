#ifndef QUOREL_UTILS_JDATE_JDATE_H
#define QUOREL_UTILS_JDATE_JDATE_H

/// Calendar dates as day numbers.
///
/// All functions are pure and may be called from any thread.

#include "utils/etc/uttypes.h"

/// A point in local time, taken apart the way localtime_r() does it, with two differences: the year
/// is the full year and months count from 1.
struct a_broken_time {
    int32 year;          // full year, e.g. 2024; proleptic Gregorian calendar
    int32 month;         // 1 to 12
    int32 day;           // 1 to 31
    int32 hour;          // 0 to 23
    int32 minute;        // 0 to 59
    int32 second;        // 0 to 60, 60 for a leap second
    int32 weekday;       // 0 (Sunday) to 6
    int32 day_of_year;   // 0 to 365
    uint32 microsecond;  // 0 to 999999
};

/// A date and a time of day. All zero means "no time"; it is not a day that occurs.
struct a_timestamp {
    int32 date;           // Julian day number; 2440588 is 1970-01-01
    uint32 seconds;       // since local midnight
    uint32 microseconds;  // 0 to 999999
};

/// The Julian day number of a date in the proleptic Gregorian calendar. Days that the month does
/// not have run on into the next one (February 30th is March 1st or 2nd). Years from -4800 on.
int32 jdate_day_number(int32 year, int32 month, int32 day);

/// Converts `time` to a timestamp. Weekday and day of the year follow from the date and are not
/// read.
a_timestamp jdate_timestamp(const a_broken_time& time);

#endif
