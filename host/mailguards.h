#ifndef QUOREL_HOST_MAILGUARDS_H
#define QUOREL_HOST_MAILGUARDS_H

/// What the mail procedures' arguments must be together, and what takes the place of those left
/// out: passwords over TLS only, a certificate for the host that was asked for, messages that stay
/// one message.

#include <cstdint>
#include <optional>
#include <string>

#include "host/callarguments.h"

namespace host {

/// Numbers of the parameters that are looked at; procedures.cpp makes sure of them.
enum StartParameter : std::uint32_t {
    start_host = 2,
    start_username = 6,
    start_password = 7,
    start_trusted_cert = 8,
    start_company = 9,
    start_unit = 10,
    start_name = 11,
    start_plaintext = 13
};
enum MessageParameter : std::uint32_t { mail_message = 6, mail_file = 10, mail_raw = 21 };

/// Why a call is not made: `reason` ends a sentence that begins with the parameter.
struct Refusal {
    std::uint32_t parameter;
    std::string reason;
};

/// Empty: the call is made.
using Refused = std::optional<Refusal>;

/// Looks at arguments that each fit their parameter, and may change them. `warning` receives a
/// sentence for a call that is made all the same.
using Guard = Refused (*)(CallArguments& arguments, std::string& warning);

/// For xp_startsmtp.
Refused guard_start(CallArguments& arguments, std::string& warning);

/// For xp_sendmail.
Refused guard_message(CallArguments& arguments, std::string& warning);

/// What `raw` is in this process where a call leaves it out; false at first. For a program with one
/// user; any thread may call it.
void send_raw_by_default(bool raw);

}  // namespace host

#endif
