#include <cerrno>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include "providers/stub/qxcistub.h"
#include "tests/kovcert/qxci/owner.h"
#include "tests/providers/wire.h"
#include "tests/scratch.h"

namespace {

constexpr a_getters linked_in = {
    QXCIGetEnvIface,
    QXCIGetErrorIface,
    QXCIGetStreamIface,
    QXCIGetStreamConnIface,
    QXCIGetPasswordHasherIface,
    QXCIGetBlockHasherIface,
    QXCIGetBlockEncrypterIface,
    QXCIGetSignatureHandlerIface,
};

class Stub : public Provider {
  public:
    explicit Stub(const a_setting_list& settings = {}) : Provider(linked_in, settings) {}
    explicit Stub(const char* script) : Stub({{"identity_file", "x"}, {"Stub_Script", script}}) {}

    QXCIStreamH stream(a_qxci_side side, a_qxci_user_option* options = nullptr) {
        const QXCIStreamH made =
            streams.create_with_id_func(env, nullptr, nullptr, QXCI_STREAM_RSA_TLS, &error);
        if (made != nullptr && streams.init_func(made, side, options) != QXCI_OK) {
            ADD_FAILURE() << describe(streams.get_last_error_func(made));
        }
        return made;
    }
};

/// One end of a connection.
class End : public Wire {
  public:
    End(Stub& from, a_qxci_side side, a_qxci_user_option* options = nullptr,
        std::string incoming = "")
        : _provider(from), _stream(from.stream(side)) {
        in = std::move(incoming);
        conn = from.conns.create_func(_stream, &callbacks, options, this, &from.error);
    }
    ~End() override {
        close();
        _provider.streams.destroy_func(_stream);
    }
    void close() {
        _provider.conns.destroy_func(conn);
        conn = nullptr;
    }

    /// Operations and their results in words: "ok: text", "would block", "closed", "error 8".
    std::string read(size_t len = 100) {
        std::string text(len, '\0');
        size_t got;
        const auto result =
            _provider.conns.read_func(conn, reinterpret_cast<a_qxci_byte*>(text.data()), len, &got);
        return in_words(result, ": " + text.substr(0, got));
    }
    std::string write(const std::string& text) {
        return in_words(_provider.conns.write_func(
            conn, reinterpret_cast<const a_qxci_byte*>(text.data()), text.size()));
    }
    std::string flush() { return in_words(_provider.conns.flush_writes_func(conn)); }

    /// From now on both callbacks fail.
    void fail() {
        limit = taken;
        end = QXCI_IO_ERROR;
    }

    QXCIStreamConnH conn;

  private:
    std::string in_words(a_qxci_io_result result, const std::string& data = "") {
        switch (result) {
        case QXCI_IO_OK:
            return "ok" + data;
        case QXCI_IO_WOULD_BLOCK:
            return "would block";
        case QXCI_IO_GRACEFUL_CLOSE:
            return "closed";
        default:
            return "error " + describe(_provider.conns.get_last_error_func(conn));
        }
    }

    Stub& _provider;
    const QXCIStreamH _stream;
};

const std::string server_hello = "QXCI-STUB HELLO 00007\nserver\n";

TEST(StubConn, speaks_in_plain_records) {
    Stub provider;
    Options options;
    options.add("trusted_certificate", "ca.pem")
        .add("stub_script", "")
        .add("certificate_name", "n");
    End client(provider, QXCI_CLIENT, options.head());
    ASSERT_NE(client.conn, nullptr);
    EXPECT_TRUE(options[0].used && options[1].used && options[2].used);
    const std::string hello = "QXCI-STUB HELLO 00053\nclient\ntrusted_certificate=ca.pem\n"
                              "certificate_name=n\n";
    EXPECT_EQ(client.out, hello);
    EXPECT_EQ(client.read(), "would block");

    End server(provider, QXCI_SERVER, nullptr, client.out);
    ASSERT_NE(server.conn, nullptr);
    EXPECT_EQ(server.out, server_hello);
    client.in = server.out + "QXCI-STUB DATA_ 00000\nQXCI-STUB DATA_ 00004\n220 ";
    EXPECT_EQ(client.write("QUIT\r\n"), "ok");
    EXPECT_EQ(client.write(""), "ok");
    EXPECT_EQ(client.read(3), "ok: 220") << "an empty record is no end";
    EXPECT_EQ(client.read(), "ok:  ") << "nor is that of a record";
    EXPECT_EQ(client.write(std::string(16385, 'x')), "ok");
    client.close();
    EXPECT_EQ(client.out, hello + "QXCI-STUB DATA_ 00006\nQUIT\r\nQXCI-STUB DATA_ 16384\n" +
                              std::string(16384, 'x') +
                              "QXCI-STUB DATA_ 00001\nxQXCI-STUB CLOSE 00000\n");
    server.in = client.out.substr(hello.size());
    EXPECT_EQ(server.read(), "ok: QUIT\r\n");
    EXPECT_EQ(server.read(20000), "ok: " + std::string(16384, 'x'));
    EXPECT_EQ(server.read(20000), "ok: x");
    EXPECT_EQ(server.read(), "closed");
    EXPECT_EQ(server.write("late"), "closed");
}

TEST(StubConn, takes_what_comes_in_pieces) {
    Stub provider;
    End client(provider, QXCI_CLIENT);
    client.in = server_hello + "QXCI-STUB DATA_ 00003\n250QXCI-STUB CLOSE 00000\n";
    client.at_most = 1;
    client.stutters = true;
    std::string seen;
    for (int i = 0; i < 400; ++i) {
        const std::string result = client.read();
        if (result != "would block") seen += result + ";";
        if (result == "closed") break;
    }
    EXPECT_EQ(seen, "ok: 2;ok: 5;ok: 0;closed;");
}

TEST(StubConn, refuses_what_it_does_not_expect) {
    const std::string proto = std::to_string(EPROTO), data = "QXCI-STUB DATA_ 00001\nx";
    const struct {
        std::string in;
        std::string error;  // of the read, or of creation after "creation"
    } cases[] = {
        {"HTTP/1.1 400 Bad Request\r\n", "creation 9 " + proto},
        {"QXCI-STUB HELLO 00007\nclient\n", "creation 9 " + proto},
        {"QXCI-STUB HELLO 00006\nserver", "creation 9 " + proto},
        {"QXCI-STUB HELLO 16385\nserver\n", "creation 9 " + proto},
        {"QXCI-STUB HELLO -0007\nserver\n", "creation 9 " + proto},
        {"qxci-stub HELLO 00007\nserver\n", "creation 9 " + proto},
        {data, "creation 9 " + proto},
        {"QXCI-STUB CLOSE 00000\n", "creation 9 " + proto},
        {server_hello + server_hello, "error 8 " + proto},
        {server_hello + "QXCI-STUB HELL0 00007\n", "error 8 " + proto},
        {server_hello + data, "ok: x"},
        {"QXCI-STUB HELLO 00012\nserver\nmore\n" + data, "ok: x"},
    };
    for (const auto& c : cases) {
        Stub provider;
        End client(provider, QXCI_CLIENT, nullptr, c.in);
        if (client.conn == nullptr) {
            EXPECT_EQ("creation " + provider.creation_error(), c.error) << c.in;
            continue;
        }
        EXPECT_EQ(client.read(), c.error) << c.in;
        EXPECT_EQ(client.write("x"), c.error[0] == 'e' ? c.error : "ok") << "it is over";
    }
}

TEST(StubConn, gives_up_when_nothing_comes_or_goes) {
    Stub provider;
    End client(provider, QXCI_CLIENT), failing(provider, QXCI_CLIENT);
    int empty_reads = 1;  // that of creation
    while (client.read() == "would block") empty_reads++;
    EXPECT_EQ(empty_reads, QXCI_STUB_MAX_EMPTY_READS - 1);
    EXPECT_EQ(client.write("x"), "error 12");
    failing.in = server_hello;
    EXPECT_EQ(failing.write("x"), "ok");
    failing.fail();
    EXPECT_EQ(failing.read(), "error 8");
}

TEST(StubScript, arranges_every_operation_of_a_connection) {
    const struct {
        const char* script;
        const char* operations;  // r: read, w: write, f: flush
        const char* results;
        const char* sent;  // behind the hello
    } cases[] = {
        {"", "rwf", "would block;ok;ok;", "QXCI-STUB DATA_ 00004\ntextQXCI-STUB CLOSE 00000\n"},
        {"read block; read*2 give 220 ok\\r\\n; read* close", "rrrrr",
         "would block;ok: 220 ok\r\n;ok: 220 ok\r\n;closed;closed;", "QXCI-STUB CLOSE 00000\n"},
        {"write fail 8,104,a b,c;write done; destroy done", "wwf", "error 8 104 a b c;ok;ok;", ""},
        {"write*2 max 3;write* close;;flush block; flush*fail 8", "", nullptr, nullptr},
        {"write*2 max 3;write* close;;flush block; flush* fail 8", "wwwff",
         "would block;ok;closed;would block;error 8;",
         "QXCI-STUB DATA_ 00003\ntexQXCI-STUB DATA_ 00001\ntQXCI-STUB CLOSE 00000\n"},
        {"flush close; read fail 13,0,Acme Ltd; read fail 7", "frrr",
         "closed;error 13 Acme Ltd;error 7;would block;", "QXCI-STUB CLOSE 00000\n"},
    };
    for (const auto& c : cases) {
        Stub provider;
        End client(provider, QXCI_CLIENT, Options().add("stub_script", c.script).head(),
                   server_hello);
        if (c.results == nullptr) {
            EXPECT_EQ(client.conn, nullptr);
            EXPECT_EQ(provider.creation_error(), "28 stub_script");
            continue;
        }
        ASSERT_NE(client.conn, nullptr) << c.script;
        std::string results;
        for (const char* op = c.operations; *op != '\0'; ++op) {
            results += *op == 'r'   ? client.read()
                       : *op == 'w' ? client.write("text")
                                    : client.flush();
            results += ";";
        }
        EXPECT_EQ(results, c.results) << c.script;
        client.close();
        EXPECT_EQ(client.out, std::string("QXCI-STUB HELLO 00007\nclient\n") + c.sent) << c.script;
    }
}

TEST(StubScript, arranges_the_handshake) {
    const struct {
        const char* script;
        const char* results;  // of the creation and two reads of what has arrived
        size_t sent;
    } cases[] = {
        {"", "made;ok: x;would block;", 29},
        {"handshake*2 block", "made;would block;ok: x;", 29},
        {"handshake* block", "made;would block;would block;", 0},
        {"handshake done; read* give y", "made;ok: y;ok: y;", 0},
        {"handshake block; handshake close", "made;closed;ok: x;", 29},
        {"handshake close", "12", 0},
        {"handshake fail 17", "17", 0},
        {"handshake block; handshake fail 14,1,unit", "made;error 14 1 unit;ok: x;", 29},
        {"conn fail 26,0,a,b", "26 a b", 0},
        {"stream block", "28 stub_script", 0},
    };
    for (const auto& c : cases) {
        Stub provider;
        End client(provider, QXCI_CLIENT, Options().add("stub_script", c.script).head(),
                   server_hello + "QXCI-STUB DATA_ 00001\nx");
        const bool made = client.conn != nullptr;
        std::string results = made ? "made;" : provider.creation_error();
        for (int i = 0; made && i < 2; ++i) results += client.read() + ";";
        EXPECT_EQ(results, c.results) << c.script;
        EXPECT_EQ(client.out.size(), c.sent) << c.script;
    }
}

TEST(StubScript, comes_from_the_nearest_that_has_one) {
    Stub provider("read give env");
    Options inits;
    inits.add("stub_script", "read give stream; init fail 5,6,7");
    End of_own(provider, QXCI_CLIENT, Options().add("stub_script", "read give own").head(),
               server_hello);
    End of_env(provider, QXCI_CLIENT, nullptr, server_hello);
    EXPECT_EQ(of_own.read(), "ok: own");
    EXPECT_EQ(of_env.read(), "ok: env");

    const QXCIStreamH stream =
        provider.streams.create_func(provider.env, nullptr, nullptr, "ECC", &provider.error);
    EXPECT_EQ(provider.streams.init_func(stream, QXCI_SERVER, inits.head()), QXCI_ERROR);
    EXPECT_EQ(describe(provider.streams.get_last_error_func(stream)), "5 6 7");
    EXPECT_EQ(provider.streams.init_func(stream, QXCI_SERVER, nullptr), QXCI_OK);
    provider.streams.destroy_func(stream);

    Stub unscripted;
    End of_process(unscripted, QXCI_CLIENT, nullptr, server_hello);
    ASSERT_TRUE(QXCIStubScript("read give process"));
    EXPECT_FALSE(QXCIStubScript(std::string(QXCI_STUB_MAX_SCRIPT + 1, ' ').c_str()));
    EXPECT_EQ(of_process.read(), "ok: process");
    EXPECT_EQ(of_process.read(), "would block");
    ASSERT_TRUE(QXCIStubScript("read give again"));
    EXPECT_EQ(of_process.read(), "ok: again") << "from its start on";
    EXPECT_TRUE(QXCIStubScript(nullptr));
    EXPECT_EQ(of_own.read(), "would block");
}

TEST(StubScript, is_well_formed_or_refused) {
    for (const char* good : {"", " ;; ", "read ok", "read*3   max 1 ;", "env fail 1,2,,b"}) {
        EXPECT_TRUE(QXCIStubScript(good)) << good;
    }
    for (const char* bad :
         {"read", "reads ok", "read okay", "read ok ok", "read*x ok", "read max", "read max 0",
          "read fail", "read fail x", "read fail 0", "read fail 1,x", "read give", "read done",
          "env block", "flush max 1", "write give x", "read ok, read ok", "close read ok"}) {
        EXPECT_FALSE(QXCIStubScript(bad)) << bad;
    }
    EXPECT_FALSE(QXCIStubScript(("read give " + std::string(256, 'x')).c_str()));
    QXCIStubScript(nullptr);
}

TEST(StubScript, makes_creations_and_operations_fail) {
    const a_qxci_byte key[32] = {};
    Stub provider("object fail 1,2,3; stream fail 4");
    const auto failure = [&](const void* handle) {
        EXPECT_EQ(handle, nullptr);
        return provider.creation_error();
    };
    EXPECT_EQ(failure(provider.hash.create_func(provider.env, "MD5", &provider.error)), "1 2 3");
    EXPECT_EQ(failure(provider.pw_hash.create_func(provider.env, &provider.error)), "1 2 3");
    EXPECT_EQ(failure(provider.enc.create_func(provider.env, "AES256", key, 32, nullptr,
                                               &provider.error)),
              "1 2 3");
    EXPECT_EQ(failure(provider.sig.create_func(provider.env, Options().add("stub_key", "k").head(),
                                               &provider.error)),
              "1 2 3");
    EXPECT_EQ(failure(provider.stream(QXCI_CLIENT)), "4");

    Stub working("work fail 30,0,p");
    const QXCIBlockHasherH hasher = working.hash.create_func(working.env, "MD5", &working.error);
    EXPECT_EQ(working.hash.begin_hash_func(hasher), QXCI_ERROR);
    EXPECT_EQ(describe(working.hash.get_last_error_func(hasher)), "30 p");
    EXPECT_EQ(working.hash.begin_hash_func(hasher), QXCI_OK);
    EXPECT_EQ(describe(working.hash.get_last_error_func(hasher)), "0");
    working.hash.destroy_func(hasher);

    Stub refused("env fail 25,0,lib.so");
    EXPECT_EQ(refused.env, nullptr);
    EXPECT_EQ(refused.creation_error(), "25 lib.so");
}

TEST(StubObjects, hash_encrypt_and_sign_after_a_fashion) {
    Stub p;
    std::string hashes[3];
    for (std::string& hash : hashes) {
        const QXCIBlockHasherH hasher = p.hash.create_with_id_func(p.env, QXCI_HASH_SHA1, &p.error);
        hash.assign(p.hash.get_max_hash_size_func(hasher), '\0');
        size_t len = hash.size();
        a_qxci_byte* const out = reinterpret_cast<a_qxci_byte*>(hash.data());
        const bool other = &hash == &hashes[2];
        EXPECT_EQ(p.hash.add_data_func(hasher, out, 1), QXCI_ERROR) << "not begun";
        p.hash.begin_hash_func(hasher);
        p.hash.add_data_func(hasher, reinterpret_cast<const a_qxci_byte*>(other ? "b" : "a"), 1);
        EXPECT_EQ(p.hash.end_hash_func(hasher, out, &(len = 19)), QXCI_ERROR);
        EXPECT_EQ(len, 20u);
        EXPECT_EQ(p.hash.end_hash_func(hasher, out, &len), QXCI_OK);
        p.hash.destroy_func(hasher);
    }
    EXPECT_EQ(hashes[0], hashes[1]);
    EXPECT_NE(hashes[0], hashes[2]);

    const std::string plain(32, 'p');
    std::string text = plain, key = "0123456789abcdefghijklmnopqrstuv";
    a_qxci_byte* const data = reinterpret_cast<a_qxci_byte*>(text.data());
    const QXCIBlockEncrypterH encrypter = p.enc.create_func(
        p.env, "aes-256", reinterpret_cast<const a_qxci_byte*>(key.data()), 32, nullptr, &p.error);
    p.enc.encrypt_func(encrypter, data, 16, 0);
    p.enc.encrypt_func(encrypter, data + 16, 16, QXCI_ENC_CONTINUE);
    EXPECT_NE(text.substr(0, 16), text.substr(16));
    EXPECT_EQ(p.enc.encrypt_func(encrypter, data, 15, 0), QXCI_ERROR);
    p.enc.decrypt_func(encrypter, data, 32, 0);
    EXPECT_EQ(text, plain);
    p.enc.destroy_func(encrypter);

    const QXCIPasswordHasherH hasher = p.pw_hash.create_func(p.env, &p.error);
    a_qxci_byte hash[64] = {}, again[64];
    size_t len = sizeof hash;
    EXPECT_EQ(p.pw_hash.hash_func(hasher, data, 5, hash, &len), QXCI_OK);
    EXPECT_EQ(len, p.pw_hash.get_max_hash_size_func(hasher));
    std::memcpy(again, hash, sizeof hash);
    EXPECT_EQ(p.pw_hash.hash_func(hasher, data, 5, again, &len), QXCI_OK);
    EXPECT_EQ(std::memcmp(hash, again, len), 0);
    EXPECT_EQ(p.pw_hash.hash_func(hasher, data, 4, again, &len), QXCI_OK);
    EXPECT_NE(std::memcmp(hash, again, len), 0);
    p.pw_hash.destroy_func(hasher);

    const QXCISignatureHandlerH signer =
        p.sig.create_func(p.env, Options().add("stub_key", "k").head(), &p.error);
    char signature[32];
    len = sizeof signature;
    EXPECT_EQ(p.sig.create_connsig_func(signer, "ab", "c", signature, &len), QXCI_OK);
    bool ok[3] = {};
    p.sig.verify_connsig_func(signer, "ab", "c", signature, &ok[0]);
    p.sig.verify_connsig_func(signer, "a", "bc", signature, &ok[1]);
    p.sig.verify_dbsig_func(signer, "ab", "c", "", signature, &ok[2]);
    EXPECT_TRUE(ok[0] && !ok[1] && !ok[2]);
    p.sig.destroy_func(signer);
    EXPECT_EQ(p.sig.create_func(p.env, nullptr, &p.error), nullptr);
    EXPECT_EQ(p.creation_error(), "29");
}

TEST(Stub, leaves_nothing_behind_when_it_is_unloaded) {
    constexpr size_t rounds = 50;
    const ScratchFolder folder;
    // The stub itself is linked in and stays.
    const std::string copy = folder.file_with("copy.so", bytes_of(STUB_FILE));
    const size_t before = mallinfo2().uordblks;
    for (size_t i = 0; i < rounds; ++i) {
        void* const library = dlopen(copy.c_str(), RTLD_NOW);
        ASSERT_NE(library, nullptr) << dlerror();
        EXPECT_EQ(dlclose(library), 0);
    }
    EXPECT_LT(mallinfo2().uordblks, before + rounds * 1000);
}

}  // namespace
