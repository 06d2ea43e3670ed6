#include "tools/lumtarctl/runcommand.h"

#include "tools/lumtarctl/interruption.h"
#include "tools/lumtarctl/runview.h"
#include "tools/terminal/terminal.h"
#include "workbench/sequencetext.h"
#include "workbench/statustext.h"
#include "workbench/testrun.h"

using namespace workbench;
using statusreply::Changes;
using statusreply::State;

namespace {

Expected<void> loadAndStart(TestRun &run, const LumtarEngine &engine, RunView &view)
{
    return run.load()
        .and_then([&] {
            view.loaded(engine);
            return run.execute();
        })
        .map([&] { view.started(); });
}

/// Whether the sequence has come to its own end, undisturbed.
Expected<void> verdict(const State &last, const Changes &changes)
{
    if (last.playing == State::Stopped)
        return failure(Failure::Board, QStringLiteral("the sequence was stopped before its end"));
    if (hasDoubtfulTimes(changes))
        return failure(Failure::Board,
                       QStringLiteral("a time is doubtful, as the table says: what the board sent "
                                      "or took in was disturbed"));
    return {};
}

Expected<void> watch(TestRun &run, RunView &view)
{
    const Expected<State> last =
        run.follow([&view](const State &state, bool isNews) { view.playing(state, isNews); });
    const Expected<void> result =
        last.and_then([&run](const State &) { return run.readChanges(); })
            .and_then([&last](const Changes &changes) { return verdict(*last, changes); });
    view.ended(last ? &*last : nullptr, run.changes(), result);
    return result;
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
                   Watching watching)
{
    const std::unique_ptr<RunView> view =
        watching == Watching::AsJson ? jsonView(test) : textView(test);
    TestRun run(session, test, [&view](const TransferProgress &progress, bool isNews) {
        view->sending(progress, isNews);
    });
    Expected<void> result = loadAndStart(run, session.engine, *view);
    if (!result && watching != Watching::No)
        view->ended(nullptr, {}, result);
    else if (result && watching != Watching::No)
        result = watch(run, *view);
    if (!result && session.isLost() && run.mayHaveStarted())
        return withWayToStop(result.error(), endpoint);
    return result;
}

} // namespace

Expected<int> run(const Endpoint &endpoint, const QString &configPath, const QString &sequencePath,
                  Watching watching)
{
    const Expected<PreparedTest> test = prepareTest(configPath, sequencePath);
    if (!test)
        return tl::unexpected<Failure>(test.error());
    for (const QString &each : test->warnings)
        warn(each);
    if (const QString warning = rateWarning(test->sequence); !warning.isEmpty())
        warn(warning);

    BoardSession session;
    session.isInterrupted = interruption::hasCome;
    Expected<void> result = session.open(endpoint.board, endpoint.localPort);
    if (result) {
        interruption::expect();
        result = run(session, *test, endpoint, watching);
    }
    if (!result && result.error().kind == Failure::Interrupted) {
        result = session.stopInterrupted();
        result = result ? failure(Failure::Interrupted,
                                  QStringLiteral("interrupted; the board has been stopped"))
                        : withWayToStop(result.error(), endpoint);
    }
    return result.map([] { return 0; });
}
