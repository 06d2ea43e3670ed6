#include "workbench/reportpdf.h"

#include "workbench/drawing.h"

#include <QAbstractTextDocumentLayout>
#include <QBuffer>
#include <QFontMetricsF>
#include <QPageLayout>
#include <QPainter>
#include <QPdfWriter>
#include <QTextBlock>
#include <QTextBlockFormat>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextObjectInterface>
#include <QTextTable>

#include <algorithm>
#include <cmath>

namespace workbench {

namespace {

constexpr int kDotsPerInch = 600;
constexpr double kScale = kDotsPerInch / 96.0; ///< of a pixel of a screen
constexpr QMarginsF kMargins(15, 14, 15, 12); ///< mm
constexpr double kFooter = 30; ///< pixels
constexpr double kTextPoints = 9.5;
constexpr double kTablePoints = 8.5;
constexpr double kCaption = 10.5; ///< pixels
constexpr double kMostCaption = 200; ///< likewise, of its height

constexpr int kPictureType = QTextFormat::UserObject + 1;
constexpr int kPictureNumber = QTextFormat::UserProperty + 1;

const QColor kQuiet = QColor(0x5a, 0x61, 0x69);

/// Pictures in a text, painted as everywhere else. A caption is part of its picture, so that no end
/// of a page comes between them.
class Pictures : public QObject, public QTextObjectInterface
{
    Q_OBJECT
    Q_INTERFACES(QTextObjectInterface)

public:
    QSizeF intrinsicSize(QTextDocument *, int, const QTextFormat &format) override
    {
        const ReportPicture &picture = m_all[format.intProperty(kPictureNumber)];
        const QRectF caption = captionBox(picture);
        return QSizeF(picture.size.width(), picture.size.height() + caption.height()) * kScale;
    }
    void drawObject(QPainter *painter, const QRectF &area, QTextDocument *, int,
                    const QTextFormat &format) override
    {
        const ReportPicture &picture = m_all[format.intProperty(kPictureNumber)];
        painter->save();
        painter->translate(area.topLeft());
        painter->scale(kScale, kScale);
        picture.paint(*painter, QRectF(QPointF(0, 0), QSizeF(picture.size)));
        painter->setFont(textFont(kCaption));
        painter->setPen(kQuiet);
        painter->drawText(captionBox(picture), Qt::TextWordWrap, reportText(picture.caption));
        painter->restore();
    }
    void insert(QTextCursor &cursor, const ReportPicture &picture)
    {
        QTextCharFormat format;
        format.setObjectType(kPictureType);
        format.setProperty(kPictureNumber, int(m_all.size()));
        m_all.append(picture);
        cursor.insertText(QString(QChar::ObjectReplacementCharacter), format);
    }

private:
    /// Below the picture, as many lines as it takes.
    static QRectF captionBox(const ReportPicture &picture)
    {
        const QRectF below(0, picture.size.height(), picture.size.width(), kMostCaption);
        const QRectF box = QFontMetricsF(textFont(kCaption))
                               .boundingRect(below, Qt::TextWordWrap, reportText(picture.caption));
        return {below.topLeft(),
                QSizeF(below.width(), picture.caption.isEmpty() ? 0 : std::ceil(box.height()))};
    }

    QVector<ReportPicture> m_all;
};

QTextCharFormat charFormat(double points, bool isBold = false, const QColor &colour = ink::kText)
{
    QTextCharFormat format;
    format.setFontPointSize(points);
    format.setFontWeight(isBold ? QFont::Bold : QFont::Normal);
    format.setForeground(colour);
    return format;
}

/// Fills a document with blocks.
class Pages
{
public:
    Pages(QTextDocument &document, Pictures &pictures)
        : m_cursor(&document)
        , m_pictures(pictures)
    { }

    void operator()(const ReportHeading &heading);
    void operator()(const ReportParagraph &paragraph);
    void operator()(const ReportTable &table);
    void operator()(const ReportPictures &pictures);
    /// Moves headings that are alone at the end of a page to the next one.
    void keepHeadings();
    /// What ends a page needs no space below; on a full page that space, and any above the heading
    /// of the next one, would begin another page.
    void endPage();

private:
    void beginBlock(double above, double below, bool onNewPage = false);
    void fill(QTextTableCell place, const ReportCell &cell, bool isQuiet, bool isRight);
    void fillHead(QTextTable &table, const QStringList &headings);

    QTextCursor m_cursor;
    Pictures &m_pictures;
    QVector<int> m_headings; ///< positions of those of level 3
    QTextTable *m_table = nullptr; ///< the last one, if nothing has been written behind it
    bool m_isFirst = true;
};

void Pages::beginBlock(double above, double below, bool onNewPage)
{
    QTextBlockFormat format;
    format.setTopMargin(above);
    format.setBottomMargin(below);
    if (onNewPage)
        format.setPageBreakPolicy(QTextFormat::PageBreak_AlwaysBefore);
    if (m_isFirst)
        m_cursor.setBlockFormat(format);
    else
        m_cursor.insertBlock(format);
    m_isFirst = false;
    m_table = nullptr;
}

void Pages::endPage()
{
    if (m_table) {
        QTextTableFormat format = m_table->format();
        format.setBottomMargin(0);
        m_table->setFormat(format);
    } else {
        QTextBlockFormat format = m_cursor.blockFormat();
        format.setBottomMargin(0);
        m_cursor.setBlockFormat(format);
    }
}

void Pages::operator()(const ReportHeading &heading)
{
    constexpr double kPoints[] = {18, 14, 11};
    const int level = std::clamp(heading.level, 1, 3);
    if (level == 2)
        endPage();
    beginBlock(level == 3 ? 12 : 0, 5, level == 2);
    if (level == 3)
        m_headings.append(m_cursor.position());
    m_cursor.insertText(reportText(heading.text), charFormat(kPoints[level - 1], true));
    if (heading.verdict)
        m_cursor.insertText(QStringLiteral("   ") + reportText(heading.outcome),
                            charFormat(kPoints[level - 1] - 3, true, colourOf(*heading.verdict)));
}

void Pages::operator()(const ReportParagraph &paragraph)
{
    beginBlock(3, 5);
    const QColor colour = paragraph.verdict ? colourOf(*paragraph.verdict) : ink::kText;
    m_cursor.insertText(reportText(paragraph.text), charFormat(kTextPoints, false, colour));
}

void Pages::keepHeadings()
{
    constexpr int kMostPasses = 8; // a heading that moves may leave another one alone
    QTextDocument &document = *m_cursor.document();
    const auto pageOf = [&document](const QTextBlock &block) {
        return int(document.documentLayout()->blockBoundingRect(block).top()
                   / document.pageSize().height());
    };
    for (int pass = 0; pass < kMostPasses; ++pass) {
        QVector<QTextBlock> alone;
        for (const int position : std::as_const(m_headings)) {
            const QTextBlock block = document.findBlock(position);
            if (block.next().isValid() && pageOf(block.next()) > pageOf(block))
                alone.append(block);
        }
        if (alone.isEmpty())
            return;
        m_cursor.beginEditBlock();
        for (const QTextBlock &block : std::as_const(alone)) {
            QTextBlockFormat format = block.blockFormat();
            format.setPageBreakPolicy(QTextFormat::PageBreak_AlwaysBefore);
            QTextCursor(block).setBlockFormat(format);
        }
        m_cursor.endEditBlock();
    }
}

QTextTableCellFormat cellFormat(const QColor &line, double width)
{
    QTextTableCellFormat format;
    format.setBottomBorder(width);
    format.setBottomBorderStyle(QTextFrameFormat::BorderStyle_Solid);
    format.setBottomBorderBrush(line);
    format.setPadding(2.5);
    format.setRightPadding(9);
    return format;
}

void Pages::fill(QTextTableCell place, const ReportCell &cell, bool isQuiet, bool isRight)
{
    place.setFormat(cellFormat(ink::kGrid, 1));
    QTextCursor cursor = place.firstCursorPosition();
    QTextBlockFormat block;
    block.setAlignment(isRight ? Qt::AlignRight : Qt::AlignLeft);
    cursor.setBlockFormat(block);
    if (cell.bar) {
        const DeviationBar bar = *cell.bar;
        m_pictures.insert(
            cursor,
            {kBarSize, [bar](QPainter &painter, const QRectF &area) { paint(painter, area, bar); },
             QString()});
        return;
    }
    const QColor colour = cell.verdict ? colourOf(*cell.verdict) : isQuiet ? kQuiet : ink::kText;
    cursor.insertText(reportText(cell.text),
                      charFormat(kTablePoints, cell.verdict.has_value(), colour));
}

void Pages::fillHead(QTextTable &table, const QStringList &headings)
{
    for (int i = 0; i < headings.size(); ++i) {
        const bool isRight = headings[i].startsWith(QLatin1Char('>'));
        QTextTableCell place = table.cellAt(0, i);
        place.setFormat(cellFormat(ink::kFrame, 1.5));
        QTextCursor cursor = place.firstCursorPosition();
        QTextBlockFormat block;
        block.setAlignment(isRight ? Qt::AlignRight : Qt::AlignLeft);
        cursor.setBlockFormat(block);
        cursor.insertText(reportText(headings[i].mid(isRight ? 1 : 0)),
                          charFormat(kTablePoints, true));
    }
}

void Pages::operator()(const ReportTable &table)
{
    const bool isFacts = table.headings.isEmpty();
    const int heads = isFacts ? 0 : 1;
    int columns = std::max(int(table.headings.size()), 1);
    for (const QVector<ReportCell> &row : table.rows)
        columns = std::max(columns, int(row.size()));
    QTextTableFormat format;
    format.setBorder(0);
    format.setBorderCollapse(true);
    format.setCellSpacing(0);
    format.setTopMargin(4);
    format.setBottomMargin(8);
    format.setWidth(QTextLength(QTextLength::PercentageLength, 100));
    format.setHeaderRowCount(heads);
    if (isFacts)
        format.setColumnWidthConstraints({QTextLength(QTextLength::PercentageLength, 22),
                                          QTextLength(QTextLength::PercentageLength, 78)});
    QTextTable *const made =
        m_cursor.insertTable(std::max(int(table.rows.size()) + heads, 1), columns, format);
    fillHead(*made, table.headings);
    for (int row = 0; row < table.rows.size(); ++row) {
        for (int i = 0; i < table.rows[row].size(); ++i)
            fill(made->cellAt(row + heads, i), table.rows[row][i], isFacts && i == 0,
                 table.headings.value(i).startsWith(QLatin1Char('>')));
    }
    m_cursor.movePosition(QTextCursor::End);
    m_isFirst = true; // the block behind the table is there already
    m_table = made;
}

/// A table without lines keeps pictures beside each other.
void Pages::operator()(const ReportPictures &pictures)
{
    for (int first = 0; first < pictures.size();) {
        int count = 0;
        for (int width = 0; first + count < pictures.size(); ++count) {
            width += pictures[first + count].size.width();
            if (count > 0 && width > kReportWidth)
                break;
        }
        QTextTableFormat format;
        format.setBorder(0);
        format.setCellSpacing(0);
        format.setCellPadding(0);
        format.setBottomMargin(6);
        QTextTable *const made = m_cursor.insertTable(1, count, format);
        for (int i = 0; i < count; ++i) {
            QTextCursor cursor = made->cellAt(0, i).firstCursorPosition();
            m_pictures.insert(cursor, pictures[first + i]);
        }
        m_cursor.movePosition(QTextCursor::End);
        m_isFirst = true;
        m_table = made;
        first += count;
    }
}

void paintFooter(QPainter &painter, const QSizeF &page, const QString &text, int number, int count)
{
    painter.save();
    painter.translate(0, page.height());
    painter.scale(kScale, kScale);
    const double width = page.width() / kScale;
    const QFont font = textFont(10.5);
    constexpr double kNumberWidth = 90;
    constexpr double kLine = 16;
    const double top = kFooter - kLine;
    drawText(painter, {0, top, width - kNumberWidth, kLine}, Qt::AlignLeft | Qt::AlignVCenter,
             reportText(text), font);
    drawText(painter, {width - kNumberWidth, top, kNumberWidth, kLine},
             Qt::AlignRight | Qt::AlignVCenter, QStringLiteral("%1 of %2").arg(number).arg(count),
             font);
    painter.restore();
}

/// The last table is followed by an empty block, which needs no page of its own.
int pageCount(const QTextDocument &document)
{
    const QList<QTextFrame *> frames = document.rootFrame()->childFrames();
    if (document.lastBlock().length() > 1 || frames.isEmpty())
        return document.pageCount();
    const QRectF last = document.documentLayout()->frameBoundingRect(frames.last());
    return int(std::ceil((last.bottom() - 1) / document.pageSize().height()));
}

void print(QTextDocument &document, QPdfWriter &writer, const QString &footer)
{
    const QSizeF page = document.pageSize();
    const int count = pageCount(document);
    QPainter painter(&writer);
    for (int i = 0; i < count; ++i) {
        if (i > 0)
            writer.newPage();
        painter.save();
        painter.translate(0, -i * page.height());
        QAbstractTextDocumentLayout::PaintContext context;
        const QRectF place(0, i * page.height(), page.width(), page.height());
        context.clip = place.adjusted(0, 1, 0, -1); // what only touches it is on another page
        context.palette.setColor(QPalette::Text, ink::kText);
        painter.setClipRect(place);
        document.documentLayout()->draw(&painter, context);
        painter.restore();
        paintFooter(painter, page, footer, i + 1, count);
    }
}

/// A report is as old as its record says, not as its file.
void fixDate(QByteArray &pdf)
{
    const QByteArray key = "/CreationDate (D:";
    const QByteArray date = "19700101000000Z";
    const auto found = pdf.indexOf(key);
    const auto begin = found + key.size();
    if (found >= 0 && pdf.indexOf(')', int(begin)) == begin + date.size())
        pdf.replace(int(begin), int(date.size()), date);
}

} // namespace

QByteArray toPdf(const Report &report)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    QPdfWriter writer(&buffer);
    writer.setPageSize(QPageSize(QPageSize::A4));
    writer.setPageMargins(kMargins, QPageLayout::Millimeter);
    writer.setResolution(kDotsPerInch);
    writer.setTitle(reportText(report.title));
    writer.setCreator(QStringLiteral("Lumtar"));

    Pictures pictures;
    QTextDocument document;
    document.setUndoRedoEnabled(false);
    document.setDocumentMargin(0);
    document.setDefaultFont(textFont());
    document.documentLayout()->setPaintDevice(&writer);
    document.documentLayout()->registerHandler(kPictureType, &pictures);
    Pages pages(document, pictures);
    for (const ReportBlock &each : report.blocks)
        std::visit(pages, each);
    pages.endPage();
    document.setPageSize(QSizeF(writer.width(), writer.height() - kFooter * kScale));
    pages.keepHeadings();
    print(document, writer, report.footer);
    QByteArray result = buffer.data();
    fixDate(result);
    return result;
}

} // namespace workbench

#include "reportpdf.moc"
