/// \file
/// Time, and the two clocks that it is read from. A point of one is none of the other.
#pragma once

#include <chrono>
#include <ctime>

namespace virtualboard {

using namespace std::chrono_literals;

/// Also a time since the start of a sequence.
using Duration = std::chrono::nanoseconds;

[[nodiscard]] constexpr Duration durationOf(const timespec &time)
{
    return std::chrono::seconds(time.tv_sec) + Duration(time.tv_nsec);
}

template <clockid_t kId>
struct SystemClock
{
    using duration = Duration;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<SystemClock>;
    static constexpr bool is_steady = kId == CLOCK_MONOTONIC;

    [[nodiscard]] static time_point now()
    {
        timespec time = {};
        clock_gettime(kId, &time);
        return time_point(durationOf(time));
    }
};

/// What others see: since 1970-01-01 00:00 UTC, without leap seconds. Anybody may set it.
using WallClock = SystemClock<CLOCK_REALTIME>;
/// What a live board runs by: nobody sets it.
using MonotonicClock = SystemClock<CLOCK_MONOTONIC>;
using WallTime = WallClock::time_point;
using MonotonicTime = MonotonicClock::time_point;

} // namespace virtualboard
