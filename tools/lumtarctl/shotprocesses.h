/// \file
/// Programs that play the shots of a plan, each on a board of software of its own.
#pragma once

#include "workbench/shotschedule.h"

#include <QByteArray>
#include <QSet>
#include <QStringList>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

class QProcess;

/// Runs some of them at once. One that dies, or does not answer, makes its shot an error; another
/// one takes its place.
///
/// A line on the standard input of a program is a JSON object: that of a shot, with "capture" (a
/// file for its frames, may be missing) and "digest" (what the program must have read). It answers
/// with a line that is the shot's record. It ends when its input does.
class ShotProcesses
{
    Q_DISABLE_COPY(ShotProcesses)

public:
    struct Options
    {
        QString program;
        QStringList arguments;
        int jobs = 1;
        std::chrono::seconds longestShot{60}; ///< until the answer
        QByteArray digest;
        std::function<QString(const workbench::Shot &)> captureOf; ///< empty path: none
    };

    ShotProcesses(const workbench::TestPlan &plan, Options options);
    ~ShotProcesses(); ///< kills those that run

    /// Plays all shots of \a schedule. \a tick is called often; when it returns false, the test
    /// ends at once.
    /// \param taken what to do with each record before the schedule has it
    void run(workbench::ShotSchedule &schedule, const std::function<bool()> &tick,
             const std::function<void(workbench::ShotRecord &)> &taken);

private:
    struct Process;
    void start(Process &process);
    void give(Process &process, const workbench::Shot &shot);
    void takeLine(Process &process);
    void fail(Process &process, const QString &error);
    void tellNotices(Process &process);
    void look();

    const workbench::TestPlan &m_plan;
    const Options m_options;
    std::vector<std::unique_ptr<Process>> m_processes;
    std::vector<std::unique_ptr<QProcess>> m_gone; ///< killed, or dead
    std::function<void(workbench::ShotRecord)> m_take;
    QSet<QString> m_told; ///< notices
};
