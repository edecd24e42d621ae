#include "host/outbox/groupcommit.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace host::outbox {

namespace {

constexpr std::chrono::milliseconds longest_gathering{10};

}  // namespace

bool GroupCommit::_try(const Operation& operation, std::string& error) {
    if (_is_open && operation(*_store, error)) return true;
    // The connection may have been lost while nobody used it, as by a database that went and came.
    _is_open = _store->open(error) && operation(*_store, error);
    return _is_open;
}

bool GroupCommit::_exchange(Job& job) {
    return _try(
        [&job](Store& store, std::string& error) {
            return store.exchange(job.ends, job.begins, job.lease, job.held, job.begun, error);
        },
        job.error);
}

bool GroupCommit::_exchange_all(const std::vector<Job*>& jobs, std::string& error) {
    std::vector<Finish> ends;
    std::vector<Begin> begins;
    std::vector<bool> held;
    std::vector<Begun> begun;
    Pause lease{0};
    for (const Job* job : jobs) {
        std::ranges::copy(job->ends, std::back_inserter(ends));
        std::ranges::copy(job->begins, std::back_inserter(begins));
        lease = std::max(lease, job->lease);
    }
    const auto exchange = [&](Store& store, std::string& words) {
        return store.exchange(ends, begins, lease, held, begun, words);
    };
    if (!_try(exchange, error)) return false;
    auto next_held = held.begin();
    auto next_begun = begun.begin();
    for (Job* job : jobs) {
        const auto end_held = next_held + std::ssize(job->ends);
        const auto end_begun = next_begun + std::ssize(job->begins);
        job->held.assign(next_held, end_held);
        job->begun.assign(next_begun, end_begun);
        next_held = end_held;
        next_begun = end_begun;
        job->good = true;
    }
    return true;
}

void GroupCommit::_end(const std::vector<Job*>& jobs) {
    if (jobs.size() == 1) {
        jobs[0]->good = _exchange(*jobs[0]);
        return;
    }
    std::string error;
    if (_exchange_all(jobs, error)) return;
    // One of them may be what the database refuses.
    const auto nothing = [](Store&, std::string&) { return true; };
    const bool is_there = _try(nothing, error);
    for (Job* job : jobs) {
        if (is_there)
            job->good = _exchange(*job);
        else
            job->error = error;
    }
}

bool GroupCommit::exchange(std::span<const Finish> ends, std::span<const Begin> begins, Pause lease,
                           std::vector<bool>& held, std::vector<Begun>& begun, std::string& error) {
    Job job{ends, begins, lease, held, begun, error};
    std::unique_lock lock(_mutex);
    _waiting.push_back(&job);
    _joined.notify_one();
    _turn.wait(lock, [&] { return job.done || !_busy; });
    if (job.done) return job.good;
    _busy = true;
    _joined.wait_for(lock, std::min<Clock::duration>(_last, longest_gathering) / 2,
                     [this] { return _waiting.size() >= _expected; });
    const std::vector<Job*> jobs = std::exchange(_waiting, {});
    lock.unlock();
    const Clock::time_point start = Clock::now();
    _end(jobs);
    lock.lock();
    _last = Clock::now() - start;
    _expected = jobs.size() + _waiting.size();
    for (Job* each : jobs) each->done = true;
    _busy = false;
    _turn.notify_all();
    return job.good;
}

bool GroupCommit::run(const Operation& operation, std::string& error) {
    std::unique_lock lock(_mutex);
    _turn.wait(lock, [this] { return !_busy; });
    _busy = true;
    lock.unlock();
    const bool good = _try(operation, error);
    lock.lock();
    _busy = false;
    _turn.notify_all();
    return good;
}

}  // namespace host::outbox
