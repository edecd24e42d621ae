#include "host/compose/maildate.h"

#include <cstdio>

namespace host {

std::string mail_date(std::time_t time) {
    constexpr const char* days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    constexpr int first_year = 1900;  // which tm_year counts from
    constexpr int last_year = 9999;
    std::tm when = {};
    if (gmtime_r(&time, &when) == nullptr || when.tm_year < 0 ||
        when.tm_year > last_year - first_year)
        return {};
    char text[40];
    std::snprintf(text, sizeof text, "%s, %d %s %d %02d:%02d:%02d +0000", days[when.tm_wday],
                  when.tm_mday, months[when.tm_mon], first_year + when.tm_year, when.tm_hour,
                  when.tm_min, when.tm_sec);
    return text;
}

}  // namespace host
