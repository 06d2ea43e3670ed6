/// \file
/// lumtarctl: drives the board from the command line.

#include "commands.h"
#include "failures.h"
#include "terminal.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <algorithm>

namespace {

constexpr int kBoardFailed = 1;
constexpr int kBadInput = 2;

const QString helpOption = QStringLiteral("help");
const QString versionOption = QStringLiteral("version");

/// Declares the command itself, or the choice of commands while it is not known.
void describe(QCommandLineParser &parser, const Command *command)
{
    parser.addOption({helpOption, QStringLiteral("Tells what can be given here.")});
    parser.addOption({versionOption, QStringLiteral("Tells the version.")});
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

int run(const QStringList &arguments)
{
    const QString name = arguments.value(1);
    const auto found = std::find_if(commands().begin(), commands().end(),
                                    [&name](const Command &each) { return each.name == name; });
    const Command *const command = found == commands().end() ? nullptr : &*found;

    QCommandLineParser parser;
    describe(parser, command);
    if (!command && !name.isEmpty() && !name.startsWith(QLatin1Char('-')))
        throw InputError{QStringLiteral("unknown command \"%1\"; see lumtarctl --help").arg(name)};
    if (!parser.parse(arguments))
        throw InputError{parser.errorText()};
    if (parser.isSet(versionOption)) {
        say(QStringLiteral("lumtarctl ") + QCoreApplication::applicationVersion());
    } else if (parser.isSet(helpOption)) {
        say(parser.helpText().trimmed());
    } else if (!command) {
        throw InputError{QStringLiteral("a command is missing; see lumtarctl --help")};
    } else {
        checkOptions(parser, *command);
        return command->run(parser);
    }
    return 0;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("lumtarctl"));
    QCoreApplication::setApplicationVersion(QStringLiteral(PROGRAM_VERSION));
    try {
        return run(QCoreApplication::arguments());
    } catch (const InputError &error) {
        complain(error.message);
        return kBadInput;
    } catch (const BoardError &error) {
        complain(error.message);
        return kBoardFailed;
    }
}
