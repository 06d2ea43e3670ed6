#include "protocol/controlcommands.h"

#include "protocol/hexfield.h"

using hexfield::joined;

QByteArray StopCMD::data() const
{
    return head;
}

QByteArray ResetMsg_Parameter::data() const
{
    return joined(head, code);
}

int StopAndStart::setTest_tag(int v)
{
    hexfield::setByte(Test_tag, 0, v);
    return 0;
}

int StopAndStart::setTimevalue(int samples)
{
    constexpr int kMicrosecondsPerCycle = 1000000 / 50;
    constexpr int kFallback = 80;
    hexfield::setNumber(Timevalue, samples > 0 ? kMicrosecondsPerCycle / samples : kFallback);
    return 0;
}

QByteArray StopAndStart::data() const
{
    return joined(head, code, Test_tag, Timevalue, third, fourth, fifth, sixth);
}

int CheckBackface::setCommadflag(int v)
{
    hexfield::setDecimalDigits(Commadflag, v);
    return 0;
}

QByteArray CheckBackface::data() const
{
    return joined(head, Commadflag);
}

void Disable_currentstate::setstate_flag(int v)
{
    hexfield::setNumber(state_flag, v);
}

QByteArray Disable_currentstate::data() const
{
    return joined(head, code, state_flag);
}

int StateChange_Message::setFlag(int v)
{
    hexfield::setNumber(Flag, v);
    return 0;
}

QByteArray StateChange_Message::data() const
{
    return joined(head, code, Flag);
}
