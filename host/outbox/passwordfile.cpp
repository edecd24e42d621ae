#include "host/outbox/passwordfile.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <sys/stat.h>

#include "host/descriptor.h"

namespace host::outbox {

namespace {

// Longer ones do not fit into a login.
constexpr std::size_t longest_password = 380;

bool is_private(const struct stat64& status) {
    constexpr mode_t others = S_IRWXO | S_IWGRP;
    return (status.st_mode & others) == 0;
}

// What is read at once: a file that changes meanwhile gives one or the other password.
bool read_line(int file, std::string& line, std::string& problem) {
    std::array<char, longest_password + 3> bytes{};
    const ssize_t count = TEMP_FAILURE_RETRY(read(file, bytes.data(), bytes.size()));
    if (count < 0) {
        problem = strerror(errno);
        return false;
    }
    line.assign(bytes.data(), static_cast<std::size_t>(count));
    explicit_bzero(bytes.data(), bytes.size());
    if (line.ends_with('\n')) line.pop_back();
    if (line.ends_with('\r')) line.pop_back();
    if (line.empty())
        problem = "it is empty";
    else if (line.size() > longest_password)
        problem = "it is too long for a password";
    else if (line.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos)
        problem = "it has more than one line";
    return problem.empty();
}

bool read_checked(const std::string& path, std::string& password, std::string& problem) {
    // Without waiting for whoever may write to a FIFO of that name.
    const Descriptor file = open_file(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
    struct stat64 status {};
    if (!file.is_open() || fstat64(file.number(), &status) != 0)
        problem = strerror(errno);
    else if (!S_ISREG(status.st_mode))
        problem = "it is no regular file";
    else if (!is_private(status))
        problem = "others can read or change it; chmod 600 makes it safe";
    return problem.empty() && read_line(file.number(), password, problem);
}

}  // namespace

bool read_password_file(const std::string& path, std::string& password, std::string& error) {
    std::string problem;
    if (!path.starts_with('/'))
        problem = "it is no absolute path";
    else if (read_checked(path, password, problem))
        return true;
    password.clear();
    error = "the password file " + path + " cannot be used: " + problem;
    return false;
}

}  // namespace host::outbox
