#include "kovcert/tlssession.h"

#include <algorithm>
#include <cstdlib>
#include <functional>

#include <gmock/gmock.h>

#include "kovcert/tlsstream.h"
#include "utils/lang/utlangstring.h"
#include "utils/unix/timelib.h"

// There is no memory for objects of this size.
static std::size_t scarce_size = 0;

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return size == scarce_size ? nullptr : ::operator new(size);
}

namespace {

// Time passes when a test lets it, in ticks of 10 ms.
long now = 1000000;
constexpr a_timelib_clock fake_clock = {[] { return now; }, [] { return uint64{0}; },
                                        [] { return 100L; }};

// Its mutexes tell whether they are held, and that they are not taken twice.
constexpr a_qxci_callbacks process_callbacks = {
    .alloc_cb = [](void*, size_t size) { return std::malloc(size); },
    .realloc_cb = [](void*, void* memory, size_t size) { return std::realloc(memory, size); },
    .free_cb = [](void*, void* memory) { std::free(memory); },
    .log_cb = nullptr,
    .threadid_cb = nullptr,
    .mutex_create_cb = [](void*) -> void* { return new int(0); },
    .mutex_destroy_cb =
        [](void*, void* mutex) {
            EXPECT_EQ(0, *static_cast<int*>(mutex));
            delete static_cast<int*>(mutex);
        },
    .mutex_get_cb = [](void*, void* mutex) { EXPECT_EQ(1, ++*static_cast<int*>(mutex)); },
    .mutex_give_cb = [](void*, void* mutex) { EXPECT_EQ(0, --*static_cast<int*>(mutex)); },
    .create_thread_cb = nullptr,
};

std::string record(const char* kind, const std::string& payload) {
    char header[32];
    snprintf(header, sizeof header, "QXCI-STUB %s %05zu\n", kind, payload.size());
    return header + payload;
}

/// The owner of one connection over the stub provider: what its callbacks do, and what they saw.
struct Owner {
    std::string sent;
    size_t send_result = 0;  // 0: all
    std::string incoming;    // what readFunc delivers
    int receives = 1;        // the result of readFunc
    std::string log;
    int yields = 0;
    std::function<void()> on_yield = [] { now += 100; };

    static size_t send(void* context, const char* data, size_t len) {
        Owner& owner = *static_cast<Owner*>(context);
        owner.sent.append(data, len);
        return owner.send_result != 0 ? owner.send_result : len;
    }
    static int receive(void* context, char* buf, size_t len, size_t* got) {
        Owner& owner = *static_cast<Owner*>(context);
        *got = owner.incoming.copy(buf, len);
        owner.incoming.erase(0, *got);
        return owner.receives;
    }
    static void write_log(void* context, const char* text) {
        static_cast<Owner*>(context)->log += text;
    }
    static void yield(void* context) {
        ++static_cast<Owner*>(context)->yields;
        static_cast<Owner*>(context)->on_yield();
    }
};

constexpr TlsCallbacks owner_callbacks = {Owner::send, Owner::receive, Owner::write_log,
                                          Owner::yield};
constexpr TlsCallbacks feeding_callbacks = {Owner::send, nullptr, nullptr, nullptr};

/// A connection that plays a script of the stub provider.
struct Session : Owner {
    explicit Session(const char* script, a_qxci_side side = QXCI_CLIENT,
                     const TlsCallbacks& callbacks = owner_callbacks) {
        timelib_set_clock(&fake_clock);
        setenv("QX_USE_QXCI_STUB", "1", 1);
        env = std::make_unique<DBQXCIEnvironment>(&process_callbacks, nullptr);
        EXPECT_EQ(QXCI_OK, env->Init(false, "test", nullptr, &err));
        stream.reset(env->CreateStreamWithID(nullptr, nullptr, QXCI_STREAM_RSA_TLS, &err));
        if (stream == nullptr) std::abort();
        EXPECT_EQ(QXCI_OK, stream->Init(side, nullptr));
        a_qxci_user_option options = {"stub_script", script, false, nullptr};
        conn.emplace(stream.get(), env.get(), &callbacks, static_cast<Owner*>(this),
                     static_cast<Owner*>(this), &err, &options);
    }
    ~Session() { timelib_set_clock(nullptr); }

    a_dbqxci_error write(const char* text = "hello") { return conn->write(text, strlen(text)); }

    std::pair<a_dbqxci_error, std::string> read(size_t room) {
        std::string bytes(room, '\0');
        const a_dbqxci_error code = conn->read(bytes.data(), &room);
        EXPECT_EQ(static_cast<unsigned long>(code), conn->getLastError()->getErrorCode());
        return {code, bytes.substr(0, room)};
    }

    DBQXCIError err;
    std::unique_ptr<DBQXCIEnvironment> env;
    std::unique_ptr<DBQXCIStream> stream;
    std::optional<TlsConnection> conn;
};

/// What the codes read like.
class Texts {
  public:
    Texts() { _strings.Init("en", _locale.GetOSCharset(), false); }

    std::string of(TlsConnection& conn) {
        char text[256] = "-";
        conn.getErrorString(&_strings, text, sizeof text);
        return text;
    }
    std::string of(a_dbqxci_error code) {
        char text[256] = "-";
        DBQXCIError error;
        error.setErrorCode(code);
        error.GetString(&_strings, text, sizeof text, nullptr);
        return text;
    }

  private:
    const UTLocale _locale{ls_english(), ls_find_charset("UTF-8")};
    UTLangString _strings{_locale, RES_FOLDER};
};

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
        {"handshake done; write fail 8,71", {10}, QxciErrIOError, 0, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        Session session(c.script);
        pass_time(session, c.steps);
        EXPECT_TRUE(session.conn->IsValid());
        EXPECT_EQ(c.code, session.write());
        EXPECT_EQ(c.yields, session.yields);
        EXPECT_EQ(c.handshake_done, session.conn->doneHandshake());
        EXPECT_EQ(static_cast<unsigned long>(c.code), session.conn->getLastError()->getErrorCode());
    }
    Session established("handshake done; write done; write* block");
    EXPECT_EQ(QxciErrOK, established.write());
    EXPECT_EQ(QxciErrIOError, established.write());
    EXPECT_EQ(31, established.yields);
}

TEST(TlsConnection, reads_what_its_partial_setting_asks_for_within_31_seconds) {
    using Result = std::pair<a_dbqxci_error, std::string>;
    const struct {
        const char* script;
        bool partial;
        Steps steps;
        Result result;  // of a read with room for ten
        int yields;
    } cases[] = {
        {"read give 0123456789abc", false, {10}, {QxciErrOK, "0123456789"}, 0},
        {"read give abc; read give defghijklm", false, {10}, {QxciErrOK, "abcdefghij"}, 1},
        {"read give abc; read give defghij", true, {10}, {QxciErrOK, "abc"}, 0},
        {"read block", true, {10}, {QxciErrWouldBlock, ""}, 0},
        {"read give abc; read block", false, {10}, {QxciErrWouldBlock, "abc"}, 1},
        {"read give abc; read close", false, {10}, {QxciErrConnectionClosed, "abc"}, 1},
        {"read give abc; read fail 8,71", false, {10}, {QxciErrIOError, "abc"}, 1},
        {"read* give a", false, {1000}, {QxciErrOK, "aaaaaaaaaa"}, 9},
        {"read* give a", false, {30990, 10}, {QxciErrIOError, "aa"}, 2},
        {"read* give a", false, {-90000, 1000}, {QxciErrOK, "aaaaaaaaaa"}, 9},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        Session session((std::string("handshake done; ") + c.script).c_str());
        pass_time(session, c.steps);
        session.conn->setPartialIO(c.partial);
        EXPECT_EQ(c.result, session.read(10));
        EXPECT_EQ(c.yields, session.yields);
        EXPECT_EQ(c.result.first == QxciErrConnectionClosed,
                  session.write() == QxciErrConnectionClosed);
    }
    Session waiting("handshake* block");
    EXPECT_EQ(Result(QxciErrWouldBlock, ""), waiting.read(10));
    EXPECT_FALSE(waiting.conn->doneHandshake());
}

TEST(TlsConnection, a_shut_down_in_the_yield_is_final) {
    for (const char* script : {"write* block", "read give abc; read block",
                               "read give abc; read give def", "read* give a"}) {
        SCOPED_TRACE(script);
        Session session((std::string("handshake done; ") + script).c_str());
        session.on_yield = [&] { session.conn->shut_down(); };
        const bool writing = script[0] == 'w';
        EXPECT_EQ(QxciErrConnectionClosed, writing ? session.write() : session.read(10).first);
        EXPECT_EQ(1, session.yields);
        EXPECT_EQ(QxciErrConnectionClosed, session.write());
        EXPECT_EQ(std::pair(QxciErrConnectionClosed, std::string()), session.read(10));
        EXPECT_EQ(QxciErrConnectionClosed, session.conn->receiveBytes("x", 1));
        char byte = 0;
        size_t got = 0;
        EXPECT_EQ(QxciErrConnectionClosed, session.conn->getReceivedBytes(&byte, 1, &got));
        Texts texts;
        EXPECT_EQ(texts.of(QxciErrConnectionClosed), texts.of(*session.conn));
    }
}

TEST(TlsConnection, works_without_memory_for_a_mutex) {
    scarce_size = sizeof(DBQXCIMutex);
    Session session("handshake done; write done; read give abc");
    scarce_size = 0;
    session.conn->getMutex();
    session.conn->giveMutex();
    EXPECT_EQ(QxciErrOK, session.write());
    EXPECT_EQ(std::pair(QxciErrOK, std::string("abc")), session.read(3));
}

TEST(TlsConnection, a_provider_s_error_comes_with_its_details_and_passes) {
    Session session("handshake done; write fail 13,7,Acme; write done");
    EXPECT_EQ(QxciErrBadCompany, session.write());
    const DBQXCIError* const error = session.conn->getLastError();
    EXPECT_STREQ("Acme", error->GetParm(0));
    EXPECT_EQ(7U, error->getSystemCode());
    Texts texts;
    EXPECT_THAT(texts.of(*session.conn), testing::HasSubstr("Acme"));
    EXPECT_EQ(QxciErrOK, session.write());
    EXPECT_EQ(nullptr, error->GetParm(0));
    EXPECT_EQ("", texts.of(*session.conn));

    Session closed("handshake done; write fail 12,7,Acme");
    EXPECT_EQ(QxciErrConnectionClosed, closed.write());
    EXPECT_EQ(7U, closed.conn->getLastError()->getSystemCode());
    closed.conn->shut_down();
    EXPECT_EQ(QxciErrConnectionClosed, closed.write());
    EXPECT_EQ(nullptr, closed.conn->getLastError()->GetParm(0)) << "the same code, another error";
    EXPECT_EQ(0U, closed.conn->getLastError()->getSystemCode());
}

TEST(TlsConnection, a_failure_without_a_reason_is_a_failure) {
    Session session("handshake done; write fail 8; read fail 8");
    DBQXCIInterface* const provider = session.env->_getInterface(OTHER_IFACE);
    provider->_conn_iface.get_last_error_func = [](QXCIStreamConnH) {
        static constexpr a_qxci_error none = {};
        return &none;
    };
    provider->Release();
    EXPECT_EQ(QxciErrUnknown, session.write());
    EXPECT_EQ(QxciErrUnknown, session.read(10).first);
}

TEST(TlsConnection, a_refused_connection_is_not_valid_and_says_why) {
    for (const char* script : {"conn fail 14,3,Sales", "handshake fail 14,3,Sales"}) {
        Session session(script);
        EXPECT_FALSE(session.conn->IsValid());
        EXPECT_EQ(QxciErrBadUnit, session.err.getErrorCode());
        Texts texts;
        EXPECT_THAT(texts.of(*session.conn), testing::HasSubstr("Sales"));
        EXPECT_EQ(QxciErrUnknown, session.write());
        EXPECT_EQ(QxciErrUnknown, session.read(10).first);
    }
}

TEST(TlsConnection, a_server_is_fed_and_does_not_write_before_the_handshake) {
    Session session("", QXCI_SERVER, feeding_callbacks);
    EXPECT_FALSE(session.conn->isClientConnection());
    EXPECT_EQ(3U, session.conn->getAlgorithmID());
    EXPECT_EQ(QxciErrHandshakeFailed, session.write());
    const std::string raw = record("HELLO", "client\n") + record("DATA_", "EHLO\r\n");
    session.conn->setPartialIO(true);
    for (size_t fed = 0; fed < raw.size(); fed += 9) {
        EXPECT_EQ(QxciErrWouldBlock, session.read(100).first);
        const std::string piece = raw.substr(fed, 9);
        EXPECT_EQ(QxciErrOK, session.conn->receiveBytes(piece.data(), piece.size()));
        EXPECT_EQ(QxciErrOK, session.conn->receiveBytes(nullptr, 0));
    }
    EXPECT_EQ(std::pair(QxciErrOK, std::string("EHLO\r\n")), session.read(100));
    EXPECT_EQ(QxciErrOK, session.write("250\r\n"));
    session.conn.reset();
    EXPECT_EQ(record("HELLO", "server\n") + record("DATA_", "250\r\n") + record("CLOSE", ""),
              session.sent);
}

TEST(TlsConnection, saved_bytes_are_handed_out_in_whole_requests) {
    Session session("handshake done", QXCI_CLIENT, feeding_callbacks);
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
    EXPECT_EQ(QxciErrWouldBlock, take(61));
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
    session.send_result = 0;  // as many as asked
    EXPECT_EQ(QXCI_IO_OK, QXCI_WriteCallback(&*session.conn, bytes, 5));
    EXPECT_EQ(QXCI_IO_ERROR, QXCI_WriteCallback(&*session.conn, bytes, 0)) << "nothing sent";

    EXPECT_EQ(QXCI_IO_WOULD_BLOCK, tls_conn_callbacks.read_cb(&*session.conn, bytes, 5, &got));
    session.incoming = "xyz";
    EXPECT_EQ(QXCI_IO_OK, tls_conn_callbacks.read_cb(&*session.conn, bytes, 5, &got));
    EXPECT_EQ(3U, got);
    session.receives = 0;
    EXPECT_EQ(QXCI_IO_ERROR, tls_conn_callbacks.read_cb(&*session.conn, bytes, 5, &got));

    for (const int level : {-1, 0, 9}) {
        EXPECT_EQ(0, tls_conn_callbacks.log_cb(&*session.conn, level, "line.", bytes, 5));
        EXPECT_EQ(0, tls_conn_callbacks.log_cb(&*session.conn, level, nullptr, bytes, 5));
    }
    EXPECT_THAT(session.log, testing::EndsWith("protectedline.line."));
    EXPECT_EQ(nullptr, tls_conn_callbacks.blocked_io_complete_cb);
    EXPECT_EQ(nullptr, tls_conn_callbacks.check_client_cert_cb);
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
    const std::string large(2 * 16384 + 1, 'x');
    EXPECT_EQ(large.size(), put(large));
    const std::string full = record("DATA_", std::string(16384, 'x'));
    EXPECT_EQ(record("DATA_", "QUIT\r\n") + full + full + record("DATA_", "x"), session.sent);
    EXPECT_EQ(0U, in.get(bytes, sizeof bytes));
    EXPECT_TRUE(in.eof());
    EXPECT_EQ(static_cast<size_t>(-1), put("x"));
    EXPECT_FALSE(out.eof());
}

TEST(TlsReadBuffer, hands_its_bytes_out_once) {
    const char data[] = "0123456789";
    TlsReadBuffer ten(data, 10);
    char out[11] = "";
    EXPECT_EQ(4U, ten.read(out, 4));
    EXPECT_EQ(4U, ten.read(out + 4, 4));
    EXPECT_FALSE(ten.finished());
    EXPECT_EQ(2U, ten.read(out + 8, 4));
    EXPECT_STREQ(data, out);
    EXPECT_TRUE(ten.finished());
    EXPECT_EQ(0U, ten.read(out, 4));
    TlsReadBuffer none(nullptr, 0);
    EXPECT_TRUE(none.is_valid() && none.finished());
    EXPECT_EQ(0U, none.read(out, 4));
}

}  // namespace
