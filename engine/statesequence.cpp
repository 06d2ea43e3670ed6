#include "engine/lumtarengine.h"

#include "protocol/analogoutputs.h"
#include "protocol/boardlimits.h"
#include "protocol/sequencecommands.h"

#include <QDebug>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <type_traits>

using analogoutputs::kAnalogOutputs;
using limits::kSequenceGooseStreams;

static_assert(std::extent_v<decltype(CStep::outPara)> == kAnalogOutputs.size());

int LumtarEngine::ExecSeq()
{
    if (stepCount < 1 || stepCount > limits::kSteps || samplesPerCycle == 0) {
        refuse(QStringLiteral("ExecSeq: refused, stepCount %1 must be 1 to %2, samplesPerCycle %3 "
                              "must not be 0")
                   .arg(stepCount)
                   .arg(limits::kSteps)
                   .arg(samplesPerCycle));
        return 0;
    }
    tellSilenced("ExecSeq");
    constexpr int kMicrosecondsPerCycle = 20000; // at 50 Hz
    SequenceTimes times;
    times.sampleInterval = quint8(kMicrosecondsPerCycle / samplesPerCycle);
    std::transform(std::begin(steps), std::end(steps), times.milliseconds,
                   [](const CStep &step) { return quint16(step.stateTime * 1000U); });
    sendSequence(times);
    return 1;
}

int LumtarEngine::ExecSeqTimed(const SequenceTimes &times)
{
    if (stepCount < 1 || stepCount > limits::kSteps || times.sampleInterval == 0) {
        refuse(QStringLiteral("ExecSeqTimed: refused, stepCount %1 must be 1 to %2, sampleInterval "
                              "%3 must not be 0")
                   .arg(stepCount)
                   .arg(limits::kSteps)
                   .arg(times.sampleInterval));
        return 0;
    }
    tellSilenced("ExecSeqTimed");
    sendSequence(times);
    return 1;
}

/// Tells in one line of amplitudes that only the ratios make 0: SetVIInputWay() may be missing.
void LumtarEngine::tellSilenced(const char *operation) const
{
    int count = 0;
    QString first;
    for (int step = 0; step < stepCount; ++step) {
        for (std::size_t i = 0; i < kAnalogOutputs.size(); ++i) {
            const OutChannelPara_tag &para = steps[step].outPara[i];
            if (para.amplitude == 0.0F || amplitudeSent(para) != 0.0F)
                continue;
            if (++count == 1)
                first = QStringLiteral("%1 of step %2 with %3")
                            .arg(QLatin1String(kAnalogOutputs[i].name.data()))
                            .arg(step)
                            .arg(double(para.amplitude));
        }
    }
    if (count > 0)
        qDebug().noquote() << QStringLiteral("%1: amplitudes other than 0 that are sent as 0: %2, "
                                             "the first one %3; viInputWay is 0, voltageRatio %4, "
                                             "currentRatio %5, see SetVIInputWay()")
                                  .arg(QLatin1String(operation))
                                  .arg(count)
                                  .arg(first)
                                  .arg(voltageRatio)
                                  .arg(currentRatio);
}

void LumtarEngine::sendSequence(const SequenceTimes &times)
{
    for (int i = 0; i < stepCount; ++i)
        sendStepCommands(i, times.milliseconds[i]);
    SendCommand(sequencecommands::start(times.sampleInterval, startParam7, startParam8));
}

void LumtarEngine::sendStepCommands(int step, quint16 milliseconds)
{
    CStep &sent = steps[step];
    for (std::size_t i = 0; i < kAnalogOutputs.size(); ++i)
        sendcmd01(sent.outPara[i], step, kAnalogOutputs[i].wireChannel);
    sendcmd09(step);
    SendCommand(sequencecommands::stepOption(step, sent.stepOption == 0 ? 1 : 0));
    SendCommand(
        sequencecommands::stepCondition({step, sent.ctlCondition, milliseconds, sent.stateTimeJump,
                                         sent.stateTrige, sent.stateTrigeJump, sent.binInpJump}));
}

/// The amplitude that goes out for \a para: its peak, scaled where that is asked for.
float LumtarEngine::amplitudeSent(const OutChannelPara_tag &para) const
{
    constexpr double kPeakOfRms = 1.41421;
    float amplitude = para.amplitude;
    if (para.ampIsPeak == 0)
        amplitude = float(amplitude * kPeakOfRms);
    if (viInputWay == 0 && para.isCurrent == 0)
        amplitude = float(float(voltageRatio) * amplitude * 10.0);
    else if (viInputWay == 0)
        amplitude *= float(currentRatio);
    return amplitude;
}

QByteArray LumtarEngine::sendcmd01(OutChannelPara_tag &para, int step, int channel)
{
    QByteArray command = sequencecommands::channelSignal(
        {step, channel, para.scaleFactor, para.ampIsPeak, para.frequency, amplitudeSent(para),
         para.phasePosition, para.phaseJump});
    SendCommand(command);
    return command;
}

void LumtarEngine::sendcmd09(int step)
{
    if (step < 0 || step >= limits::kSteps) {
        refuse(QStringLiteral("sendcmd09: refused, step %1 is outside 0 to %2")
                   .arg(step)
                   .arg(limits::kSteps - 1));
        return;
    }
    std::array<QVector<sequencecommands::GooseWrite>, kSequenceGooseStreams> writes;
    for (int group = 0; group < kSequenceGooseStreams; ++group)
        gblGooseDataOffsetAddr[group].ChangeCount = 0;

    for (std::size_t output = 0; output < std::size(outputGooseMap); ++output) {
        const auto [group, position] = outputGooseMap[output];
        if (group < 0 || group >= kSequenceGooseStreams)
            continue;
        GooseDataOffsetAddr &record = gblGooseDataOffsetAddr[group];
        if (position < 1 || position > record.Num)
            continue;
        auto &groupWrites = writes[uchar(group)];
        if (++record.ChangeCount == 1)
            groupWrites << sequencecommands::stateChange(record.StNumOffset);
        const int entry = position - 1;
        groupWrites << sequencecommands::binaryOutput(record.DataOffset[entry],
                                                      record.DataLen[entry], record.DataTag[entry],
                                                      steps[step].binOut[output] != 0);
    }

    for (int group = 0; group < kSequenceGooseStreams; ++group) {
        if (const auto &groupWrites = writes[std::size_t(group)]; !groupWrites.isEmpty())
            SendCommand(sequencecommands::gooseControl(step, group, groupWrites));
    }
}

int LumtarEngine::CheckSeqExec(int which, unsigned char *out)
{
    expectDataReply = 1;
    if (SendCommand(sequencecommands::statusReadBack(which)) && out)
        std::memcpy(out, rxBuffer + replyOffset, replyLength);
    return lastResult;
}

int LumtarEngine::StopExec()
{
    SendCommand(sequencecommands::stop());
    return lastResult;
}

void LumtarEngine::SeqIsFinished(char *) { }
