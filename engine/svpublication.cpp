#include "configurationreading.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace testconfiguration {

namespace {

struct ChannelKind
{
    std::u16string_view name;
    int code;
};

/// In the order in which a channel's name is searched for them.
constexpr std::array kChannelKinds{
    ChannelKind{u"IA1", 0},  ChannelKind{u"IB1", 2},  ChannelKind{u"IC1", 4},
    ChannelKind{u"IN1", 6},  ChannelKind{u"VA1", 8},  ChannelKind{u"VB1", 10},
    ChannelKind{u"VC1", 12}, ChannelKind{u"VN1", 14}, ChannelKind{u"IA2", 1},
    ChannelKind{u"IB2", 3},  ChannelKind{u"IC2", 5},  ChannelKind{u"IN2", 7},
    ChannelKind{u"VA2", 9},  ChannelKind{u"VB2", 11}, ChannelKind{u"VC2", 13},
    ChannelKind{u"VN2", 15},
};

int channelKindOf(const QString &upperCaseName)
{
    const std::u16string_view name(reinterpret_cast<const char16_t *>(upperCaseName.utf16()),
                                   static_cast<size_t>(upperCaseName.size()));
    const auto found =
        std::find_if(kChannelKinds.begin(), kChannelKinds.end(), [name](const ChannelKind &kind) {
            return name.find(kind.name) != std::u16string_view::npos;
        });
    return found == kChannelKinds.end() ? kNoAnalogSource : found->code;
}

void setChannel(SeqData &entry, SMV_MessageStructure &description, int index,
                const QDomElement &channel)
{
    entry.setQuality(channel.attribute(QStringLiteral("quality")));
    const QString name = channel.attribute(QStringLiteral("channel")).toUpper();
    if (name.contains(QLatin1String("DELAYT")))
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
        remark(remarks, Remark::Warning, stream,
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
