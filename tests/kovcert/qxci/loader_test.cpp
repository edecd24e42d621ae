#include <cstring>
#include <filesystem>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "kovcert/qxci/dbqxciinterface.h"
#include "tests/kovcert/qxci/trial.h"
#include "tests/scratch.h"

namespace {

namespace fs = std::filesystem;

/// A provider that FAKE_FAULT makes go wrong.
constexpr const char* faulty = QXCI_STUB_DLL_NAME;

fs::path library_folder() {
    return fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "lib";
}

bool is_open(const char* name) {
    void* const library = dlopen((library_folder() / name).c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (library != nullptr) dlclose(library);
    return library != nullptr;
}

/// One letter for each table that is filled: enVironment, Error, Stream, Conn, ...
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

/// What a load of `file` comes to: the tables that are filled, or the error.
std::string load(a_qxci_dll_type type, const char* name, const char* file) {
    const c_utils_ref<DBQXCIInterface> iface(new DBQXCIInterface);
    DBQXCIError error;
    const bool loaded = iface->Load(type, name, &error);
    EXPECT_EQ(loaded, iface->IsLoaded());
    EXPECT_EQ(loaded, iface->IsValid());
    EXPECT_EQ(loaded, is_open(file)) << file;
    const std::string result = loaded ? filled_tables(*iface) : describe(error);
    EXPECT_TRUE(loaded || filled_tables(*iface).empty()) << "cleared";
    EXPECT_TRUE(iface->Unload());
    EXPECT_FALSE(is_open(file)) << file;
    EXPECT_EQ("", filled_tables(*iface));
    return result;
}

std::string load_with(const char* fault, a_qxci_dll_type type, const char* file) {
    setenv("FAKE_FAULT", fault, 1);
    const std::string result = load(type, nullptr, file);
    unsetenv("FAKE_FAULT");
    return result;
}

std::string missing_dll(const std::string& name) {
    return "26 " + name + " " + name;
}

TEST(Loader, demands_three_entry_points_and_that_none_fails) {
    const struct {
        const char* entry;
        const char* without;  // the tables that are filled; null: refused
    } rows[] = {
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
    for (const auto& [entry, without] : rows) {
        const std::string name = std::string("libno") + entry + ".so";
        EXPECT_EQ(without != nullptr ? without : missing_dll(name),
                  load(QXCI_DLL_OTHER, name.c_str(), name.c_str()));
        if (entry == rows[0].entry) continue;  // which cannot fail
        EXPECT_EQ(missing_dll(faulty), load_with(entry, QXCI_DLL_OTHER, faulty)) << entry;
        EXPECT_EQ("25 libnxfips12_r.so", load_with(entry, QXCI_DLL_FIPS, QXCI_FIPS_DLL_NAME));
    }
}

TEST(Loader, refuses_other_versions) {
    for (const char* wrong : {"api_major", "api_minor", "impl_id"})
        EXPECT_EQ("27", load_with(wrong, QXCI_DLL_OTHER, faulty)) << wrong;
    for (const char* right : {"", "impl_ver"})
        EXPECT_EQ("VESCPHBG", load_with(right, QXCI_DLL_OTHER, faulty)) << right;
}

TEST(Loader, names_the_file_that_it_cannot_open) {
    EXPECT_EQ(missing_dll(QXCI_RSA_DLL_NAME), load(QXCI_DLL_RSA, nullptr, QXCI_RSA_DLL_NAME));
    EXPECT_EQ(missing_dll(QXCI_ECC_DLL_NAME), load(QXCI_DLL_ECC, faulty, QXCI_ECC_DLL_NAME));
    for (const char* name : {"libnone.so", "libtext.so", "libunbound.so"})
        EXPECT_EQ(missing_dll(name), load(QXCI_DLL_OTHER, name, name));
}

TEST(Loader, does_nothing_when_it_has_loaded_before) {
    const c_utils_ref<DBQXCIInterface> iface(new DBQXCIInterface);
    DBQXCIError error;
    ASSERT_TRUE(iface->Load(QXCI_DLL_BASIC, nullptr, &error));
    EXPECT_TRUE(iface->Load(QXCI_DLL_OTHER, "libnone.so", &error));
    EXPECT_EQ("0", describe(error));
    EXPECT_EQ("VEPHBG", filled_tables(*iface)) << "the built-in provider has no streams";
    iface->Unload();
    EXPECT_TRUE(iface->Load(QXCI_DLL_OTHER, faulty, &error)) << "after an Unload it loads again";
    EXPECT_EQ(9, iface->GetVersion().impl_ver);
}

TEST(Loader, passes_on_why_an_environment_is_not_created) {
    Trial t;
    const std::pair<const char*, const char*> rows[] = {
        {"environment", "28 7 libqxcistub_r.so tester Dll_Name"},
        {"environment without a reason", "37"},
        {"create_func", "37"}};
    for (const auto& [fault, reason] : rows) {
        setenv("FAKE_FAULT", fault, 1);
        EXPECT_FALSE(t.env._loadInterface(OTHER_IFACE, &t.err));
        EXPECT_EQ(reason, describe(t.err));
        EXPECT_FALSE(is_open(faulty));
    }
    unsetenv("FAKE_FAULT");
    EXPECT_TRUE(t.env._loadInterface(OTHER_IFACE, &t.err)) << "a failure does not stick";
    EXPECT_TRUE(is_open(faulty));
    t.env.Fini();
    EXPECT_FALSE(is_open(faulty));
}

TEST(Loader, leaves_a_provider_without_streams_usable) {
    Trial t({.stub = true, .dll_name = "libnoQXCIGetStreamIface.so"});
    EXPECT_EQ(nullptr, t.env.CreateStream(nullptr, nullptr, "rsa", &t.err));
    EXPECT_EQ("37", describe(t.err));
}

TEST(Loader, takes_the_provider_that_the_kit_shows) {
    EXPECT_EQ("VEH", load(QXCI_DLL_OTHER, "libsum.so", "libsum.so"));
    Trial t({.stub = true, .dll_name = "libsum.so"});
    const std::unique_ptr<DBQXCIBlockHasher> made(t.env.CreateBlockHasher("sum", &t.err));
    ASSERT_NE(nullptr, made) << describe(t.err);
    const a_qxci_byte data[] = {200, 57};
    a_qxci_byte sum = 0;
    size_t len = sizeof sum;
    EXPECT_EQ(QXCI_OK, made->BeginHash());
    EXPECT_EQ(QXCI_OK, made->AddData(data, sizeof data));
    EXPECT_EQ(QXCI_OK, made->EndHash(&sum, &len));
    EXPECT_EQ(1, sum);
}

/// The variable counts at a program's start only, so this starts the program again.
TEST(Loader, ignores_libraries_that_others_have_planted) {
    const char* const planted = std::getenv("LD_LIBRARY_PATH");
    if (planted == nullptr || std::strstr(planted, "/planted") == nullptr) {
        const ScratchFolder scratch;
        const fs::path folder = scratch.file("planted");
        fs::create_directory(folder);
        fs::copy_file(library_folder() / faulty, folder / QXCI_RSA_DLL_NAME);
        const std::string program = fs::read_symlink("/proc/self/exe");
        const std::string run = "cd " + shell_word(folder) + " && LD_LIBRARY_PATH=\"$PWD\" " +
                                shell_word(program) +
                                " --gtest_filter=Loader.ignores_libraries* >&2";
        EXPECT_EQ(0, std::system(run.c_str()));
        return;
    }
    void* const by_name = dlopen(QXCI_RSA_DLL_NAME, RTLD_NOW);
    ASSERT_NE(nullptr, by_name) << "the trap does not work";
    dlclose(by_name);
    DBQXCIError error;
    const c_utils_ref<DBQXCIInterface> iface(new DBQXCIInterface);
    EXPECT_FALSE(iface->Load(QXCI_DLL_RSA, nullptr, &error));
    EXPECT_FALSE(iface->Load(QXCI_DLL_OTHER, "./libnxrsa12_r.so", &error));
}

}  // namespace
