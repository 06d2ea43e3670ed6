#include "protocol/streamdescriptions.h"

#include "protocol/analogoutputs.h"
#include "protocol/hexfield.h"

using analogoutputs::kAnalogOutputs;

QByteArray SMV_MessageStructure::data() const
{
    return hexfield::joined(head, code, MessageStructureCount, Number, TurnoverNUM_addr,
                            TurnoverNUM_value, TurnoverNUM_MAX_value, Message_addr, ChannelCount,
                            ChannelProperty);
}

int SMV_MessageStructure::setMessageStructureCount(int n)
{
    const int protocolBits = hexfield::byteAt(MessageStructureCount, 0) & 0xc0;
    hexfield::setByte(MessageStructureCount, 0, protocolBits | (n & 0x3f));
    return 0;
}

int SMV_MessageStructure::setProtocol(int p)
{
    const int present = hexfield::byteAt(MessageStructureCount, 0);
    hexfield::setByte(MessageStructureCount, 0, present | (p & 0x03) << 6);
    return 0;
}

int SMV_MessageStructure::setNumber(int)
{
    return 0;
}

int SMV_MessageStructure::setChannelCount(int n)
{
    if (n < 0 || n > hexfield::kMax16)
        return -1;
    hexfield::setNumber(ChannelCount, n);
    const int missing = n - int(ChannelProperty.size());
    if (missing > 0)
        ChannelProperty.append(missing, char(kNoAnalogSource));
    else
        ChannelProperty.truncate(n);
    return 0;
}

int SMV_MessageStructure::setChannelProperty(int kind, int index)
{
    if (index < 0 || index > ChannelProperty.size())
        return -1;
    hexfield::setByte(ChannelProperty, index, kind);
    return 0;
}

int SMV_MessageStructure::setChannelProperty(QString name, int index)
{
    const QByteArray latin1 = name.toLatin1();
    const std::size_t output =
        analogoutputs::indexOf({latin1.constData(), std::size_t(latin1.size())});
    const bool known = output < kAnalogOutputs.size();
    const int kind = known ? kAnalogOutputs[output].wireChannel : kNoAnalogSource;
    const int result = setChannelProperty(kind, index);
    if (known && result == 0)
        MaxChannelProperty_ |= 1 << kind;
    return result;
}

int SMV_MessageStructure::setTurnoverNUM_addr(int v)
{
    return hexfield::setLittleEndian16(TurnoverNUM_addr, v);
}

int SMV_MessageStructure::setTurnoverNUM_value(int v)
{
    return hexfield::setLittleEndian16(TurnoverNUM_value, v);
}

int SMV_MessageStructure::setTurnoverNUM_MAX_value(int v)
{
    return hexfield::setLittleEndian16(TurnoverNUM_MAX_value, v);
}

int SMV_MessageStructure::setMessage_addr(int v)
{
    return hexfield::setLittleEndian16(Message_addr, v);
}

int SMV_MessageStructure::setMaxChannelProperty(int v)
{
    MaxChannelProperty_ = v;
    return 0;
}

int SMV_MessageStructure::MaxChannelProperty() const
{
    return MaxChannelProperty_;
}

QByteArray GOOSE_MessageStructure::data() const
{
    return hexfield::joined(head, code, Goose_count, Goose_Sequence, Goose_utcShitf);
}

int GOOSE_MessageStructure::setGoose_count(int v)
{
    hexfield::setNumber(Goose_count, v);
    return 0;
}

int GOOSE_MessageStructure::setGoose_Sequence(int v)
{
    hexfield::setNumber(Goose_Sequence, v);
    return 0;
}

int GOOSE_MessageStructure::setGoose_utcShitf(int v)
{
    hexfield::setNumber(Goose_utcShitf, v);
    return 0;
}
