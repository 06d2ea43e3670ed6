#include "protocol/ft3frame.h"

#include "protocol/hexfield.h"

#include <algorithm>

namespace {

constexpr int kWord = 2;

} // namespace

QByteArray FT3Message::date5() const
{
    return hexfield::joined(head, Group, Flag, Header_length, DataSet_length, LNname, DataSetName,
                            LDName, PhsAArtg, NeutArtg, PhsAVrtg, Time, SmpCnt, Chn, StatusWord01,
                            StatusWord02);
}

QByteArray FT3Message::date2_5() const
{
    return hexfield::joined(head, Group, Flag, Header_length, DataSet_length, LNname, DataSetName,
                            LDName, PhsAArtg, NeutArtg, PhsAVrtg, Time, ExtWord1, Chn, StatusWord01,
                            StatusWord02, SmpCnt, ExtWord2);
}

void FT3Message::setGroup(unsigned char group)
{
    hexfield::setNumber(Group, group);
}

void FT3Message::setFlag(unsigned char flag)
{
    hexfield::setFixedWidth(Flag, flag << 4U | 0x09U, 1);
}

void FT3Message::setlength(int length, bool extended)
{
    const auto bytes = uint(length);
    hexfield::setByte(DataSet_length, 1, int(bytes & 0xffU));
    hexfield::setByte(Header_length, 0, int((bytes + (extended ? 4U : 2U)) & 0xffU));
}

void FT3Message::setLNname(unsigned char name)
{
    hexfield::setNumber(LNname, name);
}

void FT3Message::setDataSetName(unsigned char name)
{
    hexfield::setNumber(DataSetName, name);
}

void FT3Message::setLDName(int v)
{
    hexfield::setNumber(LDName, v, kWord);
}

void FT3Message::setPhsAArtg(int v)
{
    hexfield::setNumber(PhsAArtg, v, kWord);
}

void FT3Message::setNeutArtg(int v)
{
    hexfield::setNumber(NeutArtg, v, kWord);
}

void FT3Message::setPhsAVrtg(int v)
{
    hexfield::setNumber(PhsAVrtg, v, kWord);
}

void FT3Message::setTime(int v)
{
    hexfield::setNumber(Time, v, kWord);
}

void FT3Message::setStatusWord01(int v)
{
    hexfield::setNumber(StatusWord01, v, kWord);
}

void FT3Message::setStatusWord02(int v)
{
    hexfield::setNumber(StatusWord02, v, kWord);
}

void FT3Message::setSmpCnt(int v)
{
    hexfield::setNumber(SmpCnt, v, kWord);
}

void FT3Message::setChn(int n)
{
    if (n <= hexfield::kMax16)
        Chn = QByteArray(kWord * std::max(n, 0), '\0');
}
