#include "kovcert/qxci/dbqxciwrappers.h"

#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "tests/kovcert/qxci/trial.h"

namespace {

int object;  // stands for a provider's

template <class Wrapper>
typename Wrapper::a_handle handle() {
    return reinterpret_cast<typename Wrapper::a_handle>(&object);
}

TEST(Wrappers, fail_when_the_interface_or_its_entry_is_missing) {
    static a_qxci_byte buf[1];
    static size_t len = 0;
    static char text[1];
    static bool ok = false;
    const struct {
        const char* name;
        long (*call)(Trial& t, DBQXCIInterface* source);
        long failure;
    } rows[] = {
#define OPERATION(Wrapper, call, failure)                          \
    {#Wrapper "::" #call,                                          \
     [](Trial& t, DBQXCIInterface* source) {                       \
         Wrapper w(handle<Wrapper>(), &t.env, source, FIPS_IFACE); \
         return static_cast<long>(w.call);                         \
     },                                                            \
     failure}
        OPERATION(DBQXCIBlockEncrypter, GetAlgorithmID(), 0),
        OPERATION(DBQXCIBlockEncrypter, Encrypt(buf, 0, 0), QXCI_ERROR),
        OPERATION(DBQXCIBlockEncrypter, Decrypt(buf, 0, 0), QXCI_ERROR),
        OPERATION(DBQXCIBlockEncrypter, GetBlockSize(), 0),
        OPERATION(DBQXCIBlockHasher, GetAlgorithmID(), 0),
        OPERATION(DBQXCIBlockHasher, GetMaxHashSize(), 0),
        OPERATION(DBQXCIBlockHasher, GetBlockSize(), 0),
        OPERATION(DBQXCIBlockHasher, BeginHash(), QXCI_ERROR),
        OPERATION(DBQXCIBlockHasher, AddData(buf, 0), QXCI_ERROR),
        OPERATION(DBQXCIBlockHasher, EndHash(buf, &len), QXCI_ERROR),
        OPERATION(DBQXCIBlockHasher, GetLastError()->getErrorCode(), QxciErrUnknown),
        OPERATION(DBQXCIPasswordHasher, GetAlgorithmID(), 0),
        OPERATION(DBQXCIPasswordHasher, GetMaxHashSize(), 0),
        OPERATION(DBQXCIPasswordHasher, Hash(buf, 0, buf, &len), QXCI_ERROR),
        OPERATION(DBQXCISignatureHandler, CreateDBSig("", "", "", text, &len), QXCI_ERROR),
        OPERATION(DBQXCISignatureHandler, CreateConnSig("", "", text, &len), QXCI_ERROR),
        OPERATION(DBQXCISignatureHandler, VerifyDBSig("", "", "", "", &ok), QXCI_ERROR),
        OPERATION(DBQXCISignatureHandler, VerifyConnSig("", "", "", &ok), QXCI_ERROR),
        OPERATION(DBQXCIStream, Init(QXCI_SERVER, nullptr), QXCI_ERROR),
        OPERATION(DBQXCIStream, Fini(), QXCI_ERROR),
        OPERATION(DBQXCIStream, GetAlgorithmID(), 0),
        OPERATION(DBQXCIStream, CreateConn(nullptr, nullptr, nullptr, &t.err) != nullptr, 0),
        OPERATION(DBQXCIStreamConn, Read(buf, 0, &len), QXCI_IO_ERROR),
        OPERATION(DBQXCIStreamConn, Write(buf, 0), QXCI_IO_ERROR),
        OPERATION(DBQXCIStreamConn, FlushWrites(), QXCI_IO_ERROR),
#undef OPERATION
    };
    Trial t;
    auto* const empty = new DBQXCIInterface;
    for (DBQXCIInterface* source : {static_cast<DBQXCIInterface*>(nullptr), empty}) {
        for (const auto& row : rows) {
            EXPECT_EQ(row.failure, row.call(t, source)) << row.name;
        }
    }
    while (empty->RefCount() > 1) empty->Release();  // kept: what has no destroy_func gives no back
    empty->Release();
}

TEST(Wrappers, keep_the_slot_before_the_error) {
    Trial t;
    const DBQXCIBlockEncrypter encrypter(handle<DBQXCIBlockEncrypter>(), &t.env, nullptr,
                                         FIPS_IFACE);
    struct {
        const void *handle, *iface;
        uint32 slot;
    } first;
    std::memcpy(&first, static_cast<const void*>(&encrypter), sizeof first);
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
    DBQXCISignatureHandler signer(handle<DBQXCISignatureHandler>(), &t.env, iface.get(),
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
