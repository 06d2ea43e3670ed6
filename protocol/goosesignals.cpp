#include "protocol/goosesignals.h"

#include "protocol/hexfield.h"

#include <algorithm>
#include <utility>

namespace {

/// Resizes a vector of items; returns 0, or -1 for a size that is refused.
int resizeItems(QVector<GseSignal_Data> &items, int n)
{
    if (n < 0 || n > hexfield::kMax16)
        return -1;
    items.resize(n);
    return 0;
}

} // namespace

QByteArray GseSignal_Data::data() const
{
    return hexfield::joined(ShiftingAdd, DateLenth, ShiftData);
}

int GseSignal_Data::setNum_tag(int v)
{
    hexfield::setNumber(Num_tag, v);
    return 0;
}

int GseSignal_Data::setShiftingAdd(int v)
{
    return hexfield::setLittleEndian16(ShiftingAdd, v);
}

int GseSignal_Data::setDateLenth(int v)
{
    hexfield::setNumber(DateLenth, v);
    return 0;
}

int GseSignal_Data::setShiftData(int v)
{
    hexfield::setNumber(ShiftData, v, 2);
    return 0;
}

int GseSignal_Data::setShiftData(QString hex)
{
    ShiftData = hexfield::fromText(hex);
    return 0;
}

QByteArray GseSignal_Contral_UP::data() const
{
    QByteArray command = hexfield::joined(head, code, StateNum, Group, Num_tag);
    const int count = std::min(DatavalueSize, int(Data.size()));
    for (int i = 0; i < count; ++i)
        command.append(Data.at(i).data());
    return command;
}

int GseSignal_Contral_UP::setStateNum(int v)
{
    hexfield::setNumber(StateNum, v);
    return 0;
}

int GseSignal_Contral_UP::setGroup(int v)
{
    hexfield::setNumber(Group, v);
    return 0;
}

int GseSignal_Contral_UP::setNum_tag(int v)
{
    hexfield::setNumber(Num_tag, v);
    return 0;
}

int GseSignal_Contral_UP::setDatavalueSize(int n)
{
    const int result = resizeItems(Data, n);
    if (result == 0)
        DatavalueSize = n;
    return result;
}

QByteArray GseSignal_Contral::data()
{
    QByteArray items;
    for (const GseSignal_Data &item : std::as_const(Data))
        items.append(item.data());
    Data_valueSize_ = hexfield::sizeOf(items);
    return hexfield::joined(head, code, StateNum, Group, ShiftingAdd, DateLenth, items);
}

int GseSignal_Contral::Data_valueSize() const
{
    return Data_valueSize_;
}

int GseSignal_Contral::setStateNum(int v)
{
    hexfield::setNumber(StateNum, v);
    return 0;
}

int GseSignal_Contral::setGroup(int v)
{
    hexfield::setNumber(Group, v);
    return 0;
}

int GseSignal_Contral::setShiftingAdd(int v)
{
    return hexfield::setLittleEndian16(ShiftingAdd, v);
}

int GseSignal_Contral::setDateLenth(int v)
{
    return hexfield::setLittleEndian16(DateLenth, v);
}

int GseSignal_Contral::setDatacount(int n)
{
    return resizeItems(Data, n);
}

int GseSignal_Contral::setData(QByteArray)
{
    return 0;
}
