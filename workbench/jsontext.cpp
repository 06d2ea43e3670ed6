#include "workbench/jsontext.h"

#include "workbench/jsonwords.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <cstring>

namespace workbench {

namespace {

constexpr int kMostRepeatedKeys = 1000;

/// End of the string that begins with the quotation mark at \a begin: the index behind the other.
int endOfString(const QByteArray &json, int begin)
{
    int i = begin + 1;
    while (i < json.size() && json[i] != '"')
        i += json[i] == '\\' ? 2 : 1;
    return i + 1;
}

bool isOneOf(const char *characters, char c)
{
    return std::strchr(characters, c) != nullptr;
}

/// End of the number, true, false or null that begins at \a begin.
int endOfWord(const QByteArray &json, int begin)
{
    int i = begin;
    while (i < json.size() && !isOneOf(",]} \t\r\n", json[i]))
        ++i;
    return i;
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

/// \a json with nothing in its texts, one character per byte.
QString outsideOfTexts(const QByteArray &json)
{
    QByteArray outside = json;
    for (int i = 0; i < outside.size(); ++i) {
        if (outside[i] != '"')
            continue;
        const int end = std::min(endOfString(json, i), int(json.size()));
        for (++i; i < end - 1; ++i)
            outside[i] = ' ';
    }
    return QString::fromLatin1(outside);
}

/// What \a json, which the parser refuses, is as a whole; nothing if it looks like JSON.
std::optional<QString> whatElseItIs(const QByteArray &json)
{
    const QByteArray trimmed = json.trimmed();
    if (trimmed.isEmpty())
        return QStringLiteral("is empty");
    if (json.startsWith("\xff\xfe") || json.startsWith("\xfe\xff") || json.left(2).contains('\0'))
        return QStringLiteral("is in UTF-16; a JSON file is in UTF-8");
    if (trimmed.startsWith('<'))
        return QStringLiteral("is XML, not JSON");
    const QJsonDocument inList = QJsonDocument::fromJson('[' + json + ']');
    if (!trimmed.startsWith('{') && !trimmed.startsWith('[') && inList.isArray())
        return jsonwords::mustBe(QJsonValue::Object, inList.array().first().type());
    return std::nullopt;
}

/// Why \a json, which the parser refuses for \a error, is none.
JsonText::Problem whyNoJson(const QByteArray &json, const QJsonParseError &error)
{
    if (const std::optional<QString> whole = whatElseItIs(json))
        return {JsonText::kWholeFile, *whole};
    const QString outside = outsideOfTexts(json);
    for (const NoJson &each : foreignWays()) {
        const QRegularExpressionMatch match = each.pattern.match(outside);
        if (match.hasMatch())
            return {int(match.capturedStart(std::min(1, match.lastCapturedIndex()))), each.reason};
    }
    return {error.offset, error.errorString()};
}

} // namespace

std::optional<JsonText::Problem> JsonText::parse(const QByteArray &text)
{
    m_text = text;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError)
        return whyNoJson(text, error);
    m_root = document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
    scan();
    return std::nullopt;
}

/// The parser has found the text to be well-formed, and nested not too deeply.
void JsonText::scan()
{
    struct Open
    {
        int number;
        QSet<QString> keys; // so far
    };
    QVector<Open> open;
    int key = -1; // of the value that comes next
    for (int i = 0; i < m_text.size(); ++i) {
        const char c = m_text[i];
        if (c == '}' || c == ']') {
            m_values[open.takeLast().number].next = int(m_values.size());
        } else if (c == '"' && key < 0 && !open.isEmpty()
                   && m_text[m_values[open.last().number].offset] == '{') {
            key = i;
            i = endOfString(m_text, i) - 1;
            const QString text = textAt(key);
            if (open.last().keys.contains(text) && m_repeatedKeys.size() < kMostRepeatedKeys)
                m_repeatedKeys.append(
                    {key, jsonwords::quoted(text) + QStringLiteral(" is given twice")});
            open.last().keys.insert(text);
        } else if (!isOneOf(",: \t\r\n\xef\xbb\xbf", c)) { // also a byte order mark
            m_values.append(Value{i, key, int(m_values.size()) + 1});
            key = -1;
            if (c == '{' || c == '[')
                open.append(Open{int(m_values.size()) - 1, {}});
            else
                i = (c == '"' ? endOfString(m_text, i) : endOfWord(m_text, i)) - 1;
        }
    }
}

QString JsonText::textAt(int offset) const
{
    const QByteArray quoted = m_text.mid(offset, endOfString(m_text, offset) - offset);
    if (quoted.contains('\\'))
        return QJsonDocument::fromJson('[' + quoted + ']').array().first().toString();
    return QString::fromUtf8(quoted.mid(1, quoted.size() - 2));
}

QVector<int> JsonText::children(int number) const
{
    QVector<int> result;
    for (int i = number + 1; i < m_values[number].next; i = m_values[i].next)
        result += i;
    return result;
}

int JsonText::member(int number, const QString &key) const
{
    int result = -1;
    for (int i = number + 1; i < m_values[number].next; i = m_values[i].next) {
        if (this->key(i) == key)
            result = i; // the last one counts
    }
    return result;
}

testconfiguration::Place JsonText::placeOf(int offset) const
{
    if (offset < 0)
        return {};
    const char *const text = m_text.constData();
    const int lineStart = offset == 0 ? 0 : int(m_text.lastIndexOf('\n', offset - 1)) + 1;
    const QString before = QString::fromUtf8(text + lineStart, offset - lineStart);
    return {int(std::count(text, text + lineStart, '\n')) + 1, int(before.size()) + 1};
}

} // namespace workbench
