#include "virtualboard/board/boardreport.h"

#include "virtualboard/board/crosscheck.h"
#include "virtualboard/board/texttable.h"
#include "virtualboard/play/download.h"
#include "virtualboard/wire/analogchannels.h"
#include "virtualboard/wire/bytes.h"

#include <QMap>

#include <algorithm>
#include <array>
#include <utility>

namespace virtualboard {

namespace {

const QString missing(QChar(0x2013));

/// What all commands have led to.
struct Received
{
    Download download;
    std::optional<StartStopCommand> start; ///< the last one
    int starts = 0;
    int stops = 0;
    int statusReads = 0;
    QMap<QString, int> commandCounts;

    explicit Received(const QVector<Reception> &acknowledged)
    {
        for (const Reception &each : acknowledged) {
            ++commandCounts[commandName(each.decoded.command)];
            std::visit([this](const auto &command) { count(command); }, each.decoded.command);
            download.take(each.decoded);
        }
    }

private:
    template <typename Other>
    std::enable_if_t<
        kIsOneOf<Other, UnknownCommand, ChannelSignalCommand, ResetCommand, SvDescriptionCommand,
                 GooseDescriptionCommand, DisableCurrentStateCommand, StepConditionCommand,
                 StateChangeCommand, GooseControlCommand, StepOptionCommand, FrameTemplateCommand,
                 Ft3TemplateCommand, FpgaResetCommand, DspConfigurationCommand, SubscriptionCommand,
                 SvCombinationCommand, SvChannelCommand>>
    count(const Other &)
    { }
    void count(const StopCommand &) { ++stops; }
    void count(const StatusReadBackCommand &) { ++statusReads; }
    void count(const StartStopCommand &command)
    {
        ++(command.start ? starts : stops);
        if (command.start)
            start = command;
    }
};

/// The heading of a section, which a blank line comes before.
QString section(const QString &title, int width)
{
    return QLatin1Char('\n') + heading(title, width);
}

/// The cells that both kinds of published stream have: stream to APPID.
QStringList frameCells(const FrameTemplateCommand &frame)
{
    const EthernetFrame &ethernet = frame.ethernet;
    return {QString::number(frame.stream),
            QString::number(frame.port),
            macText(ethernet.destination),
            ethernet.tagged ? QLatin1String("0x") + hexNumber(quint64(ethernet.vlanId), 3)
                            : missing,
            ethernet.tagged ? QString::number(ethernet.priority) : missing,
            QLatin1String("0x") + hexNumber(ethernet.appId, 4)};
}

const QStringList frameHeadings = {QStringLiteral(">Stream"),         QStringLiteral(">Port"),
                                   QStringLiteral("Destination MAC"), QStringLiteral(">VLAN"),
                                   QStringLiteral(">Prio"),           QStringLiteral("APPID")};

QString svChannel(int index, int kind, const SvEntry &entry)
{
    QString source = channelName(kind);
    if (source.isEmpty())
        source = entry.value != 0 ? QStringLiteral("delay=%1").arg(entry.value) : missing;
    return QStringLiteral("%1:%2").arg(index + 1).arg(source);
}

QString svStreams(const Received &board, int width)
{
    TextTable table(frameHeadings
                    + QStringList{QStringLiteral(">Channels"), QStringLiteral(">smpCnt max"),
                                  QStringLiteral(">smpCnt at"), QStringLiteral(">Dataset at"),
                                  QStringLiteral(">Frame size")});
    QString details;
    for (const auto &[number, stream] : board.download.sampledValues()) {
        if (!stream.frame)
            continue;
        const FrameTemplateCommand &frame = *stream.frame;
        const std::optional<SvDescriptionCommand> &description = stream.description;
        const auto *const pdu = std::get_if<SampledValues>(&frame.ethernet.pdu);
        const SampledValues contents = pdu ? *pdu : SampledValues();
        table.addRow(
            frameCells(frame)
            + QStringList{QString::number(contents.entries.size()),
                          description ? QString::number(description->smpCntMax) : missing,
                          description ? QString::number(description->smpCntOffset) : missing,
                          description ? QString::number(description->seqDataOffset) : missing,
                          QString::number(frame.ethernet.size)});
        QStringList channels;
        for (int i = 0; i < contents.entries.size(); ++i) {
            const int kind = description && i < description->channelKinds.size()
                ? byteAt(description->channelKinds, i)
                : kNoAnalogChannel;
            channels << svChannel(i, kind, contents.entries[i]);
        }
        details += QLatin1Char('\n')
            + wrapped(QStringLiteral(" Stream %1   ").arg(number),
                      {QStringLiteral("svID ") + contents.svId,
                       QStringLiteral("confRev %1").arg(contents.confRev)},
                      width);
        details += wrapped(QStringLiteral("   channels  "), channels, width);
    }
    return section(QStringLiteral("Published sampled values (IEC 61850-9-2)"), width)
        + (table.isEmpty() ? QStringLiteral(" none\n") : table.toString(width) + details);
}

/// "1-3 boolean", "4 bit string", ...: neighbours of one type together.
QStringList entryTypes(const QVector<GooseEntry> &entries)
{
    QStringList result;
    for (int first = 0, next = 0; first < entries.size(); first = next) {
        while (next < entries.size() && entries[next].tag == entries[first].tag)
            ++next;
        const QString numbers = next - first == 1
            ? QString::number(next)
            : QStringLiteral("%1-%2").arg(first + 1).arg(next);
        result << numbers + QLatin1Char(' ') + gooseTypeName(entries[first].tag);
    }
    return result;
}

QString gooseStreams(const Received &board, int width)
{
    TextTable table(frameHeadings
                    + QStringList{QStringLiteral(">Entries"), QStringLiteral(">TTL ms"),
                                  QStringLiteral(">t at"), QStringLiteral(">stNum at"),
                                  QStringLiteral(">sqNum at"), QStringLiteral(">Frame size")});
    QString details;
    for (const auto &[number, stream] : board.download.goose()) {
        if (!stream.frame)
            continue;
        const FrameTemplateCommand &frame = *stream.frame;
        const std::optional<GooseDescriptionCommand> &description = stream.description;
        const auto *const pdu = std::get_if<Goose>(&frame.ethernet.pdu);
        const Goose contents = pdu ? *pdu : Goose();
        table.addRow(
            frameCells(frame)
            + QStringList{QString::number(contents.entries.size()),
                          QString::number(contents.timeAllowedToLive),
                          description ? QString::number(description->tOffset) : missing,
                          QString::number(contents.stNumOffset),
                          description ? QString::number(description->sqNumOffset) : missing,
                          QString::number(frame.ethernet.size)});
        details += QLatin1Char('\n')
            + wrapped(QStringLiteral(" Stream %1   ").arg(number),
                      {QStringLiteral("gocbRef ") + contents.gocbRef,
                       QStringLiteral("datSet ") + contents.datSet,
                       QStringLiteral("goID ") + contents.goId,
                       QStringLiteral("confRev %1").arg(contents.confRev)},
                      width);
        details += wrapped(QStringLiteral("   dataset   "), entryTypes(contents.entries), width);
    }
    return section(QStringLiteral("Published GOOSE (IEC 61850-8-1)"), width)
        + (table.isEmpty() ? QStringLiteral(" none\n") : table.toString(width) + details);
}

QString subscriptions(const Received &board, int width)
{
    constexpr int kMappedPerRow = 6;
    TextTable table({QStringLiteral(">Group"), QStringLiteral(">Light port"),
                     QStringLiteral(">Light group"), QStringLiteral("APPID"),
                     QStringLiteral(">Entries"), QStringLiteral("Entry \u2192 logic input")});
    for (const auto &[group, each] : board.download.subscriptions()) {
        QStringList mapped;
        for (int i = 0; i < each.mappedPositions.size(); ++i)
            mapped << QStringLiteral("%1\u2192%2")
                          .arg(each.mappedPositions[i])
                          .arg(each.logicChannel + i);
        const auto row = [&mapped](int first) {
            return QStringList(mapped.mid(first, kMappedPerRow)).join(QLatin1String("  "));
        };
        table.addRow({QString::number(group), QString::number(each.lightPort),
                      QString::number(each.lightGroup),
                      QLatin1String("0x") + hexNumber(quint64(each.appId), 4),
                      QString::number(each.entryCount), row(0)});
        for (int first = kMappedPerRow; first < mapped.size(); first += kMappedPerRow)
            table.addRow({{}, {}, {}, {}, {}, row(first)});
    }
    return section(QStringLiteral("Subscribed GOOSE"), width)
        + (table.isEmpty() ? QStringLiteral(" none\n") : table.toString(width));
}

QString transitions(const Received &board, int width)
{
    constexpr int kBinaryInputFlag = 0x08;
    TextTable table({QStringLiteral(">Step"), QStringLiteral(">Time s"),
                     QStringLiteral("After the time"), QStringLiteral("Trigger"),
                     QStringLiteral("On the trigger"), QStringLiteral("Binary input"),
                     QStringLiteral("On the input"), QStringLiteral("Flags"),
                     QStringLiteral("Option")});
    const auto jump = [](int step) {
        return step < kStepLimit ? QStringLiteral("\u2192 step %1").arg(step)
                                 : QStringLiteral("\u2192 end");
    };
    for (const auto &[number, step] : board.download.lastSequence()) {
        const QString option = step.option ? QString::number(step.option->option) : missing;
        if (!step.condition) {
            table.addRow({QString::number(number), missing, missing, missing, missing, missing,
                          missing, missing, option});
            continue;
        }
        const StepConditionCommand &condition = *step.condition;
        const bool watched =
            condition.binaryInput != 0 && (condition.conditions & kBinaryInputFlag) != 0;
        table.addRow({QString::number(number),
                      QString::number(condition.milliseconds / 1000.0, 'f', 3),
                      jump(condition.timeJump), QString::number(condition.trigger),
                      condition.trigger != 0 ? jump(condition.triggerJump) : missing,
                      watched ? QStringLiteral("watched") : QStringLiteral("ignored"),
                      watched ? jump(condition.binaryInputJump) : missing,
                      QLatin1String("0x") + hexNumber(quint64(condition.conditions), 2), option});
    }
    return table.toString(width);
}

/// Numbers of the channels of the first group, voltages first.
QVector<int> firstOutputs()
{
    QVector<int> result;
    for (const bool voltage : {true, false}) {
        for (const AnalogChannel &each : kAnalogTable) {
            if (each.isVoltage == voltage && each.first == each.number)
                result << each.number;
        }
    }
    return result;
}

/// One row of the table of analog outputs: \a value of every first output.
template <typename Value>
QStringList analogRow(const QString &step, const QString &quantity, const DownloadedStep &contents,
                      const Value &value)
{
    QStringList row = {step, quantity};
    for (const int channel : firstOutputs()) {
        const auto found = contents.channels.find(channel);
        row << (found == contents.channels.end() ? missing : value(found->second));
    }
    return row;
}

QString analogOutputs(const Received &board, int width)
{
    QStringList headings = {QStringLiteral(">Step"), QStringLiteral("Quantity")};
    for (const int channel : firstOutputs())
        headings << QLatin1Char('>') + channelName(channel);
    TextTable table(headings, 2);
    for (const auto &[number, step] : board.download.lastSequence()) {
        table.addRow(analogRow(QString::number(number), QStringLiteral("amplitude V, A"), step,
                               [](const ChannelSignalCommand &each) {
                                   return QString::number(double(each.amplitude), 'g', 7);
                               }));
        table.addRow(analogRow({}, QStringLiteral("angle \u00b0"), step,
                               [](const ChannelSignalCommand &each) {
                                   return QString::number(double(each.phase), 'f', 2);
                               }));
        table.addRow(analogRow({}, QStringLiteral("frequency Hz"), step,
                               [](const ChannelSignalCommand &each) {
                                   return QString::number(double(each.frequency), 'f', 3);
                               }));
    }
    return table.toString(width);
}

/// Steps in which a second output of a phase differs from the first.
QString secondOutputs(const Received &board, int width)
{
    const auto same = [](const ChannelSignalCommand &a, const ChannelSignalCommand &b) {
        return a.amplitude == b.amplitude && a.phase == b.phase && a.frequency == b.frequency;
    };
    QStringList different;
    for (const auto &[number, step] : board.download.lastSequence()) {
        const auto &channels = step.channels;
        const auto told = [&channels](int channel) {
            const auto found = channels.find(channel);
            return found == channels.end() ? ChannelSignalCommand() : found->second;
        };
        const bool mirrored =
            std::all_of(kAnalogTable.begin(), kAnalogTable.end(), [&](const AnalogChannel &each) {
                return same(told(each.first), told(each.number));
            });
        if (!mirrored)
            different << QString::number(number);
    }
    if (different.isEmpty())
        return QLatin1Char('\n')
            + paragraph(QStringLiteral("The second outputs (Va2 ... In2) equal the first."), width);
    return QLatin1Char('\n')
        + paragraph(QStringLiteral("The second outputs (Va2 ... In2) differ from the first in "
                                   "step %1.")
                        .arg(different.join(QLatin1String(", "))),
                    width);
}

/// What a step writes into a dataset value.
QString writtenValue(int tag, const QByteArray &data)
{
    struct Reading
    {
        int tag;
        const char *hex;
        const char *text;
    };
    static const Reading readings[] = {{0x83, "00", "off"},
                                       {0x83, "01", "on"},
                                       {0x84, "0640", "off (01)"},
                                       {0x84, "0680", "on (10)"}};
    for (const Reading &reading : readings) {
        if (reading.tag == tag && data == QByteArray::fromHex(reading.hex))
            return QString::fromLatin1(reading.text);
    }
    return hexText(data);
}

/// One place in a published GOOSE frame that the steps write to.
struct WrittenPlace
{
    QString entry;
    QString type;
    int tag = 0;
    QMap<int, QString> values; ///< by step
};

WrittenPlace findPlace(const Goose &goose, int offset)
{
    for (int i = 0; i < goose.entries.size(); ++i) {
        const GooseEntry &entry = goose.entries[i];
        if (entry.valueOffset == offset)
            return {QString::number(i + 1), gooseTypeName(entry.tag), entry.tag, {}};
    }
    return {QStringLiteral("? (offset %1)").arg(offset), missing, 0, {}};
}

using WrittenPlaces = QMap<std::pair<int, int>, WrittenPlace>; // by stream and offset

WrittenPlaces writtenPlaces(const Received &board)
{
    WrittenPlaces places;
    for (const auto &[number, step] : board.download.lastSequence()) {
        for (const auto &[group, control] : step.gooseControls) {
            const auto *const pdu = downloadedPdu<Goose>(board.download.goose(), group);
            const Goose goose = pdu ? *pdu : Goose();
            for (const GooseItem &item : control.items) {
                if (item.offset == goose.stNumOffset)
                    continue;
                const auto key = std::make_pair(group, item.offset);
                if (!places.contains(key))
                    places[key] = findPlace(goose, item.offset);
                WrittenPlace &place = places[key];
                place.values[number] = writtenValue(place.tag, item.data);
            }
        }
    }
    return places;
}

QString binaryOutputs(const Received &board, int width)
{
    QVector<int> steps;
    for (const auto &[number, step] : board.download.lastSequence())
        steps << number;
    QStringList headings = {QStringLiteral(">GOOSE stream"), QStringLiteral(">Entry"),
                            QStringLiteral("Type")};
    for (const int step : steps)
        headings << QStringLiteral("Step %1").arg(step);
    TextTable table(headings, 3);
    const WrittenPlaces places = writtenPlaces(board);
    for (auto place = places.cbegin(); place != places.cend(); ++place) {
        QStringList cells = {QString::number(place.key().first), place->entry, place->type};
        for (const int step : steps)
            cells << place->values.value(step, missing);
        table.addRow(cells);
    }
    return section(QStringLiteral("Binary outputs, as published"), width)
        + (table.isEmpty() ? QStringLiteral(" none\n") : table.toString(width));
}

QString sequence(const Received &board, int width)
{
    if (board.download.lastSequence().empty())
        return section(QStringLiteral("State sequence"), width) + QStringLiteral(" none\n");
    return section(QStringLiteral("State sequence"), width) + transitions(board, width)
        + section(QStringLiteral("Analog outputs, as sent"), width) + analogOutputs(board, width)
        + secondOutputs(board, width) + binaryOutputs(board, width);
}

QString control(const Received &board, int width)
{
    QString line = QStringLiteral("started %1 \u00d7").arg(board.starts);
    if (board.start)
        line += QStringLiteral(" (sample interval %1 \u00b5s, parameters %2)")
                    .arg(board.start->sampleInterval)
                    .arg(hexText(board.start->parameters));
    line += QStringLiteral(", status read %1 \u00d7, stopped %2 \u00d7")
                .arg(board.statusReads)
                .arg(board.stops);
    QStringList counts;
    for (auto kind = board.commandCounts.cbegin(); kind != board.commandCounts.cend(); ++kind)
        counts << QStringLiteral("%1 \u00d7 %2").arg(*kind).arg(kind.key());
    return section(QStringLiteral("Control"), width) + paragraph(line, width) + QLatin1Char('\n')
        + wrapped(QStringLiteral(" commands  "), counts, width);
}

QString problemList(const QVector<Reception> &receptions, int width, int reported)
{
    const QStringList problems = allProblems(receptions);
    QString result = section(QStringLiteral("Problems"), width);
    const QString told = reported == 0
        ? QString()
        : QStringLiteral(" %1 were reported while the board ran, see there\n").arg(reported);
    if (problems.isEmpty())
        return result + (told.isEmpty() ? QStringLiteral(" none\n") : told);
    for (const QString &problem : problems)
        result += paragraph(problem, width);
    return result + told;
}

QString stepText(quint8 step)
{
    return step == kNoStep ? missing : QString::number(step);
}

QString causeText(const Transition &change)
{
    const QString cause = QString::fromLatin1(causeName(change.cause));
    return change.cause == Cause::BinaryInput
        ? cause + QStringLiteral(", logic channel %1").arg(change.channel)
        : cause;
}

QString changeTable(const TransitionLog &log, int width)
{
    TextTable table({QStringLiteral(">Time / s"), QStringLiteral(">Left"),
                     QStringLiteral(">Entered"), QStringLiteral(">In the step / ms"),
                     QStringLiteral("Cause"), QString()});
    for (int i = 0; i < log.last.size(); ++i) {
        const Transition &change = log.last[i];
        const std::optional<Duration> inStep = log.timeInStep(i);
        const QString doubt = log.whyDoubtful(i);
        table.addRow({secondsText(change.causeTime), stepText(change.left),
                      stepText(change.entered), inStep ? millisecondsText(*inStep) : missing,
                      causeText(change),
                      doubt.isEmpty() ? QString() : QStringLiteral("doubtful: ") + doubt});
    }
    return table.toString(width);
}

} // namespace

QString playedReport(const PlayStatus &status, const TransitionLog &log, int width)
{
    const QString result = section(QStringLiteral("Played"), width);
    if (log.total == 0)
        return result + QStringLiteral(" nothing\n");
    return result + changeTable(log, width) + QLatin1Char('\n')
        + paragraph(
               QStringLiteral("%1 after %2 s, %3 frames published")
                   .arg(QString::fromLatin1(stateName(status.state)), secondsText(status.totalTime))
                   .arg(status.framesSent),
               width);
}

QString receivedReport(const QVector<Reception> &receptions, int width, int reported)
{
    const QVector<Reception> acknowledged = acknowledgedExchanges(receptions);
    const Received board(acknowledged);
    const auto retries = std::count_if(receptions.begin(), receptions.end(),
                                       [](const Reception &each) { return each.attempt > 0; });
    return QStringLiteral("Received %1 datagrams: %2 commands acknowledged, %3 retries\n")
               .arg(receptions.size())
               .arg(acknowledged.size())
               .arg(retries)
        + svStreams(board, width) + gooseStreams(board, width) + subscriptions(board, width)
        + sequence(board, width) + control(board, width) + problemList(receptions, width, reported);
}

} // namespace virtualboard
