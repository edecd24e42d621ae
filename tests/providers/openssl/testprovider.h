#ifndef QUOREL_TESTS_PROVIDERS_OPENSSL_TESTPROVIDER_H
#define QUOREL_TESTS_PROVIDERS_OPENSSL_TESTPROVIDER_H

/// A provider as its owner sees it: loaded, with an environment whose memory is counted and can run
/// out, and sessions over wires in memory.

#include <atomic>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "tests/kovcert/qxci/owner.h"
#include "tests/providers/wire.h"

/// Code and parameter.
using a_failure = std::pair<unsigned, std::string>;
inline const a_failure no_failure = {0, ""};

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
        : owner(fail_at), _library(dlopen(file, RTLD_NOW)) {
        EXPECT_NE(_library, nullptr) << dlerror();
        fill("QXCIGetEnvIface", _env_iface);
        fill("QXCIGetErrorIface", _error_iface);
        fill("QXCIGetStreamIface", stream_iface);
        fill("QXCIGetStreamConnIface", conn_iface);
        a_qxci_error error = {};
        env = _env_iface.create_func(owner.callbacks(), &owner, Options(settings).head(), "test",
                                     &error);
        failure = peek(&error);
        owner.release(error);
    }
    ~TestProvider() {
        _env_iface.destroy_func(env);
        dlclose(_library);
        EXPECT_EQ(owner.live(), 0);
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

    Owner owner;
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

    void* const _library;
    a_qxci_env_iface _env_iface = {};
    a_qxci_error_iface _error_iface = {};
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
        } else if (streams.init_func(stream, side, Options(stream_settings).head()) != QXCI_OK) {
            failure = TestProvider::peek(streams.get_last_error_func(stream));
        } else {
            conn = _p.conn_iface.create_func(stream, &wire.callbacks, Options(settings).head(),
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
