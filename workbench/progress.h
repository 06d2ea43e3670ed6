/// \file
/// How far the loading and starting of a test has come.
#pragma once

#include "boardsession.h"
#include "configurationcheck.h"
#include "sequencefile.h"
#include "terminal.h"

#include <QString>
#include <QVector>

/// Shows every exchange of a session, while it lives, as part of what is to be sent.
class Progress
{
    Q_DISABLE_COPY(Progress)

public:
    /// \a session is going to load \a configuration, which has no errors, then to execute \a
    /// sequence.
    Progress(BoardSession &session, const CheckedConfiguration &configuration,
             const Sequence &sequence);
    ~Progress() { m_session.onSent = nullptr; }

    /// Leaves the terminal to other output until the next exchange.
    void pause() { m_line.clear(); }
    /// The last exchange is done, too.
    void finish();

private:
    /// A reset, a stream, a step ...
    struct Element
    {
        QString text;
        int exchanges;
    };

    void addConfiguration(const CheckedConfiguration &configuration);
    void addSequence(const CheckedConfiguration &configuration, const Sequence &sequence);
    void sent(bool again);
    void show(int done, const QString &element, bool isNews);

    BoardSession &m_session;
    LiveLine m_line;
    QVector<Element> m_elements; ///< in the order in which they are sent
    int m_total = 0;
    int m_begun = 0; ///< exchanges
    int m_element = 0; ///< the current one
    int m_left = 0; ///< exchanges of it that have not begun
};
