/// \file
/// A live board of software for one test.
#pragma once

#include "workbench/failure.h"

#include <QHostAddress>
#include <QString>

#include <memory>

class QProcess;

/// lumtar-board in a process of its own, since it is what has been given the privileges.
class LiveBoard
{
    Q_DISABLE_COPY(LiveBoard)

public:
    LiveBoard();
    ~LiveBoard(); ///< ends it

    /// Starts it on network interface \a interface, and waits until it answers.
    [[nodiscard]] workbench::Expected<QHostAddress> start(const QString &interface);

private:
    std::unique_ptr<QProcess> m_process;
};
