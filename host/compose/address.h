#ifndef QUOREL_HOST_COMPOSE_ADDRESS_H
#define QUOREL_HOST_COMPOSE_ADDRESS_H

/// Addresses as people write them (RFC 5322, section 3.4), made into what the library sends to.

#include <string>
#include <string_view>
#include <vector>

namespace host {

struct Address {
    std::string name;     ///< as people read it: no quotes; may be empty
    std::string mailbox;  ///< ASCII, the domain in A-labels (RFC 5890)
};

/// Appends the addresses of a list that check_header_text() has passed. False with the end of a
/// sentence in `error`, which names the address.
bool read_addresses(std::string_view list, std::vector<Address>& addresses, std::string& error);

/// A domain of any script (IDNA2008, UTS #46 without transitional processing) in ASCII. False with
/// the end of a sentence in `error`.
bool read_domain(std::string_view domain, std::string& ascii, std::string& error);

}  // namespace host

#endif
