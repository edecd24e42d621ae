#include <array>
#include <thread>

#include <gmock/gmock.h>

#include "peer.h"
#include "tests/scratch.h"

namespace {

/// The memory of the OpenSSL that is linked in, of which one allocation of this thread may fail.
thread_local int allocations_left = -1;
void* openssl_realloc(void* memory, size_t size, const char*, int) {
    return allocations_left-- == 0 ? nullptr : std::realloc(memory, size);
}
void* openssl_alloc(size_t size, const char* file, int line) {
    return openssl_realloc(nullptr, size, file, line);
}
void openssl_free(void* memory, const char*, int) {
    std::free(memory);
}
const int watched = CRYPTO_set_mem_functions(openssl_alloc, openssl_realloc, openssl_free);

/// Descriptors, threads, and mappings of providers.
std::array<long, 3> footprint() {
    const auto entries = [](const char* folder) {
        return std::distance(std::filesystem::directory_iterator(folder), {});
    };
    const std::string maps = bytes_of("/proc/self/maps");
    long mapped = 0;
    for (size_t at = 0; (at = maps.find("12_r.so\n", at)) != std::string::npos; ++at) mapped++;
    return {entries("/proc/self/fd"), entries("/proc/self/task"), mapped};
}

/// A root, an authority below it, and certificates of theirs.
class OpenSslProvider : public testing::Test {
  protected:
    const Certificate root{{.subject = {{"CN", "Root"}}, .key = EC_AUTHORITY}};
    const Certificate middle{{.subject = {{"CN", "Middle"}}, .key = EC_AUTHORITY}, &root};
    const Certificate other{{.subject = {{"CN", "Other"}}, .key = EC_AUTHORITY}};
    const a_request request = {
        .subject = {{"CN", "mail.example"}, {"O", "A"}, {"O", "\xc3\x9c"}, {"OU", "Mail"}}};
    const Certificate good{request, &root};
    const ScratchFolder folder;
    const std::string ca = folder.file_with("ca.pem", root.pem());
    const a_setting_list trust = {{"trusted_certificate", ca}};

    std::string file(const char* name, const std::string& bytes) const {
        return folder.file_with(name, bytes);
    }
    a_failure connect(Wire& wire, a_setting_list settings) {
        settings.push_back({"trusted_certificate", ca});
        TestProvider provider;
        return Session(provider, wire, settings).failure;
    }
};

TEST_F(OpenSslProvider, speaks_both_versions_with_both_kinds_of_certificate) {
    const Certificate rsa({.key = RSA2048}, &root);
    for (const char* library : {RSA_PROVIDER, ECC_PROVIDER}) {
        for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
            for (const Certificate* certificate : {&good, &rsa}) {
                TestProvider provider(library);
                Peer peer(*certificate, version);
                std::string text;
                {
                    Session session(provider, peer, trust);
                    peer.answer();
                    ASSERT_TRUE(SSL_is_init_finished(peer.ssl));  // before any read or write
                    EXPECT_EQ(session.write(pattern(50000)), QXCI_IO_OK);
                    while (text.size() < 50000) ASSERT_EQ(session.read(text), QXCI_IO_OK);
                    if (version == TLS1_2_VERSION) {
                        SSL_renegotiate(peer.ssl);
                        SSL_do_handshake(peer.ssl);
                        const int before = peer.records(SSL3_RT_HANDSHAKE);
                        session.read(text);
                        EXPECT_EQ(peer.records(SSL3_RT_HANDSHAKE), before);
                        EXPECT_EQ(peer.records(SSL3_RT_ALERT), 1);  // no renegotiation
                    }
                }
                EXPECT_EQ(text, pattern(50000));
                peer.answer();
                if (version == TLS1_3_VERSION) {
                    EXPECT_NE(SSL_get_shutdown(peer.ssl) & SSL_RECEIVED_SHUTDOWN, 0);
                }
            }
        }
    }
}

TEST_F(OpenSslProvider, refuses_certificates_by_their_fault) {
    const Certificate old({.subject = {{"CN", "Old"}}, .to_days = 0, .key = EC_AUTHORITY}, &root);
    const Certificate bounded({.subject = {{"CN", "Bounded"}},
                               .key = EC_AUTHORITY,
                               .names = "",
                               .constraints =
                                   "permitted;DNS:corp.example,excluded;DNS:b.corp.example,"
                                   "permitted;IP:fd00::/ff00::"},
                              &root);
    const auto called = [](const char* name) {
        return a_request{.subject = {{"CN", name}}, .names = "DNS:a.corp.example"};
    };
    const auto named = [](const char* text) { return a_setting_list{{"certificate_name", text}}; };
    const auto bad_name = [](const std::string& name) {
        return a_failure(QxciErrBadCert, "CN=" + name);
    };
    const a_request inside = {.subject = {{"CN", "a.corp.example"}}, .names = "DNS:a.corp.example"};
    const a_request outside = {.names = "DNS:a.corp.example"};  // by its CN
    const a_request zero = {.subject = {{"CN", "x"}, {"O", std::string("A\0B", 3)}}};
    const a_failure expired = {QxciErrCertExpired, "CN=mail.example"};
    const a_failure bad = {QxciErrBadCert, "CN=mail.example"};
    const struct {
        a_request request;
        const Certificate* issuer;
        a_setting_list demands;
        a_failure failure;
        const Certificate* sent = nullptr;  // besides the server's own
    } rows[] = {
        {{.from_days = -9, .to_days = -1}, &root, {}, expired},
        {{.from_days = 1, .to_days = 9}, &root, {}, expired},
        {{.usage = "clientAuth"}, &root, {}, bad},
        {{.subject = {{"CN", "x"}, {"O", "Y"}}}, nullptr, {}, {QxciErrBadCert, "O=Y,CN=x"}},
        {{.key = RSA1024}, &root, {}, bad},
        {{.digest = EVP_sha1}, &root, {}, bad},
        {{}, &other, {}, bad},
        {{}, &middle, {}, bad},
        {{}, &middle, {}, no_failure, &middle},
        {{}, &old, {}, {QxciErrCertExpired, "CN=Old"}, &old},
        {inside, &bounded, {}, no_failure, &bounded},
        {outside, &bounded, {}, bad, &bounded},
        {called("localhost"), &bounded, {}, no_failure, &bounded},
        {called("localhost"), &bounded, named("localhost"), bad_name("localhost"), &bounded},
        {called("x.test."), &bounded, named("x.test."), bad_name("x.test."), &bounded},
        {called("b.corp.example."), &bounded, named("b.corp.example."), bad_name("b.corp.example."),
         &bounded},
        {called("C.corp.example."), &bounded, named("C.corp.example."), no_failure, &bounded},
        {called("badcorp.example."), &bounded, named("badcorp.example."),
         bad_name("badcorp.example."), &bounded},
        {called("Mail Relay"), &bounded, named("Mail Relay"), no_failure, &bounded},
        {called("fd00::7"), &bounded, named("fd00::7"), no_failure, &bounded},
        {called("fe00::7"), &bounded, named("fe00::7"), bad_name("fe00::7"), &bounded},
        {request, &root, {{"certificate_company", "A"}, {"certificate_unit", "Mail"}}, no_failure},
        {request, &root, {{"certificate_company", "\xc3\x9c"}}, no_failure},
        {request, &root, {{"certificate_company", "a"}}, {QxciErrBadCompany, "a"}},
        {request, &root, {{"certificate_company", ""}}, {QxciErrBadCompany, ""}},
        {zero, &root, {{"certificate_company", "A"}}, {QxciErrBadCompany, "A"}},
        {request, &root, {{"certificate_unit", "Mai"}}, {QxciErrBadUnit, "Mai"}},
    };
    for (const auto& row : rows) {
        const Certificate certificate(row.request, row.issuer);
        Peer peer(certificate, TLS1_3_VERSION, row.sent);
        EXPECT_EQ(connect(peer, row.demands), row.failure) << "row " << &row - rows;
        // A server that is refused is told so in the clear.
        EXPECT_EQ(peer.records(SSL3_RT_ALERT), row.failure == no_failure ? 0 : 1);
    }
}

TEST_F(OpenSslProvider, finds_names_by_equality_in_the_cn_and_by_host_rules_in_dns_names) {
    const auto cn = [](const std::string& name) {
        return a_request{.subject = {{"CN", name}}, .names = ""};
    };
    const auto dns = [](const char* name) { return a_request{.names = name}; };
    const struct {
        a_request request;
        const char* name;
        bool found, asked_for;
    } rows[] = {
        {cn("mail.example"), "mail.example", true, true},
        {cn("MAIL.example"), "mail.example", false, true},
        {cn("*.hosts.example"), "a.hosts.example", false, true},
        {cn(std::string("mail.example\0.evil", 18)), "mail.example", false, true},
        {dns("DNS:*.hosts.example"), "a.hosts.example", true, true},
        {dns("DNS:*.hosts.example"), "A.HOSTS.example", true, true},
        {dns("DNS:*.hosts.example"), "a.b.hosts.example", false, true},
        {dns("DNS:a.b#c"), "a.b", false, true},
        {dns("DNS:a_b.c"), "a_b.c", true, false},
        {dns("DNS:a.5"), "a.5", true, false},
        {dns("DNS:a.example"), ".example", false, false},
        {dns("DNS:a.example"), "", false, false},
        {dns("DNS:m*.hosts.example"), "mail.hosts.example", false, true},
        {dns("DNS:127.0.0.1,DNS:*.0.0.1"), "127.0.0.1", false, false},
        {dns("DNS:127.1,IP:127.0.0.1"), "127.1", false, false},
        {dns("IP:127.0.0.1"), "127.0.0.1", true, false},
        {dns("IP:::1"), "0:0::1", true, false},
        {dns("DNS:#::1,IP:::2"), "::1", false, false},
        {cn("127.0.0.1"), "127.0.0.1", true, false},
    };
    for (const auto& row : rows) {
        Peer peer(Certificate(row.request, &root));
        EXPECT_EQ(connect(peer, {{"certificate_name", row.name}}),
                  row.found ? no_failure : a_failure(QxciErrBadCommonName, row.name));
        EXPECT_EQ(peer.server_name, row.asked_for ? row.name : "");
    }
}

TEST_F(OpenSslProvider, judges_dates_by_a_calendar_that_goes_past_2038) {
    constexpr int in_2039 = 4700, in_2045 = 6900;
    const a_request later = {.from_days = in_2039, .to_days = in_2045, .key = RSA2048};
    const Certificate authority({.from_days = in_2039, .to_days = in_2045, .key = EC_AUTHORITY},
                                nullptr);
    const Certificate certificate(later, &authority);
    const a_setting_list trust_later = {{"trusted_root", authority.pem()}};
    const a_setting_list identity = {{"identity", certificate.pem() + certificate.key_pem()}};
    const struct {
        int day;
        unsigned then, now;  // the codes for certificates of that time, and of this
        unsigned own;
    } rows[] = {
        {0, QxciErrCertExpired, QxciErrOK, QxciErrSpecifiedCertExpired},
        {in_2039 + 300, QxciErrOK, QxciErrCertExpired, QxciErrOK},
        {in_2045 + 300, QxciErrCertExpired, QxciErrCertExpired, QxciErrSpecifiedCertExpired},
    };
    TestProvider provider;
    for (const auto& row : rows) {
        fake_clock.days_ahead = row.day;
        Peer then(certificate), now(good);
        Wire wire;
        EXPECT_EQ(Session(provider, then, trust_later).failure.first, row.then) << row.day;
        EXPECT_EQ(Session(provider, now, trust).failure.first, row.now) << row.day;
        EXPECT_EQ(Session(provider, wire, identity, QXCI_SERVER).failure.first, row.own) << row.day;
    }
    fake_clock.days_ahead = 0;
}

TEST_F(OpenSslProvider, wants_keys_that_no_certificate_gives_away) {
    const Certificate rsa({.key = RSA2048}, &root);
    const std::pair<const char*, unsigned> rows[] = {
        {"AES256-GCM-SHA384:AES128-SHA", QxciErrHandshakeFailed},
        {"DHE-RSA-AES128-GCM-SHA256", QxciErrOK},
        {"ECDHE-RSA-AES256-SHA", QxciErrOK},
    };
    for (const auto& [ciphers, code] : rows) {
        Peer peer(rsa, TLS1_2_VERSION);
        SSL_set_cipher_list(peer.ssl, ciphers);
        SSL_set_dh_auto(peer.ssl, 1);
        EXPECT_EQ(connect(peer, {}).first, code) << ciphers;
    }
}

TEST_F(OpenSslProvider, reads_trusted_certificates_from_what_it_is_given) {
    const std::string empty = file("empty", ""), key = file("key", root.key_pem());
    const std::string garbage = file("garbage", pattern(900)), none = folder.file("none");
    const std::string longest = file("longest", root.pem()), too_long = file("long", root.pem());
    std::filesystem::resize_file(longest, 16 << 20);
    std::filesystem::resize_file(too_long, (16 << 20) + 1);
    const std::string cut = file("cut", root.pem() + root.pem().substr(0, 300));
    const struct {
        const char* option;
        std::string value;
        a_failure failure;
    } rows[] = {
        {"trusted_certificate", file("der", root.der()), no_failure},
        {"trusted_certificate", file("two", "text\n" + other.pem() + root.pem()), no_failure},
        {"trusted_certificate", file("itself", good.pem()), no_failure},
        {"trusted_certificates", file("other", other.pem()) + ";" + ca, no_failure},
        {"trusted_roots", other.pem() + root.pem(), no_failure},
        {"trusted_root_file", none, {QxciErrCantFindCertFile, none}},
        {"trusted_certificate", folder.file(""), {QxciErrBadCertFile, folder.file("")}},
        {"trusted_certificate", "/dev/zero", {QxciErrBadCertFile, "/dev/zero"}},
        {"trusted_certificate", longest, no_failure},
        {"trusted_certificate", too_long, {QxciErrBadCertFile, too_long}},
        {"trusted_certificate", empty, {QxciErrNoCertificates, empty}},
        {"trusted_certificate", key, {QxciErrNoCertificates, key}},
        {"trusted_certificate", garbage, {QxciErrBadCertFile, garbage}},
        {"trusted_certificate", cut, {QxciErrBadCertFile, cut}},
        {"trusted_root", "garbage", {QxciErrBadCertFile, "trusted_root"}},
        {"trusted_certificates", ";", {QxciErrNoCertificates, ";"}},
        {"trusted_certificate", "", {QxciErrOptionError, "trusted_certificate"}},
        {"certificate_name", "mail.example", {QxciErrMissingCertFile, ""}},
        {"tls_type", "rsa", {QxciErrBadOption, "tls_type"}},
    };
    TestProvider provider;
    for (const auto& row : rows) {
        Peer peer(good);
        EXPECT_EQ(Session(provider, peer, {{row.option, row.value}}).failure, row.failure);
    }
}

TEST_F(OpenSslProvider, shows_an_identity_of_its_own_kind_only) {
    const Certificate rsa({.key = RSA2048}, &root), expired({.to_days = 0, .key = RSA2048}, &root);
    const Certificate weak({.key = RSA1024}, &root);
    const std::string open = rsa.pem() + rsa.key_pem(), locked = rsa.pem() + rsa.key_pem("secret");
    const struct {
        const char* library;
        std::string identity;
        const char* password;
        unsigned code;
    } rows[] = {
        {RSA_PROVIDER, open, "", QxciErrOK},
        {RSA_PROVIDER, locked, "secret", QxciErrOK},
        {RSA_PROVIDER, locked, "x", QxciErrBadCertPassword},
        {RSA_PROVIDER, locked, nullptr, QxciErrMissingCertPassword},
        {RSA_PROVIDER, good.pem() + good.key_pem(), "", QxciErrBadRSACert},
        {ECC_PROVIDER, good.pem() + good.key_pem(), "", QxciErrOK},
        {ECC_PROVIDER, open, "", QxciErrBadECCCert},
        {RSA_PROVIDER, expired.pem() + rsa.key_pem(), "", QxciErrSpecifiedCertExpired},
        {RSA_PROVIDER, good.pem() + rsa.key_pem(), "", QxciErrBadCert},
        {RSA_PROVIDER, weak.pem() + weak.key_pem(), "", QxciErrBadCert},
        {RSA_PROVIDER, rsa.pem(), "", QxciErrKeyMissing},
        {RSA_PROVIDER, rsa.key_pem(), "", QxciErrNoCertificates},
        {RSA_PROVIDER, rsa.der(), "", QxciErrBadCertFile},
    };
    Wire wire;
    for (const auto& row : rows) {
        TestProvider provider(row.library);
        a_setting_list settings = {{"identity_file", file("identity", row.identity)}};
        if (row.password != nullptr) settings.push_back({"identity_password", row.password});
        // The file is what the failure is about.
        EXPECT_EQ(Session(provider, wire, {}, QXCI_SERVER, settings).failure,
                  a_failure(row.code, row.code == QxciErrOK ? "" : settings[0].second))
            << "row " << &row - rows;
    }
    TestProvider provider;
    EXPECT_EQ(Session(provider, wire, {}, QXCI_SERVER).failure.first, QxciErrMissingIdentityFile);
    EXPECT_EQ(Session(provider, wire, {{"identity", open}}, QXCI_SERVER).failure, no_failure);
}

TEST_F(OpenSslProvider, takes_from_an_environment_what_it_knows) {
    const struct {
        const char *library, *option, *value;
        a_failure failure;
    } rows[] = {
        {RSA_PROVIDER, "DLL_name", "x", no_failure},
        {RSA_PROVIDER, "TLS_Type", "RSA", no_failure},
        {RSA_PROVIDER, "tls_type", "ecc", {QxciErrOptionError, "tls_type"}},
        {ECC_PROVIDER, "tls_type", "ecc", no_failure},
        {ECC_PROVIDER, "fips", "no", no_failure},
        {ECC_PROVIDER, "fips", "yes", {QxciErrFipsNotSupportedByAlgorithm, ""}},
        {RSA_PROVIDER, "FIPS", "On", {QxciErrFipsNotSupportedByAlgorithm, ""}},
        {RSA_PROVIDER, "fips", "maybe", {QxciErrOptionError, "FIPS"}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(TestProvider(row.library, {{row.option, row.value}}).failure, row.failure);
    }
    // Nothing that a connection is given goes unread.
    const std::pair<a_setting_list, const char*> conflicts[] = {
        {{{"trusted_certificate", ca}, {"trusted_root", root.pem()}}, "trusted_root"},
        {{{"trusted_certificate", ca}, {"identity_password", "x"}}, "identity_password"},
    };
    for (const auto& [settings, option] : conflicts) {
        TestProvider p(RSA_PROVIDER, {{"trusted_roots", root.pem()}, {"trusted_root_file", ca}});
        const a_failure failure = {QxciErrOptionError, option};
        Peer on_stream(good), on_connection(good);
        EXPECT_EQ(p.failure, no_failure);
        EXPECT_EQ(Session(p, on_stream, {}, QXCI_CLIENT, settings).failure, failure);
        EXPECT_EQ(Session(p, on_connection, settings).failure, failure);
    }
    // What the connection says goes before what the stream, and that before what the owner says.
    TestProvider provider(RSA_PROVIDER, {{"trusted_roots", root.pem()}});
    Peer first(good), second(good), third(good);
    EXPECT_EQ(Session(provider, first, {}).failure, no_failure);
    const a_setting_list stream = {{"certificate_unit", "x"}};
    EXPECT_EQ(Session(provider, second, {}, QXCI_CLIENT, stream).failure.first, QxciErrBadUnit);
    const a_setting_list own = {{"trusted_root", other.pem()}};
    EXPECT_EQ(Session(provider, third, own, QXCI_CLIENT, stream).failure.first, QxciErrBadCert);
}

TEST_F(OpenSslProvider, goes_on_with_a_blocked_handshake_and_asks_who_the_client_is) {
    const Certificate me({.subject = {{"CN", "me"}}, .usage = "clientAuth", .key = RSA2048}, &root);
    const Certificate server_certificate({.key = RSA2048}, &root);
    const a_setting_list mine = {{"identity", me.pem() + me.key_pem()}};
    const struct {
        a_setting_list client;
        const char* name;  // that the server demands
        bool whole, welcome;
        a_failure failure;
    } rows[] = {
        {mine, "me", false, true, no_failure},
        {mine, "me", true, true, no_failure},
        {mine, "you", false, true, {QxciErrBadCommonName, "you"}},
        {mine, "me", false, false, {QxciErrBadCert, ""}},
        {{}, "me", false, true, {QxciErrHandshakeFailed, ""}},
    };
    for (const auto& row : rows) {
        TestProvider provider(RSA_PROVIDER, {{"trusted_root_file", ca}});
        Wire to_client, to_server;
        to_client.other = &to_server;
        to_server.other = &to_client;
        to_client.only_whole = to_server.only_whole = row.whole;
        to_server.welcome = row.welcome;
        Session client(provider, to_client, row.client);
        Session server(provider, to_server,
                       {{"identity", server_certificate.pem() + server_certificate.key_pem()},
                        {"certificate_name", row.name}},
                       QXCI_SERVER);
        std::string text;
        const std::string data = pattern(70000);
        for (int turn = 0; turn < 9 && client.write(data) == QXCI_IO_WOULD_BLOCK; ++turn) {
            server.read(text);
        }
        while (text.size() < data.size() && server.read(text) == QXCI_IO_OK) {
        }
        EXPECT_EQ(server.failure, row.failure);
        EXPECT_EQ(text == data, row.failure == no_failure);
    }
}

TEST_F(OpenSslProvider, ends_with_peers_that_speak_no_tls) {
    const std::pair<std::string, unsigned> rows[] = {
        {"250 this is no ServerHello\r\n", QxciErrHandshakeFailed},
        {pattern(20000), QxciErrHandshakeFailed},
        {std::string("\x15\x03\x03\x00\x02\x02\x28", 7), QxciErrHandshakeFailed},
        {std::string("\x15\x03\x03\x00\x02\x01\x00", 7), QxciErrConnectionClosed},
    };
    for (const auto& [bytes, code] : rows) {
        Wire wire;
        wire.in = bytes;
        EXPECT_EQ(connect(wire, {}).first, code);
    }
    Peer old(good, TLS1_1_VERSION), ending(good), faulty(good);
    EXPECT_EQ(connect(old, {}).first, QxciErrHandshakeFailed);

    TestProvider provider;
    Session first(provider, ending, trust), second(provider, faulty, trust);
    std::string text;
    ending.answer();
    SSL_shutdown(ending.ssl);
    const a_qxci_io_result results[] = {first.read(text), first.write("x"), first.flush()};
    EXPECT_THAT(results, testing::Each(QXCI_IO_GRACEFUL_CLOSE));
    EXPECT_EQ(first.failure, a_failure(QxciErrConnectionClosed, ""));
    faulty.in = std::string("\x17\x03\x03\x00\x20", 5) + pattern(32);
    EXPECT_EQ(second.read(text), QXCI_IO_ERROR);
    EXPECT_EQ(second.failure.first, QxciErrOpenSSLError);
}

TEST_F(OpenSslProvider, bears_a_thousand_records_in_a_row_without_data) {
    Peer peer(good);
    TestProvider provider;
    Session session(provider, peer, trust);
    std::string text;
    SSL_set_num_tickets(peer.ssl, 0);
    peer.answer();
    // What has gone out may be a reason for one of them each.
    for (const auto& [updates, written] : {std::pair(1000, 0), {1000, 0}, {1500, 500}, {1001, 0}}) {
        for (int i = 0; i < written; ++i) session.write("y");
        for (int i = 0; i < updates; ++i) {
            SSL_key_update(peer.ssl, SSL_KEY_UPDATE_NOT_REQUESTED);
            SSL_do_handshake(peer.ssl);
        }
        SSL_write(peer.ssl, "x", 1);
        peer.answer();
        text.clear();
        EXPECT_EQ(session.read(text), updates == 1001 ? QXCI_IO_ERROR : QXCI_IO_OK) << updates;
        while (written > 0 && session.read(text) == QXCI_IO_OK) {
        }
        EXPECT_EQ(text.size(), updates == 1001 ? 0U : 1U + written);
    }
    EXPECT_EQ(session.failure.first, QxciErrOpenSSLError);
}

TEST_F(OpenSslProvider, notices_a_reset_and_an_end_wherever_they_come) {
    const auto talk = [&](Peer& peer) {
        TestProvider provider;
        Session session(provider, peer, trust);
        std::string text;
        if (session.failure != no_failure) return session.failure;
        a_qxci_io_result result = QXCI_IO_WOULD_BLOCK;
        while (result == QXCI_IO_WOULD_BLOCK) result = session.write("hello");
        EXPECT_EQ(session.flush(), result);
        while (text != "hello" && (result == QXCI_IO_OK || result == QXCI_IO_WOULD_BLOCK)) {
            result = session.read(text);
        }
        const a_failure failure = session.failure;
        if (failure == no_failure) return failure;
        EXPECT_EQ(session.write("x"), QXCI_IO_ERROR);  // and stays so
        EXPECT_EQ(session.flush(), QXCI_IO_ERROR);
        EXPECT_EQ(session.failure, failure);
        return failure;
    };
    Peer sound(good);
    EXPECT_EQ(talk(sound), no_failure);
    ASSERT_GT(sound.taken, 500U);
    for (const auto& [end, code] : {std::pair(QXCI_IO_ERROR, QxciErrIOError),
                                    std::pair(QXCI_IO_WOULD_BLOCK, QxciErrConnectionClosed)}) {
        // Signatures and tickets may be a few bytes shorter next time.
        for (size_t limit = 0; limit + 16 < sound.taken; limit += 31) {
            Peer peer(good);
            peer.limit = limit;
            peer.end = end;
            const int64_t start = fake_clock.now_us;
            EXPECT_EQ(talk(peer), a_failure(code, "")) << limit;
            EXPECT_LE(fake_clock.now_us - start, 2000000);
            EXPECT_LE(peer.reads, 200);  // it sleeps in between
        }
    }
}

TEST_F(OpenSslProvider, sends_large_writes_in_full_records_and_few_calls) {
    constexpr int pieces = 160, piece = 64 << 10;
    Peer peer(good);
    TestProvider provider;
    Session session(provider, peer, trust);
    const int records = peer.records(), writes = peer.writes;
    const std::string data = pattern(piece);
    for (int sent = 0; sent < pieces; ++sent) ASSERT_EQ(session.write(data), QXCI_IO_OK);
    EXPECT_EQ(peer.records() - records, pieces * piece / (16 << 10));
    EXPECT_EQ(peer.writes - writes, pieces);
}

TEST_F(OpenSslProvider, undoes_everything_when_memory_runs_out) {
    for (int fail_at = 0;; ++fail_at) {
        TestProvider provider(RSA_PROVIDER, {{"trusted_certificates", ca}}, fail_at);
        a_failure failure = provider.failure;
        if (failure == no_failure) {
            Peer peer(good);
            failure = Session(provider, peer, {{"certificate_company", "x"}}).failure;
        }
        if (!provider.owner.ran_out()) {
            EXPECT_EQ(failure, a_failure(QxciErrBadCompany, "x"));
            EXPECT_GT(fail_at, 8);
            break;
        }
        // An error goes without its parameter rather than without its code.
        const bool only_parameter = failure == a_failure(QxciErrBadCompany, "");
        EXPECT_TRUE(only_parameter || failure.first == QxciErrNoMemory) << fail_at;
    }
}

TEST_F(OpenSslProvider, survives_that_openssl_has_no_memory) {
    ASSERT_EQ(watched, 1);
    TestProvider provider(LINKED, trust);
    Wire nobody;
    const Session session(provider, nobody, {});
    for (int left = 0; left <= 500; ++left) {
        Peer peer(good);
        a_qxci_error error = {};
        allocations_left = left < 500 ? left : -1;
        const QXCIStreamConnH conn = provider.conn_iface.create_func(
            session.stream, &peer.callbacks, nullptr, &peer, &error);
        allocations_left = -1;
        EXPECT_EQ(provider.take(error) == no_failure, conn != nullptr) << left;
        EXPECT_TRUE(conn != nullptr || left < 500) << "and works again";
        provider.conn_iface.destroy_func(conn);
    }
}

TEST_F(OpenSslProvider, reads_nothing_that_the_environment_names) {
    EXPECT_EQ(OPENSSL_init_ssl(0, nullptr), 1);  // the peer's OpenSSL is to stay as it is
    const std::string config =
        file("openssl.cnf", "openssl_conf=a\n[a]\nssl_conf=b\n[b]\n"
                            "system_default=c\n[c]\nCipherString=AES256-SHA\n");
    setenv("OPENSSL_CONF", config.c_str(), 1);
    setenv("SSL_CERT_FILE", ca.c_str(), 1);
    Peer peer(good, TLS1_2_VERSION), second(good);
    TestProvider provider(RSA_PROVIDER);
    EXPECT_EQ(Session(provider, peer, trust).failure, no_failure);
    EXPECT_EQ(Session(provider, second, {{"trusted_root", other.pem()}}).failure.first,
              QxciErrBadCert);
}

TEST_F(OpenSslProvider, can_be_loaded_and_unloaded_and_used_by_many_threads) {
    const auto use = [&](TestProvider& provider) {
        Peer peer(good);
        Session session(provider, peer, trust);
        std::string text;
        EXPECT_EQ(session.write("hello"), QXCI_IO_OK);
        EXPECT_EQ(session.read(text), QXCI_IO_OK);
    };
    std::array<long, 3> before;
    for (int round = 0; round < 100; ++round) {
        for (const char* library : {RSA_PROVIDER, ECC_PROVIDER}) {
            TestProvider provider(library);
            use(provider);
        }
        if (round == 0) before = footprint();  // with both mapped, where they stay
    }
    EXPECT_EQ(footprint(), before);
    std::vector<std::thread> threads;
    TestProvider shared(RSA_PROVIDER);
    for (int number = 0; number < 8; ++number) {
        threads.emplace_back([&] {
            for (int round = 0; round < 10; ++round) use(shared);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST_F(OpenSslProvider, exports_its_entry_points_only) {
    for (const std::string library : {RSA_PROVIDER, ECC_PROVIDER}) {
        const std::unique_ptr<FILE, int (*)(FILE*)> nm(
            popen(("nm -D --defined-only -f just-symbols " + shell_word(library)).c_str(), "r"),
            pclose);
        std::string names(1000, '\0');
        names.resize(fread(names.data(), 1, names.size(), nm.get()));
        EXPECT_EQ(names, "QXCIGetEnvIface\nQXCIGetErrorIface\nQXCIGetStreamConnIface\n"
                         "QXCIGetStreamIface\nQXCIGetVersion\n");
    }
}

TEST_F(OpenSslProvider, keeps_to_the_small_print_of_its_tables) {
    TestProvider p;
    const a_qxci_stream_iface& streams = p.stream_iface;
    const a_setting_list twice = {{"certificate_unit", "a"}, {"Certificate_Unit", "b"}};
    a_qxci_error error = {};
    for (const char* name : {"rsa", "RSA_TLS"}) {
        const QXCIStreamH stream = streams.create_func(p.env, nullptr, nullptr, name, &error);
        ASSERT_NE(stream, nullptr) << name;
        EXPECT_EQ(streams.get_algorithm_id_func(stream), QXCI_STREAM_RSA_TLS);
        EXPECT_TRUE(streams.is_synchronous_func(stream));
        Options options(twice);
        EXPECT_EQ(streams.init_func(stream, QXCI_CLIENT, options.head()), QXCI_OK);
        EXPECT_TRUE(options[0].used && !options[1].used);
        EXPECT_EQ(streams.init_func(stream, QXCI_CLIENT, nullptr), QXCI_ERROR);
        EXPECT_EQ(streams.get_last_error_func(stream)->code, QxciErrInitError);
        for (int round = 0; round < 2; ++round) EXPECT_EQ(streams.fini_func(stream), QXCI_OK);
        streams.destroy_func(stream);
    }
    for (const char* name : {static_cast<const char*>(nullptr), "", "ecc", "rsa_tls_fips"}) {
        EXPECT_EQ(streams.create_func(p.env, nullptr, nullptr, name, &error), nullptr);
        EXPECT_EQ(p.take(error), a_failure(QxciErrBadEncryptionAlgorithm, ""));
    }
    EXPECT_EQ(streams.create_with_id_func(p.env, nullptr, nullptr, QXCI_STREAM_ECC_TLS, &error),
              nullptr);
    EXPECT_EQ(p.take(error).first, QxciErrBadEncryptionAlgorithm);
    streams.destroy_func(nullptr);
    p.conn_iface.destroy_func(nullptr);

    Peer told(good), silent(good), mute(good);
    EXPECT_EQ(Session(p, told, trust).failure, no_failure);
    EXPECT_THAT(told.log, testing::StartsWith("TLSv1.3 with "));
    silent.callbacks.log_cb = nullptr;
    EXPECT_EQ(Session(p, silent, trust).failure, no_failure);
    EXPECT_EQ(p.owner.log, told.log);  // the environment's takes what the connection's does not
    mute.callbacks.read_cb = nullptr;
    EXPECT_EQ(Session(p, mute, trust).failure, a_failure(QxciErrInitError, ""));
}

TEST_F(OpenSslProvider, takes_odd_answers_of_callbacks_for_what_they_are) {
    const struct {
        int got;
        a_qxci_io_result write_result;
        unsigned code;
    } rows[] = {
        {0, QXCI_IO_OK, QxciErrConnectionClosed},
        {1 << 20, QXCI_IO_OK, QxciErrIOError},
        {-1, QXCI_IO_WOULD_BLOCK, QxciErrIOError},
        {-1, QXCI_IO_GRACEFUL_CLOSE, QxciErrIOError},
    };
    for (const auto& row : rows) {
        Peer peer(good);
        peer.got_instead = row.got;
        peer.write_result = row.write_result;
        TestProvider provider;
        Session session(provider, peer, trust);
        while (session.conn != nullptr && session.write("x") == QXCI_IO_WOULD_BLOCK) {
        }
        EXPECT_EQ(session.failure, a_failure(row.code, ""));
    }
}

}  // namespace
