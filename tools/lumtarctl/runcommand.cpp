#include "tools/lumtarctl/runcommand.h"

#include "tools/lumtarctl/interruption.h"
#include "tools/terminal/terminal.h"
#include "workbench/contradictions.h"
#include "workbench/sequencetext.h"
#include "workbench/statustext.h"
#include "workbench/testrun.h"

#include <QFileInfo>

using namespace workbench;

namespace {

/// Fails upon the first error; else tells the first warnings.
Expected<void> expectNoErrors(const testconfiguration::CheckedConfiguration &configuration)
{
    constexpr int kTold = 5;
    const QString all =
        QStringLiteral("lumtarctl check %1 shows all").arg(configuration.document.path());
    const auto &sorted = configuration.remarks;
    const auto line = [&configuration](const testconfiguration::Remark &remark) {
        return toString(remark, configuration.document.path());
    };
    for (const testconfiguration::Remark &each : sorted) {
        if (each.severity == testconfiguration::Remark::Error)
            return failure(
                Failure::Input,
                line(each) + (sorted.size() > 1 ? QStringLiteral(" (%1)").arg(all) : QString()));
    }
    for (const testconfiguration::Remark &each : sorted.mid(0, kTold))
        warn(line(each));
    if (configuration.warnings > kTold)
        warn(QStringLiteral("%1 more warnings; %2").arg(configuration.warnings - kTold).arg(all));
    return {};
}

void show(LiveLine &line, const TransferProgress &progress, bool isNews)
{
    constexpr int kBarWidth = 24; // characters
    QString text = QStringLiteral("%1/%2  %3")
                       .arg(progress.done(), 4)
                       .arg(progress.total())
                       .arg(progress.element());
    if (line.isOnTerminal()) {
        const int bars = kBarWidth * progress.done() / progress.total();
        text = QStringLiteral("[%1%2]").arg(QString(bars, QLatin1Char('#')),
                                            QString(kBarWidth - bars, QLatin1Char('-')))
            + text;
    }
    line.show(text, isNews);
}

Expected<void> loadAndStart(TestRun &run, const PreparedTest &test, const LumtarEngine &engine,
                            LiveLine &line)
{
    return run.load()
        .and_then([&] {
            line.clear();
            sayWrapped(
                QStringLiteral("loaded %1: %2 SV and %3 GOOSE streams, %4 GOOSE subscriptions")
                    .arg(QFileInfo(test.configuration.document.path()).fileName())
                    .arg(engine.smvCount)
                    .arg(engine.gooseCount)
                    .arg(engine.groupNum - 1));
            return run.execute();
        })
        .map([&] {
            line.clear();
            say(QStringLiteral("started %1: %2 steps")
                    .arg(QFileInfo(test.sequencePath).fileName())
                    .arg(engine.stepCount));
            sayWrapped(stepTexts(test.sequence));
        });
}

Expected<void> watch(TestRun &run, const Sequence &sequence)
{
    LiveLine line;
    const auto last = run.follow([&](const statusreply::State &state, bool isNews) {
        line.show(stateText(state, sequence), isNews, activeText(state, sequence));
    });
    line.keep();
    if (!last) {
        sayWrapped(changeTexts(run.changes(), sequence, outputWidth()));
        return tl::unexpected<Failure>(last.error());
    }
    return run.readChanges().and_then([&](const statusreply::Changes &changes) -> Expected<void> {
        sayWrapped(changeTexts(changes, sequence, outputWidth()));
        sayWrapped(concerns(*last), Tone::Doubtful);
        if (last->playing == statusreply::State::Stopped)
            return failure(Failure::Board,
                           QStringLiteral("the sequence was stopped before its end"));
        if (hasDoubtfulTimes(changes))
            return failure(Failure::Board,
                           QStringLiteral("a time is doubtful, as the table says: what the "
                                          "board sent or took in was disturbed"));
        return {};
    });
}

/// \a failure of a link behind which a sequence may be running.
tl::unexpected<Failure> withWayToStop(Failure failure, const Endpoint &endpoint)
{
    failure.message += QStringLiteral("; the sequence may still be running; to stop it: lumtarctl "
                                      "stop --board %1")
                           .arg(endpoint.board.toString());
    return tl::unexpected<Failure>(failure);
}

Expected<void> run(BoardSession &session, const PreparedTest &test, const Endpoint &endpoint,
                   bool isWatched)
{
    LiveLine line;
    TestRun run(session, test, [&line](const TransferProgress &progress, bool isNews) {
        show(line, progress, isNews);
    });
    const Expected<void> started = loadAndStart(run, test, session.engine, line);
    line.keep();
    const Expected<void> result = started && isWatched ? watch(run, test.sequence) : started;
    if (!result && session.isLost() && run.mayHaveStarted())
        return withWayToStop(result.error(), endpoint);
    return result;
}

} // namespace

Expected<int> run(const Endpoint &endpoint, const QString &configPath, const QString &sequencePath,
                  bool isWatched)
{
    const Expected<PreparedTest> test = prepareTest(configPath, sequencePath);
    if (!test)
        return tl::unexpected<Failure>(test.error());
    if (const Expected<void> sound = expectNoErrors(test->configuration); !sound)
        return tl::unexpected<Failure>(sound.error());
    const QStringList wrong = contradictions(test->sequence, test->configuration);
    if (!wrong.isEmpty()) {
        for (const QString &each : wrong.mid(1))
            complain(QStringLiteral("%1: error: %2").arg(sequencePath, each));
        return failure(Failure::Input,
                       QStringLiteral("%1: error: %2").arg(sequencePath, wrong.first()));
    }
    if (const QString warning = rateWarning(test->sequence); !warning.isEmpty())
        warn(warning);

    BoardSession session;
    session.isInterrupted = interruption::hasCome;
    Expected<void> result = session.open(endpoint.board, endpoint.localPort);
    if (result) {
        interruption::expect();
        result = run(session, *test, endpoint, isWatched);
    }
    if (!result && result.error().kind == Failure::Interrupted) {
        result = session.stopInterrupted();
        result = result ? failure(Failure::Interrupted,
                                  QStringLiteral("interrupted; the board has been stopped"))
                        : withWayToStop(result.error(), endpoint);
    }
    return result.map([] { return 0; });
}
