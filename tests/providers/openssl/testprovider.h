#ifndef QUOREL_TESTS_PROVIDERS_OPENSSL_TESTPROVIDER_H
#define QUOREL_TESTS_PROVIDERS_OPENSSL_TESTPROVIDER_H

/// A provider as its owner sees it: loaded, with an environment whose memory is counted and can run
/// out, and streams and connections on wires in memory.

#include "kovcert/qxci/qxci.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <deque>
#include <dlfcn.h>
#include <string>
#include <utility>
#include <vector>

using a_setting_list = std::vector<std::pair<std::string, std::string>>;

/// Code and parameter.
using a_failure = std::pair<unsigned, std::string>;
inline const a_failure no_failure = {0, ""};

class Options {
  public:
    explicit Options(const a_setting_list& settings) {
        for (const auto& [name, value] : settings) {
            list.push_back({name.c_str(), value.c_str(), false, nullptr});
            if (list.size() > 1) list[list.size() - 2].next = &list.back();
        }
    }
    a_qxci_user_option* head() { return list.empty() ? nullptr : &list.front(); }
    std::deque<a_qxci_user_option> list;
};

/// What a connection's callbacks work on. By itself a wire on which nobody answers.
class Wire {
  public:
    virtual ~Wire() = default;
    /// Makes `in` longer if there is an answer to what has been written.
    virtual void answer() {}

    std::string in;                              // on its way to the provider
    std::string out;                             // all that the provider has written
    size_t limit = SIZE_MAX;                     // bytes that arrive before the end
    a_qxci_io_result end = QXCI_IO_WOULD_BLOCK;  // what reads then give
    bool only_whole = false;  // nothing arrives until all that is asked for is there
    Wire* other = nullptr;    // gets what is written
    bool welcome = true;
    size_t taken = 0;  // bytes that the provider has read
    int reads = 0, writes = 0;

    /// The records that went out of a content type, or of any.
    int records(int type = -1) const {
        int count = 0;
        for (size_t at = 0; at + 5 <= out.size();) {
            if (type < 0 || out[at] == type) count++;
            at += 5 + 256 * static_cast<unsigned char>(out[at + 3]) +
                  static_cast<unsigned char>(out[at + 4]);
        }
        return count;
    }

    static const a_qxci_conn_callbacks* callbacks() {
        static const a_qxci_conn_callbacks table = {
            read, write, nullptr, nullptr, [](void* wire, const a_qxci_byte*, unsigned) {
                return static_cast<Wire*>(wire)->welcome ? 1 : 0;
            }};
        return &table;
    }

  private:
    static a_qxci_io_result read(void* user_data, unsigned char* buf, unsigned len, unsigned* got) {
        Wire& wire = *static_cast<Wire*>(user_data);
        wire.reads++;
        if (wire.in.empty()) wire.answer();
        const size_t there = std::min(wire.in.size(), wire.limit);
        *got = static_cast<unsigned>(std::min<size_t>(len, there));
        if (*got == 0 && wire.limit == 0) return wire.end;
        if (*got == 0 || (wire.only_whole && *got < len)) return QXCI_IO_WOULD_BLOCK;
        wire.in.copy(reinterpret_cast<char*>(buf), *got);
        wire.in.erase(0, *got);
        wire.taken += *got;
        if (wire.limit != SIZE_MAX) wire.limit -= *got;
        return QXCI_IO_OK;
    }

    static a_qxci_io_result write(void* user_data, const unsigned char* data, unsigned len) {
        Wire& wire = *static_cast<Wire*>(user_data);
        wire.writes++;
        if (wire.limit == 0 && wire.end == QXCI_IO_ERROR) return QXCI_IO_ERROR;
        wire.out.append(reinterpret_cast<const char*>(data), len);
        if (wire.other != nullptr) wire.other->in.append(reinterpret_cast<const char*>(data), len);
        return QXCI_IO_OK;
    }
};

class TestProvider {
  public:
    explicit TestProvider(const char* file = RSA_PROVIDER, const a_setting_list& settings = {},
                          int fail_at = INT_MAX)
        : _fail_at(fail_at), _library(dlopen(file, RTLD_NOW)) {
        EXPECT_NE(_library, nullptr) << dlerror();
        fill("QXCIGetEnvIface", env_iface);
        fill("QXCIGetErrorIface", error_iface);
        fill("QXCIGetStreamIface", stream_iface);
        fill("QXCIGetStreamConnIface", conn_iface);
        Options options(settings);
        a_qxci_error error = {};
        env = env_iface.create_func(&_callbacks, this, options.head(), "test", &error);
        if (env == nullptr) failure = take_unowned(error);
    }
    ~TestProvider() {
        env_iface.destroy_func(env);
        dlclose(_library);
        EXPECT_EQ(_live, 0);
    }

    /// A code with its first parameter; empties the record.
    a_failure take(a_qxci_error& error) {
        const a_failure taken = peek(&error);
        if (env == nullptr) return take_unowned(error);
        error_iface.destroy_func(env, &error);
        error = {};
        return taken;
    }
    static a_failure peek(const a_qxci_error* error) {
        return {error->code, error->parm_list == nullptr || error->parm_list[0] == nullptr
                                 ? ""
                                 : error->parm_list[0]};
    }
    a_qxci_byte algorithm() const {
        return env_iface.stream_alg_id_func(env, QXCI_STREAM_RSA_TLS) ? QXCI_STREAM_RSA_TLS
                                                                      : QXCI_STREAM_ECC_TLS;
    }
    bool ran_out() const { return _allocations > _fail_at; }

    a_qxci_env_iface env_iface = {};
    a_qxci_error_iface error_iface = {};
    a_qxci_stream_iface stream_iface = {};
    a_qxci_conn_iface conn_iface = {};
    QXCIEnvironmentH env = nullptr;
    a_failure failure = no_failure;  // of the creation of the environment

  private:
    template <class Iface>
    void fill(const char* entry, Iface& iface) {
        const auto getter = reinterpret_cast<a_qxci_result (*)(Iface*)>(dlsym(_library, entry));
        ASSERT_NE(getter, nullptr) << entry;
        EXPECT_EQ(getter(&iface), QXCI_OK);
    }

    a_failure take_unowned(a_qxci_error& error) {
        const a_failure taken = peek(&error);
        for (char** parm = error.parm_list; parm != nullptr && *parm != nullptr; parm++) {
            free(this, *parm);
        }
        free(this, error.parm_list);
        return taken;
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

    const int _fail_at;
    std::atomic<int> _allocations = 0, _live = 0;
    void* const _library;
    const a_qxci_callbacks _callbacks = {alloc,   nullptr, free,    nullptr, nullptr,
                                         nullptr, nullptr, nullptr, nullptr, nullptr};
};

/// A stream and one connection on it. What fails is kept in `failure`.
class Session {
  public:
    Session(TestProvider& provider, a_qxci_side side, const a_setting_list& stream_settings)
        : _p(provider), _stream(_p.stream_iface.create_with_id_func(
                            _p.env, nullptr, nullptr, provider.algorithm(), &_error)) {
        Options options(stream_settings);
        if (_stream == nullptr) {
            failure = _p.take(_error);
        } else if (_p.stream_iface.init_func(_stream, side, options.head()) != QXCI_OK) {
            failure = TestProvider::peek(_p.stream_iface.get_last_error_func(_stream));
        }
    }
    Session(TestProvider& provider, Wire& wire, const a_setting_list& settings,
            a_qxci_side side = QXCI_CLIENT)
        : Session(provider, side, {}) {
        connect(wire, settings);
    }
    ~Session() {
        _p.conn_iface.destroy_func(_conn);
        _p.stream_iface.destroy_func(_stream);
    }

    bool connect(Wire& wire, const a_setting_list& settings) {
        if (failure != no_failure) return false;
        Options options(settings);
        _conn =
            _p.conn_iface.create_func(_stream, Wire::callbacks(), options.head(), &wire, &_error);
        if (_conn == nullptr) failure = _p.take(_error);
        return _conn != nullptr;
    }

    a_qxci_io_result write(const std::string& data) {
        return keep(_p.conn_iface.write_func(
            _conn, reinterpret_cast<const a_qxci_byte*>(data.data()), data.size()));
    }
    /// Adds what is there to `text`.
    a_qxci_io_result read(std::string& text) {
        std::string buf(70000, '\0');
        size_t got = 0;
        const a_qxci_io_result result = keep(_p.conn_iface.read_func(
            _conn, reinterpret_cast<a_qxci_byte*>(buf.data()), buf.size(), &got));
        text.append(buf, 0, got);
        return result;
    }

    a_failure failure = no_failure;

  private:
    a_qxci_io_result keep(a_qxci_io_result result) {
        failure = TestProvider::peek(_p.conn_iface.get_last_error_func(_conn));
        return result;
    }

    TestProvider& _p;
    a_qxci_error _error = {};
    QXCIStreamH _stream;
    QXCIStreamConnH _conn = nullptr;
};

#endif
