#pragma once

#include "virtualboard/play/clocks.h"

#include <QtGlobal>

#include <algorithm>
#include <array>

namespace virtualboard {

/// Counts latenesses. Each power of two nanoseconds has 32 buckets, so that a percentile is at most
/// 1/32 above the truth. Never allocates.
class LatenessHistogram
{
public:
    void add(Duration lateness)
    {
        const Duration value = std::max(lateness, Duration(0));
        ++m_buckets[bucketOf(quint64(value.count()))];
        ++m_count;
        m_maximum = std::max(m_maximum, value);
    }

    quint64 count() const { return m_count; }
    Duration maximum() const { return m_maximum; }
    /// At least \a percent of 100 latenesses are not above the result; 0 if there are none.
    Duration percentile(unsigned percent) const
    {
        const quint64 wanted = (m_count * percent + 99) / 100;
        quint64 seen = 0;
        for (std::size_t i = 0; i < m_buckets.size() && wanted > 0; ++i) {
            seen += m_buckets[i];
            if (seen >= wanted)
                return std::min(m_maximum, lastOf(i));
        }
        return {};
    }

private:
    static constexpr std::size_t kPerOctave = 32;

    static std::size_t bucketOf(quint64 value)
    {
        unsigned shift = 0;
        while (value >> shift >= 2 * kPerOctave)
            ++shift;
        return shift * kPerOctave + std::size_t(value >> shift);
    }
    /// The largest value of a bucket.
    static Duration lastOf(std::size_t bucket)
    {
        const std::size_t shift = bucket < kPerOctave ? 0 : bucket / kPerOctave - 1;
        return Duration(qint64(((quint64(bucket - shift * kPerOctave) + 1) << shift) - 1));
    }

    std::array<quint64, 59 *kPerOctave> m_buckets = {}; ///< enough for 63 bits
    quint64 m_count = 0;
    Duration m_maximum = {};
};

} // namespace virtualboard
