#include "host/argument.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>

namespace host {

namespace {

// Appends the rest of the file. False with errno set.
bool read_all(int file, std::string& bytes) {
    char block[65536];
    for (;;) {
        const ssize_t count = read(file, block, sizeof block);
        if (count == 0) return true;
        if (count > 0) bytes.append(block, static_cast<std::size_t>(count));
        if (count < 0 && errno != EINTR) return false;
    }
}

bool read_file(const std::string& path, Value& value, std::string& error) {
    std::string bytes;
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool complete = file >= 0 && read_all(file, bytes);
    if (!complete) error = "cannot read " + path + ": " + strerror(errno);
    if (file >= 0) close(file);
    value = Value::text(std::move(bytes), EXTFN_TYPE_BINARY);
    return complete;
}

bool read_number(std::string_view digits, Value& value, std::string& error) {
    std::int32_t number = 0;
    const char* end = digits.data() + digits.size();
    const auto parsed = std::from_chars(digits.data(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end) {
        error = "int: takes a whole number from -2147483648 to 2147483647, not \"" +
                std::string(digits) + "\"";
        return false;
    }
    value = Value::number(number);
    return true;
}

}  // namespace

bool read_argument(std::string_view written, Value& value, std::string& error) {
    constexpr std::string_view number_mark = "int:";
    constexpr std::string_view text_mark = "text:";
    if (written == "null") {
        value = Value::null(EXTFN_TYPE_STRING);
        return true;
    }
    if (written.starts_with(number_mark))
        return read_number(written.substr(number_mark.size()), value, error);
    if (written.starts_with('@')) return read_file(std::string(written.substr(1)), value, error);
    if (written.starts_with(text_mark)) written.remove_prefix(text_mark.size());
    value = Value::text(std::string(written), EXTFN_TYPE_STRING);
    return true;
}

}  // namespace host
