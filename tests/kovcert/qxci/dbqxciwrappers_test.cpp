#include "kovcert/qxci/dbqxciwrappers.h"

#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "tests/kovcert/qxci/trial.h"

namespace {

constexpr a_utmem_source no_memory = {[](size_t) -> void* { return nullptr; }, std::realloc,
                                      std::free, [] { return false; }};

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
        const DBQXCIError* (*error)(Wrappers& w);
    } rows[] = {
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
        for (const auto& row : rows) {
            SCOPED_TRACE(row.name);
            Wrappers wrappers(source);
            EXPECT_EQ(row.failure, row.call(wrappers));
            EXPECT_EQ("37", describe(*row.error(wrappers)));
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

std::string calls;  // what reached the tables
const a_qxci_error io_error = {QxciErrIOError, 5, nullptr};
const a_qxci_error* last_error = &io_error;  // what the provider tells

constexpr a_qxci_conn_iface conn_iface = {
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
            EXPECT_EQ(handle<QXCIStreamConnH>(), conn);
            return a_qxci_io_result{QXCI_IO_OK};
        },
    .get_last_error_func = [](QXCIStreamConnH) -> const a_qxci_error* { return last_error; },
    .destroy_func = [](QXCIStreamConnH) { calls += "no conn;"; },
};

/// A provider whose tables note what reaches them; its one environment is never used.
class NotingProvider : public testing::Test {
  protected:
    NotingProvider() {
        calls.clear();
        iface->_conn_iface = conn_iface;
        iface->_stream_iface.init_func = [](QXCIStreamH, a_qxci_side side, a_qxci_user_option*) {
            return static_cast<a_qxci_result>(side);
        };
        iface->_stream_iface.destroy_func = [](QXCIStreamH) { calls += "no stream;"; };
        iface->_error_iface.destroy_func = [](QXCIEnvironmentH, a_qxci_error*) {
            calls += "no error;";
        };
    }

    const c_utils_ref<DBQXCIInterface> iface{new DBQXCIInterface};
    Owner owner;
    DBQXCIEnvironment env{owner.callbacks(), &owner};
    DBQXCIError err;
};

TEST_F(NotingProvider, makes_a_connection_or_leaves_nothing_of_it) {
    {
        DBQXCIStream stream(handle<QXCIStreamH>(), &env, iface.get(), STATIC_IFACE);
        EXPECT_EQ(QXCI_CLIENT, stream.GetSide());
        EXPECT_EQ(QXCI_SERVER, stream.Init(QXCI_SERVER, nullptr));
        EXPECT_EQ(QXCI_SERVER, stream.GetSide());
        EXPECT_EQ(nullptr, stream.CreateConn(nullptr, nullptr, nullptr, &err));
        EXPECT_EQ("14", describe(err));
        EXPECT_EQ("conn;no error;", std::exchange(calls, ""));
        a_qxci_user_option any = {};
        EXPECT_EQ(nullptr, stream.CreateConn(nullptr, &any, nullptr, &err));
        EXPECT_EQ("37", describe(err)) << "no reason given";
        EXPECT_EQ(2U, iface->RefCount());
        calls.clear();
        utmem_set_source(&no_memory);
        EXPECT_EQ(nullptr, stream.CreateConn(nullptr, nullptr, &env, &err));
        utmem_set_source(nullptr);
        EXPECT_EQ("1", describe(err));
        EXPECT_EQ("conn;no conn;", std::exchange(calls, ""));
        const std::unique_ptr<DBQXCIStreamConn> conn(
            stream.CreateConn(nullptr, nullptr, &env, &err));
        ASSERT_NE(nullptr, conn);
        EXPECT_FALSE(err.isError());
        EXPECT_EQ(3U, iface->RefCount());
    }
    EXPECT_EQ("conn;no conn;no stream;", calls);
    EXPECT_EQ(1U, iface->RefCount());
}

TEST_F(NotingProvider, gets_arguments_and_gives_results_as_they_are) {
    DBQXCIStreamConn conn(handle<QXCIStreamConnH>(), &env, iface.get(), STATIC_IFACE);
    a_qxci_byte buf[4] = "";
    size_t got = 0;
    EXPECT_EQ(QXCI_IO_GRACEFUL_CLOSE, conn.Read(buf, 3, &got));
    EXPECT_STREQ("hey", reinterpret_cast<char*>(buf));
    EXPECT_EQ(QXCI_IO_WOULD_BLOCK, conn.Write(buf, 2));
    EXPECT_EQ("write he;", calls);
    EXPECT_EQ(QXCI_IO_OK, conn.FlushWrites());
    EXPECT_EQ("8 5", describe(*conn.GetLastError()));
    last_error = nullptr;
    EXPECT_EQ("37", describe(*conn.GetLastError()));
    last_error = &io_error;

    a_qxci_sig_iface& signatures = iface->_sig_iface;
    signatures.create_dbsig_func = [](QXCISignatureHandlerH, const char* a, const char* b,
                                      const char* c, char* out, size_t*) {
        std::strcat(std::strcat(std::strcpy(out, a), b), c);
        return a_qxci_result{QXCI_OK};
    };
    signatures.verify_connsig_func = [](QXCISignatureHandlerH, const char* a, const char* b,
                                        const char* sig, bool* ok) {
        *ok = std::string(a) + b == sig;
        return a_qxci_result{QXCI_OK};
    };
    signatures.destroy_func = [](QXCISignatureHandlerH) {};
    DBQXCISignatureHandler signer(handle<QXCISignatureHandlerH>(), &env, iface.get(), STATIC_IFACE);
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
