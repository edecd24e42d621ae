#include "host/outbox/metrics.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

#include "host/descriptor.h"

namespace host::outbox {

namespace {

// Shortest form, with a dot in every locale.
std::string number(double value) {
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    return {digits.data(), end.ptr};
}

std::string quoted(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c == '\n' ? std::string("\\n") : std::string(1, c);
    }
    return quoted + '"';
}

class Page {
  public:
    void family(const char* name, const char* type, const char* help) {
        _name = std::string("quorel_outbox_") + name;
        _text += "# HELP " + _name + ' ' + help + "\n# TYPE " + _name + ' ' + type + '\n';
    }
    void value(double value, const std::string& labels = {}, const char* suffix = "") {
        _text += _name + suffix + (labels.empty() ? "" : '{' + labels + '}') + ' ' + number(value) +
                 '\n';
    }
    [[nodiscard]] const std::string& text() const { return _text; }

  private:
    std::string _name;
    std::string _text;
};

void add_figures(Page& page, const Figures& f) {
    const auto count = [](std::int64_t n) { return static_cast<double>(n); };
    page.family("deliveries", "gauge", "What the outbox holds, by state.");
    page.value(count(f.queued), "state=\"queued\"");
    page.value(count(f.sending), "state=\"sending\"");
    page.value(count(f.sent), "state=\"sent\"");
    page.value(count(f.failed), "state=\"failed\"");
    page.value(count(f.cancelled), "state=\"cancelled\"");
    page.family("due", "gauge", "Queued deliveries whose time has come.");
    page.value(count(f.waiting));
    page.family("oldest_seconds", "gauge", "How long the longest waiting delivery is due.");
    page.value(f.oldest_seconds);
}

void add_accounts(Page& page, std::span<const Account> accounts) {
    page.family("account_failures", "gauge", "Failures in a row of an account's mail server.");
    for (const Account& a : accounts) page.value(a.failures, "account=" + quoted(a.name));
    page.family("account_away_seconds", "gauge", "How long nobody calls there yet.");
    for (const Account& a : accounts)
        page.value(std::chrono::duration<double>(a.away).count(), "account=" + quoted(a.name));
}

void add_counts(Page& page, const Counts& counts) {
    constexpr std::array<const char*, Counts::Kinds> kinds{"sent", "again", "split", "failed",
                                                           "unknown"};
    page.family("ends_total", "counter", "How attempts of this daemon have ended.");
    for (std::size_t i = 0; i < kinds.size(); ++i)
        page.value(static_cast<double>(counts.ends[i]), "end=" + quoted(kinds[i]));
    page.family("send_seconds", "histogram", "What this daemon's sent messages took on the wire.");
    double sum = 0;
    for (std::size_t i = 0; i < counts.buckets.size(); ++i) {
        sum += static_cast<double>(counts.buckets[i]);
        page.value(sum,
                   "le=" + quoted(i < Counts::bounds.size() ? number(Counts::bounds[i]) : "+Inf"),
                   "_bucket");
    }
    page.value(counts.seconds, {}, "_sum");
    page.value(sum, {}, "_count");
    page.family("delivery_seconds", "summary", "From due to sent, of this daemon's sent messages.");
    page.value(counts.waited, {}, "_sum");
    page.value(sum, {}, "_count");
}

bool write_all(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = TEMP_FAILURE_RETRY(write(file, text.data(), text.size()));
        if (count < 0) return false;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace

std::string metrics_text(const std::optional<Snapshot>& outbox, const Counts& counts) {
    Page page;
    page.family("up", "gauge", "Whether the outbox's database answers.");
    page.value(outbox ? 1 : 0);
    if (outbox) {
        add_figures(page, outbox->figures);
        add_accounts(page, outbox->accounts);
    }
    add_counts(page, counts);
    return page.text();
}

bool replace_file(const std::string& path, std::string_view text, std::string& error) {
    // The name says whose it is, where several daemons write into one folder.
    const std::string fresh = path + '.' + std::to_string(getpid()) + ".new";
    // Of a process of this number that was killed; or somebody has put a FIFO there.
    unlink(fresh.c_str());
    // Whoever collects figures is another user, and the umask of a service is a strict one.
    constexpr mode_t all_read = 0644;
    Descriptor file = open_file(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL, all_read);
    if (file.is_open() && fchmod(file.number(), all_read) == 0 && write_all(file.number(), text) &&
        rename(fresh.c_str(), path.c_str()) == 0)
        return true;
    error = "cannot write " + path + ": " + strerror(errno);
    if (file.is_open()) unlink(fresh.c_str());
    return false;
}

}  // namespace host::outbox
