#include <functional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/kovcert/qxci/trial.h"

namespace {

/// Makes an object of each kind; a thread of their own deletes them, having used them or not.
std::thread scatter(DBQXCIEnvironment& env, bool use) {
    const a_qxci_byte key[16] = {};
    DBQXCIError error;
    std::vector<std::function<void()>> deletions;
    const auto leave = [&](auto* object) {
        if (object == nullptr) return;
        deletions.emplace_back([object, use] {
            if (use) object->GetLastError();
            delete object;
        });
    };
    leave(env.CreateBlockHasher("SHA256", &error));
    leave(env.CreateBlockEncrypter("AES", key, 16, nullptr, &error));
    leave(env.CreatePasswordHasher(&error));
    if (gUseStub) leave(env.CreateStream(nullptr, nullptr, "rsa", &error));
    EXPECT_EQ(gUseStub ? 4U : 3U, deletions.size()) << describe(error);
    return std::thread([deletions] {
        for (const auto& run : deletions) run();
    });
}

TEST(References, wrappers_are_deleted_on_any_thread_while_others_are_made) {
    for (const bool from_stub : {false, true}) {
        Trial t({.stub = from_stub});
        for (int round = 0; round < 25; ++round) {
            std::vector<std::thread> threads;
            for (int i = 0; i < 8; ++i) threads.push_back(scatter(t.env, true));
            for (std::thread& thread : threads) thread.join();
        }
        const c_utils_ref<DBQXCIInterface> iface(
            t.env._getInterface(from_stub ? OTHER_IFACE : STATIC_IFACE));
        EXPECT_EQ(2U, iface->RefCount()) << "the environment's and this one";
    }
}

TEST(References, wrappers_are_deleted_on_any_thread_while_the_environment_finishes) {
    for (int round = 0; round < 100; ++round) {
        const bool from_stub = round % 2 != 0;
        Owner owner;
        DBQXCIError error;
        gUseStub = from_stub;
        DBQXCIEnvironment env(owner.callbacks(), &owner);
        ASSERT_EQ(QXCI_OK, env.Init(false, "test", nullptr, &error));
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) threads.push_back(scatter(env, false));
        DBQXCIInterface* const iface = env._getInterface(from_stub ? OTHER_IFACE : STATIC_IFACE);
        env.Fini();
        for (std::thread& thread : threads) thread.join();
        EXPECT_FALSE(iface->IsLoaded());
        const uint32 late = iface->RefCount() - 1;
        EXPECT_EQ(late, static_cast<uint32>(owner.live()))
            << "kept: who comes too late leaves all where it is";
        for (uint32 i = 0; i <= late; ++i) iface->Release();
        gUseStub = false;
    }
}

}  // namespace
