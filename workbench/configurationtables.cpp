#include "workbench/configurationtables.h"

#include "workbench/jsonremarks.h"
#include "workbench/printabletext.h"

#include "protocol/ethernetframe.h"
#include "protocol/textcodec.h"
#include "virtualboard/board/texttable.h"
#include "virtualboard/wire/analogchannels.h"
#include "virtualboard/wire/ethernetframes.h"

#include <QJsonArray>

#include <algorithm>
#include <utility>

namespace workbench {

using namespace testconfiguration;
using virtualboard::heading;
using virtualboard::TextTable;
using virtualboard::wrapped;

namespace {

const QString kNone(QChar(0x2013));

int bigEndian(const QByteArray &bytes)
{
    return bytes.toHex().toInt(nullptr, 16);
}

/// What both kinds of published frame have.
template <typename Frame>
QJsonObject frameToJson(int stream, const Frame &frame, const QByteArray &download,
                        const QByteArray &description)
{
    const int selector = bigEndian(frame.Message_flag.left(1));
    const int tci = bigEndian(frame.TCI);
    return {{QStringLiteral("stream"), stream},
            {QStringLiteral("port"), (selector >> 2 & 7) + 1},
            {QStringLiteral("destinationMac"),
             QString::fromLatin1(frame.Destination_Mac.toHex('-').toUpper())},
            {QStringLiteral("vlanId"), tci & 0xfff},
            {QStringLiteral("priority"), tci >> 13},
            {QStringLiteral("appId"), bigEndian(frame.APPID)},
            {QStringLiteral("confRev"), double(frame.confRevValue.toHex().toUInt(nullptr, 16))},
            {QStringLiteral("frameSize"), int(download.size()) - ethernetframe::headerSize(frame)},
            {QStringLiteral("commandSize"), int(download.size())},
            {QStringLiteral("descriptionSize"), int(description.size())}};
}

QJsonValue textOf(const QByteArray &reference)
{
    return textcodec::fromCString(reference.constData());
}

QJsonObject channelToJson(const QString &name, int kind, int value)
{
    QJsonObject channel{{QStringLiteral("name"), name}};
    const QString source = virtualboard::channelName(kind);
    if (!source.isEmpty()) {
        channel[QStringLiteral("kind")] = kind;
        channel[QStringLiteral("source")] = source;
    }
    if (value != 0)
        channel[QStringLiteral("value")] = value;
    return channel;
}

QJsonObject svToJson(const SvPublication &each)
{
    const Message_9_2 &frame = each.frame;
    const SMV_MessageStructure &description = each.description;
    QJsonArray channels;
    for (int i = 0; i < each.channelNames.size(); ++i) {
        const int kind = quint8(description.ChannelProperty.at(i));
        const auto value = frame.SeqData_Vector[i].Value.toHex().toUInt(nullptr, 16);
        channels.append(channelToJson(each.channelNames[i], kind, int(value)));
    }
    QJsonObject result = frameToJson(each.stream, frame, each.download, description.data());
    result[QStringLiteral("svID")] = textOf(frame.SVID_Value);
    result[QStringLiteral("smpCntOffset")] = frame.SmpCnt_Offset;
    result[QStringLiteral("datasetOffset")] = frame.SeqData_Offset;
    result[QStringLiteral("channelCount")] = channels.size();
    result[QStringLiteral("channels")] = channels;
    return result;
}

QString typeName(int tag)
{
    return tag == 0 ? kNone : virtualboard::gooseTypeName(quint8(tag));
}

QJsonObject gooseToJson(const GoosePublication &each)
{
    const Message_goose &frame = each.frame;
    QJsonArray entries;
    for (const SetdataGoose &entry : frame.Data_Vector)
        entries.append(typeName(bigEndian(entry.Data_tag)));
    QJsonObject result = frameToJson(each.stream, frame, each.download, each.description.data());
    result[QStringLiteral("gocbRef")] = textOf(frame.gocbRef_Value);
    result[QStringLiteral("datSet")] = textOf(frame.datSet_Value);
    result[QStringLiteral("goID")] = textOf(frame.goID_Value);
    result[QStringLiteral("timeAllowedtoLive")] =
        double(frame.TimeAllowedtoLive_value.toHex().toUInt(nullptr, 16));
    result[QStringLiteral("tOffset")] = frame.t_Offset;
    result[QStringLiteral("stNumOffset")] = frame.stNum_Offset;
    result[QStringLiteral("sqNumOffset")] = frame.sqNum_Offset;
    result[QStringLiteral("entryCount")] = entries.size();
    result[QStringLiteral("entries")] = entries;
    return result;
}

/// The board numbers the logic channels in the order of the dataset.
QJsonObject subscriptionToJson(const GooseSubscription &each)
{
    const Goose_command &command = each.command;
    const int firstChannel = bigEndian(command.LogicCH_High + command.LogicCH_Low);
    QVector<int> positions;
    for (const MappedEntry &entry : each.mapped)
        positions.append(entry.position);
    std::sort(positions.begin(), positions.end());
    positions.erase(std::unique(positions.begin(), positions.end()), positions.end());
    QJsonArray mapped;
    for (int i = 0; i < positions.size(); ++i)
        mapped.append(QJsonObject{{QStringLiteral("entry"), positions[i]},
                                  {QStringLiteral("logicChannel"), firstChannel + i}});
    return {{QStringLiteral("group"), each.group},
            {QStringLiteral("lightPort"), each.lightPort},
            {QStringLiteral("lightGroup"), each.lightGroup},
            {QStringLiteral("appId"), bigEndian(command.AppId_High + command.AppId_Low)},
            {QStringLiteral("entryCount"),
             bigEndian(command.ChanelNum.mid(1) + command.ChanelNum.left(1))},
            {QStringLiteral("commandSize"), int(command.data().size())},
            {QStringLiteral("mapped"), mapped}};
}

QJsonArray outputsToJson(const CheckedConfiguration &configuration)
{
    QJsonArray outputs;
    int number = 0;
    for (const OutputTarget &each : configuration.outputs) {
        ++number;
        if (each.stream < 0)
            continue;
        outputs.append(QJsonObject{{QStringLiteral("output"), number},
                                   {QStringLiteral("stream"), each.stream},
                                   {QStringLiteral("entry"), each.position},
                                   {QStringLiteral("type"), typeName(each.tag)}});
    }
    return outputs;
}

/// Those of one kind.
template <typename Kind>
QJsonArray arrayOf(const QVector<Stream> &streams, QJsonObject (*toJson)(const Kind &))
{
    QJsonArray result;
    for (const Stream &each : streams) {
        if (const Kind *const stream = std::get_if<Kind>(&each))
            result.append(toJson(*stream));
    }
    return result;
}

// The text shows what the JSON holds.

QString number(const QJsonValue &value)
{
    return QString::number(value.toDouble(), 'f', 0);
}

QString text(const QJsonValue &value)
{
    constexpr int kMostShown = 150; // characters; IEC 61850-7-2 allows 129
    const QString all = value.toString();
    return printable(all.size() <= kMostShown ? all : all.left(kMostShown) + QChar(0x2026));
}

/// "16385 (0x4001)".
QString appId(const QJsonValue &value)
{
    return QStringLiteral("%1 (0x%2)")
        .arg(value.toInt())
        .arg(value.toInt(), 4, 16, QLatin1Char('0'));
}

QString vlanId(const QJsonValue &value)
{
    return QStringLiteral("%1 (0x%2)")
        .arg(value.toInt())
        .arg(value.toInt(), 3, 16, QLatin1Char('0'));
}

struct Column
{
    const char *heading;
    const char *key;
    QString (*show)(const QJsonValue &) = number;
};
using Columns = QVector<Column>;

const Columns kFrameColumns = {
    {">Stream", "stream"},       {">Port", "port"},     {"Destination MAC", "destinationMac", text},
    {">VLAN", "vlanId", vlanId}, {">Prio", "priority"}, {">APPID", "appId", appId}};

QString table(const Columns &columns, const QJsonArray &rows, int width)
{
    if (rows.isEmpty())
        return QStringLiteral(" none\n");
    QStringList headings;
    for (const Column &column : columns)
        headings << QLatin1String(column.heading);
    TextTable result(headings);
    for (const QJsonValue row : rows) {
        QStringList cells;
        for (const Column &column : columns)
            cells << column.show(row.toObject()[QLatin1String(column.key)]);
        result.addRow(cells);
    }
    return result.toString(width);
}

/// What does not go into a table: each heading with its value.
QString streamLines(const QJsonObject &stream, const Columns &columns, int width)
{
    QStringList words;
    for (const Column &column : columns)
        words << QLatin1String(column.heading) + column.show(stream[QLatin1String(column.key)]);
    return wrapped(QStringLiteral(" Stream %1   ").arg(number(stream[QLatin1String("stream")])),
                   words, width);
}

QString svDetails(const QJsonObject &stream, int width)
{
    QStringList channels;
    for (const QJsonValue value : stream[QLatin1String("channels")].toArray()) {
        const QJsonObject channel = value.toObject();
        QString source = channel[QLatin1String("source")].toString(kNone);
        if (channel.contains(QLatin1String("value")))
            source = number(channel[QLatin1String("value")]);
        channels << QStringLiteral("%1:%2=%3")
                        .arg(channels.size() + 1)
                        .arg(text(channel[QLatin1String("name")]), source);
    }
    return streamLines(stream,
                       {{"svID ", "svID", text},
                        {"confRev ", "confRev"},
                        {"smpCnt at ", "smpCntOffset"},
                        {"dataset at ", "datasetOffset"}},
                       width)
        + wrapped(QStringLiteral("   channels  "), channels, width);
}

/// "1-3 boolean", "4 bit string", ...: neighbours of one type together.
QStringList entryTypes(const QJsonArray &entries)
{
    QStringList result;
    for (int first = 0, next = 0; first < entries.size(); first = next) {
        while (next < entries.size() && entries[next] == entries[first])
            ++next;
        QString numbers = QString::number(first + 1);
        if (next - first > 1)
            numbers += QStringLiteral("-%1").arg(next);
        result << numbers + QLatin1Char(' ') + entries[first].toString();
    }
    return result;
}

QString gooseDetails(const QJsonObject &stream, int width)
{
    return streamLines(stream,
                       {{"gocbRef ", "gocbRef", text},
                        {"datSet ", "datSet", text},
                        {"goID ", "goID", text},
                        {"confRev ", "confRev"},
                        {"t at ", "tOffset"},
                        {"stNum at ", "stNumOffset"},
                        {"sqNum at ", "sqNumOffset"}},
                       width)
        + wrapped(QStringLiteral("   dataset   "),
                  entryTypes(stream[QLatin1String("entries")].toArray()), width);
}

QString subscriptionDetails(const QJsonObject &subscription, int width)
{
    QStringList mapped;
    for (const QJsonValue each : subscription[QLatin1String("mapped")].toArray())
        mapped << QStringLiteral("%1\u2192%2")
                      .arg(number(each[QLatin1String("entry")]),
                           number(each[QLatin1String("logicChannel")]));
    const int group = subscription[QLatin1String("group")].toInt();
    return wrapped(QStringLiteral(" Group %1   entry\u2192logic input  ").arg(group), mapped,
                   width);
}

/// A section of the report: a table, and below it a few lines for each of its rows.
QString section(const QString &title, const Columns &columns, const QJsonValue &items, int width,
                QString (*details)(const QJsonObject &, int) = nullptr)
{
    QString result = heading(title, width) + table(columns, items.toArray(), width);
    for (const QJsonValue each : items.toArray()) {
        if (details)
            result += QLatin1Char('\n') + details(each.toObject(), width);
    }
    return result + QLatin1Char('\n');
}

} // namespace

QJsonObject toJson(const CheckedConfiguration &configuration)
{
    const QVector<Stream> &streams = configuration.streams;
    return {{QStringLiteral("file"), configuration.document.path()},
            {QStringLiteral("svStreams"), arrayOf(streams, svToJson)},
            {QStringLiteral("gooseStreams"), arrayOf(streams, gooseToJson)},
            {QStringLiteral("outputs"), outputsToJson(configuration)},
            {QStringLiteral("subscriptions"), arrayOf(streams, subscriptionToJson)},
            {QStringLiteral("problems"), toJson(configuration.remarks)},
            {QStringLiteral("problemsLeftOut"),
             configuration.errors + configuration.warnings - int(configuration.remarks.size())},
            {QStringLiteral("errors"), configuration.errors},
            {QStringLiteral("warnings"), configuration.warnings}};
}

QString toText(const CheckedConfiguration &configuration, int width)
{
    if (!configuration.isRead())
        return {};
    const Columns sizes = {{">Frame size", "frameSize"}, {">Command size", "commandSize"}};
    const QJsonObject all = toJson(configuration);
    return section(QStringLiteral("Published sampled values (IEC 61850-9-2)"),
                   kFrameColumns + Columns{{">Channels", "channelCount"}} + sizes,
                   all[QLatin1String("svStreams")], width, svDetails)
        + section(QStringLiteral("Published GOOSE (IEC 61850-8-1)"),
                  kFrameColumns
                      + Columns{{">Entries", "entryCount"}, {">TTL ms", "timeAllowedtoLive"}}
                      + sizes,
                  all[QLatin1String("gooseStreams")], width, gooseDetails)
        + section(QStringLiteral("Binary outputs"),
                  {{">Output", "output"},
                   {">GOOSE stream", "stream"},
                   {">Entry", "entry"},
                   {"Type", "type", text}},
                  all[QLatin1String("outputs")], width)
        + section(QStringLiteral("Subscribed GOOSE"),
                  {{">Group", "group"},
                   {">Light port", "lightPort"},
                   {">Light group", "lightGroup"},
                   {">APPID", "appId", appId},
                   {">Entries", "entryCount"},
                   {">Command size", "commandSize"}},
                  all[QLatin1String("subscriptions")], width, subscriptionDetails);
}

} // namespace workbench
