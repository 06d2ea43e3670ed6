#include "workbench/testrun.h"

#include "workbench/sequencefile.h"

#include <QFileInfo>

#include <chrono>
#include <thread>
#include <utility>

using namespace virtualboard;

namespace workbench {

namespace {

constexpr std::chrono::milliseconds kPause{150}; // between two readings

/// Payload of \a which, as \a decode understands it.
template <typename Decoded>
Expected<Decoded> read(BoardSession &session, StatusKind which,
                       std::optional<Decoded> (*decode)(const QByteArray &))
{
    const Expected<QByteArray> payload = session.readStatus(which);
    if (!payload)
        return tl::unexpected<Failure>(payload.error());
    if (const std::optional<Decoded> decoded = decode(*payload))
        return *decoded;
    return failure(
        Failure::Board,
        QStringLiteral("cannot read this board's status: status %1 has %2 bytes "
                       "of another layout%3")
            .arg(which)
            .arg(payload->size())
            .arg(which == StateStatus ? QLatin1String("; the sequence goes on") : QLatin1String()));
}

} // namespace

Expected<PreparedTest> prepareTest(const QString &configPath, const QString &sequencePath)
{
    const Expected<Sequence> sequence = readSequence(sequencePath);
    if (!sequence)
        return tl::unexpected<Failure>(sequence.error());
    return PreparedTest{sequencePath, *sequence,
                        testconfiguration::check(testconfiguration::Document::read(configPath),
                                                 sequence->samplesPerSecond())};
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

Expected<DecodedState> TestRun::follow(const ShowState &showState)
{
    PlayStatus before;
    while (true) {
        Expected<DecodedState> decoded = read(m_session, StateStatus, decodeState);
        if (!decoded)
            return decoded;
        if (const Expected<void> ours = expectOurs(decoded->start); !ours)
            return tl::unexpected<Failure>(ours.error());
        const PlayStatus &now = decoded->status;
        if (now.state == PlayState::Idle || now.state == PlayState::Armed)
            return failure(Failure::Board,
                           QStringLiteral("the board does not play the sequence: it is %1")
                               .arg(QLatin1String(stateName(now.state))));
        if (before.step != kNoStep && now.step != before.step) {
            if (const auto changes = readChanges(); !changes)
                return tl::unexpected<Failure>(changes.error());
        }
        showState(now, now.state != before.state || now.step != before.step);
        if (now.state != PlayState::Running)
            return decoded;
        before = now;
        std::this_thread::sleep_for(kPause);
    }
}

Expected<TransitionLog> TestRun::readChanges()
{
    return read(m_session, LogStatus, decodeLog).and_then([this](const TransitionLog &log) {
        return expectOurs(log.start).map([&] { return m_changes = log; });
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
