#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

namespace virtualboard {

constexpr int kPageWidth = 100; ///< characters of a line where nothing else is known

/// Columns of plain text, as wide as their widest cell, with a rule below the headings.
class TextTable
{
public:
    /// A heading that begins with '>' makes its column flush right.
    /// \param keys number of first columns that say what a row is about
    explicit TextTable(const QStringList &headings, int keys = 1);
    /// Cells that are missing are empty. From the 1000th row on, they are only counted.
    void addRow(const QStringList &cells);
    bool isEmpty() const { return m_rows.isEmpty(); }
    /// The lines, indented by one blank, each with a line break. What is wider than \a width
    /// characters is broken at blanks, first the headings; what is still wider, into tables below
    /// each other that all have the first columns; and at last within a word.
    QString toString(int width = kPageWidth) const;

private:
    enum Breaking { Nothing, Headings, Everything }; // at blanks
    QVector<int> widthsWith(Breaking breaking) const;
    QString part(QVector<int> columns, int room) const;
    QString row(const QStringList &cells, const QVector<int> &columns,
                const QVector<int> &widths) const;

    int m_keys;
    QStringList m_headings;
    QVector<bool> m_flushRight;
    QVector<QStringList> m_rows;
    int m_more = 0; ///< rows
};

/// \a title with a rule behind it, and an empty line.
[[nodiscard]] QString heading(const QString &title, int width = kPageWidth);
/// \a text in lines of \a width characters, indented by one blank.
[[nodiscard]] QString paragraph(const QString &text, int width = kPageWidth);
/// The words in lines of \a width characters, the first after \a label, the others below it.
[[nodiscard]] QString wrapped(const QString &label, const QStringList &words,
                              int width = kPageWidth);
/// "1 step", "3 steps": \a count with \a noun, which takes an s in the plural.
[[nodiscard]] QString counted(qint64 count, const QString &noun);

} // namespace virtualboard
