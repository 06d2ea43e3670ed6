/// \file
/// A report as what it consists of, whether it becomes a page of HTML or of paper.
#pragma once

#include "workbench/deviationbar.h"
#include "workbench/picturefile.h"
#include "workbench/verdict.h"

#include <QSize>
#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>
#include <variant>

namespace workbench {

/// Pixels that a report is wide: A4 with its margins.
constexpr int kReportWidth = 680;

struct ReportHeading
{
    int level = 1; ///< 1: of the report, 2: of a part that begins on a page of its own, 3: in it
    QString text;
    std::optional<Verdict> verdict; ///< beside it
    QString outcome; ///< the verdict in words
};

struct ReportParagraph
{
    QString text;
    std::optional<Verdict> verdict; ///< colours it
};

struct ReportCell
{
    QString text;
    std::optional<Verdict> verdict; ///< colours the text
    std::optional<DeviationBar> bar; ///< in the place of the text

    ReportCell() = default;
    ReportCell(const QString &cellText) // NOLINT: a text is a cell
        : text(cellText)
    { }
    ReportCell(Verdict cellVerdict, const QString &cellText)
        : text(cellText)
        , verdict(cellVerdict)
    { }
};

struct ReportTable
{
    /// One that begins with '>' makes its column flush right. None: the first column names what the
    /// second one tells.
    QStringList headings;
    QVector<QVector<ReportCell>> rows;
};

struct ReportPicture
{
    QSize size; ///< pixels
    Paint paint;
    QString caption; ///< a sentence; what is read out where the picture cannot be seen
};

/// Pictures beside each other, as many in a row as the page is wide.
using ReportPictures = QVector<ReportPicture>;

using ReportBlock = std::variant<ReportHeading, ReportParagraph, ReportTable, ReportPictures>;

struct Report
{
    QString title;
    QString footer; ///< of every printed page
    QVector<ReportBlock> blocks;
};

/// Pixels of the bar in a cell.
constexpr QSize kBarSize(120, 16);

/// \a text as a report may show it: on one line, blanks for line breaks, "?" for characters that
/// steer a page or are none.
[[nodiscard]] QString reportText(const QString &text);

} // namespace workbench
