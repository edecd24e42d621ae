#ifndef QUOREL_HOST_OUTBOX_STORE_H
#define QUOREL_HOST_OUTBOX_STORE_H

/// The outbox's tables, as the daemon uses them; schema/ has the tables themselves.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace host::outbox {

using Pause = std::chrono::milliseconds;
using Text = std::optional<std::string>;  ///< nothing for NULL

/// A mail server and how to log in there.
struct Account {
    std::string name;
    std::string host;
    int port = 25;
    Text trusted_cert, cert_company, cert_unit, cert_name;
    Text username, password;
    Text password_file;  ///< a file that holds the password in its first line, in place of it
    bool allow_plaintext_auth = false;
    Text sender, sender_name;
    int timeout_seconds = 60;
    int rank = 0;  ///< lower ones are tried first
    std::optional<int> per_minute;
    bool enabled = true;

    int failures = 0;  ///< in a row
    Pause away{0};     ///< how long nobody is to call there yet; zero: it may be called
    Pause full{0};     ///< how long until the limit a minute has room; zero: it has
};

/// A claim: this delivery is the caller's until its lease ends.
struct Delivery {
    std::int64_t id = 0;
    std::int64_t message = 0;
    std::int64_t token = 0;
    Text account;                         ///< nothing: any, in order of rank
    Text last_account;                    ///< which the last attempt was made through
    std::vector<std::string> recipients;  ///< empty: all of the message's
    int attempts = 0;                     ///< that were begun so far
    int attempts_left = 0;                ///< 0: to be given up without another one
    bool expired = false;                 ///< nobody wants it any more: the same
    std::uint64_t bytes = 0;              ///< of texts and attachments, all that load() brings
    Pause waited{0};                      ///< since the message was first due
};

struct Attachment {
    std::string name;
    Text type, content_id;
    std::string content;
};

struct Message {
    std::int64_t id = 0;
    Text sender, sender_name;
    Text recipients, cc, bcc, reply_to;  ///< address lists as people write them
    Text subject, text_body, html_body;
    std::string message_id;  ///< with its angle brackets; the same for every attempt
    Text in_reply_to, references, list_unsubscribe;
    Text headers;              ///< lines "Name: value", each but the last ended by LF
    std::int64_t created = 0;  ///< seconds since 1970
    std::vector<Attachment> attachments;
};

/// The start of an attempt.
struct Begin {
    std::int64_t delivery = 0;
    std::int64_t token = 0;
    std::string account;
};

struct Begun {
    enum State {
        Yes,
        Lost,  ///< the claim does not hold any more: hands off
        Full   ///< the account's limit a minute is reached: another account, or Released
    };
    State state = Lost;
    int attempt = 0;  ///< its number among the delivery's, from 1 on
    Pause room{0};    ///< Full: when there is room again
};

enum class Outcome {
    Sent,
    Failed,   ///< for good
    Again,    ///< after `pause`
    Split,    ///< becomes two deliveries, both due at once; no attempt is used up
    Released  ///< given back without an attempt, after `pause`
};

/// The end of an attempt, or of a claim without one.
struct Finish {
    std::int64_t delivery = 0;
    std::int64_t token = 0;
    int attempt = 0;  ///< as Begun has it; 0: none was begun
    Outcome outcome = Outcome::Released;
    int status = 0;
    std::string reason{};  ///< in words; empty: none
    Pause pause{0};
    std::vector<std::string> first_half{}, second_half{};  ///< Split: recipients, neither empty
};

/// A claim for the rest of a lease.
struct Held {
    std::int64_t delivery = 0;
    std::int64_t token = 0;
};

struct Figures {
    std::int64_t queued = 0;   ///< due or not
    std::int64_t waiting = 0;  ///< of these, due by now
    std::int64_t sending = 0;
    std::int64_t sent = 0;
    std::int64_t failed = 0;
    std::int64_t cancelled = 0;
    double oldest_seconds = 0;  ///< how long the longest waiting one is due
};

/// A delivery that did not go out, yet or at all, and why.
struct Trouble {
    std::int64_t message = 0;
    std::string state;
    std::string recipients;
    int attempts = 0;
    std::string reason;
};

/// One connection to an outbox. For one thread at a time; each may have its own.
///
/// Every operation is one transaction: all of it happened or, where it returns false, nothing did
/// or, when the connection broke while it was committed, all of it. False leaves a sentence in
/// `error` and means that the database is away or refuses; the connection is then closed, and the
/// next open() makes a new one. An operation can be repeated after that: a claim that was lost this
/// way comes back when its lease ends, and a finish that was already made is not made twice, but
/// told as not held.
///
/// Leases, due times, limits and ages are by the database's clock.
class Store {
  public:
    Store() = default;
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    virtual ~Store() = default;

    /// Connects, or connects anew. False also where no outbox of this program's version is
    /// installed.
    virtual bool open(std::string& error) = 0;

    /// Makes the tables, or brings those of an older version up to date. Needs no open().
    virtual bool install(std::string& error) = 0;

    /// Takes at most `limit` due deliveries, those that are due longest first, for `lease` from
    /// now, and appends them; those whose claims ended without an outcome too, a second later at
    /// most. None whose account is disabled, away or at its limit.
    virtual bool claim(int limit, Pause lease, std::vector<Delivery>& deliveries,
                       std::string& error) = 0;

    /// Appends these messages with their attachments, in no particular order; not those that
    /// somebody deleted.
    virtual bool load(std::span<const std::int64_t> messages, std::vector<Message>& loaded,
                      std::string& error) = 0;

    /// Ends attempts and begins others in one transaction: what is begun is on record when this
    /// returns, and its lease starts anew. `held` and `begun` receive an answer for each. An end
    /// whose claim is not held any more is noted with its attempt and changes nothing else.
    virtual bool exchange(std::span<const Finish> ends, std::span<const Begin> begins, Pause lease,
                          std::vector<bool>& held, std::vector<Begun>& begun,
                          std::string& error) = 0;

    /// Starts these leases anew; `held` says which still were the caller's.
    virtual bool extend(std::span<const Held> claims, Pause lease, std::vector<bool>& held,
                        std::string& error) = 0;

    /// All accounts that are enabled, in order of rank.
    virtual bool accounts(std::vector<Account>& list, std::string& error) = 0;
    /// One more failure in a row: nobody calls there for `pause`.
    virtual bool account_away(const std::string& account, Pause pause, const std::string& reason,
                              std::string& error) = 0;
    /// Before one that was away is tried again: nobody else calls there for `pause`, or until
    /// account_away() or account_back(). `mine` false: somebody else was faster.
    virtual bool account_probe(const std::string& account, Pause pause, bool& mine,
                               std::string& error) = 0;
    virtual bool account_back(const std::string& account, std::string& error) = 0;

    /// When claim() may next have something, by what is in the tables now; nothing: not before
    /// somebody queues a message.
    virtual bool next_due(std::optional<Pause>& pause, std::string& error) = 0;

    /// Returns when a message may have been queued since the last wait, after `longest`, or when
    /// there is something to read from descriptor `wake` (below 0: none), which stays unread. The
    /// first one, and the first after a load(), may return at once.
    virtual bool wait(Pause longest, int wake, std::string& error) = 0;

    virtual bool figures(Figures& all, std::string& error) = 0;
    /// The latest first, at most `limit`.
    virtual bool troubles(int limit, std::vector<Trouble>& list, std::string& error) = 0;
};

/// For a connection string of PostgreSQL's (a URI, or name=value words), or the name of a SQLite
/// file; "./" in front makes any text a file's name. `daemon` stands in the attempts, to tell
/// several daemons apart. Null with a sentence where this build has no such database. A daemon of
/// several threads takes Stores instead (stores.h).
std::unique_ptr<Store> make_store(const std::string& where, const std::string& daemon,
                                  std::string& error);

}  // namespace host::outbox

#endif
