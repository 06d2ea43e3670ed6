#include "waveforms.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace virtualboard {

namespace {

constexpr double twoPi = 6.283185307179586476925286766559;
constexpr double degreesPerTurn = 360.0;
/// Samples after which the phasors are computed anew, so that their errors do not add up. Turning
/// them costs a fraction of a sine.
constexpr qint64 alignInterval = 64;

} // namespace

qint32 toCount(double value)
{
    constexpr double least = std::numeric_limits<qint32>::min();
    constexpr double most = std::numeric_limits<qint32>::max();
    const double limited = std::min(std::max(value, least), most);
    const auto whole = qint64(limited);
    const double rest = limited - double(whole);
    return qint32(whole + (rest >= 0.5) - (rest <= -0.5));
}

void Waveforms::enter(const Waves &waves, int sampleInterval)
{
    m_waves = waves;
    m_sampleInterval = sampleInterval * 1e-6;
    m_sample = 0;
    for (std::size_t i = 0; i < m_waves.size(); ++i) {
        const double turn = twoPi * std::remainder(m_waves[i].frequency * m_sampleInterval, 1.0);
        m_turnSine[i] = std::sin(turn);
        m_turnCosine[i] = std::cos(turn);
    }
}

void Waveforms::align()
{
    const double time = double(m_sample) * m_sampleInterval;
    for (std::size_t i = 0; i < m_waves.size(); ++i) {
        const double turns = m_waves[i].frequency * time + m_waves[i].phase / degreesPerTurn;
        const double angle = twoPi * std::remainder(turns, 1.0);
        m_sine[i] = std::sin(angle);
        m_cosine[i] = std::cos(angle);
    }
}

const Waveforms::Counts &Waveforms::next()
{
    if (m_sample % alignInterval == 0)
        align();
    for (std::size_t i = 0; i < m_counts.size(); ++i) {
        m_counts[i] = toCount(m_waves[i].amplitude * m_sine[i]);
        const double sine = m_sine[i] * m_turnCosine[i] + m_cosine[i] * m_turnSine[i];
        m_cosine[i] = m_cosine[i] * m_turnCosine[i] - m_sine[i] * m_turnSine[i];
        m_sine[i] = sine;
    }
    ++m_sample;
    return m_counts;
}

} // namespace virtualboard
