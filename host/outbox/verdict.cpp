#include "host/outbox/verdict.h"

#include <algorithm>
#include <iterator>

namespace host::outbox {

namespace {

struct Row {
    std::int32_t status;
    Verdict verdict;
};

constexpr Verdict session_is_open{Next::Sent, Server::Well, true};
constexpr Verdict no_session{Next::Again, Server::Away, false};

constexpr Verdict sent{Next::Sent, Server::Well, true};
constexpr Verdict refused{Next::Split, Server::Well, true};
// What is wrong is on this side, and nothing was said to the server.
constexpr Verdict own_trouble{Next::Again, Server::Well, false};
// Nobody knows whether the message went: the server may have closed the connection, or have fallen
// silent, or the worker may have died, behind the message's end.
constexpr Verdict doubtful{Next::Again, Server::Doubtful, false};

// As doubtful, but most often the server has said no.
constexpr Verdict not_taken{Next::Again, Server::Refusing, false};

constexpr Row sending[] = {
    {0, sent},
    {5, own_trouble},   // a worker was replaced between two calls, and its session is gone
    {12, own_trouble},  // no file is attached
    {15, own_trouble},  // no memory
    {20, refused},
    {25, own_trouble},  // as 5
    {101, doubtful},
    {104, not_taken},
};

}  // namespace

Verdict verdict_on_start(CallStatus status) {
    return status == 0 ? session_is_open : no_session;
}

Verdict verdict_on_sending(CallStatus status) {
    const auto* const row = std::find_if(std::begin(sending), std::end(sending),
                                         [status](const Row& r) { return status == r.status; });
    return row == std::end(sending) ? doubtful : row->verdict;
}

}  // namespace host::outbox
