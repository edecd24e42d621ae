#ifndef QUOREL_TESTS_KOVCERT_BUILTIN_OWNER_H
#define QUOREL_TESTS_KOVCERT_BUILTIN_OWNER_H

/// The owner's side of the provider interface: memory that is counted, can run out at a chosen
/// allocation, and is searched for a secret when it comes back; a log; option lists; and an
/// environment of the provider that is linked in.

#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "kovcert/qxci/qxci.h"

class Owner {
  public:
    /// `fail_at` counts allocations from 0.
    explicit Owner(int fail_at = INT_MAX) : _fail_at(fail_at) {}

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
    std::string log;

  private:
    static constexpr size_t header = 16;  // holds the size and keeps the alignment

    static void* alloc(void* context, size_t size) {
        Owner& owner = *static_cast<Owner*>(context);
        if (owner._allocations++ == owner._fail_at) return nullptr;
        ++owner._live;
        char* const memory = static_cast<char*>(std::malloc(header + size));
        std::memcpy(memory, &size, sizeof size);
        std::memset(memory + header, 0xa5, size);
        return memory + header;
    }

    static void free(void* context, void* memory) {
        if (memory == nullptr) return;
        Owner& owner = *static_cast<Owner*>(context);
        char* const start = static_cast<char*>(memory) - header;
        size_t size;
        std::memcpy(&size, start, sizeof size);
        if (!owner.secret.empty() &&
            memmem(memory, size, owner.secret.data(), owner.secret.size()) != nullptr) {
            owner.saw_secret = true;
        }
        --owner._live;
        std::free(start);
    }

    static int write_log(void* context, int, const char* text, const a_qxci_byte*, unsigned) {
        static_cast<Owner*>(context)->log += text;
        return 0;
    }

    const int _fail_at;
    std::atomic<int> _allocations = 0, _live = 0;
    const a_qxci_callbacks _callbacks = {alloc,   nullptr, free,    write_log, nullptr,
                                         nullptr, nullptr, nullptr, nullptr,   nullptr};
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

/// A provider with an environment of its own; every allocation must be back at the end.
class Provider {
  public:
    explicit Provider(int fail_at = INT_MAX, a_qxci_user_option* options = nullptr)
        : owner(fail_at) {
        EXPECT_EQ(QXCIGetEnvIface(&env_iface), QXCI_OK);
        EXPECT_EQ(QXCIGetErrorIface(&error_iface), QXCI_OK);
        EXPECT_EQ(QXCIGetBlockHasherIface(&hash), QXCI_OK);
        EXPECT_EQ(QXCIGetBlockEncrypterIface(&enc), QXCI_OK);
        EXPECT_EQ(QXCIGetPasswordHasherIface(&pw_hash), QXCI_OK);
        EXPECT_EQ(QXCIGetSignatureHandlerIface(&sig), QXCI_OK);
        env = env_iface.create_func(owner.callbacks(), &owner, options, "test", &error);
    }
    ~Provider() {
        if (env == nullptr) owner.release(error);
        if (env != nullptr) error_iface.destroy_func(env, &error);
        env_iface.destroy_func(env);
        EXPECT_EQ(owner.live(), 0);
    }
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;

    /// Why the last creation failed; empties the record.
    std::string creation_error() {
        const std::string text = describe(&error);
        error_iface.destroy_func(env, &error);
        error = {};
        return text;
    }

    Owner owner;
    a_qxci_error error = {};
    QXCIEnvironmentH env;
    a_qxci_env_iface env_iface = {};
    a_qxci_error_iface error_iface = {};
    a_qxci_hash_iface hash = {};
    a_qxci_enc_iface enc = {};
    a_qxci_pw_hash_iface pw_hash = {};
    a_qxci_sig_iface sig = {};
};

#endif
