#ifndef QUOREL_TESTS_PROVIDERS_OPENSSL_TESTPROVIDER_H
#define QUOREL_TESTS_PROVIDERS_OPENSSL_TESTPROVIDER_H

/// A provider as its owner sees it: loaded, with an environment whose memory is counted and can run
/// out, and sessions over wires in memory.

#include "wire.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <dlfcn.h>
#include <utility>
#include <vector>

using a_setting_list = std::vector<std::pair<std::string, std::string>>;

/// Code and parameter.
using a_failure = std::pair<unsigned, std::string>;
inline const a_failure no_failure = {0, ""};

/// The settings, which live longer, as a provider is given them.
struct Options : std::vector<a_qxci_user_option> {
    explicit Options(const a_setting_list& settings) {
        for (const auto& [name, value] : settings) {
            push_back({name.c_str(), value.c_str(), false, nullptr});
        }
        for (size_t i = 1; i < size(); i++) at(i - 1).next = &at(i);
    }
    a_qxci_user_option* list() { return empty() ? nullptr : data(); }
};

/// The provider that is linked in, and its clocks: only its sleeps make time pass.
constexpr const char* LINKED = nullptr;
struct a_fake_clock {
    std::atomic<int64_t> now_us = 0;
    std::atomic<int64_t> oversleep_us = 0;  // that each sleep takes longer
    std::atomic<int64_t> days_ahead = 0;    // of the calendar
};
inline a_fake_clock fake_clock;

class TestProvider {
  public:
    explicit TestProvider(const char* file = LINKED, const a_setting_list& settings = {},
                          int fail_at = INT_MAX)
        : _fail_at(fail_at), _library(dlopen(file, RTLD_NOW)) {
        EXPECT_NE(_library, nullptr) << dlerror();
        fill("QXCIGetEnvIface", _env_iface);
        fill("QXCIGetErrorIface", _error_iface);
        fill("QXCIGetStreamIface", stream_iface);
        fill("QXCIGetStreamConnIface", conn_iface);
        a_qxci_error error = {};
        env = _env_iface.create_func(&_callbacks, this, Options(settings).list(), "test", &error);
        failure = peek(&error);
        for (char** parm = error.parm_list; parm != nullptr && *parm != nullptr; parm++) {
            free(this, *parm);
        }
        free(this, error.parm_list);
    }
    ~TestProvider() {
        _env_iface.destroy_func(env);
        dlclose(_library);
        EXPECT_EQ(_live, 0);
    }

    static a_failure peek(const a_qxci_error* error) {
        const char* const parm = error->parm_list == nullptr ? nullptr : error->parm_list[0];
        return {error->code, parm == nullptr ? "" : parm};
    }
    a_failure take(a_qxci_error& error) {
        const a_failure taken = peek(&error);
        _error_iface.destroy_func(env, &error);
        return taken;
    }
    a_qxci_byte algorithm() const {
        return _env_iface.stream_alg_id_func(env, QXCI_STREAM_RSA_TLS) ? QXCI_STREAM_RSA_TLS
                                                                       : QXCI_STREAM_ECC_TLS;
    }
    std::string log;
    bool ran_out() const { return _allocations > _fail_at; }

    a_qxci_stream_iface stream_iface = {};
    a_qxci_conn_iface conn_iface = {};
    QXCIEnvironmentH env;
    a_failure failure;  // of the creation of the environment

  private:
    template <class Iface>
    void fill(const char* entry, Iface& iface) {
        const auto getter = reinterpret_cast<a_qxci_result (*)(Iface*)>(dlsym(_library, entry));
        ASSERT_NE(getter, nullptr) << entry;
        EXPECT_EQ(getter(&iface), QXCI_OK);
    }
    static void* alloc(void* context, size_t size) {
        TestProvider& self = *static_cast<TestProvider*>(context);
        if (self._allocations++ == self._fail_at) return nullptr;
        self._live++;
        return std::malloc(size);
    }
    static void free(void* context, void* memory) {
        if (memory != nullptr) static_cast<TestProvider*>(context)->_live--;
        std::free(memory);
    }
    static int write_log(void* context, int, const char* text, const a_qxci_byte*, unsigned) {
        static_cast<TestProvider*>(context)->log += text;
        return 0;
    }

    const int _fail_at;
    std::atomic<int> _allocations = 0, _live = 0;
    void* const _library;
    a_qxci_env_iface _env_iface = {};
    a_qxci_error_iface _error_iface = {};
    const a_qxci_callbacks _callbacks = {alloc,   nullptr, free,    write_log, nullptr,
                                         nullptr, nullptr, nullptr, nullptr,   nullptr};
};

/// A stream and one connection on it. The newest failure is kept.
class Session {
  public:
    Session(TestProvider& provider, Wire& wire, const a_setting_list& settings,
            a_qxci_side side = QXCI_CLIENT, const a_setting_list& stream_settings = {})
        : _p(provider) {
        const a_qxci_stream_iface& streams = _p.stream_iface;
        a_qxci_error error = {};
        stream = streams.create_with_id_func(_p.env, nullptr, nullptr, _p.algorithm(), &error);
        if (stream == nullptr) {
            failure = _p.take(error);
        } else if (streams.init_func(stream, side, Options(stream_settings).list()) != QXCI_OK) {
            failure = TestProvider::peek(streams.get_last_error_func(stream));
        } else {
            conn = _p.conn_iface.create_func(stream, &wire.callbacks, Options(settings).list(),
                                             &wire, &error);
            failure = _p.take(error);
        }
    }
    ~Session() {
        _p.conn_iface.destroy_func(conn);
        _p.stream_iface.destroy_func(stream);
    }

    a_qxci_io_result write(const std::string& data) {
        return keep(_p.conn_iface.write_func(
            conn, reinterpret_cast<const a_qxci_byte*>(data.data()), data.size()));
    }
    a_qxci_io_result flush() { return keep(_p.conn_iface.flush_writes_func(conn)); }
    /// Adds what is there to `text`.
    a_qxci_io_result read(std::string& text) {
        std::string buf(70000, '\0');
        size_t got = 0;
        const a_qxci_io_result result = _p.conn_iface.read_func(
            conn, reinterpret_cast<a_qxci_byte*>(buf.data()), buf.size(), &got);
        text.append(buf, 0, got);
        return keep(result);
    }

    a_failure failure;
    QXCIStreamH stream;
    QXCIStreamConnH conn = nullptr;

  private:
    a_qxci_io_result keep(a_qxci_io_result result) {
        failure = TestProvider::peek(_p.conn_iface.get_last_error_func(conn));
        return result;
    }

    TestProvider& _p;
};

#endif
