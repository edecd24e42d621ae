// Every short reply that a server could give, and every short text that a message could have.

#include <optional>

#include "netlib/netsmtp.h"
#include "netlib/socketstream.h"
#include "tests/world.h"

namespace {

/// Receives a text in two pieces, and keeps what is sent.
class CutSocket final : public Socket {
  public:
    using Socket::recv;
    using Socket::send;

    int recv(char* buf, unsigned int len) override {
        const std::size_t piece = at < cut ? cut - at : std::min(step, text.size() - at);
        const std::size_t count = text.copy(buf, std::min<std::size_t>(len, piece), at);
        at += count;
        return static_cast<int>(count);
    }
    int send(const char* buf, unsigned int len) override {
        sent.append(buf, len);
        return static_cast<int>(len);
    }
    void shutdown(a_socket_shutdown_flag) override {}

    std::string_view text;
    std::size_t cut = 0;
    std::size_t step = std::string::npos;  // behind the cut
    std::size_t at = 0;
    std::string sent;
};

/// What a reader of replies makes of a text, and the length of the line behind the reply.
struct Outcome {
    bool operator==(const Outcome&) const = default;

    int result = SMTP_BAD_REPLY;
    int code = 0;
    std::string capabilities;
    std::size_t next_line = 0;
};

std::string_view take_line(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end);
    return line;
}

/// RFC 5321, section 4.2, taken apart with no regard to how it arrives. A code is of twos here.
Outcome model(std::string_view text) {
    Outcome outcome;
    while (outcome.result != SMTP_OK) {
        const std::string_view line = take_line(text);
        if (!line.starts_with("222 ") && !line.starts_with("222-")) break;
        outcome.code = 222;
        const std::string_view said = line.substr(4, line.find('\0') - 4);
        const std::size_t end = std::min(said.find('\r'), said.find('\n'));
        outcome.capabilities.append(said.substr(0, end)) += '|';
        if (line[3] == ' ') outcome.result = SMTP_OK;
    }
    outcome.next_line = take_line(text).size();
    return outcome;
}

class Client : public SMTPClient {
  public:
    Client() {
        _istrm = std::make_unique<SockIStream>(_wire, &_heap);
        _ostrm = std::make_unique<SockOStream>(_wire);
    }

    Outcome read(std::string_view text, std::size_t cut, std::size_t step) {
        receive(text, cut, step);
        _istrm = std::make_unique<SockIStream>(_wire, &_heap);
        a_reply reply;
        Outcome outcome;
        outcome.result = _ProcessResponse(reply, true);
        outcome.code = reply.code;
        for (const char* said : _ehlo_responses) outcome.capabilities.append(said) += '|';
        char line[256];
        outcome.next_line = _ReadLine(line, sizeof line);
        return outcome;
    }

    /// What a server is sent for a message of `body`, from behind the header to the line that ends
    /// it; nothing if the message fails.
    std::string_view send(const std::string& body) {
        receive("250 ok\r\n354 go on\r\n250 taken\r\n", 0, std::string::npos);
        _wire.sent.clear();
        const int result = SendMessage(nullptr, body.c_str(), nullptr, 0, nullptr, 0, nullptr, 0,
                                       nullptr, nullptr);
        const std::string_view said = _wire.sent;
        const std::size_t header_end = said.find("\r\n\r\n");
        return result != SMTP_OK || header_end == said.npos ? "" : said.substr(header_end + 4);
    }

  private:
    void receive(std::string_view text, std::size_t cut, std::size_t step) {
        _wire.text = text;
        _wire.cut = cut;
        _wire.step = step;
        _wire.at = 0;
    }

    CutSocket _wire;
};

/// AddressSanitizer's settings: what is freed is held back for the readings that follow, not for
/// millions of them, and stacks are short. Else it takes four times as long.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "quarantine_size_mb=1:malloc_context_size=1";
}

const auto whole = std::string::npos;
const std::string_view bytes("2- \r\n\0x", 7);

bool is_read_like_the_model(Client& client, const std::string& text) {
    const Outcome expected = model(text);
    for (std::size_t cut = 0; cut < std::max<std::size_t>(text.size(), 1); ++cut)
        if (client.read(text, cut, whole) != expected) return false;
    // All cuts at once.
    return text.size() > 6 || client.read(text, 0, 1) == expected;
}

TEST(AllReplies, of_up_to_eight_bytes_are_read_like_the_model_wherever_they_are_cut) {
    Client client;
    EXPECT_TRUE(world::holds_for_all(world::letters(bytes), 8, [&](const std::string& text) {
        return is_read_like_the_model(client, text);
    }));
}

TEST(AllReplies, of_up_to_six_parts_are_read_like_the_model_wherever_they_are_cut) {
    Client client;
    EXPECT_TRUE(world::holds_for_all(
        {"222-", "222 ", "22", "\r", "\n", "x"}, 6,
        [&](const std::string& text) { return is_read_like_the_model(client, text); }));
}

/// What a server takes for the end of a line: its length at the start of `text`, 0 for none.
using LineEnd = std::size_t (*)(std::string_view text);
std::size_t strict(std::string_view text) {
    return text.starts_with("\r\n") ? 2 : 0;
}
std::size_t lenient(std::string_view text) {
    return text.starts_with('\n') ? 1 : strict(text);
}
std::size_t careless(std::string_view text) {
    return std::max<std::size_t>(lenient(text), text.starts_with('\r') ? 1 : 0);
}

/// The message that a server makes of what it is sent (RFC 5321, section 4.5.2); null when that
/// ends too early, or not at all.
std::optional<std::string> received(std::string_view wire, LineEnd line_end) {
    std::string message;
    bool begins_line = true;
    for (std::size_t at = 0; at < wire.size();) {
        if (begins_line && wire[at] == '.') {
            const std::size_t end = line_end(wire.substr(++at));
            if (end != 0 && at + end != wire.size()) return std::nullopt;
            if (end != 0) return message;
        }
        const std::size_t end = line_end(wire.substr(at));
        begins_line = end != 0;
        const std::size_t count = std::max<std::size_t>(end, 1);
        message.append(wire.substr(at, count));
        at += count;
    }
    return std::nullopt;
}

/// The library doubles a dot behind a bare LF too, where a strict server sees no new line.
std::string with_dots_behind_bare_lf(std::string text) {
    for (std::size_t at = 1; (at = text.find("\n.", at)) != std::string::npos; at += 2)
        if (text[at - 1] != '\r') text.insert(at + 1, ".");
    if (text.starts_with("\n.")) text.insert(1, ".");
    return text;
}

// A message as it is composed ends with CRLF, whatever its body ends with.
TEST(AllTexts, of_up_to_nine_bytes_reach_a_lenient_server_unchanged_and_a_strict_one_in_one_piece) {
    Client client;
    EXPECT_TRUE(world::holds_for_all(world::letters("\r\n.a"), 9, [&](const std::string& body) {
        const std::string text = body + "\r\n";
        const std::string_view wire = client.send(body);
        return received(wire, lenient) == text &&
               received(wire, strict) == with_dots_behind_bare_lf(text);
    }));
}

// As the hosts hand texts over.
TEST(AllTexts, with_whole_line_ends_reach_every_server_unchanged) {
    Client client;
    EXPECT_TRUE(world::holds_for_all({"\r\n", ".", "a"}, 9, [&](const std::string& body) {
        const std::string text = body + "\r\n";
        const std::string_view wire = client.send(body);
        return received(wire, strict) == text && received(wire, lenient) == text &&
               received(wire, careless) == text;
    }));
}

}  // namespace
