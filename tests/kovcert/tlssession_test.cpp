#include "kovcert/tlssession.h"

#include <algorithm>
#include <functional>

#include <gmock/gmock.h>

#include "kovcert/tlsstream.h"
#include "tests/kovcert/qxci/trial.h"
#include "utils/lang/utlangstring.h"
#include "utils/unix/timelib.h"

namespace {

using testing::HasSubstr;
using a_read_result = std::pair<a_dbqxci_error, std::string>;

// Time passes when a test lets it, in ticks of 10 ms.
long now = 1000000;
constexpr a_timelib_clock fake_clock = {[] { return now; }, [] { return uint64{0}; },
                                        [] { return 100L; }};

constexpr a_utmem_source no_mutexes = {
    [](size_t size) { return size == sizeof(DBQXCIMutex) ? nullptr : std::malloc(size); },
    std::realloc, std::free, [] { return false; }};

std::string record(const char* kind, const std::string& payload) {
    char header[32];
    snprintf(header, sizeof header, "QXCI-STUB %s %05zu\n", kind, payload.size());
    return header + payload;
}

/// A connection that plays a script of the stub provider; what its owner's callbacks do, and what
/// they saw.
struct Session {
    explicit Session(const std::string& script, a_qxci_side side = QXCI_CLIENT,
                     bool feeding = false) {
        timelib_set_clock(&fake_clock);
        stream.reset(t.env.CreateStreamWithID(nullptr, nullptr, QXCI_STREAM_RSA_TLS, &t.err));
        if (stream == nullptr) std::abort();
        EXPECT_EQ(QXCI_OK, stream->Init(side, nullptr));
        Options options;
        options.add("stub_script", script.c_str());
        conn.emplace(stream.get(), &t.env, feeding ? &feeding_callbacks : &callbacks, this, this,
                     &t.err, options.head());
    }
    ~Session() { timelib_set_clock(nullptr); }

    a_dbqxci_error write(const char* text = "hello") {
        const a_dbqxci_error code = conn->write(text, strlen(text));
        EXPECT_EQ(code, static_cast<a_dbqxci_error>(conn->getLastError()->getErrorCode()));
        return code;
    }

    a_read_result read(size_t room) {
        std::string bytes(room, '\0');
        const a_dbqxci_error code = conn->read(bytes.data(), &room);
        EXPECT_EQ(code, static_cast<a_dbqxci_error>(conn->getLastError()->getErrorCode()));
        return {code, bytes.substr(0, room)};
    }

    static size_t send(void* context, const char* data, size_t len) {
        Session& session = *static_cast<Session*>(context);
        session.sent.append(data, len);
        return session.send_result != 0 ? session.send_result : len;
    }
    static int receive(void* context, char* buf, size_t len, size_t* got) {
        Session& session = *static_cast<Session*>(context);
        *got = session.incoming.copy(buf, len);
        session.incoming.erase(0, *got);
        return session.receives;
    }
    static void write_log(void* context, const char* text) {
        static_cast<Session*>(context)->log += text;
    }
    static void yield(void* context) {
        ++static_cast<Session*>(context)->yields;
        static_cast<Session*>(context)->on_yield();
    }
    static constexpr TlsCallbacks callbacks = {send, receive, write_log, yield};
    static constexpr TlsCallbacks feeding_callbacks = {send, nullptr, nullptr, nullptr};

    std::string sent;
    size_t send_result = 0;  // 0: all
    std::string incoming;    // what readFunc delivers
    int receives = 1;        // the result of readFunc
    std::string log;
    int yields = 0;
    std::function<void()> on_yield = [] { now += 100; };

    Trial t{{.stub = true}};
    std::unique_ptr<DBQXCIStream> stream;
    std::optional<TlsConnection> conn;
};

/// What the connection tells a reader.
std::string text_of(TlsConnection& conn) {
    static const UTLocale locale{ls_english(), ls_find_charset("UTF-8")};
    static UTLangString strings{locale, RES_FOLDER};
    strings.Init("en", locale.GetOSCharset(), false);
    char text[256] = "-";
    conn.getErrorString(&strings, text, sizeof text);
    return text;
}

using Steps = std::vector<long>;  // milliseconds that pass in each yield; the last one goes on

void pass_time(Session& session, const Steps& steps) {
    session.on_yield = [&session, steps] {
        now += steps[std::min<size_t>(static_cast<size_t>(session.yields), steps.size()) - 1] / 10;
    };
}

TEST(TlsConnection, writes_until_31_seconds_have_passed) {
    const struct {
        const char* script;
        Steps steps;
        a_dbqxci_error code;
        int yields;
        bool handshake_done;
    } cases[] = {
        {"handshake done; write done", {10}, QxciErrOK, 0, true},
        {"handshake*3 block; handshake done; write*2 block; write done", {10}, QxciErrOK, 4, true},
        {"handshake* block", {1000}, QxciErrHandshakeTimedOut, 31, false},
        {"handshake* block", {30990, 10}, QxciErrHandshakeTimedOut, 2, false},
        {"handshake* block", {0, -50000, 80990, 10}, QxciErrHandshakeTimedOut, 4, false},
        {"handshake done; write* block", {1000}, QxciErrHandshakeTimedOut, 31, false},
        {"handshake done; write close", {10}, QxciErrConnectionClosed, 0, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        Session session(c.script);
        pass_time(session, c.steps);
        EXPECT_TRUE(session.conn->IsValid());
        EXPECT_EQ(c.code, session.write());
        EXPECT_EQ(c.yields, session.yields);
        EXPECT_EQ(c.handshake_done, session.conn->doneHandshake());
    }
    Session established("handshake done; write done; write* block");
    EXPECT_EQ(QxciErrOK, established.write());
    EXPECT_EQ(QxciErrIOError, established.write());
    EXPECT_EQ(31, established.yields);
}

TEST(TlsConnection, reads_what_its_partial_setting_asks_for_within_31_seconds) {
    const struct {
        const char* script;
        bool partial;
        Steps steps;
        a_read_result result;  // of a read with room for ten
        int yields;
    } cases[] = {
        {"read give 0123456789abc", false, {10}, {QxciErrOK, "0123456789"}, 0},
        {"read give abc; read give defghijklm", false, {10}, {QxciErrOK, "abcdefghij"}, 1},
        {"read give abc; read give defghij", true, {10}, {QxciErrOK, "abc"}, 0},
        {"read block", true, {10}, {QxciErrWouldBlock, ""}, 0},
        {"read give abc; read block", false, {10}, {QxciErrWouldBlock, "abc"}, 1},
        {"read give abc; read close", false, {10}, {QxciErrConnectionClosed, "abc"}, 1},
        {"read give abc; read fail 8", false, {10}, {QxciErrIOError, "abc"}, 1},
        {"read* give a", false, {1000}, {QxciErrOK, "aaaaaaaaaa"}, 9},
        {"read* give a", false, {30990, 10}, {QxciErrIOError, "aa"}, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        Session session(std::string("handshake done; ") + c.script);
        pass_time(session, c.steps);
        session.conn->setPartialIO(c.partial);
        EXPECT_EQ(c.result, session.read(10));
        EXPECT_EQ(c.yields, session.yields);
        EXPECT_EQ(c.result.first == QxciErrConnectionClosed,
                  session.write() == QxciErrConnectionClosed);
    }
    Session waiting("handshake* block");
    EXPECT_EQ(a_read_result(QxciErrWouldBlock, ""), waiting.read(10));
    EXPECT_FALSE(waiting.conn->doneHandshake());
}

TEST(TlsConnection, a_shut_down_in_the_yield_is_final) {
    for (const char* script : {"write* block", "read give abc; read block",
                               "read give abc; read give def", "read* give a"}) {
        SCOPED_TRACE(script);
        Session session(std::string("handshake done; ") + script);
        session.on_yield = [&] { session.conn->shut_down(); };
        const bool writing = script[0] == 'w';
        EXPECT_EQ(QxciErrConnectionClosed, writing ? session.write() : session.read(10).first);
        EXPECT_EQ(1, session.yields);
        EXPECT_EQ(QxciErrConnectionClosed, session.write());
        EXPECT_EQ(a_read_result(QxciErrConnectionClosed, ""), session.read(10));
        EXPECT_EQ(QxciErrConnectionClosed, session.conn->receiveBytes("x", 1));
        char byte = 0;
        size_t got = 0;
        EXPECT_EQ(QxciErrConnectionClosed, session.conn->getReceivedBytes(&byte, 1, &got));
        EXPECT_THAT(text_of(*session.conn), HasSubstr("closed"));
    }
}

TEST(TlsConnection, works_without_memory_for_a_mutex) {
    utmem_set_source(&no_mutexes);
    Session session("handshake done; write done; read give abc");
    utmem_set_source(nullptr);
    session.conn->getMutex();
    session.conn->giveMutex();
    EXPECT_EQ(QxciErrOK, session.write());
    EXPECT_EQ(a_read_result(QxciErrOK, "abc"), session.read(3));
}

TEST(TlsConnection, a_provider_s_error_comes_with_its_details_and_passes) {
    Session session("handshake done; write fail 13,7,Acme; write done");
    EXPECT_EQ(QxciErrBadCompany, session.write());
    const DBQXCIError& error = *session.conn->getLastError();
    EXPECT_EQ("13 7 Acme", describe(error));
    EXPECT_THAT(text_of(*session.conn), HasSubstr("Acme"));
    EXPECT_EQ(QxciErrOK, session.write());
    EXPECT_EQ("0", describe(error));
    EXPECT_EQ("", text_of(*session.conn));

    Session closed("handshake done; write fail 12,7,Acme");
    EXPECT_EQ(QxciErrConnectionClosed, closed.write());
    EXPECT_EQ("12 7 Acme", describe(*closed.conn->getLastError()));
    closed.conn->shut_down();
    EXPECT_EQ(QxciErrConnectionClosed, closed.write());
    EXPECT_EQ("12", describe(*closed.conn->getLastError())) << "the same code, another error";
}

TEST(TlsConnection, a_failure_without_a_reason_is_a_failure) {
    Session session("handshake done; write fail 8; read fail 8");
    const c_utils_ref<DBQXCIInterface> provider(session.t.env._getInterface(OTHER_IFACE));
    provider->_conn_iface.get_last_error_func = [](QXCIStreamConnH) {
        static constexpr a_qxci_error none = {};
        return &none;
    };
    EXPECT_EQ(QxciErrUnknown, session.write());
    EXPECT_EQ(QxciErrUnknown, session.read(10).first);
}

TEST(TlsConnection, a_refused_connection_is_not_valid_and_says_why) {
    for (const char* script : {"conn fail 14,3,Sales", "handshake fail 14,3,Sales"}) {
        Session session(script);
        EXPECT_FALSE(session.conn->IsValid());
        EXPECT_EQ("14 3 Sales", describe(session.t.err));
        EXPECT_THAT(text_of(*session.conn), HasSubstr("Sales"));
        EXPECT_EQ(QxciErrUnknown, session.write());
        EXPECT_EQ(QxciErrUnknown, session.read(10).first);
    }
}

TEST(TlsConnection, a_server_is_fed_and_does_not_write_before_the_handshake) {
    Session session("", QXCI_SERVER, true);
    EXPECT_EQ(QxciErrHandshakeFailed, session.write());
    const std::string raw = record("HELLO", "client\n") + record("DATA_", "EHLO\r\n");
    session.conn->setPartialIO(true);
    for (size_t fed = 0; fed < raw.size(); fed += 9) {
        EXPECT_EQ(QxciErrWouldBlock, session.read(100).first);
        const std::string piece = raw.substr(fed, 9);
        EXPECT_EQ(QxciErrOK, session.conn->receiveBytes(piece.data(), piece.size()));
    }
    EXPECT_EQ(a_read_result(QxciErrOK, "EHLO\r\n"), session.read(100));
    EXPECT_EQ(QxciErrOK, session.write("250\r\n"));
    session.conn.reset();
    EXPECT_EQ(record("HELLO", "server\n") + record("DATA_", "250\r\n") + record("CLOSE", ""),
              session.sent);
}

TEST(TlsConnection, saved_bytes_are_handed_out_in_whole_requests) {
    Session session("handshake done", QXCI_CLIENT, true);
    const std::string raw = std::string(80, 'a') + std::string(80, 'b');
    std::string out(160, '-');
    size_t got = 7;
    const auto take = [&](size_t len) {
        return session.conn->getReceivedBytes(out.data(), len, &got);
    };
    EXPECT_EQ(QxciErrWouldBlock, take(0));
    session.conn->receiveBytes(raw.data(), 60);
    EXPECT_EQ(QxciErrWouldBlock, take(100));
    EXPECT_EQ(7U, got);
    EXPECT_EQ(QxciErrOK, take(60));
    session.conn->receiveBytes(raw.data(), 80);
    session.conn->receiveBytes(raw.data() + 80, 80);
    EXPECT_EQ(QxciErrOK, take(100));
    EXPECT_EQ(100U, got);
    EXPECT_EQ(raw.substr(0, 100), out.substr(0, 100));
    EXPECT_EQ(QxciErrOK, take(60));
    EXPECT_EQ(raw.substr(100), out.substr(0, 60));
}

TEST(TlsConnection, the_provider_s_callbacks_tell_failure_from_waiting) {
    Session session("handshake done");
    unsigned char bytes[] = "abcde";
    unsigned got = 0;
    const std::pair<size_t, a_qxci_io_result> sends[] = {
        {5, QXCI_IO_OK}, {4, QXCI_IO_ERROR}, {static_cast<size_t>(-1), QXCI_IO_ERROR}};
    for (const auto& [result, wanted] : sends) {
        session.send_result = result;
        EXPECT_EQ(wanted, tls_conn_callbacks.write_cb(&*session.conn, bytes, 5)) << result;
    }
    EXPECT_EQ(QXCI_IO_WOULD_BLOCK, tls_conn_callbacks.read_cb(&*session.conn, bytes, 5, &got));
    session.incoming = "xyz";
    EXPECT_EQ(QXCI_IO_OK, tls_conn_callbacks.read_cb(&*session.conn, bytes, 5, &got));
    EXPECT_EQ(3U, got);
    session.receives = 0;
    EXPECT_EQ(QXCI_IO_ERROR, tls_conn_callbacks.read_cb(&*session.conn, bytes, 5, &got));

    for (const char* text : {"line.", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(0, tls_conn_callbacks.log_cb(&*session.conn, 0, text, bytes, 5));
    }
    EXPECT_EQ(0, tls_conn_callbacks.log_cb(&*session.conn, 9, "rest", bytes, 5));
}

TEST(TlsStreams, carry_plain_text_until_the_session_ends) {
    Session session("handshake done; read block; read give 220 hi; read close");
    TlsIStream in(&*session.conn, nullptr);
    TlsOStream out(&*session.conn);
    const auto put = [&](const std::string& text) {
        return out.do_put(reinterpret_cast<const a_byte*>(text.data()), text.size());
    };
    char bytes[100];
    EXPECT_EQ(0U, in.get(bytes, sizeof bytes));
    EXPECT_FALSE(in.eof());
    EXPECT_EQ(4U, in.get(bytes, 4));
    EXPECT_EQ(2U, in.get(bytes, sizeof bytes));
    EXPECT_EQ(6U, put("QUIT\r\n"));
    EXPECT_EQ(record("DATA_", "QUIT\r\n"), session.sent);
    EXPECT_EQ(0U, in.get(bytes, sizeof bytes));
    EXPECT_TRUE(in.eof());
    EXPECT_EQ(static_cast<size_t>(-1), put("x"));
    EXPECT_FALSE(out.eof());
}

}  // namespace
