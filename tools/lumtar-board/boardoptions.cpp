#include "boardoptions.h"

#include <QCommandLineParser>
#include <QDateTime>
#include <QFileInfo>
#include <QRegularExpression>

#include <utility>

namespace {

constexpr qint64 kNanosecondsPerMillisecond = 1'000'000;
constexpr int kVirtualLimit = 600; // s

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
     ""},
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

/// @param name  of the option
int number(const char *name, const QString &text, int least, int most)
{
    bool ok = false;
    const int value = text.toInt(&ok);
    if (!ok || value < least || value > most)
        throw UsageError{QStringLiteral("--%1 \"%2\" is no whole number from %3 to %4")
                             .arg(QLatin1String(name), text)
                             .arg(least)
                             .arg(most)};
    return value;
}

qint64 readTime(const QString &text)
{
    QDateTime time = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (time.timeSpec() == Qt::LocalTime)
        time.setTimeSpec(Qt::UTC);
    const qint64 milliseconds = time.isValid() ? time.toMSecsSinceEpoch() : -1;
    if (milliseconds < 0 || milliseconds > kLatestStart / kNanosecondsPerMillisecond)
        throw UsageError{
            QStringLiteral("--start-time \"%1\" is no ISO 8601 time from 1970 to 2102").arg(text)};
    return milliseconds * kNanosecondsPerMillisecond;
}

QMap<QString, int> readExpectations(const QStringList &texts)
{
    QMap<QString, int> result;
    for (const QString &each : texts) {
        const int sign = static_cast<int>(each.lastIndexOf(QLatin1Char('=')));
        if (sign < 1)
            throw UsageError{QStringLiteral("--expect \"%1\" is not KIND=N").arg(each)};
        result[each.left(sign)] = number("expect", each.mid(sign + 1), 0, 1000000);
    }
    return result;
}

void readLiveOptions(const QCommandLineParser &parser, BoardOptions &options)
{
    const auto isSet = [&parser](const char *name) { return parser.isSet(QLatin1String(name)); };
    if (isSet("interface"))
        options.interfaces.fill(parser.value(QStringLiteral("interface")));
    QStringList ports = parser.values(QStringLiteral("port"));
    for (const QString &each : std::as_const(ports)) {
        QString error;
        if (!virtualboard::setPort(options.interfaces, each, &error))
            throw UsageError{QStringLiteral("--port: ") + error};
    }
    ports.replaceInStrings(QRegularExpression(QStringLiteral("=.*")), QString());
    if (ports.removeDuplicates() > 0)
        throw UsageError{QStringLiteral("--port: a port has one interface, not two")};
    options.live = isSet("interface") || isSet("port");
    options.iKnow = isSet("i-know");
    options.realtime = isSet("realtime");
    if (isSet("cpu"))
        options.cpu = number("cpu", parser.value(QStringLiteral("cpu")), 0, 1023);
    for (const char *name : {"inputs", "start-time"}) {
        if (options.live && isSet(name))
            throw UsageError{QStringLiteral("--%1 is for virtual time; a live board takes time and "
                                            "inputs as they come")
                                 .arg(QLatin1String(name))};
    }
    for (const char *name : {"realtime", "cpu", "i-know"}) {
        if (!options.live && isSet(name))
            throw UsageError{
                QStringLiteral("--%1 needs --interface or --port").arg(QLatin1String(name))};
    }
}

} // namespace

BoardOptions readBoardOptions(const QStringList &arguments)
{
    QCommandLineParser parser;
    describe(parser);
    if (!parser.parse(arguments))
        throw UsageError{parser.errorText()};
    parser.process(arguments); // for --help and --version
    const auto value = [&parser](const char *name) { return parser.value(QLatin1String(name)); };

    if (!parser.positionalArguments().isEmpty())
        throw UsageError{
            QStringLiteral("unexpected argument \"%1\"").arg(parser.positionalArguments().first())};
    BoardOptions options;
    options.address = QHostAddress(value("listen"));
    if (options.address.isNull())
        throw UsageError{QStringLiteral("--listen \"%1\" is no IP address").arg(value("listen"))};
    options.udpPort = static_cast<quint16>(number("udp-port", value("udp-port"), 1, 65535));
    options.capture = value("capture");
    options.inputs = value("inputs");
    const QString capture = QFileInfo(options.capture).canonicalFilePath();
    if (!capture.isEmpty() && capture == QFileInfo(options.inputs).canonicalFilePath())
        throw UsageError{QStringLiteral("--capture would overwrite the file of --inputs")};
    if (parser.isSet(QStringLiteral("start-time")))
        options.startTime = readTime(value("start-time"));
    readLiveOptions(parser, options);
    if (parser.isSet(QStringLiteral("limit")))
        options.limit = number("limit", value("limit"), 1, 100'000);
    else
        options.limit = options.live ? 0 : kVirtualLimit;
    options.once = parser.isSet(QStringLiteral("once"));
    options.timeout = number("timeout", value("timeout"), 0, 1000000);
    options.expected = readExpectations(parser.values(QStringLiteral("expect")));
    return options;
}
