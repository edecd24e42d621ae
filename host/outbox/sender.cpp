#include "host/outbox/sender.h"

#include <algorithm>
#include <set>
#include <tuple>
#include <utility>

#include "host/outbox/accountchoice.h"
#include "host/outbox/outgoing.h"

namespace host::outbox {

namespace {

using Clock = std::chrono::steady_clock;

// Messages that are loaded at once take so much together, or are alone.
constexpr std::uint64_t most_loaded = std::uint64_t{1} << 20;

// How often it is looked after leases in a wait for room.
constexpr std::chrono::milliseconds short_wait{100};

// How often a mail is turned down whole before its recipients are tried apart.
constexpr int most_refusals = 2;

std::string via(const Account& account, const std::string& words) {
    return account.name + ": " + words;
}

}  // namespace

Sender::Sender(Shared& shared, SteadyStore& store, Claims& claims, MailLine& line)
    : _shared(shared), _store(store), _claims(claims), _line(line) {
    _line.on_wait = [this] { return _cut_short = _has_to_end() || !_claims.keep(); };
}

bool Sender::send_all() {
    _has_to_wait = false;
    bool good = _store.run([this](Store& store, std::string& error) {
        _accounts.clear();
        return store.accounts(_accounts, error);
    });
    while (good && !_shared.watch.stopping()) {
        _claims.keep();
        if (_claims.empty()) break;
        const std::int64_t id = _claims.waiting().front().id;
        Room::Place place(_shared.large_mails, _room_for(_claims.waiting().front()));
        if (!(good = _wait_for(place))) break;
        // Meanwhile claims may have been lost.
        if (_shared.watch.stopping() || _claims.empty() || _claims.waiting().front().id != id)
            continue;
        if (!_is_loaded(_claims.waiting().front()) && !(good = _load())) break;
        std::optional<Message> message = _take(_claims.next());
        if (message)
            good = _send(*message);
        else if (_claims.current().bytes > most_sent)
            _fail({}, "its texts and attachments take more than 128 MiB");
        else  // deleted, and its deliveries with it
            _release({});
    }
    _leave_probe();
    _loaded.clear();
    return good && _claims.release_rest();
}

bool Sender::_is_loaded(const Delivery& delivery) const {
    return _loaded.contains(delivery.message);
}

std::uint64_t Sender::_room_for(const Delivery& delivery) const {
    const bool is_large = delivery.bytes > most_loaded && delivery.bytes <= most_sent;
    return is_large && !_is_loaded(delivery) ? delivery.bytes : 0;
}

bool Sender::_wait_for(Room::Place& place) {
    if (place.enter({})) return true;
    // Before a wait for others: what was sent is on record, and nothing waits along with this mail.
    _leave_probe();
    _line.close();
    if (!_claims.release_behind()) return false;
    _shared.watch.poke();
    while (!_shared.watch.stopping() && !place.enter(short_wait)) _claims.keep();
    return true;
}

// Each serves one delivery: it is not kept while it is sent.
std::optional<Message> Sender::_take(const Delivery& delivery) {
    auto node = _loaded.extract(delivery.message);
    return node ? std::optional(std::move(node.mapped())) : std::nullopt;
}

bool Sender::_load() {
    std::deque<Delivery>& waiting = _claims.waiting();
    std::set<std::int64_t> ids;
    std::uint64_t bytes = 0;
    auto end = waiting.begin();
    for (; end != waiting.end(); ++end) {
        // It fails by itself. What lies behind it has a turn of its own, and room of its own.
        if (end->bytes > most_sent) break;
        bytes += end->bytes;
        if (!ids.empty() && bytes > most_loaded) break;
        ids.insert(end->message);
    }
    const std::vector<std::int64_t> wanted(ids.begin(), ids.end());
    std::vector<Message> messages;
    _loaded.clear();
    if (!_store.run([&](Store& store, std::string& error) {
            messages.clear();
            return store.load(wanted, messages, error);
        }))
        return false;
    for (Message& message : messages) _loaded.emplace(message.id, std::move(message));
    _sort_by_sender(static_cast<std::size_t>(end - waiting.begin()));
    return true;
}

// A session has one sender: those of one come in a row.
void Sender::_sort_by_sender(std::size_t count) {
    std::deque<Delivery>& waiting = _claims.waiting();
    const auto sender_of = [this](const Delivery& delivery) {
        const auto found = _loaded.find(delivery.message);
        return found == _loaded.end()
                   ? std::tuple<Text, Text, Text>()
                   : std::tuple(delivery.account, found->second.sender, found->second.sender_name);
    };
    const auto end = waiting.begin() + static_cast<long>(count);
    std::stable_sort(waiting.begin(), end, [&sender_of](const Delivery& a, const Delivery& b) {
        return sender_of(a) < sender_of(b);
    });
}

bool Sender::_send(Message& message) {
    const Delivery& delivery = _claims.current();
    if (delivery.expired) {
        _fail({}, "it expired before it could be sent");
        return true;
    }
    if (delivery.attempts_left <= 0) {
        _fail({}, "no attempt is left, and nobody knows what became of the last one");
        return true;
    }
    Ready ready;
    ready.account = _choose_account();
    if (ready.account == nullptr) {
        _has_to_wait = true;
        _release({});
        return true;
    }
    if (!_compose(message, ready)) return true;
    if (!_has_line_for(ready)) {
        // Before a wait for a server: what was sent is on record.
        if (!_claims.tell()) return false;
        if (!_open_line(ready)) return true;
    }
    return _attempt(ready);
}

Account* Sender::_choose_account() {
    for (Account* account : ways_for(_claims.current(), _accounts)) {
        if (account->full.count() > 0) continue;
        if (account->name == _probed) return account;
        switch (_shared.circuits.enter(*account)) {
        case Circuits::Way::Open:
            return account;
        case Circuits::Way::Probe:
            _leave_probe();
            _probed = account->name;
            if (_may_probe(*account)) return account;
            _leave_probe();
            break;
        case Circuits::Way::Blocked:
            break;
        }
    }
    return nullptr;
}

// Other daemons stay away meanwhile; should this one die, for no longer than it holds its claims.
bool Sender::_may_probe(const Account& account) {
    bool mine = false;
    return _store.try_once([&](Store& store, std::string& error) {
        return store.account_probe(account.name, _shared.rules.lease, mine, error);
    }) && mine;
}

bool Sender::_compose(Message& message, Ready& ready) {
    std::string error;
    switch (compose_outgoing(message, *ready.account, ready.mail, error)) {
    case Composing::Done:
        return true;
    case Composing::Rejected:
        _fail({}, error);
        return false;
    case Composing::Failed:
        break;
    }
    _shared.journal.say(error);
    _shared.counters.count(Counts::Again);
    _release(error, 0, _shared.rules.retries.after(1));
    return false;
}

// A session that served before may have been ended by its server meanwhile. Its failure costs a
// message its first attempt at most, and never its last: those are made in sessions of their own.
bool Sender::_has_line_for(const Ready& ready) const {
    const Delivery& delivery = _claims.current();
    const bool any_will_do = delivery.attempts == 0 && delivery.attempts_left > 1;
    return (_fresh || any_will_do) && _line.is_open_for(*ready.account, ready.mail);
}

// A message is in hand once its attempt is begun.
bool Sender::_has_to_end() const {
    return _opening ? _shared.watch.stopping() : _shared.watch.at_once();
}

bool Sender::_open_line(const Ready& ready) {
    const Account& account = *ready.account;
    _opening = true;
    _cut_short = false;
    const Called called = _line.open(account, ready.mail);
    _opening = false;
    if (verdict_on_start(called.returned()).next == Next::Sent) {
        _fresh = true;
        return true;
    }
    const std::string reason = via(account, called.words);
    if (!_cut_short) _went_away(account, reason);
    _release(reason, called.status);
    return false;
}

bool Sender::_attempt(Ready& ready) {
    Begun begun;
    if (!_claims.begin(ready.account->name, begun)) return false;
    if (begun.state == Begun::Lost) return true;
    if (begun.state == Begun::Full) {
        ready.account->full = begun.room;
        _has_to_wait = true;
        _release(via(*ready.account, "its limit a minute is reached"));
        return true;
    }
    _cut_short = false;
    const Clock::time_point start = Clock::now();
    const Called called = _line.send(ready.mail, _claims.current().recipients);
    const Clock::time_point end = Clock::now();
    if (called.returned() == 0)
        _shared.counters.count_sent(end - start,
                                    _claims.current().waited + (end - _claims.taken()));
    _judge(ready, begun.attempt, called);
    return true;
}

void Sender::_judge(const Ready& ready, int attempt, const Called& called) {
    Finish finish;
    finish.attempt = attempt;
    finish.status = called.status;
    finish.reason = via(*ready.account, called.words);
    if (called.how == Called::How::Refused) return _fail(std::move(finish), called.words);

    constexpr Verdict own_trouble{Next::Again, Server::Well, false};
    const Verdict verdict =
        called.how == Called::How::NotMade ? own_trouble : verdict_on_sending(called.returned());
    if (!verdict.keeps_session) _line.drop();
    const bool fresh = std::exchange(_fresh, false);
    switch (verdict.next) {
    case Next::Sent:
        _went_well(*ready.account);
        finish.outcome = Outcome::Sent;
        return _claims.end(std::move(finish));
    case Next::Split:
        _went_well(*ready.account);
        return _split(ready, std::move(finish));
    case Next::Again:
        break;
    }
    if (called.how == Called::How::Ended) {
        // Nobody knows how it ended, and so its record has no end.
        finish.attempt = 0;
        _shared.counters.count(Counts::Unknown);
    }
    const std::string reason = finish.reason;
    if (_may_mean_some(verdict, ready))
        _split(ready, std::move(finish));
    else
        _try_again(ready, std::move(finish), fresh);
    if (fresh && !_cut_short) _heed_server(ready, verdict.server, reason);
}

const std::vector<std::string>& Sender::_recipients(const Ready& ready) const {
    const Delivery& delivery = _claims.current();
    return delivery.recipients.empty() ? ready.mail.recipients : delivery.recipients;
}

// A server may turn a mail down for a full mailbox, or for one recipient too many (RFC 5321,
// section 4.5.3.1.10), and no status says so. Earlier, it may also have been in trouble itself.
bool Sender::_may_mean_some(const Verdict& verdict, const Ready& ready) const {
    const Delivery& delivery = _claims.current();
    return verdict.server == Server::Refusing && _recipients(ready).size() > 1 &&
           (delivery.attempts >= most_refusals || delivery.attempts_left <= 1);
}

void Sender::_heed_server(const Ready& ready, Server server, const std::string& reason) {
    const Account& account = *ready.account;
    const Delivery& delivery = _claims.current();
    if (server == Server::Well) return;
    // A half was turned down before, as a part of the whole.
    const bool again = delivery.attempts > 0 || !delivery.recipients.empty();
    if (server == Server::Refusing && again) {
        // No news of a server that could be reached: the mails behind this one are not to wait.
        if (account.name == _probed) _went_well(account);
        return;
    }
    if (_shared.circuits.doubt(account.name)) _went_away(account, reason);
}

void Sender::_try_again(const Ready& ready, Finish finish, bool fresh) {
    const Delivery& delivery = _claims.current();
    if (delivery.attempts_left <= 1) {
        std::string reason = finish.reason + "; that was the last of " +
                             std::to_string(delivery.attempts + 1) + " attempts";
        return _fail(std::move(finish), std::move(reason));
    }
    _shared.counters.count(Counts::Again);
    const unsigned rounds = rounds_after(delivery, *ready.account, _accounts);
    finish.outcome = Outcome::Again;
    if (fresh && rounds > 0) {
        finish.pause = _shared.rules.retries.after(rounds);
        _shared.counters.count_put_off();
    }
    _claims.end(std::move(finish));
}

void Sender::_split(const Ready& ready, Finish finish) {
    const std::vector<std::string>& all = _recipients(ready);
    if (all.size() < 2) {
        std::string reason = finish.reason;
        return _fail(std::move(finish), std::move(reason));
    }
    const auto middle = all.begin() + static_cast<long>(all.size() / 2);
    finish.outcome = Outcome::Split;
    finish.first_half.assign(all.begin(), middle);
    finish.second_half.assign(middle, all.end());
    _shared.counters.count(Counts::Split);
    _claims.end(std::move(finish));
}

void Sender::_fail(Finish finish, std::string reason) {
    const std::string mail = "mail " + std::to_string(_claims.current().message);
    _shared.journal.say(mail + " failed: " + reason);
    _shared.counters.count(Counts::Failed);
    finish.outcome = Outcome::Failed;
    finish.reason = std::move(reason);
    _claims.end(std::move(finish));
}

void Sender::_release(std::string reason, int status, Pause pause) {
    Finish finish;
    finish.status = status;
    finish.reason = std::move(reason);
    finish.pause = pause;
    _claims.end(std::move(finish));
}

void Sender::_went_well(const Account& account) {
    if (account.name == _probed) _probed.clear();
    if (!_shared.circuits.well(account)) return;
    _shared.journal.say("account " + account.name + " is back");
    _store.try_once([&account](Store& store, std::string& error) {
        return store.account_back(account.name, error);
    });
    // Others have rested for its sake.
    _shared.watch.poke();
}

void Sender::_went_away(const Account& account, const std::string& reason) {
    if (account.name == _probed) _probed.clear();
    const Pause pause = _shared.rules.calls.after(static_cast<std::uint32_t>(account.failures) + 1);
    // Sessions that meet the same silence at once are one failure.
    if (!_shared.circuits.away(account.name, pause)) return;
    _shared.journal.say("account " + reason);
    _store.try_once([&](Store& store, std::string& error) {
        return store.account_away(account.name, pause, reason, error);
    });
}

void Sender::_leave_probe() {
    if (!_probed.empty()) _shared.circuits.leave(_probed);
    _probed.clear();
}

}  // namespace host::outbox
