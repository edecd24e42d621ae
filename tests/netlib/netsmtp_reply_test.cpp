#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>
#include <malloc.h>

#include "netlib/netsmtp.h"
#include "netlib/smtpbuffer.h"
#include "netlib/socketstream.h"
#include "tests/scratch.h"

namespace {

/// A socket that receives what the test says, piece by piece, then nothing but the end.
class ScriptedSocket : public Socket {
  public:
    struct Piece {
        std::string bytes;
        int error = 0;  // recv fails with this instead
    };
    std::vector<Piece> pieces;
    std::string sent;
    int recvs = 0;
    int shutdowns = 0;
    int good_sends = 1000;  // before all others fail

    using Socket::recv;
    using Socket::send;

    int recv(char* buf, unsigned int len) override {
        ++recvs;
        if (pieces.empty()) return 0;
        const Piece piece = pieces.front();
        pieces.erase(pieces.begin());
        errno = piece.error;
        if (piece.error != 0) return -1;
        EXPECT_LE(piece.bytes.size(), len);
        std::memcpy(buf, piece.bytes.data(), piece.bytes.size());
        return static_cast<int>(piece.bytes.size());
    }
    int send(const char* buf, unsigned int len) override {
        if (good_sends-- <= 0) return -1;
        sent.append(buf, len);
        return static_cast<int>(len);
    }
    void shutdown(a_socket_shutdown_flag flag) override {
        EXPECT_EQ(SHUTDOWN_RECV, flag);
        ++shutdowns;
    }
};

/// A client over such a socket.
class TestClient : public SMTPClient {
  public:
    explicit TestClient(std::vector<ScriptedSocket::Piece> pieces) {
        socket.pieces = std::move(pieces);
        _istrm = std::make_unique<SockIStream>(socket, &_heap);
        _ostrm = std::make_unique<SockOStream>(socket);
    }
    // Whose time-out is none unless it is set here.
    using SMTPClient::_socket;
    explicit TestClient(const std::string& reply)
        : TestClient(std::vector<ScriptedSocket::Piece>{{reply}}) {}

    using SMTPClient::_ProcessResponse;
    using SMTPClient::_SendRawText;
    using SMTPClient::_SMTPAuthenticate;
    using SMTPClient::_SMTPConnect;

    std::vector<std::string> capabilities() const {
        std::vector<std::string> all;
        for (char** c = _ehlo_responses; c != nullptr && *c != nullptr; ++c) all.emplace_back(*c);
        return all;
    }

    ScriptedSocket socket;
};

using Lines = std::vector<std::string>;

TEST(SmtpReply, may_be_split_anywhere) {
    const std::string reply = "250-one\r\n250-AUTH PLAIN\r\n250 three\r\n";
    for (size_t at = 1; at < reply.size(); ++at) {
        TestClient client({{reply.substr(0, at)}, {"", EAGAIN}, {reply.substr(at)}});
        char buf[256];
        int code = 0;
        EXPECT_EQ(0, client._ProcessResponse(buf, sizeof buf, &code, true)) << at;
        EXPECT_EQ(250, code);
        EXPECT_EQ((Lines{"one", "AUTH PLAIN", "three"}), client.capabilities());
        EXPECT_EQ(3, client.socket.recvs);
    }
}

TEST(SmtpReply, keeps_what_a_line_says_and_never_reads_beyond_it) {
    const std::string filler(251, 'x');
    struct Case {
        std::string reply;
        int result;
        int code;
        Lines capabilities;
    };
    const Case cases[] = {
        {"250 AUTH\n", 0, 250, {"AUTH"}},
        {"250 a\nb\rc\r\n", 0, 250, {"a"}},
        {"250 AB\rC\r\n", 0, 250, {"AB"}},
        {"250 \r\n", 0, 250, {""}},
        {"250 ", 0, 250, {""}},
        {"250", 104, 0, {}},
        {"", 104, 0, {}},
        {"250-a\r\n251 b\r\n", 0, 251, {"a", "b"}},
        {"250-a\r\n", 104, 250, {"a"}},
        {std::string("250 a\0b\r\n", 9), 0, 250, {"a"}},
        // Lines of 255, 256 and 257 bytes.
        {"250 " + filler.substr(2) + "\r\n", 0, 250, {filler.substr(2)}},
        {"250 " + filler.substr(1) + "\r\n", 0, 250, {filler.substr(1)}},
        {"250 " + filler + "\r\n", 0, 250, {filler}},
        {"250 " + filler + "x\r\n", 0, 250, {filler + "x"}},
        {"250-" + filler.substr(1) + "\r\n250 b\r\n", 0, 250, {filler.substr(1), "b"}},
        {"250-" + filler + "\r\n250 b\r\n", 104, 250, {filler}},
        {"250-" + filler + "x\r\n250 b\r\n", 104, 250, {filler + "x"}},
    };
    for (const Case& c : cases) {
        TestClient client(c.reply);
        const std::unique_ptr<char[]> buf(new char[256]);  // of exactly that size, for the checker
        std::memset(buf.get(), '7', 256);
        std::memcpy(buf.get(), "250 ", 4);  // what a former reply has left there
        int code = 0;
        EXPECT_EQ(c.result, client._ProcessResponse(buf.get(), 256, &code, true)) << c.reply;
        EXPECT_EQ(c.code, code) << c.reply;
        EXPECT_EQ(c.capabilities, client.capabilities()) << c.reply;
    }
}

TEST(SmtpReply, has_at_most_a_thousand_lines) {
    for (const int lines : {1000, 1001}) {
        std::vector<ScriptedSocket::Piece> pieces(static_cast<size_t>(lines) - 1, {"250-x\r\n"});
        pieces.push_back({"250 x\r\n"});
        TestClient client(std::move(pieces));
        char buf[256];
        int code = 0;
        EXPECT_EQ(lines == 1000 ? 0 : 104, client._ProcessResponse(buf, sizeof buf, &code, true));
        EXPECT_EQ(1000U, client.capabilities().size());
    }
}

TEST(SmtpReply, capabilities_are_found_by_prefix_in_any_case_until_the_next_hello) {
    TestClient client("250-me\r\n250-AUTHX\r\n250 AUTH PLAIN\r\n");
    EXPECT_EQ(nullptr, client.FindServerCapability("AUTH"));
    char buf[256];
    int code = 0;
    client._ProcessResponse(buf, sizeof buf, &code, true);
    EXPECT_STREQ("AUTHX", client.FindServerCapability("auth"));
    EXPECT_STREQ("AUTH PLAIN", client.FindServerCapability("AUTH "));
    EXPECT_EQ(nullptr, client.FindServerCapability("STARTTLS"));
    EXPECT_EQ(15, client._ProcessResponse(nullptr, 0, &code, true));
    EXPECT_EQ(nullptr, client.FindServerCapability("AUTH"));
}

TEST(SmtpText, doubles_dots_that_begin_lines_up_to_a_zero_byte) {
    struct Case {
        std::string text, sent;
        bool open_line;
    };
    const Case cases[] = {
        {"a", "a", true},
        {"a\n", "a\n", false},
        {".", "..", true},
        {"..\n..", "...\n...", true},
        {"\n\n.\n", "\n\n..\n", false},
        {"a.\r.\n", "a.\r.\n", false},
        {std::string("\n.\0\n.\n", 6), std::string("\n..\0\n.\n", 7), true},
    };
    for (const Case& c : cases) {
        TestClient client("");
        a_bool open_line = !c.open_line;
        EXPECT_EQ(0, client._SendRawText(c.text.data(), c.text.size(), &open_line));
        EXPECT_EQ(c.sent, client.socket.sent);
        EXPECT_EQ(c.open_line, open_line) << c.text;
    }
}

TEST(SmtpText, that_never_left_is_not_accepted_whatever_the_server_says) {
    const struct {
        int good_sends, result, replies;
    } cases[] = {{1000, 0, 4}, {3, 104, 3}, {2, 104, 2}, {1, 104, 1}, {0, 104, 0}};
    const std::string envelope = "MAIL FROM:<>\r\nRCPT TO:<>\r\nDATA\r\n";
    for (const auto& c : cases) {
        TestClient client({{"250 ok\r\n"}, {"250 ok\r\n"}, {"354 go on\r\n"}, {"250 taken\r\n"}});
        client.socket.good_sends = c.good_sends;
        const auto send = [&](const char* to) {
            return client.SendMessage(nullptr, "x", &to, 1, nullptr, 0, nullptr, 0, nullptr,
                                      nullptr);
        };
        EXPECT_EQ(c.result, send(nullptr)) << c.good_sends;
        EXPECT_EQ(c.replies, client.socket.recvs) << "what did not go out is not waited for";
        const std::string& sent = client.socket.sent;
        EXPECT_EQ(sent.substr(0, envelope.size()), envelope.substr(0, sent.size()));
        EXPECT_EQ(c.result == 0, sent.size() > envelope.size());
        if (c.result == 0) continue;
        const size_t size = sent.size();
        client.socket.good_sends = 1000;
        EXPECT_EQ(104, send(nullptr));
        EXPECT_EQ(size, sent.size()) << "nothing goes into a broken message";
    }
}

a_utmem_source no_memory = {[](size_t) -> void* { return nullptr; }, realloc, free,
                            [] { return false; }};

// How many allocations go well before one fails; and whether memory that was freed held a secret.
int good_allocations = 0;
bool secret_left = false;
const std::vector<std::string> secrets = {"open sesame", "AHUAb3BlbiBzZXNhbWU="};

a_utmem_source scarce = {
    [](size_t size) -> void* { return good_allocations-- == 0 ? nullptr : malloc(size); }, realloc,
    [](void* block) {
        const std::string_view bytes(static_cast<char*>(block), malloc_usable_size(block));
        for (const std::string& secret : secrets)
            secret_left |= bytes.find(secret) != std::string_view::npos;
        free(block);
    },
    [] { return false; }};

TEST(SmtpSteps, an_allocation_that_fails_gives_15_and_no_half_of_anything) {
    const ScratchFolder folder;
    const std::string file = folder.file_with("file", "contents");
    std::string whole;
    std::string failed;
    // Backwards from where there is enough, so that the first one shows what all is sent.
    for (int good = 100; good >= 0; --good) {
        TestClient client("250-me\r\n250 AUTH PLAIN\r\n235 in\r\n250 ok\r\n250 ok\r\n250 ok\r\n"
                          "354 go on\r\n250 taken\r\n");
        char buf[256];
        int code = 0;
        const char* to[] = {"bob", "eve"};
        good_allocations = good;
        utmem_set_source(&scarce);
        int result = client._SMTPConnect(buf, sizeof buf, "ann", "Ann", 1, &code);
        if (result == 0)
            result = client._SMTPAuthenticate(buf, sizeof buf, "u", "open sesame", &code);
        if (result == 0) {
            result = client.SendMessage("\xe9", "body", to, 2, nullptr, 0, nullptr, 0, file.c_str(),
                                        nullptr);
        }
        const bool enough = good_allocations >= 0;
        utmem_set_source(nullptr);
        EXPECT_EQ(enough ? 0 : 15, result) << good;
        std::string sent = client.socket.sent;
        if (enough) {
            whole = sent;
            continue;
        }
        if (sent.ends_with("RSET\r\n")) sent.erase(sent.size() - 6);
        EXPECT_EQ(sent, whole.substr(0, sent.size()));
        EXPECT_EQ(std::string::npos, sent.find("DATA")) << "begun only when it can be ended";
        EXPECT_TRUE(sent.empty() || sent.ends_with("\r\n")) << sent;
    }
    EXPECT_NE(std::string::npos, whole.find(secrets[1]));
    EXPECT_FALSE(secret_left);
}

TEST(SmtpSteps, a_line_that_does_not_go_out_ends_its_step) {
    char buf[256];
    int code = 0;
    TestClient client("250 AUTH PLAIN\r\n");
    EXPECT_EQ(0, client._ProcessResponse(buf, sizeof buf, &code, true));
    client.socket.good_sends = 0;
    EXPECT_EQ(104, client._SMTPAuthenticate(buf, sizeof buf, "u", "p", &code));
    EXPECT_EQ(104, client._SMTPConnect(buf, sizeof buf, "a", nullptr, 1, &code));
    client.Disconnect();
    EXPECT_EQ(1, client.socket.recvs);
}

TEST(SmtpSteps, without_a_buffer_a_sender_or_memory_give_15) {
    TestClient client("250 AUTH PLAIN\r\n");
    char buf[256];
    int code = 0;
    EXPECT_EQ(15, client._SMTPConnect(nullptr, 0, "a", nullptr, 1, &code));
    EXPECT_EQ(15, client._SMTPConnect(buf, sizeof buf, nullptr, nullptr, 1, &code));
    EXPECT_EQ(15, client._SMTPAuthenticate(nullptr, 0, nullptr, nullptr, &code));
    EXPECT_EQ(0, client._ProcessResponse(buf, sizeof buf, &code, true));
    utmem_set_source(&no_memory);
    EXPECT_EQ(15, client._SMTPAuthenticate(buf, sizeof buf, "u", "p", &code));
    utmem_set_source(nullptr);
    EXPECT_EQ("", client.socket.sent);
}

TEST(SockIStream, hands_out_what_has_arrived_and_ends_with_the_connection) {
    ScriptedSocket socket;
    socket.pieces = {{"abcd"}, {"", EAGAIN}, {"ef"}, {"", ECONNRESET}, {"never"}};
    SockIStream stream(socket, nullptr);
    char buf[10];
    EXPECT_EQ(4U, stream.get(buf, sizeof buf));
    EXPECT_EQ(1, socket.recvs);
    EXPECT_EQ(0U, stream.get(buf, sizeof buf));
    EXPECT_FALSE(stream.eof());
    EXPECT_EQ(1U, stream.get(buf, 1));
    EXPECT_EQ(1U, stream.get(buf, sizeof buf));
    EXPECT_EQ(0U, stream.get(buf, sizeof buf));
    EXPECT_TRUE(stream.eof());
    EXPECT_EQ(1, socket.shutdowns);
}

TEST(Buffer, grows_by_its_rule_and_drops_what_does_not_fit) {
    Buffer buffer;
    EXPECT_EQ(nullptr, buffer.c_str());
    buffer.append(nullptr);
    EXPECT_EQ(nullptr, buffer.c_str());
    struct Step {
        const char* text;
        size_t length, capacity;
    };
    for (const Step& step : {Step{"", 0, 1}, Step{"abc", 3, 4}, Step{"", 3, 4}, Step{"d", 4, 7},
                             Step{"ef", 6, 7}, Step{"g", 7, 12}}) {
        buffer.append(step.text);
        EXPECT_EQ(step.length, buffer.length()) << step.text;
        EXPECT_EQ(step.capacity, buffer.capacity()) << step.text;
    }
    EXPECT_STREQ("abcdefg", buffer.c_str());
    utmem_set_source(&no_memory);
    Buffer empty;
    empty.append("dropped");
    buffer.append("h and more than fits");
    utmem_set_source(nullptr);
    EXPECT_EQ(nullptr, empty.c_str());
    EXPECT_STREQ("abcdefg", buffer.c_str());
    EXPECT_EQ(7U, buffer.length());
    EXPECT_FALSE(buffer.is_whole());
    buffer.append("i");
    EXPECT_FALSE(buffer.is_whole()) << "what came after it does not make up for it";
    buffer.assign("x");
    EXPECT_TRUE(buffer.is_whole());
    EXPECT_STREQ("x", buffer.c_str());
    EXPECT_EQ(12U, buffer.capacity());
}

}  // namespace
