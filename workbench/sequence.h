/// \file
/// A state sequence as a protection engineer thinks of it.
#pragma once

#include "engine/lumtarengine.h"
#include "workbench/signalnames.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <array>
#include <chrono>
#include <optional>

namespace workbench {

/// Setting of an analog output.
struct SequenceOutput
{
    double amplitude = 0; ///< volts or amperes
    double phase = 0; ///< degrees
    std::optional<double> frequency; ///< Hz; else the nominal one
    /// Degrees, when the step is entered; else the difference of the phases to the step before in
    /// the file, so that a board that applies jumps to the running phase goes on where a board that
    /// continues the phases by itself does.
    std::optional<double> phaseJump;
};

/// A step; another one that it goes to is given by its number.
struct SequenceStep
{
    static constexpr int kBinaryOutputs = 4;
    static constexpr int kAnalogOutputs = 16;

    struct OnTrigger
    {
        int trigger = 1; ///< setting of the board
        int goTo = 0;
    };

    QString name;
    std::chrono::milliseconds time{0}; ///< 0: without end
    int onTimeout = 0;
    std::optional<int> onBinaryInput;
    std::optional<OnTrigger> onTrigger;
    int conditionFlags = 0; ///< further ones, handed to the board as they are
    int stepOption = 0; ///< as CStep::stepOption
    std::array<bool, kBinaryOutputs> binaryOutputs = {};
    /// In the order of outputNames(); those that are left out have amplitude 0.
    std::array<std::optional<SequenceOutput>, kAnalogOutputs> outputs;
};

/// A state sequence with the settings that hold for all of its steps.
struct Sequence
{
    enum class Resolution { Centivolt, Volt }; ///< a count is 0.01 V and 0.001 A, or 1 V and 1 A
    struct Ratios
    {
        int voltage = 10; ///< a multiple of 10
        int current = 1;
    };
    static constexpr int kEnd = 255; ///< a step that is never there: it ends the sequence

    QString description;
    int nominalFrequency = 50; ///< Hz
    int samplesPerCycle = 80;
    Resolution resolution = Resolution::Centivolt;
    bool amplitudesArePeak = false; ///< else RMS
    bool dualAD = false; ///< the second outputs mirror the first
    std::optional<Ratios> ratios; ///< make primary values of secondary ones; else they are primary
    SignalNames signalNames; ///< of logic channels and binary outputs
    QVector<SequenceStep> steps; ///< 1 to 5

    [[nodiscard]] int samplesPerSecond() const { return samplesPerCycle * nominalFrequency; }
    [[nodiscard]] QStringList names() const; ///< of the steps
    /// The name of step \a number, "end", or the number itself.
    [[nodiscard]] QString nameOf(int number) const;
    /// "trip A", or "logic channel 0" if it has no name.
    [[nodiscard]] QString inputName(int channel) const { return signalNames.input(channel); }
    /// "CB closed", or "binary output 1" if it has no name.
    [[nodiscard]] QString outputName(int output) const { return signalNames.output(output); }
};

/// Va1, Va2, Vb1, ... In2, as in CStep::outPara.
[[nodiscard]] const QStringList &outputNames();
[[nodiscard]] inline bool isCurrent(int output)
{
    return output >= 8;
}

/// Writes the settings and the steps into \a engine, but for the times.
void apply(const Sequence &sequence, LumtarEngine &engine);

/// The times of the steps, and the sample interval: the nearest one in whole microseconds, of which
/// the start command has at most 255.
[[nodiscard]] SequenceTimes timesOf(const Sequence &sequence);

} // namespace workbench
