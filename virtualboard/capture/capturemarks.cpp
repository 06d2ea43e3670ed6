#include "virtualboard/capture/capturemarks.h"

#include "virtualboard/play/transitions.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <limits>

namespace virtualboard {

namespace {

using Seconds = std::chrono::duration<double>;
constexpr Seconds kLongestTime = 1e9s; // a double still tells microseconds apart

QByteArray macHeader()
{
    return QByteArray(12, '\0') + char(kEtherTypeMark >> 8) + char(kEtherTypeMark & 0xff);
}

using Members = QVector<QPair<QString, QJsonValue>>;

/// In this order: QJsonObject would sort them, and a mark is known by its first one.
QByteArray json(const Members &members)
{
    QByteArray text;
    for (const auto &member : members) {
        const QJsonDocument object(QJsonObject{member});
        text += text.isEmpty() ? '{' : ',';
        text += object.toJson(QJsonDocument::Compact).mid(1).chopped(1);
    }
    return text + '}';
}

/// The shortest decimal number that is this float: 0.001 instead of 0.0010000000474974513.
double plain(float value)
{
    if (!std::isfinite(value))
        return 0;
    using Limits = std::numeric_limits<float>;
    double number = 0;
    for (int digits = Limits::digits10; digits <= Limits::max_digits10; ++digits) {
        number = QByteArray::number(double(value), 'g', digits).toDouble();
        if (float(number) == value)
            break;
    }
    return number;
}

QByteArray encode(const StreamMark &mark)
{
    constexpr int kLongestId = 129; // characters of an svID, IEC 61850-9-2
    QStringList channels = mark.channels;
    for (;;) {
        QByteArray text =
            json({{QStringLiteral("mark"), QStringLiteral("stream")},
                  {QStringLiteral("appId"), mark.appId},
                  {QStringLiteral("svId"), mark.svId.left(kLongestId)},
                  {QStringLiteral("channels"), QJsonArray::fromStringList(channels)}});
        if (macHeader().size() + text.size() <= kLargestFrame || channels.isEmpty())
            return text;
        channels.removeLast();
    }
}

QByteArray encode(const StepMark &mark)
{
    const Transition &change = mark.transition;
    Members members = {{QStringLiteral("mark"), QStringLiteral("step")}};
    if (change.left != kNoStep)
        members.append({QStringLiteral("left"), change.left});
    if (change.entered != kNoStep)
        members.append({QStringLiteral("entered"), change.entered});
    members.append({QStringLiteral("cause"), QLatin1String(causeName(change.cause))});
    if (change.cause == Cause::BinaryInput)
        members.append({QStringLiteral("channel"), change.channel});
    members.append({QStringLiteral("time"), Seconds(change.causeTime).count()});
    members.append({QStringLiteral("entry"), Seconds(change.entryTime).count()});
    if (change.lateness != 0ns)
        members.append({QStringLiteral("late"), Seconds(change.lateness).count()});
    if (change.disturbances != 0)
        members.append({QStringLiteral("disturbed"),
                        QJsonArray::fromStringList(disturbanceNames(change.disturbances))});
    QJsonArray scale;
    for (const float factor : mark.scale)
        scale.append(plain(factor));
    members.append({QStringLiteral("scale"), scale});
    return json(members);
}

QByteArray encode(const InputMark &mark)
{
    Members members = {{QStringLiteral("mark"), QStringLiteral("input")}};
    if (mark.input.kind == InputKind::Trigger) {
        members.append({QStringLiteral("trigger"), true});
    } else {
        members.append({QStringLiteral("channel"), mark.input.channel});
        members.append({QStringLiteral("on"), mark.input.kind == InputKind::ChannelOn});
    }
    members.append({QStringLiteral("time"), Seconds(mark.input.time).count()});
    return json(members);
}

// Each of these reads one member of a mark: false if it is not as it has to be.

bool readNumber(const QJsonValue &value, int most, int *number)
{
    *number = value.toInt(-1);
    return *number >= 0 && *number <= most;
}

bool readStep(const QJsonValue &value, quint8 *step)
{
    int number = kNoStep;
    if (!value.isUndefined() && !readNumber(value, kStepLimit - 1, &number))
        return false;
    *step = quint8(number);
    return true;
}

bool readTime(const QJsonValue &value, Duration *time)
{
    const Seconds seconds(value.toDouble(-1));
    if (!(seconds >= 0s && seconds <= kLongestTime))
        return false;
    *time = std::chrono::round<Duration>(seconds);
    return true;
}

bool readCause(const QJsonValue &value, Cause *cause)
{
    for (int i = 0; i <= int(Cause::Limit); ++i) {
        *cause = Cause(i);
        if (value.toString() == QLatin1String(causeName(*cause)))
            return true;
    }
    return false;
}

bool readDisturbances(const QJsonValue &value, quint8 *disturbances)
{
    QStringList names = disturbanceNames(kDisturbances);
    for (const QJsonValue each : value.toArray()) {
        const int bit = int(names.indexOf(each.toString()));
        if (bit < 0)
            return false;
        *disturbances |= quint8(1U << bit);
    }
    return value.isUndefined() || value.isArray();
}

bool readScale(const QJsonValue &value, std::array<float, kAnalogChannels> *scale)
{
    const QJsonArray factors = value.toArray();
    if (factors.size() != kAnalogChannels)
        return false;
    for (int i = 0; i < kAnalogChannels; ++i) {
        const double factor = factors[i].toDouble(std::numeric_limits<double>::infinity());
        if (std::fabs(factor) > double(std::numeric_limits<float>::max()))
            return false;
        (*scale)[std::size_t(i)] = float(factor);
    }
    return true;
}

std::optional<Mark> readStreamMark(const QJsonObject &object)
{
    StreamMark mark;
    const QJsonValue svId = object[QLatin1String("svId")];
    const QJsonValue channels = object[QLatin1String("channels")];
    if (!readNumber(object[QLatin1String("appId")], 0xffff, &mark.appId) || !svId.isString()
        || !channels.isArray())
        return std::nullopt;
    mark.svId = svId.toString();
    const QJsonArray names = channels.toArray();
    for (const QJsonValue name : names) {
        if (!name.isString())
            return std::nullopt;
        mark.channels << name.toString();
    }
    return mark;
}

std::optional<Mark> readStepMark(const QJsonObject &object)
{
    StepMark mark;
    Transition &change = mark.transition;
    if (!readStep(object[QLatin1String("left")], &change.left)
        || !readStep(object[QLatin1String("entered")], &change.entered)
        || !readCause(object[QLatin1String("cause")], &change.cause)
        || !readTime(object[QLatin1String("time")], &change.causeTime)
        || !readTime(object[QLatin1String("entry")], &change.entryTime)
        || (object.contains(QLatin1String("late"))
            && !readTime(object[QLatin1String("late")], &change.lateness))
        || !readDisturbances(object[QLatin1String("disturbed")], &change.disturbances)
        || !readScale(object[QLatin1String("scale")], &mark.scale))
        return std::nullopt;
    if (change.cause == Cause::BinaryInput) {
        int channel = 0;
        if (!readNumber(object[QLatin1String("channel")], kLogicChannels - 1, &channel))
            return std::nullopt;
        change.channel = quint16(channel);
    }
    return mark;
}

std::optional<Mark> readInputMark(const QJsonObject &object)
{
    InputMark mark;
    RecordedInput &input = mark.input;
    const QJsonValue on = object[QLatin1String("on")];
    int channel = 0;
    if (!readTime(object[QLatin1String("time")], &input.time))
        return std::nullopt;
    if (object[QLatin1String("trigger")].toBool()) {
        input.kind = InputKind::Trigger;
        return mark;
    }
    if (!on.isBool() || !readNumber(object[QLatin1String("channel")], kLogicChannels - 1, &channel))
        return std::nullopt;
    input.kind = on.toBool() ? InputKind::ChannelOn : InputKind::ChannelOff;
    input.channel = quint16(channel);
    return mark;
}

} // namespace

/// A short mark is padded with blanks, which JSON allows, to the shortest Ethernet frame.
QByteArray encodeMark(const Mark &mark)
{
    constexpr int kShortestFrame = 60;
    return (macHeader() + std::visit([](const auto &each) { return encode(each); }, mark))
        .leftJustified(kShortestFrame, ' ');
}

std::optional<Mark> decodeMark(const QByteArray &frame)
{
    const QByteArray header = macHeader();
    if (!frame.startsWith(header))
        return std::nullopt;
    const QJsonObject object = QJsonDocument::fromJson(frame.mid(int(header.size()))).object();
    const QString kind = object[QLatin1String("mark")].toString();
    if (kind == QLatin1String("stream"))
        return readStreamMark(object);
    if (kind == QLatin1String("step"))
        return readStepMark(object);
    if (kind == QLatin1String("input"))
        return readInputMark(object);
    return std::nullopt;
}

} // namespace virtualboard
