/// \file
/// lumtarctl: drives the board from the command line.

#include "configuration/suggestion.h"
#include "tools/lumtarctl/commands.h"
#include "tools/terminal/terminal.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QLoggingCategory>

#include <algorithm>
#include <memory>

using namespace workbench;

namespace {

const QString helpOption = QStringLiteral("help");
const QString versionOption = QStringLiteral("version");

/// Declares the command itself, or the choice of commands while it is not known.
void describe(QCommandLineParser &parser, const Command *command)
{
    parser.addOption(
        {{QStringLiteral("h"), helpOption}, QStringLiteral("Tells what can be given here.")});
    parser.addOption({{QStringLiteral("v"), versionOption}, QStringLiteral("Tells the version.")});
    if (command) {
        parser.addPositionalArgument(command->name, command->summary, command->name);
        addOptions(parser, *command);
        return;
    }
    parser.setApplicationDescription(
        QStringLiteral("Drives the signal-generation board of the test set.\n"
                       "lumtarctl COMMAND --help tells the options of a command."));
    parser.addPositionalArgument(QStringLiteral("COMMAND"), QStringLiteral("One of these:"));
    for (const Command &each : commands())
        parser.addPositionalArgument(each.name, each.summary, QStringLiteral(" "));
}

/// Of options that the parser has refused.
QString whatIsWrong(const QCommandLineParser &parser, const Command *command)
{
    if (parser.unknownOptionNames().isEmpty())
        return parser.errorText();
    QStringList known = {helpOption, versionOption};
    if (command)
        known << optionNames(*command);
    return suggestion::unknownOption(parser.unknownOptionNames().first(), known);
}

/// Null if there is none of this name.
const Command *commandNamed(const QString &name)
{
    const auto found = std::find_if(commands().begin(), commands().end(),
                                    [&name](const Command &each) { return each.name == name; });
    return found == commands().end() ? nullptr : &*found;
}

/// Commands that draw need fonts, but no display; the others need neither.
std::unique_ptr<QCoreApplication> makeApplication(const Command *command, int &argc, char *argv[])
{
    // Nor do the programs that only play shots for another one.
    const bool onlyPlays = std::find(argv, argv + argc, QByteArray("--shots")) != argv + argc;
    if (!command || !command->draws || onlyPlays)
        return std::make_unique<QCoreApplication>(argc, argv);
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // It takes options of its own out of the arguments, and misses the session of a desktop.
    static int programAlone = 1;
    QLoggingCategory::defaultCategory()->setEnabled(QtWarningMsg, false);
    auto application = std::make_unique<QGuiApplication>(programAlone, argv);
    QLoggingCategory::defaultCategory()->setEnabled(QtWarningMsg, true);
    return application;
}

Expected<int> run(const QStringList &arguments)
{
    const auto refusal = [](const QString &message) { return failure(Failure::Input, message); };
    const QString name = arguments.value(1);
    const Command *const command = commandNamed(name);

    QCommandLineParser parser;
    describe(parser, command);
    if (!command && !name.isEmpty() && !name.startsWith(QLatin1Char('-'))) {
        QStringList known;
        for (const Command &each : commands())
            known << each.name;
        return refusal(QStringLiteral("unknown command \"%1\"%2; see lumtarctl --help")
                           .arg(name, suggestion::didYouMean(name, known)));
    }
    if (!parser.parse(arguments))
        return refusal(whatIsWrong(parser, command));
    if (parser.isSet(versionOption)) {
        say(QStringLiteral("lumtarctl ") + QCoreApplication::applicationVersion());
        return 0;
    }
    if (parser.isSet(helpOption)) {
        say(parser.helpText().trimmed());
        return 0;
    }
    if (!command)
        return refusal(QStringLiteral("a command is missing; see lumtarctl --help"));
    return checkOptions(parser, *command).and_then([&] { return command->run(parser); });
}

int exitStatus(Failure::Kind kind)
{
    switch (kind) {
    case Failure::Input:
        return 2;
    case Failure::Interrupted:
        return 130; // as a shell tells of SIGINT
    case Failure::Board:
    case Failure::Helper:
        break;
    }
    return 1;
}

} // namespace

int main(int argc, char *argv[])
{
    prepareTerminal();
    const Command *const command = argc > 1 ? commandNamed(QString::fromLatin1(argv[1])) : nullptr;
    const auto application = makeApplication(command, argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("lumtarctl"));
    QCoreApplication::setApplicationVersion(QStringLiteral(PROGRAM_VERSION));
    // What the engine writes there is told in messages of our own.
    QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, false);
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments += QString::fromLocal8Bit(argv[i]);
    const Expected<int> status = run(arguments);
    if (!status) {
        complain(status.error().message);
        for (const QString &each : status.error().others)
            complain(each);
    }
    if (!outputFailure().isEmpty())
        complain(QStringLiteral("cannot write the output: ") + outputFailure());
    if (!status)
        return exitStatus(status.error().kind);
    return *status == 0 && !outputFailure().isEmpty() ? 1 : *status;
}
