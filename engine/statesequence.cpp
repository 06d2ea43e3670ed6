#include "lumtarengine.h"

#include "hexfield.h"
#include "testconfiguration.h"

#include <QDebug>

#include <array>
#include <cstring>
#include <iterator>

using hexfield::appendByte;
using hexfield::appendFloat;
using hexfield::appendLittleEndian16;
using testconfiguration::kSequenceGooseStreams;

namespace {

constexpr int kSteps = 5;
constexpr int kVoltages = 8;
constexpr int kBinaryInputEnable = 0x08; // in CStep::ctlCondition

/// A control command up to its fields: 8c 90 8c 90, the subcode, the step.
QByteArray controlCommand(quint32 subcode, int step)
{
    constexpr int kUsualSize = 32;
    QByteArray command;
    command.reserve(kUsualSize);
    command.append("\x8c\x90\x8c\x90");
    appendByte(command, subcode);
    appendByte(command, static_cast<quint32>(step));
    return command;
}

/// What a dataset entry of tag \a tag carries for a binary output; nothing if it cannot carry one.
QByteArray binaryOutputValue(int tag, bool on)
{
    switch (tag) {
    case kBooleanTag:
        return on ? QByteArrayLiteral("\x01") : QByteArrayLiteral("\x00");
    case kBitStringTag:
        return on ? QByteArrayLiteral("\x06\x80") : QByteArrayLiteral("\x06\x40");
    default:
        return {};
    }
}

QByteArray stepOptionCommand(const CStep &step, int index)
{
    QByteArray command = controlCommand(0x0a, index);
    appendByte(command, step.stepOption == 0 ? 1 : 0);
    return command;
}

QByteArray stepConditionCommand(const CStep &step, int index)
{
    QByteArray command = controlCommand(0x07, index);
    appendByte(command, step.ctlCondition);
    appendLittleEndian16(command, step.stateTime * 1000U);
    appendByte(command, step.stateTimeJump);
    appendByte(command, step.stateTrige);
    appendByte(command, step.stateTrigeJump);
    appendByte(command, step.ctlCondition & kBinaryInputEnable ? 1 : 0);
    appendByte(command, step.binInpJump);
    return command;
}

} // namespace

int LumtarEngine::ExecSeq()
{
    if (stepCount < 1 || stepCount > kSteps || samplesPerCycle == 0) {
        qDebug() << "ExecSeq: refused, stepCount" << stepCount << "must be 1 to 5, samplesPerCycle"
                 << samplesPerCycle << "must not be 0";
        return 0;
    }
    for (int i = 0; i < stepCount; ++i)
        sendStepCommands(i);

    constexpr quint32 kMicrosecondsPerCycle = 20000; // at 50 Hz
    const auto base = static_cast<quint32>(startParam8);
    QByteArray start = controlCommand(0x03, 1);
    appendByte(start, kMicrosecondsPerCycle / samplesPerCycle);
    appendByte(start, static_cast<quint32>(startParam7));
    for (const quint32 factor : {1U, 2U, 4U})
        appendByte(start, base * factor);
    SendCommand(start);
    return 1;
}

void LumtarEngine::sendStepCommands(int step)
{
    OutChannelPara_tag *voltages = steps[step].outPara;
    OutChannelPara_tag *currents = voltages + kVoltages;
    for (int k = 0; k < kVoltages; ++k)
        sendcmd01(voltages[k], step, k + kVoltages);
    for (int k = 0; k < kVoltages; ++k)
        sendcmd01(currents[k], step, k);
    sendcmd09(step);
    SendCommand(stepOptionCommand(steps[step], step));
    SendCommand(stepConditionCommand(steps[step], step));
}

QByteArray LumtarEngine::sendcmd01(OutChannelPara_tag &para, int step, int channel)
{
    constexpr double kPeakOfRms = 1.41421;
    float amplitude = para.amplitude;
    if (para.ampIsPeak == 0)
        amplitude = static_cast<float>(amplitude * kPeakOfRms);
    if (viInputWay == 0 && para.isCurrent == 0)
        amplitude = static_cast<float>(static_cast<float>(voltageRatio) * amplitude * 10.0);
    else if (viInputWay == 0)
        amplitude *= static_cast<float>(currentRatio);

    QByteArray command = controlCommand(0x01, step);
    appendByte(command, static_cast<quint32>(channel));
    appendFloat(command, para.scaleFactor);
    appendByte(command, para.ampIsPeak);
    for (const float value : {para.frequency, amplitude, para.phasePosition, para.phaseJump})
        appendFloat(command, value);
    SendCommand(command);
    return command;
}

void LumtarEngine::sendcmd09(int step)
{
    if (step < 0 || step >= kSteps) {
        qDebug() << "sendcmd09: refused, step" << step << "is outside 0 to 4";
        return;
    }
    std::array<QByteArray, kSequenceGooseStreams> items;
    for (int group = 0; group < kSequenceGooseStreams; ++group)
        gblGooseDataOffsetAddr[group].ChangeCount = 0;

    for (size_t output = 0; output < std::size(outputGooseMap); ++output) {
        const auto [group, position] = outputGooseMap[output];
        if (group < 0 || group >= kSequenceGooseStreams)
            continue;
        GooseDataOffsetAddr &record = gblGooseDataOffsetAddr[group];
        if (position < 1 || position > record.Num)
            continue;
        QByteArray &groupItems = items[static_cast<size_t>(group)];
        if (++record.ChangeCount == 1) {
            appendLittleEndian16(groupItems, record.StNumOffset);
            groupItems.append(QByteArrayLiteral("\x04\x00\x00\x00\x00")); // stNum := 0
        }
        const int entry = position - 1;
        appendLittleEndian16(groupItems, record.DataOffset[entry]);
        appendByte(groupItems, record.DataLen[entry]);
        groupItems.append(
            binaryOutputValue(record.DataTag[entry], steps[step].binOut[output] != 0));
    }

    for (int group = 0; group < kSequenceGooseStreams; ++group) {
        const quint8 changes = gblGooseDataOffsetAddr[group].ChangeCount;
        if (changes == 0)
            continue;
        QByteArray command = controlCommand(0x09, step);
        appendByte(command, static_cast<quint32>(group));
        appendByte(command, changes + 1U);
        SendCommand(command + items[static_cast<size_t>(group)]);
    }
}

int LumtarEngine::CheckSeqExec(int which, unsigned char *out)
{
    QByteArray command = QByteArrayLiteral("\x8c\x92\x8c\x92");
    appendByte(command, static_cast<quint32>(which));
    expectDataReply = 1;
    if (SendCommand(command) && out)
        std::memcpy(out, rxBuffer + replyOffset, replyLength);
    return lastResult;
}

int LumtarEngine::StopExec()
{
    SendCommand(QByteArrayLiteral("\x8c\x90\x8c\x90\x03\x00\xfa\x05\x02\x04\x08"));
    return lastResult;
}

void LumtarEngine::SeqIsFinished(char *) { }
