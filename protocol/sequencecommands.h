/// \file
/// The commands of a state sequence as the engine sends them: every number in a field of its fixed
/// width, of which a larger one keeps the low bytes.
#pragma once

#include <QByteArray>
#include <QVector>

namespace sequencecommands {

/// The waveform of one analog output in one step (8c 90 8c 90 01), 28 bytes: ChannelSignalControl
/// with a phase jump.
struct ChannelSignalFields
{
    int step;
    int channel; ///< wire channel
    float scaleFactor; ///< volts or amperes per count
    quint8 ampIsPeak;
    float frequency; ///< Hz
    float amplitude; ///< volts or amperes, peak
    float phasePosition; ///< degrees
    float phaseJump; ///< degrees
};
[[nodiscard]] QByteArray channelSignal(const ChannelSignalFields &fields);

/// Start (8c 90 8c 90 03 01), with the sample interval in microseconds; the last three bytes are
/// one, two and four times \a base.
[[nodiscard]] QByteArray start(int sampleInterval, int third, int base);
/// Stop (8c 90 8c 90 03 00).
[[nodiscard]] QByteArray stop();

/// Where a step goes, and when (8c 90 8c 90 07).
struct StepConditionFields
{
    int step;
    quint8 conditions; ///< flags; the binary input ends the step if kBinaryInputEnable is set
    quint16 milliseconds;
    quint8 timeJump;
    quint8 trigger;
    quint8 triggerJump;
    quint8 binaryInputJump;
};
constexpr int kBinaryInputEnable = 0x08; ///< among the conditions
[[nodiscard]] QByteArray stepCondition(const StepConditionFields &fields);

/// Step option (8c 90 8c 90 0a), 7 bytes: step, option.
[[nodiscard]] QByteArray stepOption(int step, int option);

/// What is written into a published GOOSE frame when a step begins.
struct GooseWrite
{
    int offset; ///< frame offset
    int length; ///< as announced
    QByteArray data;
};
/// GOOSE signal control (8c 90 8c 90 09) for GOOSE stream \a group.
[[nodiscard]] QByteArray gooseControl(int step, int group, const QVector<GooseWrite> &items);

/// The change of state itself: stNum becomes 0, upon which the board counts.
[[nodiscard]] GooseWrite stateChange(int stNumOffset);
/// What a dataset entry of tag \a tag carries for a binary output: no data if it cannot carry one.
[[nodiscard]] GooseWrite binaryOutput(int offset, int length, int tag, bool on);

/// Status read-back (8c 92 8c 92).
[[nodiscard]] QByteArray statusReadBack(int which);

} // namespace sequencecommands
