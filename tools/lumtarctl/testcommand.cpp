#include "tools/lumtarctl/testcommand.h"

#include "tools/lumtarctl/interruption.h"
#include "tools/lumtarctl/liveboard.h"
#include "tools/lumtarctl/plannedtest.h"
#include "tools/lumtarctl/resultfiles.h"
#include "tools/lumtarctl/shotprocesses.h"
#include "tools/lumtarctl/shotworker.h"
#include "tools/terminal/terminal.h"
#include "workbench/printabletext.h"
#include "workbench/resulttext.h"
#include "workbench/shotplayer.h"
#include "workbench/shotschedule.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QThread>

#include <algorithm>

using namespace workbench;

namespace {

enum class Keep { Never, Failed, All };
const QStringList keepNames{QStringLiteral("never"), QStringLiteral("failed"),
                            QStringLiteral("all")};

struct Settings
{
    QString planPath;
    QString filter;
    bool failFast = false;
    bool isList = false;
    Keep keep = Keep::Never;
    QString captures; ///< folder
    QString record; ///< path; empty: none
    QString interface; ///< of a live board; empty: none
    int jobs = 1;
    int shotTimeout = 60; ///< s
};

Expected<int> number(const QCommandLineParser &options, const QString &name, int fallback,
                     int least, int most)
{
    const QString text = options.value(name);
    bool ok = text.isEmpty();
    const int value = ok ? fallback : text.toInt(&ok);
    if (ok && value >= least && value <= most)
        return value;
    return failure(Failure::Input,
                   QStringLiteral("--%1 \"%2\" is no whole number from %3 to %4")
                       .arg(name, text)
                       .arg(least)
                       .arg(most));
}

/// What contradicts each other; empty if nothing does.
QString contradiction(const QCommandLineParser &options, const Settings &settings)
{
    const bool hasBoard = options.isSet(QStringLiteral("board"));
    const bool isLive = options.isSet(QStringLiteral("live"));
    if (hasBoard && isLive)
        return QStringLiteral("--board and --live are two boards; one is possible");
    if (isLive == settings.interface.isEmpty())
        return isLive ? QStringLiteral("--live needs --interface")
                      : QStringLiteral("--interface needs --live");
    if ((hasBoard || isLive) && settings.keep != Keep::Never)
        return QStringLiteral("--keep-captures is for virtual time only; a board keeps its own "
                              "capture");
    if ((hasBoard || isLive) && options.isSet(QStringLiteral("jobs")))
        return QStringLiteral("--jobs is for virtual time only; a board plays one shot at a time");
    return {};
}

Expected<Settings> settingsOf(const QCommandLineParser &options)
{
    Settings settings;
    settings.planPath = options.positionalArguments().value(1);
    settings.filter = options.value(QStringLiteral("filter"));
    settings.failFast = options.isSet(QStringLiteral("fail-fast"));
    settings.isList = options.isSet(QStringLiteral("list"));
    settings.captures = options.value(QStringLiteral("output"));
    settings.record = options.value(QStringLiteral("record"));
    settings.interface = options.value(QStringLiteral("interface"));
    const QString keep = options.value(QStringLiteral("keep-captures"));
    settings.keep = Keep(keepNames.indexOf(keep));
    if (!keepNames.contains(keep))
        return failure(Failure::Input,
                       QStringLiteral("--keep-captures \"%1\" is none of %2")
                           .arg(keep, keepNames.join(QStringLiteral(", "))));
    if (const QString wrong = contradiction(options, settings); !wrong.isEmpty())
        return failure(Failure::Input, wrong);
    return number(options, QStringLiteral("jobs"), std::max(1, QThread::idealThreadCount()), 1, 64)
        .and_then([&](int jobs) {
            settings.jobs = jobs;
            return number(options, QStringLiteral("shot-timeout"), 60, 1, 3600);
        })
        .map([&](int seconds) {
            settings.shotTimeout = seconds;
            return settings;
        });
}

/// The cases whose names hold the pattern, or match it if it has wildcards.
Expected<QVector<int>> casesOf(const TestPlan &plan, const QString &pattern)
{
    static const QRegularExpression wildcards(QStringLiteral("[*?\\[]"));
    const QRegularExpression expression(
        wildcards.match(pattern).hasMatch()
            ? QRegularExpression::wildcardToRegularExpression(pattern)
            : QRegularExpression::escape(pattern),
        QRegularExpression::CaseInsensitiveOption);
    QVector<int> cases;
    for (int number = 0; number < int(plan.cases.size()); ++number) {
        if (expression.match(plan.cases[number].name).hasMatch())
            cases.append(number);
    }
    if (cases.isEmpty())
        return failure(Failure::Input,
                       QStringLiteral("--filter \"%1\" fits none of the %2 cases of %3; --list "
                                      "shows them")
                           .arg(printable(pattern))
                           .arg(plan.cases.size())
                           .arg(plan.path));
    return cases;
}

void list(const TestPlan &plan, const QVector<int> &cases)
{
    qint64 total = 0;
    for (const int number : cases) {
        const TestCase &testCase = plan.cases[number];
        const qint64 shots = countPlainShots(testCase);
        total += shots;
        say(QStringLiteral("%1  %2")
                .arg(testCase.search() ? QStringLiteral("search") : QString::number(shots), 6)
                .arg(printable(testCase.name)));
    }
    const auto counted = [](qint64 count, const char *what) {
        return QStringLiteral("%1 %2%3").arg(count).arg(QLatin1String(what),
                                                        QLatin1String(count == 1 ? "" : "s"));
    };
    say(QStringLiteral("%1, %2, and those of searches")
            .arg(counted(cases.size(), "case"), counted(total, "shot")));
}

/// "03-inverse-time_overcurrent-2-1.pcap"
QString captureName(const TestPlan &plan, const Shot &shot)
{
    const TestCase &testCase = plan.cases[shot.caseNumber];
    QString name = testCase.name;
    static const QRegularExpression unsafe(QStringLiteral("[^A-Za-z0-9.-]+"));
    name = QStringLiteral("%1-%2")
               .arg(shot.caseNumber + 1, 2, 10, QLatin1Char('0'))
               .arg(name.replace(unsafe, QStringLiteral("_")));
    if (testCase.sweep() || testCase.search())
        name += QStringLiteral("-%1").arg(shot.point + 1);
    if (testCase.repetitions > 1)
        name += QStringLiteral("-%1").arg(shot.repetition + 1);
    return name + QStringLiteral(".pcap");
}

/// The bar, or nothing where nobody would see it move.
class ProgressLine
{
public:
    ProgressLine() { m_clock.start(); }

    void show(const ShotSchedule::Progress &progress)
    {
        constexpr int kBarWidth = 24; // characters
        if (!m_line.isOnTerminal() || progress.expected == 0)
            return;
        const int bars = kBarWidth * progress.played / progress.expected;
        const qint64 left = progress.played == 0
            ? 0
            : m_clock.elapsed() * (progress.expected - progress.played) / progress.played / 1000;
        m_line.show(
            QStringLiteral("[%1%2] %3/%4 shots, %5 not passed, about %6 s left")
                .arg(QString(bars, QLatin1Char('#')), QString(kBarWidth - bars, QLatin1Char('-')))
                .arg(progress.played)
                .arg(progress.expected)
                .arg(progress.failed)
                .arg(left + 1),
            false);
    }
    void clear() { m_line.clear(); }

private:
    LiveLine m_line;
    QElapsedTimer m_clock;
};

/// One run of a plan.
class TestPlanRun
{
public:
    TestPlanRun(const PlannedTest &test, const Settings &settings, const QVector<int> &cases)
        : m_test(test)
        , m_settings(settings)
        , m_schedule(*test.plan, cases, settings.failFast)
    { }

    [[nodiscard]] Expected<void> prepareFolder() const;
    void playInProcesses();
    [[nodiscard]] Expected<void> playOn(const Endpoint &endpoint);
    [[nodiscard]] TestRecord record(const QString &board) const;

private:
    [[nodiscard]] QString capturePath(const Shot &shot) const
    {
        return QDir(m_settings.captures).filePath(captureName(*m_test.plan, shot));
    }
    void keepCapture(ShotRecord &record) const;
    void removeSkipped(const QVector<ShotRecord> &shots) const;

    const PlannedTest &m_test;
    const Settings &m_settings;
    ShotSchedule m_schedule;
    ProgressLine m_line;
};

Expected<void> TestPlanRun::prepareFolder() const
{
    if (m_settings.keep == Keep::Never)
        return {};
    if (m_settings.captures.isEmpty())
        return failure(Failure::Input,
                       QStringLiteral("--keep-captures needs --output, the folder for them"));
    if (QDir().mkpath(m_settings.captures))
        return {};
    return failure(Failure::Input,
                   QStringLiteral("%1: the folder cannot be made").arg(m_settings.captures));
}

/// Where the record says that the capture is; a capture that is not wanted goes.
void TestPlanRun::keepCapture(ShotRecord &record) const
{
    if (m_settings.keep == Keep::Never)
        return;
    const QString path = capturePath(record.shot);
    if (m_settings.keep == Keep::Failed && m_schedule.hasPassed(record)) {
        QFile::remove(path);
    } else if (QFileInfo::exists(path)) {
        const QDir folder = m_settings.record.isEmpty() ? QDir(m_settings.captures)
                                                        : QFileInfo(m_settings.record).dir();
        record.capture = folder.relativeFilePath(QFileInfo(path).absoluteFilePath());
    }
}

void TestPlanRun::playInProcesses()
{
    ShotProcesses::Options options;
    options.program = QCoreApplication::applicationFilePath();
    options.arguments =
        QStringList{QStringLiteral("test"), m_settings.planPath, QStringLiteral("--shots")};
    options.jobs = m_settings.jobs;
    options.longestShot = std::chrono::seconds(m_settings.shotTimeout);
    options.digest = m_test.digest();
    if (m_settings.keep != Keep::Never)
        options.captureOf = [this](const Shot &shot) { return capturePath(shot); };
    ShotProcesses processes(*m_test.plan, options);
    const auto tick = [this] {
        m_line.show(m_schedule.progress());
        return !interruption::hasCome();
    };
    processes.run(m_schedule, tick, [this](ShotRecord &record) { keepCapture(record); });
    m_line.clear();
}

/// Fails when the board does not answer before the first shot, and upon an interruption that the
/// board has not heard of.
Expected<void> TestPlanRun::playOn(const Endpoint &endpoint)
{
    constexpr int kMostErrors = 3; // one after the other; then nobody is there any more
    ShotPlayer::Options options;
    options.board = endpoint.board;
    options.localPort = endpoint.localPort;
    options.isInterrupted = interruption::hasCome;
    ShotPlayer player(*m_test.plan, m_test.configuration, options);
    if (const Expected<void> loaded = player.load(); !loaded)
        return loaded;
    int errors = 0;
    while (!interruption::hasCome() && errors < kMostErrors) {
        m_line.show(m_schedule.progress());
        const std::optional<Shot> shot = m_schedule.next();
        if (!shot)
            break;
        const ShotRecord record = player.play(*shot);
        if (interruption::hasCome())
            break;
        errors = record.error.isEmpty() ? 0 : errors + 1;
        m_schedule.take(record);
    }
    m_line.clear();
    return interruption::hasCome() ? player.stopInterrupted() : Expected<void>();
}

TestRecord TestPlanRun::record(const QString &board) const
{
    TestRecord record;
    record.program = QStringLiteral("lumtarctl ") + QCoreApplication::applicationVersion();
    record.board = board.isEmpty() ? QStringLiteral("software board in virtual time") : board;
    if (!board.isEmpty())
        record.played = QDateTime::currentDateTimeUtc().toString(Qt::ISODate);
    record.interrupted = interruption::hasCome();
    record.sources = m_test.plan->sources;
    record.configuration = {m_test.plan->configuration, m_test.configurationDigest};
    record.shots = m_schedule.records(
        record.interrupted ? QStringLiteral("the test was interrupted")
                           : QStringLiteral("the board had not answered for three shots"));
    removeSkipped(record.shots);
    return record;
}

/// What was being played when the test ended, and what was played behind the first failure.
void TestPlanRun::removeSkipped(const QVector<ShotRecord> &shots) const
{
    if (m_settings.keep == Keep::Never)
        return;
    for (const ShotRecord &each : shots) {
        if (!each.skipped.isEmpty())
            QFile::remove(capturePath(each.shot));
    }
}

Expected<std::unique_ptr<QSaveFile>> openRecord(const QString &path)
{
    auto file = path.isEmpty() ? nullptr : std::make_unique<QSaveFile>(path);
    if (file && !file->open(QIODevice::WriteOnly))
        return failure(Failure::Input, path + QStringLiteral(": ") + file->errorString());
    return file;
}

Expected<void> writeRecord(QSaveFile &file, const TestRecord &record)
{
    const QByteArray content = toJson(record);
    if (file.write(content) == content.size() && file.commit())
        return {};
    return failure(Failure::Helper, file.fileName() + QStringLiteral(": ") + file.errorString());
}

Expected<int> play(const PlannedTest &test, const Settings &settings, const QVector<int> &cases,
                   std::optional<Endpoint> endpoint, ResultFiles &files)
{
    Expected<std::unique_ptr<QSaveFile>> recordFile = openRecord(settings.record);
    if (!recordFile)
        return tl::unexpected<Failure>(recordFile.error());
    TestPlanRun run(test, settings, cases);
    if (const Expected<void> prepared = run.prepareFolder(); !prepared)
        return tl::unexpected<Failure>(prepared.error());
    interruption::expect();
    LiveBoard live;
    if (!settings.interface.isEmpty()) {
        const Expected<QHostAddress> address = live.start(settings.interface);
        if (!address)
            return tl::unexpected<Failure>(address.error());
        endpoint = Endpoint{*address, endpoint ? endpoint->localPort : 2002};
    }
    Expected<void> outcome;
    if (endpoint)
        outcome = run.playOn(*endpoint);
    else
        run.playInProcesses();
    if (!outcome && !interruption::hasCome())
        return tl::unexpected<Failure>(outcome.error());
    if (!outcome)
        complain(outcome.error().message);

    const QString board = !settings.interface.isEmpty()
        ? QStringLiteral("live board on ") + settings.interface
        : endpoint ? endpoint->board.toString()
                   : QString();
    const TestRecord record = run.record(board);
    const TestResult result = evaluate(*test.plan, record);
    sayLines(resultText(*test.plan, record, result, outputWidth()));
    for (const QString &each : test.changedFiles())
        warn(QStringLiteral("%1 has changed during the test; the result is of what it was before")
                 .arg(each));
    if (*recordFile) {
        if (const Expected<void> written = writeRecord(**recordFile, record); !written)
            return tl::unexpected<Failure>(written.error());
    }
    if (const Expected<void> written = files.write({record, test.plan}, result); !written)
        return tl::unexpected<Failure>(written.error());
    if (record.interrupted)
        return failure(Failure::Interrupted,
                       QStringLiteral("interrupted; the result is of what was played until then"));
    return exitStatus(result);
}

} // namespace

Expected<int> runTestPlan(const QCommandLineParser &options,
                          const std::optional<Endpoint> &endpoint)
{
    const Expected<Settings> settings = settingsOf(options);
    if (!settings)
        return tl::unexpected<Failure>(settings.error());
    if (options.isSet(QStringLiteral("shots")))
        return playShots(settings->planPath);
    const Expected<PlannedTest> test = readPlannedTest(settings->planPath);
    if (!test)
        return tl::unexpected<Failure>(test.error());
    const Expected<QStringList> warnings = expectPlayable(*test);
    if (!warnings)
        return tl::unexpected<Failure>(warnings.error());
    for (const QString &each : *warnings)
        complain(each);
    const Expected<QVector<int>> cases = casesOf(*test->plan, settings->filter);
    if (!cases)
        return tl::unexpected<Failure>(cases.error());
    if (settings->isList) {
        list(*test->plan, *cases);
        return 0;
    }
    Expected<ResultFiles> files = ResultFiles::open(options);
    if (!files)
        return tl::unexpected<Failure>(files.error());
    return play(*test, *settings, *cases, endpoint, *files);
}
