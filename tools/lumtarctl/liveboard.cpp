#include "tools/lumtarctl/liveboard.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>

using namespace workbench;

namespace {

constexpr int kStartTime = 10000; // ms
constexpr int kEndTime = 5000; // ms

/// Beside this program, where it was built or installed; else wherever the system finds it.
QString boardProgram()
{
    const QString folder = QCoreApplication::applicationDirPath();
    for (const char *place : {"/lumtar-board", "/../lumtar-board/lumtar-board"}) {
        const QFileInfo program(folder + QLatin1String(place));
        if (program.isFile() && program.isExecutable())
            return program.filePath();
    }
    return QStringLiteral("lumtar-board");
}

} // namespace

LiveBoard::LiveBoard()
    : m_process(std::make_unique<QProcess>())
{ }

LiveBoard::~LiveBoard()
{
    if (m_process->state() == QProcess::NotRunning)
        return;
    m_process->terminate();
    if (!m_process->waitForFinished(kEndTime)) {
        m_process->kill();
        m_process->waitForFinished();
    }
}

Expected<QHostAddress> LiveBoard::start(const QString &interface)
{
    const auto process = quint32(QCoreApplication::applicationPid());
    const QHostAddress address(127U << 24 | (193 + (process >> 16) % 60) << 16
                               | (process & 0xffff));
    m_process->start(
        boardProgram(),
        {QStringLiteral("--listen"), address.toString(), QStringLiteral("--interface"), interface});
    QByteArray said;
    while (!said.contains('\n') && m_process->waitForReadyRead(kStartTime))
        said += m_process->readAllStandardOutput();
    if (said.startsWith("ready on "))
        return address;
    m_process->waitForFinished(m_process->error() == QProcess::Timedout ? 0 : kEndTime);
    const QString reason = QString::fromUtf8(m_process->readAllStandardError()).trimmed();
    return failure(Failure::Helper,
                   QStringLiteral("the live board does not start: ")
                       + (reason.isEmpty() ? m_process->errorString() : reason));
}
