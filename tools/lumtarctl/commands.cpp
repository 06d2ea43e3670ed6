#include "tools/lumtarctl/commands.h"

#include "tools/lumtarctl/checkcommand.h"
#include "tools/lumtarctl/exportcommand.h"
#include "tools/lumtarctl/plotcommand.h"
#include "tools/lumtarctl/reportcommand.h"
#include "tools/lumtarctl/resultfiles.h"
#include "tools/lumtarctl/runcommand.h"
#include "tools/lumtarctl/statuscommand.h"
#include "tools/lumtarctl/testcommand.h"
#include "tools/terminal/terminal.h"
#include "workbench/boardsession.h"
#include "workbench/printabletext.h"
#include "workbench/sequencefile.h"

#include <QCommandLineParser>
#include <QHostInfo>
#include <QRegularExpression>

using namespace workbench;

namespace {

constexpr int kBoardPort = 2001; // what messages say; the engine sends there

const QString boardOption = QStringLiteral("board");
const QString configOption = QStringLiteral("config");
const QString sequenceOption = QStringLiteral("sequence");
const QString watchOption = QStringLiteral("watch");
const QString localPortOption = QStringLiteral("local-port");
const QString whichOption = QStringLiteral("which");
const QString jsonOption = QStringLiteral("json");
const QString rawOption = QStringLiteral("raw");
const QString outputOption = QStringLiteral("output");
const QString revisionOption = QStringLiteral("revision");
const QString streamOption = QStringLiteral("stream");
const QString runOption = QStringLiteral("run");
const QString fromOption = QStringLiteral("from");
const QString toOption = QStringLiteral("to");
const QString allOption = QStringLiteral("all");
const QString testCommand = QStringLiteral("test");
const QString liveOption = QStringLiteral("live");
const QString interfaceOption = QStringLiteral("interface");
const QString jobsOption = QStringLiteral("jobs");
const QString filterOption = QStringLiteral("filter");
const QString failFastOption = QStringLiteral("fail-fast");
const QString listOption = QStringLiteral("list");
const QString keepCapturesOption = QStringLiteral("keep-captures");
const QString recordOption = QStringLiteral("record");
const QString shotTimeoutOption = QStringLiteral("shot-timeout");
const QString shotsOption = QStringLiteral("shots");

struct OptionText
{
    const QString &name;
    const char *valueName; ///< empty for an option without a value
    const char *description;
    const char *defaultValue;
    const char *shortName = "";
    const char *command = ""; ///< that it is for, instead of what others have by the same name
};

const OptionText optionTexts[] = {
    {boardOption, "ADDRESS", "IP address or host name of the board; it listens on UDP port 2001.",
     ""},
    {configOption, "FILE", "Test configuration (XML) to load.", ""},
    {sequenceOption, "FILE", "State sequence (JSON).", ""},
    {watchOption, "", "Shows the state of the board until the sequence has ended.", ""},
    {localPortOption, "N", "Local UDP port, 1 to 65534; the next one is tried too.", "2002"},
    {whichOption, "N",
     "Number of the status to read, 0 to 255. Of the board made of software 0 is the state, 1 are "
     "the changes of steps, 2 to 9 the inputs of the sequence. The first two, if not given.",
     ""},
    {jsonOption, "",
     "Prints JSON instead of tables: one document; of a run that is watched, one in each line.",
     ""},
    {rawOption, "", "Shows the bytes of the status.", ""},
    {outputOption, "FILE",
     "File to write: plot makes a picture, FILE.svg or FILE.png, export FILE.cfg and FILE.dat.", "",
     "o"},
    {revisionOption, "YEAR", "Of COMTRADE: 2013 with samples of 32 bits, 1999 with 16 bits.",
     "2013"},
    {streamOption, "ID", "Sampled-value stream: svID, or APPID (decimal or 0x...).", ""},
    {runOption, "N", "Sequence of the capture, where it holds several.", "1"},
    {fromOption, "S", "Begins at this time, in seconds since the start of the sequence.", ""},
    {toOption, "S", "Ends at this time.", ""},
    {allOption, "",
     "Shows the whole sequence, not only what led to the first change by a binary input.", ""},
    {liveOption, "", "Plays in real time, on a live board of software of its own.", ""},
    {interfaceOption, "IF", "Network interface of the live board.", ""},
    {jobsOption, "N",
     "Shots that are played at once; as many as there are processors, if not given.", ""},
    {filterOption, "PATTERN",
     "Plays only the cases whose names have this in them, or fit it if it has wildcards (*, ?).",
     ""},
    {failFastOption, "", "Plays nothing behind the first shot that does not pass.", ""},
    {listOption, "", "Tells the cases and how many shots they have; plays nothing.", ""},
    {keepCapturesOption, "WHICH", "Keeps the captures of shots: never, failed or all.", "never"},
    {outputOption, "FOLDER", "Folder for the captures that are kept.", "", "o", "test"},
    {recordOption, "FILE", "Writes down what was seen, for lumtarctl report.", ""},
    {shotTimeoutOption, "S", "Gives up a shot that takes longer than so many seconds.", "60"},
    {shotsOption, "", "", ""},
};

/// Those of \a command, by the names in \a wanted.
QVector<const OptionText *> textsOf(const Command &command, const QStringList &wanted)
{
    QMap<QString, const OptionText *> texts;
    for (const OptionText &each : optionTexts) {
        const QLatin1String owner(each.command);
        if (owner.isEmpty() ? !texts.contains(each.name) : command.name == owner)
            texts[each.name] = &each;
    }
    QVector<const OptionText *> result;
    for (const OptionText &each : optionTexts) {
        if (wanted.contains(each.name) && texts.value(each.name) == &each)
            result.append(&each);
    }
    return result;
}

QStringList namesOf(const OptionText &option)
{
    const QString shortName = QLatin1String(option.shortName);
    return shortName.isEmpty() ? QStringList{option.name} : QStringList{shortName, option.name};
}

Expected<int> number(const QCommandLineParser &options, const QString &name, int least, int most)
{
    bool ok = false;
    const int value = options.value(name).toInt(&ok);
    if (!ok || value < least || value > most)
        return failure(Failure::Input,
                       QStringLiteral("--%1 \"%2\" is no whole number from %3 to %4")
                           .arg(name, options.value(name))
                           .arg(least)
                           .arg(most));
    return value;
}

/// The board's address: an IP address, with its scope where it needs one, or a host name.
Expected<QHostAddress> addressOf(const QString &text)
{
    const auto refusal = [&text](const QString &reason) {
        return failure(Failure::Input,
                       QStringLiteral("--board \"%1\" %2").arg(printable(text), reason));
    };
    const QHostAddress address(text);
    if (QVector<QHostAddress>{QHostAddress::AnyIPv4, QHostAddress::AnyIPv6}.contains(address))
        return refusal(QStringLiteral("stands for all addresses of this machine, not for a board"));
    if (address.isMulticast() || address == QHostAddress::Broadcast)
        return refusal(QStringLiteral("is no address of one board"));
    if (!address.isNull())
        return address;
    if (text.startsWith(QLatin1Char('[')))
        return refusal(QStringLiteral("is an address in brackets; write it without them"));
    static const QRegularExpression withPort(QStringLiteral("^([^:]+):\\d*$"));
    if (withPort.match(text).hasMatch())
        return refusal(QStringLiteral("has a port; the board's is always %1: write the address "
                                      "alone")
                           .arg(kBoardPort));
    static const QRegularExpression hostName(QStringLiteral("^(?=.*[A-Za-z])[A-Za-z0-9._-]+$"));
    if (!hostName.match(text).hasMatch())
        return refusal(QStringLiteral("is no IP address and no host name"));
    const QHostInfo host = QHostInfo::fromName(text);
    if (host.addresses().isEmpty())
        return refusal(QStringLiteral("cannot be found: ") + host.errorString());
    return host.addresses().constFirst();
}

/// Checked before anything is opened.
Expected<Endpoint> endpointOf(const QCommandLineParser &options)
{
    const Expected<int> localPort = number(options, localPortOption, 1, 65534);
    if (!localPort)
        return tl::unexpected<Failure>(localPort.error());
    return addressOf(options.value(boardOption)).map([&](const QHostAddress &board) {
        return Endpoint{board, *localPort};
    });
}

Expected<int> runSequence(const QCommandLineParser &options)
{
    Watching watching = options.isSet(watchOption) ? Watching::AsText : Watching::No;
    if (options.isSet(jsonOption)) {
        if (watching == Watching::No)
            return failure(Failure::Input, QStringLiteral("--json needs --watch"));
        watching = Watching::AsJson;
    }
    return endpointOf(options).and_then([&](const Endpoint &endpoint) {
        return run(endpoint, options.value(configOption), options.value(sequenceOption), watching);
    });
}

Expected<StatusOrder> statusOrderOf(const QCommandLineParser &options)
{
    StatusOrder order;
    order.isRaw = options.isSet(rawOption);
    order.isJson = options.isSet(jsonOption);
    if (options.isSet(whichOption)) {
        const Expected<int> which = number(options, whichOption, 0, 255);
        if (!which)
            return tl::unexpected<Failure>(which.error());
        order.which = *which;
    }
    if (!options.isSet(sequenceOption))
        return order;
    return readSequence(options.value(sequenceOption)).map([&order](const Sequence &sequence) {
        order.sequence = sequence;
        return order;
    });
}

Expected<int> readStatus(const QCommandLineParser &options)
{
    return endpointOf(options).and_then([&options](const Endpoint &endpoint) {
        return statusOrderOf(options).and_then(
            [&endpoint](const StatusOrder &order) { return showStatus(endpoint, order); });
    });
}

Expected<int> stopBoard(const QCommandLineParser &options)
{
    BoardSession session;
    return endpointOf(options)
        .and_then([&](const Endpoint &endpoint) {
            return session.open(endpoint.board, endpoint.localPort);
        })
        .and_then([&] { return session.stop(); })
        .map([] {
            say(QStringLiteral("stopped"));
            return 0;
        });
}

Expected<int> testPlan(const QCommandLineParser &options)
{
    if (!options.isSet(boardOption))
        return runTestPlan(options, std::nullopt);
    return endpointOf(options).and_then(
        [&options](const Endpoint &endpoint) { return runTestPlan(options, endpoint); });
}

} // namespace

const QList<Command> &commands()
{
    static const QList<Command> all{
        {QStringLiteral("run"),
         QStringLiteral(
             "Loads a test configuration and executes a state sequence. Ctrl-C stops the "
             "board, with exit status 130."),
         {},
         {boardOption, configOption, sequenceOption},
         {watchOption, jsonOption, localPortOption},
         runSequence},
        {QStringLiteral("status"),
         QStringLiteral(
             "Tells the state of the board and the changes of steps of the sequence that "
             "it has played last."),
         {},
         {boardOption},
         {sequenceOption, whichOption, rawOption, jsonOption, localPortOption},
         readStatus},
        {QStringLiteral("stop"),
         QStringLiteral("Stops the board."),
         {},
         {boardOption},
         {localPortOption},
         stopBoard},
        {QStringLiteral("check"),
         QStringLiteral("Tells what a test configuration publishes and subscribes to, the steps of "
                        "a state sequence, or the cases of a test plan, and what is wrong with it; "
                        "a plan is held against its sequences and its configuration. Needs no "
                        "board. Exit status 0, 1 for warnings, 2 for errors."),
         {QStringLiteral("FILE"),
          QStringLiteral("Test configuration (XML), state sequence or test plan (JSON).")},
         {},
         {sequenceOption, jsonOption},
         checkFile},
        {testCommand,
         QStringLiteral(
             "Plays the cases of a test plan and judges what was seen: on boards of "
             "software in virtual time, if no other board is named. Exit status 0 if all "
             "have passed, 3 if one has failed, 4 if something could not be judged."),
         {QStringLiteral("PLAN"), QStringLiteral("Test plan (JSON).")},
         {},
         {boardOption, localPortOption, liveOption, interfaceOption, jobsOption, filterOption,
          failFastOption, listOption, keepCapturesOption, outputOption, recordOption,
          shotTimeoutOption, shotsOption},
         testPlan,
         true,
         true},
        {QStringLiteral("plot"),
         QStringLiteral("Draws the sampled values, GOOSE states and steps of a capture; needs no "
                        "board."),
         {QStringLiteral("CAPTURE"), QStringLiteral("Capture file (pcap or pcapng).")},
         {outputOption},
         {sequenceOption, streamOption, runOption, fromOption, toOption, allOption},
         plotCapture,
         true},
        {QStringLiteral("export"),
         QStringLiteral("Writes the sampled values, GOOSE states and steps of a capture as a "
                        "COMTRADE record (.cfg and .dat); needs no board."),
         {QStringLiteral("CAPTURE"), QStringLiteral("Capture file (pcap or pcapng).")},
         {outputOption},
         {sequenceOption, streamOption, runOption, fromOption, toOption, revisionOption},
         exportCapture},
        {QStringLiteral("report"),
         QStringLiteral("Tells the result of a test that has been recorded, and writes it as a "
                        "report or for other programs; needs no board. Exit status 0 if all "
                        "cases have passed, 3 if one has failed, else 4."),
         {QStringLiteral("RECORD"),
          QStringLiteral("Record of a test. Several of one plan, as of runs of different cases, "
                         "become one result."),
          true},
         {},
         {},
         reportTest,
         true,
         true},
    };
    return all;
}

QStringList optionNames(const Command &command)
{
    return command.required + command.optional
        + (command.writesResults ? ResultFiles::optionNames() : QStringList());
}

void addOptions(QCommandLineParser &parser, const Command &command)
{
    if (!command.argument.name.isEmpty())
        parser.addPositionalArgument(command.argument.name, command.argument.description,
                                     command.argument.name
                                         + QLatin1String(command.argument.isList ? "..." : ""));
    if (command.writesResults)
        ResultFiles::addOptions(parser);
    for (const OptionText *each : textsOf(command, command.required + command.optional)) {
        const OptionText &text = *each;
        const bool isRequired = command.required.contains(text.name);
        const QLatin1String value(text.defaultValue);
        QString description = QLatin1String(text.description);
        if (isRequired)
            description += QLatin1String(" Required.");
        else if (!value.isEmpty())
            description += QStringLiteral(" Default: %1.").arg(value);
        QCommandLineOption option(namesOf(text), description, QLatin1String(text.valueName), value);
        if (description.isEmpty())
            option.setFlags(QCommandLineOption::HiddenFromHelp);
        parser.addOption(option);
    }
}

Expected<void> checkOptions(const QCommandLineParser &parser, const Command &command)
{
    const auto refusal = [](const QString &message) { return failure(Failure::Input, message); };
    const int expected = command.argument.name.isEmpty() ? 1 : 2; // the command itself comes first
    if (parser.positionalArguments().size() < expected)
        return refusal(QStringLiteral("%1 needs %2").arg(command.name, command.argument.name));
    const QStringList surplus = parser.positionalArguments().mid(expected);
    if (!surplus.isEmpty() && !command.argument.isList)
        return refusal(QStringLiteral("unexpected argument \"%1\"").arg(surplus.first()));
    for (const QString &name : optionNames(command)) {
        if (parser.isSet(name) && parser.values(name).size() > 1)
            return refusal(QStringLiteral("--%1 is given twice").arg(name));
    }
    for (const QString &name : command.required) {
        if (!parser.isSet(name))
            return refusal(QStringLiteral("%1 needs --%2").arg(command.name, name));
        if (parser.value(name).isEmpty())
            return refusal(QStringLiteral("--%1 is empty").arg(name));
    }
    return {};
}
