#include "workbench/jsonreader.h"

#include "configuration/suggestion.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <cctype>
#include <cmath>

namespace workbench {

namespace {

constexpr qint64 kMaxFileSize = qint64(1024) * 1024;

QString typeName(QJsonValue::Type type)
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

QString numberText(double value)
{
    return QString::number(value, 'g', 10);
}

QString quotedList(const QStringList &words)
{
    return QLatin1Char('"') + words.join(QStringLiteral("\", \"")) + QLatin1Char('"');
}

Expected<QByteArray> readFile(const QString &path)
{
    const QFileInfo info(path);
    const auto refusal = [&path](const QString &reason) {
        return failure(Failure::Input, path + QStringLiteral(": ") + reason);
    };
    if (!info.exists())
        return refusal(QStringLiteral("there is no such file"));
    if (!info.isFile())
        return refusal(QStringLiteral("is not a regular file"));
    if (info.size() > kMaxFileSize)
        return refusal(
            QStringLiteral("has %1 bytes; the most is %2").arg(info.size()).arg(kMaxFileSize));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return refusal(file.errorString());
    return file.read(kMaxFileSize);
}

/// "LINE:COLUMN: reason" for the byte at \a offset; both count from 1, columns in characters.
QString errorAt(const QByteArray &json, int offset, const QString &reason)
{
    const QByteArray before = json.left(offset);
    const int line = int(before.count('\n')) + 1;
    const QByteArray lineStart = before.mid(before.lastIndexOf('\n') + 1);
    const int column = int(QString::fromUtf8(lineStart).size()) + 1;
    return QStringLiteral("%1:%2: %3").arg(line).arg(column).arg(reason);
}

/// End of the string that begins with the quotation mark at \a begin: the index behind the other.
int endOfString(const QByteArray &json, int begin)
{
    int i = begin + 1;
    while (i < json.size() && json[i] != '"')
        i += json[i] == '\\' ? 2 : 1;
    return i + 1;
}

/// What is wrong with an object that has one key twice, of which QJsonDocument would keep the last
/// one silently; nothing if there is none. The text is well-formed JSON.
std::optional<QString> repeatedKey(const QByteArray &json)
{
    QVector<QSet<QByteArray>> open; // keys so far of the objects around i
    for (int i = 0; i < json.size(); ++i) {
        if (json[i] == '{')
            open.append(QSet<QByteArray>());
        else if (json[i] == '}')
            open.removeLast();
        if (json[i] != '"')
            continue;
        const int begin = i;
        i = endOfString(json, begin);
        const QByteArray text = json.mid(begin + 1, i - begin - 2);
        while (i < json.size() && std::isspace(static_cast<unsigned char>(json[i])))
            ++i;
        if (i >= json.size() || json[i] != ':') {
            --i; // a value, not a key
            continue;
        }
        if (open.last().contains(text))
            return errorAt(json, begin,
                           QStringLiteral("\"%1\" is given twice").arg(QString::fromUtf8(text)));
        open.last().insert(text);
    }
    return std::nullopt;
}

/// What somebody wrote who is used to something else; `pattern` is looked for outside texts.
struct NoJson
{
    QRegularExpression pattern;
    QString reason;
};

const QVector<NoJson> &foreignWays()
{
    static const QVector<NoJson> all = {
        {QRegularExpression(QStringLiteral("//|/\\*|#")),
         QStringLiteral("JSON has no comments; \"description\" is for remarks")},
        {QRegularExpression(QStringLiteral(":\\s*-?\\d+(?<comma>,)\\d+\\s*[,}\\]]")),
         QStringLiteral("a decimal comma; numbers are written with a point")},
        {QRegularExpression(QStringLiteral("(?<![\\d.eE+-])-?(?<zero>0)\\d")),
         QStringLiteral("a number with a leading zero")},
        {QRegularExpression(QStringLiteral("'")),
         QStringLiteral("texts stand in double quotation marks")},
        {QRegularExpression(QStringLiteral(",(?=\\s*[}\\]])")),
         QStringLiteral("a comma with nothing behind it")},
    };
    return all;
}

/// Why \a json, which the parser refuses at \a offset for \a parsersReason, is none; begins with
/// the place.
QString whyNoJson(const QByteArray &json, int offset, const QString &parsersReason)
{
    const QByteArray trimmed = json.trimmed();
    if (trimmed.isEmpty())
        return QStringLiteral(" is empty");
    if (json.startsWith("\xff\xfe") || json.startsWith("\xfe\xff") || json.left(2).contains('\0'))
        return QStringLiteral(" is in UTF-16; a JSON file is in UTF-8");
    if (trimmed.startsWith('<'))
        return QStringLiteral(" is XML, not JSON");
    if (!trimmed.startsWith('{') && !trimmed.startsWith('[')
        && QJsonDocument::fromJson('[' + json + ']').isArray())
        return QStringLiteral(": must be an object, not ")
            + typeName(QJsonDocument::fromJson('[' + json + ']').array().first().type());

    QByteArray outside = json; // with nothing in its texts
    for (int i = 0; i < outside.size(); ++i) {
        if (outside[i] != '"')
            continue;
        const int end = std::min(endOfString(json, i), int(json.size()));
        for (++i; i < end - 1; ++i)
            outside[i] = ' ';
    }
    const QString searched = QString::fromLatin1(outside); // one character per byte
    for (const NoJson &each : foreignWays()) {
        const QRegularExpressionMatch match = each.pattern.match(searched);
        if (match.hasMatch())
            return QLatin1Char(':')
                + errorAt(json, int(match.capturedStart(std::min(1, match.lastCapturedIndex()))),
                          each.reason);
    }
    return QLatin1Char(':') + errorAt(json, offset, parsersReason);
}

} // namespace

JsonReader::JsonReader(const QString &path)
    : m_path(path)
{
    const Expected<QByteArray> json = readFile(path);
    if (!json) {
        m_failure = json.error();
        return;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(*json, &error);
    if (error.error != QJsonParseError::NoError)
        fail(whyNoJson(*json, error.offset, error.errorString()));
    else if (const std::optional<QString> repeated = repeatedKey(*json))
        fail(QLatin1Char(':') + *repeated);
    m_root = document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
}

void JsonReader::fail(const QString &placeAndReason)
{
    if (!m_failure)
        m_failure = Failure{Failure::Input, m_path + placeAndReason};
}

JsonNode::JsonNode(JsonReader &reader, const QString &place, const QJsonValue &value)
    : m_reader(&reader)
    , m_place(place)
    , m_value(value)
{ }

void JsonNode::refuse(const QString &reason) const
{
    const QString colon = QStringLiteral(": ");
    m_reader->fail((m_place.isEmpty() ? QString() : colon + m_place) + colon + reason);
}

bool JsonNode::expectType(QJsonValue::Type type) const
{
    if (m_value.type() == type)
        return true;
    refuse(QStringLiteral("must be %1, not %2").arg(typeName(type), typeName(m_value.type())));
    return false;
}

void JsonNode::expectKeys(const QStringList &known) const
{
    expectType(QJsonValue::Object);
    for (const QString &key : m_value.toObject().keys()) {
        if (!known.contains(key))
            (*this)[key].refuse(QStringLiteral("unknown; known here: %1%2")
                                    .arg(quotedList(known), suggestion::didYouMean(key, known)));
    }
}

bool JsonNode::has(const QString &key) const
{
    return m_value.toObject().contains(key);
}

JsonNode JsonNode::operator[](const QString &key) const
{
    if (expectType(QJsonValue::Object) && !has(key))
        refuse(QStringLiteral("\"%1\" is missing").arg(key));
    return {*m_reader, m_place.isEmpty() ? key : m_place + QLatin1Char('.') + key,
            m_value.toObject().value(key)};
}

QVector<JsonNode> JsonNode::elements(int least, int most) const
{
    if (!expectType(QJsonValue::Array))
        return {};
    const QJsonArray array = m_value.toArray();
    const int count = int(array.size());
    if (count < least || count > most) {
        const QString allowed = least == most ? QString::number(least)
                                              : QStringLiteral("%1 to %2").arg(least).arg(most);
        refuse(QStringLiteral("has %1 elements; allowed is %2").arg(count).arg(allowed));
        return {};
    }
    QVector<JsonNode> result;
    for (int i = 0; i < count; ++i)
        result.append({*m_reader, QStringLiteral("%1[%2]").arg(m_place).arg(i), array[i]});
    return result;
}

double JsonNode::number(double least, double most) const
{
    if (!expectType(QJsonValue::Double))
        return least;
    const double value = m_value.toDouble();
    if (std::isfinite(value) && value >= least && value <= most)
        return value;
    refuse(QStringLiteral("%1 is out of range; allowed is %2 to %3")
               .arg(numberText(value), numberText(least), numberText(most)));
    return least;
}

int JsonNode::integer(int least, int most) const
{
    const double value = number(least, most);
    if (value != std::floor(value))
        refuse(QStringLiteral("%1 is not a whole number").arg(numberText(value)));
    return int(value);
}

bool JsonNode::boolean() const
{
    return expectType(QJsonValue::Bool) && m_value.toBool();
}

QString JsonNode::text() const
{
    expectType(QJsonValue::String);
    return m_value.toString();
}

int JsonNode::choice(const QStringList &words) const
{
    const QString word = text();
    const int index = int(words.indexOf(word));
    if (index < 0)
        refuse(QStringLiteral("\"%1\" is unknown; known here: %2%3")
                   .arg(word, quotedList(words), suggestion::didYouMean(word, words)));
    return std::max(index, 0);
}

} // namespace workbench
