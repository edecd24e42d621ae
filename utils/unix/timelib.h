#ifndef QUOREL_UTILS_UNIX_TIMELIB_H
#define QUOREL_UTILS_UNIX_TIMELIB_H

/// Ticks: 64-bit counts of a clock, for timeouts (a_timer_tick) and wall-clock times (a_tod_tick).
///
/// Tick objects are plain values; one object is used by one thread at a time. The state that
/// samples share is not locked: samples may be taken from any number of threads at once, and a race
/// costs at worst a second look for a wrap or a second computation of the wall-clock correction.

#include "utils/etc/uttypes.h"
#include "utils/jdate/jdate.h"

/// A count of ticks of some clock. Arithmetic and comparison are plain unsigned 64-bit operations
/// on the counts and make sense between two ticks of the same clock only.
class a_tick {
  public:
    /// Ticks that this clock makes in a second.
    virtual uint32 ticks_per_second() const = 0;

    uint64 ticks() const { return _tick; }
    void reset() { _tick = 0; }
    a_bool is_valid() const { return _tick != 0; }  // false until sampled or set

    // The count in other units, truncated. The product behind microSeconds() and milliSeconds() may
    // wrap for counts above 2^64 / 10^6 and 2^64 / 10^3.
    uint64 microSeconds() const { return in_units_per_second(1000000); }
    uint64 milliSeconds() const { return in_units_per_second(1000); }
    uint64 seconds() const { return _tick / ticks_per_second(); }
    uint64 minutes() const { return seconds() / 60; }
    uint64 hours() const { return minutes() / 60; }

    void operator+=(const a_tick& other) { _tick += other._tick; }
    void operator-=(const a_tick& other) { _tick -= other._tick; }
    void operator>>=(int bits) { _tick >>= bits; }
    void operator/=(int divisor) { _tick /= static_cast<uint64>(divisor); }
    a_bool operator==(const a_tick& other) const { return _tick == other._tick; }
    a_bool operator!=(const a_tick& other) const { return _tick != other._tick; }
    a_bool operator>(const a_tick& other) const { return _tick > other._tick; }
    a_bool operator>=(const a_tick& other) const { return _tick >= other._tick; }
    a_bool operator<(const a_tick& other) const { return _tick < other._tick; }
    a_bool operator<=(const a_tick& other) const { return _tick <= other._tick; }

  protected:
    a_tick() = default;
    explicit a_tick(uint64 tick) : _tick(tick) {}
    a_tick(const a_tick&) = default;
    a_tick& operator=(const a_tick&) = default;
    ~a_tick() = default;

    uint64 _tick = 0;

  private:
    uint64 in_units_per_second(uint32 units) const {
        const uint32 rate = ticks_per_second();
        return rate == units ? _tick : _tick * units / rate;
    }
};

/// Elapsed time: the system's clock-tick counter, times(2), extended to a 63-bit count that
/// outlives the counter's wraps as long as a sample is taken once in a wrap (248 days at 100 ticks
/// a second).
class a_timer_tick final : public a_tick {
  public:
    /// Zero until sampled.
    a_timer_tick() = default;

    uint32 ticks_per_second() const override { return TicksPerSecond; }

    /// Takes the current time.
    void sample();

    /// The current time.
    static a_timer_tick now() {
        a_timer_tick tick;
        tick.sample();
        return tick;
    }

    a_timer_tick operator+(const a_timer_tick& other) const {
        return moved_to(_tick + other._tick);
    }
    a_timer_tick operator-(const a_timer_tick& other) const {
        return moved_to(_tick - other._tick);
    }

    // Durations in this clock's ticks, truncated: at 100 ticks a second MilliSeconds(9) is no tick.
    static a_timer_tick Minutes(uint32 n) { return Seconds(uint64{n} * 60); }
    static a_timer_tick Seconds(uint64 n) { return a_timer_tick(n * TicksPerSecond); }
    static a_timer_tick MilliSeconds(uint64 n) { return a_timer_tick(n * TicksPerSecond / 1000); }
    static a_timer_tick MicroSeconds(uint64 n) {
        return a_timer_tick(n * TicksPerSecond / 1000000);
    }

    /// A duration that no elapsed time reaches. Samples stay below it, so that a sample plus
    /// Infinite() does not wrap and is a deadline that no later sample reaches.
    static a_timer_tick Infinite() { return a_timer_tick(uint64{1} << 63); }

    /// Class-wide; 100 until timelib_init() asks the system.
    static uint32 TicksPerSecond;

  private:
    friend class a_tod_tick;
    explicit a_timer_tick(uint64 tick) : a_tick(tick) {}

    a_timer_tick moved_to(uint64 tick) const {
        a_timer_tick moved(*this);
        moved._tick = tick;
        return moved;
    }

    int32 _diff = 0;  // wall-clock correction at the last sample, microseconds
};

/// Wall-clock time: microseconds since 1970-01-01 00:00:00 UTC.
class a_tod_tick final : public a_tick {
  public:
    /// Zero until sampled.
    a_tod_tick() = default;

    /// The wall-clock time of a timer sample. Meaningful after timelib_init() only, which sets the
    /// point at which both clocks meet.
    explicit a_tod_tick(const a_timer_tick& timer);

    uint32 ticks_per_second() const override { return TicksPerSecond; }

    /// Takes the current time.
    void sample();

    /// Stores this time as local date and time. Zero ticks give the zero timestamp.
    void to_timestamp(a_timestamp* timestamp) const;

    a_tod_tick operator+(const a_tod_tick& other) const { return a_tod_tick(_tick + other._tick); }
    a_tod_tick operator-(const a_tod_tick& other) const { return a_tod_tick(_tick - other._tick); }

    static a_tod_tick Seconds(uint64 n) { return a_tod_tick(n * TicksPerSecond); }
    static a_tod_tick MilliSeconds(uint64 n) { return a_tod_tick(n * (TicksPerSecond / 1000)); }
    static a_tod_tick MicroSeconds(uint64 n) { return a_tod_tick(n); }

    static constexpr uint32 TicksPerSecond = 1000000;

  private:
    explicit a_tod_tick(uint64 tick) : a_tick(tick) {}
};

/// Takes the tick rate from the system and makes the present moment the point at which the timer
/// and the wall clock meet. Returns 1. To be called, if at all, before any other thread takes
/// samples. Kept: this library never calls it and so runs at 100 ticks a second with both bases
/// zero, which is right for elapsed time wherever the system's tick rate is 100, as on Linux.
int timelib_init();

/// Does nothing.
void timelib_fini();

/// Where samples come from; a test puts clocks of its own here.
struct a_timelib_clock {
    long (*raw_ticks)();         // like times(NULL)
    uint64 (*microseconds)();    // wall clock, since the epoch
    long (*ticks_per_second)();  // like sysconf(_SC_CLK_TCK)
};

/// Replaces the clocks from now on; null puts the system's back. `clock` is not copied. Tick counts
/// go on from where they were; timelib_init() sets them from the new clocks.
void timelib_set_clock(const a_timelib_clock* clock);

#endif
