/// \file
/// Template of an FT3 sampled-value frame (IEC 60044-8 merging units).
#pragma once

#include "lumtar_export.h"

#include <QByteArray>

/// FT3 dataset and the command that downloads it to the board (8c 91 8c 91).
///
/// | Offset | Size | Basic layout, date5() | Extended layout, date2_5() |
/// |---|---|---|---|
/// | 0 | 4 | head | head |
/// | 4 | 1 | Group | Group |
/// | 5 | 1 | Flag | Flag |
/// | 6 | 2 | Header_length | Header_length |
/// | 8 | 2 | DataSet_length | DataSet_length |
/// | 10 | 1 | LNname | LNname |
/// | 11 | 1 | DataSetName | DataSetName |
/// | 12 | 2 | LDName | LDName |
/// | 14 | 2 | PhsAArtg | PhsAArtg |
/// | 16 | 2 | NeutArtg | NeutArtg |
/// | 18 | 2 | PhsAVrtg | PhsAVrtg |
/// | 20 | 2 | Time | Time |
/// | 22 | 2 | SmpCnt | ExtWord1 |
/// | 24 | 2n | Chn | Chn |
/// | 24 + 2n | 2 | StatusWord01 | StatusWord01 |
/// | 26 + 2n | 2 | StatusWord02 | StatusWord02 |
/// | 28 + 2n | 2 | | SmpCnt |
/// | 30 + 2n | 2 | | ExtWord2 |
///
/// Words are big-endian. A value outside 0 to 65535 makes its word longer and moves the later
/// fields. The library computes no CRC and sets no channel values.
class LUMTAR_EXPORT FT3Message
{
public:
    QByteArray date5() const; ///< the command in the basic layout, 28 bytes and 2 per channel
    QByteArray date2_5() const; ///< the command in the extended layout, 32 bytes and 2 per channel

    void setGroup(unsigned char group); ///< group number
    /// Flag value, 0 to 15: Flag becomes the value shifted left by 4, OR 9. Higher bits are lost.
    void setFlag(unsigned char flag);
    /// Sets the second byte of DataSet_length to \a length and the first of Header_length to \a
    /// length + 2, or + 4 when \a extended, each modulo 256.
    void setlength(int length, bool extended);
    void setLNname(unsigned char name); ///< logical node name
    void setDataSetName(unsigned char name); ///< dataset name
    void setLDName(int v); ///< logical device name
    void setPhsAArtg(int v); ///< rated phase current
    void setNeutArtg(int v); ///< rated neutral current
    void setPhsAVrtg(int v); ///< rated phase voltage
    void setTime(int v); ///< rated delay time
    void setStatusWord01(int v); ///< status word 1
    void setStatusWord02(int v); ///< status word 2
    void setSmpCnt(int v); ///< sample counter
    /// Number of channels: Chn becomes twice as many zero bytes. Below 0 counts as 0; above 65535
    /// changes nothing.
    void setChn(int n);

    QByteArray head = QByteArrayLiteral("\x8c\x91\x8c\x91"); ///< command code
    QByteArray Group = QByteArrayLiteral("\x00"); ///< group number
    QByteArray Flag = QByteArrayLiteral("\x19"); ///< flag value 1
    QByteArray Header_length = QByteArrayLiteral("\x00\x00"); ///< low byte first
    QByteArray DataSet_length = QByteArrayLiteral("\x00\x00"); ///< big-endian
    QByteArray LNname = QByteArrayLiteral("\x02"); ///< logical node name
    QByteArray DataSetName = QByteArrayLiteral("\x01"); ///< dataset name
    QByteArray LDName = QByteArrayLiteral("\x00\x00"); ///< logical device name
    QByteArray PhsAArtg = QByteArrayLiteral("\x00\x00"); ///< rated phase current
    QByteArray NeutArtg = QByteArrayLiteral("\x00\x00"); ///< rated neutral current
    QByteArray PhsAVrtg = QByteArrayLiteral("\x00\x00"); ///< rated phase voltage
    QByteArray Time = QByteArrayLiteral("\x00\x00"); ///< rated delay time
    QByteArray StatusWord01 = QByteArrayLiteral("\x00\x00"); ///< status word 1
    QByteArray StatusWord02 = QByteArrayLiteral("\x00\x00"); ///< status word 2
    QByteArray SmpCnt = QByteArrayLiteral("\x00\x00"); ///< sample counter
    QByteArray Chn = QByteArrayLiteral("\x00\x00"); ///< channel block, zero
    QByteArray ExtWord2 = QByteArrayLiteral("\x00\x00"); ///< extended layout: last word
    QByteArray ExtWord1 = QByteArrayLiteral("\x00\x00"); ///< extended layout: before the channels
};
