#ifndef QUOREL_TESTS_KOVCERT_QXCI_TRIAL_H
#define QUOREL_TESTS_KOVCERT_QXCI_TRIAL_H

/// An environment to try things in, which must give back all that it takes, and what can be tried.

#include <memory>

#include "kovcert/qxci/dbqxci.h"
#include "tests/kovcert/qxci/owner.h"

/// "28 5 iv": the code, the system code if there is one, and the parameters.
inline std::string describe(const DBQXCIError& error) {
    std::string text = std::to_string(error.getErrorCode());
    if (error.getSystemCode() != 0) text += " " + std::to_string(error.getSystemCode());
    for (int i = 0; error.GetParm(i) != nullptr; ++i) text += std::string(" ") + error.GetParm(i);
    return text;
}

struct a_trial_setting {
    bool fips = false;
    bool stub = false;                          // gUseStub, as long as the trial takes
    const char* dll_name = "libqxcistub_r.so";  // what is in the last slot
    int fail_at = INT_MAX;                      // the allocation of the owner that fails
};

struct Trial {
    explicit Trial(const a_trial_setting& setting = {}) : owner(setting.fail_at) {
        gUseStub = setting.stub;
        options.add("Dll_Name", setting.dll_name);
        result = env.Init(setting.fips, "tester", options.head(), &err);
    }
    ~Trial() {
        env.Fini();
        EXPECT_EQ(0, owner.live());
        gUseStub = false;
    }

    Owner owner;
    Options options;
    DBQXCIError err;
    DBQXCIEnvironment env{owner.callbacks(), &owner};
    a_qxci_result result;  // of its Init()
};

/// What is to be made, by its name or else its number; for a level, by its parameters too.
struct a_wanted {
    const char* name = nullptr;
    int id = -1;
    const char* parms = nullptr;
    size_t key_len = 16;
    a_setting_list settings = {};

    bool by_name() const { return id < 0; }
    a_qxci_byte number() const { return static_cast<a_qxci_byte>(id); }
};

/// Makes an object: "made" and the provider's version, or why not.
using a_creation = std::string (*)(Trial& t, const a_wanted& wanted);

template <class Object>
std::string outcome(Trial& t, Object* made) {
    const std::unique_ptr<Object> object(made);
    return object != nullptr ? "made " + std::to_string(object->GetQXCIVersion().impl_ver)
                             : describe(t.err);
}

inline std::string hasher(Trial& t, const a_wanted& w) {
    return outcome(t, w.by_name() ? t.env.CreateBlockHasher(w.name, &t.err)
                                  : t.env.CreateBlockHasherWithID(w.number(), &t.err));
}
inline std::string encrypter(Trial& t, const a_wanted& w) {
    static constexpr a_qxci_byte key[32] = {};
    Options options(w.settings);
    DBQXCIBlockEncrypter* const made =
        w.by_name()
            ? t.env.CreateBlockEncrypter(w.name, key, w.key_len, options.head(), &t.err)
            : t.env.CreateBlockEncrypterWithID(w.number(), key, w.key_len, options.head(), &t.err);
    const char* const library = made != nullptr ? made->GetDLLName() : nullptr;
    return outcome(t, made) + (library != nullptr ? std::string(" by ") + library : "");
}
inline std::string stream(Trial& t, const a_wanted& w) {
    return outcome(t, w.by_name() ? t.env.CreateStream(nullptr, nullptr, w.name, &t.err)
                                  : t.env.CreateStreamWithID(nullptr, nullptr, w.number(), &t.err));
}
inline std::string level(Trial& t, const a_wanted& w) {
    c_encrypt_level setting;
    setting.set_level(w.name, w.parms);
    return outcome(t, t.env.CreateStream(nullptr, nullptr, setting, &t.err));
}
inline std::string password(Trial& t, const a_wanted& w) {
    return outcome(t, w.by_name() ? t.env.CreatePasswordHasher(&t.err)
                                  : t.env.CreatePasswordHasherWithID(w.number(), &t.err));
}
inline std::string signature(Trial& t, const a_wanted& w) {
    return outcome(t, t.env.CreateSignatureHandler(Options(w.settings).head(), &t.err));
}

#endif
