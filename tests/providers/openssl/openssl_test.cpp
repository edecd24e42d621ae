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
    const std::string maps = bytes_of("/proc/self/maps");
    long mapped = 0;
    for (size_t at = 0; (at = maps.find("12_r.so\n", at)) != std::string::npos; ++at) ++mapped;
    return {entries("/proc/self/fd"), entries("/proc/self/task"), mapped};
}

a_setting_list named(const char* name) {
    return {{"certificate_name", name}};
}

std::string identity_of(const Certificate& certificate, const char* password = nullptr) {
    return certificate.pem() + certificate.key_pem(password);
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
    const Certificate rsa{{.key = RSA2048}, &root};
    const ScratchFolder folder;
    const std::string ca = folder.file_with("ca.pem", root.pem());
    const a_setting_list trust = {{"trusted_certificate", ca}};
    TestProvider provider;  // the one that is linked in

    a_failure connect(Wire& wire, a_setting_list settings = {}) {
        settings.push_back(trust[0]);
        return Session(provider, wire, settings).failure;
    }
};

TEST_F(OpenSslProvider, speaks_both_versions_with_both_kinds_of_certificate) {
    for (const char* library : {RSA_PROVIDER, ECC_PROVIDER}) {
        for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
            for (const Certificate* certificate : {&good, &rsa}) {
                TestProvider loaded(library);
                Peer peer(*certificate, version);
                Session session(loaded, peer, trust);
                peer.answer();
                ASSERT_TRUE(SSL_is_init_finished(peer.ssl));  // before any read or write
                EXPECT_EQ(QXCI_IO_OK, session.write(pattern(50000)));
                while (session.text.size() < 50000) ASSERT_EQ(QXCI_IO_OK, session.read());
                EXPECT_EQ(pattern(50000), session.text);
                EXPECT_THAT(peer.log, testing::StartsWith("TLSv1."));
                session.close();
                peer.answer();
                EXPECT_NE(0, SSL_get_shutdown(peer.ssl) & SSL_RECEIVED_SHUTDOWN);
            }
        }
    }
}

TEST_F(OpenSslProvider, refuses_to_renegotiate) {
    Peer peer(good, TLS1_2_VERSION);
    Session session(provider, peer, trust);
    peer.answer();
    SSL_renegotiate(peer.ssl);
    SSL_do_handshake(peer.ssl);
    const int before = peer.records(SSL3_RT_HANDSHAKE);
    session.read();
    EXPECT_EQ(before, peer.records(SSL3_RT_HANDSHAKE));
    EXPECT_EQ(1, peer.records(SSL3_RT_ALERT));
}

TEST_F(OpenSslProvider, refuses_certificates_by_their_fault) {
    const Certificate old({.subject = {{"CN", "Old"}}, .to_days = 0, .key = EC_AUTHORITY}, &root);
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
        {request, &root, {{"certificate_company", "A"}, {"certificate_unit", "Mail"}}, no_failure},
        {request, &root, {{"certificate_company", "\xc3\x9c"}}, no_failure},
        {request, &root, {{"certificate_company", "a"}}, {QxciErrBadCompany, "a"}},
        {request, &root, {{"certificate_company", ""}}, {QxciErrBadCompany, ""}},
        {zero, &root, {{"certificate_company", "A"}}, {QxciErrBadCompany, "A"}},
        {request, &root, {{"certificate_unit", "Mai"}}, {QxciErrBadUnit, "Mai"}},
    };
    for (const auto& row : rows) {
        Peer peer(Certificate(row.request, row.issuer), TLS1_3_VERSION, row.sent);
        EXPECT_EQ(row.failure, connect(peer, row.demands)) << "row " << &row - rows;
        // A server that is refused is told so in the clear.
        EXPECT_EQ(row.failure == no_failure ? 0 : 1, peer.records(SSL3_RT_ALERT));
    }
}

TEST_F(OpenSslProvider, holds_authorities_to_their_name_constraints) {
    const Certificate bounded({.subject = {{"CN", "Bounded"}},
                               .key = EC_AUTHORITY,
                               .names = "",
                               .constraints =
                                   "permitted;DNS:corp.example,excluded;DNS:b.corp.example,"
                                   "permitted;IP:fd00::/ff00::"},
                              &root);
    const struct {
        const char* name;  // the CN
        bool demanded, holds;
    } rows[] = {
        {"a.corp.example", false, true}, {"mail.example", false, false},
        {"localhost", false, true},      {"localhost", true, false},
        {"x.test.", true, false},        {"b.corp.example.", true, false},
        {"C.corp.example.", true, true}, {"badcorp.example.", true, false},
        {"Mail Relay", true, true},      {"fd00::7", true, true},
        {"fe00::7", true, false},
    };
    for (const auto& [name, demanded, holds] : rows) {
        const a_request called = {.subject = {{"CN", name}}, .names = "DNS:a.corp.example"};
        Peer peer(Certificate(called, &bounded), TLS1_3_VERSION, &bounded);
        EXPECT_EQ(holds ? no_failure : a_failure(QxciErrBadCert, std::string("CN=") + name),
                  connect(peer, demanded ? named(name) : a_setting_list()));
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
        {dns("DNS:*.hosts.example"), "a.b.hosts.example", false, true},
        {dns("DNS:a.b#c"), "a.b", false, true},
        {dns("DNS:a_b.c"), "a_b.c", true, false},
        {dns("DNS:a.example"), ".example", false, false},
        {dns("DNS:a.example"), "", false, false},
        {dns("DNS:m*.hosts.example"), "mail.hosts.example", false, true},
        {dns("DNS:127.0.0.1,DNS:*.0.0.1"), "127.0.0.1", false, false},
        {dns("IP:127.0.0.1"), "127.0.0.1", true, false},
        {dns("IP:::1"), "0:0::1", true, false},
        {cn("127.0.0.1"), "127.0.0.1", true, false},
    };
    for (const auto& row : rows) {
        Peer peer(Certificate(row.request, &root));
        EXPECT_EQ(row.found ? no_failure : a_failure(QxciErrBadCommonName, row.name),
                  connect(peer, named(row.name)));
        EXPECT_EQ(row.asked_for ? row.name : "", peer.server_name);
    }
}

TEST_F(OpenSslProvider, judges_dates_by_a_calendar_that_goes_past_2038) {
    constexpr int in_2039 = 4700, in_2045 = 6900;
    const Certificate authority({.from_days = in_2039, .to_days = in_2045, .key = EC_AUTHORITY});
    const Certificate later({.from_days = in_2039, .to_days = in_2045, .key = RSA2048}, &authority);
    for (const bool then : {false, true}) {
        fake_clock.days_ahead = then ? in_2039 + 300 : 0;
        Peer of_then(later), of_now(good);
        const Session trusting(provider, of_then, {{"trusted_root", authority.pem()}});
        EXPECT_EQ(then ? QxciErrOK : QxciErrCertExpired, trusting.failure.first);
        EXPECT_EQ(then ? QxciErrCertExpired : QxciErrOK, connect(of_now).first);
    }
    fake_clock.days_ahead = 0;
}

TEST_F(OpenSslProvider, wants_a_version_and_keys_that_protect) {
    const struct {
        int version;
        const char* ciphers;
        unsigned code;
    } rows[] = {
        {TLS1_1_VERSION, "DEFAULT", QxciErrHandshakeFailed},
        {TLS1_2_VERSION, "AES256-GCM-SHA384:AES128-SHA", QxciErrHandshakeFailed},
        {TLS1_2_VERSION, "DHE-RSA-AES128-GCM-SHA256", QxciErrOK},
        {TLS1_2_VERSION, "ECDHE-RSA-AES256-SHA", QxciErrOK},
    };
    for (const auto& [version, ciphers, code] : rows) {
        Peer peer(rsa, version);
        SSL_set_cipher_list(peer.ssl, ciphers);
        SSL_set_dh_auto(peer.ssl, 1);
        EXPECT_EQ(code, connect(peer).first) << ciphers;
    }
}

TEST_F(OpenSslProvider, reads_trusted_certificates_from_what_it_is_given) {
    const auto file = [this](const char* name, const std::string& bytes) {
        return folder.file_with(name, bytes);
    };
    const std::string none = folder.file("none"), empty = file("empty", "");
    const std::string key = file("key", root.key_pem()), garbage = file("garbage", pattern(900));
    const std::string cut = file("cut", root.pem() + root.pem().substr(0, 300));
    const std::string longest = file("longest", root.pem()), too_long = file("long", root.pem());
    std::filesystem::resize_file(longest, 16 << 20);
    std::filesystem::resize_file(too_long, (16 << 20) + 1);
    const struct {
        const char* option;
        std::string value;
        unsigned code = QxciErrOK;
    } rows[] = {
        {"trusted_certificate", file("der", root.der())},
        {"trusted_certificate", file("two", "text\n" + other.pem() + root.pem())},
        {"trusted_certificate", file("itself", good.pem())},
        {"trusted_certificate", longest},
        {"trusted_certificates", file("other", other.pem()) + ";" + ca},
        {"trusted_roots", other.pem() + root.pem()},
        {"trusted_root_file", none, QxciErrCantFindCertFile},
        {"trusted_certificate", folder.file(""), QxciErrBadCertFile},
        {"trusted_certificate", "/dev/zero", QxciErrBadCertFile},
        {"trusted_certificate", too_long, QxciErrBadCertFile},
        {"trusted_certificate", empty, QxciErrNoCertificates},
        {"trusted_certificate", key, QxciErrNoCertificates},
        {"trusted_certificate", garbage, QxciErrBadCertFile},
        {"trusted_certificate", cut, QxciErrBadCertFile},
    };
    for (const auto& [option, value, code] : rows) {
        Peer peer(good);
        EXPECT_EQ(code == QxciErrOK ? no_failure : a_failure(code, value),
                  Session(provider, peer, {{option, value}}).failure);
    }
    Peer peer(good);
    EXPECT_EQ(a_failure(QxciErrMissingCertFile, ""),
              Session(provider, peer, named("mail.example")).failure);
}

TEST_F(OpenSslProvider, shows_an_identity_of_its_own_kind_only) {
    const std::string locked = identity_of(rsa, "secret");
    const struct {
        a_setting_list settings;
        a_failure failure;
    } rows[] = {
        {{}, {QxciErrMissingIdentityFile, ""}},
        {{{"identity", locked}, {"identity_password", "secret"}}, no_failure},
        {{{"identity", locked}, {"identity_password", "x"}}, {QxciErrBadCertPassword, "identity"}},
        {{{"identity", identity_of(good)}}, {QxciErrBadRSACert, "identity"}},
        {{{"identity", good.pem() + rsa.key_pem()}}, {QxciErrBadCert, "identity"}},
    };
    Wire wire;
    for (const auto& [settings, failure] : rows) {
        EXPECT_EQ(failure, Session(provider, wire, {}, QXCI_SERVER, settings).failure);
    }
}

TEST_F(OpenSslProvider, takes_from_an_environment_what_it_knows) {
    EXPECT_EQ(no_failure, TestProvider(LINKED, {{"DLL_name", "x"}}).failure());
    EXPECT_EQ(a_failure(QxciErrFipsNotSupportedByAlgorithm, ""),
              TestProvider(LINKED, {{"FIPS", "On"}}).failure());
    EXPECT_EQ(a_failure(QxciErrOptionError, "tls_type"),
              TestProvider(LINKED, {{"tls_type", "ecc"}}).failure());
}

TEST_F(OpenSslProvider, lets_the_nearest_setting_count_and_leaves_none_unread) {
    TestProvider p(RSA_PROVIDER, {{"trusted_roots", root.pem()}, {"trusted_root_file", ca}});
    const std::pair<const char*, std::string> strange = {"trusted_root", other.pem()};
    const std::pair<a_setting_list, a_failure> rows[] = {
        {{}, no_failure},
        {{strange}, {QxciErrBadCert, "OU=Mail,O=\xc3\x9c,O=A,CN=mail.example"}},
        {{trust[0], strange}, {QxciErrOptionError, "trusted_root"}},
        {{{"trusted_root", "garbage"}}, {QxciErrBadCertFile, "trusted_root"}},
        {{{"identity_password", "x"}}, {QxciErrOptionError, "identity_password"}},
    };
    for (const auto& [own, failure] : rows) {
        Peer peer(good);
        EXPECT_EQ(failure, Session(p, peer, own).failure);
        Peer of_stream(good);
        EXPECT_EQ(failure, Session(p, of_stream, {}, QXCI_CLIENT, own).failure);
    }
}

TEST_F(OpenSslProvider, goes_on_with_a_blocked_handshake_and_asks_who_the_client_is) {
    const Certificate me({.subject = {{"CN", "me"}}, .usage = "clientAuth", .key = RSA2048}, &root);
    const a_setting_list mine = {{"identity", identity_of(me)}, trust[0]};
    const a_setting_list demanding = {
        {"identity", identity_of(rsa)}, {"certificate_name", "me"}, trust[0]};
    const struct {
        a_setting_list client;
        bool whole, welcome;
        a_failure failure;
    } rows[] = {
        {mine, true, true, no_failure},
        {mine, false, false, {QxciErrBadCert, ""}},
        {trust, false, true, {QxciErrHandshakeFailed, ""}},
    };
    for (const auto& row : rows) {
        Wire to_client, to_server;
        to_client.other = &to_server;
        to_server.other = &to_client;
        to_client.only_whole = to_server.only_whole = row.whole;
        to_server.welcome = row.welcome;
        Session client(provider, to_client, row.client);
        Session server(provider, to_server, demanding, QXCI_SERVER);
        const std::string data = pattern(70000);
        for (int turn = 0; turn < 9 && client.write(data) == QXCI_IO_WOULD_BLOCK; ++turn) {
            server.read();
        }
        while (server.text.size() < data.size() && server.read() == QXCI_IO_OK) {
        }
        EXPECT_EQ(row.failure, server.failure);
        EXPECT_EQ(row.failure == no_failure, server.text == data);
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
        Wire wire(bytes);
        EXPECT_EQ(code, connect(wire).first);
    }
    Wire mute;
    mute.callbacks.read_cb = nullptr;
    EXPECT_EQ(a_failure(QxciErrInitError, ""), connect(mute));
    Peer ending(good), faulty(good);
    Session first(provider, ending, trust), second(provider, faulty, trust);
    ending.answer();
    SSL_shutdown(ending.ssl);
    const a_qxci_io_result results[] = {first.read(), first.write("x"), first.flush()};
    EXPECT_THAT(results, testing::Each(QXCI_IO_GRACEFUL_CLOSE));
    EXPECT_EQ(a_failure(QxciErrConnectionClosed, ""), first.failure);
    faulty.in = std::string("\x17\x03\x03\x00\x20", 5) + pattern(32);
    EXPECT_EQ(QXCI_IO_ERROR, second.read());
    EXPECT_EQ(QxciErrOpenSSLError, second.failure.first);
}

TEST_F(OpenSslProvider, ends_a_handshake_that_goes_on_for_ever) {
    // Which a HelloRequest does not end (RFC 5246, section 7.4.1.1).
    struct Greeter : Wire {
        void answer() override { in += record; }
        std::string record;
    };
    for (const char size : {'\1', '\100'}) {  // of a quarter of a request, or of many
        Greeter wire;
        wire.limit = 1 << 20;
        wire.record = {'\x16', '\x03', '\x03', '\0', size};
        wire.record.append(static_cast<size_t>(size), '\0');
        EXPECT_EQ(QxciErrHandshakeFailed, connect(wire).first);
        EXPECT_LT(wire.taken, 10000U) << "a thousand records or requests";
    }
}

TEST_F(OpenSslProvider, bears_a_thousand_records_in_a_row_without_data) {
    Peer peer(good);
    Session session(provider, peer, trust);
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
        session.text.clear();
        EXPECT_EQ(updates == 1001 ? QXCI_IO_ERROR : QXCI_IO_OK, session.read()) << updates;
        while (written > 0 && session.read() == QXCI_IO_OK) {
        }
        EXPECT_EQ(updates == 1001 ? 0U : 1U + written, session.text.size());
    }
    EXPECT_EQ(QxciErrOpenSSLError, session.failure.first);
}

TEST_F(OpenSslProvider, notices_a_reset_an_end_and_odd_answers_wherever_they_come) {
    const auto talk = [this](Peer& peer) {
        Session session(provider, peer, trust);
        if (session.failure != no_failure) return session.failure;
        a_qxci_io_result result = QXCI_IO_WOULD_BLOCK;
        while (result == QXCI_IO_WOULD_BLOCK) result = session.write("hello");
        EXPECT_EQ(result, session.flush());
        while (session.text != "hello" && result != QXCI_IO_ERROR) result = session.read();
        const a_failure failure = session.failure;
        if (failure == no_failure) return failure;
        EXPECT_EQ(QXCI_IO_ERROR, session.write("x"));  // and stays so
        EXPECT_EQ(QXCI_IO_ERROR, session.flush());
        EXPECT_EQ(failure, session.failure);
        return failure;
    };
    Peer sound(good);
    EXPECT_EQ(no_failure, talk(sound));
    ASSERT_GT(sound.taken, 500U);
    for (const auto& [end, code] : {std::pair(QXCI_IO_ERROR, QxciErrIOError),
                                    std::pair(QXCI_IO_WOULD_BLOCK, QxciErrConnectionClosed)}) {
        // Signatures and tickets may be a few bytes shorter next time.
        for (size_t limit = 0; limit + 16 < sound.taken; limit += 31) {
            Peer peer(good);
            peer.limit = limit;
            peer.end = end;
            const int64_t start = fake_clock.now_us;
            EXPECT_EQ(a_failure(code, ""), talk(peer)) << limit;
            EXPECT_LE(fake_clock.now_us - start, 2000000);
            EXPECT_LE(peer.reads, 200);  // it sleeps in between
        }
    }
    Peer nothing(good), too_much(good), blocked(good), closed(good);
    nothing.got_instead = 0;
    EXPECT_EQ(a_failure(QxciErrConnectionClosed, ""), talk(nothing));
    too_much.got_instead = 1 << 20;
    blocked.write_result = QXCI_IO_WOULD_BLOCK;
    closed.write_result = QXCI_IO_GRACEFUL_CLOSE;
    for (Peer* const odd : {&too_much, &blocked, &closed}) {
        EXPECT_EQ(a_failure(QxciErrIOError, ""), talk(*odd));
    }
}

TEST_F(OpenSslProvider, sends_large_writes_in_full_records_and_few_calls) {
    constexpr size_t record = 16 << 10;
    Peer peer(good);
    Session session(provider, peer, trust);
    const int live = provider.owner.live();
    for (const auto& [size, calls] : {std::pair(4 * record, 1), std::pair(64 * record, 11)}) {
        const int records = peer.records(), writes = peer.writes;
        for (int round = 0; round < 3; ++round) {
            ASSERT_EQ(QXCI_IO_OK, session.write(pattern(size)));
        }
        EXPECT_EQ(3 * size / record, static_cast<size_t>(peer.records() - records));
        EXPECT_EQ(3 * calls, peer.writes - writes);
        EXPECT_EQ(live, provider.owner.live()) << "the large buffer has gone";
    }
}

TEST_F(OpenSslProvider, sends_large_writes_in_more_calls_without_memory) {
    for (int fail_at = 0;; ++fail_at) {
        TestProvider poor(LINKED, {}, fail_at);
        if (poor.env == nullptr) continue;
        Peer peer(good);
        Session session(poor, peer, trust);
        if (session.conn == nullptr) continue;
        const int records = peer.records(), writes = peer.writes;
        EXPECT_EQ(QXCI_IO_OK, session.write(pattern(64 << 10)));
        EXPECT_EQ(4, peer.records() - records);
        EXPECT_EQ(poor.owner.ran_out(), peer.writes - writes > 1) << fail_at;
        if (!poor.owner.ran_out()) break;
    }
}

TEST_F(OpenSslProvider, undoes_everything_when_memory_runs_out) {
    for (int fail_at = 0;; ++fail_at) {
        TestProvider poor(RSA_PROVIDER, {{"trusted_certificates", ca}}, fail_at);
        a_failure failure = poor.failure();
        if (failure == no_failure) {
            Peer peer(good);
            failure = Session(poor, peer, {{"certificate_company", "x"}}).failure;
        }
        if (!poor.owner.ran_out()) {
            EXPECT_EQ(a_failure(QxciErrBadCompany, "x"), failure);
            EXPECT_GT(fail_at, 8);
            break;
        }
        // An error goes without its parameter rather than without its code.
        const bool only_parameter = failure == a_failure(QxciErrBadCompany, "");
        EXPECT_TRUE(only_parameter || failure.first == QxciErrNoMemory) << fail_at;
    }
}

TEST_F(OpenSslProvider, survives_that_openssl_has_no_memory) {
    ASSERT_EQ(1, watched);
    Peer any(good);
    const Session session(provider, any, {}, QXCI_CLIENT, trust);
    for (int left = 0; left <= 500; ++left) {
        Peer peer(good);
        allocations_left = left < 500 ? left : -1;
        const QXCIStreamConnH conn = provider.conns.create_func(session.stream, &peer.callbacks,
                                                                nullptr, &peer, &provider.error);
        allocations_left = -1;
        EXPECT_EQ(conn != nullptr, provider.creation_error() == "0") << left;
        EXPECT_TRUE(conn != nullptr || left < 500) << "and works again";
        provider.conns.destroy_func(conn);
    }
}

TEST_F(OpenSslProvider, reads_nothing_that_the_environment_names) {
    EXPECT_EQ(1, OPENSSL_init_ssl(0, nullptr));  // the peer's OpenSSL is to stay as it is
    const std::string config =
        folder.file_with("openssl.cnf", "openssl_conf=a\n[a]\nssl_conf=b\n[b]\n"
                                        "system_default=c\n[c]\nCipherString=AES256-SHA\n");
    setenv("OPENSSL_CONF", config.c_str(), 1);
    setenv("SSL_CERT_FILE", ca.c_str(), 1);
    Peer first(good, TLS1_2_VERSION), second(good);
    TestProvider loaded(RSA_PROVIDER);
    EXPECT_EQ(no_failure, Session(loaded, first, trust).failure);
    EXPECT_EQ(QxciErrBadCert,
              Session(loaded, second, {{"trusted_root", other.pem()}}).failure.first);
}

TEST_F(OpenSslProvider, can_be_loaded_and_unloaded_and_used_by_many_threads) {
    const auto use = [this](TestProvider& loaded) {
        Peer peer(good);
        Session session(loaded, peer, trust);
        EXPECT_EQ(QXCI_IO_OK, session.write("hello"));
        EXPECT_EQ(QXCI_IO_OK, session.read());
    };
    std::array<long, 3> before;
    for (int round = 0; round < 100; ++round) {
        for (const char* library : {RSA_PROVIDER, ECC_PROVIDER}) {
            TestProvider loaded(library);
            use(loaded);
        }
        if (round == 0) before = footprint();  // with both mapped, where they stay
    }
    EXPECT_EQ(before, footprint());
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
        EXPECT_EQ("QXCIGetEnvIface\nQXCIGetErrorIface\nQXCIGetStreamConnIface\n"
                  "QXCIGetStreamIface\nQXCIGetVersion\n",
                  names);
    }
}

}  // namespace
