#ifndef QUOREL_HOST_SQLITE_SHELL_PROGRESS_H
#define QUOREL_HOST_SQLITE_SHELL_PROGRESS_H

/// Shows on a terminal that something runs: bytes moved, time elapsed.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

#include <pthread.h>

namespace host {

/// Draws on standard error, from a thread of its own, which sleeps while nothing runs. Where
/// standard error is no terminal, or there is no thread to be had, it draws nothing.
///
/// Nobody else should write to the terminal between begin() and end(). A command that does so all
/// the same is left room: see Place. While another program has the terminal to itself (an editor, a
/// pager), nothing is drawn.
///
/// Threads: begin() and end() on one thread, moved() on any.
class Progress {
  public:
    enum class Place {
        Line,  ///< the line is ours
        Edge   ///< at the right edge, out of the way of a command's own output
    };

    Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

    /// Something called `what` starts. `hint`, which tells about Ctrl-C, follows the time in
    /// parentheses, unless it is empty or Ctrl-C is not the key that interrupts.
    void begin(std::string what, std::string hint, Place place);

    /// From now on bytes are shown too: `bytes` in all since begin(). Cheap.
    void moved(std::uint64_t bytes) { _moved.store(bytes, std::memory_order_relaxed); }

    /// It ended: wipes what was drawn. Harmless when nothing runs.
    void end();

  private:
    using Clock = std::chrono::steady_clock;

    static void* _run_thread(void* self);
    void _run();
    void _draw();
    void _put(std::string text);
    [[nodiscard]] std::string _text() const;

    // Lock-free: moved() is called for every piece of a file.
    std::atomic<std::uint64_t> _moved{0};

    std::mutex _mutex;  // guards what follows, and whatever is written to the terminal
    std::condition_variable _changed;
    bool _running = false;
    bool _quit = false;
    bool _drawn = false;
    std::string _what;
    std::string _hint;
    Place _place = Place::Line;
    std::size_t _widest = 0;  // text drawn since begin()
    Clock::time_point _started;

    const bool _escapes;
    pthread_t _thread{};
    const bool _enabled;  // the thread is there
};

}  // namespace host

#endif
