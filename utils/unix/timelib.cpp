#include "utils/unix/timelib.h"

#include <atomic>
#include <ctime>

#include <sys/time.h>
#include <sys/times.h>
#include <unistd.h>

uint32 a_timer_tick::TicksPerSecond = 100;

namespace {

// Every sampling thread reads and writes these without a lock. Relaxed atomics make the races
// defined and the values whole; they order nothing, and nothing needs them to.
std::atomic<uint64> LastTick{0};     // the last extended timer value
std::atomic<uint64> LastTODTick{0};  // the timer value at which diffTOD was computed
std::atomic<int32> diffTOD{0};       // wall clock minus timer since the bases, microseconds

// Where timer and wall clock met; written by timelib_init() only.
uint64 BaseTick = 0;
uint64 BaseTOD = 0;  // microseconds

constexpr uint64 microseconds_per_second = 1000000;
constexpr auto relaxed = std::memory_order_relaxed;

long system_raw_ticks() {
    return times(nullptr);
}

uint64 system_microseconds() {
    timeval now = {};
    gettimeofday(&now, nullptr);
    return static_cast<uint64>(now.tv_sec) * microseconds_per_second +
           static_cast<uint64>(now.tv_usec);
}

long system_ticks_per_second() {
    return sysconf(_SC_CLK_TCK);
}

constexpr a_timelib_clock system_clock = {system_raw_ticks, system_microseconds,
                                          system_ticks_per_second};
std::atomic<const a_timelib_clock*> current_clock{&system_clock};

const a_timelib_clock& clock_source() {
    return *current_clock.load(std::memory_order_acquire);
}

uint64 timer_microseconds(uint64 tick, uint32 ticks_per_second) {
    return (tick - BaseTick) * microseconds_per_second / ticks_per_second;
}

// The raw counter's low 31 bits under the upper bits of the last value. The sum with a quarter of
// the 31-bit range tells a wrap from a raw value that another thread read a moment earlier.
uint64 extended_tick() {
    constexpr uint64 raw_bits = 0x7FFFFFFF;
    constexpr uint64 kept_bits = 0x7FFFFFFF80000000;
    constexpr uint64 wrap = 0x80000000;
    constexpr uint64 quarter_of_wrap = 0x40000000;

    const uint64 last = LastTick.load(relaxed);
    // times() counts in a long, of which bit 31 is a sign here and a digit on 64-bit systems.
    const uint64 raw = static_cast<uint64>(clock_source().raw_ticks());
    uint64 candidate = (last & kept_bits) | (raw & raw_bits);
    if (last > candidate + quarter_of_wrap) candidate += wrap;
    LastTick.store(candidate, relaxed);
    return candidate;
}

// The drift of the wall clock against the timer, looked at anew every five seconds of ticks.
int32 wall_clock_correction(uint64 tick) {
    constexpr uint64 refresh_seconds = 5;
    const uint32 rate = a_timer_tick::TicksPerSecond;
    if (tick <= LastTODTick.load(relaxed) + refresh_seconds * rate) return diffTOD.load(relaxed);

    const uint64 wall_clock = clock_source().microseconds() - BaseTOD;
    const auto correction = static_cast<int32>(wall_clock - timer_microseconds(tick, rate));
    diffTOD.store(correction, relaxed);
    LastTODTick.store(tick, relaxed);
    return correction;
}

}  // namespace

void a_timer_tick::sample() {
    _tick = extended_tick();
    _diff = wall_clock_correction(_tick);
}

a_tod_tick::a_tod_tick(const a_timer_tick& timer)
    : a_tick(BaseTOD + timer_microseconds(timer._tick, timer.ticks_per_second()) +
             static_cast<uint64>(int64{timer._diff})) {}

void a_tod_tick::sample() {
    _tick = clock_source().microseconds();
}

void a_tod_tick::to_timestamp(a_timestamp* timestamp) const {
    *timestamp = {};
    if (_tick == 0) return;

    const auto whole_seconds = static_cast<time_t>(_tick / microseconds_per_second);
    tm local = {};
    if (localtime_r(&whole_seconds, &local) == nullptr) return;

    const a_broken_time broken = {
        .year = local.tm_year + 1900,
        .month = local.tm_mon + 1,
        .day = local.tm_mday,
        .hour = local.tm_hour,
        .minute = local.tm_min,
        .second = local.tm_sec,
        .weekday = local.tm_wday,
        .day_of_year = local.tm_yday,
        .microsecond = static_cast<uint32>(_tick % microseconds_per_second),
    };
    *timestamp = jdate_timestamp(broken);
}

int timelib_init() {
    const a_timelib_clock& clock = clock_source();
    a_timer_tick::TicksPerSecond = static_cast<uint32>(clock.ticks_per_second());
    const auto now = static_cast<uint64>(int64{clock.raw_ticks()});
    LastTick.store(now, relaxed);
    LastTODTick.store(now, relaxed);
    BaseTOD = clock.microseconds();
    BaseTick = now;
    return 1;
}

void timelib_fini() {}

void timelib_set_clock(const a_timelib_clock* clock) {
    current_clock.store(clock != nullptr ? clock : &system_clock, std::memory_order_release);
}
