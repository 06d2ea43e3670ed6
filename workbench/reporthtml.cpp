#include "workbench/reporthtml.h"

#include "workbench/drawing.h"

#include <QXmlStreamWriter>

#include <algorithm>

namespace workbench {

namespace {

const char *const kStyle = R"(
@page { size: A4; margin: 15mm 15mm 18mm }
body { font: 14px/1.45 sans-serif; color: #1a1d21; max-width: 720px; margin: 2em auto; padding: 0 20px }
h1 { font-size: 26px; margin: 0 0 .4em }
h2 { font-size: 20px; margin: 2.4em 0 .5em; padding-top: .5em; border-top: 2px solid #1a1d21 }
h3 { font-size: 15px; margin: 1.6em 0 .4em }
p { margin: .5em 0 }
table { border-collapse: collapse; width: 100%; margin: .6em 0 1.2em; font-size: 12.5px }
th, td { text-align: left; vertical-align: top; padding: 3px 8px; border-bottom: 1px solid #dde1e6; overflow-wrap: anywhere }
th { border-bottom: 1.5px solid #808890; white-space: nowrap }
table.facts th { width: 11em; font-weight: normal; color: #5a6169; border-bottom: 1px solid #dde1e6 }
.right { text-align: right; font-variant-numeric: tabular-nums }
td.bar { padding: 2px 8px; width: 120px }
.outcome { font-size: 13px; font-weight: bold; border: 1.5px solid; border-radius: 4px; padding: 1px 8px; margin-left: .8em; vertical-align: middle; white-space: nowrap }
.verdict { font-weight: bold; white-space: nowrap }
figure { margin: .6em 0 1em; display: inline-block; vertical-align: top; max-width: 100% }
figcaption { font-size: 12px; color: #5a6169 }
img { max-width: 100%; height: auto; display: block }
@media print {
body { margin: 0; padding: 0; max-width: none; font-size: 12.5px }
h2 { break-before: page; margin-top: 0 }
h1, h2, h3 { break-after: avoid }
thead { display: table-header-group }
tr, figure { break-inside: avoid }
}
)";

/// The elements of a page; texts are escaped, and nothing is written as an empty element, which a
/// browser would take for one that is open.
class Page
{
public:
    Page(QXmlStreamWriter &xml)
        : m_xml(xml)
    { }

    void write(const Report &report);

    void operator()(const ReportHeading &heading);
    void operator()(const ReportParagraph &paragraph);
    void operator()(const ReportTable &table);
    void operator()(const ReportPictures &pictures);

private:
    void begin(const char *element, const QString &cssClass = {});
    void end();
    void element(const char *name, const QString &text, const QString &cssClass = {});
    void colour(Verdict verdict);
    void image(const QSize &size, const Paint &paint, const QString &text);
    void cell(const ReportCell &cell, bool isName, bool isRight);

    QXmlStreamWriter &m_xml;
};

void Page::begin(const char *element, const QString &cssClass)
{
    m_xml.writeStartElement(QLatin1String(element));
    if (!cssClass.isEmpty())
        m_xml.writeAttribute(QStringLiteral("class"), cssClass);
}

void Page::end()
{
    m_xml.writeCharacters(QString()); // else it becomes an empty element
    m_xml.writeEndElement();
}

void Page::element(const char *name, const QString &text, const QString &cssClass)
{
    begin(name, cssClass);
    m_xml.writeCharacters(reportText(text));
    end();
}

void Page::colour(Verdict verdict)
{
    m_xml.writeAttribute(QStringLiteral("style"),
                         QStringLiteral("color: ") + colourOf(verdict).name());
}

/// As data in the page, where it has names of its own.
void Page::image(const QSize &size, const Paint &paint, const QString &text)
{
    m_xml.writeEmptyElement(QStringLiteral("img"));
    m_xml.writeAttribute(QStringLiteral("width"), QString::number(size.width()));
    m_xml.writeAttribute(QStringLiteral("height"), QString::number(size.height()));
    m_xml.writeAttribute(QStringLiteral("alt"), reportText(text));
    m_xml.writeAttribute(QStringLiteral("src"),
                         QStringLiteral("data:image/svg+xml;base64,")
                             + QString::fromLatin1(toSvg(size, paint).toBase64()));
}

void Page::operator()(const ReportHeading &heading)
{
    begin(heading.level == 1 ? "h1" : heading.level == 2 ? "h2" : "h3");
    m_xml.writeCharacters(reportText(heading.text));
    if (heading.verdict) {
        m_xml.writeCharacters(QStringLiteral(" ")); // for who copies or hears the text
        begin("span", QStringLiteral("outcome"));
        colour(*heading.verdict);
        m_xml.writeCharacters(reportText(heading.outcome));
        end();
    }
    end();
}

void Page::operator()(const ReportParagraph &paragraph)
{
    begin("p");
    if (paragraph.verdict)
        colour(*paragraph.verdict);
    m_xml.writeCharacters(reportText(paragraph.text));
    end();
}

void Page::cell(const ReportCell &cell, bool isName, bool isRight)
{
    if (cell.bar) {
        begin("td", QStringLiteral("bar"));
        const DeviationBar bar = *cell.bar;
        image(
            kBarSize, [bar](QPainter &painter, const QRectF &area) { paint(painter, area, bar); },
            cell.text);
        end();
        return;
    }
    begin(isName ? "th" : "td",
          cell.verdict  ? QStringLiteral("verdict")
              : isRight ? QStringLiteral("right")
                        : QString());
    if (cell.verdict)
        colour(*cell.verdict);
    m_xml.writeCharacters(reportText(cell.text));
    end();
}

void Page::operator()(const ReportTable &table)
{
    const bool isFacts = table.headings.isEmpty();
    const auto isRight = [&table](int column) {
        return table.headings.value(column).startsWith(QLatin1Char('>'));
    };
    begin("table", isFacts ? QStringLiteral("facts") : QString());
    if (!isFacts) {
        begin("thead");
        begin("tr");
        for (int i = 0; i < table.headings.size(); ++i)
            element("th", table.headings[i].mid(isRight(i) ? 1 : 0),
                    isRight(i) ? QStringLiteral("right") : QString());
        end();
        end();
    }
    begin("tbody");
    for (const QVector<ReportCell> &row : table.rows) {
        m_xml.writeCharacters(QStringLiteral("\n"));
        begin("tr");
        for (int i = 0; i < row.size(); ++i)
            cell(row[i], isFacts && i == 0, isRight(i));
        end();
    }
    end();
    end();
}

void Page::operator()(const ReportPictures &pictures)
{
    begin("div");
    for (const ReportPicture &each : pictures) {
        begin("figure");
        image(each.size, each.paint, each.caption);
        if (!each.caption.isEmpty())
            element("figcaption", each.caption);
        end();
    }
    end();
}

void Page::write(const Report &report)
{
    m_xml.writeDTD(QStringLiteral("<!DOCTYPE html>"));
    begin("html");
    m_xml.writeAttribute(QStringLiteral("lang"), QStringLiteral("en"));
    begin("head");
    m_xml.writeEmptyElement(QStringLiteral("meta"));
    m_xml.writeAttribute(QStringLiteral("charset"), QStringLiteral("utf-8"));
    m_xml.writeEmptyElement(QStringLiteral("meta"));
    m_xml.writeAttribute(QStringLiteral("name"), QStringLiteral("viewport"));
    m_xml.writeAttribute(QStringLiteral("content"), QStringLiteral("width=device-width"));
    element("title", report.title);
    begin("style");
    m_xml.writeCharacters(QLatin1String(kStyle));
    end();
    end();
    begin("body");
    for (const ReportBlock &each : report.blocks) {
        m_xml.writeCharacters(QStringLiteral("\n"));
        std::visit(*this, each);
    }
    element("p", report.footer);
    end();
    end();
    m_xml.writeCharacters(QStringLiteral("\n"));
}

} // namespace

QByteArray toHtml(const Report &report)
{
    QByteArray result;
    QXmlStreamWriter xml(&result);
    Page(xml).write(report);
    return result;
}

} // namespace workbench
