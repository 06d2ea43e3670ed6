#include "commands.h"

#include "boardsession.h"
#include "configurationcheck.h"
#include "configurationreport.h"
#include "failures.h"
#include "sequencefile.h"
#include "terminal.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QJsonDocument>

namespace {

const QString boardOption = QStringLiteral("board");
const QString configOption = QStringLiteral("config");
const QString sequenceOption = QStringLiteral("sequence");
const QString localPortOption = QStringLiteral("local-port");
const QString whichOption = QStringLiteral("which");
const QString jsonOption = QStringLiteral("json");

struct OptionText
{
    const QString &name;
    const char *valueName; ///< empty for an option without a value
    const char *description;
    const char *defaultValue;
};

const OptionText optionTexts[] = {
    {boardOption, "ADDRESS", "IP address of the board; it listens on UDP port 2001.", ""},
    {configOption, "FILE", "Test configuration (XML) to load.", ""},
    {sequenceOption, "FILE", "State sequence (JSON) to execute.", ""},
    {localPortOption, "N", "Local UDP port, 1 to 65534; the next one is tried too.", "2002"},
    {whichOption, "N", "Number of the status to read, 0 to 255.", "0"},
    {jsonOption, "", "Prints one JSON document instead of tables.", ""},
};

int number(const QCommandLineParser &options, const QString &name, int least, int most)
{
    bool ok = false;
    const int value = options.value(name).toInt(&ok);
    if (!ok || value < least || value > most)
        throw InputError{QStringLiteral("--%1 \"%2\" is no whole number from %3 to %4")
                             .arg(name, options.value(name))
                             .arg(least)
                             .arg(most)};
    return value;
}

/// Where the board is and how to reach it; everything is checked before anything is opened.
struct Endpoint
{
    explicit Endpoint(const QCommandLineParser &options)
        : board(options.value(boardOption))
        , localPort(number(options, localPortOption, 1, 65534))
    {
        if (board.isNull())
            throw InputError{
                QStringLiteral("--board \"%1\" is no IP address").arg(options.value(boardOption))};
    }

    QHostAddress board;
    int localPort = 0;
};

/// Throws the first error; else tells the first warnings.
void expectNoErrors(const ConfigurationProblems &problems)
{
    constexpr int kTold = 5;
    const QString all = QStringLiteral("lumtarctl check %1 shows all").arg(problems.file());
    const testconfiguration::Remarks sorted = problems.sorted();
    for (const testconfiguration::Remark &each : sorted) {
        if (each.severity == testconfiguration::Remark::Error)
            throw InputError{problems.toString(each)
                             + (sorted.size() > 1 ? QStringLiteral(" (%1)").arg(all) : QString())};
    }
    for (const testconfiguration::Remark &each : sorted.mid(0, kTold))
        complain(problems.toString(each));
    if (problems.warnings() > kTold)
        complain(QStringLiteral("%1 more warnings; %2").arg(problems.warnings() - kTold).arg(all));
}

void describe(const Sequence &sequence)
{
    for (int i = 0; i < sequence.steps.size(); ++i) {
        const CStep &step = sequence.steps[i];
        QString line = QStringLiteral("  step %1  %2 %3 s, then %4")
                           .arg(i)
                           .arg(sequence.names[i], -12)
                           .arg(step.stateTime, 3)
                           .arg(sequence.names[step.stateTimeJump]);
        if (step.stateTrige != 0)
            line += QStringLiteral("; on the trigger %1").arg(sequence.names[step.stateTrigeJump]);
        if ((step.ctlCondition & 0x08) != 0)
            line += QStringLiteral("; on the binary input %1").arg(sequence.names[step.binInpJump]);
        say(line);
    }
}

int runSequence(const QCommandLineParser &options)
{
    const Endpoint endpoint(options);
    const QString configPath = options.value(configOption);
    const QString configName = QFileInfo(configPath).fileName();
    const QString sequenceName = QFileInfo(options.value(sequenceOption)).fileName();
    const Sequence sequence = readSequence(options.value(sequenceOption));

    const int samplesPerSecond = sequence.samplesPerCycle * sequence.nominalFrequency;
    expectNoErrors(checkConfiguration(configPath, samplesPerSecond).problems);

    BoardSession session;
    apply(sequence, session.engine);
    session.open(endpoint.board, endpoint.localPort);
    session.expectSuccess(session.load(configPath), QStringLiteral("loading ") + configName);
    LumtarEngine &engine = session.engine;
    say(QStringLiteral("loaded %1: %2 SV and %3 GOOSE streams to publish, %4 GOOSE subscriptions")
            .arg(configName)
            .arg(engine.smvCount)
            .arg(engine.gooseCount)
            .arg(engine.groupNum - 1));
    session.expectSuccess(engine.ExecSeq() != 0 && engine.lastResult != 0,
                          QStringLiteral("executing ") + sequenceName);
    say(QStringLiteral("started %1: %2 steps").arg(sequenceName).arg(engine.stepCount));
    describe(sequence);
    return 0;
}

int readStatus(const QCommandLineParser &options)
{
    const Endpoint endpoint(options);
    const int which = number(options, whichOption, 0, 255);
    BoardSession session;
    session.open(endpoint.board, endpoint.localPort);
    unsigned char status[sizeof session.engine.rxBuffer] = {};
    session.expectSuccess(session.engine.CheckSeqExec(which, status),
                          QStringLiteral("reading status %1").arg(which));
    const int size = session.engine.replyLength;
    const QByteArray bytes(reinterpret_cast<const char *>(status), size);
    say(QStringLiteral("status %1, %2 bytes: %3")
            .arg(which)
            .arg(size)
            .arg(QString::fromLatin1(bytes.toHex(' '))));
    return 0;
}

int stopBoard(const QCommandLineParser &options)
{
    const Endpoint endpoint(options);
    BoardSession session;
    session.open(endpoint.board, endpoint.localPort);
    session.expectSuccess(session.engine.StopExec(), QStringLiteral("stopping"));
    say(QStringLiteral("stopped"));
    return 0;
}

int checkFile(const QCommandLineParser &options)
{
    constexpr int kHasWarnings = 1;
    constexpr int kHasErrors = 2;
    const LumtarEngine defaults;
    const CheckedConfiguration configuration =
        checkConfiguration(options.positionalArguments().value(1),
                           defaults.samplesPerCycle * defaults.nominalFrequency);
    const QString report = options.isSet(jsonOption)
        ? QString::fromUtf8(QJsonDocument(toJson(configuration)).toJson())
        : toText(configuration);
    say(report.trimmed());
    if (configuration.problems.errors() > 0)
        return kHasErrors;
    return configuration.problems.warnings() > 0 ? kHasWarnings : 0;
}

} // namespace

const QList<Command> &commands()
{
    static const QList<Command> all{
        {QStringLiteral("run"),
         QStringLiteral("Loads a test configuration and executes a state sequence."),
         {},
         {boardOption, configOption, sequenceOption},
         {localPortOption},
         runSequence},
        {QStringLiteral("status"),
         QStringLiteral("Reads a status of the board."),
         {},
         {boardOption},
         {whichOption, localPortOption},
         readStatus},
        {QStringLiteral("stop"),
         QStringLiteral("Stops the board."),
         {},
         {boardOption},
         {localPortOption},
         stopBoard},
        {QStringLiteral("check"),
         QStringLiteral("Tells what a test configuration publishes and subscribes to, and what is "
                        "wrong with it; needs no board. Exit status 0, 1 for warnings, 2 for "
                        "errors."),
         QStringLiteral("FILE"),
         {},
         {jsonOption},
         checkFile},
    };
    return all;
}

void addOptions(QCommandLineParser &parser, const Command &command)
{
    if (!command.argument.isEmpty())
        parser.addPositionalArgument(command.argument, QStringLiteral("Test configuration (XML)."));
    for (const OptionText &text : optionTexts) {
        if (command.required.contains(text.name) || command.optional.contains(text.name))
            parser.addOption({text.name, QLatin1String(text.description),
                              QLatin1String(text.valueName), QLatin1String(text.defaultValue)});
    }
}

void checkOptions(const QCommandLineParser &parser, const Command &command)
{
    const int expected = command.argument.isEmpty() ? 1 : 2; // the command itself comes first
    if (parser.positionalArguments().size() < expected)
        throw InputError{QStringLiteral("%1 needs %2").arg(command.name, command.argument)};
    const QStringList surplus = parser.positionalArguments().mid(expected);
    if (!surplus.isEmpty())
        throw InputError{QStringLiteral("unexpected argument \"%1\"").arg(surplus.first())};
    for (const QString &name : command.required + command.optional) {
        if (parser.isSet(name) && parser.values(name).size() > 1)
            throw InputError{QStringLiteral("--%1 is given twice").arg(name)};
    }
    for (const QString &name : command.required) {
        if (parser.value(name).isEmpty())
            throw InputError{QStringLiteral("%1 needs --%2").arg(command.name, name)};
    }
}
