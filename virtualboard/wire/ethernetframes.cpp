#include "virtualboard/wire/ethernetframes.h"

#include "virtualboard/wire/berreader.h"
#include "virtualboard/wire/bytes.h"

#include <algorithm>
#include <iterator>

namespace virtualboard {

namespace {

constexpr int kTagOffset = 2 * kMacSize; // if there is a tag
constexpr quint16 kTpid8021Q = 0x8100;
constexpr int kAnySize = 0xffff;

/// An element: where a PDU needs it, or as an entry of a dataset.
struct Field
{
    quint8 tag;
    const char *name;
    int minimum; ///< size of the contents
    int maximum;
};

const Field asduFields[] = {{0x80, "svID", 0, kAnySize},
                            {0x82, "smpCnt", kSmpCntSize, kSmpCntSize},
                            {0x83, "confRev", 4, 4},
                            {0x85, "smpSynch", 1, 1},
                            {0x87, "seqData", 0, kAnySize}};
enum AsduField { SvId, SmpCnt, SvConfRev, SmpSynch, SeqData };

const Field gooseFields[] = {{0x80, "gocbRef", 0, kAnySize},
                             {0x81, "timeAllowedtoLive", 1, 8},
                             {0x82, "datSet", 0, kAnySize},
                             {0x83, "goID", 0, kAnySize},
                             {0x84, "t", kUtcTimeSize, kUtcTimeSize},
                             {0x85, "stNum", kGooseCounterSize, kGooseCounterSize},
                             {0x86, "sqNum", kGooseCounterSize, kGooseCounterSize},
                             {0x87, "simulation", 1, 1},
                             {0x88, "confRev", 1, 4},
                             {0x89, "ndsCom", 1, 1},
                             {0x8a, "numDatSetEntries", 1, 2},
                             {0xab, "allData", 0, kAnySize}};
enum GooseField {
    GocbRef,
    TimeAllowedToLive,
    DatSet,
    GoId,
    T,
    StNum,
    SqNum,
    Simulation,
    ConfRev,
    NdsCom,
    NumDatSetEntries,
    AllData
};

/// MMS Data types that a dataset may carry.
const Field dataTypes[] = {{0x83, "boolean", 1, 1},
                           {0x84, "bit string", 1, kAnySize},
                           {0x85, "integer", 1, 8},
                           {0x86, "unsigned", 1, 8},
                           {0x87, "floating point", 5, 9},
                           {0x89, "octet string", 0, kAnySize},
                           {0x8a, "visible string", 0, kAnySize},
                           {0x8c, "binary time", 4, 6},
                           {0x8d, "BCD", 1, kAnySize},
                           {0x8e, "boolean array", 1, kAnySize},
                           {0x91, "UTC time", 8, 8}};

const Field *findType(quint8 tag)
{
    const auto *const type = std::find_if(std::begin(dataTypes), std::end(dataTypes),
                                          [tag](const Field &each) { return each.tag == tag; });
    return type == std::end(dataTypes) ? nullptr : type;
}

/// The elements of a PDU in their order, up to the first that is not as it has to be.
class FoundFields
{
public:
    template <typename Fields>
    FoundFields(BerReader &in, const Fields &fields)
        : m_in(in)
    {
        for (const Field &field : fields) {
            const auto element = in.expect(field.tag, field.name, field.minimum, field.maximum);
            if (!element)
                return;
            m_found << *element;
        }
    }
    bool has(int field) const { return field < m_found.size(); }
    int offset(int field) const { return has(field) ? m_found[field].offset : -1; }
    QByteArray bytes(int field) const
    {
        return has(field) ? m_in.contents(m_found[field]) : QByteArray();
    }
    quint64 number(int field) const { return bigEndian(bytes(field)); }
    QString text(int field) const { return wireText(bytes(field)); }
    BerReader inside(int field) const { return m_in.inside(m_found[field]); }

private:
    BerReader &m_in;
    QVector<BerElement> m_found;
};

QVector<SvEntry> readSvEntries(BerReader &asdu, const QByteArray &raw)
{
    QVector<SvEntry> entries;
    for (int i = 0; i + kSvEntrySize <= raw.size(); i += kSvEntrySize) {
        entries << SvEntry{qint32(bigEndian(raw.mid(i, 4))), quint32(bigEndian(raw.mid(i + 4, 4)))};
    }
    if (raw.size() % kSvEntrySize != 0)
        asdu.problem(QStringLiteral("seqData: a multiple of %1 bytes expected, %2 found.")
                         .arg(kSvEntrySize)
                         .arg(raw.size()));
    return entries;
}

SampledValues readAsdu(BerReader asdu)
{
    const FoundFields found(asdu, asduFields);
    SampledValues result;
    result.svId = found.text(SvId);
    result.smpCnt = quint16(found.number(SmpCnt));
    result.smpCntOffset = found.offset(SmpCnt);
    result.confRev = quint32(found.number(SvConfRev));
    result.smpSynch = quint8(found.number(SmpSynch));
    result.seqDataOffset = found.offset(SeqData);
    if (found.has(SeqData))
        asdu.expectEnd("ASDU");
    result.entries = readSvEntries(asdu, found.bytes(SeqData));
    return result;
}

SampledValues readSavPdu(BerReader in)
{
    const auto pdu = in.expect(0x60, "savPdu", 0, kAnySize);
    if (!pdu)
        return {};
    in.expectEnd("savPdu");

    BerReader inPdu = in.inside(*pdu);
    const auto noAsdu = inPdu.expect(0x80, "noASDU", 1, 1);
    if (!noAsdu)
        return {};
    const quint64 count = bigEndian(inPdu.contents(*noAsdu));
    if (count != 1)
        inPdu.problem(QStringLiteral("noASDU: 1 expected, %1 found.").arg(count));
    const auto sequence = inPdu.expect(0xa2, "sequence of ASDU", 0, kAnySize);
    if (!sequence)
        return {};
    inPdu.expectEnd("savPdu contents");

    BerReader inSequence = in.inside(*sequence);
    const auto asdu = inSequence.expect(0x30, "ASDU", 0, kAnySize);
    if (!asdu)
        return {};
    inSequence.expectEnd("sequence of ASDU");
    return readAsdu(in.inside(*asdu));
}

QVector<GooseEntry> readGooseEntries(BerReader in)
{
    QVector<GooseEntry> entries;
    while (const auto element = in.next()) {
        const Field *type = findType(element->tag);
        if (!type) {
            in.problem(QStringLiteral("allData, entry %1: %2 is no tag of a data type.")
                           .arg(entries.size() + 1)
                           .arg(hexNumber(element->tag, 2)));
            break;
        }
        if (element->size < type->minimum || element->size > type->maximum) {
            in.problem(QStringLiteral("allData, entry %1: a %2 cannot have %3 byte(s).")
                           .arg(entries.size() + 1)
                           .arg(QLatin1String(type->name))
                           .arg(element->size));
            break;
        }
        entries << GooseEntry{element->tag, in.contents(*element), element->offset};
    }
    return entries;
}

Goose readGoosePdu(BerReader in)
{
    const auto pdu = in.expect(0x61, "goosePdu", 0, kAnySize);
    if (!pdu)
        return {};
    in.expectEnd("goosePdu");
    BerReader inPdu = in.inside(*pdu);
    const FoundFields found(inPdu, gooseFields);

    Goose result;
    result.gocbRef = found.text(GocbRef);
    result.timeAllowedToLive = found.number(TimeAllowedToLive);
    result.datSet = found.text(DatSet);
    result.goId = found.text(GoId);
    result.t = found.bytes(T);
    result.tOffset = found.offset(T);
    result.stNum = quint32(found.number(StNum));
    result.stNumOffset = found.offset(StNum);
    result.sqNum = quint32(found.number(SqNum));
    result.sqNumOffset = found.offset(SqNum);
    result.simulation = found.number(Simulation) != 0;
    result.confRev = quint32(found.number(ConfRev));
    result.ndsCom = found.number(NdsCom) != 0;
    result.numDatSetEntries = int(found.number(NumDatSetEntries));
    if (!found.has(AllData))
        return result;
    inPdu.expectEnd("goosePdu contents");
    result.entries = readGooseEntries(found.inside(AllData));
    if (result.entries.size() != result.numDatSetEntries)
        in.problem(QStringLiteral("numDatSetEntries: %1 announced, %2 found in allData.")
                       .arg(result.numDatSetEntries)
                       .arg(result.entries.size()));
    return result;
}

} // namespace

EthernetFrame decodeEthernetFrame(const QByteArray &frame)
{
    EthernetFrame result;
    result.size = int(frame.size());
    result.destination = frame.left(kMacSize);
    result.source = frame.mid(kMacSize, kMacSize);
    const int typeOffset = etherTypeOffset(frame);
    result.tagged = typeOffset > kTagOffset;

    // With a tag: TPID and TCI, then EtherType, APPID, Length and two reserved words.
    const int appIdOffset = typeOffset + 2;
    const int apduOffset = appIdOffset + 8;
    if (frame.size() < apduOffset) {
        result.problems << QStringLiteral("Ethernet frame: at least %1 bytes expected, %2 found.")
                               .arg(apduOffset)
                               .arg(frame.size());
        return result;
    }
    const int tci = bigEndian16(frame, kTagOffset + 2);
    if (result.tagged) {
        result.priority = tci >> 13;
        result.vlanId = tci & 0x0fff;
    }
    result.etherType = bigEndian16(frame, typeOffset);
    result.appId = bigEndian16(frame, appIdOffset);
    result.length = bigEndian16(frame, appIdOffset + 2);
    if (result.length != result.size - appIdOffset)
        result.problems << QStringLiteral(
                               "Length field: %1 expected from the frame's size, %2 found.")
                               .arg(result.size - appIdOffset)
                               .arg(result.length);

    const BerReader apdu(frame, apduOffset, result.size, result.problems);
    if (result.etherType == kEtherTypeSampledValues)
        result.pdu = readSavPdu(apdu);
    else if (result.etherType == kEtherTypeGoose)
        result.pdu = readGoosePdu(apdu);
    else
        result.problems << QStringLiteral("EtherType: 88ba or 88b8 expected, %1 found.")
                               .arg(hexNumber(result.etherType, 4));
    return result;
}

int etherTypeOffset(const QByteArray &frame)
{
    constexpr int kTagSize = 4;
    return kTagOffset + (bigEndian16(frame, kTagOffset) == kTpid8021Q ? kTagSize : 0);
}

QString gooseTypeName(quint8 tag)
{
    const Field *type = findType(tag);
    return type ? QString::fromLatin1(type->name) : hexNumber(tag, 2);
}

QString macText(const QByteArray &mac)
{
    return QString::fromLatin1(mac.toHex('-').toUpper());
}

} // namespace virtualboard
