#include "tests/netlib/scripted_calls.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/utsname.h>

#include "tests/wrapped.h"
#include "utils/unix/timelib.h"

namespace {

Script* script = nullptr;
int clock_ms = 0;

constexpr a_timelib_clock fake_clock = {
    .raw_ticks = [] { return 1000L + clock_ms / 10; },
    .microseconds = [] { return uint64{0}; },
    .ticks_per_second = [] { return 100L; },
};

int error_of(const std::string& name) {
    for (int error = 0; error < 200; ++error) {
        const char* known = strerrorname_np(error);
        if (known != nullptr && name == known) return error;
    }
    return std::atoi(name.c_str());
}

std::vector<short> events_of(const std::string& text) {
    constexpr short bits[] = {POLLIN, POLLOUT, POLLERR, POLLHUP, POLLNVAL};
    std::vector<short> events(1);
    for (const char c : text) {
        const size_t known = std::string("RWEHN").find(c);
        if (c == ',') events.push_back(0);
        if (known != std::string::npos)
            events.back() = static_cast<short>(events.back() | bits[known]);
    }
    return events;
}

// The number behind `mark`, or `otherwise`.
int number_after(const std::string& word, char mark, int otherwise) {
    const size_t at = word.find(mark);
    return at == word.npos ? otherwise : std::atoi(&word[at + 1]);
}

Script::Answer parse(const std::string& word) {
    const int times = number_after(word, '*', 1);
    const std::string plain = word.substr(0, word.find_first_of("@*"));
    if (plain == "silence") return {.call = "poll", .ms = -1, .times = times};
    const size_t end = plain.find_first_of("=!:");
    const std::string detail = plain.substr(end + 1);
    Script::Answer answer = {.call = plain.substr(0, end),
                             .error = error_of(detail),
                             .ms = number_after(word, '@', 0),
                             .times = times};
    if (answer.call == "pending" || answer.call == "segment") {
        answer.call = "getsockopt";
    } else if (plain[end] == '=') {
        answer.result = std::atol(detail.c_str());
    } else if (plain[end] == '!') {
        answer.result = -1;
    } else {
        answer.revents = events_of(detail);
        answer.result = std::ranges::count_if(answer.revents, [](short e) { return e != 0; });
    }
    return answer;
}

Script::Answer given;  // the last answer

// The script's answer to `call`, or the system's when there is no script.
template <class Real>
auto answer(const char* call, Real real) -> decltype(real()) {
    if (script == nullptr) return real();
    if (script->left.empty() || script->left.front().call != call) {
        ADD_FAILURE() << "unexpected call of " << call;
        given = {.call = call, .result = -1, .error = ENOSYS};
    } else {
        given = script->left.front();
        if (--script->left.front().times == 0) script->left.erase(script->left.begin());
    }
    clock_ms += std::max(given.ms, 0);
    if (given.result == -1) errno = given.error;
    return static_cast<decltype(real())>(given.result);
}

}  // namespace

Script::Script(const std::string& text) {
    std::istringstream words(text);
    for (std::string word; words >> word;) left.push_back(parse(word));
    script = this;
    clock_ms = 0;
    timelib_set_clock(&fake_clock);
}

Script::~Script() {
    script = nullptr;
    timelib_set_clock(nullptr);
    for (const Answer& unused : left) ADD_FAILURE() << unused.call << " was not called";
}

int Script::elapsed_ms() {
    return clock_ms;
}

// The calls whose answers hold nothing but a result.
#define SCRIPTED(type, name, parameters, arguments)                    \
    type __real_##name parameters;                                     \
    type __wrap_##name parameters {                                    \
        return answer(#name, [&] { return __real_##name arguments; }); \
    }

extern "C" {

SCRIPTED(int, close, (int s), (s))
SCRIPTED(int, accept4, (int s, sockaddr* a, socklen_t* n, int flags), (s, a, n, flags))
SCRIPTED(int, getpeername, (int s, sockaddr* a, socklen_t* n), (s, a, n))
SCRIPTED(int, ioctl, (int s, unsigned long request, void* value), (s, request, value))
SCRIPTED(int, setsockopt, (int s, int level, int option, const void* value, socklen_t n),
         (s, level, option, value, n))
SCRIPTED(ssize_t, recv, (int s, void* b, size_t n, int flags), (s, b, n, flags))
SCRIPTED(ssize_t, send, (int s, const void* b, size_t n, int flags), (s, b, n, flags))
SCRIPTED(ssize_t, recvfrom, (int s, void* b, size_t n, int flags, sockaddr* a, socklen_t* an),
         (s, b, n, flags, a, an))
SCRIPTED(ssize_t, sendto,
         (int s, const void* b, size_t n, int flags, const sockaddr* a, socklen_t an),
         (s, b, n, flags, a, an))

int __real_connect(int s, const sockaddr* name, socklen_t length);
int __wrap_connect(int s, const sockaddr* name, socklen_t length) {
    if (script != nullptr)
        std::memcpy(&script->connected_to, name, std::min<size_t>(length, sizeof(sockaddr_in6)));
    return answer("connect", [&] { return __real_connect(s, name, length); });
}

int __real_poll(pollfd* fds, nfds_t count, int timeout);
int __wrap_poll(pollfd* fds, nfds_t count, int timeout) {
    const int ready = answer("poll", [&] { return __real_poll(fds, count, timeout); });
    if (script == nullptr) return ready;
    script->poll_timeouts.push_back(timeout);
    if (given.ms == -1) clock_ms += timeout;
    for (size_t i = 0; i < given.revents.size() && i < count; ++i)
        fds[i].revents = given.revents[i];
    return ready;
}

int __real_getsockopt(int s, int level, int option, void* value, socklen_t* n);
int __wrap_getsockopt(int s, int level, int option, void* value, socklen_t* n) {
    const auto real = [&] { return __real_getsockopt(s, level, option, value, n); };
    const int result = answer("getsockopt", real);
    if (script == nullptr || result != 0) return result;
    EXPECT_TRUE(option == SO_ERROR || option == TCP_MAXSEG);
    std::memcpy(value, &given.error, sizeof given.error);
    return 0;
}

int __real_uname(utsname* kernel);
int __wrap_uname(utsname* kernel) {
    if (script == nullptr) return __real_uname(kernel);
    std::snprintf(kernel->release, sizeof kernel->release, "%s", script->kernel.c_str());
    return 0;
}

}  // extern "C"
