#ifndef QUOREL_HOST_COMPOSE_MAILDATE_H
#define QUOREL_HOST_COMPOSE_MAILDATE_H

#include <ctime>
#include <string>

namespace host {

/// A time in seconds since 1970, as a Date header has it (RFC 5322, section 3.3), in UTC and
/// English whatever the locale. Empty for a year that has not four digits, or is before 1900.
[[nodiscard]] std::string mail_date(std::time_t time);

}  // namespace host

#endif
