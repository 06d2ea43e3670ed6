#include "gooseoffsets.h"

#include "hexfield.h"

#include <QDebug>

GooseDataOffsetAddr::~GooseDataOffsetAddr()
{
    SetPara(0);
}

void GooseDataOffsetAddr::SetPara(int n)
{
    if (n > hexfield::kMax16) {
        qDebug() << "SetPara: refused, number of entries" << n << "is above" << hexfield::kMax16;
        return;
    }
    delete[] DataTag;
    delete[] DataLen;
    delete[] DataOffset;
    Num = qMax(n, 0);
    const auto count = static_cast<size_t>(Num);
    DataTag = Num ? new quint8[count]() : nullptr;
    DataLen = Num ? new quint8[count]() : nullptr;
    DataOffset = Num ? new quint16[count]() : nullptr;
}
