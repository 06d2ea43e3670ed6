/// \file
/// Which sample of its stream a captured frame carries, and how many of them come in a second.
#pragma once

#include "virtualboard/play/clocks.h"

#include <QtGlobal>

#include <optional>

namespace workbench {

/// What the frames of one stream tell of its rate: by smpCnt, which numbers the samples of a second
/// in most streams (IEC 61850-9-2), and by their times.
class SampleCounts
{
public:
    /// \param usualInterval between two frames, in seconds; counts where smpCnt does not
    explicit SampleCounts(double usualInterval)
        : m_usualInterval(usualInterval)
    { }
    void add(virtualboard::WallTime time, int smpCnt);

    /// Samples per second: the exact rate that the times allow, if there is one, else the mean. 0
    /// if the times do not go on.
    [[nodiscard]] double rate() const;
    /// How many values smpCnt takes; 65536 if that cannot be known, 0 if smpCnt does not count.
    [[nodiscard]] int modulus() const;

private:
    [[nodiscard]] bool isCounting() const { return 2 * m_follows > m_pairs; }

    double m_usualInterval;
    std::optional<virtualboard::WallTime> m_time; ///< of the last frame
    int m_smpCnt = 0; ///< in it
    int m_largest = 0;
    int m_wrap = 0; ///< smpCnt went from this less one to 0; 0: it never did
    qint64 m_pairs = 0;
    qint64 m_follows = 0; ///< pairs whose second smpCnt is the next one
    virtualboard::Duration m_span{0}; ///< of those
};

/// Numbers the samples of a stream, where some are missing, repeated or late.
class SampleSteps
{
public:
    /// \param rate,modulus as SampleCounts tells them; the rate must not be 0
    SampleSteps(double rate, int modulus)
        : m_rate(rate)
        , m_modulus(modulus)
    { }
    /// By how many samples this one comes behind the last one that did: 1 if none is missing. Below
    /// 1 for a sample that has been there, or comes too late to be put in its place.
    [[nodiscard]] qint64 take(virtualboard::WallTime time, int smpCnt);

private:
    double m_rate;
    int m_modulus;
    std::optional<virtualboard::WallTime> m_time;
    int m_smpCnt = 0;
};

} // namespace workbench
