/// \file
/// Small frames of the process bus, as they stand in a capture.
#pragma once

#include "tests/testsupport.h"

#include <QtEndian>

#include <cmath>

namespace testsupport {

/// BER, shorter than 128 bytes.
inline QByteArray element(int tag, const QByteArray &content)
{
    return QByteArray(1, char(tag)) + char(content.size()) + content;
}

inline QByteArray frame(const char *type, int appId, const QByteArray &apdu)
{
    return bytes(QByteArray("010ccd040001 0010aa000001 ") + type) + char(appId >> 8) + char(appId)
        + '\0' + char(apdu.size() + 8) + QByteArray(4, '\0') + apdu;
}

/// Of the stream MU01, with one ASDU.
inline QByteArray svFrame(int appId, const QVector<double> &counts, int smpCnt = 0)
{
    QByteArray values;
    for (const double count : counts) {
        const qint32 big = qToBigEndian(qint32(std::lround(count)));
        values += QByteArray(reinterpret_cast<const char *>(&big), 4) + QByteArray(4, '\0');
    }
    const QByteArray asdu = element(0x80, "MU01") + bytes("8202") + char(smpCnt >> 8) + char(smpCnt)
        + bytes("830400000001 850100") + element(0x87, values);
    return frame("88ba", appId,
                 element(0x60, bytes("800101") + element(0xa2, element(0x30, asdu))));
}

/// A boolean and a double point.
inline QByteArray gooseFrame(int stNum, bool first, bool second)
{
    return frame("88b8", 17,
                 element(0x61,
                         bytes("8001'c' 81021388 8201'd' 8306'Bay '27'1' 8408 00*8 8504 000000")
                             + char(stNum) + bytes("860400000000 870100 880101 890100 8a0102")
                             + element(0xab,
                                       element(0x83, QByteArray(1, char(first)))
                                           + bytes(second ? "84020680" : "84020640"))));
}

} // namespace testsupport
