#include "protocol/stepcommands.h"

#include "protocol/hexfield.h"

QByteArray StepCondition::packetdata() const
{
    return hexfield::joined(head, code, State_tag, CtlCondition, StateTime, StateTime_jump,
                            StateTrige, StateTrige_jump, BinInp, BinInp_jump);
}

int StepCondition::setState_tag(int v)
{
    hexfield::setDecimalDigits(State_tag, v);
    return 0;
}

int StepCondition::setCtlCondition(int v)
{
    hexfield::setNumber(CtlCondition, v);
    return 0;
}

int StepCondition::setStateTime(float seconds)
{
    const float milliseconds = seconds * 1000.0F;
    if (!(milliseconds < float(hexfield::kMax16 + 1))) // false for not-a-number too
        return -1;
    return hexfield::setLittleEndian16(StateTime, milliseconds > 0.0F ? int(milliseconds) : 0);
}

int StepCondition::setStateTime_jump(int v)
{
    hexfield::setDecimalDigits(StateTime_jump, v);
    return 0;
}

int StepCondition::setStateTrige(int v)
{
    hexfield::setNumber(StateTrige, v);
    return 0;
}

int StepCondition::setStateTrige_jump(int v)
{
    hexfield::setNumber(StateTrige_jump, v);
    return 0;
}

int StepCondition::setBinInp(int v)
{
    hexfield::setNumber(BinInp, v);
    return 0;
}

int StepCondition::setBinInp_jump(int v)
{
    hexfield::setNumber(BinInp_jump, v);
    return 0;
}

int StepCondition::getStateTime_jump() const
{
    return hexfield::byteAt(StateTime_jump, 0);
}

int StepCondition::getStateTrige_jump() const
{
    return hexfield::byteAt(StateTrige_jump, 0);
}

int StepCondition::getBinInp_jump() const
{
    return hexfield::byteAt(BinInp_jump, 0);
}

QByteArray ChannelSignalControl::data() const
{
    return hexfield::joined(head, code, Stat, Count, Scalefactor, PeakFlag, Frequency, Peakvalue,
                            PhasePosition);
}

int ChannelSignalControl::setStat(int v)
{
    hexfield::setDecimalDigits(Stat, v);
    return 0;
}

int ChannelSignalControl::setCount(int v)
{
    hexfield::setNumber(Count, v);
    return 0;
}

int ChannelSignalControl::setScalefactor(float v)
{
    return hexfield::setFloat(Scalefactor, v);
}

int ChannelSignalControl::setFrequency(float hertz)
{
    return hexfield::setFloat(Frequency, hertz);
}

int ChannelSignalControl::setPeakvalue(float v)
{
    return hexfield::setFloat(Peakvalue, v);
}

int ChannelSignalControl::setPhasePosition(float degrees)
{
    return hexfield::setFloat(PhasePosition, degrees);
}
