#include "workbench/plotpicture.h"

#include <QProcess>
#include <QStandardPaths>

#include <chrono>

namespace workbench {

Expected<QString> findGnuplot()
{
    const QString program = QStandardPaths::findExecutable(QStringLiteral("gnuplot"));
    if (program.isEmpty())
        return failure(Failure::Helper,
                       QStringLiteral("gnuplot, which draws the picture, is not installed"));
    return program;
}

Expected<QByteArray> drawPicture(const QString &gnuplot, const QByteArray &script)
{
    constexpr std::chrono::milliseconds kLongestDrawing = std::chrono::minutes(2);
    QProcess process;
    process.start(gnuplot, {QStringLiteral("-d")}); // not with a user's settings
    process.write(script);
    process.closeWriteChannel();
    const bool drawn = process.waitForFinished(int(kLongestDrawing.count()))
        && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    const QByteArray picture = drawn ? process.readAllStandardOutput() : QByteArray();
    if (!picture.isEmpty())
        return picture;
    const QByteArray said = process.readAllStandardError().trimmed();
    const QByteArray reason = said.mid(said.lastIndexOf('\n') + 1); // behind the faulty line
    return failure(
        Failure::Helper,
        QStringLiteral("%1 failed: %2")
            .arg(gnuplot,
                 reason.isEmpty() ? process.errorString() : QString::fromLocal8Bit(reason)));
}

} // namespace workbench
