#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

#include "netlib/netsmtp.h"
#include "netlib/smtpbuffer.h"
#include "netlib/socketstream.h"
#include "tests/netlib/scarcememory.h"
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
    explicit TestClient(const std::string& bytes)
        : TestClient(std::vector<ScriptedSocket::Piece>{{bytes}}) {}

    using SMTPClient::_ReadLine;
    using SMTPClient::_SendRawText;

    int read_reply(bool to_ehlo = true) { return _ProcessResponse(reply, to_ehlo); }
    int say_hello(const char* sender, const char* name = nullptr) {
        return _SMTPConnect(reply, sender, name, 1);
    }
    int log_in(const char* user, const char* password) {
        return _SMTPAuthenticate(reply, user, password);
    }
    int send(const char* subject, std::vector<const char*> to, const char* attachment = nullptr) {
        return SendMessage(subject, "body", to.data(), static_cast<int>(to.size()), nullptr, 0,
                           nullptr, 0, attachment, nullptr);
    }

    std::vector<std::string> capabilities() const {
        return {_ehlo_responses.begin(), _ehlo_responses.end()};
    }

    ScriptedSocket socket;
    a_reply reply;
};

using Lines = std::vector<std::string>;

TEST(SmtpReply, may_be_split_anywhere) {
    const std::string reply = "250-one\r\n250-AUTH PLAIN\r\n250 three\r\n";
    for (size_t at = 1; at < reply.size(); ++at) {
        TestClient client({{reply.substr(0, at)}, {"", EAGAIN}, {reply.substr(at)}});
        EXPECT_EQ(0, client.read_reply()) << at;
        EXPECT_EQ(250, client.reply.code);
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
        {"250 a\nb\rc\r\n", 0, 250, {"a"}},
        {"250 AB\rC\r\n", 0, 250, {"AB"}},
        {"250 \r\n", 0, 250, {""}},
        {"250 ", 0, 250, {""}},
        {"250", 104, 0, {}},
        {"250x\r\n", 104, 0, {}},
        {"2 0 x\r\n", 104, 0, {}},
        {std::string("2\0000 \r\n", 6), 104, 0, {}},
        {"", 104, 0, {}},
        {"250-a\r\n251 b\r\n", 0, 251, {"a", "b"}},
        {"250-a\r\n", 104, 250, {"a"}},
        {std::string("250 a\0b\r\n", 9), 0, 250, {"a"}},
        // Lines of 258, 256, 257 and 258 bytes, of which 256 are read at a time.
        {"250 " + filler + "x\r\n", 0, 250, {filler + "x"}},
        {"250-" + filler.substr(1) + "\r\n250 b\r\n", 0, 250, {filler.substr(1), "b"}},
        {"250-" + filler + "\r\n250 b\r\n", 104, 250, {filler}},
        {"250-" + filler + "x\r\n250 b\r\n", 104, 250, {filler + "x"}},
    };
    for (const Case& c : cases) {
        TestClient client(c.reply);
        std::memset(client.reply.line, '7', sizeof client.reply.line);
        std::memcpy(client.reply.line, "250 ", 4);  // what a former reply has left there
        EXPECT_EQ(c.result, client.read_reply()) << c.reply;
        EXPECT_EQ(c.code, client.reply.code) << c.reply;
        EXPECT_EQ(c.capabilities, client.capabilities()) << c.reply;
    }
    const std::unique_ptr<char[]> full(new char[6]);  // of exactly that size, for the checker
    EXPECT_EQ(6U, TestClient("250 a\n")._ReadLine(full.get(), 6));
}

TEST(SmtpReply, has_at_most_a_thousand_lines) {
    for (const int lines : {1000, 1001}) {
        std::vector<ScriptedSocket::Piece> pieces(static_cast<size_t>(lines) - 1, {"250-x\r\n"});
        pieces.push_back({"250 x\r\n"});
        TestClient client(std::move(pieces));
        EXPECT_EQ(lines == 1000 ? 0 : 104, client.read_reply());
        EXPECT_EQ(1000U, client.capabilities().size());
    }
}

TEST(SmtpReply, capabilities_are_found_by_prefix_in_any_case_until_the_next_hello) {
    TestClient client("250-me\r\n250-AUTHX\r\n250 AUTH PLAIN\r\n");
    EXPECT_EQ(nullptr, client.FindServerCapability("AUTH"));
    client.read_reply();
    EXPECT_STREQ("AUTHX", client.FindServerCapability("auth"));
    EXPECT_STREQ("AUTH PLAIN", client.FindServerCapability("AUTH "));
    EXPECT_EQ(nullptr, client.FindServerCapability("STARTTLS"));
    EXPECT_EQ(104, client.read_reply());
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
        EXPECT_EQ(c.result, client.send(nullptr, {nullptr})) << c.good_sends;
        EXPECT_EQ(c.replies, client.socket.recvs) << "what did not go out is not waited for";
        const std::string& sent = client.socket.sent;
        EXPECT_EQ(sent.substr(0, envelope.size()), envelope.substr(0, sent.size()));
        EXPECT_EQ(c.result == 0, sent.size() > envelope.size());
        if (c.result == 0) continue;
        const size_t size = sent.size();
        client.socket.good_sends = 1000;
        EXPECT_EQ(104, client.send(nullptr, {nullptr}));
        EXPECT_EQ(size, sent.size()) << "nothing goes into a broken message";
    }
}

// Whether memory that was freed held a secret.
bool secret_left = false;
const std::vector<std::string> secrets = {"open sesame", "AHUAb3BlbiBzZXNhbWU="};

void look(std::string_view bytes) {
    for (const std::string& secret : secrets)
        secret_left |= bytes.find(secret) != std::string_view::npos;
}

TEST(SmtpSteps, a_request_for_memory_that_fails_gives_15_and_no_half_of_anything) {
    const ScratchFolder folder;
    const std::string file = folder.file_with("file", "contents");
    std::string whole;
    // Backwards from where there is enough, so that the first one shows what all is sent.
    for (int good = 100; good >= 0; --good) {
        TestClient client("250-me\r\n250 AUTH PLAIN\r\n235 in\r\n250 ok\r\n250 ok\r\n250 ok\r\n"
                          "354 go on\r\n250 taken\r\n");
        int result = 0;
        bool enough = false;
        {
            const auto scarce = ScarceMemory::after(good, look);
            result = client.say_hello("ann", "Ann");
            if (result == 0) result = client.log_in("u", "open sesame");
            if (result == 0) result = client.send("\xe9", {"bob", "eve"}, file.c_str());
            enough = !scarce.has_failed();
        }
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
    TestClient client("250 AUTH PLAIN\r\n");
    EXPECT_EQ(0, client.read_reply());
    client.socket.good_sends = 0;
    EXPECT_EQ(104, client.log_in("u", "p"));
    EXPECT_EQ(104, client.say_hello("a"));
    client.Disconnect();
    EXPECT_EQ(1, client.socket.recvs);
    EXPECT_EQ(15, client.say_hello(nullptr));
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
    buffer.append(nullptr);
    EXPECT_EQ(nullptr, buffer.c_str());
    for (const auto& [text, capacity] :
         {std::pair{"", 1U}, {"abc", 4U}, {"", 4U}, {"d", 7U}, {"ef", 7U}, {"g", 12U}}) {
        buffer.append(text);
        EXPECT_EQ(capacity, buffer.capacity()) << text;
    }
    {
        const ScarceMemory none;
        buffer.append("h and more than fits");
    }
    buffer.append("i");
    EXPECT_STREQ("abcdefgi", buffer.c_str());
    EXPECT_FALSE(buffer.is_whole()) << "what came after it does not make up for it";
    buffer.assign("x");
    EXPECT_TRUE(buffer.is_whole());
    EXPECT_STREQ("x", buffer.c_str());
}

}  // namespace
