#include "host/outbox/mailline.h"

#include <tuple>
#include <utility>

#include "host/callframe.h"
#include "host/mailguards.h"
#include "host/outbox/passwordfile.h"
#include "host/outbox/sentpages.h"

namespace host::outbox {

namespace {

// All calls of an engine are one connection's.
constexpr std::int32_t connection = 1;

constexpr std::chrono::seconds longest_farewell(1);

// A start waits for the connection, the greeting, two EHLOs, STARTTLS and the login.
constexpr int waits_of_start = 4;
// A message waits for three answers and one more for each recipient, which servers that look
// closely delay; the rest is for its bytes.
constexpr int waits_of_message = 5;
constexpr std::size_t slow_bytes_a_second = std::size_t{16} << 10;

std::chrono::seconds deadline_of(const Account& account, int waits, std::size_t bytes) {
    return std::chrono::seconds(account.timeout_seconds) * waits +
           std::chrono::seconds(bytes / slow_bytes_a_second);
}

auto settings(const Account& a) {
    return std::tie(a.name, a.host, a.port, a.trusted_cert, a.cert_company, a.cert_unit,
                    a.cert_name, a.username, a.password, a.password_file, a.allow_plaintext_auth,
                    a.timeout_seconds);
}

// Gives a call its arguments by their names; the first one that is refused decides.
class Arguments {
  public:
    Arguments(CallFrame& frame, const Procedure& procedure)
        : _frame(frame), _procedure(procedure) {}

    void text(std::string_view name, const Text& value) {
        if (value) set(name, Value::text(*value, EXTFN_TYPE_CHAR));
    }
    void number(std::string_view name, std::int32_t value) { set(name, Value::number(value)); }
    void lend(std::string_view name, std::string_view bytes) {
        _good = _good && _frame.lend_argument(_procedure.parameter_number(name), bytes, _error);
    }
    [[nodiscard]] bool good() const { return _good; }
    [[nodiscard]] const std::string& error() const { return _error; }

  private:
    void set(std::string_view name, Value value) {
        _good = _good &&
                _frame.set_argument(_procedure.parameter_number(name), std::move(value), _error);
    }

    CallFrame& _frame;
    const Procedure& _procedure;
    std::string _error;
    bool _good = true;
};

void set_server(Arguments& arguments, const Account& account) {
    arguments.text("host", account.host);
    arguments.number("port", account.port);
    arguments.number("timeout", account.timeout_seconds);
    arguments.text("trusted_cert", account.trusted_cert);
    arguments.text("cert_company", account.cert_company);
    arguments.text("cert_unit", account.cert_unit);
    arguments.text("cert_name", account.cert_name);
}

bool set_login(Arguments& arguments, const Account& account, std::string& error) {
    Text password = account.password;
    if (account.password_file &&
        !read_password_file(*account.password_file, password.emplace(), error))
        return false;
    arguments.text("auth_username", account.username);
    arguments.text("auth_password", password);
    arguments.number("allow_plaintext_auth", account.allow_plaintext_auth ? 1 : 0);
    return true;
}

std::string joined(const std::vector<std::string>& recipients) {
    std::string all;
    for (const std::string& recipient : recipients) all += (all.empty() ? "" : ";") + recipient;
    return all;
}

}  // namespace

bool MailLine::is_open_for(const Account& account, const ComposedMail& mail) const {
    return _open && _open->sender == mail.sender && _open->sender_name == mail.sender_name &&
           settings(_open->account) == settings(account);
}

Called MailLine::_call(CallFrame& frame, const Procedure& procedure) {
    Called called;
    frame.on_wait = on_wait;
    if (!frame.call(called.words)) {
        called.how = frame.was_called() ? Called::How::Ended : Called::How::NotMade;
        return called;
    }
    called.how = Called::How::Returned;
    // A procedure that sets no result has not done what it was asked for either.
    constexpr std::int32_t nothing_set = -1;
    called.status = frame.result() ? frame.result()->as_int().value_or(nothing_set) : nothing_set;
    called.words = std::string(procedure.explain(called.status)) + " (status " +
                   std::to_string(called.status) + ")";
    return called;
}

Called MailLine::open(const Account& account, const ComposedMail& mail) {
    close();
    const Procedure& procedure = *find_procedure("xp_startsmtp");
    CallFrame frame(_engine, procedure, connection);
    Arguments arguments(frame, procedure);
    set_server(arguments, account);
    arguments.text("sender", mail.sender);
    if (!mail.sender_name.empty()) arguments.text("sender_name", mail.sender_name);
    std::string error;
    if (!set_login(arguments, account, error)) return {Called::How::Refused, 0, error};
    if (!arguments.good()) return {Called::How::Refused, 0, arguments.error()};

    _engine.set_deadline(deadline_of(account, waits_of_start, 0));
    Called called = _call(frame, procedure);
    if (called.returned() == 0) _open = Open{account, mail.sender, mail.sender_name};
    return called;
}

Called MailLine::send(ComposedMail& mail, const std::vector<std::string>& recipients) {
    const Procedure& procedure = *find_procedure("xp_sendmail");
    const std::vector<std::string>& to = recipients.empty() ? mail.recipients : recipients;
    CallFrame frame(_engine, procedure, connection);
    Arguments arguments(frame, procedure);
    const std::string bcc_recipient = joined(to);
    arguments.lend("bcc_recipient", bcc_recipient);
    arguments.text("content_type", "asis");
    arguments.number("raw", 1);  // the lines end with CRLF
    arguments.lend("message", mail.message());
    if (!arguments.good()) return {Called::How::Refused, 0, arguments.error()};

    SentPages pages(mail.message(), bcc_recipient.size());
    frame.on_progress = [&pages](std::uint64_t moved) { pages.release(moved); };
    _engine.set_deadline(
        deadline_of(_open->account, waits_of_message + static_cast<int>(to.size()), mail.size));
    return _call(frame, procedure);
}

void MailLine::close() {
    if (!_open) return;
    _engine.set_deadline(longest_farewell);
    CallFrame frame(_engine, *find_procedure("xp_stopsmtp"), connection);
    std::string ignored;
    frame.call(ignored);
    _open.reset();
}

void MailLine::drop() {
    // The next start, or the worker's end, closes the connection.
    _open.reset();
}

}  // namespace host::outbox
