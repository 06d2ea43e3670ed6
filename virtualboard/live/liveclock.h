/// \file
/// The two clocks of a live board, in nanoseconds. It runs by CLOCK_MONOTONIC, which nobody sets;
/// the times that others see count by CLOCK_REALTIME.
#pragma once

#include <QtGlobal>

#include <cerrno>
#include <ctime>

namespace virtualboard {

inline qint64 nanoseconds(const timespec &time)
{
    return qint64(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

inline qint64 clockTime(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return nanoseconds(time);
}

inline qint64 monotonicTime()
{
    return clockTime(CLOCK_MONOTONIC);
}

/// CLOCK_REALTIME less CLOCK_MONOTONIC. Of some attempts the one counts that was disturbed least.
inline qint64 wallClockOffset()
{
    qint64 offset = 0;
    qint64 shortest = -1;
    for (int attempt = 0; attempt < 5; ++attempt) {
        const qint64 before = monotonicTime();
        const qint64 wall = clockTime(CLOCK_REALTIME);
        const qint64 after = monotonicTime();
        if (shortest < 0 || after - before < shortest) {
            shortest = after - before;
            offset = wall - (before + shortest / 2);
        }
    }
    return offset;
}

/// Returns at once if the time has come already.
inline void sleepUntil(qint64 monotonic)
{
    timespec time = {};
    time.tv_sec = decltype(time.tv_sec)(monotonic / 1'000'000'000);
    time.tv_nsec = decltype(time.tv_nsec)(monotonic % 1'000'000'000);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR) { }
}

} // namespace virtualboard
