#include "workbench/testrun.h"

#include "workbench/contradictions.h"
#include "workbench/sequencefile.h"
#include "workbench/statustext.h"

#include <QFileInfo>

#include <chrono>
#include <thread>
#include <utility>

using statusreply::Changes;
using statusreply::State;

namespace workbench {

namespace {

constexpr std::chrono::milliseconds kPause{150}; // between two readings

/// Payload of \a which, as \a decode understands it.
template <typename Decoded>
Expected<Decoded> readPayload(BoardSession &session, int which,
                              std::optional<Decoded> (*decode)(const QByteArray &))
{
    const Expected<QByteArray> payload = session.readStatus(which);
    if (!payload)
        return tl::unexpected<Failure>(payload.error());
    if (const std::optional<Decoded> decoded = decode(*payload))
        return *decoded;
    return failure(Failure::Board,
                   QStringLiteral("cannot read this board's status: status %1 has %2 bytes "
                                  "of another layout%3")
                       .arg(which)
                       .arg(payload->size())
                       .arg(which == statusreply::kState ? QLatin1String("; the sequence goes on")
                                                         : QLatin1String()));
}

} // namespace

Expected<PreparedTest> prepareTest(const QString &configPath, const QString &sequencePath,
                                   const Parameters &values)
{
    JsonFile file(sequencePath);
    const Sequence sequence = readSequence(file.root(), values);
    PreparedTest test{sequencePath,
                      sequence,
                      testconfiguration::check(testconfiguration::Document::read(configPath),
                                               sequence.samplesPerSecond()),
                      {}};
    tellContradictions(file.root(), sequence, test.configuration);
    const QVector<Remarks> remarks = {file.remarks(), remarksOf(test.configuration)};
    for (const Remarks &each : remarks)
        test.warnings += each.lines();
    return expectNoErrors(remarks).map([&test] { return test; });
}

TestRun::TestRun(BoardSession &session, const PreparedTest &test, ShowTransfer showTransfer)
    : m_session(session)
    , m_test(test)
    , m_progress(test.configuration, test.sequence)
    , m_showTransfer(std::move(showTransfer))
{
    apply(test.sequence, session.engine);
    session.onSending = [this](bool again) {
        const bool isNews = m_progress.advance(again);
        m_showTransfer(m_progress, isNews);
    };
}

Expected<void> TestRun::load()
{
    return m_session.load(m_test.configuration.document);
}

Expected<void> TestRun::execute()
{
    return m_session.execute(timesOf(m_test.sequence), QFileInfo(m_test.sequencePath).fileName())
        .map([this] {
            m_progress.finish();
            m_showTransfer(m_progress, true);
            m_session.onSending = nullptr;
        });
}

Expected<State> TestRun::follow(const ShowState &showState)
{
    State before;
    while (true) {
        const Expected<State> read =
            readPayload(m_session, statusreply::kState, statusreply::decodeState);
        if (!read)
            return read;
        if (const Expected<void> ours = expectOurs(read->start); !ours)
            return tl::unexpected<Failure>(ours.error());
        const State &now = *read;
        if (now.playing == State::Idle || now.playing == State::Armed)
            return failure(Failure::Board,
                           QStringLiteral("the board does not play the sequence: it is %1")
                               .arg(stateName(now.playing)));
        if (before.step != statusreply::kNoStep && now.step != before.step) {
            if (const auto changes = readChanges(); !changes)
                return tl::unexpected<Failure>(changes.error());
        }
        showState(now, now.playing != before.playing || now.step != before.step);
        if (now.playing != State::Running)
            return read;
        before = now;
        std::this_thread::sleep_for(kPause);
    }
}

Expected<Changes> TestRun::readChanges()
{
    return readPayload(m_session, statusreply::kChanges, statusreply::decodeChanges)
        .and_then([this](const Changes &changes) {
            return expectOurs(changes.start).map([&] { return m_changes = changes; });
        });
}

Expected<void> TestRun::expectOurs(quint32 start)
{
    if (!m_start)
        m_start = start;
    if (start == *m_start)
        return {};
    return failure(Failure::Board,
                   QStringLiteral("the board has been started again by somebody else (start %1, "
                                  "this test was %2); what it plays is not this test any more")
                       .arg(start)
                       .arg(*m_start));
}

} // namespace workbench
