#include "protocol/sequencecommands.h"

#include "protocol/controlcommands.h"
#include "protocol/gooseframe.h"
#include "protocol/goosesignals.h"
#include "protocol/hexfield.h"
#include "protocol/stepcommands.h"

#include <array>

namespace sequencecommands {

namespace {

/// Every byte once.
constexpr auto kBytes = [] {
    std::array<char, 256> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = char(i);
    return bytes;
}();

/// The low byte of \a value, without an allocation: a sequence sends a hundred commands of such
/// fields.
QByteArray byteField(int value)
{
    return QByteArray::fromRawData(&kBytes[std::size_t(value & 0xff)], 1);
}

} // namespace

QByteArray channelSignal(const ChannelSignalFields &fields)
{
    ChannelSignalControl builder;
    builder.Stat = byteField(fields.step);
    builder.Count = byteField(fields.channel);
    builder.PeakFlag = byteField(fields.ampIsPeak);
    builder.setScalefactor(fields.scaleFactor);
    builder.setFrequency(fields.frequency);
    builder.setPeakvalue(fields.amplitude);
    builder.setPhasePosition(fields.phasePosition);
    QByteArray command = builder.data();
    hexfield::appendFloat(command, fields.phaseJump);
    return command;
}

QByteArray start(int sampleInterval, int third, int base)
{
    const auto bits = quint32(base); // whose multiples may wrap
    StopAndStart builder;
    builder.Timevalue = byteField(sampleInterval);
    builder.third = byteField(third);
    builder.fourth = byteField(base);
    builder.fifth = byteField(int(2 * bits & 0xff));
    builder.sixth = byteField(int(4 * bits & 0xff));
    return builder.data();
}

QByteArray stop()
{
    StopAndStart builder;
    builder.setTest_tag(0);
    return builder.data();
}

QByteArray stepCondition(const StepConditionFields &fields)
{
    StepCondition builder;
    builder.State_tag = byteField(fields.step);
    builder.CtlCondition = byteField(fields.conditions);
    hexfield::setLittleEndian16(builder.StateTime, fields.milliseconds);
    builder.StateTime_jump = byteField(fields.timeJump);
    builder.StateTrige = byteField(fields.trigger);
    builder.StateTrige_jump = byteField(fields.triggerJump);
    builder.BinInp = byteField((fields.conditions & kBinaryInputEnable) != 0 ? 1 : 0);
    builder.BinInp_jump = byteField(fields.binaryInputJump);
    return builder.packetdata();
}

QByteArray stepOption(int step, int option)
{
    return QByteArrayLiteral("\x8c\x90\x8c\x90\x0a") + byteField(step) + byteField(option);
}

QByteArray gooseControl(int step, int group, const QVector<GooseWrite> &items)
{
    GseSignal_Contral_UP builder;
    builder.StateNum = byteField(step);
    builder.Group = byteField(group);
    builder.Num_tag = byteField(int(items.size()));
    builder.setDatavalueSize(int(items.size()));
    for (int i = 0; i < items.size(); ++i) {
        GseSignal_Data &item = builder.Data[i];
        item.setShiftingAdd(items[i].offset);
        item.DateLenth = byteField(items[i].length);
        item.ShiftData = items[i].data;
    }
    return builder.data();
}

GooseWrite stateChange(int stNumOffset)
{
    constexpr int kStNumSize = 4;
    return {stNumOffset, kStNumSize, QByteArray(kStNumSize, '\0')};
}

GooseWrite binaryOutput(int offset, int length, int tag, bool on)
{
    switch (tag) {
    case kBooleanTag:
        return {offset, length, byteField(on ? 1 : 0)};
    case kBitStringTag: // two bits used: 10 on, 01 off
        return {offset, length, on ? QByteArrayLiteral("\x06\x80") : QByteArrayLiteral("\x06\x40")};
    default:
        return {offset, length, {}};
    }
}

QByteArray statusReadBack(int which)
{
    CheckBackface builder;
    builder.Commadflag = byteField(which);
    return builder.data();
}

} // namespace sequencecommands
