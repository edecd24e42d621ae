#ifndef QUOREL_HOST_COMPOSE_MEDIATYPE_H
#define QUOREL_HOST_COMPOSE_MEDIATYPE_H

/// What kind of contents an attachment has (RFC 2045, section 5).

#include <string>
#include <string_view>
#include <vector>

#include "host/compose/parameters.h"

namespace host {

struct MediaType {
    std::string name;  ///< "text/csv"
    std::vector<Parameter> parameters;
};

[[nodiscard]] bool has_parameter(const MediaType& type, std::string_view name);

/// Takes "text/csv; charset=utf-8" apart. False with the end of a sentence in `error`. A `name`
/// parameter is left out: an attachment has a name of its own. Names in RFC 2231's forms (`name*0`)
/// are none here: how a value travels is put_value()'s business.
bool read_media_type(std::string_view text, MediaType& type, std::string& error);

/// The type that a file of this name has, by its ending; application/octet-stream where that says
/// nothing.
[[nodiscard]] std::string_view type_of_file(std::string_view name);

}  // namespace host

#endif
