#ifndef QUOREL_HOST_CONTENT_H
#define QUOREL_HOST_CONTENT_H

/// What a parameter's value may be, beyond its type. The mail procedures paste addresses, names and
/// subjects into the dialogue and the message as they are, where a line break would begin a command
/// or a header line of the caller's choosing.

#include <cstdint>
#include <string_view>

namespace host {

enum class Content {
    Bytes,       ///< anything
    Text,        ///< no zero byte: the procedures use text as C strings
    Line,        ///< no CR, LF or zero byte
    Header,      ///< a line without control characters, but tabs may be
    Address,     ///< a header's text without "<" and ">"
    Name,        ///< the same, a comma only in double quotes: a person's, before the address
    Attachment,  ///< a file's name, whose last part could stand in a header's quotes
    Port,        ///< 1 to 65535
    Switch       ///< 0 or 1, for the host itself: the procedure does not see the parameter
};

/// What is wrong with `text` as such a value, as the end of a sentence that begins with the
/// parameter ("takes no line breaks"); empty where nothing is.
[[nodiscard]] std::string_view complaint(Content content, std::string_view text);

/// The numbers that may stand for such a value, both ends included, and words for them.
struct NumberRange {
    std::int32_t lowest;
    std::int32_t highest;
    std::string_view words;
};
[[nodiscard]] NumberRange number_range(Content content);

}  // namespace host

#endif
