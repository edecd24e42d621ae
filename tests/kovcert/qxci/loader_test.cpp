#include <cstring>
#include <filesystem>
#include <vector>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "kovcert/qxci/dbqxci.h"
#include "kovcert/qxci/dbqxciinterface.h"
#include "tests/kovcert/qxci/owner.h"
#include "tests/scratch.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* broken = "libbroken.so";

fs::path library_folder() {
    return fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "lib";
}

bool is_open(const char* name) {
    void* const library = dlopen((library_folder() / name).c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (library != nullptr) dlclose(library);
    return library != nullptr;
}

/// "26 libx.so libx.so": the code, the system code if there is one, and the parameters.
std::string describe(const DBQXCIError& error) {
    std::string text = std::to_string(error.getErrorCode());
    if (error.getSystemCode() != 0) text += " " + std::to_string(error.getSystemCode());
    for (int i = 0; error.GetParm(i) != nullptr; ++i) text += std::string(" ") + error.GetParm(i);
    return text;
}

/// One letter for each table that is filled: Version apart, Error, Stream, Conn, ...
std::string filled_tables(const DBQXCIInterface& iface) {
    const auto letter = [](const auto& table, const char* name) {
        const std::remove_cvref_t<decltype(table)> empty = {};
        return std::memcmp(&table, &empty, sizeof table) == 0 ? "" : name;
    };
    return std::string(letter(iface._env_iface, "V")) + letter(iface._error_iface, "E") +
           letter(iface._stream_iface, "S") + letter(iface._conn_iface, "C") +
           letter(iface._pw_hash_iface, "P") + letter(iface._hash_iface, "H") +
           letter(iface._enc_iface, "B") + letter(iface._sig_iface, "G");
}

/// What a load comes to: the tables that are filled, or the error.
std::string load(a_qxci_dll_type type, const char* name, const char* file = nullptr) {
    const c_utils_ref<DBQXCIInterface> iface(new DBQXCIInterface);
    DBQXCIError error;
    const bool loaded = iface->Load(type, name, &error);
    if (file == nullptr) file = name;
    EXPECT_EQ(iface->IsLoaded(), loaded);
    EXPECT_EQ(iface->IsValid(), loaded);
    EXPECT_EQ(is_open(file), loaded) << file;
    const std::string result = loaded ? filled_tables(*iface) : describe(error);
    EXPECT_TRUE(loaded || filled_tables(*iface).empty()) << "cleared";
    EXPECT_TRUE(iface->Unload());
    EXPECT_FALSE(is_open(file)) << file;
    EXPECT_EQ(filled_tables(*iface), "");
    return result;
}

TEST(Loader, demands_three_entry_points_and_does_without_the_others) {
    const struct {
        const char* missing;
        const char* result;  // null: refused
    } cases[] = {
        {"QXCIGetVersion", nullptr},
        {"QXCIGetEnvIface", nullptr},
        {"QXCIGetErrorIface", nullptr},
        {"QXCIGetStreamIface", "VECPHBG"},
        {"QXCIGetStreamConnIface", "VESPHBG"},
        {"QXCIGetPasswordHasherIface", "VESCHBG"},
        {"QXCIGetBlockHasherIface", "VESCPBG"},
        {"QXCIGetBlockEncrypterIface", "VESCPHG"},
        {"QXCIGetSignatureHandlerIface", "VESCPHB"},
    };
    for (const auto& c : cases) {
        const std::string name = std::string("libno") + c.missing + ".so";
        const std::string refused = "26 " + name + " " + name;
        EXPECT_EQ(load(QXCI_DLL_OTHER, name.c_str()), c.result != nullptr ? c.result : refused);
    }
}

TEST(Loader, refuses_what_is_not_right) {
    const std::string missing_dll = std::string("26 ") + broken + " " + broken;
    const std::string no_fips = std::string("25 ") + QXCI_FIPS_DLL_NAME;
    const struct {
        const char* fault;
        const char* other;  // null: missing_dll and no_fips
        const char* fips;
    } cases[] = {
        {"", "VESCPHBG", "VESCPHBG"},
        {"impl_ver", "VESCPHBG", "VESCPHBG"},
        {"api_major", "27", "27"},
        {"api_minor", "27", "27"},
        {"impl_id", "27", "27"},
        {"QXCIGetEnvIface", nullptr, nullptr},
        {"QXCIGetErrorIface", nullptr, nullptr},
        {"QXCIGetStreamIface", nullptr, nullptr},
        {"QXCIGetStreamConnIface", nullptr, nullptr},
        {"QXCIGetPasswordHasherIface", nullptr, nullptr},
        {"QXCIGetBlockHasherIface", nullptr, nullptr},
        {"QXCIGetBlockEncrypterIface", nullptr, nullptr},
        {"QXCIGetSignatureHandlerIface", nullptr, nullptr},
    };
    for (const auto& c : cases) {
        setenv("BROKEN_PROVIDER", c.fault, 1);
        EXPECT_EQ(load(QXCI_DLL_OTHER, broken), c.other != nullptr ? c.other : missing_dll)
            << c.fault;
        EXPECT_EQ(load(QXCI_DLL_FIPS, broken, QXCI_FIPS_DLL_NAME),
                  c.fips != nullptr ? c.fips : no_fips)
            << c.fault;
    }
    unsetenv("BROKEN_PROVIDER");
}

TEST(Loader, names_the_file_that_it_cannot_open) {
    const struct {
        a_qxci_dll_type type;
        const char* name;
        const char* file;
    } cases[] = {
        {QXCI_DLL_RSA, nullptr, "libnxrsa12_r.so"},
        {QXCI_DLL_ECC, broken, "libnxecc12_r.so"},
        {QXCI_DLL_OTHER, "libnone.so", "libnone.so"},
        {QXCI_DLL_OTHER, "../lib/libbroken.so", "../lib/libbroken.so"},
        {QXCI_DLL_OTHER, "libtext.so", "libtext.so"},
        {QXCI_DLL_OTHER, "libunbound.so", "libunbound.so"},
        {static_cast<a_qxci_dll_type>(9), "libnone.so", "libnone.so"},
    };
    for (const auto& c : cases) {
        const std::string name = c.file;
        DBQXCIError error;
        const c_utils_ref<DBQXCIInterface> iface(new DBQXCIInterface);
        EXPECT_FALSE(iface->Load(c.type, c.name, &error));
        EXPECT_EQ(describe(error), "26 " + name + " " + name);
    }
    EXPECT_EQ(load(QXCI_DLL_OTHER, nullptr, "libqxcistub_r.so"), "VESCPHBG") << "the default";
}

TEST(Loader, does_nothing_when_it_has_loaded_before) {
    const c_utils_ref<DBQXCIInterface> iface(new DBQXCIInterface);
    DBQXCIError error;
    ASSERT_TRUE(iface->Load(QXCI_DLL_BASIC, nullptr, &error));
    EXPECT_TRUE(iface->Load(QXCI_DLL_OTHER, "libnone.so", &error));
    EXPECT_EQ(describe(error), "0");
    EXPECT_EQ(filled_tables(*iface), "VEPHBG") << "the built-in provider has no streams";
    const a_qxci_version version = iface->GetVersion();
    EXPECT_TRUE(version.api_major == 1 && version.api_minor == 7 && version.impl_id == 0 &&
                version.impl_ver == 1);
    iface->Unload();
    EXPECT_TRUE(iface->Load(QXCI_DLL_OTHER, broken, &error)) << "after an Unload it loads again";
    EXPECT_EQ(iface->GetVersion().impl_ver, 0xfffe);
}

TEST(Loader, passes_on_why_an_environment_is_not_created) {
    Owner owner;
    Options options;
    options.add("DLL_name", broken);
    DBQXCIError error;
    DBQXCIEnvironment env(owner.callbacks(), &owner);
    ASSERT_EQ(env.Init(false, "test", options.head(), &error), QXCI_OK);
    const struct {
        const char* fault;
        const char* reason;
    } faults[] = {{"environment", "13 7 first second"}, {"reason", "37"}, {"create_func", "37"}};
    for (const auto& row : faults) {
        setenv("BROKEN_PROVIDER", row.fault, 1);
        EXPECT_FALSE(env._loadInterface(OTHER_IFACE, &error));
        EXPECT_EQ(describe(error), row.reason);
        EXPECT_FALSE(is_open(broken));
    }
    unsetenv("BROKEN_PROVIDER");
    EXPECT_TRUE(env._loadInterface(OTHER_IFACE, &error)) << "a failure does not stick";
    EXPECT_TRUE(is_open(broken));
    env.Fini();
    EXPECT_FALSE(is_open(broken));
    EXPECT_EQ(owner.live(), 0);
}

TEST(Loader, leaves_a_provider_without_streams_usable) {
    Owner owner;
    Options options;
    options.add("dll_name", "libnoQXCIGetStreamIface.so");
    DBQXCIError error;
    gUseStub = true;
    DBQXCIEnvironment env(owner.callbacks(), &owner);
    ASSERT_EQ(env.Init(false, "test", options.head(), &error), QXCI_OK);
    EXPECT_EQ(env.CreateStream(nullptr, nullptr, "rsa", &error), nullptr);
    EXPECT_EQ(describe(error), "37");
    env.Fini();
    gUseStub = false;
}

/// The variable counts at a program's start only, so this starts the program again.
TEST(Loader, ignores_libraries_that_others_have_planted) {
    const char* const planted = std::getenv("LD_LIBRARY_PATH");
    if (planted == nullptr || std::strstr(planted, "/planted") == nullptr) {
        const ScratchFolder scratch;
        const fs::path folder = scratch.file("planted");
        fs::create_directory(folder);
        fs::copy_file(library_folder() / broken, folder / QXCI_RSA_DLL_NAME);
        const std::string program = fs::read_symlink("/proc/self/exe");
        const std::string run = "cd " + shell_word(folder) + " && LD_LIBRARY_PATH=\"$PWD\" " +
                                shell_word(program) +
                                " --gtest_filter=Loader.ignores_libraries* >&2";
        EXPECT_EQ(std::system(run.c_str()), 0);
        return;
    }
    void* const by_name = dlopen(QXCI_RSA_DLL_NAME, RTLD_NOW);
    ASSERT_NE(by_name, nullptr) << "the trap does not work";
    dlclose(by_name);
    DBQXCIError error;
    const c_utils_ref<DBQXCIInterface> iface(new DBQXCIInterface);
    EXPECT_FALSE(iface->Load(QXCI_DLL_RSA, nullptr, &error));
    EXPECT_FALSE(iface->Load(QXCI_DLL_OTHER, "./libnxrsa12_r.so", &error));
}

}  // namespace
