#include "host/outbox/statustext.h"

#include <cmath>

#include "host/outbox/oneline.h"

namespace host::outbox {

namespace {

// "1 mail waits", "2 mails wait".
std::string counted(std::int64_t count, const char* one, const char* many) {
    return std::to_string(count) + (count == 1 ? one : many);
}

// In the largest unit that gives two or more, for people.
std::string span_of(double seconds) {
    constexpr double minute = 60, hour = 3600, day = 86400;
    if (seconds < 1) return counted(std::llround(seconds * 1000), " millisecond", " milliseconds");
    if (seconds < 2 * minute) return counted(std::llround(seconds), " second", " seconds");
    if (seconds < 2 * hour) return counted(std::llround(seconds / minute), " minute", " minutes");
    if (seconds < 2 * day) return counted(std::llround(seconds / hour), " hour", " hours");
    return counted(std::llround(seconds / day), " day", " days");
}

double seconds_of(Pause pause) {
    return std::chrono::duration<double>(pause).count();
}

std::string totals(const Figures& f) {
    std::string text = counted(f.queued, " mail waits", " mails wait");
    if (f.queued > 0) text += ", " + std::to_string(f.waiting) + " of them due";
    text += "; " + std::to_string(f.sending) + " on the way, " + std::to_string(f.sent) +
            " sent, " + std::to_string(f.failed) + " failed, " + std::to_string(f.cancelled) +
            " cancelled\n";
    if (f.waiting > 0) text += "the oldest is due for " + span_of(f.oldest_seconds) + '\n';
    return text;
}

std::string account_line(const Account& a) {
    std::string text = "  " + a.name + " (" + a.host + ':' + std::to_string(a.port) + "): ";
    if (a.away.count() > 0)
        text += "away, is tried again in " + span_of(seconds_of(a.away)) + "; ";
    else if (a.full.count() > 0)
        text += "at its limit for " + span_of(seconds_of(a.full)) + "; ";
    else
        text += a.failures > 0 ? "to be tried again; " : "ready; ";
    if (a.failures > 0) text += counted(a.failures, " failure", " failures") + " in a row; ";
    text.resize(text.size() - 2);
    return on_one_line(text) + '\n';
}

std::string trouble_line(const Trouble& t) {
    const std::string text = "mail " + std::to_string(t.message) + ", " + t.state + " after " +
                             counted(t.attempts, " attempt", " attempts") + ", to " + t.recipients +
                             ": " + t.reason;
    return "  " + on_one_line(text) + '\n';
}

}  // namespace

std::string status_text(const Figures& figures, std::span<const Account> accounts,
                        std::span<const Trouble> troubles) {
    std::string text = totals(figures);
    text += accounts.empty() ? "no account is enabled: nothing can be sent\n" : "accounts:\n";
    for (const Account& account : accounts) text += account_line(account);
    if (!troubles.empty()) text += "did not go, the latest first:\n";
    for (const Trouble& trouble : troubles) text += trouble_line(trouble);
    return text;
}

}  // namespace host::outbox
