#include "virtualboard/board/texttable.h"

#include <algorithm>

namespace virtualboard {

namespace {

constexpr int kPageWidth = 104; // characters

} // namespace

TextTable::TextTable(const QStringList &headings)
{
    for (const QString &heading : headings) {
        const bool flushRight = heading.startsWith(QLatin1Char('>'));
        m_flushRight << flushRight;
        m_headings << (flushRight ? heading.mid(1) : heading);
    }
}

QString TextTable::toString() const
{
    QVector<int> widths;
    QStringList rule;
    for (int column = 0; column < m_headings.size(); ++column) {
        int width = int(m_headings[column].size());
        for (const QStringList &row : m_rows)
            width = std::max(width, int(row.value(column).size()));
        widths << width;
        rule << QString(width, QChar(0x2500));
    }
    QString result = line(m_headings, widths) + line(rule, widths);
    for (const QStringList &row : m_rows)
        result += line(row, widths);
    return result;
}

QString TextTable::line(const QStringList &cells, const QVector<int> &widths) const
{
    QString result(1, QLatin1Char(' '));
    for (int column = 0; column < widths.size(); ++column) {
        const QString cell = cells.value(column);
        result += m_flushRight[column] ? cell.rightJustified(widths[column])
                                       : cell.leftJustified(widths[column]);
        result += QLatin1String("  ");
    }
    while (result.endsWith(QLatin1Char(' ')))
        result.chop(1);
    return result + QLatin1Char('\n');
}

QString heading(const QString &title)
{
    const QChar rule(0x2500);
    const QString start = QString(2, rule) + QLatin1Char(' ') + title + QLatin1Char(' ');
    return start.leftJustified(kPageWidth, rule) + QLatin1String("\n\n");
}

QString wrapped(const QString &label, const QStringList &words)
{
    QString result;
    QString line = label;
    for (const QString &word : words) {
        const QString gap = line.endsWith(QLatin1Char(' ')) ? QString() : QStringLiteral("  ");
        if (line.size() + gap.size() + word.size() <= kPageWidth) {
            line += gap + word;
            continue;
        }
        result += line + QLatin1Char('\n');
        line = QString(label.size(), QLatin1Char(' ')) + word;
    }
    return result + line + QLatin1Char('\n');
}

} // namespace virtualboard
