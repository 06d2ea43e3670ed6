/// \file
/// lumtarctl: drives the board from the command line.

#include "configuration/suggestion.h"
#include "tools/lumtarctl/commands.h"
#include "tools/terminal/terminal.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QLoggingCategory>

#include <algorithm>

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
        known << command->required << command->optional;
    return suggestion::unknownOption(parser.unknownOptionNames().first(), known);
}

Expected<int> run(const QStringList &arguments)
{
    const auto refusal = [](const QString &message) { return failure(Failure::Input, message); };
    const QString name = arguments.value(1);
    const auto found = std::find_if(commands().begin(), commands().end(),
                                    [&name](const Command &each) { return each.name == name; });
    const Command *const command = found == commands().end() ? nullptr : &*found;

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
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("lumtarctl"));
    QCoreApplication::setApplicationVersion(QStringLiteral(PROGRAM_VERSION));
    // What the engine writes there is told in messages of our own.
    QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, false);
    const Expected<int> status = run(QCoreApplication::arguments());
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
