#include "configurationcheck.h"

#include "attributerules.h"

#include <lumtarengine.h>

#include <QHash>
#include <QLoggingCategory>

#include <algorithm>
#include <set>

using namespace testconfiguration;

namespace {

constexpr int kMaxCommand = 1588; // bytes that fit into one datagram of the link
constexpr int kDownloadHead = 9; // bytes before the frame in its command
constexpr int kMaxFrame = 1518; // IEEE 802.3: tagged, without frame check sequence
constexpr int kMaxOneByte = 255;

/// Values that the standards recommend for one kind of published frame.
struct Recommendation
{
    const char *kind;
    const char *standard;
    const char *firstMac; ///< hexadecimal
    const char *lastMac;
    int firstAppId;
    int lastAppId;
};

constexpr Recommendation kSvRecommendation{"SV",           "IEC 61850-9-2", "010ccd040000",
                                           "010ccd0401ff", 0x4000,          0x7fff};
constexpr Recommendation kGooseRecommendation{"GOOSE",        "IEC 61850-8-1", "010ccd010000",
                                              "010ccd0101ff", 0x0000,          0x3fff};

/// The loader's debug lines say what the checker says with a place.
class SilentDebugChannel
{
    Q_DISABLE_COPY(SilentDebugChannel)

public:
    SilentDebugChannel() { channel().setEnabled(QtDebugMsg, false); }
    ~SilentDebugChannel() { channel().setEnabled(QtDebugMsg, m_wasEnabled); }

private:
    static QLoggingCategory &channel() { return *QLoggingCategory::defaultCategory(); }
    bool m_wasEnabled = channel().isDebugEnabled();
};

QDomElement firstChild(const QDomElement &parent, Kind kind)
{
    QDomElement child = parent.firstChildElement();
    while (!child.isNull() && kindOf(child) != kind)
        child = child.nextSiblingElement();
    return child;
}

/// Children of \a parent with a lower-case tag; all for an empty one.
QVector<QDomElement> children(const QDomElement &parent, const QString &tag = {})
{
    QVector<QDomElement> found;
    for (QDomElement child = parent.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        if (tag.isEmpty() || child.tagName().toLower() == tag)
            found.append(child);
    }
    return found;
}

/// Walks one file as the loader does.
class Walk
{
public:
    Walk(CheckedConfiguration &result, int samplesPerSecond)
        : m_result(result)
        , m_problems(result.problems)
        , m_samplesPerSecond(samplesPerSecond)
    { }

    void walk();

private:
    void readSv(const QDomElement &element);
    void readGoose(const QDomElement &element);
    void readSubscribed(const QDomElement &element);

    void checkFrameElements(const QDomElement &element);
    void checkEntries(const QDomElement &frameElement, const Message_goose &frame);
    void checkOffsets(const QDomElement &frameElement, const GoosePublication &publication);
    void bind(const QDomElement &element, int stream, const GoosePublication &publication);
    void checkMappings(const QDomElement &element);

    template <typename Frame>
    void checkFrame(const QDomElement &element, const Frame &frame, int commandSize,
                    const Recommendation &recommended);
    void checkCommandSize(const QDomElement &element, int size);
    void checkUnique(const QDomElement &element, const QString &what, const QByteArray &value);

    void warn(const QDomElement &element, const QString &text, const QString &attribute = {})
    {
        m_problems.add(Remark::Warning, element, text, attribute);
    }
    void fail(const QDomElement &element, const QString &text, const QString &attribute = {})
    {
        m_problems.add(Remark::Error, element, text, attribute);
    }

    CheckedConfiguration &m_result;
    ConfigurationProblems &m_problems;
    int m_samplesPerSecond;

    int m_svCount = 0;
    int m_gooseCount = 0;
    quint8 m_group = 1;
    quint8 m_logicChannel = 0;
    bool m_logicChannelsUsedUp = false;
    quint8 m_lightGroup[kLightPorts] = {1, 1, 1, 1, 1};
    QHash<QString, int> m_firstLine; ///< of each value that is to be unique
};

void Walk::walk()
{
    Remarks remarks;
    const QDomDocument document = readDocument(m_problems.file(), remarks);
    m_problems.add(remarks);
    const QDomElement root = document.documentElement();
    if (root.isNull())
        return;
    m_result.isRead = true;

    AttributeRules attributes(m_problems);
    attributes.checkRoot(root);
    if (root.firstChildElement().isNull())
        warn(root, QStringLiteral("nothing to publish or to subscribe to"));
    for (QDomElement child = root.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        attributes.checkStream(child);
        switch (kindOf(child)) {
        case Kind::SvPublication:
            readSv(child);
            break;
        case Kind::GoosePublication:
            readGoose(child);
            break;
        case Kind::Subscription:
            readSubscribed(child);
            break;
        case Kind::Other:
            break;
        }
    }
}

void Walk::readSv(const QDomElement &element)
{
    Remarks remarks;
    const int stream = m_svCount;
    const auto publication = readSvPublication(element, stream, m_samplesPerSecond, remarks);
    m_problems.add(remarks);
    m_svCount = std::min(m_svCount + 1, kMaxSvStreams);
    if (!publication)
        return;

    const int channels = static_cast<int>(publication->frame.SeqData_Vector.size());
    QStringList names;
    for (const QDomElement &channel : children(element, QStringLiteral("chninfo")))
        names.append(channel.attribute(QStringLiteral("channel")));
    if (names.size() < channels)
        warn(element,
             QStringLiteral("chNums is %1, but there are %2 chninfo; the other channels are 0")
                 .arg(channels)
                 .arg(names.size()),
             QStringLiteral("chNums"));
    while (names.size() < channels)
        names.append(QString());
    m_result.svStreams.append({stream, *publication, names.mid(0, channels)});
    m_result.order.append(Kind::SvPublication);
    checkFrame(element, publication->frame, static_cast<int>(publication->download.size()),
               kSvRecommendation);
    checkUnique(element, QStringLiteral("svID"), publication->frame.SVID_Value);
}

void Walk::readGoose(const QDomElement &element)
{
    checkFrameElements(element);
    const QDomElement frameElement = firstChild(element, Kind::Subscription);
    Remarks remarks;
    GooseDataOffsetAddr record;
    const int stream = m_gooseCount;
    const auto publication = readGoosePublication(element, stream, record, remarks);
    m_problems.add(remarks);
    m_gooseCount = std::min(m_gooseCount + 1, kMaxGooseStreams);
    if (!publication)
        return;

    m_result.gooseStreams.append({stream, *publication});
    m_result.order.append(Kind::GoosePublication);
    bind(element, stream, *publication);
    if (frameElement.isNull())
        return;
    checkEntries(frameElement, publication->frame);
    checkOffsets(frameElement, *publication);
    checkFrame(frameElement, publication->frame, static_cast<int>(publication->download.size()),
               kGooseRecommendation);
    checkUnique(frameElement, QStringLiteral("gocbRef"), publication->frame.gocbRef_Value);
}

void Walk::checkFrameElements(const QDomElement &element)
{
    const QVector<QDomElement> frames = children(element, QStringLiteral("goose"));
    if (frames.isEmpty())
        fail(element, QStringLiteral("in_goose has no goose, which describes its frame"));
    for (int i = 1; i < frames.size(); ++i)
        fail(frames[i], QStringLiteral("ignored, only the first goose of an in_goose is read"));
}

void Walk::checkEntries(const QDomElement &frameElement, const Message_goose &frame)
{
    const QString type = QStringLiteral("gstype_tp");
    const int counted = static_cast<int>(frame.Data_Vector.size());
    const QVector<QDomElement> entries = children(frameElement);
    const int found = static_cast<int>(entries.size());
    if (found > counted)
        fail(entries[counted],
             QStringLiteral("ignored, %1 entries beyond the %2 that datCount counts")
                 .arg(found - counted)
                 .arg(counted));
    if (found < counted)
        fail(frameElement,
             QStringLiteral("datCount is %1, but there are %2 entries; the others have no type")
                 .arg(counted)
                 .arg(found),
             QStringLiteral("datCount"));
    for (int i = 0; i < std::min(found, counted); ++i) {
        // An entry that has got no type has the tag 0; what is no number has been told of.
        const int code = entries[i].attribute(type).toInt();
        if (frame.Data_Vector[i].Data_tag == QByteArray(1, '\0') && code > 0)
            fail(entries[i],
                 QStringLiteral("%1 of %2 is \"%3\", which is no known type code")
                     .arg(type, entries[i].tagName())
                     .arg(code),
                 type);
    }
}

void Walk::checkOffsets(const QDomElement &frameElement, const GoosePublication &publication)
{
    const Message_goose &frame = publication.frame;
    if (frame.TimeAllowedtoLive_value.count('\0') == frame.TimeAllowedtoLive_value.size())
        warn(frameElement, QStringLiteral("timeAllowedtoLive, twice t0, is 0"),
             QStringLiteral("t0"));
    const QString far = QStringLiteral(
        "the references are so long that %1 is at byte %2 of the frame, beyond the %3 that %4");
    struct
    {
        QString name;
        int offset;
    } const described[] = {{QStringLiteral("t"), frame.t_Offset},
                           {QStringLiteral("sqNum"), frame.sqNum_Offset}};
    for (const auto &each : described) {
        if (each.offset > kMaxOneByte)
            warn(frameElement,
                 far.arg(each.name)
                     .arg(each.offset)
                     .arg(kMaxOneByte)
                     .arg(QStringLiteral("one byte of the stream description can name")));
    }
    if (frame.stNum_Offset <= kMaxOneByte)
        return;
    m_problems.add(publication.bindings.isEmpty() ? Remark::Warning : Remark::Error, frameElement,
                   far.arg(QStringLiteral("stNum"))
                       .arg(frame.stNum_Offset)
                       .arg(kMaxOneByte)
                       .arg(QStringLiteral("a state sequence can write to")));
}

/// Notes what the bindings of a stream lead to. Bindings come from the `mapinfo` in their order,
/// less those that the loader has refused.
void Walk::bind(const QDomElement &element, int stream, const GoosePublication &publication)
{
    QVector<QDomElement> sources;
    for (const QDomElement &each : children(element, QStringLiteral("mapinfo"))) {
        const int output = each.attribute(QStringLiteral("Which")).toInt();
        if (output >= 1 && output <= kBinaryOutputs)
            sources.append(each);
    }
    for (int i = 0; i < publication.bindings.size(); ++i) {
        const OutputBinding &binding = publication.bindings[i];
        const auto &entries = publication.frame.Data_Vector;
        OutputTarget target{stream, binding.position, 0};
        if (target.position >= 1 && target.position <= entries.size())
            target.tag = static_cast<quint8>(entries[target.position - 1].Data_tag.at(0));
        OutputTarget &bound = m_result.outputs[static_cast<size_t>(binding.output) - 1];
        if (bound.stream >= 0)
            warn(sources.value(i),
                 QStringLiteral("output %1 was bound to entry %2 of GOOSE stream %3 before; this "
                                "replaces it")
                     .arg(binding.output)
                     .arg(bound.position)
                     .arg(bound.stream));
        for (const OutputTarget &other : m_result.outputs) {
            if (&other != &bound && other.stream == stream && other.position == target.position)
                warn(sources.value(i),
                     QStringLiteral("Pos %1 is bound to output %2 too")
                         .arg(target.position)
                         .arg(&other - m_result.outputs.data() + 1));
        }
        bound = target;
    }
}

void Walk::readSubscribed(const QDomElement &element)
{
    Remarks remarks;
    const auto subscription = readSubscription(
        element, {m_group, m_logicChannel, m_logicChannelsUsedUp, m_lightGroup}, remarks);
    m_problems.add(remarks);
    checkMappings(element);
    if (!subscription) {
        if (remarks.isEmpty())
            fail(element, QStringLiteral("skipped, this goose maps no entry"));
        return;
    }
    const Goose_command &command = subscription->command;
    checkCommandSize(element, static_cast<int>(command.data().size()));
    const QByteArray place =
        command.AppId_High + command.AppId_Low + QByteArray::number(subscription->lightPort);
    checkUnique(element, QStringLiteral("port and APPID"), place);
    m_result.subscriptions.append(*subscription);
    m_result.order.append(Kind::Subscription);
}

/// The board learns which entries are mapped, but not in which order or how often.
void Walk::checkMappings(const QDomElement &element)
{
    std::set<int> positions;
    for (const QDomElement &each : children(element, QStringLiteral("mapinfo"))) {
        const QString which = each.attribute(QStringLiteral("Which"));
        const int position = each.attribute(QStringLiteral("Pos")).toInt();
        if (which.toInt() > kBinaryOutputs) {
            fail(each,
                 QStringLiteral("skipped, Which %1 is above %2").arg(which).arg(kBinaryOutputs),
                 QStringLiteral("Which"));
            continue;
        }
        if (!which.isEmpty() && which.toInt() < 1)
            warn(each,
                 QStringLiteral("Which is %1; usual is 1 to %2").arg(which).arg(kBinaryOutputs),
                 QStringLiteral("Which"));
        if (positions.count(position) != 0)
            fail(each,
                 QStringLiteral("Pos %1 is mapped twice, which moves all further logic channels")
                     .arg(position),
                 QStringLiteral("Pos"));
        else if (!positions.empty() && position < *positions.rbegin())
            warn(each,
                 QStringLiteral(
                     "Pos %1 is listed after Pos %2, but gets the lower logic channel: the "
                     "board numbers them in the order of the dataset")
                     .arg(position)
                     .arg(*positions.rbegin()),
                 QStringLiteral("Pos"));
        positions.insert(position);
    }
}

/// Checks what both kinds of published frame have.
template <typename Frame>
void Walk::checkFrame(const QDomElement &element, const Frame &frame, int commandSize,
                      const Recommendation &recommended)
{
    const QString kind = QLatin1String(recommended.kind);
    const QString advice = QStringLiteral(", which %1 recommends for %2")
                               .arg(QLatin1String(recommended.standard), kind);
    const QByteArray mac = frame.Destination_Mac;
    const QByteArray first = QByteArray::fromHex(recommended.firstMac);
    const QByteArray last = QByteArray::fromHex(recommended.lastMac);
    if (mac.size() == first.size()) {
        if (mac < first || mac > last)
            warn(element,
                 QStringLiteral("mac %1 is outside %2 to %3")
                         .arg(QString::fromLatin1(mac.toHex('-').toUpper()),
                              QString::fromLatin1(first.toHex('-').toUpper()),
                              QString::fromLatin1(last.toHex('-').toUpper()))
                     + advice,
                 QStringLiteral("mac"));
        checkUnique(element, kind + QStringLiteral(" destination MAC and APPID"),
                    mac + frame.APPID);
    }
    const int appId = frame.APPID.toHex().toInt(nullptr, 16);
    const bool isAsWritten = element.attribute(QStringLiteral("appid")) == QString::number(appId);
    if (isAsWritten && (appId < recommended.firstAppId || appId > recommended.lastAppId))
        warn(element,
             QStringLiteral("appid %1 (0x%2) is outside %3 to %4")
                     .arg(appId)
                     .arg(appId, 4, 16, QLatin1Char('0'))
                     .arg(recommended.firstAppId)
                     .arg(recommended.lastAppId)
                 + advice,
             QStringLiteral("appid"));
    const int frameSize = commandSize - kDownloadHead;
    if (frameSize > kMaxFrame)
        warn(element,
             QStringLiteral("the frame of %1 bytes (with VLAN tag, without frame check sequence) "
                            "is above %2, the most on Ethernet")
                 .arg(frameSize)
                 .arg(kMaxFrame));
    checkCommandSize(element, commandSize);
}

void Walk::checkCommandSize(const QDomElement &element, int size)
{
    if (size > kMaxCommand)
        fail(element,
             QStringLiteral("%1 makes a command of %2 bytes; the most is %3, so the board never "
                            "gets it")
                 .arg(element.tagName())
                 .arg(size)
                 .arg(kMaxCommand));
}

void Walk::checkUnique(const QDomElement &element, const QString &what, const QByteArray &value)
{
    if (value.isEmpty())
        return;
    const QString key = what + QLatin1Char(' ') + QString::fromLatin1(value.toHex());
    const auto first = m_firstLine.constFind(key);
    if (first == m_firstLine.constEnd())
        m_firstLine.insert(key, m_problems.lineOf(element));
    else
        warn(element, QStringLiteral("the same %1 as in line %2").arg(what).arg(*first));
}

} // namespace

CheckedConfiguration checkConfiguration(const QString &path, int samplesPerSecond)
{
    const LumtarEngine codecs; // which the lengths of texts depend on
    const SilentDebugChannel silent;
    CheckedConfiguration result(path);
    Walk(result, samplesPerSecond).walk();
    return result;
}
