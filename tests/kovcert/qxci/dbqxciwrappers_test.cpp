#include "kovcert/qxci/dbqxciwrappers.h"

#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "kovcert/qxci/dbqxci.h"
#include "tests/kovcert/qxci/owner.h"

namespace {

a_utmem_source no_memory = {[](size_t) -> void* { return nullptr; }, std::realloc, std::free,
                            [] { return false; }};

int object;  // stands for a provider's

template <class Handle>
Handle handle() {
    return reinterpret_cast<Handle>(&object);
}

/// A wrapper of every kind over one interface.
struct Wrappers {
    explicit Wrappers(DBQXCIInterface* source)
        : encrypter(handle<QXCIBlockEncrypterH>(), &env, source, FIPS_IFACE),
          hasher(handle<QXCIBlockHasherH>(), &env, source),
          password(handle<QXCIPasswordHasherH>(), &env, source),
          signer(handle<QXCISignatureHandlerH>(), &env, source),
          stream(handle<QXCIStreamH>(), &env, source),
          conn(handle<QXCIStreamConnH>(), &env, source) {}

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
        std::function<long(Wrappers&)> call;
        long failure;
        std::function<const DBQXCIError*(Wrappers&)> error;
    } table[] = {
#define OPERATION(object, call, failure)                                                        \
    {                                                                                           \
#object "." #call, [](Wrappers& w) { return static_cast<long>(w.object.call); }, failure,     \
     [](Wrappers& w) { return w.object.GetLastError(); } \
    }
        OPERATION(encrypter, GetAlgorithmID(), 0),
        OPERATION(encrypter, Encrypt(buf, 0, 0), QXCI_ERROR),
        OPERATION(encrypter, Decrypt(buf, 0, 0), QXCI_ERROR),
        OPERATION(encrypter, GetBlockSize(), 0),
        OPERATION(hasher, GetAlgorithmID(), 0),
        OPERATION(hasher, GetMaxHashSize(), 0),
        OPERATION(hasher, GetBlockSize(), 0),
        OPERATION(hasher, BeginHash(), QXCI_ERROR),
        OPERATION(hasher, AddData(buf, 0), QXCI_ERROR),
        OPERATION(hasher, EndHash(buf, &len), QXCI_ERROR),
        OPERATION(password, GetAlgorithmID(), 0),
        OPERATION(password, GetMaxHashSize(), 0),
        OPERATION(password, Hash(buf, 0, buf, &len), QXCI_ERROR),
        OPERATION(signer, CreateDBSig("", "", "", text, &len), QXCI_ERROR),
        OPERATION(signer, CreateConnSig("", "", text, &len), QXCI_ERROR),
        OPERATION(signer, VerifyDBSig("", "", "", "", &ok), QXCI_ERROR),
        OPERATION(signer, VerifyConnSig("", "", "", &ok), QXCI_ERROR),
        OPERATION(stream, Init(QXCI_SERVER, nullptr), QXCI_ERROR),
        OPERATION(stream, Fini(), QXCI_ERROR),
        OPERATION(stream, GetAlgorithmID(), 0),
        OPERATION(stream, CreateConn(nullptr, nullptr, nullptr, &w.err) != nullptr, 0),
        OPERATION(conn, Read(buf, 0, &len), QXCI_IO_ERROR),
        OPERATION(conn, Write(buf, 0), QXCI_IO_ERROR),
        OPERATION(conn, FlushWrites(), QXCI_IO_ERROR),
#undef OPERATION
    };
    auto* const empty = new DBQXCIInterface;
    for (DBQXCIInterface* source : {static_cast<DBQXCIInterface*>(nullptr), empty}) {
        for (const auto& row : table) {
            SCOPED_TRACE(row.name);
            Wrappers wrappers(source);
            EXPECT_EQ(row.call(wrappers), row.failure);
            EXPECT_EQ(row.error(wrappers)->getErrorCode(), QxciErrUnknown);
        }
    }
    while (empty->RefCount() > 1) empty->Release();  // kept: what has no destroy_func gives no back
    empty->Release();
}

std::string calls;  // what reached the tables
const a_qxci_error io_error = {QxciErrIOError, 5, nullptr};
const a_qxci_error* last_error = &io_error;  // what the provider tells

/// Every entry of the connection's and the signatures' tables that notes what it was given.
void fill(DBQXCIInterface& iface) {
    iface._conn_iface = {
        .create_func = [](QXCIStreamH, const a_qxci_conn_callbacks*, a_qxci_user_option* options,
                          void* data, a_qxci_error* error) -> QXCIStreamConnH {
            calls += "conn;";
            error->code = options == nullptr ? QxciErrBadUnit : QxciErrOK;
            return data != nullptr ? handle<QXCIStreamConnH>() : nullptr;
        },
        .read_func =
            [](QXCIStreamConnH, a_qxci_byte* buf, size_t len, size_t* got) {
                std::memcpy(buf, "hey", *got = len);
                return a_qxci_io_result{QXCI_IO_GRACEFUL_CLOSE};
            },
        .write_func =
            [](QXCIStreamConnH, const a_qxci_byte* data, size_t len) {
                calls.append("write ").append(reinterpret_cast<const char*>(data), len).append(";");
                return a_qxci_io_result{QXCI_IO_WOULD_BLOCK};
            },
        .flush_writes_func =
            [](QXCIStreamConnH conn) {
                EXPECT_EQ(conn, handle<QXCIStreamConnH>());
                return a_qxci_io_result{QXCI_IO_OK};
            },
        .get_last_error_func = [](QXCIStreamConnH) -> const a_qxci_error* { return last_error; },
        .destroy_func = [](QXCIStreamConnH) { calls += "no conn;"; },
    };
    iface._stream_iface.init_func = [](QXCIStreamH, a_qxci_side side, a_qxci_user_option*) {
        return static_cast<a_qxci_result>(side);
    };
    iface._stream_iface.destroy_func = [](QXCIStreamH) { calls += "no stream;"; };
    iface._error_iface.destroy_func = [](QXCIEnvironmentH, a_qxci_error*) { calls += "no error;"; };
    iface._sig_iface.create_dbsig_func = [](QXCISignatureHandlerH, const char* a, const char* b,
                                            const char* c, char* out, size_t*) {
        std::strcat(std::strcat(std::strcpy(out, a), b), c);
        return a_qxci_result{QXCI_OK};
    };
    iface._sig_iface.verify_connsig_func = [](QXCISignatureHandlerH, const char* a, const char* b,
                                              const char* sig, bool* ok) {
        *ok = std::string(a) + b == sig;
        return a_qxci_result{QXCI_OK};
    };
}

TEST(Wrappers, hand_arguments_and_results_through) {
    auto* const iface = new DBQXCIInterface;
    fill(*iface);
    Owner owner;
    DBQXCIEnvironment env(owner.callbacks(), &owner);
    DBQXCIError err;
    calls.clear();
    {
        DBQXCIStream stream(handle<QXCIStreamH>(), &env, iface);
        EXPECT_EQ(stream.GetSide(), QXCI_CLIENT);
        EXPECT_EQ(stream.Init(QXCI_SERVER, nullptr), QXCI_SERVER);
        EXPECT_EQ(stream.GetSide(), QXCI_SERVER);
        EXPECT_EQ(stream.CreateConn(nullptr, nullptr, nullptr, &err), nullptr);
        EXPECT_EQ(err.getErrorCode(), QxciErrBadUnit);
        EXPECT_EQ(calls, "conn;no error;");
        a_qxci_user_option any = {};
        EXPECT_EQ(stream.CreateConn(nullptr, &any, nullptr, &err), nullptr);
        EXPECT_EQ(err.getErrorCode(), QxciErrUnknown) << "no reason given";
        EXPECT_EQ(iface->RefCount(), 2U);
        calls.clear();
        utmem_set_source(&no_memory);
        EXPECT_EQ(stream.CreateConn(nullptr, nullptr, &env, &err), nullptr);
        utmem_set_source(nullptr);
        EXPECT_EQ(err.getErrorCode(), QxciErrNoMemory);
        EXPECT_EQ(std::exchange(calls, ""), "conn;no conn;");
        const std::unique_ptr<DBQXCIStreamConn> conn(
            stream.CreateConn(nullptr, nullptr, &env, &err));
        ASSERT_NE(conn, nullptr);
        EXPECT_FALSE(err.isError());
        EXPECT_EQ(iface->RefCount(), 3U);
        a_qxci_byte buf[4] = "";
        size_t got = 0;
        EXPECT_EQ(conn->Read(buf, 3, &got), QXCI_IO_GRACEFUL_CLOSE);
        EXPECT_STREQ(reinterpret_cast<char*>(buf), "hey");
        EXPECT_EQ(conn->Write(buf, 2), QXCI_IO_WOULD_BLOCK);
        EXPECT_EQ(conn->FlushWrites(), QXCI_IO_OK);
        EXPECT_EQ(conn->GetLastError()->getErrorCode(), QxciErrIOError);
        EXPECT_EQ(conn->GetLastError()->getSystemCode(), 5U);
        last_error = nullptr;
        EXPECT_EQ(conn->GetLastError()->getErrorCode(), QxciErrUnknown);
        EXPECT_EQ(conn->GetLastError()->getSystemCode(), 0U);
    }
    EXPECT_EQ(calls, "conn;write he;no conn;no stream;");
    EXPECT_EQ(iface->RefCount(), 1U);

    iface->_sig_iface.destroy_func = [](QXCISignatureHandlerH) {};
    {
        DBQXCISignatureHandler signer(handle<QXCISignatureHandlerH>(), &env, iface);
        char sig[8];
        size_t len = sizeof sig;
        bool ok = false;
        EXPECT_EQ(signer.CreateDBSig("a", "b", "c", sig, &len), QXCI_OK);
        EXPECT_STREQ(sig, "abc");
        EXPECT_EQ(signer.VerifyConnSig("a", "bc", sig, &ok), QXCI_OK);
        EXPECT_TRUE(ok);
    }
    iface->Release();
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

TEST(Wrappers, work_with_the_built_in_provider) {
    Owner owner;
    DBQXCIEnvironment env(owner.callbacks(), &owner);
    DBQXCIError err;
    ASSERT_EQ(env.Init(false, "test", nullptr, &err), QXCI_OK);
    // FIPS 197, C.1
    a_qxci_byte key[16];
    a_qxci_byte plain[16];
    for (int i = 0; i < 16; ++i) {
        key[i] = static_cast<a_qxci_byte>(i);
        plain[i] = static_cast<a_qxci_byte>(i * 0x11);
    }
    a_qxci_byte data[16];
    std::memcpy(data, plain, 16);
    const std::unique_ptr<DBQXCIBlockEncrypter> encrypter(
        env.CreateBlockEncrypterWithID(QXCI_ENC_AES128, key, 16, nullptr, &err));
    EXPECT_EQ(encrypter->GetAlgorithmID(), QXCI_ENC_AES128);
    EXPECT_EQ(encrypter->GetBlockSize(), 16U);
    EXPECT_EQ(encrypter->GetDLLName(), nullptr);
    EXPECT_EQ(encrypter->Encrypt(data, 16, 0), QXCI_OK);
    EXPECT_EQ(std::memcmp(data, "\x69\xc4\xe0\xd8\x6a\x7b\x04\x30", 8), 0);
    EXPECT_EQ(encrypter->Decrypt(data, 16, 0), QXCI_OK);
    EXPECT_EQ(std::memcmp(data, plain, 16), 0);
    EXPECT_EQ(encrypter->Encrypt(data, 15, 0), QXCI_ERROR);
    EXPECT_EQ(encrypter->GetLastError()->getErrorCode(), QxciErrOptionError);
    EXPECT_STREQ(encrypter->GetLastError()->GetParm(0), "len");

    const std::unique_ptr<DBQXCIBlockHasher> crc(env.CreateBlockHasher("CRC", &err));
    a_qxci_byte hash[4];
    size_t len = sizeof hash;
    EXPECT_EQ(crc->BeginHash(), QXCI_OK);
    EXPECT_EQ(crc->AddData(reinterpret_cast<const a_qxci_byte*>("123456789"), 9), QXCI_OK);
    EXPECT_EQ(crc->EndHash(hash, &len), QXCI_OK);
    EXPECT_EQ(std::memcmp(hash, "\xcb\xf4\x39\x26", 4), 0);
    EXPECT_EQ(crc->GetMaxHashSize(), 4U);
    EXPECT_EQ(crc->GetQXCIVersion().api_minor, 7);
}

}  // namespace
