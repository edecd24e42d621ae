#include "host/sqlite/shell/progress.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "host/quietthread.h"
#include "host/sqlite/shell/display.h"
#include "host/sqlite/shell/signals.h"

namespace host {

namespace {

using namespace std::chrono_literals;

constexpr int terminal = STDERR_FILENO;
constexpr auto first_after = 300ms;  // what ends sooner needs no display
constexpr auto next_after = 200ms;

// For a call that Ctrl-C does not reach, such as one that waits for a pipe's other end.
const std::string ends_at_once = "still waiting; Ctrl-\\ ends quorelsql";

std::size_t terminal_width() {
    winsize size{};
    if (ioctl(terminal, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
    return size.ws_col;
}

// A full-screen program switches off line mode or echo; a shell puts its jobs in the foreground.
bool taken_by_another() {
    termios mode{};
    return tcgetattr(terminal, &mode) != 0 || (mode.c_lflag & ICANON) == 0 ||
           (mode.c_lflag & ECHO) == 0 || tcgetpgrp(terminal) != getpgrp();
}

// The hints name keys, which a user may have changed.
bool has_key(int which, char key) {
    termios mode{};
    return tcgetattr(terminal, &mode) == 0 && (mode.c_lflag & ISIG) != 0 &&
           mode.c_cc[which] == static_cast<cc_t>(key);
}

bool understands_escapes() {
    const char* term = getenv("TERM");
    return term != nullptr && *term != '\0' && strcmp(term, "dumb") != 0;
}

// Not one that its user has stopped by Ctrl-S: who wrote to it would wait, and the call's end with
// it.
bool takes_output() {
    pollfd descriptor{terminal, POLLOUT, 0};
    return poll(&descriptor, 1, 0) == 1;
}

std::string elapsed_text(std::chrono::milliseconds elapsed) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    std::array<char, 40> text{};
    if (seconds < 60)
        snprintf(text.data(), text.size(), "%.1f s", static_cast<double>(elapsed.count()) / 1000);
    else
        snprintf(text.data(), text.size(), "%d min %02d s", static_cast<int>(seconds / 60),
                 static_cast<int>(seconds % 60));
    return text.data();
}

}  // namespace

// Signals are the main thread's business.
Progress::Progress()
    : _escapes(understands_escapes()),
      _enabled(isatty(terminal) != 0 && start_quiet_thread(_run_thread, this, &_thread)) {}

Progress::~Progress() {
    if (!_enabled) return;
    end();
    {
        const std::lock_guard lock(_mutex);
        _quit = true;
    }
    _changed.notify_one();
    pthread_join(_thread, nullptr);
}

void Progress::begin(std::string what, std::string hint, Place place) {
    if (!_enabled) return;
    {
        const std::lock_guard lock(_mutex);
        moved(0);
        _what = std::move(what);
        _hint = std::move(hint);
        _place = place;
        _widest = 0;
        _started = Clock::now();
        _running = true;
    }
    _changed.notify_one();
}

void Progress::end() {
    if (!_enabled) return;
    const std::lock_guard lock(_mutex);
    if (_drawn) _put("");
    _running = _drawn = false;
}

void* Progress::_run_thread(void* self) {
    static_cast<Progress*>(self)->_run();
    return nullptr;
}

void Progress::_run() {
    std::unique_lock lock(_mutex);
    while (!_quit) {
        if (!_running) {
            _changed.wait(lock, [this] { return _running || _quit; });
            continue;
        }
        if (Clock::now() < _started + first_after) {
            _changed.wait_until(lock, _started + first_after);
            continue;
        }
        _draw();
        _changed.wait_for(lock, next_after);
    }
}

void Progress::_draw() {
    if (taken_by_another()) return;
    _put(_text());
    _drawn = true;
}

// The cursor comes back to where it was, so what others write goes where it would have gone.
void Progress::_put(std::string text) {
    if (!takes_output()) return;
    const std::size_t width = terminal_width();
    text.resize(std::min(text.size(), width - 1));
    _widest = std::max(_widest, text.size());
    text.resize(_widest, ' ');
    const std::size_t column = _place == Place::Edge ? width - std::min(width, _widest) : 0;

    std::string out = "\r" + text + "\r";
    if (_escapes) {
        const std::string move = column == 0 ? "" : "\033[" + std::to_string(column) + "C";
        out = "\0337\r" + move + text + "\0338";
    }
    [[maybe_unused]] const ssize_t written = write(terminal, out.data(), out.size());
}

std::string Progress::_text() const {
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - _started);
    const std::uint64_t bytes = _moved.load(std::memory_order_relaxed);
    std::string text = _what + ": ";
    if (bytes > 0) text += display_size(bytes) + ", ";
    text += elapsed_text(elapsed);
    constexpr char control_c = 'C' & 0x1F;
    constexpr char control_backslash = '\\' & 0x1F;
    if (interrupted()) {
        if (has_key(VQUIT, control_backslash)) text += " (" + ends_at_once + ")";
    } else if (!_hint.empty() && can_interrupt() && has_key(VINTR, control_c)) {
        text += " (" + _hint + ")";
    }
    return text;
}

}  // namespace host
