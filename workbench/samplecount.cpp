#include "workbench/samplecount.h"

#include <algorithm>
#include <cmath>

using namespace virtualboard;

namespace workbench {

namespace {

constexpr int kCounterRange = 0x10000;

double seconds(Duration time)
{
    return std::chrono::duration<double>(time).count();
}

} // namespace

void SampleCounts::add(WallTime time, int smpCnt)
{
    if (m_time) {
        const bool wraps = smpCnt == 0 && m_smpCnt > 0 && (m_wrap == 0 || m_wrap == m_smpCnt + 1);
        if (wraps)
            m_wrap = m_smpCnt + 1;
        if (wraps || smpCnt == m_smpCnt + 1) {
            ++m_follows;
            m_span += time - *m_time;
        }
        ++m_pairs;
    }
    m_time = time;
    m_smpCnt = smpCnt;
    m_largest = std::max(m_largest, smpCnt);
}

double SampleCounts::rate() const
{
    // Of what clocks differ by, and of a span whose ends are not those of the samples.
    constexpr double kClocks = 2e-4;
    constexpr double kJitter = 1e-4; // seconds
    const double span = isCounting() ? seconds(m_span) : m_usualInterval;
    if (!(span > 0))
        return 0;
    const double mean = isCounting() ? double(m_follows) / span : 1 / span;
    const double microseconds = std::max(std::round(1e6 / mean), 1.0);
    const double candidates[] = {std::round(mean / 10) * 10, double(m_wrap), 1e6 / microseconds};
    double best = 0;
    for (const double each : candidates) {
        if (std::fabs(each - mean) < std::fabs(best - mean))
            best = each;
    }
    return std::fabs(best / mean - 1) <= kClocks + kJitter / span ? best : mean;
}

int SampleCounts::modulus() const
{
    if (!isCounting())
        return 0;
    if (m_wrap > m_largest)
        return m_wrap;
    const double perSecond = std::round(rate());
    return perSecond > m_largest && perSecond < kCounterRange ? int(perSecond) : kCounterRange;
}

qint64 SampleSteps::take(WallTime time, int smpCnt)
{
    qint64 steps = 1;
    if (m_time) {
        const double expected = std::max(seconds(time - *m_time), 0.0) * m_rate;
        if (m_modulus == 0) {
            steps = std::max<qint64>(std::llround(expected), 1);
        } else {
            const int counted = smpCnt - m_smpCnt;
            steps = counted + std::llround((expected - counted) / m_modulus) * m_modulus;
        }
    }
    if (steps > 0) {
        m_time = time;
        m_smpCnt = smpCnt;
    }
    return steps;
}

} // namespace workbench
