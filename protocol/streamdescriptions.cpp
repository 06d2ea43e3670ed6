#include "streamdescriptions.h"

#include "hexfield.h"

#include <algorithm>
#include <array>

namespace {

/// Index = kind code.
constexpr std::array<const char *, 16> kChannelKinds{"Ia1", "Ia2", "Ib1", "Ib2", "Ic1", "Ic2",
                                                     "In1", "In2", "Va1", "Va2", "Vb1", "Vb2",
                                                     "Vc1", "Vc2", "Vn1", "Vn2"};

} // namespace

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
    const int missing = n - static_cast<int>(ChannelProperty.size());
    if (missing > 0)
        ChannelProperty.append(missing, static_cast<char>(kNoAnalogSource));
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
    const auto found = std::find(kChannelKinds.begin(), kChannelKinds.end(), name);
    const bool known = found != kChannelKinds.end();
    const auto kind = static_cast<int>(found - kChannelKinds.begin());
    const int result = setChannelProperty(known ? kind : kNoAnalogSource, index);
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
