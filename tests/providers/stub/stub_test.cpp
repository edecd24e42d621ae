#include <cerrno>
#include <string>

#include "providers/stub/qxcistub.h"
#include "tests/providers/session.h"

namespace {

class Stub : public Provider {
  public:
    explicit Stub(const a_setting_list& settings = {}, int fail_at = INT_MAX)
        : Provider({QXCIGetEnvIface, QXCIGetErrorIface, QXCIGetStreamIface, QXCIGetStreamConnIface,
                    QXCIGetPasswordHasherIface, QXCIGetBlockHasherIface, QXCIGetBlockEncrypterIface,
                    QXCIGetSignatureHandlerIface},
                   settings, fail_at) {}
    explicit Stub(const char* script, int fail_at = INT_MAX)
        : Stub({{"identity_file", "x"}, {"Stub_Script", script}}, fail_at) {}
};

/// One end of a connection.
class End : public Wire {
  public:
    End(Stub& provider, a_qxci_side side, const a_setting_list& settings = {},
        const std::string& incoming = "")
        : Wire(incoming), session(provider, *this, settings, side) {}
    /// A client that plays a script.
    End(Stub& provider, const char* script, const std::string& incoming)
        : End(provider, QXCI_CLIENT, {{"stub_script", script}}, incoming) {}

    /// Operations and their results in words: "ok: text", "would block", "closed", "error 8".
    std::string read(size_t room = 100) {
        session.text.clear();
        const a_qxci_io_result result = session.read(room);
        return in_words(result) + (result == QXCI_IO_OK ? ": " + session.text : "");
    }
    std::string write(const std::string& text) { return in_words(session.write(text)); }
    std::string flush() { return in_words(session.flush()); }

    Session session;

  private:
    std::string in_words(a_qxci_io_result result) const {
        const std::string words[] = {"ok", "error " + session.error, "would block", "closed"};
        return words[result];
    }
};

std::string record(const char* kind, const std::string& payload = "") {
    char header[QXCI_STUB_HEADER_SIZE + 1];
    std::snprintf(header, sizeof header, "QXCI-STUB %s %05zu\n", kind, payload.size());
    return header + payload;
}
const std::string client_hello = "QXCI-STUB HELLO 00007\nclient\n";
const std::string server_hello = "QXCI-STUB HELLO 00007\nserver\n";
const std::string close_record = "QXCI-STUB CLOSE 00000\n";

TEST(StubConn, speaks_in_plain_records) {
    Stub provider;
    const a_setting_list settings = {
        {"trusted_certificate", "ca.pem"}, {"stub_script", ""}, {"certificate_name", "n"}};
    End client(provider, QXCI_CLIENT, settings);
    const Options& options = client.session.options;
    EXPECT_TRUE(options[0].used && options[1].used && options[2].used);
    const std::string hello = "QXCI-STUB HELLO 00053\nclient\ntrusted_certificate=ca.pem\n"
                              "certificate_name=n\n";
    EXPECT_EQ(hello, client.out);
    EXPECT_EQ("would block", client.read());

    End server(provider, QXCI_SERVER, {}, client.out);
    EXPECT_EQ(server_hello, server.out);
    client.in = server.out + "QXCI-STUB DATA_ 00000\nQXCI-STUB DATA_ 00004\n220 ";
    EXPECT_EQ("ok", client.write("QUIT\r\n"));
    EXPECT_EQ("ok", client.write(""));
    EXPECT_EQ("ok: 220", client.read(3)) << "an empty record is no end";
    EXPECT_EQ("ok:  ", client.read()) << "nor is that of a record";
    const std::string longest(16384, 'x');
    EXPECT_EQ("ok", client.write(longest + "x"));
    client.session.close();
    EXPECT_EQ(hello + "QXCI-STUB DATA_ 00006\nQUIT\r\n" + record("DATA_", longest) +
                  record("DATA_", "x") + close_record,
              client.out);
    server.in = client.out.substr(hello.size());
    EXPECT_EQ("ok: QUIT\r\n", server.read());
    EXPECT_EQ("ok: " + longest, server.read(20000));
}

TEST(StubConn, takes_what_comes_in_pieces_and_gives_up_when_nothing_comes_or_goes) {
    Stub provider;
    End client(provider, QXCI_CLIENT), silent(provider, QXCI_CLIENT), failing(provider, "", "");
    client.in = server_hello + record("DATA_", "250") + close_record;
    client.at_most = 1;
    client.stutters = true;
    std::string seen;
    for (int i = 0; i < 400 && !seen.ends_with("closed;"); ++i) {
        const std::string result = client.read();
        if (result != "would block") seen += result + ";";
    }
    EXPECT_EQ("ok: 2;ok: 5;ok: 0;closed;", seen);

    int empty_reads = 1;  // that of creation
    while (silent.read() == "would block") ++empty_reads;
    EXPECT_EQ(QXCI_STUB_MAX_EMPTY_READS - 1, empty_reads);
    EXPECT_EQ("error 12", silent.write("x"));

    failing.in = server_hello;
    EXPECT_EQ("ok", failing.write("x"));
    failing.limit = failing.taken;  // from now on both callbacks fail
    failing.end = QXCI_IO_ERROR;
    EXPECT_EQ("error 8", failing.read());
}

TEST(StubConn, does_what_the_peer_and_the_script_say) {
    const std::string proto = std::to_string(EPROTO), x = record("DATA_", "x");
    const std::string broken = "0;error 8 " + proto + ";error 8 " + proto + ";";
    const std::string opened = server_hello + x;
    for (const std::string& no_hello :
         {std::string("HTTP/1.1 400 Bad Request\r\n"), client_hello, record("HELLO", "server"),
          std::string("QXCI-STUB HELLO 16385\nserver\n"),
          std::string("QXCI-STUB HELLO -0007\nserver\n"), x}) {
        Stub provider;
        EXPECT_EQ("9 " + proto, End(provider, "", no_hello).session.error) << no_hello;
    }
    const struct {
        const char* script;
        std::string incoming;
        const char* operations;  // r: read, w: write, f: flush
        std::string results;     // the error of creation first
        std::string sent;
    } cases[] = {
        {"", server_hello + server_hello, "rw", broken, client_hello},
        {"", record("HELLO", "server\nmore\n") + x, "rwrf", "0;ok: x;ok;would block;ok;",
         client_hello + record("DATA_", "text") + close_record},

        {"handshake*2 block", opened, "rr", "0;would block;ok: x;", client_hello + close_record},
        {"handshake block; handshake close", opened, "rr", "0;closed;ok: x;",
         client_hello + close_record},
        {"stream block", opened, "", "28 stub_script;", ""},

        {"read block; read*2 give 220 ok\\r\\n; read* close", opened, "rrrrr",
         "0;would block;ok: 220 ok\r\n;ok: 220 ok\r\n;closed;closed;", client_hello + close_record},
        {"write fail 8,104,a b,c;write done; destroy done", opened, "wwf",
         "0;error 8 104 a b c;ok;ok;", client_hello},
        {"write*2 max 3;write* close;;flush block; flush* fail 8", opened, "wwwff",
         "0;would block;ok;closed;would block;error 8;",
         client_hello + record("DATA_", "tex") + record("DATA_", "t") + close_record},
    };
    for (const auto& c : cases) {
        Stub provider;
        End client(provider, c.script, c.incoming);
        std::string results = client.session.error + ";";
        for (const char* op = c.operations; *op != '\0'; ++op) {
            results += *op == 'r'   ? client.read()
                       : *op == 'w' ? client.write("text")
                                    : client.flush();
            results += ";";
        }
        client.session.close();
        EXPECT_EQ(c.results, results) << c.script << c.incoming;
        EXPECT_EQ(c.sent, client.out) << c.script << c.incoming;
    }
}

TEST(StubScript, comes_from_the_nearest_that_has_one) {
    Stub provider("read give env"), unscripted;
    End of_own(provider, "read give own", server_hello);
    End of_env(provider, QXCI_CLIENT, {}, server_hello);
    End of_process(unscripted, QXCI_CLIENT, {}, server_hello);
    EXPECT_EQ("ok: own", of_own.read());
    EXPECT_EQ("ok: env", of_env.read());

    Wire wire;
    const a_setting_list of_stream = {{"stub_script", "init fail 5,6,7"}};
    EXPECT_EQ("5 6 7", Session(provider, wire, {}, QXCI_CLIENT, of_stream).error);

    ASSERT_TRUE(QXCIStubScript("read give process"));
    EXPECT_EQ("ok: process", of_process.read());
    EXPECT_TRUE(QXCIStubScript(nullptr));
    EXPECT_EQ("would block", of_own.read());
}

TEST(StubScript, is_well_formed_or_refused) {
    for (const char* good : {"", " ;; ", "read ok", "read*3   max 1 ;", "env fail 1,2,,b"}) {
        EXPECT_TRUE(QXCIStubScript(good)) << good;
    }
    for (const char* bad : {"read", "reads ok", "read ok ok", "read*x ok", "flush*fail 8",
                            "read max 0", "read fail 1,x", "read give", "env block", "flush max 1",
                            "write give x", "read ok, read ok"}) {
        EXPECT_FALSE(QXCIStubScript(bad)) << bad;
    }
    EXPECT_FALSE(QXCIStubScript(("read give " + std::string(256, 'x')).c_str()));
    QXCIStubScript(nullptr);
}

TEST(StubScript, makes_creations_and_operations_fail) {
    Stub p("object fail 1,2,3; stream fail 4"), refused("env fail 25,0,lib.so");
    EXPECT_EQ(nullptr, p.pw_hash.create_func(p.env, &p.error));
    EXPECT_EQ("1 2 3", p.creation_error());
    EXPECT_EQ("4", End(p, QXCI_CLIENT).session.error);
    EXPECT_EQ(nullptr, refused.env);
    EXPECT_EQ("25 lib.so", describe(&refused.error));

    Stub working("work fail 30,0,p");
    const QXCIBlockHasherH hasher = working.hash.create_func(working.env, "MD5", &working.error);
    working.hash.begin_hash_func(hasher);
    EXPECT_EQ("30 p", describe(working.hash.get_last_error_func(hasher)));
    working.hash.destroy_func(hasher);
}

}  // namespace
