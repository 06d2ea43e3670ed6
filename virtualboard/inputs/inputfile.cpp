#include "inputfile.h"

#include "deviceinputs.h"
#include "goosemessage.h"

#include <QFile>
#include <QRegularExpression>

#include <algorithm>
#include <bitset>

namespace virtualboard {

namespace {

constexpr qint64 nsPerSecond = 1000000000;

/// pcap with time stamps in microseconds and in nanoseconds, each in both byte orders; pcapng.
constexpr std::array<const char *, 5> captureMagics = {"a1b2c3d4", "d4c3b2a1", "a1b23c4d",
                                                       "4d3cb2a1", "0a0d0d0a"};

bool isCapture(const QByteArray &begin)
{
    return std::any_of(captureMagics.begin(), captureMagics.end(), [&begin](const char *magic) {
        return begin.startsWith(QByteArray::fromHex(magic));
    });
}

/// The text in quotes, short and without control characters.
QString quoted(const QByteArray &text)
{
    QString shown = QString::fromUtf8(text.left(40));
    for (QChar &character : shown) {
        if (!character.isPrint())
            character = QChar::ReplacementCharacter;
    }
    return QLatin1Char('"') + shown + QLatin1Char('"');
}

// Both of these return what is wrong; nothing when nothing is.

QString readTime(const QByteArray &text, qint64 *time)
{
    static const QRegularExpression pattern(
        QStringLiteral("\\A0*([0-9]{1,7})(?:\\.([0-9]{1,9}))?\\z"));
    const QRegularExpressionMatch match = pattern.match(QString::fromLatin1(text));
    *time = match.captured(1).toLongLong() * nsPerSecond
        + match.captured(2).leftJustified(9, QLatin1Char('0')).toLongLong();
    if (match.hasMatch() && *time <= InputFile::maximumSeconds * nsPerSecond)
        return {};
    return QStringLiteral("a time of 0 to %1 seconds, with at most 9 decimals, expected, %2 found")
        .arg(InputFile::maximumSeconds)
        .arg(quoted(text));
}

QString readInput(const QList<QByteArray> &words, InputEvent *event)
{
    if (words == QList<QByteArray>{"trigger"}) {
        event->kind = InputEvent::Trigger;
        return {};
    }
    if (words.size() != 3 || words[0] != "channel" || (words[2] != "on" && words[2] != "off"))
        return QStringLiteral("\"trigger\" or \"channel N on|off\" expected, %1 found")
            .arg(quoted(words.join(' ')));
    bool isNumber = false;
    const uint channel = words[1].toUInt(&isNumber);
    if (!isNumber || channel >= logicChannels)
        return QStringLiteral("a logic channel of 0 to %1 expected, %2 found")
            .arg(logicChannels - 1)
            .arg(quoted(words[1]));
    event->kind = words[2] == "on" ? InputEvent::ChannelOn : InputEvent::ChannelOff;
    event->channel = quint16(channel);
    return {};
}

QString readLine(const QByteArray &line, QVector<InputEvent> *script)
{
    const QList<QByteArray> words = line.split('#').first().simplified().split(' ');
    if (words.first().isEmpty())
        return {};
    InputEvent event;
    QString problem = readTime(words.first(), &event.time);
    if (problem.isEmpty() && !script->isEmpty() && event.time < script->last().time)
        problem = QStringLiteral("time goes back to %1").arg(quoted(words.first()));
    if (problem.isEmpty())
        problem = readInput(words.mid(1), &event);
    script->append(event);
    return problem;
}

PlannedInputs planned(const QVector<InputEvent> &script, DeviceInputs &inputs, qint64 start)
{
    PlannedInputs plan;
    std::bitset<logicChannels> reported;
    for (InputEvent event : script) {
        event.time =
            start > DeviceInputs::never - event.time ? DeviceInputs::never : start + event.time;
        if (event.kind == InputEvent::Trigger || inputs.isSubscribed(event.channel)) {
            plan.events << event;
        } else if (!reported[event.channel]) {
            reported.set(event.channel);
            plan.reports.append(
                {event.time,
                 QStringLiteral("logic channel %1 of the inputs has no effect: no subscription "
                                "feeds it")
                     .arg(event.channel)});
        }
    }
    return plan;
}

PlannedInputs planned(const QVector<CapturedFrame> &messages, DeviceInputs &inputs)
{
    PlannedInputs plan;
    const auto report = [&plan, &inputs](qint64 time) {
        const QStringList reports = inputs.takeReports();
        for (const QString &text : reports)
            plan.reports.append({time, text});
    };
    const auto loseBefore = [&inputs, &report](qint64 end) {
        for (qint64 loss = inputs.nextLoss(); loss < end; loss = inputs.nextLoss()) {
            inputs.expire(loss);
            report(loss);
        }
    };
    for (const CapturedFrame &message : messages) {
        loseBefore(message.time);
        plan.events += inputs.take(message.time, DeviceInputs::anyPort, message.bytes);
        report(message.time);
    }
    loseBefore(DeviceInputs::never);
    return plan;
}

} // namespace

std::optional<InputFile> InputFile::read(const QString &path, QString *error)
{
    QFile file(path);
    InputFile result;
    if (!file.open(QIODevice::ReadOnly)) {
        *error = path + QLatin1String(": ") + file.errorString();
        return std::nullopt;
    }
    if (isCapture(file.peek(4))) {
        auto messages = result.readCapture(path, error);
        if (!messages)
            return std::nullopt;
        result.m_inputs = std::move(*messages);
    } else {
        auto script = readScript(file, path, error);
        if (!script)
            return std::nullopt;
        result.m_inputs = std::move(*script);
    }
    return result;
}

std::optional<InputFile::Script> InputFile::readScript(QFile &file, const QString &path,
                                                       QString *error)
{
    Script script;
    QByteArray text;
    QByteArray chunk;
    do { // a file may tell no size
        chunk = file.read(1 << 16);
        text += chunk;
    } while (!chunk.isEmpty() && text.size() <= maximumSize);
    if (file.error() != QFileDevice::NoError || text.size() > maximumSize) {
        *error = path + QLatin1String(": ")
            + (text.size() > maximumSize
                   ? QStringLiteral("more than %1 bytes of script").arg(maximumSize)
                   : file.errorString());
        return std::nullopt;
    }
    int begin = 0;
    for (int number = 1; begin < text.size(); ++number) {
        const int newline = int(text.indexOf('\n', begin));
        const int end = newline < 0 ? int(text.size()) : newline;
        const QString problem = readLine(text.mid(begin, end - begin), &script);
        if (!problem.isEmpty()) {
            *error = QStringLiteral("%1:%2: %3").arg(path, QString::number(number), problem);
            return std::nullopt;
        }
        begin = end + 1;
    }
    return script;
}

std::optional<InputFile::Messages> InputFile::readCapture(const QString &path, QString *error)
{
    constexpr qint64 overhead = 64;
    Messages messages;
    qint64 size = 0;
    CaptureReader reader;
    *error = reader.open(path) ? QString() : reader.errorString();
    while (const auto frame = reader.next()) {
        if (!m_firstTime)
            m_firstTime = frame->time;
        if (!GooseMessage::isGoose(frame->bytes))
            continue;
        size += frame->bytes.size() + overhead;
        if (size > maximumSize) {
            *error =
                path + QStringLiteral(": more than %1 bytes of GOOSE messages").arg(maximumSize);
            return std::nullopt;
        }
        messages << *frame;
    }
    *error = reader.errorString();
    if (!error->isEmpty())
        return std::nullopt;
    std::stable_sort(
        messages.begin(), messages.end(),
        [](const CapturedFrame &a, const CapturedFrame &b) { return a.time < b.time; });
    return messages;
}

PlannedInputs InputFile::plan(const QVector<Subscription> &subscriptions, qint64 startTime) const
{
    DeviceInputs inputs(subscriptions);
    const auto *const script = std::get_if<Script>(&m_inputs);
    QVector<PlannedInputs::Report> reports;
    for (const QString &text : inputs.takeReports())
        reports.append({startTime, text});
    PlannedInputs plan = script ? planned(*script, inputs, startTime)
                                : planned(std::get<Messages>(m_inputs), inputs);
    plan.reports = reports + plan.reports;
    return plan;
}

std::optional<qint64> InputFile::firstTime() const
{
    return m_firstTime;
}

} // namespace virtualboard
