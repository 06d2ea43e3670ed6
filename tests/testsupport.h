/// \file
/// What the test programs share: byte literals, comparison of frames, debug lines, addresses.
#pragma once

#include "virtualboard/board/linkresponder.h"

#include <QByteArray>
#include <QFile>
#include <QHostAddress>
#include <QString>
#include <QStringList>
#include <QTest>
#include <QVector>
#include <QtGlobal>

#include <algorithm>
#include <cctype>
#include <string>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace testsupport {

using Frames = QVector<QByteArray>;

/// Bytes of a literal: hexadecimal digits, 'text' in single quotes, xx*n for n bytes xx.
/// Everything else is blank space.
inline QByteArray bytes(const QByteArray &literal)
{
    QByteArray result;
    for (int at = 0; at < literal.size();) {
        if (literal.at(at) == '\'') {
            const int end = int(literal.indexOf('\'', at + 1));
            result += literal.mid(at + 1, end - at - 1);
            at = end + 1;
        } else if (literal.at(at) == '*') {
            int count = 0;
            while (++at < literal.size()
                   && std::isdigit(static_cast<unsigned char>(literal.at(at))))
                count = 10 * count + literal.at(at) - '0';
            const char last = result.back();
            result.chop(1);
            result += QByteArray(count, last);
        } else if (std::isxdigit(static_cast<unsigned char>(literal.at(at)))) {
            result += QByteArray::fromHex(literal.mid(at, 2));
            at += 2;
        } else {
            ++at;
        }
    }
    return result;
}

/// Why there is no value; empty if there is one.
template <typename T>
QString failure(const virtualboard::Expected<T> &result)
{
    return result ? QString() : result.error();
}

/// Empty when both are equal, else where they differ and both in full.
inline QString difference(const QByteArray &actual, const QByteArray &expected)
{
    if (actual == expected)
        return {};
    int at = 0;
    while (at < actual.size() && at < expected.size() && actual.at(at) == expected.at(at))
        ++at;
    return QStringLiteral("byte %1 of %2 (expected %3)\n   actual: %4\n expected: %5")
        .arg(at)
        .arg(actual.size())
        .arg(expected.size())
        .arg(QString::fromLatin1(actual.toHex(' ')), QString::fromLatin1(expected.toHex(' ')));
}

inline QString difference(const Frames &actual, const Frames &expected)
{
    for (int i = 0; i < actual.size() && i < expected.size(); ++i) {
        if (actual.at(i) != expected.at(i))
            return QStringLiteral("frame %1, ").arg(i) + difference(actual.at(i), expected.at(i));
    }
    if (actual.size() == expected.size())
        return {};
    const Frames &longer = actual.size() > expected.size() ? actual : expected;
    return QStringLiteral("%1 frames, expected %2; the first odd one: %3")
        .arg(actual.size())
        .arg(expected.size())
        .arg(QString::fromLatin1(
            longer.at(qMin(actual.size(), expected.size())).left(64).toHex(' ')));
}

#define COMPARE_BYTES(actual, expected) \
    QVERIFY2(testsupport::difference(actual, expected).isEmpty(), \
             qPrintable(testsupport::difference(actual, expected)))

/// The frames as they travel: padded to an even number of bytes.
inline Frames padded(Frames frames)
{
    for (QByteArray &frame : frames) {
        if (frame.size() % 2 != 0)
            frame.append('\0');
    }
    return frames;
}

/// The padded command frames that the board received, retries included; for a damaged envelope the
/// board's complaint.
inline Frames received(const virtualboard::LinkResponder &board)
{
    Frames frames;
    for (const virtualboard::Reception &reception : board.receptions()) {
        frames += reception.problems.isEmpty()
            ? reception.datagram.mid(9, reception.datagram.size() - 11)
            : reception.problems.join(QLatin1Char('\n')).toUtf8();
    }
    return frames;
}

/// Catches the lines that the current thread writes on the debug channel while one is alive in
/// any thread.
class DebugLines
{
public:
    DebugLines()
        : m_previous(qInstallMessageHandler(handle))
    {
        lines().clear();
    }
    ~DebugLines() { qInstallMessageHandler(m_previous); }
    DebugLines(const DebugLines &) = delete;
    DebugLines &operator=(const DebugLines &) = delete;

    /// The current thread's lines.
    static QStringList &lines()
    {
        static thread_local QStringList caught;
        return caught;
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext &, const QString &line)
    {
        lines() += type == QtDebugMsg ? line : QStringLiteral("not a debug line: ") + line;
    }
    QtMessageHandler m_previous;
};

/// One refusal: a single debug line that names the operation and the value.
inline bool isRefusal(const QStringList &lines, const QString &operation, const QString &value)
{
    return lines.size() == 1 && lines.first().contains(operation) && lines.first().contains(value);
}

/// While one lives, another run of the same program waits: both would use the same addresses and
/// ports.
class SingleRun
{
public:
    SingleRun()
        : m_file(open(("/tmp/lumtar-test-" + std::to_string(BOARD_NUMBER)).c_str(),
                      O_CREAT | O_CLOEXEC, 0666))
    {
        flock(m_file, LOCK_EX);
    }
    ~SingleRun() { close(m_file); }
    SingleRun(const SingleRun &) = delete;
    SingleRun &operator=(const SingleRun &) = delete;

private:
    int m_file;
};

/// Loopback address \a n, 0 to 9, of this program.
inline QHostAddress boardAddress(int n = 0)
{
    constexpr quint32 kFirst = 0x7f004000; // 127.0.64.0
    return QHostAddress(kFirst + BOARD_NUMBER + quint32(n));
}

/// Local UDP port \a n, 0 to 99, of this program; below the range that the system hands out.
inline int localPort(int n = 0)
{
    return 20000 + 10 * BOARD_NUMBER + n;
}

/// Makes every line of \a table a row: cells separated by "|", the first one being its name.
inline void addRows(const char *table)
{
    QTest::addColumn<QStringList>("row");
    for (const QString &line : QString::fromUtf8(table).split(QLatin1Char('\n'))) {
        QStringList cells = line.split(QLatin1Char('|'));
        std::for_each(cells.begin(), cells.end(), [](QString &cell) { cell = cell.trimmed(); });
        if (cells.size() > 1)
            QTest::newRow(qPrintable(cells[0])) << cells;
    }
}

/// Takes the marks "^" out of \a text and gives their places, "LINE:COLUMN".
inline QStringList takeMarks(QString &text)
{
    QStringList places;
    for (auto at = text.indexOf(QLatin1Char('^')); at >= 0; at = text.indexOf(QLatin1Char('^'))) {
        text.remove(at, 1);
        const QString before = text.left(at).remove(QChar(QChar::ByteOrderMark));
        places += QStringLiteral("%1:%2")
                      .arg(before.count(QLatin1Char('\n')) + 1)
                      .arg(before.size() - before.lastIndexOf(QLatin1Char('\n')));
    }
    return places;
}

inline bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

} // namespace testsupport
