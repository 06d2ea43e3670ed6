#pragma once

#include "virtualboard/wire/ethernetframes.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

namespace virtualboard {

class BerReader;

/// A GOOSE message as any device may send it.
///
/// decodeEthernetFrame() expects the form of a template, with every element in it and counters of
/// four bytes. A device may leave elements out that have a default, encodes integers as short as
/// they are (IEC 61850-8-1, Annex A; ITU-T X.690, 8.3), and may have structures in its dataset.
/// Bytes behind the Length field's end are ignored.
struct GooseMessage
{
    /// Whether the frame, with or without an IEEE 802.1Q tag, has the EtherType of GOOSE and an
    /// APPID.
    static bool isGoose(const QByteArray &frame);

    /// \param frame for which isGoose()
    explicit GooseMessage(const QByteArray &frame);

    QStringList problems; ///< empty when the message is sound
    QByteArray header; ///< addresses, tag, EtherType and APPID
    int appId = 0;
    QString gocbRef;
    QString goId; ///< empty if it has none
    quint64 timeAllowedToLive = 0; ///< ms
    quint64 stNum = 0;
    QVector<GooseEntry> entries;

private:
    void readPdu(BerReader pdu);
    void readEntries(BerReader allData);
};

/// What a dataset entry says as a binary input.
enum class BinaryState { None, Off, On, Intermediate, Bad };

/// Of a boolean (ISO 9506-2) or a double point (IEC 61850-8-1, 8.1.3: a bit string of two bits, off
/// 01, on 10, intermediate 00, bad 11); else None.
[[nodiscard]] BinaryState binaryState(const GooseEntry &entry);

} // namespace virtualboard
