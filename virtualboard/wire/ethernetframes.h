#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <variant>

namespace virtualboard {

// All offsets count bytes from the first byte of the destination MAC address; -1: not found.

constexpr int kMacSize = 6;
constexpr int kSvEntrySize = 8; ///< of a dataset entry: value and quality (IEC 61850-9-2)
constexpr int kSmpCntSize = 2;
constexpr int kGooseCounterSize = 4; ///< stNum, sqNum
constexpr int kUtcTimeSize = 8; ///< t

/// One dataset entry of a sampled-value frame: INT32 value and 32-bit quality.
struct SvEntry
{
    qint32 value = 0;
    quint32 quality = 0;
};

/// The savPdu of a sampled-value frame with one ASDU (IEC 61850-9-2, clause 8.5).
struct SampledValues
{
    QString svId;
    quint16 smpCnt = 0;
    int smpCntOffset = -1; ///< of the counter's first byte
    quint32 confRev = 0;
    quint8 smpSynch = 0;
    int seqDataOffset = -1; ///< of the first byte of the first dataset entry
    QVector<SvEntry> entries;
};

/// One entry of a GOOSE dataset (MMS Data, ISO 9506-2).
struct GooseEntry
{
    quint8 tag = 0;
    QByteArray value;
    int valueOffset = -1;
};

/// The goosePdu of a GOOSE frame (IEC 61850-8-1, Annex A).
struct Goose
{
    QString gocbRef;
    quint64 timeAllowedToLive = 0; ///< ms
    QString datSet;
    QString goId;
    QByteArray t; ///< 8 bytes: seconds, fraction, time quality
    int tOffset = -1;
    quint32 stNum = 0;
    int stNumOffset = -1;
    quint32 sqNum = 0;
    int sqNumOffset = -1;
    bool simulation = false;
    quint32 confRev = 0;
    bool ndsCom = false;
    int numDatSetEntries = 0;
    QVector<GooseEntry> entries;
};

/// One Ethernet frame of a template download.
struct EthernetFrame
{
    QByteArray destination; ///< 6 bytes
    QByteArray source; ///< 6 bytes
    bool tagged = false; ///< has an IEEE 802.1Q tag
    int priority = 0; ///< 802.1Q user priority, 0 to 7
    int vlanId = 0; ///< 0 to 4095
    quint16 etherType = 0;
    quint16 appId = 0;
    int length = 0; ///< the Length field: from APPID to the end of the APDU
    int size = 0; ///< of the whole frame in bytes, without frame check sequence
    std::variant<std::monostate, SampledValues, Goose> pdu;
    QStringList problems;
};

constexpr quint16 kEtherTypeSampledValues = 0x88ba;
constexpr quint16 kEtherTypeGoose = 0x88b8;

/// Decodes a sampled-value or GOOSE frame from the destination MAC address on.
///
/// Every element has to stand where the standards put it, with a length in the shortest definite
/// BER form (ITU-T X.690, 8.1.3) that ends where its contents end. The first fault inside the APDU
/// ends its decoding; what was read up to there is in the result.
///
/// \param frame any bytes of any size; nothing outside of them is read.
[[nodiscard]] EthernetFrame decodeEthernetFrame(const QByteArray &frame);

/// Of the EtherType: behind the MAC addresses, and an IEEE 802.1Q tag if there is one. The frame
/// may end before it.
[[nodiscard]] int etherTypeOffset(const QByteArray &frame);

/// Name of the MMS data type with this tag ("boolean", "bit string", ...); the tag if unknown.
[[nodiscard]] QString gooseTypeName(quint8 tag);

/// "01-0C-CD-04-00-01".
[[nodiscard]] QString macText(const QByteArray &mac);

} // namespace virtualboard
