#include "kovcert/qxci/dbqxciwrappers.h"

#include <cstring>
#include <memory>

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
        OPERATION(DBQXCIBlockEncrypter, Encrypt(buf, 0, 0), QXCI_ERROR),
        OPERATION(DBQXCIBlockHasher, GetLastError()->getErrorCode(), QxciErrUnknown),
        OPERATION(DBQXCISignatureHandler, VerifyConnSig("", "", "", nullptr), QXCI_ERROR),
        OPERATION(DBQXCIStream, Init(QXCI_SERVER, nullptr), QXCI_ERROR),
        OPERATION(DBQXCIStream, GetAlgorithmID(), 0),
        OPERATION(DBQXCIStream, CreateConn(nullptr, nullptr, nullptr, &t.err) != nullptr, 0),
        OPERATION(DBQXCIStreamConn, Read(buf, 0, &len), QXCI_IO_ERROR),
#undef OPERATION
    };
    Trial t;
    auto* const empty = new DBQXCIInterface;
    for (DBQXCIInterface* source : {static_cast<DBQXCIInterface*>(nullptr), empty}) {
        for (const auto& row : rows) {
            EXPECT_EQ(row.failure, row.call(t, source)) << row.name;
        }
    }
    EXPECT_EQ(1 + std::size(rows), empty->RefCount()) << "kept: none is given back";
    while (empty->RefCount() > 1) empty->Release();
    empty->Release();
}

TEST(Wrappers, call_the_entry_of_their_name) {
    Trial t;
    a_qxci_byte data[16] = {};
    const std::unique_ptr<DBQXCIBlockEncrypter> encrypter(
        t.env.CreateBlockEncrypterWithID(QXCI_ENC_AES128, data, 16, nullptr, &t.err));
    EXPECT_EQ(QXCI_OK, encrypter->Encrypt(data, 16, 0));
    EXPECT_EQ(0, std::memcmp("\x66\xe9\x4b\xd4", data, 4));
    EXPECT_EQ(QXCI_OK, encrypter->Decrypt(data, 16, 0));
    EXPECT_EQ(0, data[0] | data[15]);
}

}  // namespace
