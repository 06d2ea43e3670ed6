#include "tools/lumtarctl/shotprocesses.h"

#include "tools/terminal/terminal.h"
#include "workbench/jsonreader.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonDocument>
#include <QProcess>
#include <QTimer>

#include <algorithm>
#include <utility>

using namespace workbench;

namespace {

constexpr int kTick = 100; // ms
constexpr int kMostTold = 20; // notices

/// A record that is told by a program; fails if it is none of \a plan.
Expected<ShotRecord> recordOf(const QByteArray &line, const TestPlan &plan)
{
    JsonFile file(QStringLiteral("the answer of the program that played it"), line);
    const ShotRecord record = readShotRecord(file.root(), plan);
    return file.remarks().expectNoErrors().map([&record] { return record; });
}

QString howItEnded(const QProcess &process)
{
    return process.exitStatus() == QProcess::CrashExit
        ? QStringLiteral("died (signal %1)").arg(process.exitCode())
        : QStringLiteral("ended with exit status %1").arg(process.exitCode());
}

} // namespace

struct ShotProcesses::Process
{
    std::unique_ptr<QProcess> process;
    std::optional<Shot> shot; ///< that it plays
    QElapsedTimer since; ///< it has had that shot
};

ShotProcesses::ShotProcesses(const TestPlan &plan, Options options)
    : m_plan(plan)
    , m_options(std::move(options))
{
    for (int i = 0; i < m_options.jobs; ++i)
        m_processes.push_back(std::make_unique<Process>());
}

ShotProcesses::~ShotProcesses()
{
    for (const auto &each : m_processes) {
        if (!each->process)
            continue;
        each->process->disconnect();
        each->process->closeWriteChannel();
        if (each->shot)
            each->process->kill();
        if (!each->process->waitForFinished(1000)) {
            each->process->kill();
            each->process->waitForFinished();
        }
    }
}

void ShotProcesses::start(Process &process)
{
    process.process = std::make_unique<QProcess>();
    QProcess *const started = process.process.get();
    QObject::connect(started, &QProcess::readyReadStandardOutput, started,
                     [this, &process] { takeLine(process); });
    QObject::connect(started, &QProcess::readyReadStandardError, started,
                     [this, &process] { tellNotices(process); });
    QObject::connect(started, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished),
                     started, [this, &process, started] {
                         takeLine(process);
                         tellNotices(process);
                         fail(process,
                              QStringLiteral("the program that played it ") + howItEnded(*started));
                     });
    QObject::connect(started, &QProcess::errorOccurred, started,
                     [this, &process, started](QProcess::ProcessError error) {
                         if (error == QProcess::FailedToStart)
                             fail(process,
                                  QStringLiteral("the program that plays it does not "
                                                 "start: ")
                                      + started->errorString());
                     });
    started->start(m_options.program, m_options.arguments);
}

void ShotProcesses::give(Process &process, const Shot &shot)
{
    process.shot = shot;
    process.since.start();
    if (!process.process)
        start(process);
    QJsonObject object = toJson(shot);
    const QString capture = m_options.captureOf ? m_options.captureOf(shot) : QString();
    if (!capture.isEmpty())
        object[QStringLiteral("capture")] = capture;
    object[QStringLiteral("digest")] = QString::fromLatin1(m_options.digest);
    if (process.process)
        process.process->write(QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n');
}

void ShotProcesses::takeLine(Process &process)
{
    if (!process.shot || !process.process->canReadLine())
        return;
    const QByteArray line = process.process->readLine();
    const Expected<ShotRecord> record = recordOf(line, m_plan);
    if (!record) {
        fail(process, record.error().message);
    } else if (!record->shot.isSameAs(*process.shot)) {
        fail(process, QStringLiteral("the program that played it answered for another shot"));
    } else {
        process.shot.reset();
        m_take(*record);
    }
}

/// The program has gone, or is not to be trusted any more.
void ShotProcesses::fail(Process &process, const QString &error)
{
    if (process.process) {
        process.process->disconnect();
        process.process->kill();
        m_gone.push_back(std::move(process.process)); // later: this may be one of its signals
    }
    if (!process.shot)
        return;
    ShotRecord record;
    record.shot = *process.shot;
    record.error = error;
    record.observation.complete = false;
    record.observation.stepNames = m_plan.cases[record.shot.caseNumber].stepNames;
    process.shot.reset();
    m_take(record);
}

void ShotProcesses::tellNotices(Process &process)
{
    QProcess *const from = process.process.get();
    from->setReadChannel(QProcess::StandardError);
    while (from->canReadLine()) {
        QString line = QString::fromUtf8(from->readLine()).trimmed();
        const QString prefix = QStringLiteral("lumtarctl: ");
        if (line.startsWith(prefix))
            line = line.mid(int(prefix.size()));
        if (m_told.contains(line) || m_told.size() == kMostTold)
            continue;
        m_told.insert(line);
        complain(m_told.size() < kMostTold
                     ? line
                     : QStringLiteral("what else the programs have to tell is left out"));
    }
    from->setReadChannel(QProcess::StandardOutput);
}

void ShotProcesses::look()
{
    const auto hasEnded = [](const std::unique_ptr<QProcess> &each) {
        return each->state() == QProcess::NotRunning;
    };
    m_gone.erase(std::remove_if(m_gone.begin(), m_gone.end(), hasEnded), m_gone.end());
    for (const auto &each : m_processes) {
        if (each->shot && std::chrono::milliseconds(each->since.elapsed()) > m_options.longestShot)
            fail(*each,
                 QStringLiteral("the program that played it did not answer within %1 s")
                     .arg(m_options.longestShot.count()));
    }
}

void ShotProcesses::run(ShotSchedule &schedule, const std::function<bool()> &tick,
                        const std::function<void(ShotRecord &)> &taken)
{
    QEventLoop loop;
    bool goesOn = true;
    const auto handOut = [&] {
        for (const auto &each : m_processes) {
            const std::optional<Shot> shot = goesOn && !each->shot ? schedule.next() : std::nullopt;
            if (shot)
                give(*each, *shot);
        }
        if (!goesOn || schedule.isDone())
            loop.quit();
    };
    QTimer soon; // when whoever calls has ended
    soon.setSingleShot(true);
    QObject::connect(&soon, &QTimer::timeout, &loop, handOut);
    m_take = [&](ShotRecord record) {
        goesOn = goesOn && tick();
        if (!goesOn) { // what it had to do with the end is not known
            loop.quit();
            return;
        }
        taken(record);
        schedule.take(record);
        soon.start(0);
    };
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &loop, [&] {
        look();
        goesOn = goesOn && tick();
        handOut();
    });
    timer.start(kTick);
    soon.start(0);
    if (!schedule.isDone())
        loop.exec();
    m_take = [](const ShotRecord &) {};
}
