#pragma once

#include <QtGlobal>

#include <algorithm>
#include <array>
#include <limits>

namespace virtualboard {

/// Counts latenesses in nanoseconds, up to 4.29 s; longer ones count as that. Each power of two has
/// 32 buckets, so that a percentile is at most 1/32 above the truth. Never allocates.
class LatenessHistogram
{
public:
    void add(qint64 lateness)
    {
        const auto value =
            quint32(std::clamp<qint64>(lateness, 0, std::numeric_limits<quint32>::max()));
        ++m_buckets[bucketOf(value)];
        ++m_count;
        m_maximum = std::max(m_maximum, value);
    }

    quint64 count() const { return m_count; }
    quint32 maximum() const { return m_maximum; }
    /// At least @p percent of 100 latenesses are not above the result. 0 if there are none.
    quint32 percentile(unsigned percent) const
    {
        const quint64 wanted = (m_count * percent + 99) / 100;
        quint64 seen = 0;
        for (std::size_t i = 0; i < m_buckets.size() && wanted > 0; ++i) {
            seen += m_buckets[i];
            if (seen >= wanted)
                return std::min(m_maximum, lastOf(i));
        }
        return 0;
    }

private:
    static constexpr std::size_t perOctave = 32;

    static std::size_t bucketOf(quint32 value)
    {
        unsigned shift = 0;
        while (value >> shift >= 2 * perOctave)
            ++shift;
        return shift * perOctave + (value >> shift);
    }
    /// The largest value of a bucket.
    static quint32 lastOf(std::size_t bucket)
    {
        const std::size_t shift = bucket < perOctave ? 0 : bucket / perOctave - 1;
        return quint32(((quint64(bucket - shift * perOctave) + 1) << shift) - 1);
    }

    std::array<quint64, 28 *perOctave> m_buckets = {};
    quint64 m_count = 0;
    quint32 m_maximum = 0;
};

} // namespace virtualboard
