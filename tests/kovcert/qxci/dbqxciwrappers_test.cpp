#include "kovcert/qxci/dbqxciwrappers.h"

#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "tests/kovcert/qxci/trial.h"

namespace {

int object;  // stands for a provider's

template <class Handle>
Handle handle() {
    return reinterpret_cast<Handle>(&object);
}

/// A wrapper of every kind over one interface.
struct Wrappers {
    explicit Wrappers(DBQXCIInterface* source)
        : encrypter(handle<QXCIBlockEncrypterH>(), &env, source, FIPS_IFACE),
          hasher(handle<QXCIBlockHasherH>(), &env, source, FIPS_IFACE),
          password(handle<QXCIPasswordHasherH>(), &env, source, FIPS_IFACE),
          signer(handle<QXCISignatureHandlerH>(), &env, source, FIPS_IFACE),
          stream(handle<QXCIStreamH>(), &env, source, FIPS_IFACE),
          conn(handle<QXCIStreamConnH>(), &env, source, FIPS_IFACE) {}

    Owner owner;
    DBQXCIEnvironment env{owner.callbacks(), &owner};
    DBQXCIBlockEncrypter encrypter;
    DBQXCIBlockHasher hasher;
    DBQXCIPasswordHasher password;
    DBQXCISignatureHandler signer;
    DBQXCIStream stream;
    DBQXCIStreamConn conn;
    DBQXCIError err;
};

TEST(Wrappers, fail_when_the_interface_or_its_entry_is_missing) {
    static a_qxci_byte buf[1];
    static size_t len = 0;
    static char text[1];
    static bool ok = false;
    const struct {
        const char* name;
        long (*call)(Wrappers& w);
        long failure;
    } rows[] = {
#define OPERATION(call, failure) \
    {#call, [](Wrappers& w) { return static_cast<long>(w.call); }, failure}
        OPERATION(encrypter.GetAlgorithmID(), 0),
        OPERATION(encrypter.Encrypt(buf, 0, 0), QXCI_ERROR),
        OPERATION(encrypter.Decrypt(buf, 0, 0), QXCI_ERROR),
        OPERATION(encrypter.GetBlockSize(), 0),
        OPERATION(hasher.GetAlgorithmID(), 0),
        OPERATION(hasher.GetMaxHashSize(), 0),
        OPERATION(hasher.GetBlockSize(), 0),
        OPERATION(hasher.BeginHash(), QXCI_ERROR),
        OPERATION(hasher.AddData(buf, 0), QXCI_ERROR),
        OPERATION(hasher.EndHash(buf, &len), QXCI_ERROR),
        OPERATION(hasher.GetLastError()->getErrorCode(), QxciErrUnknown),
        OPERATION(password.GetAlgorithmID(), 0),
        OPERATION(password.GetMaxHashSize(), 0),
        OPERATION(password.Hash(buf, 0, buf, &len), QXCI_ERROR),
        OPERATION(signer.CreateDBSig("", "", "", text, &len), QXCI_ERROR),
        OPERATION(signer.CreateConnSig("", "", text, &len), QXCI_ERROR),
        OPERATION(signer.VerifyDBSig("", "", "", "", &ok), QXCI_ERROR),
        OPERATION(signer.VerifyConnSig("", "", "", &ok), QXCI_ERROR),
        OPERATION(stream.Init(QXCI_SERVER, nullptr), QXCI_ERROR),
        OPERATION(stream.Fini(), QXCI_ERROR),
        OPERATION(stream.GetAlgorithmID(), 0),
        OPERATION(stream.CreateConn(nullptr, nullptr, nullptr, &w.err) != nullptr, 0),
        OPERATION(conn.Read(buf, 0, &len), QXCI_IO_ERROR),
        OPERATION(conn.Write(buf, 0), QXCI_IO_ERROR),
        OPERATION(conn.FlushWrites(), QXCI_IO_ERROR),
#undef OPERATION
    };
    auto* const empty = new DBQXCIInterface;
    for (DBQXCIInterface* source : {static_cast<DBQXCIInterface*>(nullptr), empty}) {
        for (const auto& row : rows) {
            Wrappers wrappers(source);
            EXPECT_EQ(row.failure, row.call(wrappers)) << row.name;
        }
    }
    while (empty->RefCount() > 1) empty->Release();  // kept: what has no destroy_func gives no back
    empty->Release();
}

TEST(Wrappers, keep_the_slot_before_the_error) {
    const Wrappers w(nullptr);
    struct {
        const void *handle, *iface;
        uint32 slot;
    } first;
    std::memcpy(&first, &w.encrypter, sizeof first);
    EXPECT_TRUE(first.handle == &object && first.iface == nullptr && first.slot == FIPS_IFACE);
}

TEST(Wrappers, keep_texts_in_order) {
    const c_utils_ref<DBQXCIInterface> iface(new DBQXCIInterface);
    iface->_sig_iface = {
        .create_func = nullptr,
        .create_dbsig_func =
            [](QXCISignatureHandlerH, const char* a, const char* b, const char* c, char* out,
               size_t*) {
                std::strcat(std::strcat(std::strcpy(out, a), b), c);
                return a_qxci_result{QXCI_OK};
            },
        .create_connsig_func = nullptr,
        .verify_dbsig_func = nullptr,
        .verify_connsig_func =
            [](QXCISignatureHandlerH, const char* a, const char* b, const char* sig, bool* ok) {
                *ok = std::string(a) + b == sig;
                return a_qxci_result{QXCI_OK};
            },
        .get_last_error_func = nullptr,
        .destroy_func = [](QXCISignatureHandlerH) {},
    };
    Trial t;
    DBQXCISignatureHandler signer(handle<QXCISignatureHandlerH>(), &t.env, iface.get(),
                                  STATIC_IFACE);
    EXPECT_EQ(2U, iface->RefCount());
    char sig[8];
    size_t len = sizeof sig;
    bool ok = false;
    EXPECT_EQ(QXCI_OK, signer.CreateDBSig("a", "b", "c", sig, &len));
    EXPECT_STREQ("abc", sig);
    EXPECT_EQ(QXCI_OK, signer.VerifyConnSig("a", "bc", sig, &ok));
    EXPECT_TRUE(ok);
}

TEST(Wrappers, call_the_entry_of_their_name) {
    Trial t;
    a_qxci_byte data[16] = {}, hash[4];
    const std::unique_ptr<DBQXCIBlockEncrypter> encrypter(
        t.env.CreateBlockEncrypterWithID(QXCI_ENC_AES128, data, 16, nullptr, &t.err));
    EXPECT_EQ(QXCI_ENC_AES128, encrypter->GetAlgorithmID());
    EXPECT_EQ(16U, encrypter->GetBlockSize());
    EXPECT_EQ(QXCI_OK, encrypter->Encrypt(data, 16, 0));
    EXPECT_EQ(0, std::memcmp("\x66\xe9\x4b\xd4", data, 4));
    EXPECT_EQ(QXCI_OK, encrypter->Decrypt(data, 16, 0));
    EXPECT_EQ(0, data[0] | data[15]);
    EXPECT_EQ(QXCI_ERROR, encrypter->Encrypt(data, 15, 0));
    EXPECT_EQ("28 len", describe(*encrypter->GetLastError()));

    const std::unique_ptr<DBQXCIBlockHasher> crc(t.env.CreateBlockHasher("CRC", &t.err));
    size_t len = sizeof hash;
    EXPECT_EQ(QXCI_OK, crc->BeginHash());
    EXPECT_EQ(QXCI_OK, crc->AddData(data, 1));
    EXPECT_EQ(QXCI_OK, crc->EndHash(hash, &len));
    EXPECT_EQ(0, std::memcmp("\xd2\x02\xef\x8d", hash, 4));
    EXPECT_EQ(4U, crc->GetMaxHashSize());
    EXPECT_EQ(1U, crc->GetBlockSize());
    EXPECT_EQ(7, crc->GetQXCIVersion().api_minor);
}

}  // namespace
