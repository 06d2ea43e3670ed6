/// \file
/// The commands that follow a frame-template download and tell the board where the run-time fields
/// of that frame lie. Offsets count bytes from the first byte of the destination MAC address.
#pragma once

#include "lumtar_export.h"

#include <QByteArray>
#include <QString>

/// Kind code of a sampled-value channel without an analog source.
constexpr int kNoAnalogSource = 0xff;

/// SV stream description (8c 90 8c 90 04): 16 bytes and one kind code per channel.
///
/// | Offset | Size | Field |
/// |---|---|---|
/// | 0 | 4 | head |
/// | 4 | 1 | code |
/// | 5 | 1 | MessageStructureCount |
/// | 6 | 1 | Number |
/// | 7 | 2 | TurnoverNUM_addr, low byte first |
/// | 9 | 2 | TurnoverNUM_value, low byte first |
/// | 11 | 2 | TurnoverNUM_MAX_value, low byte first |
/// | 13 | 2 | Message_addr, low byte first |
/// | 15 | 1 | ChannelCount |
/// | 16 | n | ChannelProperty |
///
/// Channel kinds number the test set's analog outputs: 0 to 7 the currents Ia1, Ia2, Ib1, Ib2, Ic1,
/// Ic2, In1, In2, 8 to 15 the voltages in the same order, 255 no analog source.
class LUMTAR_EXPORT SMV_MessageStructure
{
public:
    /// The command.
    QByteArray data() const;

    /// Sets bits 5-0 of MessageStructureCount to the low six bits of \a n. Returns 0.
    int setMessageStructureCount(int n);
    /// ORs \a p, shifted left by 6, into MessageStructureCount; bits already set stay. Returns 0.
    int setProtocol(int p);
    /// Changes nothing. Returns 0.
    int setNumber(int n);
    /// Sets ChannelCount to \a n in the fewest bytes, big-endian, and resizes ChannelProperty to
    /// \a n bytes, new ones being FF. Returns 0; -1 for \a n outside 0 to 65535, changing nothing.
    int setChannelCount(int n);
    /// Sets byte \a index of ChannelProperty to the low byte of \a kind; an index equal to the
    /// length appends. Returns 0; -1 for an index below 0 or above the length, changing nothing.
    int setChannelProperty(int kind, int index);
    /// The same with the kind's name, "Ia1" to "Vn2" in exactly this spelling; any other name
    /// counts as no analog source. A known name also sets its bit in the mask of
    /// MaxChannelProperty().
    int setChannelProperty(QString name, int index);
    /// Frame offset of the smpCnt value. Returns 0; -1 outside 0 to 65535, changing nothing.
    int setTurnoverNUM_addr(int v);
    /// Value at which the board starts smpCnt. Returns 0; -1 outside 0 to 65535, changing nothing.
    int setTurnoverNUM_value(int v);
    /// Samples per second, at which smpCnt wraps to 0. Returns 0; -1 outside 0 to 65535, changing
    /// nothing.
    int setTurnoverNUM_MAX_value(int v);
    /// Frame offset of the first dataset entry. Returns 0; -1 outside 0 to 65535, changing nothing.
    int setMessage_addr(int v);
    /// Sets the mask of channel kinds, which is not sent. Returns 0.
    int setMaxChannelProperty(int v);
    /// Mask of the channel kinds set by name: bit k for kind k.
    int MaxChannelProperty() const;

    QByteArray MessageStructureCount = QByteArrayLiteral("\x00"); ///< stream number and protocol
    QByteArray Number = QByteArrayLiteral("\x00"); ///< stream number
    QByteArray TurnoverNUM_addr = QByteArrayLiteral("\x00\x00"); ///< frame offset of smpCnt
    QByteArray TurnoverNUM_value = QByteArrayLiteral("\x00\x00"); ///< first smpCnt
    QByteArray TurnoverNUM_MAX_value = QByteArrayLiteral("\xa0\x0f"); ///< 4000 samples per second
    QByteArray Message_addr = QByteArrayLiteral("\x00\x00"); ///< frame offset of the first entry
    QByteArray ChannelCount = QByteArrayLiteral("\x16"); ///< 22 channels
    QByteArray ChannelProperty = QByteArray(22, '\xff'); ///< kind code per channel
    int MaxChannelProperty_ = 0; ///< mask of MaxChannelProperty()
    QByteArray head = QByteArrayLiteral("\x8c\x90\x8c\x90"); ///< command code
    QByteArray code = QByteArrayLiteral("\x04"); ///< subcode
};

/// GOOSE stream description (8c 90 8c 90 05): 8 bytes while every value fits one.
///
/// | Offset | Size | Field |
/// |---|---|---|
/// | 0 | 4 | head |
/// | 4 | 1 | code |
/// | 5 | 1 | Goose_count |
/// | 6 | 1 | Goose_Sequence |
/// | 7 | 1 | Goose_utcShitf |
///
/// Each setter stores its value in the fewest bytes, big-endian (two from 256 on, eight for a
/// negative value), and returns 0.
class LUMTAR_EXPORT GOOSE_MessageStructure
{
public:
    /// The command.
    QByteArray data() const;

    int setGoose_count(int v); ///< stream number
    int setGoose_Sequence(int v); ///< frame offset of the sqNum value
    int setGoose_utcShitf(int v); ///< frame offset of the t value

    QByteArray Goose_count = QByteArrayLiteral("\x00"); ///< stream number
    QByteArray Goose_Sequence = QByteArrayLiteral("\x00"); ///< frame offset of the sqNum value
    QByteArray Goose_utcShitf = QByteArrayLiteral("\x00"); ///< frame offset of the t value
    QByteArray head = QByteArrayLiteral("\x8c\x90\x8c\x90"); ///< command code
    QByteArray code = QByteArrayLiteral("\x05"); ///< subcode
};
