#include "lumtarengine.h"

#include "configurationattributes.h"
#include "configurationlimits.h"
#include "streamdescriptions.h"
#include "svframe.h"

#include <QDebug>

#include <algorithm>
#include <array>
#include <string_view>

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

int kindOf(const QString &upperCaseName)
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
    description.setChannelProperty(kindOf(name), index);
}

/// Sets one dataset entry and one kind per `chninfo` child of \a stream.
void setChannels(Message_9_2 &frame, SMV_MessageStructure &description, const QDomElement &stream)
{
    const int count = static_cast<int>(frame.SeqData_Vector.size());
    int found = 0;
    for (QDomElement child = stream.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        if (!attributes::hasTag(child, QLatin1String("chninfo")))
            continue;
        if (found < count)
            setChannel(frame.SeqData_Vector[found], description, found, child);
        ++found;
    }
    if (found > count)
        qDebug() << "SetSMV: ignored" << found - count << "chninfo beyond chNums" << count;
}

} // namespace

void LumtarEngine::SetSMV(QDomElement &element, QByteArray &work)
{
    if (smvCount >= kMaxSvStreams) {
        qDebug() << "SetSMV: refused, in_smv" << smvCount + 1 << "is above" << kMaxSvStreams;
        return;
    }
    const int channels = attributes::decimal(element, QStringLiteral("chNums"));
    if (channels < 0 || channels > kMaxSvChannels) {
        qDebug() << "SetSMV: refused, chNums" << channels << "of stream" << smvCount
                 << "is outside 0 to" << kMaxSvChannels;
        return;
    }

    Message_9_2 frame;
    frame.setMessage_count(smvCount);
    frame.setDestination_Mac(element.attribute(QStringLiteral("mac")));
    frame.setVLanId(element.attribute(QStringLiteral("vlan")));
    frame.setAPPID(element.attribute(QStringLiteral("appid")));
    frame.setpriority(element.attribute(QStringLiteral("priority")));
    frame.setSVID(element.attribute(QStringLiteral("svId")));
    frame.setconfRevValue(element.attribute(QStringLiteral("confRev")));
    frame.setMessage_flag(attributes::decimal(element, QStringLiteral("portindex")));
    frame.setSizeSeqData_VectorValue(channels);

    SMV_MessageStructure description;
    description.setChannelCount(channels);
    setChannels(frame, description, element);

    work = frame.data();
    SendCommand(work);

    description.setMessageStructureCount(smvCount);
    description.Number[0] = static_cast<char>(smvCount);
    description.setTurnoverNUM_addr(frame.SmpCnt_Offset & 0xffff);
    description.setTurnoverNUM_MAX_value(samplesPerCycle * nominalFrequency & 0xffff);
    description.setMessage_addr(frame.SeqData_Offset & 0xffff);
    work = description.data();
    SendCommand(work);
}
