#ifndef QUOREL_TESTS_KOVCERT_QXCI_OWNER_H
#define QUOREL_TESTS_KOVCERT_QXCI_OWNER_H

/// The owner's side of kovcert/qxci/qxci.h, for the tests of every provider and of what uses them:
/// memory that is counted, can run out at a chosen allocation, and is searched for a secret when it
/// comes back; mutexes that watch their use; lists of options; and a provider with an environment.

#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "kovcert/qxci/qxci.h"

/// Any number of threads may use its callbacks. They put no order between them, which would hide
/// the races of those who call.
class Owner {
  public:
    /// `fail_at` counts allocations from 0.
    explicit Owner(int fail_at = INT_MAX) : _fail_at(fail_at) {}
    /// Frees what nobody has given back, so that a leak shows in live() alone.
    ~Owner() {
        for (void* const memory : _memory) std::free(memory);
    }
    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;

    const a_qxci_callbacks* callbacks() const { return &_callbacks; }
    int live() const { return _live; }  // allocations not yet freed
    bool ran_out() const { return _allocations > _fail_at; }

    /// Gives the parameters of a record back that belongs to no environment.
    void release(a_qxci_error& error) {
        if (error.parm_list == nullptr) return;
        for (char** parm = error.parm_list; *parm != nullptr; ++parm) free(this, *parm);
        free(this, error.parm_list);
        error = {};
    }

    /// Text that must not be in memory that is freed.
    std::string secret;
    bool saw_secret = false;

  private:
    struct alignas(16) a_header {  // keeps the alignment
        size_t size;
        int place;  // in _memory, if there is one
    };

    static void* alloc(void* context, size_t size) {
        Owner& owner = *static_cast<Owner*>(context);
        const int place = owner._allocations.fetch_add(1, std::memory_order_relaxed);
        if (place == owner._fail_at) return nullptr;
        owner._live.fetch_add(1, std::memory_order_relaxed);
        auto* const header = static_cast<a_header*>(std::malloc(sizeof(a_header) + size));
        *header = {size, place};
        if (owner.remembers(place)) owner._memory[static_cast<size_t>(place)] = header;
        return std::memset(header + 1, 0xa5, size);
    }

    static void free(void* context, void* memory) {
        if (memory == nullptr) return;
        Owner& owner = *static_cast<Owner*>(context);
        a_header* const header = static_cast<a_header*>(memory) - 1;
        if (!owner.secret.empty() &&
            memmem(memory, header->size, owner.secret.data(), owner.secret.size()) != nullptr) {
            owner.saw_secret = true;
        }
        if (owner.remembers(header->place)) {
            owner._memory[static_cast<size_t>(header->place)] = nullptr;
        }
        owner._live.fetch_sub(1, std::memory_order_relaxed);
        std::free(header);
    }

    bool remembers(int place) const { return static_cast<size_t>(place) < _memory.size(); }

    // A mutex is the number of its holders.
    static void* create_mutex(void*) { return new (std::nothrow) int(0); }
    static void destroy_mutex(void*, void* mutex) {
        EXPECT_EQ(0, *static_cast<int*>(mutex));
        delete static_cast<int*>(mutex);
    }

    const int _fail_at;
    std::atomic<int> _allocations = 0, _live = 0;
    std::vector<void*> _memory = std::vector<void*>(3000);  // null: given back, or not yet used
    const a_qxci_callbacks _callbacks = {
        .alloc_cb = alloc,
        .realloc_cb = nullptr,  // who calls it falls over
        .free_cb = free,
        .log_cb = nullptr,
        .threadid_cb = nullptr,
        .mutex_create_cb = create_mutex,
        .mutex_destroy_cb = destroy_mutex,
        .mutex_get_cb = [](void*, void* mutex) { EXPECT_EQ(1, ++*static_cast<int*>(mutex)); },
        .mutex_give_cb = [](void*, void* mutex) { EXPECT_EQ(0, --*static_cast<int*>(mutex)); },
        .create_thread_cb = nullptr,
    };
};

using a_setting_list = std::vector<std::pair<std::string, std::string>>;

/// A list of options that is built in order, of texts that live longer.
class Options {
  public:
    Options() = default;
    explicit Options(const a_setting_list& settings) {
        for (const auto& [name, value] : settings) add(name.c_str(), value.c_str());
    }
    Options& add(const char* name, const char* value) {
        _list.push_back({name, value, false, nullptr});
        if (_list.size() > 1) _list[_list.size() - 2].next = &_list.back();
        return *this;
    }
    a_qxci_user_option* head() { return _list.empty() ? nullptr : &_list.front(); }
    const a_qxci_user_option& operator[](size_t index) const { return _list[index]; }

  private:
    std::deque<a_qxci_user_option> _list;  // elements stay where they are
};

/// "28 5 iv": the code, the system code if there is one, and the parameters.
inline std::string describe(const a_qxci_error* error) {
    std::string text = std::to_string(error->code);
    if (error->system_code != 0) text += " " + std::to_string(error->system_code);
    for (char** parm = error->parm_list; parm != nullptr && *parm != nullptr; ++parm) {
        text += std::string(" ") + *parm;
    }
    return text;
}

/// The getters of a provider, linked in or looked up; null where it has none.
struct a_getters {
    a_qxci_result (*env)(a_qxci_env_iface*);
    a_qxci_result (*error)(a_qxci_error_iface*);
    a_qxci_result (*stream)(a_qxci_stream_iface*);
    a_qxci_result (*conn)(a_qxci_conn_iface*);
    a_qxci_result (*pw_hash)(a_qxci_pw_hash_iface*);
    a_qxci_result (*hash)(a_qxci_hash_iface*);
    a_qxci_result (*enc)(a_qxci_enc_iface*);
    a_qxci_result (*sig)(a_qxci_sig_iface*);
};

/// A provider with an environment of its own; every allocation must be back at the end.
class Provider {
  public:
    explicit Provider(const a_getters& getters, const a_setting_list& settings = {},
                      int fail_at = INT_MAX)
        : owner(fail_at) {
        fill(getters.env, env_iface);
        fill(getters.error, error_iface);
        fill(getters.stream, streams);
        fill(getters.conn, conns);
        fill(getters.pw_hash, pw_hash);
        fill(getters.hash, hash);
        fill(getters.enc, enc);
        fill(getters.sig, sig);
        env = env_iface.create_func(owner.callbacks(), &owner, Options(settings).head(), "test",
                                    &error);
    }
    ~Provider() {
        creation_error();
        env_iface.destroy_func(env);
        EXPECT_EQ(0, owner.live());
    }
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;

    /// Why the last creation failed, that of the environment included; empties the record.
    std::string creation_error() {
        const std::string text = describe(&error);
        if (env == nullptr) {
            owner.release(error);
        } else {
            error_iface.destroy_func(env, &error);
        }
        error = {};
        return text;
    }

    Owner owner;
    a_qxci_error error = {};
    QXCIEnvironmentH env;
    a_qxci_env_iface env_iface = {};
    a_qxci_error_iface error_iface = {};
    a_qxci_stream_iface streams = {};
    a_qxci_conn_iface conns = {};
    a_qxci_pw_hash_iface pw_hash = {};
    a_qxci_hash_iface hash = {};
    a_qxci_enc_iface enc = {};
    a_qxci_sig_iface sig = {};

  private:
    template <class Iface>
    static void fill(a_qxci_result (*getter)(Iface*), Iface& iface) {
        if (getter == nullptr) return;
        EXPECT_EQ(QXCI_OK, getter(&iface));
    }
};

#endif
