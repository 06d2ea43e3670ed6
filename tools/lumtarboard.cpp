/// \file
/// lumtar-board: runs a board made of software and tells what it received.

#include <report.h>
#include <virtualboard.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QMap>

#include <algorithm>
#include <csignal>
#include <cstdio>

using namespace virtualboard;

namespace {

constexpr int kProblems = 1;
constexpr int kBadUsage = 2;

volatile std::sig_atomic_t interrupted = 0;

struct Options
{
    QHostAddress address;
    quint16 port = 2001;
    bool exitAfterStop = false;
    int timeout = 0; ///< seconds; 0: none
    QMap<QString, int> expected; ///< commands by kind
};

struct UsageError
{
    QString message;
};

int number(const QString &text, int least, int most)
{
    bool ok = false;
    const int value = text.toInt(&ok);
    if (!ok || value < least || value > most)
        throw UsageError{QStringLiteral("\"%1\" is no whole number from %2 to %3")
                             .arg(text)
                             .arg(least)
                             .arg(most)};
    return value;
}

void describe(QCommandLineParser &parser)
{
    parser.setApplicationDescription(
        QStringLiteral("Runs a board made of software. At the end it prints what it received; the "
                       "exit status is 0 only if nothing was wrong with it."));
    parser.addHelpOption();
    parser.addVersionOption();
    const auto text = [](const char *ascii) { return QString::fromLatin1(ascii); };
    parser.addOptions(
        {{text("address"), text("IP address to listen on."), text("ADDRESS"), text("127.0.0.1")},
         {text("port"), text("UDP port to listen on."), text("N"), text("2001")},
         {text("exit-after-stop"), text("End after a stop command, not only on a signal.")},
         {text("timeout"), text("End after so many seconds; 0: never."), text("S"), text("0")},
         {text("expect"),
          text("Take it as a problem when not exactly N commands of this kind, as the report names "
               "it, were acknowledged. Can be given for several kinds."),
          text("KIND=N")}});
}

Options readOptions(const QStringList &arguments)
{
    QCommandLineParser parser;
    describe(parser);
    parser.process(arguments);
    const auto value = [&parser](const char *name) { return parser.value(QLatin1String(name)); };

    if (!parser.positionalArguments().isEmpty())
        throw UsageError{
            QStringLiteral("unexpected argument \"%1\"").arg(parser.positionalArguments().first())};
    Options options;
    options.address = QHostAddress(value("address"));
    if (options.address.isNull())
        throw UsageError{QStringLiteral("\"%1\" is no IP address").arg(value("address"))};
    options.port = static_cast<quint16>(number(value("port"), 1, 65535));
    options.exitAfterStop = parser.isSet(QStringLiteral("exit-after-stop"));
    options.timeout = number(value("timeout"), 0, 1000000);
    for (const QString &each : parser.values(QStringLiteral("expect"))) {
        const int sign = static_cast<int>(each.lastIndexOf(QLatin1Char('=')));
        if (sign < 1)
            throw UsageError{QStringLiteral("--expect \"%1\" is not KIND=N").arg(each)};
        options.expected[each.left(sign)] = number(each.mid(sign + 1), 0, 1000000);
    }
    return options;
}

bool isStop(const Reception &reception)
{
    const Command &command = reception.decoded.command;
    const auto *const startStop = std::get_if<StartStop>(&command);
    return std::holds_alternative<Stop>(command) || (startStop && !startStop->start);
}

bool stopReceived(const VirtualBoard &board)
{
    const auto receptions = board.receptions();
    return std::any_of(receptions.begin(), receptions.end(), isStop);
}

/// Waits for the end. Returns whether it came in time.
bool waitForEnd(const VirtualBoard &board, const Options &options)
{
    constexpr int kPoll = 100; // milliseconds without a datagram, after which a stop is looked for
    QElapsedTimer clock;
    clock.start();
    int received = 0;
    int looked = 0;
    while (interrupted == 0
           && (options.timeout == 0 || clock.elapsed() < options.timeout * 1000LL)) {
        if (board.waitForReceptions(received + 1, kPoll)) {
            ++received;
            continue;
        }
        if (options.exitAfterStop && looked != received && stopReceived(board))
            return true;
        looked = received;
    }
    return interrupted != 0 || !options.exitAfterStop;
}

/// What the commands fall short of, or exceed.
QStringList unmetExpectations(const QVector<Reception> &receptions, QMap<QString, int> missing)
{
    const QMap<QString, int> expected = missing;
    for (const Reception &each : acknowledgedExchanges(receptions))
        --missing[commandName(each.decoded.command)];
    QStringList result;
    for (auto kind = expected.begin(); kind != expected.end(); ++kind) {
        if (missing[kind.key()] != 0)
            result.append(QStringLiteral("%1 \u00d7 %2 expected, %3 received")
                              .arg(kind.value())
                              .arg(kind.key())
                              .arg(kind.value() - missing[kind.key()]));
    }
    return result;
}

void print(const QString &text)
{
    std::fputs(text.toUtf8().constData(), stdout);
    std::fflush(stdout);
}

void complain(const QString &text)
{
    std::fprintf(stderr, "lumtar-board: %s\n", text.toLocal8Bit().constData());
}

int run(const Options &options)
{
    VirtualBoard board(options.address, options.port);
    if (!board.start()) {
        complain(board.errorString());
        return kProblems;
    }
    print(QStringLiteral("ready on %1, UDP port %2\n")
              .arg(options.address.toString())
              .arg(options.port));
    const bool inTime = waitForEnd(board, options);
    board.stop();

    const QVector<Reception> receptions = board.receptions();
    print(report(receptions));
    QStringList failures = unmetExpectations(receptions, options.expected);
    if (!inTime)
        failures.append(QStringLiteral("no stop command within %1 s").arg(options.timeout));
    if (board.dropped() > 0)
        failures.append(QStringLiteral("%1 datagrams were not recorded").arg(board.dropped()));
    for (const QString &failure : failures)
        complain(failure);
    return failures.isEmpty() && allProblems(receptions).isEmpty() ? 0 : kProblems;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("lumtar-board"));
    QCoreApplication::setApplicationVersion(QStringLiteral(PROGRAM_VERSION));
    std::signal(SIGINT, [](int) { interrupted = 1; });
    std::signal(SIGTERM, [](int) { interrupted = 1; });
    try {
        return run(readOptions(QCoreApplication::arguments()));
    } catch (const UsageError &error) {
        complain(error.message);
        return kBadUsage;
    }
}
