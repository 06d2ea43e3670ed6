#include "tools/lumtar-board/boardoptions.h"

#include "configuration/suggestion.h"
#include "tools/terminal/terminal.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>
#include <QRegularExpression>

#include <cstdlib>
#include <utility>

using namespace virtualboard;

namespace {

constexpr int kForEver = 0; // s

struct OptionText
{
    const char *name;
    const char *valueName; ///< empty for an option without a value
    const char *description;
    const char *defaultValue;
};

const OptionText optionTexts[] = {
    {"listen", "ADDRESS", "IP address to listen on; 127.0.0.1 if not given.", "127.0.0.1"},
    {"udp-port", "N", "UDP port to listen on; 2001 if not given.", "2001"},
    {"capture", "FILE.pcap", "Writes the frames of the process bus into this file.", ""},
    {"inputs", "FILE",
     "What the device under test does: a text file with lines such as \"1.030 channel 0 on\", "
     "seconds since the start of the sequence, or a capture of its GOOSE messages.",
     ""},
    {"start-time", "ISO",
     "When the first sequence begins, such as 2026-01-31T12:00:00Z (UTC if no zone is given). "
     "Now, or the first packet of the inputs, if not given.",
     ""},
    {"limit", "S",
     "Ends a sequence that has been played for so many seconds. 600 if not given; live, without "
     "limit.",
     "600"},
    {"capture-limit", "MIB",
     "In virtual time: ends a sequence once the capture has so many MiB; 0: never. 4096 if not "
     "given.",
     "4096"},
    {"phases", "HOW",
     "continuous: at a change of steps, an angle goes on from where it is, and changes by what the "
     "angles of the two steps differ by. jump: it goes on, and changes by the phase jump that the "
     "step was sent with. restart: every step begins at its own angles.",
     "continuous"},
    {"interface", "IF",
     "Plays live: in real time, on this network interface, from which the inputs come, too.", ""},
    {"port", "N=IF", "The same, but only with output and light port N, 1 to 8. Can be repeated.",
     ""},
    {"realtime", "", "Live: asks for a real-time priority, and keeps all memory resident.", ""},
    {"cpu", "N", "Live: plays on this processor, counted from 0.", ""},
    {"i-know", "", "Live: also on an interface that carries this machine's default route.", ""},
    {"once", "",
     "End after a stop command, or two seconds after a sequence has ended and the link has become "
     "quiet; not only on a signal.",
     ""},
    {"timeout", "S", "End after so many seconds; 0: never.", "0"},
    {"expect", "KIND=N",
     "Take it as a problem when not exactly N commands of this kind, as the report names it, were "
     "acknowledged. Can be given for several kinds.",
     ""},
};

/// Prints the text; the status says whether somebody got it.
[[noreturn]] void endAfter(const QString &text)
{
    sayLines(text);
    if (outputError() != 0)
        complain(QStringLiteral("cannot print: ") + outputFailure());
    std::exit(outputError() == 0 ? 0 : 1);
}

void describe(QCommandLineParser &parser)
{
    parser.setApplicationDescription(QStringLiteral(
        "A signal-generation board made of software. Plays the tests that come over the device "
        "link: as fast as it can, into a capture, or live on network interfaces. Ctrl-C ends it. "
        "At the end it prints what it received and played; the exit status is 0 only if nothing "
        "was wrong with it."));
    parser.addHelpOption();
    parser.addVersionOption();
    for (const OptionText &text : optionTexts)
        parser.addOption({QLatin1String(text.name), QLatin1String(text.description),
                          QLatin1String(text.valueName), QLatin1String(text.defaultValue)});
}

/// Of options that the parser has refused.
QString whatIsWrong(const QCommandLineParser &parser)
{
    if (parser.unknownOptionNames().isEmpty())
        return parser.errorText();
    QStringList known = {QStringLiteral("help"), QStringLiteral("version")};
    for (const OptionText &text : optionTexts)
        known << QLatin1String(text.name);
    return suggestion::unknownOption(parser.unknownOptionNames().first(), known);
}

/// \param name of the option
Expected<int> number(const char *name, const QString &text, int least, int most)
{
    bool ok = false;
    const int value = text.toInt(&ok);
    if (!ok || value < least || value > most)
        return Refusal(QStringLiteral("--%1 \"%2\" is no whole number from %3 to %4")
                           .arg(QLatin1String(name), text)
                           .arg(least)
                           .arg(most));
    return value;
}

Expected<WallTime> readTime(const QString &text)
{
    QDateTime time = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (time.timeSpec() == Qt::LocalTime)
        time.setTimeSpec(Qt::UTC);
    const std::chrono::milliseconds sinceEpoch(time.isValid() ? time.toMSecsSinceEpoch() : -1);
    if (sinceEpoch.count() < 0 || sinceEpoch > kLatestStart.time_since_epoch())
        return Refusal(
            QStringLiteral("--start-time \"%1\" is no ISO 8601 time from 1970 to 2102").arg(text));
    return WallTime(sinceEpoch);
}

Expected<Phases> readPhases(const QString &text)
{
    if (text == QLatin1String("continuous"))
        return Phases::Continuous;
    if (text == QLatin1String("restart"))
        return Phases::Restart;
    if (text == QLatin1String("jump"))
        return Phases::Jump;
    return Refusal(
        QStringLiteral("--phases \"%1\" is none of \"continuous\", \"jump\" and \"restart\"")
            .arg(text));
}

Expected<QMap<QString, int>> readExpectations(const QStringList &texts)
{
    QMap<QString, int> result;
    for (const QString &each : texts) {
        const int sign = int(each.lastIndexOf(QLatin1Char('=')));
        if (sign < 1)
            return Refusal(QStringLiteral("--expect \"%1\" is not KIND=N").arg(each));
        if (!commandNames().contains(each.left(sign)))
            return Refusal(
                QStringLiteral("--expect \"%1\": there is no such kind; the kinds are: %2")
                    .arg(each, commandNames().join(QLatin1String(", "))));
        const Expected<int> count = number("expect", each.mid(sign + 1), 0, 1000000);
        if (!count)
            return Refusal(count.error());
        result[each.left(sign)] = *count;
    }
    return result;
}

/// Reads the options one after the other; the first that is wrong is the failure.
class Reader
{
public:
    explicit Reader(const QCommandLineParser &parser)
        : m_parser(parser)
    { }

    Expected<BoardOptions> read()
    {
        if (!m_parser.positionalArguments().isEmpty())
            fail(QStringLiteral("unexpected argument \"%1\"")
                     .arg(m_parser.positionalArguments().first()));
        readLink();
        readFiles();
        readLive();
        const auto limit = take(number("limit", value("limit"), 1, 100'000));
        m_options.board.limit =
            std::chrono::seconds(isSet("limit") || !m_options.board.live ? limit : kForEver);
        m_options.board.phases = take(readPhases(value("phases")));
        m_options.once = isSet("once");
        m_options.timeout = take(number("timeout", value("timeout"), 0, 1000000));
        m_options.expected = take(readExpectations(m_parser.values(QStringLiteral("expect"))));
        if (!m_failure.isEmpty())
            return Refusal(m_failure);
        return m_options;
    }

private:
    bool isSet(const char *name) const { return m_parser.isSet(QLatin1String(name)); }
    QString value(const char *name) const { return m_parser.value(QLatin1String(name)); }
    void fail(const QString &text)
    {
        if (m_failure.isEmpty())
            m_failure = text;
    }
    template <typename T>
    T take(const Expected<T> &result)
    {
        if (!result)
            fail(result.error());
        return result.value_or(T());
    }

    void readLink();
    void readFiles();
    void readLive();
    PortInterfaces readInterfaces();

    const QCommandLineParser &m_parser;
    BoardOptions m_options;
    QString m_failure;
};

void Reader::readLink()
{
    m_options.board.address = QHostAddress(value("listen"));
    if (m_options.board.address.isNull())
        fail(QStringLiteral("--listen \"%1\" is no IP address").arg(value("listen")));
    m_options.board.udpPort = quint16(take(number("udp-port", value("udp-port"), 1, 65535)));
}

void Reader::readFiles()
{
    m_options.board.capture = value("capture");
    m_options.board.captureLimit =
        qint64(take(number("capture-limit", value("capture-limit"), 0, 1 << 30))) << 20;
    m_options.board.inputs = value("inputs");
    const QString capture = QFileInfo(m_options.board.capture).canonicalFilePath();
    if (!capture.isEmpty() && capture == QFileInfo(m_options.board.inputs).canonicalFilePath())
        fail(QStringLiteral("--capture would overwrite the file of --inputs"));
    if (isSet("start-time"))
        m_options.board.startTime = take(readTime(value("start-time")));
}

void Reader::readLive()
{
    // Of 1 to 99: above everything that does not ask, below the kernel's own.
    constexpr int kPriority = 50;
    const bool isLive = isSet("interface") || isSet("port");
    for (const char *name : {"inputs", "start-time"}) {
        if (isLive && isSet(name))
            fail(QStringLiteral("--%1 is for virtual time; a live board takes time and inputs as "
                                "they come")
                     .arg(QLatin1String(name)));
    }
    if (isLive && isSet("capture-limit"))
        fail(QStringLiteral("--capture-limit is for virtual time; a live test goes on"));
    for (const char *name : {"realtime", "cpu", "i-know"}) {
        if (!isLive && isSet(name))
            fail(QStringLiteral("--%1 needs --interface or --port").arg(QLatin1String(name)));
    }
    if (!isLive)
        return;
    LiveOptions live;
    live.interfaces = readInterfaces();
    live.iKnow = isSet("i-know");
    if (isSet("realtime"))
        live.realtime = kPriority;
    if (isSet("cpu"))
        live.cpu = take(number("cpu", value("cpu"), 0, 1023));
    m_options.board.live = live;
}

PortInterfaces Reader::readInterfaces()
{
    PortInterfaces result;
    if (isSet("interface"))
        result.fill(value("interface"));
    QStringList ports = m_parser.values(QStringLiteral("port"));
    for (const QString &each : std::as_const(ports)) {
        if (const auto set = setPort(result, each); !set)
            fail(QStringLiteral("--port: ") + set.error());
    }
    ports.replaceInStrings(QRegularExpression(QStringLiteral("=.*")), QString());
    if (ports.removeDuplicates() > 0)
        fail(QStringLiteral("--port: a port has one interface, not two"));
    return result;
}

} // namespace

Expected<BoardOptions> readBoardOptions(const QStringList &arguments)
{
    QCommandLineParser parser;
    describe(parser);
    if (!parser.parse(arguments))
        return Refusal(whatIsWrong(parser));
    if (parser.isSet(QStringLiteral("help")))
        endAfter(parser.helpText());
    if (parser.isSet(QStringLiteral("version")))
        endAfter(QCoreApplication::applicationName() + QLatin1Char(' ')
                 + QCoreApplication::applicationVersion() + QLatin1Char('\n'));
    return Reader(parser).read();
}
