#include "utils/jdate/jdate.h"

#include <ctime>
#include <gtest/gtest.h>

namespace {

TEST(Jdate, knows_the_julian_day_number_of_famous_dates) {
    struct {
        int32 year, month, day, number;
    } const dates[] = {
        {-4713, 11, 24, 0},    {1582, 10, 15, 2299161}, {1858, 11, 17, 2400001},
        {1970, 1, 1, 2440588}, {2000, 1, 1, 2451545},   {2000, 2, 29, 2451604},
        {1900, 3, 1, 2415080}, {2038, 1, 19, 2465443},
    };
    for (const auto& date : dates)
        EXPECT_EQ(jdate_day_number(date.year, date.month, date.day), date.number)
            << date.year << '-' << date.month << '-' << date.day;
}

TEST(Jdate, counts_every_day_of_a_calendar_cycle_once) {
    constexpr int32 unix_epoch = 2440588;
    for (int32 days = 0; days < 146097 / 6; ++days) {
        const time_t seconds = time_t{days} * 86400;
        tm utc = {};
        gmtime_r(&seconds, &utc);
        ASSERT_EQ(jdate_day_number(utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday),
                  unix_epoch + days);
    }
}

}  // namespace
