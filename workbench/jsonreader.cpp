#include "workbench/jsonreader.h"

#include "configuration/suggestion.h"
#include "workbench/jsonwords.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <algorithm>
#include <cmath>
#include <limits>

namespace workbench {

namespace {

using namespace jsonwords;

/// The content of the file, or why it is not to be had.
tl::expected<QByteArray, QString> readFile(const QString &path, qint64 mostBytes)
{
    const auto refusal = [](const QString &reason) { return tl::unexpected<QString>(reason); };
    const QFileInfo info(path);
    if (!info.exists())
        return refusal(QStringLiteral("there is no such file"));
    if (!info.isFile())
        return refusal(QStringLiteral("is not a regular file"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return refusal(file.errorString());
    const qint64 most = std::min<qint64>(mostBytes, std::numeric_limits<int>::max() - 2);
    const QByteArray content = file.read(most + 1);
    if (content.size() > most)
        return refusal(QStringLiteral("has %1 bytes; the most is %2")
                           .arg(std::max<qint64>(info.size(), content.size()))
                           .arg(most));
    return content;
}

void sortByPlace(QVector<JsonText::Problem> &notes)
{
    std::stable_sort(notes.begin(), notes.end(),
                     [](const auto &a, const auto &b) { return a.offset < b.offset; });
}

} // namespace

JsonFile::JsonFile(const QString &path, qint64 mostBytes)
    : m_path(path)
{
    const tl::expected<QByteArray, QString> content = readFile(path, mostBytes);
    if (!content) {
        m_errors.add({JsonText::kWholeFile, content.error()});
        return;
    }
    parse(*content);
}

JsonFile::JsonFile(const QString &path, const QByteArray &text)
    : m_path(path)
{
    parse(text);
}

void JsonFile::parse(const QByteArray &text)
{
    if (const std::optional<Note> problem = m_text.parse(text)) {
        m_errors.add(*problem);
        return;
    }
    m_isRead = true;
    for (const Note &each : m_text.repeatedKeys())
        m_errors.add(each);
}

JsonNode JsonFile::root()
{
    return {*this, m_isRead ? 0 : -1, m_isRead ? m_text.root() : QJsonValue()};
}

void JsonFile::Notes::add(const Note &note)
{
    // Who asks an object of the wrong type for several members is told once.
    const auto isSame = [&note](const Note &other) {
        return other.offset == note.offset && other.reason == note.reason;
    };
    if (std::any_of(held.begin(), held.end(), isSame))
        return;
    ++count;
    held.append(note);
    if (held.size() >= 2 * Remarks::kMostShown)
        held = first();
}

void JsonFile::refuse(const Note &note)
{
    ++m_refusals;
    m_errors.add(note);
}

QVector<JsonFile::Note> JsonFile::Notes::first() const
{
    QVector<Note> result = held;
    sortByPlace(result);
    return result.mid(0, Remarks::kMostShown);
}

Remarks JsonFile::remarks() const
{
    struct Told
    {
        Remarks::Remark::Severity severity;
        Note note;
    };
    QVector<Told> told;
    for (const Note &each : m_errors.first())
        told.append({Remarks::Remark::Error, each});
    for (const Note &each : m_warnings.first().mid(0, Remarks::kMostShown - int(told.size())))
        told.append({Remarks::Remark::Warning, each});
    std::stable_sort(told.begin(), told.end(),
                     [](const Told &a, const Told &b) { return a.note.offset < b.note.offset; });
    Remarks result{m_path, {}, m_errors.count, m_warnings.count};
    for (const Told &each : told)
        result.shown.append({each.severity, m_text.placeOf(each.note.offset), each.note.reason});
    return result;
}

JsonNode JsonNode::child(int number, const QString &path, const QJsonValue &value) const
{
    JsonNode result(*m_file, number, value);
    result.m_path = path;
    result.m_name = m_name;
    return result;
}

JsonNode JsonNode::named(const QString &name) const
{
    JsonNode result = *this;
    result.m_name = name;
    return result;
}

QString JsonNode::sentence(const QString &reason) const
{
    if (m_path.isEmpty())
        return reason;
    const QString name = m_name.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(m_name);
    return m_path + name + QStringLiteral(": ") + reason;
}

void JsonNode::refuse(const QString &reason) const
{
    if (!isAbsent())
        m_file->refuse({m_file->m_text.offset(m_number), sentence(reason)});
}

void JsonNode::warn(const QString &reason) const
{
    if (!isAbsent())
        m_file->m_warnings.add({m_file->m_text.offset(m_number), sentence(reason)});
}

void JsonNode::refuseKey(const QString &reason) const
{
    if (!isAbsent())
        m_file->refuse({m_file->m_text.keyOffset(m_number), sentence(reason)});
}

testconfiguration::Place JsonNode::place() const
{
    return isAbsent() ? testconfiguration::Place()
                      : m_file->m_text.placeOf(m_file->m_text.offset(m_number));
}

bool JsonNode::expectType(QJsonValue::Type type) const
{
    if (m_value.type() == type && !isAbsent())
        return true;
    refuse(mustBe(type, m_value.type()));
    return false;
}

void JsonNode::expectKeys(const QStringList &known) const
{
    for (const JsonMember &each : members()) {
        if (!known.contains(each.key))
            each.node.refuseKey(
                QStringLiteral("unknown; known here: %1%2")
                    .arg(quotedList(known), suggestion::didYouMean(each.key, known)));
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
    return optional(key);
}

JsonNode JsonNode::optional(const QString &key) const
{
    return child(has(key) ? m_file->m_text.member(m_number, key) : -1,
                 m_path.isEmpty() ? key : m_path + QLatin1Char('.') + key,
                 m_value.toObject().value(key));
}

QVector<JsonMember> JsonNode::members() const
{
    QVector<JsonMember> result;
    if (!expectType(QJsonValue::Object))
        return result;
    const QJsonObject all = m_value.toObject();
    const QString before = m_path.isEmpty() ? QString() : m_path + QLatin1Char('.');
    for (const int number : m_file->m_text.children(m_number)) {
        const QString key = m_file->m_text.key(number);
        constexpr int kMostOfKey = 64; // characters in a message
        result.append({key, child(number, before + key.left(kMostOfKey), all.value(key))});
    }
    return result;
}

QJsonObject JsonNode::object() const
{
    return expectType(QJsonValue::Object) ? m_value.toObject() : QJsonObject();
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
    const QVector<int> numbers = m_file->m_text.children(m_number);
    QVector<JsonNode> result;
    for (int i = 0; i < count; ++i)
        result.append(child(numbers[i], QStringLiteral("%1[%2]").arg(m_path).arg(i), array[i]));
    return result;
}

double JsonNode::number(double least, double most) const
{
    return number(least, most, least);
}

double JsonNode::number(double least, double most, double fallback) const
{
    if (!expectType(QJsonValue::Double))
        return fallback;
    const double value = m_value.toDouble();
    return expectRange(value, least, most, numberText(value)) ? value : fallback;
}

int JsonNode::integer(int least, int most, int fallback) const
{
    const double value = number(least, most, fallback);
    return expectWhole(value, numberText(value)) ? int(value) : fallback;
}

bool JsonNode::boolean(bool fallback) const
{
    return expectType(QJsonValue::Bool) ? m_value.toBool() : fallback;
}

QString JsonNode::text(const QString &fallback) const
{
    return expectType(QJsonValue::String) ? m_value.toString() : fallback;
}

int JsonNode::choice(const QStringList &words, int fallback) const
{
    if (!expectType(QJsonValue::String))
        return fallback;
    const QString word = m_value.toString();
    const int index = int(words.indexOf(word));
    if (index < 0)
        refuse(QStringLiteral("%1 is unknown; known here: %2%3")
                   .arg(quoted(word), quotedList(words), suggestion::didYouMean(word, words)));
    return index < 0 ? fallback : index;
}

bool JsonNode::expectRange(double value, double least, double most, const QString &shown) const
{
    if (std::isfinite(value) && value >= least && value <= most)
        return true;
    refuse(QStringLiteral("%1 is out of range; allowed is %2 to %3")
               .arg(shown, numberText(least), numberText(most)));
    return false;
}

bool JsonNode::expectWhole(double value, const QString &shown) const
{
    if (value == std::floor(value))
        return true;
    refuse(QStringLiteral("%1 is not a whole number").arg(shown));
    return false;
}

} // namespace workbench
