/// \file
/// The command that subscribes to a GOOSE stream of the device under test.
#pragma once

#include "lumtar_export.h"

#include <QByteArray>
#include <QString>

/// GOOSE subscription command (ac 12 ac 12): 12 bytes and the entry map.
///
/// | Offset | Size | Field |
/// |---|---|---|
/// | 0 | 4 | head |
/// | 4 | 1 | GroupNUM |
/// | 5 | 1 | LightPort |
/// | 6 | 2 | APPID, low byte first |
/// | 8 | 2 | first logic channel, low byte first |
/// | 10 | 2 | ChanelNum, low byte first |
/// | 12 | ceil(n/2) | Start_Module |
///
/// The mapped entries feed consecutive logic channels from the first one on.
class LUMTAR_EXPORT Goose_command
{
public:
    /// The command.
    QByteArray data() const;

    /// Group number, in the fewest bytes, big-endian. Returns 0.
    int setGroupNUM(int v);
    /// Light port, 1 to 8 (others wrap): bits 7-5 of LightPort become \a p - 1. Returns 0; -1 for a
    /// negative port, which changes nothing.
    int setLightPort(int p);
    /// Light group on that port, 1 to 31 (the low five bits are kept): bits 4-0 of LightPort.
    /// Returns 0; -1 for a negative group, which changes nothing.
    int setCurrentLigthGROUP(int g);
    /// APPID of the subscribed stream as decimal text; its low 16 bits are kept. Returns 1.
    int setAppId(QString text);
    /// First logic binary-input channel. A number that does not fit 16 bits changes nothing.
    /// Returns 0.
    int setLogicCH(int c);
    /// Number of entries in the subscribed dataset. Clears the entry map and sizes it to \a n
    /// entries. Returns 0; -1 outside 0 to 65535, changing nothing.
    int setChanelNum(int n);
    /// Maps dataset position \a pos, counted from 1, onto a logic channel; a position beyond the
    /// map lengthens it with unmapped entries. To be called after setChanelNum(). Returns 0; -1
    /// outside 1 to 65535, changing nothing.
    int setStart_Module(int pos);

    QByteArray GroupNUM = QByteArrayLiteral("\x00"); ///< group, counted from 1 per configuration
    QByteArray LightPort = QByteArrayLiteral("\x00"); ///< light port and light group
    QByteArray AppId_Low = QByteArrayLiteral("\x00"); ///< APPID, low byte
    QByteArray AppId_High = QByteArrayLiteral("\x00"); ///< APPID, high byte
    QByteArray LogicCH_Low = QByteArrayLiteral("\x00"); ///< first logic channel, low byte
    QByteArray LogicCH_High = QByteArrayLiteral("\x00"); ///< first logic channel, high byte
    QByteArray ChanelNum = QByteArrayLiteral("\x00\x00"); ///< entries in the dataset
    /// One 4-bit code per entry, the earlier entry in the low nibble: 4 mapped, 0 not mapped.
    QByteArray Start_Module = QByteArrayLiteral("\x00\x00");
    QByteArray head = QByteArrayLiteral("\xac\x12\xac\x12"); ///< command code
};
