#include "workbench/comtrade.h"

#include <QDateTime>
#include <QLocale>
#include <QRegularExpression>
#include <QSet>
#include <QStringList>
#include <QtEndian>

#include <cmath>
#include <limits>

using namespace virtualboard;

namespace workbench {

namespace {

constexpr int kLongestText = 64; // of a name
constexpr int kLongestUnit = 32;
constexpr int kWordBits = 16; // digital channels that share a word

/// The decimal number that is exactly \a value, as short as it can be.
QString number(double value)
{
    return QString::number(value, 'g', QLocale::FloatingPointShortest);
}

QString plainText(const QString &text, int longest = kLongestText)
{
    QString plain;
    for (const QChar c : text) {
        if (!c.isLowSurrogate()) // a character beyond 16 bits counts once
            plain += c == QLatin1Char(',')                  ? QChar(QLatin1Char(' '))
                : c.unicode() >= 0x20 && c.unicode() < 0x7f ? c
                                                            : QChar(QLatin1Char('?'));
    }
    return plain.simplified().left(longest).trimmed();
}

/// Hands out every name once.
class UniqueNames
{
public:
    QString operator()(const QString &text)
    {
        const QString given = plainText(text);
        const QString plain = given.isEmpty() ? QStringLiteral("?") : given;
        QString name = plain;
        for (int i = 2; m_given.contains(name); ++i) {
            const QString suffix = QStringLiteral(" (%1)").arg(i);
            name = plain.left(kLongestText - int(suffix.size())) + suffix;
        }
        m_given.insert(name);
        return name;
    }

private:
    QSet<QString> m_given;
};

bool is1999(const Comtrade &record)
{
    return record.revision == Comtrade::Revision::Y1999;
}

/// "23/11/2026,17:05:00.000250": to the microsecond; since 2013 to the nanosecond.
QString dateAndTime(const Comtrade &record, WallTime time)
{
    const Duration sinceEpoch = time.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const QDateTime date = QDateTime::fromSecsSinceEpoch(seconds.count(), Qt::UTC);
    const QString fraction =
        QStringLiteral("%1").arg((sinceEpoch - seconds).count(), 9, 10, QLatin1Char('0'));
    return date.toString(QStringLiteral("dd/MM/yyyy,HH:mm:ss."))
        + fraction.left(is1999(record) ? 6 : 9);
}

QStringList channelLines(const Comtrade &record)
{
    QStringList lines;
    UniqueNames names;
    for (const Comtrade::Analog &each : record.analogs)
        lines += QStringList{QString::number(lines.size() + 1),
                             names(each.id),
                             plainText(each.phase, 2),
                             plainText(each.component),
                             plainText(each.unit, kLongestUnit),
                             number(each.a),
                             number(each.b),
                             number(each.skew),
                             QString::number(each.min),
                             QString::number(each.max),
                             number(each.primary),
                             number(each.secondary),
                             QLatin1String(each.isPrimary ? "P" : "S")}
                     .join(QLatin1Char(','));
    int digital = 0;
    for (const Comtrade::Digital &each : record.digitals)
        lines += QStringLiteral("%1,%2,,%3,0")
                     .arg(QString::number(++digital), names(each.id), plainText(each.component));
    return lines;
}

} // namespace

qint32 Comtrade::limit() const
{
    return revision == Revision::Y1999 ? std::numeric_limits<qint16>::max()
                                       : std::numeric_limits<qint32>::max();
}

Duration Comtrade::timeUnit() const
{
    return revision == Revision::Y1999 ? Duration(1us) : Duration(1ns);
}

void Comtrade::makeRoomFor(double seconds)
{
    constexpr double kLatest = 0xfffffffe; // the next one marks a time that is missing
    const double units = seconds / std::chrono::duration<double>(timeUnit()).count();
    timeUnits = 1;
    while (units / double(timeUnits) >= kLatest)
        timeUnits *= 10;
}

QByteArray comtradeConfiguration(const Comtrade &record)
{
    const int analogs = int(record.analogs.size());
    const int digitals = int(record.digitals.size());
    QStringList lines{
        QStringLiteral("%1,%2,%3")
            .arg(plainText(record.station), plainText(record.device),
                 QLatin1String(is1999(record) ? "1999" : "2013")),
        QStringLiteral("%1,%2A,%3D").arg(analogs + digitals).arg(analogs).arg(digitals)};
    lines += channelLines(record);
    lines += {number(record.lineFrequency),
              QStringLiteral("1"), // rate
              QStringLiteral("%1,%2").arg(number(record.rate)).arg(record.samples),
              dateAndTime(record, record.start),
              dateAndTime(record, record.trigger),
              QLatin1String(is1999(record) ? "BINARY" : "BINARY32"),
              QString::number(record.timeUnits)};
    if (!is1999(record)) {
        lines += QStringLiteral("0,x"); // times are UTC; where that was is not known
        lines += QStringLiteral("F,3"); // nor how right the clock was, and its leap seconds
    }
    return (lines.join(QStringLiteral("\r\n")) + QStringLiteral("\r\n")).toLatin1();
}

QByteArray comtradeSample(const Comtrade &record, qint64 number,
                          const std::optional<QVector<qint32>> &analogs,
                          const QVector<bool> &digitals)
{
    const bool isShort = is1999(record);
    const int words = (int(digitals.size()) + kWordBits - 1) / kWordBits;
    QByteArray bytes(8 + int(record.analogs.size()) * (isShort ? 2 : 4) + 2 * words, '\0');
    auto *at = reinterpret_cast<uchar *>(bytes.data());
    const double units = std::chrono::duration<double>(record.timeUnit()).count();
    const double time = double(number) / record.rate / units / double(record.timeUnits);
    qToLittleEndian(quint32(number + 1), at);
    qToLittleEndian(quint32(std::llround(time)), at + 4);
    at += 8;
    for (int i = 0; i < int(record.analogs.size()); ++i) {
        const qint32 value = analogs ? analogs->at(i) : -record.limit() - 1;
        if (isShort)
            qToLittleEndian(qint16(value), at);
        else
            qToLittleEndian(value, at);
        at += isShort ? 2 : 4;
    }
    for (int i = 0; i < int(digitals.size()); ++i) {
        if (digitals[i])
            at[i / 8] = uchar(at[i / 8] | 1U << (i % 8)); // low byte first
    }
    return bytes;
}

bool isComtradeConfiguration(const QByteArray &content)
{
    static const QRegularExpression begin(
        QStringLiteral("^[^\\n]*,[^\\n]*\\n\\s*\\d+\\s*,\\s*\\d+\\s*[Aa]\\s*,\\s*\\d+\\s*[Dd]\\s"));
    return begin.match(QString::fromLatin1(content)).hasMatch();
}

} // namespace workbench
