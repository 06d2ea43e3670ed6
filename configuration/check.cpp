// What no element says alone: streams against each other, and against what the board and the
// standards allow.

#include "configuration/element.h"
#include "configuration/walk.h"

#include "protocol/envelope.h"
#include "protocol/ethernetframe.h"
#include "protocol/textcodec.h"

#include <QHash>

#include <algorithm>
#include <tuple>

namespace testconfiguration {

namespace {

constexpr int kLongestFrame = 1518; // IEEE 802.3: tagged, without frame check sequence

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

/// Checks one document, element by element.
class StreamChecker
{
public:
    StreamChecker(CheckedConfiguration &result, RemarkList &remarks)
        : m_result(result)
        , m_remarks(remarks)
    { }

    void take(const Element &element, const std::optional<SvPublication> &publication);
    void take(const Element &element, std::optional<GoosePublication> publication);
    void take(const Element &element, const std::optional<GooseSubscription> &subscription);

private:
    void checkNumbers(const Element &frameElement, const Message_goose &frame);
    void checkOffsets(const Element &frameElement, const GoosePublication &publication);
    void bind(const GoosePublication &publication);
    template <typename Frame>
    void checkFrame(const Element &element, const Frame &frame, int commandSize,
                    const Recommendation &recommended);
    template <typename Frame>
    void checkAddress(const Element &element, const Frame &frame,
                      const Recommendation &recommended);
    void checkCommandSize(const Element &element, int size);
    void checkUnique(const Element &element, const QString &what, const QByteArray &value);

    CheckedConfiguration &m_result;
    RemarkList &m_remarks;
    QHash<QString, int> m_firstLine; ///< of each value that is to be unique
};

void StreamChecker::take(const Element &element, const std::optional<SvPublication> &publication)
{
    if (!publication)
        return;
    checkFrame(element, publication->frame, int(publication->download.size()), kSvRecommendation);
    checkUnique(element, QStringLiteral("svID"), publication->frame.SVID_Value);
    m_result.streams.append(*publication);
}

void StreamChecker::take(const Element &element, std::optional<GoosePublication> publication)
{
    if (!publication)
        return;
    GooseDataOffsetAddr record;
    publication->build(record);
    bind(*publication);
    if (const Element frame = frameElementOf(element); !frame.isNull()) {
        checkNumbers(frame, publication->frame);
        checkOffsets(frame, *publication);
        checkFrame(frame, publication->frame, int(publication->download.size()),
                   kGooseRecommendation);
        checkUnique(frame, QStringLiteral("GOOSE destination MAC"),
                    publication->frame.Destination_Mac);
        checkUnique(frame, QStringLiteral("gocbRef"), publication->frame.gocbRef_Value);
    }
    m_result.streams.append(*publication);
}

void StreamChecker::take(const Element &element,
                         const std::optional<GooseSubscription> &subscription)
{
    if (!subscription)
        return;
    const Goose_command &command = subscription->command;
    checkCommandSize(element, int(command.data().size()));
    checkUnique(element, QStringLiteral("port and APPID"),
                command.AppId_High + command.AppId_Low
                    + QByteArray::number(subscription->lightPort));
    m_result.streams.append(*subscription);
}

/// Checks what becomes of the numbers of a GOOSE message.
void StreamChecker::checkNumbers(const Element &frameElement, const Message_goose &frame)
{
    const QString t0 = QStringLiteral("t0");
    const QString confRev = QStringLiteral("confRev");
    if (frame.TimeAllowedtoLive_value.count('\0') == frame.TimeAllowedtoLive_value.size())
        m_remarks.warn(frameElement, QStringLiteral("timeAllowedtoLive, twice t0, is 0"), t0);
    const auto warnIfNegative = [&](const QByteArray &value, const QString &name,
                                    const QString &attribute) {
        if (!value.isEmpty() && quint8(value[0]) >= 0x80)
            m_remarks.warn(frameElement,
                           QStringLiteral("%1 is sent in its fewest bytes, whose top bit is set: a "
                                          "strict decoder reads it as negative")
                               .arg(name),
                           attribute);
    };
    warnIfNegative(frame.TimeAllowedtoLive_value, QStringLiteral("timeAllowedtoLive, twice t0,"),
                   t0);
    warnIfNegative(frame.confRevValue, confRev, confRev);
    const QString *const written = frameElement.attribute(QLatin1String("confRev"));
    const qint64 number = written ? written->toLongLong() : 0;
    const int sent = quint8(frame.confRevValue.isEmpty() ? 0 : frame.confRevValue[0]);
    if (number > sent && number <= kMost32) // beyond, it is told that no confRev is so large
        m_remarks.warn(frameElement,
                       QStringLiteral("confRev %1 is sent as %2: the frame has one byte for it")
                           .arg(number)
                           .arg(sent),
                       confRev);
}

/// Checks whether the board can name the places of the values that it changes.
void StreamChecker::checkOffsets(const Element &frameElement, const GoosePublication &publication)
{
    const Message_goose &frame = publication.frame;
    const struct
    {
        const char *name;
        int offset;
        const char *who;
        Remark::Severity severity;
    } fields[] = {
        {"t", frame.t_Offset, "one byte of the stream description can name", Remark::Warning},
        {"sqNum", frame.sqNum_Offset, "one byte of the stream description can name",
         Remark::Warning},
        {"stNum", frame.stNum_Offset, "a state sequence can write to",
         publication.bindings.isEmpty() ? Remark::Warning : Remark::Error}};
    for (const auto &each : fields) {
        if (each.offset > limits::kOneByteOffset)
            m_remarks.add(each.severity, frameElement,
                          QStringLiteral("the references are so long that %1 is at byte %2 of the "
                                         "frame, beyond the %3 that %4")
                              .arg(QLatin1String(each.name))
                              .arg(each.offset)
                              .arg(limits::kOneByteOffset)
                              .arg(QLatin1String(each.who)));
    }
}

/// Notes what the bindings of a stream lead to.
void StreamChecker::bind(const GoosePublication &publication)
{
    const auto warn = [this](const OutputBinding &binding, const QString &text) {
        m_remarks.add(Remark::Warning, binding.place, text);
    };
    for (const OutputBinding &binding : publication.bindings) {
        const auto &entries = publication.frame.Data_Vector;
        OutputTarget target{publication.stream, binding.position, 0};
        if (target.position >= 1 && target.position <= entries.size())
            target.tag = quint8(entries[target.position - 1].Data_tag.at(0));
        OutputTarget &bound = m_result.outputs[std::size_t(binding.output) - 1];
        if (bound.stream >= 0)
            warn(binding,
                 QStringLiteral("output %1 was bound to entry %2 of GOOSE stream %3 before; this "
                                "replaces it")
                     .arg(binding.output)
                     .arg(bound.position)
                     .arg(bound.stream));
        for (const OutputTarget &other : m_result.outputs) {
            if (&other != &bound && other.stream == target.stream
                && other.position == target.position)
                warn(binding,
                     QStringLiteral("Pos %1 is bound to output %2 too")
                         .arg(target.position)
                         .arg(&other - m_result.outputs.data() + 1));
        }
        bound = target;
    }
}

/// Checks what both kinds of published frame have.
template <typename Frame>
void StreamChecker::checkFrame(const Element &element, const Frame &frame, int commandSize,
                               const Recommendation &recommended)
{
    checkAddress(element, frame, recommended);
    const int frameSize = commandSize - ethernetframe::headerSize(frame);
    if (frameSize > kLongestFrame && commandSize <= envelope::kMaxFrame) // or it is told below
        m_remarks.fail(element,
                       QStringLiteral("the frame of %1 bytes (with VLAN tag, without frame check "
                                      "sequence) is above %2, the most on Ethernet, so the board "
                                      "never publishes it")
                           .arg(frameSize)
                           .arg(kLongestFrame));
    checkCommandSize(element, commandSize);
}

template <typename Frame>
void StreamChecker::checkAddress(const Element &element, const Frame &frame,
                                 const Recommendation &recommended)
{
    const QString kind = QLatin1String(recommended.kind);
    const QString advice = QStringLiteral(", which %1 recommends for %2")
                               .arg(QLatin1String(recommended.standard), kind);
    const auto macText = [](const QByteArray &mac) {
        return QString::fromLatin1(mac.toHex('-').toUpper());
    };
    const QByteArray mac = frame.Destination_Mac;
    const QByteArray first = QByteArray::fromHex(recommended.firstMac);
    const QByteArray last = QByteArray::fromHex(recommended.lastMac);
    if (mac.size() == first.size()) {
        if (mac < first || mac > last)
            m_remarks.warn(element,
                           QStringLiteral("mac %1 is outside %2 to %3")
                                   .arg(macText(mac), macText(first), macText(last))
                               + advice,
                           kMac.name);
    }
    checkUnique(element, kind + QStringLiteral(" APPID"), frame.APPID);
    const int appId = frame.APPID.toHex().toInt(nullptr, 16);
    const QString *const written = element.attribute(kAppId.name);
    if (written && *written == QString::number(appId)
        && (appId < recommended.firstAppId || appId > recommended.lastAppId))
        m_remarks.warn(element,
                       QStringLiteral("appid %1 (0x%2) is outside %3 to %4")
                               .arg(appId)
                               .arg(appId, 4, 16, QLatin1Char('0'))
                               .arg(recommended.firstAppId)
                               .arg(recommended.lastAppId)
                           + advice,
                       kAppId.name);
}

void StreamChecker::checkCommandSize(const Element &element, int size)
{
    if (size > envelope::kMaxFrame)
        m_remarks.fail(element,
                       QStringLiteral("%1 makes a command of %2 bytes; the most is %3, so the "
                                      "board never gets it")
                           .arg(element.tag())
                           .arg(size)
                           .arg(envelope::kMaxFrame));
}

void StreamChecker::checkUnique(const Element &element, const QString &what,
                                const QByteArray &value)
{
    if (value.isEmpty())
        return;
    const QString key = what + QLatin1Char(' ') + QString::fromLatin1(value.toHex());
    const auto first = m_firstLine.constFind(key);
    if (first == m_firstLine.constEnd())
        m_firstLine.insert(key, element.place().line);
    else
        m_remarks.warn(element, QStringLiteral("the same %1 as in line %2").arg(what).arg(*first));
}

/// Walks the document as a load does that begins with fresh counters.
void checkStreams(CheckedConfiguration &result, int samplesPerSecond, RemarkList &remarks)
{
    quint8 smvCount = 0;
    quint8 gooseCount = 0;
    quint8 group = 0;
    quint8 logicChannel = 0;
    bool usedUp = false;
    quint8 lightGroup[limits::kLightPorts] = {};
    StreamChecker checker(result, remarks);
    Walk walk(result.document, {smvCount, gooseCount, {group, logicChannel, usedUp, lightGroup}},
              remarks);
    if (const auto &stray = result.document.tree()->strayBytes)
        remarks.add(stray->severity, stray->place, stray->text);
    if (walk.atEnd())
        remarks.warn(Element(result.document),
                     QStringLiteral("nothing to publish or to subscribe to"));
    for (; !walk.atEnd(); walk.advance()) {
        switch (walk.kind()) {
        case Walk::Kind::SvPublication:
            checker.take(walk.element(), walk.svPublication(samplesPerSecond));
            break;
        case Walk::Kind::GoosePublication:
            checker.take(walk.element(), walk.goosePublication());
            break;
        case Walk::Kind::Subscription:
            checker.take(walk.element(), walk.subscription());
            break;
        case Walk::Kind::Other:
            break;
        }
    }
}

} // namespace

static_assert(std::tuple_size_v<decltype(CheckedConfiguration::outputs)> == limits::kBinaryOutputs);

CheckedConfiguration check(const Document &document, int samplesPerSecond)
{
    textcodec::installDefaultCodecs();
    CheckedConfiguration result;
    result.document = document;
    RemarkList remarks(RemarkList::Detail::Checking);
    if (document.isEmpty())
        remarks.add(Remark::Error, document.error().place, document.error().text);
    else
        checkStreams(result, samplesPerSecond, remarks);
    result.errors = remarks.count(Remark::Error);
    result.warnings = remarks.count(Remark::Warning);
    result.remarks = remarks.take();
    std::stable_sort(
        result.remarks.begin(), result.remarks.end(), [](const Remark &a, const Remark &b) {
            return std::tie(a.place.line, a.place.column) < std::tie(b.place.line, b.place.column);
        });
    return result;
}

QString toString(const Remark &remark, const QString &file)
{
    const QString severity =
        remark.severity == Remark::Error ? QStringLiteral("error") : QStringLiteral("warning");
    QString place = file;
    if (remark.place.line > 0)
        place += QStringLiteral(":%1:%2").arg(remark.place.line).arg(remark.place.column);
    return QStringLiteral("%1: %2: %3").arg(place, severity, remark.text);
}

} // namespace testconfiguration
