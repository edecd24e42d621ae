// The folder of this program holds the libraries of fakeprovider.cpp: each refuses to make anything
// and gives its own name, the component and its first option as the reason.

#include "kovcert/qxci/dbqxci.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <malloc.h>

#include "tests/kovcert/builtin/owner.h"
#include "utils/unix/dllloader.h"
#include "utils/unix/locate.h"

namespace {

constexpr a_qxci_byte Key[32] = {1, 2, 3};

/// An environment that must give back all that it takes, with libother.so in the last slot.
struct Trial {
    explicit Trial(bool fips = false, bool stub = false, const char* component = "tester") {
        gUseStub = stub;
        options.add("Dll_Name", "libother.so");
        result = env.Init(fips, component, options.head(), &err);
    }
    ~Trial() {
        env.Fini();
        EXPECT_EQ(owner.live(), 0);
        gUseStub = false;
    }

    std::string reason() const {
        std::string text = std::to_string(err.getErrorCode());
        for (int i = 0; err.GetParm(i) != nullptr; ++i) text += std::string(" ") + err.GetParm(i);
        return text;
    }

    Owner owner;
    Options options;
    DBQXCIError err;
    DBQXCIEnvironment env{owner.callbacks(), &owner};
    a_qxci_result result;
};

template <class Object>
std::string outcome(Trial& with, Object* made) {
    const std::unique_ptr<Object> object(made);
    return object != nullptr ? "made " + std::to_string(object->GetQXCIVersion().impl_ver)
                             : with.reason();
}

constexpr a_qxci_byte alg(int number) {
    return static_cast<a_qxci_byte>(number);
}

std::string make_hasher(Trial& t, const char* name) {
    return outcome(t, t.env.CreateBlockHasher(name, &t.err));
}
std::string make_hasher(Trial& t, a_qxci_byte id) {
    return outcome(t, t.env.CreateBlockHasherWithID(id, &t.err));
}
std::string make_encrypter(Trial& t, const char* name, size_t len) {
    return outcome(t, t.env.CreateBlockEncrypter(name, Key, len, nullptr, &t.err));
}
std::string make_encrypter(Trial& t, a_qxci_byte id, size_t len) {
    return outcome(t, t.env.CreateBlockEncrypterWithID(id, Key, len, nullptr, &t.err));
}
std::string make_stream(Trial& t, const char* name) {
    return outcome(t, t.env.CreateStream(nullptr, nullptr, name, &t.err));
}
std::string make_stream(Trial& t, a_qxci_byte id) {
    return outcome(t, t.env.CreateStreamWithID(nullptr, nullptr, id, &t.err));
}

TEST(Environment, picks_the_provider_by_algorithm_mode_and_stub_flag) {
    const std::string built_in = "made 1";
    const std::string rsa = "28 libnxrsa12_r.so tester Dll_Name";
    const std::string ecc = "28 libnxecc12_r.so tester Dll_Name";
    const std::string fips = "28 libnxfips12_r.so tester Dll_Name";
    const std::string fips_mode = "28 libnxfips12_r.so tester FIPS";
    const std::string stub = "28 libother.so tester Dll_Name";
    const auto hasher = [](auto key) { return [=](Trial& t) { return make_hasher(t, key); }; };
    const auto stream = [](auto key) { return [=](Trial& t) { return make_stream(t, key); }; };
    const auto encrypter = [](auto key, size_t len) {
        return [=](Trial& t) { return make_encrypter(t, key, len); };
    };
    const auto level = [](const char* algorithm, const char* parms) {
        return [=](Trial& t) {
            c_encrypt_level setting;
            setting.set_level(algorithm, parms);
            return outcome(t, t.env.CreateStream(nullptr, nullptr, setting, &t.err));
        };
    };
    const auto password = [](Trial& t) { return outcome(t, t.env.CreatePasswordHasher(&t.err)); };
    const auto password_id = [](Trial& t) {
        return outcome(t, t.env.CreatePasswordHasherWithID(1, &t.err));
    };
    // The built-in provider misses a key, so it is the one that was asked.
    const auto signature = [](Trial& t) {
        return outcome(t, t.env.CreateSignatureHandler(nullptr, &t.err));
    };
    constexpr const char* none = nullptr;
    const struct {
        const char* what;
        std::function<std::string(Trial&)> make;
        std::string normal, fips, stub;
    } table[] = {
        {"stream RSA_TLS", stream("RSA_TLS"), rsa, fips_mode, stub},
        {"stream ecc", stream("ecc"), ecc, fips_mode, stub},
        {"stream rsa_tls_fips", stream("rsa_tls_fips"), fips, fips_mode, stub},
        {"stream none", stream("none"), "21", fips_mode, stub},
        {"stream null", stream(none), "21", "21", "21"},
        {"stream 3", stream(alg(3)), rsa, fips_mode, stub},
        {"stream 2", stream(alg(2)), ecc, fips_mode, stub},
        {"stream 255", stream(alg(255)), "21", fips_mode, stub},
        {"level tls", level("TLS", nullptr), rsa, fips_mode, stub},
        {"level ecc", level("tls", "tls_type=ECC"), ecc, fips_mode, stub},
        {"level fips", level("tls", "FIPS=yes"), fips, fips_mode, stub},
        {"level ecc_tls", level("ecc_tls", nullptr), ecc, fips_mode, stub},
        {"level null", level(nullptr, nullptr), "21", "21", "21"},
        {"level broken", level("tls", "tls_type"), "28 tls_type", "28 tls_type", "28 tls_type"},
        {"AES-128", encrypter("AES-128", 16), built_in, fips_mode, stub},
        {"aes_256", encrypter("aes_256", 32), built_in, fips_mode, stub},
        {"AES_128_FIPS", encrypter("AES_128_FIPS", 16), fips, fips_mode, stub},
        {"encrypter 4", encrypter(alg(4), 32), built_in, fips_mode, stub},
        {"encrypter 5", encrypter(alg(5), 32), fips, fips_mode, stub},
        {"no key", encrypter("AES", 0), "29", fips_mode, stub},
        {"encrypter DES", encrypter("DES", 16), "21", fips_mode, stub},
        {"sha-1", hasher("sha-1"), built_in, fips_mode, stub},
        {"SHA1_FIPS", hasher("SHA1_FIPS"), fips, fips_mode, stub},
        {"hasher 5", hasher(alg(5)), built_in, fips_mode, stub},
        {"hasher 2", hasher(alg(2)), fips, fips_mode, stub},
        {"crc", hasher("crc"), built_in, built_in, stub},
        {"hasher 6", hasher(alg(6)), built_in, built_in, stub},
        {"hasher null", hasher(none), "22", "22", "22"},
        {"hasher 7", hasher(alg(7)), "22", fips_mode, stub},
        {"password", password, built_in, fips_mode, stub},
        {"password 1", password_id, built_in, fips_mode, stub},
        {"signature", signature, "29", "29", "29"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        Trial normal;
        EXPECT_EQ(row.make(normal), row.normal);
        Trial in_fips_mode(true);
        EXPECT_EQ(row.make(in_fips_mode), row.fips);
        Trial stubbed(false, true);
        EXPECT_EQ(row.make(stubbed), row.stub);
    }
}

TEST(Environment, names_the_library_of_a_fips_encrypter) {
    Trial t;
    const std::unique_ptr<DBQXCIBlockEncrypter> encrypter(
        t.env.CreateBlockEncrypterWithID(QXCI_ENC_AES128_FIPS, Key, 16, nullptr, &t.err));
    ASSERT_NE(encrypter, nullptr);
    EXPECT_STREQ(encrypter->GetDLLName(), "libnxfips12_r.so");
}

TEST(Environment, asks_the_provider_of_an_algorithm_whether_it_has_it) {
    Trial normal;
    EXPECT_TRUE(normal.env.IsBlockHasherAlgorithmSupported("md5"));
    EXPECT_FALSE(normal.env.IsBlockHasherAlgorithmSupported(nullptr));
    EXPECT_FALSE(normal.env.IsBlockHasherAlgorithmSupported("none"));
    EXPECT_FALSE(normal.env.IsBlockHasherAlgorithmSupported(99));
    EXPECT_TRUE(normal.env.IsBlockEncrypterAlgorithmSupported(QXCI_ENC_AES256));
    EXPECT_TRUE(normal.env.IsBlockEncrypterAlgorithmSupported("AES128"));
    EXPECT_TRUE(normal.env.IsStreamAlgorithmSupported("rsa"));
    EXPECT_FALSE(normal.env.IsStreamAlgorithmSupported(3)) << "the table lacks the entry";
    Trial fips(true);
    EXPECT_TRUE(fips.env.IsBlockHasherAlgorithmSupported("none")) << "the FIPS provider's answer";
    EXPECT_FALSE(fips.env.IsBlockHasherAlgorithmSupported(99));
    EXPECT_FALSE(fips.env.IsBlockEncrypterAlgorithmSupported("AES")) << "no such entry";
    Trial stubbed(false, true);
    EXPECT_FALSE(stubbed.env.IsStreamAlgorithmSupported("rsa"));
    EXPECT_TRUE(stubbed.env.IsBlockHasherAlgorithmSupported(6));
}

TEST(Environment, validates_a_setting_and_tells_its_level) {
    char folder[LOCATE_MAX_PATH];
    ASSERT_TRUE(ut_locate_own_directory(folder, sizeof folder));
    const std::string companion = std::string(folder) + "/" + QXCI_FIPS_COMPANION_DLL_NAME;
    std::filesystem::remove(companion);  // of a run that was ended
    enum { Mode = 1, Companion = 2, Disabled = 4, Stub = 8 };
    const struct {
        const char* algorithm;
        const char* parms;
        int flags;
        const char* level;  // or null, and then
        const char* reason;
    } table[] = {
        {"tls", nullptr, 0, "rsa_tls", "0"},
        {"tls", nullptr, Stub, "rsa_tls", "0"},
        {"TLS", "tls_type=ecc", 0, "ecc_tls", "0"},
        {"rsa", nullptr, 0, "rsa_tls", "0"},
        {"rsa_tls_fips", nullptr, 0, "rsa_tls_fips", "0"},
        {"tls", "FIPS=YES", Companion, "rsa_tls_fips", "0"},
        {"tls", nullptr, Mode | Companion, "rsa_tls_fips", "0"},
        {"tls", "FIPS=YES", 0, nullptr, "25 libnxfips12_r.so"},
        {"tls", "tls_type=rsa;FIPS=ON", 0, nullptr, "25 libnxfips12_r.so"},
        {"tls", "FIPS=Off", 0, "rsa_tls", "0"},
        {"tls", "FIPS=yess", Companion, nullptr, "28 FIPS"},
        {"tls", "FIPS=YES", Companion | Disabled, nullptr, "31"},
        {"rsa_tls_fips", nullptr, Disabled, nullptr, "31"},
        {"tls", "tls_type=ecc;FIPS=yes", Companion, nullptr, "33"},
        {"ecc", nullptr, Mode | Companion, nullptr, "33"},
        {"tls", "tls_type=none", 0, nullptr, "21"},
        {"simple", nullptr, 0, nullptr, "21"},
        {nullptr, nullptr, 0, nullptr, "21"},
        {"tls", "=rsa", 0, nullptr, "28 "},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(std::string(row.algorithm ? row.algorithm : "") + " " +
                     (row.parms ? row.parms : "") + " " + std::to_string(row.flags));
        if ((row.flags & Companion) != 0) std::ofstream(companion).flush();
        Trial with((row.flags & Mode) != 0, (row.flags & Stub) != 0);
        if ((row.flags & Disabled) != 0) with.env.disableFIPS();
        EXPECT_EQ(with.env.IsFIPSAvailable(), (row.flags & Companion) != 0);
        c_encrypt_level level;
        level.set_level(row.algorithm, row.parms);
        with.err.Set(QxciErrBadCert, "left over");
        EXPECT_EQ(with.env.ValidateStreamEncryption(level, &with.err), row.level != nullptr);
        EXPECT_EQ(with.reason(), row.reason);
        if (row.level != nullptr) {
            EXPECT_STREQ(level.get_level_name(), row.level);
        }
        std::filesystem::remove(companion);
    }
}

TEST(EncryptLevel, takes_settings_in_any_case_and_keeps_what_is_wrong) {
    const struct {
        const char* algorithm;
        const char* parms;
        const char* name;
        bool strong;
        const char* error;  // null: the setting is taken
    } table[] = {
        {"None", nullptr, "none", false, nullptr},
        {"SIMPLE", "x=y", "simple", false, nullptr},
        {"Tls", "identity=a;TLS_TYPE=RSA;fips=no", "rsa_tls", true, nullptr},
        {"tls", "fips='yes'", "rsa_tls_fips", true, nullptr},
        {"tls", "fips=1", "rsa_tls_fips", true, nullptr},
        {"tls", "fips=", "Unknown", true, "FIPS"},
        {"tls", "tls_type=dh", "Unknown", true, "dh"},
        {"tls", "tls_type='rsa", "Unknown", true, "tls_type"},
        {"rsa_tls", nullptr, "Unknown", false, "rsa_tls"},
    };
    c_encrypt_level level;
    EXPECT_STREQ(level.get_level_name(), "Unknown");
    for (const auto& row : table) {
        EXPECT_EQ(level.set_level(row.algorithm, row.parms), row.error == nullptr) << row.name;
        EXPECT_STREQ(level.get_level_name(), row.name);
        EXPECT_EQ(level.is_strong(), row.strong) << row.algorithm;
        EXPECT_STREQ(level.get_error(), row.error);
        EXPECT_STREQ(level.get_parms(), row.parms);
    }
}

bool saw_password = false;

TEST(EncryptLevel, takes_its_own_texts_and_wipes_passwords) {
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
        c_encrypt_level level;
        level.set_level("tls", "tls_type=dh;identity_password=open sesame");
        EXPECT_FALSE(level.set_level(level.get_error(), level.get_parms()));
        EXPECT_STREQ(level.get_error(), "dh");
        EXPECT_STREQ(level.get_parms(), "tls_type=dh;identity_password=open sesame");
        EXPECT_TRUE(level.set_level("tls", nullptr));
    }
    utmem_set_source(nullptr);
    EXPECT_FALSE(saw_password);
}

TEST(Environment, without_a_successful_init_has_no_slots) {
    Trial refused(true, false, "refused");
    EXPECT_EQ(refused.result, QXCI_ERROR);
    EXPECT_EQ(refused.reason(), "28 libnxfips12_r.so refused FIPS");
    EXPECT_EQ(refused.err.getSystemCode(), 7U);
    EXPECT_EQ(outcome(refused, refused.env.CreateBlockHasher("MD5", &refused.err)), "37");
    EXPECT_FALSE(refused.env.IsBlockHasherAlgorithmSupported("MD5"));
    EXPECT_EQ(refused.env._getInterface(STATIC_IFACE), nullptr);

    Trial fine;
    EXPECT_FALSE(fine.env._loadInterface(static_cast<_iface_index>(5), &fine.err));
    EXPECT_EQ(fine.reason(), "21");
    EXPECT_EQ(fine.env._getInterface(static_cast<_iface_index>(5)), nullptr);
}

TEST(Environment, raises_the_stub_flag_for_good_when_the_variable_is_set) {
    const Owner owner;
    ASSERT_EQ(setenv("QX_USE_QXCI_STUB", "", 1), 0);
    { const DBQXCIEnvironment env(owner.callbacks(), nullptr); }
    unsetenv("QX_USE_QXCI_STUB");
    { const DBQXCIEnvironment env(owner.callbacks(), nullptr); }
    EXPECT_TRUE(gUseStub);
    gUseStub = false;
}

TEST(Wrapper, outlives_fini_and_keeps_its_reference) {
    Trial with;
    DBQXCIInterface* const iface = with.env._getInterface(STATIC_IFACE);
    std::unique_ptr<DBQXCIBlockHasher> in_time(with.env.CreateBlockHasher("MD5", &with.err));
    EXPECT_EQ(iface->RefCount(), 3U);
    in_time.reset();
    EXPECT_EQ(iface->RefCount(), 2U);
    // A handle that is nobody's, since the provider could not destroy it after Fini.
    a_qxci_byte handle = 0;
    auto late = std::make_unique<DBQXCIBlockHasher>(reinterpret_cast<QXCIBlockHasherH>(&handle),
                                                    &with.env, iface);
    with.env.Fini();
    EXPECT_FALSE(iface->IsValid());
    EXPECT_EQ(iface->RefCount(), 2U);
    EXPECT_EQ(late->BeginHash(), QXCI_ERROR);
    EXPECT_EQ(late->GetLastError()->getErrorCode(), QxciErrUnknown);
    late.reset();
    EXPECT_EQ(iface->RefCount(), 2U) << "kept: not given back";
    iface->Release();
    iface->Release();
}

std::string reported;

TEST(Loader, reports_what_it_loads_with_its_version) {
    ut_dll_set_report([](const char* text) { reported = text; });
    Trial with(false, true);
    with.env.IsBlockHasherAlgorithmSupported("MD5");
    EXPECT_TRUE(reported.starts_with("Loading DLL \"/")) << reported;
    EXPECT_TRUE(reported.ends_with("/libother.so\", libother/4.5")) << reported;
    gUseStub = false;
    with.env.IsStreamAlgorithmSupported("rsa");
    EXPECT_TRUE(reported.ends_with("/libnxrsa12_r.so\", (Version info not available)")) << reported;
    ut_dll_set_report(nullptr);
}

}  // namespace
