#pragma once

#include "virtualboard/play/testprogram.h"

#include <array>

namespace virtualboard {

/// The samples of the sixteen analog channels of a step.
class Waveforms
{
public:
    using Counts = std::array<qint32, kAnalogChannels>;

    /// A step begins: the next sample is its first one. The first step begins at its own phases. A
    /// channel that the step says nothing of keeps its frequency, but for Phases::Restart, so that
    /// it stays in time with the others; one that is named for the first time begins at its phase.
    void enter(const Waves &waves, SampleRate rate, Phases phases);
    /// The next sample, in counts.
    const Counts &next();

private:
    using Values = std::array<double, kAnalogChannels>;
    void align();

    Waves m_waves;
    double m_sampleInterval = 0; ///< s
    qint64 m_sample = 0; ///< since the step began
    Values m_ahead = {}; ///< turns that a channel was ahead of its phase when the step began
    // One phasor per channel, turned from sample to sample.
    Values m_sine = {};
    Values m_cosine = {};
    Values m_turnSine = {};
    Values m_turnCosine = {};
    Counts m_counts = {};
};

/// The nearest whole number, half away from zero, limited to 32 bits.
[[nodiscard]] qint32 toCount(double value);

} // namespace virtualboard
