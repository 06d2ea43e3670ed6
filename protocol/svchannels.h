/// \file
/// Commands that describe sampled-value channels and their combinations to the board.
#pragma once

#include "lumtar_export.h"

#include <QByteArray>
#include <QString>

/// SV channel command (bc 12 bc 12): one logical channel, 48 bytes.
///
/// | Offset | Size | Field |
/// |---|---|---|
/// | 0 | 4 | head |
/// | 4 | 1 | LogicNUM |
/// | 5 | 1 | Property1 |
/// | 6 | 2 | Property2 |
/// | 8 | 1 | Property3 |
/// | 9 | 1 | Property4 |
/// | 10 | 38 | Spare |
class LUMTAR_EXPORT SMV_CH_Command
{
public:
    /// The command.
    QByteArray data() const;

    /// Logical channel number, in the fewest bytes, big-endian (above 255 the later fields move; a
    /// negative number takes eight). Returns 0.
    int setLogicNUM(int v);
    /// Property preset 1 (06, 01 ff, 7f, ff) or 2 (05, 22 ff, 00, 00); others change nothing.
    /// Returns 0.
    int setProperty(int preset);

    QByteArray LogicNUM = QByteArrayLiteral("\x00"); ///< logical channel number
    QByteArray Property1 = QByteArrayLiteral("\x00"); ///< first property byte
    QByteArray Property2 = QByteArrayLiteral("\x00\x00"); ///< property word
    QByteArray Property3 = QByteArrayLiteral("\x00"); ///< third property byte
    QByteArray Property4 = QByteArrayLiteral("\x00"); ///< fourth property byte
    QByteArray Spare = QByteArray(38, '\0'); ///< Spare01 to Spare38, one byte each
    QByteArray head = QByteArrayLiteral("\xbc\x12\xbc\x12"); ///< command code
};

/// SV combination command (9c 12 9c 12): the channels of one sampled-value stream, 11 bytes and 2
/// per channel.
///
/// | Offset | Size | Field |
/// |---|---|---|
/// | 0 | 4 | head |
/// | 4 | 1 | GroupNUM |
/// | 5 | 1 | LightPort |
/// | 6 | 2 | APPID, low byte first |
/// | 8 | 1 | Protocol |
/// | 9 | 1 | StartLogicNUM |
/// | 10 | 1 | Chamount |
/// | 11 | 2n | ChannelEntries |
///
/// Numbers take the fewest bytes, big-endian, so a value above 255 (or a negative one, eight bytes)
/// moves the later fields; setters return 0 unless they say otherwise.
class LUMTAR_EXPORT SMV_CMB_Command
{
public:
    /// The command.
    QByteArray data() const;

    int setGroupNUM(int v); ///< group number
    /// Optical port, 0 to 15: bits 7-4 of LightPort. Returns 0; -1 for a negative port, which
    /// changes nothing.
    int setLightPort(int port);
    /// Port group, 0 to 15: bits 3-0 of LightPort; a greater one also sets bits of the port.
    /// Returns 0; -1 for a negative group, which changes nothing.
    int setCurrentLigthGROUP(int group);
    /// APPID as decimal text; its low 16 bits are kept. Returns 1.
    int setAppId(QString text);
    int setProtocol(int v); ///< protocol number
    int setStartLogicNUM(int v); ///< first logical channel number
    /// Number of channels; resizes ChannelEntries, new bytes being zero. Returns 0; -1 outside 0 to
    /// 65535, changing nothing.
    int setChamount(int n);
    /// Entry of channel \a index: 20 and \a value when \a used, else 1f 00. A block that ends
    /// before it is lengthened with zero bytes. To be called after setChamount(). Returns 0; -1 for
    /// an index outside 0 to 65535, changing nothing.
    int setProperty(int index, char value, bool used);

    QByteArray GroupNUM = QByteArrayLiteral("\x00"); ///< group number
    QByteArray LightPort = QByteArrayLiteral("\x00"); ///< optical port and port group
    QByteArray AppId_Low = QByteArrayLiteral("\x00"); ///< APPID, low byte
    QByteArray AppId_High = QByteArrayLiteral("\x00"); ///< APPID, high byte
    QByteArray Protocol = QByteArrayLiteral("\x00"); ///< protocol number
    QByteArray StartLogicNUM = QByteArrayLiteral("\x00"); ///< first logical channel
    QByteArray Chamount = QByteArrayLiteral("\x00"); ///< number of channels
    QByteArray ChannelEntries = QByteArrayLiteral("\x00\x00"); ///< two bytes per channel
    QByteArray head = QByteArrayLiteral("\x9c\x12\x9c\x12"); ///< command code
};
