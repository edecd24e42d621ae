#ifndef QUOREL_UTILS_UNIX_EINTR_H
#define QUOREL_UTILS_UNIX_EINTR_H

#include <cerrno>

/// Repeats `call` while it fails with EINTR, that is, while it returns -1 (or null, for a call that
/// returns a pointer) and errno is EINTR. Returns the last result; errno is the last call's.
template <class Call>
auto retry_interrupted(Call call) {
    for (;;) {
        auto result = call();
        constexpr decltype(result) failed = [] {
            if constexpr (requires { decltype(result){nullptr}; })
                return nullptr;
            else
                return -1;
        }();
        if (result != failed || errno != EINTR) return result;
    }
}

#endif
