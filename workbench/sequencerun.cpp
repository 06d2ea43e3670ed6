#include "sequencerun.h"

#include "boardsession.h"
#include "configurationcheck.h"
#include "failures.h"
#include "interruption.h"
#include "progress.h"
#include "sequencefile.h"
#include "terminal.h"
#include "watch.h"

#include <QFileInfo>

namespace {

constexpr int kInterrupted = 130; // as a shell tells of SIGINT

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
                           .arg(sequence.nameOf(step.stateTimeJump));
        if (step.stateTrige != 0)
            line += QStringLiteral("; on the trigger %1").arg(sequence.nameOf(step.stateTrigeJump));
        if ((step.ctlCondition & 0x08) != 0)
            line +=
                QStringLiteral("; on the binary input %1").arg(sequence.nameOf(step.binInpJump));
        say(line);
    }
}

/// The start command gives the sample interval in whole microseconds of a 50 Hz cycle; the
/// configuration's streams count as many samples a second as the sequence asks for.
void tellWrongRate(const Sequence &sequence)
{
    constexpr int kMicrosecondsPerCycle = 20000;
    constexpr int kMicroseconds = 1'000'000;
    const int interval = kMicrosecondsPerCycle / sequence.samplesPerCycle & 0xff;
    const int samples = sequence.samplesPerCycle * sequence.nominalFrequency;
    if (interval * samples != kMicroseconds)
        complain(QStringLiteral("the link can only ask for a sample every %1 us: smpCnt goes to 0 "
                                "after %2 samples, which take %3 s instead of 1 s")
                     .arg(interval)
                     .arg(samples)
                     .arg(double(interval) * samples / kMicroseconds));
}

void loadAndStart(BoardSession &session, const SequenceRun &run,
                  const CheckedConfiguration &configuration, const Sequence &sequence)
{
    const QString configName = QFileInfo(run.configPath).fileName();
    const QString sequenceName = QFileInfo(run.sequencePath).fileName();
    LumtarEngine &engine = session.engine;
    Progress progress(session, configuration, sequence);
    session.expectSuccess(session.load(run.configPath), QStringLiteral("loading ") + configName);
    progress.pause();
    say(QStringLiteral("loaded %1: %2 SV and %3 GOOSE streams to publish, %4 GOOSE subscriptions")
            .arg(configName)
            .arg(engine.smvCount)
            .arg(engine.gooseCount)
            .arg(engine.groupNum - 1));
    session.expectSuccess(engine.ExecSeq() != 0 && engine.lastResult != 0,
                          QStringLiteral("executing ") + sequenceName);
    progress.finish();
    say(QStringLiteral("started %1: %2 steps").arg(sequenceName).arg(engine.stepCount));
    describe(sequence);
}

} // namespace

int execute(const SequenceRun &run)
{
    const Sequence sequence = readSequence(run.sequencePath);
    const CheckedConfiguration configuration =
        checkConfiguration(run.configPath, sequence.samplesPerCycle * sequence.nominalFrequency);
    expectNoErrors(configuration.problems);
    tellWrongRate(sequence);

    BoardSession session;
    apply(sequence, session.engine);
    session.open(run.board, run.localPort);
    interruption::expect();
    try {
        loadAndStart(session, run, configuration, sequence);
        if (run.isWatched)
            watch(session, sequence);
        return 0;
    } catch (const Interrupted &) {
        session.stopInterrupted();
        complain(QStringLiteral("interrupted; the board has been stopped"));
        return kInterrupted;
    }
}
