/// \file
/// A whole test on the board: read and check, load, execute, follow.
#pragma once

#include "configuration/testconfiguration.h"
#include "protocol/statusreply.h"
#include "workbench/boardsession.h"
#include "workbench/parameters.h"
#include "workbench/sequence.h"
#include "workbench/transferprogress.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace workbench {

/// A test that has been read, without errors.
struct PreparedTest
{
    QString sequencePath;
    Sequence sequence;
    testconfiguration::CheckedConfiguration configuration;
    QStringList warnings; ///< lines about both files
};

/// Reads both files, with \a values for parameters of the sequence, and holds one against the
/// other. Fails with all errors of both.
[[nodiscard]] Expected<PreparedTest>
prepareTest(const QString &configPath, const QString &sequencePath, const Parameters &values = {});

/// The run of a test over a session whose link is open.
class TestRun
{
    Q_DISABLE_COPY(TestRun)

public:
    using ShowTransfer = std::function<void(const TransferProgress &, bool isNews)>;
    using ShowState = std::function<void(const statusreply::State &, bool isNews)>;

    /// Both must outlive the run. \a showTransfer is called with every datagram that is sent.
    TestRun(BoardSession &session, const PreparedTest &test, ShowTransfer showTransfer);
    ~TestRun() { m_session.onSending = nullptr; }

    [[nodiscard]] Expected<void> load();
    /// Sends the sequence and starts it.
    [[nodiscard]] Expected<void> execute();
    /// Reads the state of the board until the sequence has ended, and returns the last one, and
    /// after each change of steps the changes. Fails when the board does not play, has been started
    /// again by somebody else, or has no status that is understood.
    [[nodiscard]] Expected<statusreply::State> follow(const ShowState &showState);
    /// The changes of steps so far. Fails as follow() does.
    [[nodiscard]] Expected<statusreply::Changes> readChanges();
    /// Those that were read last.
    [[nodiscard]] const statusreply::Changes &changes() const { return m_changes; }
    /// Whether the start command has been sent, answered or not.
    [[nodiscard]] bool mayHaveStarted() const
    {
        return m_progress.done() >= m_progress.total() - 1;
    }

private:
    [[nodiscard]] Expected<void> expectOurs(quint32 start);

    BoardSession &m_session;
    const PreparedTest &m_test;
    TransferProgress m_progress;
    ShowTransfer m_showTransfer;
    std::optional<quint32> m_start; ///< the board's number of our start, once it is known
    statusreply::Changes m_changes;
};

} // namespace workbench
