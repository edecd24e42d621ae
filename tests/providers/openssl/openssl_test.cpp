#include "certificates.h"
#include "peer.h"
#include "testprovider.h"

#include "tests/scratch.h"

#include <gmock/gmock.h>

#include <thread>

using testing::AllOf;
using testing::Ge;
using testing::Le;

namespace {

/// An authority with an intermediate one, certificates of theirs, and files of what clients trust.
class OpenSslProvider : public testing::Test {
  protected:
    const Certificate root{{.subject = {{"CN", "Root"}}, .authority = true}};
    const Certificate middle{{.subject = {{"CN", "Middle"}}, .authority = true}, &root};
    const Certificate good{{.subject = {{"CN", "mail.example"},
                                        {"O", "Example"},
                                        {"O", "Beispiel \xc3\x9c"},
                                        {"OU", "Mail"}},
                            .names = "DNS:*.hosts.example"},
                           &root};
    const ScratchFolder folder;
    const std::string ca = folder.file_with("ca.pem", root.pem());
    const std::string rsa_identity = [&] {
        const Certificate rsa({.key = RSA2048}, &root);
        return folder.file_with("rsa.pem", rsa.pem() + root.pem() + rsa.key_pem("secret"));
    }();

    a_failure connect(Wire& wire, a_setting_list settings) {
        settings.insert(settings.begin(), {"trusted_certificate", ca});
        TestProvider provider;
        return Session(provider, wire, settings).failure;
    }
};

TEST_F(OpenSslProvider, speaks_both_versions_with_both_kinds_of_certificate) {
    const Certificate rsa({.key = RSA2048}, &root);
    for (const char* file : {RSA_PROVIDER, ECC_PROVIDER}) {
        for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
            for (const Certificate* certificate : {&good, &rsa}) {
                TestProvider provider(file);
                Peer peer(*certificate, {}, version);
                std::string text;
                {
                    Session session(
                        provider, peer,
                        {{"trusted_certificate", ca}, {"certificate_name", "mail.example"}});
                    ASSERT_EQ(session.failure, no_failure);
                    peer.answer();
                    EXPECT_TRUE(SSL_is_init_finished(peer.ssl));  // no read or write was needed
                    EXPECT_EQ(session.write(pattern(50000)), QXCI_IO_OK);
                    while (text.size() < 50000) ASSERT_EQ(session.read(text), QXCI_IO_OK);
                    if (version == TLS1_2_VERSION) {
                        SSL_renegotiate(peer.ssl);
                        SSL_do_handshake(peer.ssl);
                        EXPECT_EQ(session.write("more"), QXCI_IO_OK);
                        const int before = peer.records(SSL3_RT_HANDSHAKE);
                        session.read(text);
                        EXPECT_EQ(peer.records(SSL3_RT_HANDSHAKE), before);
                    }
                }
                EXPECT_EQ(text.substr(0, 50000), pattern(50000));
                EXPECT_EQ(peer.server_name, "mail.example");
                EXPECT_EQ(SSL_version(peer.ssl), version);
                peer.answer();
                if (version == TLS1_3_VERSION) {
                    EXPECT_NE(SSL_get_shutdown(peer.ssl) & SSL_RECEIVED_SHUTDOWN, 0);
                } else {
                    EXPECT_EQ(peer.records(SSL3_RT_ALERT), 2);  // no renegotiation; the end
                }
            }
        }
    }
}

TEST_F(OpenSslProvider, refuses_certificates_by_their_fault) {
    const Certificate stranger({.subject = {{"CN", "stranger"}}});
    const struct {
        const char* what;
        a_request request;
        const Certificate* issuer;
        unsigned code;
        std::string parm;
    } rows[] = {
        {"expired", {.from_days = -9, .to_days = -1}, &root, QxciErrCertExpired, "CN=mail.example"},
        {"too early", {.from_days = 1, .to_days = 9}, &root, QxciErrCertExpired, "CN=mail.example"},
        {"purpose", {.usage = "clientAuth"}, &root, QxciErrBadCert, "CN=mail.example"},
        {"broken chain", {}, &middle, QxciErrBadCert, "CN=mail.example"},
        {"stranger", {.subject = {{"CN", "x"}, {"O", "Y"}}}, nullptr, QxciErrBadCert, "O=Y,CN=x"},
        {"weak key", {.key = RSA1024}, &root, QxciErrBadCert, "CN=mail.example"},
        {"another root", {}, &stranger, QxciErrBadCert, "CN=mail.example"},
    };
    for (const auto& row : rows) {
        const Certificate certificate(row.request, row.issuer);
        Peer peer(certificate);
        EXPECT_EQ(connect(peer, {}), a_failure(row.code, row.parm)) << row.what;
        EXPECT_EQ(peer.records(SSL3_RT_ALERT), 1) << row.what;  // the server is told
    }
    const Certificate leaf({}, &middle);
    Peer complete(leaf, {&middle});
    EXPECT_EQ(connect(complete, {}), no_failure);
}

TEST_F(OpenSslProvider, demands_company_unit_and_name) {
    const Certificate tricky({.subject = {{"CN", std::string("mail.example\0.evil", 18)}}}, &root);
    const struct {
        const Certificate& certificate;
        a_setting_list demands;
        a_failure failure;
        const char* server_name;
    } rows[] = {
        {good, {{"certificate_company", "Example"}, {"certificate_unit", "Mail"}}, no_failure, ""},
        {good, {{"certificate_company", "Beispiel \xc3\x9c"}}, no_failure, ""},
        {good, {{"certificate_company", "example"}}, {QxciErrBadCompany, "example"}, ""},
        {good, {{"certificate_company", ""}}, {QxciErrBadCompany, ""}, ""},
        {good, {{"certificate_unit", "Mai"}}, {QxciErrBadUnit, "Mai"}, ""},
        {good, {{"certificate_name", "mail.example"}}, no_failure, "mail.example"},
        {good, {{"certificate_name", "a.hosts.example"}}, no_failure, "a.hosts.example"},
        {good,
         {{"certificate_name", "a.b.hosts.example"}},
         {QxciErrBadCommonName, "a.b.hosts.example"},
         "a.b.hosts.example"},
        {good, {{"certificate_name", ".example"}}, {QxciErrBadCommonName, ".example"}, ""},
        {good, {{"certificate_name", "127.0.0.1"}}, {QxciErrBadCommonName, "127.0.0.1"}, ""},
        {good, {{"certificate_name", "a_b.example"}}, {QxciErrBadCommonName, "a_b.example"}, ""},
        {tricky,
         {{"certificate_name", "mail.example"}},
         {QxciErrBadCommonName, "mail.example"},
         "mail.example"},
    };
    for (const auto& row : rows) {
        Peer peer(row.certificate);
        EXPECT_EQ(connect(peer, row.demands), row.failure) << row.demands[0].second;
        EXPECT_EQ(peer.server_name, row.server_name);
    }
}

TEST_F(OpenSslProvider, reads_trusted_certificates_from_what_it_is_given) {
    const auto file = [&](const char* name, const std::string& bytes) {
        return folder.file_with(name, bytes);
    };
    const std::string other = Certificate({.authority = true}).pem();
    const std::string empty = file("empty", ""), key = file("key", root.key_pem());
    const std::string garbage = file("garbage", pattern(900)), none = folder.file("none");
    const std::string cut = file("cut", root.pem() + root.pem().substr(0, 300));
    const struct {
        const char* option;
        std::string value;
        a_failure failure;
    } rows[] = {
        {"trusted_certificate", file("der", root.der()), no_failure},
        {"trusted_certificate", file("two", "text\n" + other + root.pem()), no_failure},
        {"trusted_certificate", file("itself", good.pem()), no_failure},
        {"trusted_certificates", file("other", other) + ";" + ca, no_failure},
        {"trusted_roots", other + root.pem(), no_failure},
        {"trusted_root_file", none, {QxciErrCantFindCertFile, none}},
        {"trusted_certificate", folder.file(""), {QxciErrBadCertFile, folder.file("")}},
        {"trusted_certificate", "/dev/zero", {QxciErrBadCertFile, "/dev/zero"}},
        {"trusted_certificate", empty, {QxciErrNoCertificates, empty}},
        {"trusted_certificate", key, {QxciErrNoCertificates, key}},
        {"trusted_certificate", garbage, {QxciErrBadCertFile, garbage}},
        {"trusted_certificate", cut, {QxciErrBadCertFile, cut}},
        {"trusted_root", "garbage", {QxciErrBadCertFile, "trusted_root"}},
        {"trusted_certificate", "", {QxciErrOptionError, "trusted_certificate"}},
        {"certificate_name", "mail.example", {QxciErrMissingCertFile, ""}},
        {"tls_type", "rsa", {QxciErrBadOption, "tls_type"}},
    };
    TestProvider provider;
    for (const auto& row : rows) {
        Peer peer(good);
        EXPECT_EQ(Session(provider, peer, {{row.option, row.value}}).failure, row.failure)
            << row.option << " " << row.value;
    }
}

TEST_F(OpenSslProvider, shows_an_identity_of_its_own_kind_only) {
    const auto file = [&](const char* name, const std::string& bytes) {
        return std::pair<std::string, std::string>("identity_file", folder.file_with(name, bytes));
    };
    const Certificate rsa({.key = RSA2048}, &root), expired({.to_days = 0, .key = RSA2048}, &root);
    const Certificate weak({.key = RSA1024}, &root);
    const std::string locked = rsa.pem() + rsa.key_pem("secret");
    const struct {
        const char* provider;
        a_setting_list settings;
        unsigned code;
    } rows[] = {
        {RSA_PROVIDER, {file("1", rsa.pem() + rsa.key_pem())}, QxciErrOK},
        {RSA_PROVIDER, {{"identity", rsa.pem() + rsa.key_pem()}}, QxciErrOK},
        {RSA_PROVIDER, {file("3", locked), {"certificate_password", "secret"}}, QxciErrOK},
        {RSA_PROVIDER, {file("4", locked), {"identity_password", "x"}}, QxciErrBadCertPassword},
        {RSA_PROVIDER, {file("5", locked)}, QxciErrMissingCertPassword},
        {RSA_PROVIDER, {file("6", good.pem() + good.key_pem())}, QxciErrBadRSACert},
        {ECC_PROVIDER, {file("7", good.pem() + good.key_pem())}, QxciErrOK},
        {ECC_PROVIDER, {file("8", rsa.pem() + rsa.key_pem())}, QxciErrBadECCCert},
        {RSA_PROVIDER, {file("9", expired.pem() + rsa.key_pem())}, QxciErrSpecifiedCertExpired},
        {RSA_PROVIDER, {file("10", good.pem() + rsa.key_pem())}, QxciErrBadCert},
        {RSA_PROVIDER, {file("11", weak.pem() + weak.key_pem())}, QxciErrBadCert},
        {RSA_PROVIDER, {file("12", rsa.pem())}, QxciErrKeyMissing},
        {RSA_PROVIDER, {file("13", rsa.key_pem())}, QxciErrNoCertificates},
        {RSA_PROVIDER, {file("14", "")}, QxciErrNoCertificates},
        {RSA_PROVIDER, {file("15", rsa.der())}, QxciErrBadCertFile},
        {RSA_PROVIDER, {{"certificate_file", folder.file("no")}}, QxciErrCantFindCertFile},
        {RSA_PROVIDER, {}, QxciErrMissingIdentityFile},
        {RSA_PROVIDER, {{"identiy", "x"}}, QxciErrBadOption},
    };
    int number = 0;
    for (const auto& row : rows) {
        TestProvider provider(row.provider);
        Wire wire;
        Session session(provider, QXCI_SERVER, row.settings);
        session.connect(wire, {});
        EXPECT_EQ(session.failure.first, row.code) << "row " << ++number;
    }
}

TEST_F(OpenSslProvider, takes_from_an_environment_what_it_knows) {
    const struct {
        const char *file, *option, *value;
        a_failure failure;
    } rows[] = {
        {RSA_PROVIDER, "DLL_name", "x", no_failure},
        {RSA_PROVIDER, "TLS_Type", "RSA", no_failure},
        {RSA_PROVIDER, "tls_type", "ecc", {QxciErrOptionError, "tls_type"}},
        {ECC_PROVIDER, "tls_type", "ecc", no_failure},
        {ECC_PROVIDER, "fips", "no", no_failure},
        {ECC_PROVIDER, "fips", "yes", {QxciErrFipsNotSupportedByAlgorithm, ""}},
        {RSA_PROVIDER, "fips", "maybe", {QxciErrOptionError, "FIPS"}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(TestProvider(row.file, {{row.option, row.value}}).failure, row.failure);
    }

    // What the connection says goes before what the stream, and that before what the owner says.
    const std::string none = folder.file("none");
    TestProvider provider(RSA_PROVIDER, {{"trusted_roots", root.pem()}});
    Peer peer(good), second(good), third(good);
    EXPECT_EQ(Session(provider, peer, {}).failure, no_failure);
    Session session(provider, QXCI_CLIENT, {{"certificate_unit", "other"}});
    EXPECT_FALSE(session.connect(second, {}));
    EXPECT_EQ(session.failure, a_failure(QxciErrBadUnit, "other"));
    EXPECT_EQ(
        Session(provider, third, {{"trusted_certificate", none}, {"trusted_root", ""}}).failure,
        a_failure(QxciErrCantFindCertFile, none));
}

TEST_F(OpenSslProvider, goes_on_with_a_blocked_handshake_in_reads_and_writes) {
    TestProvider provider;
    const a_setting_list server_side = {{"identity_file", rsa_identity},
                                        {"identity_password", "secret"}};
    for (const bool whole : {false, true}) {
        Wire to_client, to_server;
        to_client.other = &to_server;
        to_server.other = &to_client;
        to_client.only_whole = to_server.only_whole = whole;
        Session client(provider, to_client, {{"trusted_certificate", ca}});
        Session server(provider, to_server, server_side, QXCI_SERVER);
        ASSERT_EQ(client.failure, no_failure);
        ASSERT_EQ(server.failure, no_failure);
        std::string text;
        int blocked = 0;
        const std::string data = pattern(70000);
        while (client.write(data) == QXCI_IO_WOULD_BLOCK && blocked++ < 9) server.read(text);
        EXPECT_THAT(blocked, AllOf(Ge(1), Le(3)));
        while (text.size() < data.size() && server.read(text) == QXCI_IO_OK) {
        }
        EXPECT_EQ(text, data);
    }
}

TEST_F(OpenSslProvider, lets_a_server_ask_who_the_client_is) {
    const Certificate rsa({.subject = {{"CN", "me"}}, .usage = "clientAuth", .key = RSA2048},
                          &root);
    const std::string mine = folder.file_with("me.pem", rsa.pem() + rsa.key_pem());
    const struct {
        a_setting_list client, server;
        bool welcome;
        a_failure failure;
    } rows[] = {
        {{{"identity_file", mine}}, {{"certificate_name", "me"}}, true, no_failure},
        {{{"identity_file", mine}},
         {{"certificate_name", "you"}},
         true,
         {QxciErrBadCommonName, "you"}},
        {{{"identity_file", mine}}, {}, false, {QxciErrBadCert, ""}},
        {{}, {}, true, {QxciErrHandshakeFailed, ""}},
    };
    for (const auto& row : rows) {
        TestProvider provider(RSA_PROVIDER, {{"trusted_root_file", ca}});
        Wire to_client, to_server;
        to_client.other = &to_server;
        to_server.other = &to_client;
        to_server.welcome = row.welcome;
        a_setting_list settings = row.server;
        settings.push_back({"identity_file", rsa_identity});
        settings.push_back({"identity_password", "secret"});
        Session client(provider, to_client, row.client);
        Session server(provider, to_server, settings, QXCI_SERVER);
        std::string text;
        for (int turn = 0; turn < 9 && text.empty() && server.failure == no_failure; turn++) {
            client.write("hello");
            server.read(text);
        }
        EXPECT_EQ(server.failure, row.failure);
        EXPECT_EQ(text.empty(), row.failure != no_failure);
    }
}

TEST_F(OpenSslProvider, ends_with_peers_that_speak_no_tls) {
    const struct {
        std::string what;
        unsigned code;
    } rows[] = {
        {"250 this is no ServerHello\r\n", QxciErrHandshakeFailed},
        {pattern(20000), QxciErrHandshakeFailed},
        {std::string("\x15\x03\x03\x00\x02\x02\x28", 7), QxciErrHandshakeFailed},
        {std::string("\x15\x03\x03\x00\x02\x01\x00", 7), QxciErrConnectionClosed},
    };
    for (const auto& row : rows) {
        Wire wire;
        wire.in = row.what;
        EXPECT_EQ(connect(wire, {}).first, row.code);
    }
    Peer old(good, {}, TLS1_1_VERSION);
    EXPECT_EQ(connect(old, {}).first, QxciErrHandshakeFailed);
}

TEST_F(OpenSslProvider, notices_a_reset_wherever_it_comes) {
    Peer sound(good);
    EXPECT_EQ(connect(sound, {}), no_failure);
    ASSERT_GT(sound.taken, 500U);
    for (size_t limit = 0; limit <= sound.taken; limit += 97) {
        Peer peer(good);
        peer.limit = limit;
        peer.end = QXCI_IO_ERROR;
        TestProvider provider;
        Session session(provider, peer, {{"trusted_certificate", ca}});
        std::string text;
        if (session.failure == no_failure) {
            if (session.write("hello") == QXCI_IO_OK) {
                while (session.read(text) == QXCI_IO_OK) {
                }
            }
            EXPECT_EQ(session.read(text), QXCI_IO_ERROR);  // and stays so
        }
        EXPECT_EQ(session.failure.first, QxciErrIOError) << limit;
    }
}

TEST_F(OpenSslProvider, gives_up_on_a_peer_that_stays_silent) {
    for (const size_t limit : {size_t{60}, SIZE_MAX}) {
        Peer peer(good);
        peer.limit = limit;
        TestProvider provider;
        Session session(provider, peer, {{"trusted_certificate", ca}});
        ASSERT_EQ(session.failure, no_failure);
        peer.reads = 0;
        std::string text;
        while (session.read(text) == QXCI_IO_WOULD_BLOCK) {
        }
        EXPECT_EQ(session.failure, a_failure(QxciErrConnectionClosed, ""));
        EXPECT_LE(peer.reads, 200);  // it sleeps in between
        EXPECT_EQ(session.write("x"), QXCI_IO_ERROR);
    }
}

TEST_F(OpenSslProvider, tells_an_end_from_a_fault) {
    Peer ending(good), faulty(good);
    TestProvider provider;
    Session first(provider, ending, {{"trusted_certificate", ca}});
    std::string text;
    ending.answer();
    SSL_shutdown(ending.ssl);
    EXPECT_EQ(first.read(text), QXCI_IO_GRACEFUL_CLOSE);
    EXPECT_EQ(first.read(text), QXCI_IO_GRACEFUL_CLOSE);
    EXPECT_EQ(first.write("x"), QXCI_IO_GRACEFUL_CLOSE);

    Session second(provider, faulty, {{"trusted_certificate", ca}});
    faulty.in = std::string("\x17\x03\x03\x00\x20", 5) + pattern(32);
    EXPECT_EQ(second.read(text), QXCI_IO_ERROR);
    EXPECT_EQ(second.failure.first, QxciErrOpenSSLError);
}

TEST_F(OpenSslProvider, sends_large_writes_in_full_records_and_few_calls) {
    constexpr size_t total = 10 << 20, piece = 64 << 10;
    Peer peer(good);
    TestProvider provider;
    Session session(provider, peer, {{"trusted_certificate", ca}});
    const int records = peer.records(), writes = peer.writes;
    const std::string data = pattern(piece);
    for (size_t sent = 0; sent < total; sent += piece) {
        ASSERT_EQ(session.write(data), QXCI_IO_OK);
    }
    EXPECT_EQ(peer.records() - records, static_cast<int>(total / (16 << 10)));
    EXPECT_EQ(peer.writes - writes, static_cast<int>(total / piece));
}

TEST_F(OpenSslProvider, undoes_everything_when_memory_runs_out) {
    for (int fail_at = 0;; fail_at++) {
        TestProvider provider(RSA_PROVIDER, {{"certificate_unit", "Mail"}}, fail_at);
        a_failure failure = provider.failure;
        if (failure == no_failure) {
            Peer peer(good);
            failure = Session(provider, peer,
                              {{"trusted_certificates", ca}, {"certificate_company", "x"}})
                          .failure;
        }
        if (!provider.ran_out()) {
            EXPECT_EQ(failure, a_failure(QxciErrBadCompany, "x"));
            EXPECT_GT(fail_at, 8);
            break;
        }
        // An error goes without its parameter rather than without its code.
        const bool only_parameter = failure == a_failure(QxciErrBadCompany, "");
        EXPECT_TRUE(only_parameter || failure.first == QxciErrNoMemory) << fail_at;
    }
}

TEST_F(OpenSslProvider, reads_nothing_that_the_environment_names) {
    EXPECT_NE(OPENSSL_init_ssl(0, nullptr), 0);  // the peer's OpenSSL is to stay as it is
    const std::string config = folder.file_with(
        "openssl.cnf", "openssl_conf=a\n[a]\nssl_conf=b\n[b]\nsystem_default=c\n[c]\n"
                       "MinProtocol=TLSv1.3\n");
    setenv("OPENSSL_CONF", config.c_str(), 1);
    setenv("OPENSSL_MODULES", folder.file("").c_str(), 1);
    setenv("SSL_CERT_FILE", ca.c_str(), 1);
    Peer peer(good, {}, TLS1_2_VERSION), second(good);
    EXPECT_EQ(connect(peer, {}), no_failure);
    const std::string other = Certificate({.authority = true}).pem();
    TestProvider provider(RSA_PROVIDER, {{"trusted_root", other}});
    EXPECT_EQ(Session(provider, second, {}).failure.first, QxciErrBadCert);
}

TEST_F(OpenSslProvider, can_be_loaded_and_unloaded_and_used_by_many_threads) {
    const auto use = [&](const char* file) {
        TestProvider provider(file);
        Peer peer(good);
        EXPECT_EQ(Session(provider, peer, {{"trusted_certificate", ca}}).failure, no_failure);
    };
    for (int round = 0; round < 100; round++) use(round % 2 == 0 ? RSA_PROVIDER : ECC_PROVIDER);

    std::vector<std::thread> threads;
    TestProvider shared;
    for (int number = 0; number < 8; number++) {
        threads.emplace_back([&] {
            for (int round = 0; round < 10; round++) {
                use(RSA_PROVIDER);
                Peer peer(good);
                Session session(shared, peer, {{"trusted_certificate", ca}});
                std::string text;
                EXPECT_EQ(session.write("hello"), QXCI_IO_OK);
                EXPECT_EQ(session.read(text), QXCI_IO_OK);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
