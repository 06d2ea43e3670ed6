#include "virtualboard/play/waveforms.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace virtualboard {

namespace {

constexpr double kTwoPi = 6.283185307179586476925286766559;
constexpr double kDegreesPerTurn = 360.0;
/// Samples after which the phasors are computed anew, so that their errors do not add up. Turning
/// them costs a fraction of a sine.
constexpr qint64 kAlignInterval = 64;

} // namespace

qint32 toCount(double value)
{
    constexpr double kLeast = std::numeric_limits<qint32>::min();
    constexpr double kMost = std::numeric_limits<qint32>::max();
    const double limited = std::min(std::max(value, kLeast), kMost);
    const auto whole = qint64(limited);
    const double rest = limited - double(whole);
    return qint32(whole + (rest >= 0.5) - (rest <= -0.5));
}

void Waveforms::enter(const Waves &waves, SampleRate rate, Phases phases)
{
    const double timeInLast = double(m_sample) * m_sampleInterval;
    m_sampleInterval = rate.seconds();
    m_sample = 0;
    for (std::size_t i = 0; i < m_waves.size(); ++i) {
        const Wave last = std::exchange(m_waves[i], waves[i]);
        if (phases != Phases::Restart) {
            m_ahead[i] = std::remainder(m_ahead[i] + last.frequency * timeInLast, 1.0);
            if (waves[i].scaleFactor == 0) {
                m_waves[i] = last;
                m_waves[i].amplitude = 0;
            } else if (phases == Phases::Jump && last.scaleFactor != 0) {
                const double degrees = last.phase + waves[i].phaseJump - waves[i].phase;
                m_ahead[i] = std::remainder(m_ahead[i] + degrees / kDegreesPerTurn, 1.0);
            }
        }
        const double turn = kTwoPi * std::remainder(m_waves[i].frequency * m_sampleInterval, 1.0);
        m_turnSine[i] = std::sin(turn);
        m_turnCosine[i] = std::cos(turn);
    }
}

void Waveforms::align()
{
    const double time = double(m_sample) * m_sampleInterval;
    for (std::size_t i = 0; i < m_waves.size(); ++i) {
        const double turns =
            m_waves[i].frequency * time + m_waves[i].phase / kDegreesPerTurn + m_ahead[i];
        const double angle = kTwoPi * std::remainder(turns, 1.0);
        m_sine[i] = std::sin(angle);
        m_cosine[i] = std::cos(angle);
    }
}

const Waveforms::Counts &Waveforms::next()
{
    if (m_sample % kAlignInterval == 0)
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
