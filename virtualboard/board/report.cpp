#include "report.h"

#include "bytes.h"
#include "texttable.h"

#include <QMap>

#include <algorithm>
#include <array>
#include <utility>

namespace virtualboard {

namespace {

constexpr int pageWidth = 104;
constexpr int noSource = 0xff;
const QString missing(QChar(0x2013));

/// What one step of the sequence consists of.
struct Step
{
    QMap<int, ChannelSignal> channels; ///< by channel number
    std::optional<StepCondition> condition;
    std::optional<StepOption> option;
    QMap<int, GooseControl> gooseControls; ///< by stream
};

/// What the board holds after all commands.
class BoardState
{
public:
    QMap<int, FrameTemplate> svFrames;
    QMap<int, SvDescription> svDescriptions;
    QMap<int, FrameTemplate> gooseFrames;
    QMap<int, GooseDescription> gooseDescriptions;
    QVector<Subscription> subscriptions;
    QMap<int, Step> steps;
    std::optional<StartStop> start; ///< the last one
    int starts = 0;
    int stops = 0;
    int statusReads = 0;
    QMap<QString, int> commandCounts;

    explicit BoardState(const QVector<Reception> &acknowledged)
    {
        for (const Reception &reception : acknowledged) {
            const Command &command = reception.decoded.command;
            ++commandCounts[commandName(command)];
            std::visit([this](const auto &each) { take(each); }, command);
        }
    }

private:
    template <typename Other>
    void take(const Other &)
    { }
    void take(const ResetParameters &);
    void take(const FrameTemplate &frame);
    void take(const SvDescription &each) { svDescriptions[each.stream] = each; }
    void take(const GooseDescription &each) { gooseDescriptions[each.stream] = each; }
    void take(const Subscription &each) { subscriptions << each; }
    void take(const ChannelSignal &each) { step(each.step).channels[each.channel] = each; }
    void take(const StepCondition &each) { step(each.step).condition = each; }
    void take(const StepOption &each) { step(each.step).option = each; }
    void take(const GooseControl &each) { step(each.step).gooseControls[each.group] = each; }
    void take(const StartStop &each);
    void take(const Stop &) { ++stops; }
    void take(const StatusReadBack &) { ++statusReads; }

    Step &step(int index);

    bool m_sequenceComplete = false; ///< the next step command begins a new sequence
};

void BoardState::take(const ResetParameters &)
{
    svFrames.clear();
    svDescriptions.clear();
    gooseFrames.clear();
    gooseDescriptions.clear();
    subscriptions.clear();
}

void BoardState::take(const FrameTemplate &frame)
{
    auto &frames = frame.kind == FrameTemplate::GooseFrame ? gooseFrames : svFrames;
    frames[frame.stream] = frame;
}

void BoardState::take(const StartStop &each)
{
    if (!each.start) {
        ++stops;
        return;
    }
    ++starts;
    start = each;
    m_sequenceComplete = true;
}

Step &BoardState::step(int index)
{
    if (std::exchange(m_sequenceComplete, false))
        steps.clear();
    return steps[index];
}

QString heading(const QString &text)
{
    const QChar rule(0x2500);
    const QString start = QString(2, rule) + QLatin1Char(' ') + text + QLatin1Char(' ');
    return QLatin1Char('\n') + start.leftJustified(pageWidth, rule) + QLatin1String("\n\n");
}

/// The words in lines of the page's width, the first after @p label, the others below it.
QString wrapped(const QString &label, const QStringList &words)
{
    QString result;
    QString line = label;
    for (const QString &word : words) {
        const QString gap = line.endsWith(QLatin1Char(' ')) ? QString() : QStringLiteral("  ");
        if (line.size() + gap.size() + word.size() <= pageWidth) {
            line += gap + word;
            continue;
        }
        result += line + QLatin1Char('\n');
        line = QString(label.size(), QLatin1Char(' ')) + word;
    }
    return result + line + QLatin1Char('\n');
}

/// The cells that both kinds of published stream have: stream to APPID.
QStringList frameCells(const FrameTemplate &frame)
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

QString svStreams(const BoardState &board)
{
    TextTable table(frameHeadings
                    + QStringList{QStringLiteral(">Channels"), QStringLiteral(">smpCnt max"),
                                  QStringLiteral(">smpCnt at"), QStringLiteral(">Dataset at"),
                                  QStringLiteral(">Frame size")});
    QString details;
    for (const FrameTemplate &frame : board.svFrames) {
        const auto *const pdu = std::get_if<SampledValues>(&frame.ethernet.pdu);
        const SampledValues contents = pdu ? *pdu : SampledValues();
        const auto description = board.svDescriptions.constFind(frame.stream);
        const bool described = description != board.svDescriptions.constEnd();
        table.addRow(
            frameCells(frame)
            + QStringList{QString::number(contents.entries.size()),
                          described ? QString::number(description->smpCntMax) : missing,
                          described ? QString::number(description->smpCntOffset) : missing,
                          described ? QString::number(description->seqDataOffset) : missing,
                          QString::number(frame.ethernet.size)});
        QStringList channels;
        for (int i = 0; i < contents.entries.size(); ++i) {
            const int kind = described && i < description->channelKinds.size()
                ? byteAt(description->channelKinds, i)
                : noSource;
            channels << svChannel(i, kind, contents.entries[i]);
        }
        details += QLatin1Char('\n')
            + wrapped(QStringLiteral(" Stream %1   ").arg(frame.stream),
                      {QStringLiteral("svID ") + contents.svId,
                       QStringLiteral("confRev %1").arg(contents.confRev)});
        details += wrapped(QStringLiteral("   channels  "), channels);
    }
    return heading(QStringLiteral("Published sampled values (IEC 61850-9-2)"))
        + (table.isEmpty() ? QStringLiteral(" none\n") : table.toString() + details);
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

QString gooseStreams(const BoardState &board)
{
    TextTable table(frameHeadings
                    + QStringList{QStringLiteral(">Entries"), QStringLiteral(">TTL ms"),
                                  QStringLiteral(">t at"), QStringLiteral(">stNum at"),
                                  QStringLiteral(">sqNum at"), QStringLiteral(">Frame size")});
    QString details;
    for (const FrameTemplate &frame : board.gooseFrames) {
        const auto *const pdu = std::get_if<Goose>(&frame.ethernet.pdu);
        const Goose contents = pdu ? *pdu : Goose();
        const auto description = board.gooseDescriptions.constFind(frame.stream);
        const bool described = description != board.gooseDescriptions.constEnd();
        table.addRow(frameCells(frame)
                     + QStringList{QString::number(contents.entries.size()),
                                   QString::number(contents.timeAllowedToLive),
                                   described ? QString::number(description->tOffset) : missing,
                                   QString::number(contents.stNumOffset),
                                   described ? QString::number(description->sqNumOffset) : missing,
                                   QString::number(frame.ethernet.size)});
        details += QLatin1Char('\n')
            + wrapped(QStringLiteral(" Stream %1   ").arg(frame.stream),
                      {QStringLiteral("gocbRef ") + contents.gocbRef,
                       QStringLiteral("datSet ") + contents.datSet,
                       QStringLiteral("goID ") + contents.goId,
                       QStringLiteral("confRev %1").arg(contents.confRev)});
        details += wrapped(QStringLiteral("   dataset   "), entryTypes(contents.entries));
    }
    return heading(QStringLiteral("Published GOOSE (IEC 61850-8-1)"))
        + (table.isEmpty() ? QStringLiteral(" none\n") : table.toString() + details);
}

QString subscriptions(const BoardState &board)
{
    constexpr int mappedPerRow = 6;
    TextTable table({QStringLiteral(">Group"), QStringLiteral(">Light port"),
                     QStringLiteral(">Light group"), QStringLiteral("APPID"),
                     QStringLiteral(">Entries"), QStringLiteral("Entry \u2192 logic input")});
    for (const Subscription &each : board.subscriptions) {
        QStringList mapped;
        for (int i = 0; i < each.mappedPositions.size(); ++i)
            mapped << QStringLiteral("%1\u2192%2")
                          .arg(each.mappedPositions[i])
                          .arg(each.logicChannel + i);
        const auto row = [&mapped](int first) {
            return QStringList(mapped.mid(first, mappedPerRow)).join(QLatin1String("  "));
        };
        table.addRow({QString::number(each.group), QString::number(each.lightPort),
                      QString::number(each.lightGroup),
                      QLatin1String("0x") + hexNumber(quint64(each.appId), 4),
                      QString::number(each.entryCount), row(0)});
        for (int first = mappedPerRow; first < mapped.size(); first += mappedPerRow)
            table.addRow({{}, {}, {}, {}, {}, row(first)});
    }
    return heading(QStringLiteral("Subscribed GOOSE"))
        + (table.isEmpty() ? QStringLiteral(" none\n") : table.toString());
}

QString transitions(const BoardState &board)
{
    constexpr int binaryInputFlag = 0x08;
    TextTable table({QStringLiteral(">Step"), QStringLiteral(">Time s"),
                     QStringLiteral("After the time"), QStringLiteral("Trigger"),
                     QStringLiteral("On the trigger"), QStringLiteral("Binary input"),
                     QStringLiteral("On the input"), QStringLiteral("Flags"),
                     QStringLiteral("Option")});
    const auto jump = [](int step) {
        return step < stepLimit ? QStringLiteral("\u2192 step %1").arg(step)
                                : QStringLiteral("\u2192 end");
    };
    for (auto step = board.steps.cbegin(); step != board.steps.cend(); ++step) {
        const QString option = step->option ? QString::number(step->option->option) : missing;
        if (!step->condition) {
            table.addRow({QString::number(step.key()), missing, missing, missing, missing, missing,
                          missing, missing, option});
            continue;
        }
        const StepCondition &condition = *step->condition;
        const bool watched =
            condition.binaryInput != 0 && (condition.conditions & binaryInputFlag) != 0;
        table.addRow({QString::number(step.key()),
                      QString::number(condition.milliseconds / 1000.0, 'f', 3),
                      jump(condition.timeJump), QString::number(condition.trigger),
                      condition.trigger != 0 ? jump(condition.triggerJump) : missing,
                      watched ? QStringLiteral("watched") : QStringLiteral("ignored"),
                      watched ? jump(condition.binaryInputJump) : missing,
                      QLatin1String("0x") + hexNumber(quint64(condition.conditions), 2), option});
    }
    return table.toString();
}

constexpr std::array<int, 8> firstOutputs = {8, 10, 12, 14, 0, 2, 4, 6}; // Va1 ... Vn1, Ia1 ... In1

/// One row of the table of analog outputs: @p value of every first output.
template <typename Value>
QStringList analogRow(const QString &step, const QString &quantity, const Step &contents,
                      const Value &value)
{
    QStringList row = {step, quantity};
    for (const int channel : firstOutputs) {
        const auto found = contents.channels.constFind(channel);
        row << (found == contents.channels.constEnd() ? missing : value(*found));
    }
    return row;
}

QString analogOutputs(const BoardState &board)
{
    QStringList headings = {QStringLiteral(">Step"), QStringLiteral("Quantity")};
    for (const int channel : firstOutputs)
        headings << QLatin1Char('>') + channelName(channel);
    TextTable table(headings);
    for (auto step = board.steps.cbegin(); step != board.steps.cend(); ++step) {
        table.addRow(analogRow(QString::number(step.key()), QStringLiteral("amplitude V, A"), *step,
                               [](const ChannelSignal &each) {
                                   return QString::number(double(each.amplitude), 'g', 7);
                               }));
        table.addRow(
            analogRow({}, QStringLiteral("angle \u00b0"), *step, [](const ChannelSignal &each) {
                return QString::number(double(each.phase), 'f', 2);
            }));
        table.addRow(
            analogRow({}, QStringLiteral("frequency Hz"), *step, [](const ChannelSignal &each) {
                return QString::number(double(each.frequency), 'f', 3);
            }));
    }
    return table.toString();
}

/// Steps in which a second output of a phase differs from the first.
QString secondOutputs(const BoardState &board)
{
    const auto same = [](const ChannelSignal &a, const ChannelSignal &b) {
        return a.amplitude == b.amplitude && a.phase == b.phase && a.frequency == b.frequency;
    };
    QStringList different;
    for (auto step = board.steps.cbegin(); step != board.steps.cend(); ++step) {
        const auto &channels = step->channels;
        const bool mirrored = std::all_of(firstOutputs.begin(), firstOutputs.end(), [&](int first) {
            return same(channels.value(first), channels.value(first + 1));
        });
        if (!mirrored)
            different << QString::number(step.key());
    }
    if (different.isEmpty())
        return QStringLiteral("\n The second outputs (Va2 ... In2) equal the first.\n");
    return QStringLiteral("\n The second outputs (Va2 ... In2) differ from the first in step %1.\n")
        .arg(different.join(QLatin1String(", ")));
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

WrittenPlaces writtenPlaces(const BoardState &board)
{
    WrittenPlaces places;
    for (auto step = board.steps.cbegin(); step != board.steps.cend(); ++step) {
        for (const GooseControl &control : step->gooseControls) {
            const EthernetFrame frame = board.gooseFrames.value(control.group).ethernet;
            const auto *const pdu = std::get_if<Goose>(&frame.pdu);
            const Goose goose = pdu ? *pdu : Goose();
            for (const GooseItem &item : control.items) {
                if (item.offset == goose.stNumOffset)
                    continue;
                const auto key = std::make_pair(control.group, item.offset);
                if (!places.contains(key))
                    places[key] = findPlace(goose, item.offset);
                WrittenPlace &place = places[key];
                place.values[step.key()] = writtenValue(place.tag, item.data);
            }
        }
    }
    return places;
}

QString binaryOutputs(const BoardState &board)
{
    const QList<int> steps = board.steps.keys();
    QStringList headings = {QStringLiteral(">GOOSE stream"), QStringLiteral(">Entry"),
                            QStringLiteral("Type")};
    for (const int step : steps)
        headings << QStringLiteral("Step %1").arg(step);
    TextTable table(headings);
    const WrittenPlaces places = writtenPlaces(board);
    for (auto place = places.cbegin(); place != places.cend(); ++place) {
        QStringList cells = {QString::number(place.key().first), place->entry, place->type};
        for (const int step : steps)
            cells << place->values.value(step, missing);
        table.addRow(cells);
    }
    return heading(QStringLiteral("Binary outputs, as published"))
        + (table.isEmpty() ? QStringLiteral(" none\n") : table.toString());
}

QString sequence(const BoardState &board)
{
    if (board.steps.isEmpty())
        return heading(QStringLiteral("State sequence")) + QStringLiteral(" none\n");
    return heading(QStringLiteral("State sequence")) + transitions(board)
        + heading(QStringLiteral("Analog outputs, as sent")) + analogOutputs(board)
        + secondOutputs(board) + binaryOutputs(board);
}

QString control(const BoardState &board)
{
    QString result = heading(QStringLiteral("Control"));
    result += QStringLiteral(" started %1 \u00d7").arg(board.starts);
    if (board.start)
        result += QStringLiteral(" (sample interval %1 \u00b5s, parameters %2)")
                      .arg(board.start->sampleInterval)
                      .arg(hexText(board.start->parameters));
    result += QStringLiteral(", status read %1 \u00d7, stopped %2 \u00d7\n\n")
                  .arg(board.statusReads)
                  .arg(board.stops);
    QStringList counts;
    for (auto kind = board.commandCounts.cbegin(); kind != board.commandCounts.cend(); ++kind)
        counts << QStringLiteral("%1 \u00d7 %2").arg(*kind).arg(kind.key());
    return result + wrapped(QStringLiteral(" commands  "), counts);
}

QString problemList(const QVector<Reception> &receptions)
{
    const QStringList problems = allProblems(receptions);
    QString result = heading(QStringLiteral("Problems"));
    if (problems.isEmpty())
        return result + QStringLiteral(" none\n");
    constexpr int most = 100;
    for (const QString &problem : problems.mid(0, most))
        result += QLatin1Char(' ') + problem + QLatin1Char('\n');
    if (problems.size() > most)
        result += QStringLiteral(" and %1 more\n").arg(problems.size() - most);
    return result;
}

QString stepText(quint8 step)
{
    return step == noStep ? missing : QString::number(step);
}

QString secondsText(qint64 nanoseconds)
{
    return QString::number(double(nanoseconds) * 1e-9, 'f', 6);
}

QString causeText(const Transition &change)
{
    const QString cause = QString::fromLatin1(causeName(change.cause));
    return change.cause == Cause::BinaryInput
        ? cause + QStringLiteral(", logic channel %1").arg(change.channel)
        : cause;
}

QString changeTable(const TransitionLog &log)
{
    TextTable table({QStringLiteral(">Time / s"), QStringLiteral(">Left"),
                     QStringLiteral(">Entered"), QStringLiteral(">In the step / ms"),
                     QStringLiteral("Cause")});
    qint64 entry = 0; // when the first frames of the step were sent
    for (const Transition &change : log.last) {
        const bool knowsEntry = change.left != noStep && &change != &log.last.first();
        const double inStep = double(change.causeTime - entry) * 1e-6;
        table.addRow({secondsText(change.causeTime), stepText(change.left),
                      stepText(change.entered),
                      knowsEntry ? QString::number(inStep, 'f', 3) : missing, causeText(change)});
        entry = change.entryTime + change.lateness;
    }
    return table.toString();
}

} // namespace

QString playReport(const PlayStatus &status, const TransitionLog &log)
{
    const QString result = heading(QStringLiteral("Played"));
    if (log.total == 0)
        return result + QStringLiteral(" nothing\n");
    return result + changeTable(log)
        + QStringLiteral("\n %1 after %2 s, %3 frames published\n")
              .arg(QString::fromLatin1(stateName(status.state)), secondsText(status.totalTime))
              .arg(status.framesSent);
}

QString report(const QVector<Reception> &receptions)
{
    const QVector<Reception> acknowledged = acknowledgedExchanges(receptions);
    const BoardState board(acknowledged);
    const auto retries = std::count_if(receptions.begin(), receptions.end(),
                                       [](const Reception &each) { return each.attempt > 0; });
    return QStringLiteral("Received %1 datagrams: %2 commands acknowledged, %3 retries\n")
               .arg(receptions.size())
               .arg(acknowledged.size())
               .arg(retries)
        + svStreams(board) + gooseStreams(board) + subscriptions(board) + sequence(board)
        + control(board) + problemList(receptions);
}

} // namespace virtualboard
