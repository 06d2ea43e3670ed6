#pragma once

#include "virtualboard/play/clocks.h"

#include <QtGlobal>

namespace virtualboard {

/// How far sample instants are apart: a whole number of microseconds, or a whole number of them to
/// the second, which a whole number of nanoseconds need not be.
class SampleRate
{
public:
    /// No rate.
    constexpr SampleRate() = default;
    static constexpr SampleRate every(std::chrono::microseconds interval)
    {
        return SampleRate(interval.count() > 0 ? 1 : 0, interval);
    }
    static constexpr SampleRate perSecond(int samples) { return SampleRate(samples, 1s); }

    constexpr bool isNone() const { return m_samples == 0; }
    /// The time of sample instant \a number, counted from 0, after the first: to the nearest
    /// nanosecond, however many came before. Not for no rate, as those that follow.
    constexpr Duration timeOf(qint64 number) const
    {
        return number / m_samples * m_span
            + (number % m_samples * m_span + Duration(m_samples / 2)) / m_samples;
    }
    /// The longest time between two instants.
    constexpr Duration interval() const { return (m_span + Duration(m_samples - 1)) / m_samples; }
    /// Between two instants.
    constexpr double seconds() const
    {
        return std::chrono::duration<double>(m_span).count() / double(m_samples);
    }

private:
    constexpr SampleRate(qint64 samples, Duration span)
        : m_samples(samples)
        , m_span(span)
    { }

    qint64 m_samples = 0; ///< at most 65536
    Duration m_span = {}; ///< in which they come, at most 1 s
};

} // namespace virtualboard
