/// \file
/// How a live board's two clocks stand to each other, and how it waits.
#pragma once

#include "virtualboard/play/clocks.h"

#include <cerrno>

namespace virtualboard {

/// Turns times of one clock into those of the other.
class ClockOffset
{
public:
    /// As the clocks stand now. Of some attempts the one counts that was disturbed least.
    [[nodiscard]] static ClockOffset measured()
    {
        ClockOffset result;
        Duration shortest = Duration::max();
        for (int attempt = 0; attempt < 5; ++attempt) {
            const MonotonicTime before = MonotonicClock::now();
            const WallTime wall = WallClock::now();
            const Duration taken = MonotonicClock::now() - before;
            if (taken < shortest) {
                shortest = taken;
                result.m_ahead = wall.time_since_epoch() - (before + taken / 2).time_since_epoch();
            }
        }
        return result;
    }

    [[nodiscard]] WallTime wall(MonotonicTime time) const
    {
        return WallTime(time.time_since_epoch() + m_ahead);
    }
    [[nodiscard]] MonotonicTime monotonic(WallTime time) const
    {
        return MonotonicTime(time.time_since_epoch() - m_ahead);
    }

private:
    Duration m_ahead = {}; ///< the wall clock, of the monotonic one
};

/// Returns at once if the time has come already.
inline void sleepUntil(MonotonicTime wanted)
{
    timespec time = {};
    time.tv_sec = decltype(time.tv_sec)(wanted.time_since_epoch() / 1s);
    time.tv_nsec = decltype(time.tv_nsec)((wanted.time_since_epoch() % 1s).count());
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR) { }
}

} // namespace virtualboard
