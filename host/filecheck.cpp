#include "host/filecheck.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>

namespace host {

namespace {

bool look_at(const std::string& file, struct stat64& status) {
    return stat64(file.c_str(), &status) == 0;
}

std::uint64_t size_of(const struct stat64& status) {
    return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace

FileCheck::FileCheck(const FileRule& rule, const CallArguments& arguments)
    : _rule(rule), _arguments(arguments) {
    if (rule.size == FileRule::Size::Unchecked || !arguments[rule.name]) return;
    _file = *arguments[rule.name];
    struct stat64 status {};
    if (look_at(_file, status) && S_ISREG(status.st_mode)) _size = size_of(status);
}

std::string FileCheck::doubt() const {
    if (_file.empty()) return {};
    return _rule.size == FileRule::Size::AsGiven ? _written() : _sent();
}

std::string FileCheck::_written() const {
    const CallArguments::Bytes& contents = _arguments[_rule.contents];
    if (!contents) return {};
    struct stat64 status {};
    if (!look_at(_file, status)) return std::string("the file is not there: ") + strerror(errno);
    // What is written to a device or a pipe is gone; it has no size that could tell.
    if (!S_ISREG(status.st_mode) || size_of(status) == contents->size()) return {};
    return "the file holds " + std::to_string(size_of(status)) + " of " +
           std::to_string(contents->size()) + " bytes";
}

std::string FileCheck::_sent() const {
    // What is no regular file has nothing to compare with.
    if (!_size) return {};
    struct stat64 status {};
    const bool is_there = look_at(_file, status);
    if (is_there && size_of(status) == *_size) return {};
    return "the attached file had " + std::to_string(*_size) + " bytes before the call and " +
           (is_there ? std::to_string(size_of(status)) : std::string("is gone")) +
           " after it; the message went out with what could be read of it";
}

}  // namespace host
