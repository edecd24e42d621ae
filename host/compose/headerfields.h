#ifndef QUOREL_HOST_COMPOSE_HEADERFIELDS_H
#define QUOREL_HOST_COMPOSE_HEADERFIELDS_H

/// Header fields by the kind of their value. Each function appends one field with its line end to
/// `header`, or returns false with the end of a sentence in `error`.

#include <string>
#include <string_view>
#include <vector>

#include "host/compose/address.h"

namespace host {

/// Text as people write it.
bool put_text_field(std::string& header, std::string_view name, std::string_view text,
                    std::string& error);

bool put_address_field(std::string& header, std::string_view name,
                       const std::vector<Address>& addresses, std::string& error);

/// Identifiers of messages, blanks between, with or without their <> (RFC 5322, section 3.6.4).
bool put_identifiers_field(std::string& header, std::string_view name, std::string_view list,
                           std::string& error);

/// URIs in <>, commas between, or one without (RFC 2369, section 2).
bool put_uris_field(std::string& header, std::string_view name, std::string_view list,
                    std::string& error);

/// `text` in <>, which it may have already: an identifier of a message or of a part. False with the
/// end of a sentence in `error` if it is none.
bool read_identifier(std::string_view text, std::string& identifier, std::string& error);

/// 1 to 50 characters that a field's name can have (RFC 5322, section 3.6.8).
[[nodiscard]] bool is_field_name(std::string_view name);

/// A field of the sender's own: its name is one that nothing else decides, its value is read as
/// such a field's.
bool put_own_field(std::string& header, std::string_view name, std::string_view value,
                   std::string& error);

}  // namespace host

#endif
