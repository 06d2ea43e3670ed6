#include "jsonnode.h"

#include "failures.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <cctype>
#include <cmath>

namespace {

constexpr qint64 kMaxFileSize = 1024 * 1024;

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

QByteArray readFile(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists())
        throw InputError{path + QStringLiteral(": there is no such file")};
    if (!info.isFile())
        throw InputError{path + QStringLiteral(": is not a regular file")};
    if (info.size() > kMaxFileSize)
        throw InputError{
            path
            + QStringLiteral(": has %1 bytes; the most is %2").arg(info.size()).arg(kMaxFileSize)};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw InputError{path + QStringLiteral(": ") + file.errorString()};
    return file.read(kMaxFileSize);
}

/// "FILE:LINE:COLUMN: reason" for the byte at \a offset; both count from 1, columns in characters.
InputError errorAt(const QString &path, const QByteArray &json, int offset, const QString &reason)
{
    const QByteArray before = json.left(offset);
    const int line = static_cast<int>(before.count('\n')) + 1;
    const QByteArray lineStart = before.mid(before.lastIndexOf('\n') + 1);
    const int column = static_cast<int>(QString::fromUtf8(lineStart).size()) + 1;
    return {QStringLiteral("%1:%2:%3: %4").arg(path).arg(line).arg(column).arg(reason)};
}

/// End of the string that begins with the quotation mark at \a begin: the index behind the other.
int endOfString(const QByteArray &json, int begin)
{
    int i = begin + 1;
    while (i < json.size() && json[i] != '"')
        i += json[i] == '\\' ? 2 : 1;
    return i + 1;
}

/// Refuses an object that has one key twice; QJsonDocument would keep the last one silently. The
/// text is well-formed JSON.
void refuseRepeatedKeys(const QString &path, const QByteArray &json)
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
            throw errorAt(path, json, begin,
                          QStringLiteral("\"%1\" is given twice").arg(QString::fromUtf8(text)));
        open.last().insert(text);
    }
}

} // namespace

JsonNode::JsonNode(const QString &file, const QString &place, const QJsonValue &value)
    : m_file(file)
    , m_place(place)
    , m_value(value)
{ }

JsonNode JsonNode::fromFile(const QString &path)
{
    const QByteArray json = readFile(path);
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        throw errorAt(path, json, error.offset, error.errorString());
    refuseRepeatedKeys(path, json);
    const QJsonValue root =
        document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
    return JsonNode(path, QString(), root);
}

void JsonNode::refuse(const QString &reason) const
{
    const QString colon = QStringLiteral(": ");
    throw InputError{m_file + (m_place.isEmpty() ? QString() : colon + m_place) + colon + reason};
}

void JsonNode::expectType(QJsonValue::Type type) const
{
    if (m_value.type() != type)
        refuse(QStringLiteral("must be %1, not %2").arg(typeName(type), typeName(m_value.type())));
}

void JsonNode::expectRange(double least, double most) const
{
    expectType(QJsonValue::Double);
    const double value = m_value.toDouble();
    if (!std::isfinite(value) || value < least || value > most)
        refuse(QStringLiteral("%1 is out of range; allowed is %2 to %3")
                   .arg(numberText(value), numberText(least), numberText(most)));
}

void JsonNode::expectKeys(const QStringList &known) const
{
    expectType(QJsonValue::Object);
    for (const QString &key : keys()) {
        if (!known.contains(key))
            (*this)[key].refuse(QStringLiteral("unknown; known here: ") + quotedList(known));
    }
}

bool JsonNode::has(const QString &key) const
{
    return m_value.toObject().contains(key);
}

JsonNode JsonNode::operator[](const QString &key) const
{
    expectType(QJsonValue::Object);
    const QString place = m_place.isEmpty() ? key : m_place + QLatin1Char('.') + key;
    if (!has(key))
        refuse(QStringLiteral("\"%1\" is missing").arg(key));
    return JsonNode(m_file, place, m_value.toObject().value(key));
}

QStringList JsonNode::keys() const
{
    return m_value.toObject().keys();
}

QVector<JsonNode> JsonNode::elements(int least, int most) const
{
    expectType(QJsonValue::Array);
    const QJsonArray array = m_value.toArray();
    const int count = static_cast<int>(array.size());
    if (count < least || count > most) {
        const QString allowed = least == most ? QString::number(least)
                                              : QStringLiteral("%1 to %2").arg(least).arg(most);
        refuse(QStringLiteral("has %1 elements; allowed is %2").arg(count).arg(allowed));
    }
    QVector<JsonNode> result;
    for (int i = 0; i < count; ++i)
        result.append(JsonNode(m_file, QStringLiteral("%1[%2]").arg(m_place).arg(i), array[i]));
    return result;
}

double JsonNode::number(double least, double most) const
{
    expectRange(least, most);
    return m_value.toDouble();
}

int JsonNode::integer(int least, int most) const
{
    expectRange(least, most);
    const double value = m_value.toDouble();
    if (value != std::floor(value))
        refuse(QStringLiteral("%1 is not a whole number").arg(numberText(value)));
    return static_cast<int>(value);
}

bool JsonNode::boolean() const
{
    expectType(QJsonValue::Bool);
    return m_value.toBool();
}

QString JsonNode::text() const
{
    expectType(QJsonValue::String);
    return m_value.toString();
}

int JsonNode::choice(const QStringList &words) const
{
    const int index = static_cast<int>(words.indexOf(text()));
    if (index < 0)
        refuse(QStringLiteral("\"%1\" is unknown; known here: %2").arg(text(), quotedList(words)));
    return index;
}
