#include "workbench/junit.h"

#include <QXmlStreamWriter>

#include <algorithm>
#include <cmath>

namespace workbench {

namespace {

/// Whether XML 1.0 can have the character at \a index, alone or as a half of a pair.
bool isAllowed(const QString &text, int index)
{
    const QChar c = text[index];
    if (c.isHighSurrogate())
        return index + 1 < text.size() && text[index + 1].isLowSurrogate();
    if (c.isLowSurrogate())
        return index > 0 && text[index - 1].isHighSurrogate();
    const ushort code = c.unicode();
    return code >= 0x20 ? code < 0xfffe : code == '\t' || code == '\n' || code == '\r';
}

QString clean(const QString &text)
{
    QString result = text;
    for (int i = 0; i < text.size(); ++i) {
        if (!isAllowed(text, i))
            result[i] = QLatin1Char('?');
    }
    return result;
}

/// 0 for what is no duration.
double duration(double seconds)
{
    return std::isfinite(seconds) ? std::max(seconds, 0.0) : 0.0;
}

QString secondsText(double seconds)
{
    return QString::number(duration(seconds), 'f', 3);
}

void writeAttribute(QXmlStreamWriter &xml, const char *name, const QString &value)
{
    xml.writeAttribute(QLatin1String(name), clean(value));
}

void writeCase(QXmlStreamWriter &xml, const JUnitCase &one)
{
    xml.writeStartElement(QStringLiteral("testcase"));
    writeAttribute(xml, "name", one.name);
    writeAttribute(xml, "classname", one.className);
    writeAttribute(xml, "time", secondsText(one.seconds));
    if (one.outcome != JUnitCase::Passed) {
        constexpr const char *kElements[] = {"", "failure", "error", "skipped"};
        xml.writeStartElement(QLatin1String(kElements[one.outcome]));
        writeAttribute(xml, "message", one.message);
        if (one.outcome != JUnitCase::Skipped)
            writeAttribute(xml, "type", QLatin1String(kElements[one.outcome]));
        if (!one.details.isEmpty())
            xml.writeCharacters(clean(one.details));
        xml.writeEndElement();
    }
    xml.writeEndElement();
}

void writeSuite(QXmlStreamWriter &xml, const JUnitSuite &suite, int id)
{
    const auto count = [&](JUnitCase::Outcome outcome) {
        return QString::number(
            std::count_if(suite.cases.begin(), suite.cases.end(),
                          [&](const JUnitCase &one) { return one.outcome == outcome; }));
    };
    double seconds = 0;
    for (const JUnitCase &one : suite.cases)
        seconds += duration(one.seconds);
    const QDateTime started =
        suite.started.isValid() ? suite.started.toUTC() : QDateTime::fromMSecsSinceEpoch(0).toUTC();

    xml.writeStartElement(QStringLiteral("testsuite"));
    writeAttribute(xml, "id", QString::number(id));
    writeAttribute(xml, "package", suite.name);
    writeAttribute(xml, "name", suite.name);
    writeAttribute(xml, "timestamp", started.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss")));
    writeAttribute(xml, "hostname",
                   suite.host.isEmpty() ? QStringLiteral("localhost") : suite.host);
    writeAttribute(xml, "tests", QString::number(suite.cases.size()));
    writeAttribute(xml, "failures", count(JUnitCase::Failed));
    writeAttribute(xml, "errors", count(JUnitCase::Error));
    writeAttribute(xml, "skipped", count(JUnitCase::Skipped));
    writeAttribute(xml, "time", secondsText(seconds));
    xml.writeEmptyElement(QStringLiteral("properties"));
    for (const JUnitCase &one : suite.cases)
        writeCase(xml, one);
    xml.writeEmptyElement(QStringLiteral("system-out"));
    xml.writeEmptyElement(QStringLiteral("system-err"));
    xml.writeEndElement();
}

} // namespace

QByteArray toJUnit(const QVector<JUnitSuite> &suites)
{
    QByteArray result;
    QXmlStreamWriter xml(&result);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(QStringLiteral("testsuites"));
    for (int i = 0; i < suites.size(); ++i)
        writeSuite(xml, suites[i], i);
    xml.writeEndElement();
    xml.writeEndDocument();
    return result;
}

} // namespace workbench
