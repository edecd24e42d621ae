#ifndef QUOREL_HOST_WORKER_FRAMES_H
#define QUOREL_HOST_WORKER_FRAMES_H

/// What a host and its worker say to each other over their socket pair.
///
/// Every frame is a header of 16 bytes and a payload of as many bytes as the header says. Numbers
/// have the machine's byte order, since both ends run on it, and the same widths in every build, so
/// that a 64-bit host drives a 32-bit worker. No frame is longer than longest_payload, so neither
/// side ever holds more of a value than that.
///
/// Neither side trusts the other: what read_header() or read_call() does not accept ends the
/// worker. The host begins with Hello, which Ready or Failed answers. A Call is answered by Done,
/// or Failed where nothing was called; between the two come Want and Set from the worker, and from
/// the host Piece as the answer to each Want. The end of the stream is the end of the other side.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "extdll/extfn.h"

namespace host {

/// Raised with each change to this file's meaning. It stands in Hello and Ready, whose headers
/// never change.
inline constexpr std::uint32_t frames_version = 1;

inline constexpr std::uint32_t longest_piece = 65536;
inline constexpr std::uint32_t longest_payload = 131072;
inline constexpr std::uint32_t longest_path = 4096;
inline constexpr std::uint32_t longest_sentence = 8192;
/// Pieces that one Want asks for at most, so that a long value does not cost a wait for each.
inline constexpr unsigned pieces_per_want = 8;

enum class FrameKind : std::uint8_t {
    // From the host.
    Hello = 1,  ///< number: version; offset: see SharedPieces::open(); payload: the library's path
    Call,       ///< number: of this call; payload: see read_call()
    Piece,      ///< number: argument; offset; payload: its bytes from there, none: there is none
    Refuse,     ///< number: of the value whose last piece was refused
    Taken,      ///< number: of the slot that is free again
    // From the worker.
    Ready = 65,  ///< number: version
    Failed,      ///< payload: a sentence that says why, cut at longest_sentence
    Want,        ///< number: argument, offset: asks for the pieces from there on
    Set,         ///< number: value, 0 for the result; type; payload: its bytes
    Done,        ///< the procedure has returned
    Share  ///< like Set, the bytes in slot `offset` of SharedPieces; payload: their uint32 count
};

enum class Sender { Host, Worker };

/// Bits of Frame::flags, each allowed in one kind of frame.
enum FrameFlag : std::uint8_t {
    FRAME_APPEND = 1,    ///< Set: adds to the value
    FRAME_NULL = 2,      ///< Set: the value is NULL
    FRAME_MORE = 4,      ///< Piece: another one follows for the same Want
    FRAME_CANCELLED = 8  ///< Done: what the procedure waited for was cancelled
};

struct Frame {
    FrameKind kind = FrameKind::Done;
    std::uint8_t flags = 0;
    a_sql_data_type type = 0;
    std::uint32_t number = 0;
    std::uint32_t offset = 0;
    std::string_view payload = {};
};

using FrameHeader = std::array<char, 16>;

/// The header of `frame`, whose payload is not longer than longest_payload.
[[nodiscard]] FrameHeader header_of(const Frame& frame);

/// Takes a header from `sender` apart: all of `frame` but the payload, whose length is `length`.
/// False when that sender sends no such frame.
[[nodiscard]] bool read_header(const FrameHeader& header, Sender sender, Frame& frame,
                               std::uint32_t& length);

/// An argument, with as much of it as the Call carries.
struct SentArgument {
    a_sql_data_type type = 0;
    bool is_null = false;
    std::uint32_t total = 0;      ///< bytes of the whole value
    std::string_view piece = {};  ///< the first of them; none: to be asked for
};

/// A Call's payload, in parts.
struct CallRequest {
    std::string_view procedure;
    std::string_view folder;  ///< to work in from now on; empty: the same as before
    std::vector<SentArgument> arguments;
};

/// The payload of a Call. First pieces that do not fit are left out; false when the rest does not
/// fit either.
[[nodiscard]] bool write_call(const CallRequest& request, std::string& payload);

/// The parts of `payload`, into which they point. False when it is not what write_call() writes.
[[nodiscard]] bool read_call(std::string_view payload, CallRequest& request);

}  // namespace host

#endif
