#ifndef QUOREL_UTILS_UNIX_EINTR_H
#define QUOREL_UTILS_UNIX_EINTR_H

#include <cerrno>

/// Repeats `call` while it fails with EINTR, that is, while it returns -1 (null, for a call that
/// returns a pointer) and errno is EINTR. Returns the last result; errno is the last call's.
template <class Call>
auto retry_interrupted(Call call) {
    constexpr auto failed = [](auto result) {
        if constexpr (requires { *result; }) {
            return result == nullptr;
        } else {
            return result == -1;
        }
    };
    for (;;) {
        const auto result = call();
        if (!failed(result) || errno != EINTR) return result;
    }
}

#endif
