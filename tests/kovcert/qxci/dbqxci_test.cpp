// The folder of this program holds the libraries of fakeprovider.cpp: each refuses to make anything
// and gives its own name, the component and its first option as the reason.

#include "kovcert/qxci/dbqxci.h"

#include <cstring>

#include <gtest/gtest.h>
#include <malloc.h>

#include "tests/kovcert/qxci/trial.h"
#include "utils/unix/dllloader.h"

namespace {

constexpr const char* other = "libother.so";

TEST(Environment, picks_the_provider_by_algorithm_mode_and_stub_flag) {
    static const char* const built_in = "made 1";
    static const char* const rsa = "28 7 libnxrsa12_r.so tester Dll_Name";
    static const char* const ecc = "28 7 libnxecc12_r.so tester Dll_Name";
    static const char* const fips = "28 7 libnxfips12_r.so tester Dll_Name";
    static const char* const fips_mode = "28 7 libnxfips12_r.so tester FIPS";
    static const char* const stub = "28 7 libother.so tester Dll_Name";
    static const char* const by_fips = "made 9 by libnxfips12_r.so";
    const struct {
        a_creation make;
        a_wanted wanted;
        const char* normally;
        const char* in_fips_mode = fips_mode;
        const char* under_stub_flag = stub;
    } rows[] = {
        {stream, {"RSA_TLS"}, rsa},
        {stream, {"ecc"}, ecc},
        {stream, {"rsa_tls_fips"}, fips},
        {stream, {nullptr}, "21", "21", "21"},
        {stream, {.id = 3}, rsa},
        {level, {.name = "tls", .parms = "tls_type=ECC"}, ecc},
        {level, {.name = "tls", .parms = "tls_type"}, "28 tls_type", "28 tls_type", "28 tls_type"},
        {encrypter, {"AES_128_FIPS"}, fips},
        {encrypter, {.id = 4, .key_len = 32}, built_in},
        {encrypter, {.id = 3}, by_fips, by_fips, "made 9"},
        {encrypter, {.name = "AES", .key_len = 0}, "29"},
        {hasher, {"sha-1"}, built_in},
        {hasher, {.id = 6}, built_in, built_in},
        // The built-in provider misses a key, so it is the one that was asked.
        {signature, {}, "29", "29", "29"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.wanted.name << " " << row.wanted.id);
        Trial normal({.dll_name = other});
        EXPECT_EQ(row.normally, row.make(normal, row.wanted));
        Trial fips_trial({.fips = true, .dll_name = other});
        EXPECT_EQ(row.in_fips_mode, row.make(fips_trial, row.wanted));
        Trial stubbed({.stub = true, .dll_name = other});
        EXPECT_EQ(row.under_stub_flag, row.make(stubbed, row.wanted));
    }
}

TEST(Environment, validates_a_setting_and_tells_its_level) {
    const std::pair<a_wanted, const char*> rows[] = {
        // What is validated, and its level or the error.
        {{.name = "TLS", .parms = "tls_type=ecc"}, "ecc_tls"},
        {{.name = "tls", .parms = "FIPS=YES"}, "25 libnxfips12_r.so"},
        {{.name = "tls", .parms = "FIPS=yess"}, "28 FIPS"},
        {{.name = "tls", .parms = "tls_type=none"}, "21"},
        {{}, "21"},
    };
    for (const auto& [wanted, result] : rows) {
        Trial t;
        c_encrypt_level setting;
        setting.set_level(wanted.name, wanted.parms);
        t.err.Set(QxciErrBadCert, "left over");
        const bool valid = t.env.ValidateStreamEncryption(setting, &t.err);
        EXPECT_STREQ(result, valid ? setting.get_level_name() : describe(t.err).c_str());
        EXPECT_EQ(valid, !t.err.isError());
    }
}

bool saw_password = false;

TEST(EncryptLevel, keeps_what_is_wrong_takes_its_own_texts_and_wipes_passwords) {
    const a_utmem_source watching = {
        std::malloc, std::realloc,
        [](void* memory) {
            const size_t size = memory == nullptr ? 0 : malloc_usable_size(memory);
            saw_password |= size != 0 && memmem(memory, size, "open sesame", 11) != nullptr;
            std::free(memory);
        },
        [] { return false; }};
    utmem_set_source(&watching);
    {
        c_encrypt_level setting;
        setting.set_level("tls", "tls_type=dh;identity_password=open sesame");
        EXPECT_FALSE(setting.set_level(setting.get_error(), setting.get_parms()));
        EXPECT_STREQ("dh", setting.get_error());
        EXPECT_TRUE(setting.set_level("Tls", "identity=a;TLS_TYPE=RSA;fips='yes'"));
        EXPECT_STREQ("rsa_tls_fips", setting.get_level_name());
        EXPECT_TRUE(setting.is_strong() && setting.get_error() == nullptr);
    }
    utmem_set_source(nullptr);
    EXPECT_FALSE(saw_password);
}

TEST(Environment, without_a_successful_init_has_no_slots) {
    setenv("FAKE_FAULT", "environment", 1);
    Trial refused({.fips = true});
    unsetenv("FAKE_FAULT");
    EXPECT_EQ(QXCI_ERROR, refused.result);
    EXPECT_EQ("28 7 libnxfips12_r.so tester FIPS", describe(refused.err));
    EXPECT_EQ("37", hasher(refused, {"MD5"}));
    EXPECT_FALSE(refused.env.IsBlockHasherAlgorithmSupported("MD5"));
    EXPECT_TRUE(Trial().env.IsBlockHasherAlgorithmSupported("MD5"));
    EXPECT_EQ(nullptr, refused.env._getInterface(STATIC_IFACE));
}

TEST(Environment, raises_the_stub_flag_for_good_when_the_variable_is_set) {
    const Owner owner;
    ASSERT_EQ(0, setenv("QX_USE_QXCI_STUB", "", 1));
    { const DBQXCIEnvironment env(owner.callbacks(), nullptr); }
    unsetenv("QX_USE_QXCI_STUB");
    { const DBQXCIEnvironment env(owner.callbacks(), nullptr); }
    EXPECT_TRUE(gUseStub);
    gUseStub = false;
}

std::string reported;

TEST(Loader, reports_what_it_loads_with_its_version) {
    ut_dll_set_report([](const char* text) { reported = text; });
    Trial t({.stub = true, .dll_name = other});
    t.env.IsBlockHasherAlgorithmSupported("MD5");
    EXPECT_TRUE(reported.starts_with("Loading DLL \"/")) << reported;
    EXPECT_TRUE(reported.ends_with("/libother.so\", libother/4.5")) << reported;
    ut_dll_set_report(nullptr);
}

}  // namespace
