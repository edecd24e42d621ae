#ifndef QUOREL_HOST_COMPOSE_CONTENTS_H
#define QUOREL_HOST_COMPOSE_CONTENTS_H

#include <string>

#include "host/compose/mail.h"
#include "host/compose/parts.h"

namespace host {

/// A mail's texts and attachments as one part, with others within if it takes several: mixed of
/// what is shown and what is attached; what is shown, related to its pictures; a text and the same
/// in HTML, alternatives (RFC 2046, section 5.1; RFC 2387). False with a sentence in `error`.
bool read_contents(const Mail& mail, Part& whole, std::string& error);

}  // namespace host

#endif
