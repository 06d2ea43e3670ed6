#include "protocol/gooseoffsets.h"

#include "protocol/hexfield.h"

#include <QDebug>

#include <memory>

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
    // All three before any old one goes, or a failed allotment would leave the record half freed.
    const auto count = std::size_t(qMax(n, 0));
    std::unique_ptr<quint8[]> tags(count ? new quint8[count]() : nullptr);
    std::unique_ptr<quint8[]> lengths(count ? new quint8[count]() : nullptr);
    std::unique_ptr<quint16[]> offsets(count ? new quint16[count]() : nullptr);
    delete[] DataTag;
    delete[] DataLen;
    delete[] DataOffset;
    DataTag = tags.release();
    DataLen = lengths.release();
    DataOffset = offsets.release();
    Num = int(count);
}
