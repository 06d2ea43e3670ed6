#include "workbench/jsonwords.h"

namespace workbench::jsonwords {

QString nameOf(QJsonValue::Type type)
{
    switch (type) {
    case QJsonValue::Bool:
        return QStringLiteral("true or false");
    case QJsonValue::Double:
        return QStringLiteral("a number");
    case QJsonValue::String:
        return QStringLiteral("a text");
    case QJsonValue::Array:
        return QStringLiteral("a list");
    case QJsonValue::Object:
        return QStringLiteral("an object");
    default:
        return QStringLiteral("null");
    }
}

QString mustBe(QJsonValue::Type expected, QJsonValue::Type found)
{
    return QStringLiteral("must be %1, not %2").arg(nameOf(expected), nameOf(found));
}

QString numberText(double value)
{
    return QString::number(value, 'g', 10);
}

QString quoted(const QString &text)
{
    constexpr int kMost = 64; // characters; a text may be as long as the file
    const bool isLong = text.size() > kMost;
    return QLatin1Char('"') + (isLong ? text.left(kMost) + QStringLiteral("...") : text)
        + QLatin1Char('"');
}

QString quotedList(const QStringList &words)
{
    QStringList all;
    for (const QString &each : words)
        all += quoted(each);
    return all.join(QStringLiteral(", "));
}

} // namespace workbench::jsonwords
