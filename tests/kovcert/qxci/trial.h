#ifndef QUOREL_TESTS_KOVCERT_QXCI_TRIAL_H
#define QUOREL_TESTS_KOVCERT_QXCI_TRIAL_H

/// An environment to try things in, which must give back all that it takes.

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

#endif
