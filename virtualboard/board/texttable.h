#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

namespace virtualboard {

/// Columns of plain text, as wide as their widest cell, with a rule below the headings.
class TextTable
{
public:
    /// A heading that begins with '>' makes its column flush right.
    explicit TextTable(const QStringList &headings);
    /// Cells that are missing are empty.
    void addRow(const QStringList &cells) { m_rows << cells; }
    bool isEmpty() const { return m_rows.isEmpty(); }
    /// The lines, indented by one blank, each with a line break.
    QString toString() const;

private:
    QString line(const QStringList &cells, const QVector<int> &widths) const;

    QStringList m_headings;
    QVector<bool> m_flushRight;
    QVector<QStringList> m_rows;
};

/// \a title with a rule behind it, and an empty line.
[[nodiscard]] QString heading(const QString &title);
/// The words in lines of the page's width, the first after \a label, the others below it.
[[nodiscard]] QString wrapped(const QString &label, const QStringList &words);

} // namespace virtualboard
