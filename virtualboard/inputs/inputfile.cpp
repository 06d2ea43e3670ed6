#include "virtualboard/inputs/inputfile.h"

#include "virtualboard/inputs/deviceinputs.h"
#include "virtualboard/wire/goosemessage.h"

#include <QFile>
#include <QRegularExpression>

#include <algorithm>
#include <bitset>
#include <utility>

namespace virtualboard {

namespace {

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

QString readTime(const QByteArray &text, Duration *time)
{
    static const QRegularExpression pattern(
        QStringLiteral("\\A0*([0-9]{1,7})(?:\\.([0-9]{1,9}))?\\z"));
    const QRegularExpressionMatch match = pattern.match(QString::fromLatin1(text));
    *time = std::chrono::seconds(match.captured(1).toLongLong())
        + Duration(match.captured(2).leftJustified(9, QLatin1Char('0')).toLongLong());
    if (match.hasMatch() && *time <= std::chrono::seconds(InputFile::kMaximumSeconds))
        return {};
    return QStringLiteral("a time of 0 to %1 seconds, with at most 9 decimals, expected, %2 found")
        .arg(InputFile::kMaximumSeconds)
        .arg(quoted(text));
}

QString readInput(const QList<QByteArray> &words, InputAt<Duration> *event)
{
    if (words == QList<QByteArray>{"trigger"}) {
        event->kind = InputKind::Trigger;
        return {};
    }
    if (words.size() != 3 || words[0] != "channel" || (words[2] != "on" && words[2] != "off"))
        return QStringLiteral("\"trigger\" or \"channel N on|off\" expected, %1 found")
            .arg(quoted(words.join(' ')));
    bool isNumber = false;
    const uint channel = words[1].toUInt(&isNumber);
    if (!isNumber || channel >= kLogicChannels)
        return QStringLiteral("a logic channel of 0 to %1 expected, %2 found")
            .arg(kLogicChannels - 1)
            .arg(quoted(words[1]));
    event->kind = words[2] == "on" ? InputKind::ChannelOn : InputKind::ChannelOff;
    event->channel = quint16(channel);
    return {};
}

QString readLine(const QByteArray &line, QVector<InputAt<Duration>> *script)
{
    const QList<QByteArray> words = line.split('#').first().simplified().split(' ');
    if (words.first().isEmpty())
        return {};
    InputAt<Duration> event;
    QString problem = readTime(words.first(), &event.time);
    if (problem.isEmpty() && !script->isEmpty() && event.time < script->last().time)
        problem = QStringLiteral("time goes back to %1").arg(quoted(words.first()));
    if (problem.isEmpty())
        problem = readInput(words.mid(1), &event);
    script->append(event);
    return problem;
}

using FileInputs = DeviceInputs<WallTime>;

PlannedInputs planned(const QVector<InputAt<Duration>> &script, FileInputs &inputs, WallTime start)
{
    PlannedInputs plan;
    std::bitset<kLogicChannels> reported;
    for (const InputAt<Duration> &each : script) {
        const bool isTooLate = start > WallTime::max() - each.time;
        const InputEvent event{isTooLate ? WallTime::max() : start + each.time, each.kind,
                               each.channel};
        if (event.kind == InputKind::Trigger || inputs.isSubscribed(event.channel)) {
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

PlannedInputs planned(const QVector<CapturedFrame> &messages, FileInputs &inputs)
{
    PlannedInputs plan;
    const auto report = [&plan, &inputs](WallTime time) {
        const QStringList reports = inputs.takeReports();
        for (const QString &text : reports)
            plan.reports.append({time, text});
    };
    const auto loseBefore = [&inputs, &report](WallTime end) {
        for (WallTime loss = inputs.nextLoss(); loss < end; loss = inputs.nextLoss()) {
            inputs.expire(loss);
            report(loss);
        }
    };
    for (const CapturedFrame &message : messages) {
        loseBefore(message.time);
        plan.events += inputs.take(message.time, FileInputs::kAnyPort, message.bytes);
        report(message.time);
    }
    loseBefore(FileInputs::kNever);
    return plan;
}

} // namespace

Expected<InputFile> InputFile::read(const QString &path)
{
    QFile file(path);
    InputFile result;
    if (!file.open(QIODevice::ReadOnly))
        return Refusal(path + QLatin1String(": ") + file.errorString());
    const auto keep = [&result](auto &&inputs) {
        result.m_inputs = std::forward<decltype(inputs)>(inputs);
        return std::move(result);
    };
    const QByteArray begin = file.peek(4);
    if (begin.isEmpty() && path.contains(QLatin1String(".pcap")))
        return Refusal(path + QStringLiteral(": is empty"));
    if (begin.startsWith("\xff\xfe") || begin.startsWith("\xfe\xff")
        || (begin.left(2).contains('\0') && !isCapture(begin)))
        return Refusal(path + QStringLiteral(": is in UTF-16; UTF-8 is expected"));
    return isCapture(begin) ? result.readCapture(path).map(keep) : readScript(file, path).map(keep);
}

InputFile InputFile::fromEvents(QVector<InputAt<Duration>> events)
{
    std::stable_sort(events.begin(), events.end(),
                     [](const auto &a, const auto &b) { return a.time < b.time; });
    InputFile result;
    result.m_inputs = std::move(events);
    return result;
}

Expected<InputFile::Script> InputFile::readScript(QFile &file, const QString &path)
{
    Script script;
    QByteArray text;
    QByteArray chunk;
    do { // a file may tell no size
        chunk = file.read(1 << 16);
        text += chunk;
    } while (!chunk.isEmpty() && text.size() <= kMaximumSize);
    if (file.error() != QFileDevice::NoError || text.size() > kMaximumSize) {
        const QString reason = text.size() > kMaximumSize
            ? QStringLiteral("more than %1 bytes of script").arg(kMaximumSize)
            : file.errorString();
        return Refusal(path + QLatin1String(": ") + reason);
    }
    int begin = text.startsWith("\xef\xbb\xbf") ? 3 : 0; // a byte order mark
    for (int number = 1; begin < text.size(); ++number) {
        const int newline = int(text.indexOf('\n', begin));
        const int end = newline < 0 ? int(text.size()) : newline;
        constexpr int kLongestLine = 1000;
        if (end - begin > kLongestLine)
            return Refusal(QStringLiteral("%1:%2: a line of at most %3 bytes expected, %4 found")
                               .arg(path)
                               .arg(number)
                               .arg(kLongestLine)
                               .arg(end - begin));
        const QString problem = readLine(text.mid(begin, end - begin), &script);
        if (!problem.isEmpty())
            return Refusal(QStringLiteral("%1:%2: %3").arg(path, QString::number(number), problem));
        begin = end + 1;
    }
    return script;
}

Expected<InputFile::Messages> InputFile::readCapture(const QString &path)
{
    constexpr qint64 kOverhead = 64;
    Messages messages;
    qint64 size = 0;
    CaptureReader reader;
    if (auto opened = reader.open(path); !opened)
        return Refusal(opened.error());
    while (const auto frame = reader.next()) {
        if (!m_firstTime)
            m_firstTime = frame->time;
        if (!GooseMessage::isGoose(frame->bytes))
            continue;
        size += frame->bytes.size() + kOverhead;
        if (size > kMaximumSize)
            return Refusal(
                path + QStringLiteral(": more than %1 bytes of GOOSE messages").arg(kMaximumSize));
        messages << *frame;
    }
    if (!reader.errorString().isEmpty())
        return Refusal(reader.errorString());
    std::stable_sort(
        messages.begin(), messages.end(),
        [](const CapturedFrame &a, const CapturedFrame &b) { return a.time < b.time; });
    return messages;
}

PlannedInputs InputFile::plan(const QVector<SubscriptionCommand> &subscriptions,
                              WallTime startTime) const
{
    FileInputs inputs(subscriptions);
    const auto *const script = std::get_if<Script>(&m_inputs);
    QVector<PlannedInputs::Report> reports;
    for (const QString &text : inputs.takeReports())
        reports.append({startTime, text});
    PlannedInputs plan = script ? planned(*script, inputs, startTime)
                                : planned(std::get<Messages>(m_inputs), inputs);
    plan.reports = reports + plan.reports;
    return plan;
}

std::optional<WallTime> InputFile::firstTime() const
{
    return m_firstTime;
}

} // namespace virtualboard
