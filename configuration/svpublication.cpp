#include "configuration/streamreaders.h"
#include "configuration/suggestion.h"

#include "protocol/analogoutputs.h"

#include <string_view>

namespace testconfiguration {

namespace {

constexpr AttributeRule kVlan{QLatin1String("vlan"), AttributeRule::Hexadecimal, 0, kMostVlanId};
constexpr AttributeRule kSvId{QLatin1String("svId"), AttributeRule::Identifier};
constexpr AttributeRule kConfRev{QLatin1String("confRev"), AttributeRule::Decimal, 0, kMost32};
constexpr AttributeRule kChannelCount{QLatin1String("chNums"), AttributeRule::Decimal, kLeastInt,
                                      kMostInt};
constexpr AttributeRule kChannel{QLatin1String("channel"), AttributeRule::Text};
constexpr AttributeRule kQuality{QLatin1String("quality"), AttributeRule::Hexadecimal, 0, kMost32,
                                 true};
constexpr AttributeRule kDelay{QLatin1String("delayt"), AttributeRule::Decimal, kLeastInt,
                               kMostInt};
constexpr QLatin1String kChannelTag("chninfo");

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

bool isSame(std::u16string_view upperCase, std::string_view name)
{
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool isLower = name[i] >= 'a' && name[i] <= 'z';
        if (upperCase[i] != char16_t(isLower ? name[i] - 'a' + 'A' : name[i]))
            return false;
    }
    return upperCase.size() == name.size();
}

/// Kind code of the analog output that an upper-case channel name holds, such as IA1 or VN2: of
/// several, the first in the order IA1, IB1, IC1, IN1, VA1 ... VN1, IA2 ... VN2.
int channelKindOf(std::u16string_view name)
{
    using analogoutputs::kAnalogOutputs;
    constexpr std::size_t kNameSize = 3;
    constexpr std::size_t kPhases = 4;
    std::size_t firstRank = kAnalogOutputs.size();
    int kind = kNoAnalogSource;
    for (std::size_t i = 0; i + kNameSize <= name.size(); ++i) {
        if (name[i] != u'I' && name[i] != u'V') // most end here
            continue;
        for (std::size_t output = 0; output < kAnalogOutputs.size(); ++output) {
            const auto &[text, wireChannel, isCurrent] = kAnalogOutputs[output];
            const std::size_t phase = output / 2 % kPhases;
            const std::size_t rank = 2 * kPhases * (output % 2) + (isCurrent ? 0 : kPhases) + phase;
            if (rank < firstRank && isSame(name.substr(i, kNameSize), text)) {
                firstRank = rank;
                kind = wireChannel;
            }
        }
    }
    return kind;
}

/// A name that no analog output feeds is nothing wrong, but one that looks like an output's is.
void checkSource(const Element &channel, const QString &name, RemarkList &remarks)
{
    static const QStringList outputs = [] {
        QStringList names;
        for (const auto &each : analogoutputs::kAnalogOutputs)
            names << QString::fromLatin1(each.name.data(), int(each.name.size()));
        return names;
    }();
    if (const QString meant = suggestion::didYouMean(name, outputs); !meant.isEmpty())
        remarks.warn(channel, QStringLiteral("no analog output feeds channel %1").arg(name) + meant,
                     kChannel.name);
}

void readChannel(const Element &channel, int index, SvPublication &publication, RemarkList &remarks)
{
    ElementReader in(channel, QLatin1String("in_smv/chninfo"), remarks);
    SeqData &entry = publication.frame.SeqData_Vector[index];
    const QString channelName = in.text(kChannel);
    publication.channelNames << channelName;
    entry.setQuality(in.text(kQuality));
    const UpperCaseName upper = upperCase(channelName);
    const std::u16string_view name(upper.data(), std::size_t(upper.size()));
    if (name.find(u"DELAYT") != std::u16string_view::npos)
        entry.setVlaue(in.text(kDelay));
    else
        in.leaveOut(kDelay, QStringLiteral("in a channel without DelayT in its name"));
    const int kind = channelKindOf(name);
    publication.description.setChannelProperty(kind, index);
    in.finish({});
    if (remarks.isChecking() && kind == kNoAnalogSource)
        checkSource(channel, channelName, remarks);
}

/// Sets one dataset entry and one kind per `chninfo` child of \a element.
void readChannels(const Element &element, SvPublication &publication, RemarkList &remarks)
{
    const int count = int(publication.frame.SeqData_Vector.size());
    int found = 0;
    for (Element child = element.firstChild(); !child.isNull(); child = child.nextSibling()) {
        if (!child.hasTag(kChannelTag))
            continue;
        if (found < count)
            readChannel(child, found, publication, remarks);
        ++found;
    }
    if (found > count)
        remarks.fail(element,
                     QStringLiteral("ignored, %1 chninfo beyond the %2 that chNums counts")
                         .arg(found - count)
                         .arg(count));
    if (found < count && remarks.isChecking())
        remarks.warn(
            element,
            QStringLiteral("chNums is %1, but there are %2 chninfo; the other channels are 0")
                .arg(count)
                .arg(found),
            kChannelCount.name);
    while (publication.channelNames.size() < count)
        publication.channelNames << QString();
}

} // namespace

std::optional<SvPublication> readSvPublication(const Element &element, int stream,
                                               int samplesPerSecond, RemarkList &remarks)
{
    SvPublication publication;
    publication.stream = stream;
    Message_9_2 &frame = publication.frame;
    ElementReader in(element, QLatin1String("in_smv"), remarks);
    frame.setMessage_count(stream);
    frame.setDestination_Mac(in.text(kMac));
    frame.setVLanId(in.text(kVlan));
    frame.setAPPID(in.text(kAppId));
    frame.setpriority(in.text(kPriority));
    frame.setSVID(in.text(kSvId));
    frame.setconfRevValue(in.text(kConfRev));
    frame.setMessage_flag(in.decimal(kOutputPort));
    const int channels = in.decimal(kChannelCount);
    in.finish({kChannelTag});
    if (stream >= limits::kSvStreams) {
        remarks.fail(element,
                     QStringLiteral("refused, in_smv %1 is above %2")
                         .arg(stream + 1)
                         .arg(limits::kSvStreams));
        return std::nullopt;
    }
    if (channels < 0 || channels > limits::kSvChannels) {
        remarks.fail(element, refusal(kChannelCount.name, channels, limits::kSvChannels));
        return std::nullopt;
    }

    frame.setSizeSeqData_VectorValue(channels);
    SMV_MessageStructure &description = publication.description;
    description.setChannelCount(channels);
    readChannels(element, publication, remarks);
    publication.download = frame.data();
    description.setMessageStructureCount(stream);
    description.Number[0] = char(stream);
    description.setTurnoverNUM_addr(frame.SmpCnt_Offset & 0xffff);
    description.setTurnoverNUM_MAX_value(samplesPerSecond & 0xffff);
    description.setMessage_addr(frame.SeqData_Offset & 0xffff);
    return publication;
}

QString refusal(const QString &name, int value, int most, int least)
{
    return QStringLiteral("refused, %1 %2 is outside %3 to %4")
        .arg(name)
        .arg(value)
        .arg(least)
        .arg(most);
}

} // namespace testconfiguration
