#include "virtualboard/board/texttable.h"

#include <algorithm>
#include <numeric>

namespace virtualboard {

namespace {

constexpr int kGap = 2; // between columns
const QChar kRule(0x2500);

/// The text in lines of at most \a width characters, broken at blanks where that is possible.
QStringList brokenInto(const QString &text, int width)
{
    QStringList lines;
    QString rest = text;
    while (rest.size() > width) {
        int end = int(rest.lastIndexOf(QLatin1Char(' '), width));
        if (end <= 0)
            end = width;
        lines << rest.left(end).trimmed();
        rest = rest.mid(end).trimmed();
    }
    return lines << rest;
}

int longestWord(const QString &text)
{
    int longest = 0;
    for (const QString &word : text.split(QLatin1Char(' ')))
        longest = std::max(longest, int(word.size()));
    return longest;
}

/// With the indent.
int lineWidth(const QVector<int> &widths)
{
    return std::accumulate(widths.begin(), widths.end(), 1 - kGap,
                           [](int sum, int width) { return sum + width + kGap; });
}

QVector<int> chosen(const QVector<int> &all, const QVector<int> &indices)
{
    QVector<int> result;
    for (const int index : indices)
        result << all[index];
    return result;
}

} // namespace

TextTable::TextTable(const QStringList &headings, int keys)
    : m_keys(keys)
{
    for (const QString &heading : headings) {
        const bool flushRight = heading.startsWith(QLatin1Char('>'));
        m_flushRight << flushRight;
        m_headings << (flushRight ? heading.mid(1) : heading);
    }
}

void TextTable::addRow(const QStringList &cells)
{
    constexpr int kMostRows = 1000;
    if (m_rows.size() < kMostRows)
        m_rows << cells;
    else
        ++m_more;
}

/// The widths that the columns need for that.
QVector<int> TextTable::widthsWith(Breaking breaking) const
{
    const auto needed = [](const QString &text, bool isBroken) {
        return isBroken ? longestWord(text) : int(text.size());
    };
    QVector<int> widths;
    for (int column = 0; column < m_headings.size(); ++column) {
        int width = needed(m_headings[column], breaking != Nothing);
        for (const QStringList &row : m_rows)
            width = std::max(width, needed(row.value(column), breaking == Everything));
        widths << width;
    }
    return widths;
}

QString TextTable::toString(int width) const
{
    const int count = int(m_headings.size());
    const QVector<int> least = widthsWith(Everything);
    QString result;
    for (int next = std::min(m_keys, count - 1); next < count;) {
        QVector<int> columns(std::min(m_keys, count - 1));
        std::iota(columns.begin(), columns.end(), 0);
        do {
            columns << next++;
        } while (next < count && lineWidth(chosen(least, columns) << least[next]) <= width);
        result += (result.isEmpty() ? QString() : QStringLiteral("\n")) + part(columns, width);
    }
    if (m_more > 0)
        result += paragraph(QStringLiteral("and %1 more").arg(m_more), width);
    return result;
}

/// The table of these columns alone.
QString TextTable::part(QVector<int> columns, int room) const
{
    QVector<int> widths = chosen(widthsWith(Nothing), columns);
    for (const QVector<int> &least :
         {widthsWith(Headings), widthsWith(Everything), QVector<int>(m_headings.size(), 1)}) {
        while (lineWidth(widths) > room) {
            int widest = -1;
            for (int i = 0; i < columns.size(); ++i) {
                if (widths[i] > least[columns[i]] && (widest < 0 || widths[i] > widths[widest]))
                    widest = i;
            }
            if (widest < 0)
                break;
            --widths[widest];
        }
    }
    QStringList rules;
    for (int i = 0; i < columns.size(); ++i) {
        while (rules.size() < columns[i])
            rules << QString();
        rules << QString(widths[i], kRule);
    }
    QString result = row(m_headings, columns, widths) + row(rules, columns, widths);
    for (const QStringList &cells : m_rows)
        result += row(cells, columns, widths);
    return result;
}

/// As many lines as its highest cell has.
QString TextTable::row(const QStringList &cells, const QVector<int> &columns,
                       const QVector<int> &widths) const
{
    QVector<QStringList> broken;
    int height = 1;
    for (int i = 0; i < columns.size(); ++i) {
        broken << brokenInto(cells.value(columns[i]), widths[i]);
        height = std::max(height, int(broken.last().size()));
    }
    QString result;
    for (int line = 0; line < height; ++line) {
        QString text(1, QLatin1Char(' '));
        for (int i = 0; i < columns.size(); ++i) {
            const QString cell = broken[i].value(line);
            text += m_flushRight[columns[i]] ? cell.rightJustified(widths[i])
                                             : cell.leftJustified(widths[i]);
            text += QString(kGap, QLatin1Char(' '));
        }
        while (text.endsWith(QLatin1Char(' ')))
            text.chop(1);
        result += text + QLatin1Char('\n');
    }
    return result;
}

QString heading(const QString &title, int width)
{
    const QString start = QString(2, kRule) + QLatin1Char(' ') + title + QLatin1Char(' ');
    return start.leftJustified(width, kRule) + QLatin1String("\n\n");
}

QString paragraph(const QString &text, int width)
{
    QString result;
    for (const QString &line : brokenInto(text, width - 1))
        result += QLatin1Char(' ') + line + QLatin1Char('\n');
    return result;
}

QString wrapped(const QString &label, const QStringList &words, int width)
{
    const QString indent(label.size(), QLatin1Char(' '));
    QString result;
    QString line = label;
    for (const QString &word : words) {
        const QString gap = line.endsWith(QLatin1Char(' ')) ? QString() : QStringLiteral("  ");
        if (line.size() + gap.size() + word.size() <= width) {
            line += gap + word;
            continue;
        }
        const QStringList parts = brokenInto(word, std::max(1, width - int(indent.size())));
        if (line.size() > indent.size()) { // it holds a word
            result += line + QLatin1Char('\n');
            line = indent;
        }
        line += parts.join(QLatin1Char('\n') + indent);
        const int last = int(line.lastIndexOf(QLatin1Char('\n'))) + 1;
        result += line.left(last);
        line = line.mid(last);
    }
    return result + line + QLatin1Char('\n');
}

QString counted(qint64 count, const QString &noun)
{
    return QString::number(count) + QLatin1Char(' ') + noun + QLatin1String(count == 1 ? "" : "s");
}

} // namespace virtualboard
