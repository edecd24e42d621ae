#ifndef QUOREL_TESTS_PROVIDERS_OPENSSL_TESTPROVIDER_H
#define QUOREL_TESTS_PROVIDERS_OPENSSL_TESTPROVIDER_H

#include <atomic>

#include <dlfcn.h>

#include "tests/providers/session.h"

/// The provider that is linked in, and its clocks: only its sleeps make time pass.
constexpr const char* LINKED = nullptr;
struct a_fake_clock {
    std::atomic<int64_t> now_us = 0;
    std::atomic<int64_t> oversleep_us = 0;  // that each sleep takes longer
    std::atomic<int64_t> days_ahead = 0;    // of the calendar
};
inline a_fake_clock fake_clock;

/// A library, which goes after the provider in it.
class LoadedLibrary {
  public:
    explicit LoadedLibrary(const char* file) : _library(dlopen(file, RTLD_NOW)) {
        EXPECT_NE(nullptr, _library) << dlerror();
    }
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;
    ~LoadedLibrary() { dlclose(_library); }

    a_getters getters() const {
        a_getters found = {};
        const auto find = [this](const char* entry, auto& getter) {
            getter = reinterpret_cast<std::decay_t<decltype(getter)>>(dlsym(_library, entry));
        };
        find("QXCIGetEnvIface", found.env);
        find("QXCIGetErrorIface", found.error);
        find("QXCIGetStreamIface", found.stream);
        find("QXCIGetStreamConnIface", found.conn);
        return found;
    }

  private:
    void* const _library;
};

class TestProvider : private LoadedLibrary, public Provider {
  public:
    explicit TestProvider(const char* file = LINKED, const a_setting_list& settings = {},
                          int fail_at = INT_MAX)
        : LoadedLibrary(file), Provider(getters(), settings, fail_at) {}

    /// Of the newest creation, that of the environment being the first.
    a_failure failure() const { return failure_of(error); }
};

#endif
