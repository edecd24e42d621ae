#include "host/outbox/pgstore.h"

#include <algorithm>
#include <utility>

#include "host/outbox/addresslines.h"
#include "host/outbox/outcomes.h"
#include "host/outbox/pgarray.h"
#include "host/outbox/pgconnection.h"
#include "host/outbox/pgstatements.h"

namespace host::outbox {

namespace {

using Clock = PgConnection::Clock;

// All claims are read to find those that came to no end, and all that ended too while somebody's
// long transaction keeps them from being forgotten: not with every claim.
constexpr std::chrono::seconds take_back_interval{1};
constexpr int most_lost = 1000;

class PgStore : public Store {
  public:
    PgStore(std::string conninfo, std::string daemon, Steps steps)
        : _conninfo(std::move(conninfo)), _daemon(std::move(daemon)), _steps(steps) {}

    bool open(std::string& error) override;
    bool install(std::string& error) override;
    bool claim(int limit, Pause lease, std::vector<Delivery>& deliveries,
               std::string& error) override;
    bool load(std::span<const std::int64_t> messages, std::vector<Message>& loaded,
              std::string& error) override;
    bool exchange(std::span<const Finish> ends, std::span<const Begin> begins, Pause lease,
                  std::vector<bool>& held, std::vector<Begun>& begun, std::string& error) override;
    bool extend(std::span<const Held> claims, Pause lease, std::vector<bool>& held,
                std::string& error) override;
    bool accounts(std::vector<Account>& list, std::string& error) override;
    bool account_away(const std::string& account, Pause pause, const std::string& reason,
                      std::string& error) override;
    bool account_probe(const std::string& account, Pause pause, bool& mine,
                       std::string& error) override;
    bool account_back(const std::string& account, std::string& error) override;
    bool next_due(std::optional<Pause>& pause, std::string& error) override;
    bool wait(Pause longest, int wake, std::string& error) override;
    bool figures(Figures& all, std::string& error) override;
    bool troubles(int limit, std::vector<Trouble>& list, std::string& error) override;

  private:
    bool _connect(std::size_t& version, std::string& error);
    bool _read_version(std::size_t& version, std::string& error);
    bool _complete(std::int64_t attachment, std::size_t size, std::string& content,
                   std::string& error);
    bool _attach(const PgRows& rows, std::span<Message> messages, std::string& error);
    bool _run(PgRequest request, PgRows& rows, std::string& error);

    const std::string _conninfo;
    const std::string _daemon;
    const Steps _steps;
    PgConnection _connection;
    bool _listening = false;
    Clock::time_point _next_take_back{};
};

std::string as_text(Pause pause) {
    return std::to_string(pause.count());
}

// Answers of a statement whose first column is the number of what was asked, from 1 on.
std::vector<bool> marked(const PgRows& rows, std::size_t count) {
    std::vector<bool> marks(count);
    for (int row = 0; row < rows.count(); ++row)
        if (const auto n = static_cast<std::size_t>(rows.integer(row, 0)); n - 1 < count)
            marks[n - 1] = true;
    return marks;
}

bool PgStore::_read_version(std::size_t& version, std::string& error) {
    version = 0;
    PgRows rows;
    if (!_connection.execute("SELECT pg_catalog.to_regclass('quorel.outbox') IS NOT NULL", rows,
                             error))
        return false;
    if (rows.count() != 1 || !rows.truth(0, 0)) return true;
    if (!_connection.execute("SELECT max(version) FROM quorel.outbox", rows, error)) return false;
    version = static_cast<std::size_t>(std::max(0, rows.small(0, 0)));
    return true;
}

bool PgStore::_connect(std::size_t& version, std::string& error) {
    return _connection.open(_conninfo, error) && _read_version(version, error);
}

bool PgStore::open(std::string& error) {
    std::size_t version = 0;
    if (!_connect(version, error)) return false;
    if (!is_current(version, _steps, "this database", error)) {
        _connection.close();
        return false;
    }
    _listening = false;
    return true;
}

bool PgStore::install(std::string& error) {
    std::size_t version = 0;
    PgRows none;
    // The lock keeps out whoever installs at the same time; its number is nobody else's.
    if (!_connection.open(_conninfo, error) ||
        !_connection.execute("BEGIN; SELECT pg_catalog.pg_advisory_xact_lock(7811073391)", none,
                             error) ||
        !_read_version(version, error))
        return false;
    if (!is_upgradable(version, _steps, error)) {
        _connection.close();
        return false;
    }
    for (; version < _steps.size(); ++version)
        if (!_connection.execute(std::string(_steps[version]), none, error)) return false;
    return _connection.execute("COMMIT", none, error) && open(error);
}

bool PgStore::_run(PgRequest request, PgRows& rows, std::string& error) {
    std::vector<PgRows> results;
    if (!_connection.run({&request, 1}, results, error)) return false;
    rows = std::move(results[0]);
    return true;
}

bool PgStore::claim(int limit, Pause lease, std::vector<Delivery>& deliveries, std::string& error) {
    const Clock::time_point now = Clock::now();
    const bool takes_back = now >= _next_take_back;
    std::vector<PgRequest> requests;
    if (takes_back) requests.push_back({&pg::take_back, {std::to_string(most_lost), lost_claim}});
    requests.push_back({&pg::claim, {std::to_string(limit), as_text(lease)}});
    std::vector<PgRows> results;
    if (!_connection.run(requests, results, error)) return false;
    if (takes_back) _next_take_back = now + take_back_interval;
    const PgRows& rows = results[requests.size() - 1];
    for (int row = 0; row < rows.count(); ++row) {
        Delivery& delivery = deliveries.emplace_back();
        delivery.id = rows.integer(row, 0);
        delivery.message = rows.integer(row, 1);
        delivery.token = rows.integer(row, 2);
        delivery.account = rows.optional_text(row, 3);
        delivery.last_account = rows.optional_text(row, 4);
        delivery.recipients = split_lines(rows.bytes(row, 5));
        delivery.attempts = rows.small(row, 6);
        delivery.attempts_left = rows.small(row, 7);
        delivery.expired = rows.truth(row, 8);
        delivery.bytes = static_cast<std::uint64_t>(rows.integer(row, 9));
        delivery.waited = Pause(rows.integer(row, 10));
    }
    return true;
}

Message message_of(const PgRows& rows, int row) {
    Message message;
    int column = 0;
    message.id = rows.integer(row, column++);
    for (Text* text :
         {&message.sender, &message.sender_name, &message.recipients, &message.cc, &message.bcc,
          &message.reply_to, &message.subject, &message.text_body, &message.html_body})
        *text = rows.optional_text(row, column++);
    message.message_id = rows.text(row, column++);
    for (Text* text :
         {&message.in_reply_to, &message.references, &message.list_unsubscribe, &message.headers})
        *text = rows.optional_text(row, column++);
    message.created = rows.integer(row, column);
    return message;
}

// What of a long attachment is still missing: at no time is it in memory twice.
bool PgStore::_complete(std::int64_t attachment, std::size_t size, std::string& content,
                        std::string& error) {
    while (content.size() < size) {
        PgRows rows;
        if (!_run({&pg::read_piece,
                   {std::to_string(attachment), std::to_string(content.size() + 1)},
                   true},
                  rows, error))
            return false;
        const std::string_view piece = rows.count() == 1 ? rows.bytes(0, 0) : std::string_view();
        if (piece.empty() || piece.size() > size - content.size()) {
            error = "an attachment was changed while it was read";
            _connection.close();
            return false;
        }
        content += piece;
    }
    return true;
}

bool PgStore::_attach(const PgRows& rows, std::span<Message> messages, std::string& error) {
    for (int row = 0; row < rows.count(); ++row) {
        const auto message = std::ranges::find(messages, rows.integer(row, 1), &Message::id);
        if (message == messages.end()) continue;
        Attachment attachment;
        attachment.name = rows.text(row, 2);
        attachment.type = rows.optional_text(row, 3);
        attachment.content_id = rows.optional_text(row, 4);
        const auto size = static_cast<std::size_t>(rows.integer(row, 5));
        attachment.content.reserve(size);
        attachment.content = rows.bytes(row, 6);
        if (!_complete(rows.integer(row, 0), size, attachment.content, error)) return false;
        message->attachments.push_back(std::move(attachment));
    }
    return true;
}

bool PgStore::load(std::span<const std::int64_t> messages, std::vector<Message>& loaded,
                   std::string& error) {
    PgArray ids;
    for (const std::int64_t id : messages) ids.add(id);
    std::vector<PgRequest> requests = {{&pg::read_messages, {ids.text()}, true},
                                       {&pg::read_attachments, {ids.text()}, true}};
    // Who has work does not read what is notified meanwhile. It would pile up here and, unread, at
    // the server, where nobody could queue any more once its room is used up.
    if (std::exchange(_listening, false)) requests.push_back({&pg::unlisten, {}});
    std::vector<PgRows> results;
    if (!_connection.run(requests, results, error)) return false;
    std::vector<Message> found;
    found.reserve(messages.size());
    for (int row = 0; row < results[0].count(); ++row) found.push_back(message_of(results[0], row));
    if (!_attach(results[1], found, error)) return false;
    std::ranges::move(found, std::back_inserter(loaded));
    return true;
}

std::vector<PgRequest> requests_to_end(std::span<const Finish> ends, bool ascii) {
    PgArray ids, tokens, states, pauses, firsts, seconds, keeps, reasons;
    PgArray attempt_ids, attempt_tokens, numbers, statuses, attempt_reasons;
    for (const Finish& end : ends) {
        using Words = std::optional<std::string_view>;
        const bool split = end.outcome == Outcome::Split;
        const std::string words = storable(end.reason, ascii);
        const Words reason = words.empty() ? Words() : words;
        const std::optional<Pause> due = due_after(end);
        ids.add(end.delivery);
        tokens.add(end.token);
        states.add(state_after(end.outcome));
        if (due)
            pauses.add(due->count());
        else
            pauses.add(Words());
        const std::string first = join_lines(end.first_half);
        const std::string second = join_lines(end.second_half);
        firsts.add(split ? Words(first) : Words());
        seconds.add(split ? Words(second) : Words());
        keeps.add(end.outcome == Outcome::Released ? "t" : "f");
        reasons.add(reason);
        if (end.attempt == 0) continue;
        attempt_ids.add(end.delivery);
        attempt_tokens.add(end.token);
        numbers.add(end.attempt);
        statuses.add(end.status);
        attempt_reasons.add(reason);
    }
    return {{&pg::end_attempts,
             {attempt_ids.text(), attempt_tokens.text(), numbers.text(), statuses.text(),
              attempt_reasons.text()}},
            {&pg::end_claims,
             {ids.text(), tokens.text(), states.text(), pauses.text(), firsts.text(),
              seconds.text(), keeps.text(), reasons.text()}}};
}

std::vector<PgRequest> requests_to_begin(std::span<const Begin> begins, Pause lease,
                                         const std::string& daemon) {
    PgArray ids, tokens, accounts;
    for (const Begin& begin : begins) {
        ids.add(begin.delivery);
        tokens.add(begin.token);
        accounts.add(begin.account);
    }
    return {{&pg::lock_accounts, {accounts.text()}},
            {&pg::start_attempts,
             {ids.text(), tokens.text(), accounts.text(), as_text(lease), daemon}}};
}

std::vector<Begun> begun_of(const PgRows& rows, std::size_t count) {
    std::vector<Begun> begun(count);
    for (int row = 0; row < rows.count(); ++row) {
        const auto n = static_cast<std::size_t>(rows.integer(row, 0));
        if (n - 1 >= count) continue;
        const bool full = rows.is_null(row, 1);
        begun[n - 1] = {full ? Begun::Full : Begun::Yes, rows.small(row, 1),
                        Pause(rows.integer(row, 2))};
    }
    return begun;
}

bool PgStore::exchange(std::span<const Finish> ends, std::span<const Begin> begins, Pause lease,
                       std::vector<bool>& held, std::vector<Begun>& begun, std::string& error) {
    std::vector<PgRequest> requests;
    if (!ends.empty()) requests = requests_to_end(ends, _connection.is_ascii());
    if (!begins.empty())
        std::ranges::move(requests_to_begin(begins, lease, _daemon), std::back_inserter(requests));
    held.clear();
    begun.clear();
    if (requests.empty()) return true;
    std::vector<PgRows> results;
    if (!_connection.run(requests, results, error)) return false;
    if (!ends.empty()) held = marked(results[1], ends.size());
    if (!begins.empty()) begun = begun_of(results[requests.size() - 1], begins.size());
    return true;
}

bool PgStore::extend(std::span<const Held> claims, Pause lease, std::vector<bool>& held,
                     std::string& error) {
    PgArray ids, tokens;
    for (const Held& claim : claims) {
        ids.add(claim.delivery);
        tokens.add(claim.token);
    }
    PgRows rows;
    if (!_run({&pg::renew, {ids.text(), tokens.text(), as_text(lease)}}, rows, error)) return false;
    held = marked(rows, claims.size());
    return true;
}

bool PgStore::accounts(std::vector<Account>& list, std::string& error) {
    PgRows rows;
    if (!_run({&pg::read_accounts, {}}, rows, error)) return false;
    list.clear();
    for (int row = 0; row < rows.count(); ++row) {
        int column = 0;
        Account& account = list.emplace_back();
        account.name = rows.text(row, column++);
        account.host = rows.text(row, column++);
        account.port = rows.small(row, column++);
        for (Text* text :
             {&account.trusted_cert, &account.cert_company, &account.cert_unit, &account.cert_name,
              &account.username, &account.password, &account.password_file})
            *text = rows.optional_text(row, column++);
        account.allow_plaintext_auth = rows.truth(row, column++);
        account.sender = rows.optional_text(row, column++);
        account.sender_name = rows.optional_text(row, column++);
        account.timeout_seconds = rows.small(row, column++);
        account.rank = rows.small(row, column++);
        if (!rows.is_null(row, column)) account.per_minute = rows.small(row, column);
        account.failures = rows.small(row, ++column);
        account.away = Pause(rows.integer(row, ++column));
        account.full = Pause(rows.integer(row, ++column));
    }
    return true;
}

bool PgStore::account_away(const std::string& account, Pause pause, const std::string& reason,
                           std::string& error) {
    PgRows none;
    return _run(
        {&pg::note_away, {account, as_text(pause), storable(reason, _connection.is_ascii())}}, none,
        error);
}

bool PgStore::account_probe(const std::string& account, Pause pause, bool& mine,
                            std::string& error) {
    PgRows rows;
    if (!_run({&pg::note_probe, {account, as_text(pause)}}, rows, error)) return false;
    mine = rows.count() == 1;
    return true;
}

bool PgStore::account_back(const std::string& account, std::string& error) {
    PgRows none;
    return _run({&pg::note_back, {account}}, none, error);
}

bool PgStore::next_due(std::optional<Pause>& pause, std::string& error) {
    PgRows rows;
    if (!_run({&pg::first_due, {}}, rows, error)) return false;
    pause.reset();
    if (rows.count() == 1) pause = Pause(rows.integer(0, 0));
    return true;
}

bool PgStore::wait(Pause longest, int wake, std::string& error) {
    if (_listening) return _connection.wait(longest, wake, error);
    PgRows none;
    if (!_run({&pg::listen, {}}, none, error)) return false;
    // What was queued until now was not notified: a look comes first.
    return _listening = true;
}

bool PgStore::figures(Figures& all, std::string& error) {
    constexpr double milliseconds = 1000;
    PgRows rows;
    if (!_run({&pg::read_figures, {}}, rows, error)) return false;
    int column = 0;
    for (std::int64_t* count :
         {&all.queued, &all.waiting, &all.sending, &all.sent, &all.failed, &all.cancelled})
        *count = rows.integer(0, column++);
    all.oldest_seconds = static_cast<double>(rows.integer(0, column)) / milliseconds;
    return true;
}

bool PgStore::troubles(int limit, std::vector<Trouble>& list, std::string& error) {
    PgRows rows;
    if (!_run({&pg::read_troubles, {std::to_string(limit)}}, rows, error)) return false;
    list.clear();
    for (int row = 0; row < rows.count(); ++row)
        list.push_back({rows.integer(row, 0), rows.text(row, 1), rows.text(row, 2),
                        rows.small(row, 3), rows.text(row, 4)});
    return true;
}

}  // namespace

std::unique_ptr<Store> make_pg_store(const std::string& conninfo, const std::string& daemon,
                                     Steps steps, std::string&) {
    return std::make_unique<PgStore>(conninfo, daemon, steps);
}

}  // namespace host::outbox
