#include "lumtarengine.h"

#include "configurationreading.h"

#include <QVarLengthArray>

#include <string_view>

namespace testconfiguration {

namespace {

using UpperCaseName = QVarLengthArray<char16_t, 32>;

/// What QString::toUpper() gives; for the usual name, in ASCII, without a copy on the heap, since a
/// large configuration has more than a thousand of them.
UpperCaseName upperCase(const QString &name)
{
    UpperCaseName upper;
    for (const QChar c : name) {
        const char16_t unit = c.unicode();
        if (unit > 0x7f) { // may become several characters
            upper.clear();
            const QString text = name.toUpper();
            for (const QChar u : text)
                upper.append(u.unicode());
            return upper;
        }
        upper.append(unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - u'a' + u'A')
                                                  : unit);
    }
    return upper;
}

/// Kind code of the analog output that an upper-case channel name holds, such as IA1 or VN2: of
/// several, the first in the order IA1, IB1, IC1, IN1, VA1 ... VN1, IA2 ... VN2.
int channelKindOf(std::u16string_view name)
{
    constexpr std::u16string_view kQuantities = u"IV";
    constexpr std::u16string_view kPhases = u"ABCN";
    constexpr std::u16string_view kGroups = u"12";
    constexpr auto kNone = std::u16string_view::npos;
    size_t firstRank = kNone;
    int kind = kNoAnalogSource;
    for (size_t i = 0; i + 2 < name.size(); ++i) {
        const size_t group = kGroups.find(name[i + 2]);
        if (group == kNone) // most end here
            continue;
        const size_t quantity = kQuantities.find(name[i]);
        const size_t phase = kPhases.find(name[i + 1]);
        if (quantity == kNone || phase == kNone)
            continue;
        const size_t rank = 8 * group + 4 * quantity + phase;
        if (rank < firstRank) {
            firstRank = rank;
            kind = static_cast<int>(8 * quantity + 2 * phase + group);
        }
    }
    return kind;
}

void setChannel(SeqData &entry, SMV_MessageStructure &description, int index,
                const QDomElement &channel)
{
    entry.setQuality(channel.attribute(QStringLiteral("quality")));
    const UpperCaseName upper = upperCase(channel.attribute(QStringLiteral("channel")));
    const std::u16string_view name(upper.data(), static_cast<size_t>(upper.size()));
    if (name.find(u"DELAYT") != std::u16string_view::npos)
        entry.setVlaue(channel.attribute(QStringLiteral("delayt")));
    description.setChannelProperty(channelKindOf(name), index);
}

/// Sets one dataset entry and one kind per `chninfo` child of \a stream.
void setChannels(Message_9_2 &frame, SMV_MessageStructure &description, const QDomElement &stream,
                 Remarks &remarks)
{
    const int count = static_cast<int>(frame.SeqData_Vector.size());
    int found = 0;
    for (QDomElement child = stream.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        if (!hasTag(child, QLatin1String("chninfo")))
            continue;
        if (found < count)
            setChannel(frame.SeqData_Vector[found], description, found, child);
        ++found;
    }
    if (found > count) {
        remark(remarks, Remark::Error, stream,
               QStringLiteral("ignored, %1 chninfo beyond the %2 that chNums counts")
                   .arg(found - count)
                   .arg(count));
    }
}

} // namespace

std::optional<SvPublication> readSvPublication(const QDomElement &element, int stream,
                                               int samplesPerSecond, Remarks &remarks)
{
    const int channels = decimal(element, QStringLiteral("chNums"));
    if (stream >= kMaxSvStreams) {
        remark(remarks, Remark::Error, element,
               QStringLiteral("refused, in_smv %1 is above %2").arg(stream + 1).arg(kMaxSvStreams));
        return std::nullopt;
    }
    if (channels < 0 || channels > kMaxSvChannels) {
        remark(remarks, Remark::Error, element,
               QStringLiteral("refused, chNums %1 is outside 0 to %2")
                   .arg(channels)
                   .arg(kMaxSvChannels));
        return std::nullopt;
    }

    SvPublication publication;
    Message_9_2 &frame = publication.frame;
    frame.setMessage_count(stream);
    frame.setDestination_Mac(element.attribute(QStringLiteral("mac")));
    frame.setVLanId(element.attribute(QStringLiteral("vlan")));
    frame.setAPPID(element.attribute(QStringLiteral("appid")));
    frame.setpriority(element.attribute(QStringLiteral("priority")));
    frame.setSVID(element.attribute(QStringLiteral("svId")));
    frame.setconfRevValue(element.attribute(QStringLiteral("confRev")));
    frame.setMessage_flag(decimal(element, QStringLiteral("portindex")));
    frame.setSizeSeqData_VectorValue(channels);

    SMV_MessageStructure &description = publication.description;
    description.setChannelCount(channels);
    setChannels(frame, description, element, remarks);

    publication.download = frame.data();
    description.setMessageStructureCount(stream);
    description.Number[0] = static_cast<char>(stream);
    description.setTurnoverNUM_addr(frame.SmpCnt_Offset & 0xffff);
    description.setTurnoverNUM_MAX_value(samplesPerSecond & 0xffff);
    description.setMessage_addr(frame.SeqData_Offset & 0xffff);
    return publication;
}

} // namespace testconfiguration

void LumtarEngine::SetSMV(QDomElement &element, QByteArray &work)
{
    testconfiguration::Remarks remarks;
    const auto publication = testconfiguration::readSvPublication(
        element, smvCount, samplesPerCycle * nominalFrequency, remarks);
    testconfiguration::report(QStringLiteral("SetSMV"), remarks);
    if (!publication)
        return;
    sendStream(publication->download, publication->description.data(), work);
}
