#include "host/outbox/sqlitestore.h"

#include <algorithm>
#include <charconv>
#include <tuple>
#include <utility>

#include <poll.h>

#include "host/outbox/addresslines.h"
#include "host/outbox/outcomes.h"

// The present and other moments as the tables have them.
#define MOMENT "strftime('%Y-%m-%d %H:%M:%f', "
#define NOW MOMENT "'now')"
// The milliseconds from now to a moment; 0 when it is past.
#define MILLISECONDS_TO(moment) \
    "max(0, ifnull(round((julianday(" moment ") - julianday('now')) * 86400000), 0))"

namespace host::outbox {

namespace {

using Kind = SqliteTransaction::Kind;

// How often the file is looked at for another connection's commits.
constexpr Pause look_interval{50};

// An SQLite modifier that adds what follows to a moment.
std::string in_seconds(Pause pause) {
    constexpr double milliseconds = 1000;
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits,
                                   static_cast<double>(pause.count()) / milliseconds,
                                   std::chars_format::fixed, 3);
    return '+' + std::string(digits, end.ptr) + " seconds";
}

// The tables as this program makes them: a view or a virtual table of the same name is none.
constexpr const char* count_tables =
    "SELECT count(*) FROM pragma_table_list WHERE schema = 'main' AND type = 'table' AND strict "
    "AND name IN ('quorel_outbox', 'quorel_account', 'quorel_message', 'quorel_attachment', "
    "'quorel_delivery', 'quorel_attempt')";
constexpr int table_count = 6;

constexpr const char* take_back = "UPDATE quorel_delivery INDEXED BY quorel_delivery_sending "
                                  "SET state = 'queued', lease_until = NULL, reason = ? "
                                  "WHERE state = 'sending' AND lease_until < " NOW;

constexpr const char* find_due =
    "SELECT due, id FROM quorel_delivery INDEXED BY quorel_delivery_queued "
    "WHERE lane = ? AND state = 'queued' AND due <= " NOW " ORDER BY due, id LIMIT ?";

constexpr const char* take =
    "UPDATE quorel_delivery SET state = 'sending', token = token + 1, lease_until = ? WHERE id = ?";

constexpr const char* read_taken =
    "SELECT d.message, d.token, m.account, d.account, d.recipients, d.attempts, "
    "max(0, d.max_attempts - d.attempts), "
    "m.id IS NULL OR ifnull(julianday(m.expires) <= julianday('now'), 0), "
    "ifnull(length(CAST(m.text_body AS BLOB)), 0) + ifnull(length(CAST(m.html_body AS BLOB)), 0) + "
    "(SELECT ifnull(sum(length(content)), 0) FROM quorel_attachment a WHERE a.message = "
    "d.message), "
    "max(0, ifnull(round((julianday('now') - julianday(m.due)) * 86400000), 0)) "
    "FROM quorel_delivery d LEFT JOIN quorel_message m ON m.id = d.message WHERE d.id = ?";

constexpr const char* read_message =
    "SELECT id, sender, sender_name, recipients, cc, bcc, reply_to, subject, text_body, html_body, "
    "ifnull(message_id, ''), in_reply_to, \"references\", list_unsubscribe, headers, "
    "CAST(strftime('%s', created) AS INTEGER) FROM quorel_message WHERE id = ?";

constexpr const char* read_attachments =
    "SELECT id, name, type, content_id FROM quorel_attachment WHERE message = ? ORDER BY id";

constexpr const char* end_claim =
    "UPDATE quorel_delivery SET state = ?, token = token + 1, lease_until = NULL, "
    "due = ifnull(" MOMENT "'now', ?), due), recipients = ifnull(?, recipients), "
    "max_attempts = max_attempts + ?, "
    "finished = CASE WHEN ? THEN " NOW " END, "
    "reason = CASE WHEN ? THEN ifnull(?, reason) ELSE ? END "
    // Taken back, and by nobody taken since: the outcome still counts.
    "WHERE id = ? AND token = ? AND state IN ('sending', 'queued')";

constexpr const char* add_half =
    "INSERT INTO quorel_delivery (message, lane, recipients, due, max_attempts) "
    "SELECT message, lane, ?, due, max(1, max_attempts - attempts) FROM quorel_delivery "
    "WHERE id = ?";

constexpr const char* end_attempt =
    "UPDATE quorel_attempt SET ended = " NOW ", status = ?, reason = ? "
    "WHERE delivery = ? AND number = ? AND token = ? AND ended IS NULL";

constexpr const char* read_limit = "SELECT per_minute FROM quorel_account WHERE name = ?";

constexpr const char* count_recent = "SELECT count(*), " MILLISECONDS_TO(
    "min(started), '+60 seconds'") " "
                                   "FROM quorel_attempt INDEXED BY quorel_attempt_limited "
                                   "WHERE limited AND account = ? AND started > " MOMENT
                                   "'now', '-60 seconds')";

constexpr const char* renew =
    "UPDATE quorel_delivery SET lease_until = ? WHERE id = ? AND token = ? AND state = 'sending'";

constexpr const char* still_held =
    "SELECT 1 FROM quorel_delivery WHERE id = ? AND token = ? AND state = 'sending'";

constexpr const char* start_attempt =
    "UPDATE quorel_delivery SET attempts = attempts + 1, lease_until = ?, account = ? "
    "WHERE id = ? AND token = ? AND state = 'sending' RETURNING attempts";

constexpr const char* note_attempt =
    "INSERT INTO quorel_attempt (delivery, number, token, daemon, account, limited, started) "
    "VALUES (?, ?, ?, ?, ?, ?, " NOW ")";

constexpr const char* read_accounts =
    "SELECT name, host, port, trusted_cert, cert_company, cert_unit, cert_name, username, "
    "password, password_file, allow_plaintext_auth, sender, sender_name, timeout_seconds, rank, "
    "per_minute, failures, " MILLISECONDS_TO(
        "away_until") " "
                      "FROM quorel_account WHERE enabled ORDER BY rank, name";

constexpr const char* note_away = "UPDATE quorel_account SET failures = failures + 1, trouble = ?, "
                                  "away_until = " MOMENT "'now', ?) WHERE name = ?";
constexpr const char* note_probe =
    "UPDATE quorel_account SET away_until = " MOMENT "'now', ?) "
    "WHERE name = ? AND failures > 0 AND (away_until IS NULL OR away_until <= " NOW ")";
constexpr const char* note_back =
    "UPDATE quorel_account SET failures = 0, trouble = NULL, away_until = NULL "
    "WHERE name = ? AND failures <> 0";

constexpr const char* first_due =
    "SELECT " MILLISECONDS_TO("due") " FROM quorel_delivery INDEXED BY quorel_delivery_queued "
                                     "WHERE lane = ? AND state = 'queued' ORDER BY due LIMIT 1";
constexpr const char* first_lost =
    "SELECT " MILLISECONDS_TO("min(lease_until)") ", count(*) "
                                                  "FROM quorel_delivery INDEXED BY "
                                                  "quorel_delivery_sending WHERE state = 'sending'";

constexpr const char* count_states = "SELECT state, count(*) FROM quorel_delivery GROUP BY state";
constexpr const char* count_waiting =
    "SELECT count(*), (julianday('now') - julianday(min(due))) * 86400 "
    "FROM quorel_delivery INDEXED BY quorel_delivery_queued WHERE state = 'queued' AND due <= " NOW;

constexpr const char* read_troubles =
    "SELECT d.message, d.state, ifnull(replace(d.recipients, char(10), ', '), "
    "ltrim(ifnull(m.recipients, '') || ifnull(', ' || m.cc, '') || ifnull(', ' || m.bcc, ''), "
    "', ')), d.attempts, d.reason FROM quorel_delivery d JOIN quorel_message m ON m.id = d.message "
    "WHERE d.state = 'failed' OR d.state = 'queued' AND d.reason IS NOT NULL "
    "ORDER BY d.id DESC LIMIT ?";

Text none_if_empty(const std::string& text) {
    return text.empty() ? Text() : Text(text);
}

}  // namespace

std::size_t SqliteStore::_version() {
    SqliteRows table = _db.rows("SELECT 1 FROM sqlite_master WHERE name = 'quorel_outbox'");
    if (!table.next()) return 0;
    SqliteRows version = _db.rows("SELECT max(version) FROM quorel_outbox");
    return version.next() ? static_cast<std::size_t>(std::max(0, version.small(0))) : 0;
}

bool SqliteStore::_check_tables(std::string& error) {
    const std::size_t version = _version();
    if (_db.failed()) return true;  // the transaction's end tells
    if (!is_current(version, _steps, _file, error)) return false;
    SqliteRows tables = _db.rows(count_tables);
    if (tables.next() && tables.small(0) == table_count) return true;
    error = _file + ": the outbox lacks tables, or somebody else made some of them";
    return _db.failed();
}

bool SqliteStore::open(std::string& error) {
    if (!_db.open(_file, false, error)) return false;
    SqliteTransaction transaction(_db, Kind::Reads);
    return _check_tables(error) && transaction.commit(error);
}

bool SqliteStore::install(std::string& error) {
    if (!_db.open(_file, true, error)) return false;
    {
        bool is_new = false;
        {
            SqliteRows pages = _db.rows("PRAGMA page_count");
            is_new = pages.next() && pages.integer(0) == 0;
        }
        // A file that others use stays as they have it. In a new one nobody waits for readers.
        if (is_new && !_db.execute("PRAGMA journal_mode = WAL", error)) return false;
    }
    {
        SqliteTransaction transaction(_db, Kind::Writes);
        const std::size_t version = _version();
        if (!is_upgradable(version, _steps, error)) return false;
        for (std::size_t step = version; !_db.failed() && step < _steps.size(); ++step)
            if (!_db.execute(std::string(_steps[step]), error)) return false;
        if (!transaction.commit(error)) return false;
    }
    return open(error);
}

// A moment as the tables have it.
std::string SqliteStore::_from_now(Pause pause) {
    SqliteRows moment = _db.rows("SELECT " MOMENT "'now', ?)", in_seconds(pause));
    return moment.next() ? moment.text(0) : std::string();
}

// How many attempts an account's limit leaves for now; `full`: until there is another one.
int SqliteStore::_room(const std::string& account, int per_minute, Pause& full) {
    SqliteRows recent = _db.rows(count_recent, account);
    if (!recent.next()) return 0;
    const int room = std::max(0, per_minute - recent.small(0));
    full = Pause(room > 0 ? 0 : recent.integer(1) + 1);
    return room;
}

std::vector<Account> SqliteStore::_accounts() {
    std::vector<Account> list;
    SqliteRows row = _db.rows(read_accounts);
    while (row.next()) {
        int column = 0;
        Account& account = list.emplace_back();
        account.name = row.text(column++);
        account.host = row.text(column++);
        account.port = row.small(column++);
        for (Text* text :
             {&account.trusted_cert, &account.cert_company, &account.cert_unit, &account.cert_name,
              &account.username, &account.password, &account.password_file})
            *text = row.optional_text(column++);
        account.allow_plaintext_auth = row.integer(column++) != 0;
        account.sender = row.optional_text(column++);
        account.sender_name = row.optional_text(column++);
        account.timeout_seconds = row.small(column++);
        account.rank = row.small(column++);
        if (!row.is_null(column)) account.per_minute = row.small(column);
        account.failures = row.small(++column);
        account.away = Pause(row.integer(++column));
        if (account.per_minute) (void)_room(account.name, *account.per_minute, account.full);
    }
    return list;
}

bool SqliteStore::accounts(std::vector<Account>& list, std::string& error) {
    SqliteTransaction transaction(_db, Kind::Reads);
    list = _accounts();
    return transaction.commit(error);
}

// The due deliveries of all accounts that can be called now.
std::vector<SqliteStore::Candidate> SqliteStore::_candidates(int limit) {
    std::vector<Candidate> found;
    const auto look = [&](const std::string& lane, std::int64_t room) {
        SqliteRows row = _db.rows(find_due, lane, std::min<std::int64_t>(limit, room));
        while (row.next()) found.push_back({row.text(0), row.integer(1)});
    };
    std::int64_t all = 0;
    for (const Account& account : _accounts()) {
        Pause full{0};
        if (account.away.count() > 0) continue;
        const int room =
            account.per_minute ? _room(account.name, *account.per_minute, full) : limit;
        all += room;
        look(account.name, room);
    }
    look("", all);
    std::ranges::sort(found, {}, [](const Candidate& c) { return std::tie(c.due, c.id); });
    if (found.size() > static_cast<std::size_t>(limit))
        found.resize(static_cast<std::size_t>(limit));
    return found;
}

void SqliteStore::_claim(std::int64_t id, const std::string& until,
                         std::vector<Delivery>& deliveries) {
    _db.change(take, until, id);
    SqliteRows row = _db.rows(read_taken, id);
    if (!row.next()) return;
    Delivery& delivery = deliveries.emplace_back();
    delivery.id = id;
    delivery.message = row.integer(0);
    delivery.token = row.integer(1);
    delivery.account = row.optional_text(2);
    delivery.last_account = row.optional_text(3);
    delivery.recipients = split_lines(row.text(4));
    delivery.attempts = row.small(5);
    delivery.attempts_left = row.small(6);
    delivery.expired = row.integer(7) != 0;
    delivery.bytes = static_cast<std::uint64_t>(row.integer(8));
    delivery.waited = Pause(row.integer(9));
}

bool SqliteStore::claim(int limit, Pause lease, std::vector<Delivery>& deliveries,
                        std::string& error) {
    std::vector<Delivery> taken;
    SqliteTransaction transaction(_db, Kind::Writes);
    _seen = _db.data_version();
    _db.change(take_back, lost_claim);
    const std::string until = _from_now(lease);
    for (const Candidate& candidate : _candidates(limit)) _claim(candidate.id, until, taken);
    if (!transaction.commit(error)) return false;
    std::ranges::move(taken, std::back_inserter(deliveries));
    return true;
}

Message SqliteStore::_message(SqliteRows& row) {
    Message message;
    int column = 0;
    message.id = row.integer(column++);
    for (Text* text :
         {&message.sender, &message.sender_name, &message.recipients, &message.cc, &message.bcc,
          &message.reply_to, &message.subject, &message.text_body, &message.html_body})
        *text = row.optional_text(column++);
    message.message_id = row.text(column++);
    for (Text* text :
         {&message.in_reply_to, &message.references, &message.list_unsubscribe, &message.headers})
        *text = row.optional_text(column++);
    message.created = row.integer(column);

    SqliteRows attachment = _db.rows(read_attachments, message.id);
    while (attachment.next())
        message.attachments.push_back(
            {attachment.text(1), attachment.optional_text(2), attachment.optional_text(3),
             _db.blob("quorel_attachment", "content", attachment.integer(0))});
    return message;
}

bool SqliteStore::load(std::span<const std::int64_t> messages, std::vector<Message>& loaded,
                       std::string& error) {
    std::vector<Message> found;
    SqliteTransaction transaction(_db, Kind::Reads);
    for (const std::int64_t id : messages) {
        SqliteRows row = _db.rows(read_message, id);
        if (row.next()) found.push_back(_message(row));
    }
    if (!transaction.commit(error)) return false;
    std::ranges::move(found, std::back_inserter(loaded));
    return true;
}

bool SqliteStore::_end(const Finish& end) {
    const bool split = end.outcome == Outcome::Split;
    const bool final = end.outcome == Outcome::Sent || end.outcome == Outcome::Failed;
    const bool released = end.outcome == Outcome::Released;
    const Text reason = none_if_empty(end.reason);
    const std::optional<Pause> pause = due_after(end);
    const Text due = pause ? Text(in_seconds(*pause)) : Text();
    if (end.attempt > 0)
        _db.change(end_attempt, end.status, reason, end.delivery, end.attempt, end.token);
    const bool held = _db.change(end_claim, state_after(end.outcome), due,
                                 split ? Text(join_lines(end.first_half)) : Text(), split, final,
                                 released, reason, reason, end.delivery, end.token) == 1;
    if (held && split) _db.change(add_half, join_lines(end.second_half), end.delivery);
    return held;
}

Begun SqliteStore::_begin(const Begin& begin, const std::string& until) {
    Begun begun;
    std::optional<int> per_minute;
    {
        SqliteRows row = _db.rows(read_limit, begin.account);
        if (row.next() && !row.is_null(0)) per_minute = row.small(0);
    }
    const bool full = per_minute && _room(begin.account, *per_minute, begun.room) == 0;
    {
        SqliteRows row =
            full ? _db.rows(still_held, begin.delivery, begin.token)
                 : _db.rows(start_attempt, until, begin.account, begin.delivery, begin.token);
        if (!row.next()) return {};
        begun.state = full ? Begun::Full : Begun::Yes;
        begun.attempt = full ? 0 : row.small(0);
    }
    if (!full)
        _db.change(note_attempt, begin.delivery, begun.attempt, begin.token, _daemon, begin.account,
                   per_minute.has_value());
    return begun;
}

bool SqliteStore::exchange(std::span<const Finish> ends, std::span<const Begin> begins, Pause lease,
                           std::vector<bool>& held, std::vector<Begun>& begun, std::string& error) {
    held.clear();
    begun.clear();
    SqliteTransaction transaction(_db, Kind::Writes);
    const std::string until = _from_now(lease);
    for (const Finish& end : ends) held.push_back(_end(end));
    for (const Begin& begin : begins) begun.push_back(_begin(begin, until));
    return transaction.commit(error);
}

bool SqliteStore::extend(std::span<const Held> claims, Pause lease, std::vector<bool>& held,
                         std::string& error) {
    held.clear();
    SqliteTransaction transaction(_db, Kind::Writes);
    const std::string until = _from_now(lease);
    for (const Held& claim : claims)
        held.push_back(_db.change(renew, until, claim.delivery, claim.token) == 1);
    return transaction.commit(error);
}

bool SqliteStore::account_away(const std::string& account, Pause pause, const std::string& reason,
                               std::string& error) {
    SqliteTransaction transaction(_db, Kind::Writes);
    _db.change(note_away, reason, in_seconds(pause), account);
    return transaction.commit(error);
}

bool SqliteStore::account_probe(const std::string& account, Pause pause, bool& mine,
                                std::string& error) {
    SqliteTransaction transaction(_db, Kind::Writes);
    mine = _db.change(note_probe, in_seconds(pause), account) == 1;
    return transaction.commit(error);
}

bool SqliteStore::account_back(const std::string& account, std::string& error) {
    SqliteTransaction transaction(_db, Kind::Writes);
    _db.change(note_back, account);
    return transaction.commit(error);
}

bool SqliteStore::next_due(std::optional<Pause>& pause, std::string& error) {
    pause.reset();
    const auto note = [&pause](Pause other) { pause = std::min(pause.value_or(other), other); };
    const auto look = [&](const std::string& lane, Pause usable) {
        SqliteRows row = _db.rows(first_due, lane);
        if (row.next()) note(std::max(Pause(row.integer(0)), usable));
    };
    SqliteTransaction transaction(_db, Kind::Reads);
    std::optional<Pause> any;
    for (const Account& account : _accounts()) {
        const Pause usable = std::max(account.away, account.full);
        any = std::min(any.value_or(usable), usable);
        look(account.name, usable);
    }
    if (any) look("", *any);
    {
        SqliteRows row = _db.rows(first_lost);
        if (row.next() && row.integer(1) > 0) note(Pause(row.integer(0) + 1));
    }
    return transaction.commit(error);
}

bool SqliteStore::wait(Pause longest, int wake, std::string& error) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + longest;
    for (;;) {
        SqliteTransaction transaction(_db, Kind::Reads);
        const std::int64_t version = _db.data_version();
        if (!transaction.commit(error)) return false;
        const auto left = std::chrono::ceil<Pause>(end - Clock::now());
        if (std::exchange(_seen, version) != version || left.count() <= 0) return true;
        pollfd waking{wake, POLLIN, 0};
        if (poll(&waking, 1, static_cast<int>(std::min(left, look_interval).count())) > 0)
            return true;
    }
}

bool SqliteStore::figures(Figures& all, std::string& error) {
    all = {};
    SqliteTransaction transaction(_db, Kind::Reads);
    {
        SqliteRows row = _db.rows(count_states);
        while (row.next()) {
            const std::string state = row.text(0);
            for (auto [name, count] : {std::pair("queued", &all.queued),
                                       {"sending", &all.sending},
                                       {"sent", &all.sent},
                                       {"failed", &all.failed},
                                       {"cancelled", &all.cancelled}})
                if (state == name) *count = row.integer(1);
        }
    }
    {
        SqliteRows row = _db.rows(count_waiting);
        if (row.next()) {
            all.waiting = row.integer(0);
            all.oldest_seconds = row.real(1);
        }
    }
    return transaction.commit(error);
}

bool SqliteStore::troubles(int limit, std::vector<Trouble>& list, std::string& error) {
    SqliteTransaction transaction(_db, Kind::Reads);
    {
        SqliteRows row = _db.rows(read_troubles, limit);
        while (row.next())
            list.push_back({row.integer(0), row.text(1), row.text(2), row.small(3), row.text(4)});
    }
    return transaction.commit(error);
}

}  // namespace host::outbox
