#include "host/outbox/daemon.h"

#include <array>
#include <cstdint>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "host/librarypath.h"
#include "host/outbox/servicemanager.h"
#include "host/quietthread.h"
#include "host/worker/workerclient.h"

namespace host::outbox {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto metrics_interval = 15s;

// What stands in the attempts: the machine and the process.
std::string daemon_name() {
    std::array<char, 256> host{};
    if (gethostname(host.data(), host.size() - 1) != 0) host = {'?'};
    return std::string(host.data()) + ':' + std::to_string(getpid());
}

}  // namespace

struct Daemon::Thread {
    Thread(Daemon& its_daemon, std::unique_ptr<Store> its_store)
        : daemon(its_daemon), store(std::move(its_store)), engine(daemon._files),
          session(daemon._shared, *store, engine) {}

    Daemon& daemon;
    const std::unique_ptr<Store> store;
    const WorkerClient engine;
    Session session;
    pthread_t thread{};
    bool good = true;

    static void* run(void* self) {
        auto& thread = *static_cast<Thread*>(self);
        thread.good = thread.session.run();
        const std::uint64_t one = 1;
        static_cast<void>(!write(thread.daemon._ended.number(), &one, sizeof one));
        return nullptr;
    }
};

Daemon::Daemon(const Options& options)
    : _options(options), _name(daemon_name()), _shared(options.rules),
      _ended(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Daemon::~Daemon() = default;

bool Daemon::_prepare(std::string& error) {
    if (!find_worker(_options.library, library_remedy, _files, error)) return false;
    _stores.emplace(_options.where, _name);
    _store = make_store(_options.where, _name, error);
    if (_store == nullptr || !_store->open(error)) return false;
    _steady.emplace(*_store, _shared.watch, _shared.journal, 0s);
    return true;
}

bool Daemon::_start_threads(std::string& error) {
    for (int i = 0; i < _options.sessions; ++i) {
        std::unique_ptr<Store> store = _stores->make(error);
        if (store == nullptr) return false;
        _threads.push_back(std::make_unique<Thread>(*this, std::move(store)));
        Thread& thread = *_threads.back();
        if (start_quiet_thread(Thread::run, &thread, &thread.thread)) continue;
        _threads.pop_back();
        error = "this machine has no more threads";
        return false;
    }
    return true;
}

void Daemon::_heed_signals() {
    const int asked = _signals.read();
    if (asked == 0) return;
    _stops += asked;
    if (_stops == 1) {
        _shared.journal.say("stops after the messages in hand");
        tell_service_manager("STOPPING=1");
        return _shared.watch.stop();
    }
    if (!_shared.watch.at_once()) return _shared.watch.stop_at_once();
    _exit(EXIT_NOT_ALL_SENT);
}

void Daemon::_wait_for_end() {
    std::size_t running = _threads.size();
    Clock::time_point next_metrics = Clock::now();
    while (running > 0) {
        if (Clock::now() >= next_metrics) {
            _write_metrics();
            next_metrics = Clock::now() + metrics_interval;
        }
        std::array<pollfd, 2> events{pollfd{_signals.descriptor(), POLLIN, 0},
                                     pollfd{_ended.number(), POLLIN, 0}};
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(next_metrics - Clock::now());
        poll(events.data(), events.size(), static_cast<int>(std::max(left, 0ms).count()));
        _heed_signals();
        std::uint64_t ended = 0;
        if (read(_ended.number(), &ended, sizeof ended) == sizeof ended)
            running -= static_cast<std::size_t>(ended);
    }
    for (const auto& thread : _threads) pthread_join(thread->thread, nullptr);
    _write_metrics();
}

void Daemon::_write_metrics() {
    if (_options.metrics.empty()) return;
    std::optional<Snapshot> outbox(std::in_place);
    if (!_steady->try_once([&outbox](Store& store, std::string& error) {
            outbox->accounts.clear();
            return store.figures(outbox->figures, error) && store.accounts(outbox->accounts, error);
        }))
        outbox.reset();
    std::string error;
    if (!replace_file(_options.metrics, metrics_text(outbox, _shared.counters.read()), error))
        _shared.journal.say(error);
}

int Daemon::_exit_status() {
    if (!_options.rules.once) return EXIT_DONE;
    const Counts counts = _shared.counters.read();
    Figures figures;
    const bool told = _steady->try_once(
        [&figures](Store& store, std::string& error) { return store.figures(figures, error); });
    bool good = told && figures.waiting == 0;
    for (const auto& thread : _threads) good = good && thread->good;
    good = good && counts.ends[Counts::Failed] == 0 && counts.put_off == 0;
    return good ? EXIT_DONE : EXIT_NOT_ALL_SENT;
}

int Daemon::run() {
    std::string error;
    if (!_prepare(error)) {
        _shared.journal.say(error);
        return EXIT_FAILED;
    }
    if (_start_threads(error)) {
        tell_service_manager("READY=1");
    } else {
        _shared.journal.say(error);
        _shared.watch.stop();
    }
    _wait_for_end();
    return error.empty() ? _exit_status() : EXIT_FAILED;
}

}  // namespace host::outbox
