#ifndef QUOREL_HOST_OUTBOX_SENDER_H
#define QUOREL_HOST_OUTBOX_SENDER_H

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/outbox/claims.h"
#include "host/outbox/mailline.h"
#include "host/outbox/shared.h"

namespace host::outbox {

/// Sends what a session has claimed, and says what became of it. For one thread.
class Sender {
  public:
    Sender(Shared& shared, SteadyStore& store, Claims& claims, MailLine& line);

    /// Sends what is claimed; what is left when the process stops is given back. False when the
    /// outbox is lost for good.
    bool send_all();

    /// Some of it could not be sent for a reason that the outbox does not tell yet, or that is over
    /// soon: another session tries the account. A claim that comes at once gets the same again.
    [[nodiscard]] bool has_to_wait() const { return _has_to_wait; }

  private:
    /// A message, composed for an account.
    struct Ready {
        Account* account = nullptr;
        ComposedMail mail;
    };

    bool _load();
    [[nodiscard]] std::uint64_t _room_for(const Delivery& delivery) const;
    bool _wait_for(Room::Place& place);
    void _sort_by_sender(std::size_t count);
    [[nodiscard]] bool _is_loaded(const Delivery& delivery) const;
    std::optional<Message> _take(const Delivery& delivery);
    bool _send(Message& message);
    Account* _choose_account();
    bool _may_probe(const Account& account);
    [[nodiscard]] bool _has_to_end() const;
    bool _compose(Message& message, Ready& ready);
    [[nodiscard]] bool _has_line_for(const Ready& ready) const;
    bool _open_line(const Ready& ready);
    bool _attempt(Ready& ready);
    void _judge(const Ready& ready, int attempt, const Called& called);
    void _try_again(const Ready& ready, Finish finish, bool fresh);
    void _heed_server(const Ready& ready, Server server, const std::string& reason);
    const std::vector<std::string>& _recipients(const Ready& ready) const;
    bool _may_mean_some(const Verdict& verdict, const Ready& ready) const;
    void _split(const Ready& ready, Finish finish);

    void _fail(Finish finish, std::string reason);
    void _release(std::string reason, int status = 0, Pause pause = Pause(0));
    void _went_well(const Account& account);
    void _went_away(const Account& account, const std::string& reason);
    void _leave_probe();

    Shared& _shared;
    SteadyStore& _store;
    Claims& _claims;
    MailLine& _line;
    std::vector<Account> _accounts;           // in order of rank
    std::map<std::int64_t, Message> _loaded;  // by id
    std::string _probed;  // the account that this session alone tries; empty: none
    bool _has_to_wait = false;
    bool _fresh = false;      // the line is open, and has not taken a message yet
    bool _opening = false;    // a session: no message is in hand yet
    bool _cut_short = false;  // it was not the server that ended the last call
};

}  // namespace host::outbox

#endif
