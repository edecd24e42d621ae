#include "utils/jdate/jdate.h"

#include <ctime>

#include <gtest/gtest.h>

namespace {

TEST(Jdate, counts_from_its_epoch_and_every_day_of_a_calendar_cycle_once) {
    EXPECT_EQ(0, jdate_day_number(-4713, 11, 24));
    for (int32 days = 0; days < 146097; ++days) {
        const time_t seconds = time_t{days} * 86400;
        tm utc = {};
        gmtime_r(&seconds, &utc);
        ASSERT_EQ(2440588 + days,
                  jdate_day_number(utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday));
    }
}

}  // namespace
