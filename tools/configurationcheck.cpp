#include "configurationcheck.h"

#include "failures.h"

#include <testconfiguration.h>

#include <QPair>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <array>

using namespace testconfiguration;

namespace {

constexpr int kMaxWarnings = 20;
constexpr int kMaxCommand = 1588; // bytes that fit into one datagram of the link

enum class Format { Text, Mac, Decimal, Hexadecimal };

/// An attribute that the loader reads from the element at a path of lower-case tags.
struct Attribute
{
    const char *path;
    const char *name;
    Format format;
    qint64 least = 0; ///< of a number
    qint64 most = 0;
};

constexpr qint64 kMost16 = 0xffff;
constexpr qint64 kMost32 = 0xffffffff;
constexpr qint64 kMostInt = 0x7fffffff;
constexpr qint64 kMostVlan = 0xfff;

constexpr std::array kAttributes{
    Attribute{"in_smv", "portindex", Format::Decimal, 1, 8},
    Attribute{"in_smv", "mac", Format::Mac},
    Attribute{"in_smv", "vlan", Format::Hexadecimal, 0, kMostVlan},
    Attribute{"in_smv", "priority", Format::Hexadecimal, 0, 7},
    Attribute{"in_smv", "appid", Format::Decimal, 0, kMost16},
    Attribute{"in_smv", "svId", Format::Text},
    Attribute{"in_smv", "confRev", Format::Decimal, 0, kMost32},
    Attribute{"in_smv", "chNums", Format::Decimal, 0, 255},
    Attribute{"in_smv/chninfo", "channel", Format::Text},
    Attribute{"in_smv/chninfo", "quality", Format::Hexadecimal, 0, kMost32},
    Attribute{"in_goose", "portindex", Format::Decimal, 1, 8},
    Attribute{"in_goose/goose", "mac", Format::Mac},
    Attribute{"in_goose/goose", "vLan", Format::Hexadecimal, 0, kMostVlan},
    Attribute{"in_goose/goose", "priority", Format::Hexadecimal, 0, 7},
    Attribute{"in_goose/goose", "appid", Format::Decimal, 0, kMost16},
    Attribute{"in_goose/goose", "gcRef", Format::Text},
    Attribute{"in_goose/goose", "datSet", Format::Text},
    Attribute{"in_goose/goose", "goId", Format::Text},
    Attribute{"in_goose/goose", "confRev", Format::Decimal, 0, 255},
    Attribute{"in_goose/goose", "t0", Format::Decimal, 0, kMostInt / 2},
    Attribute{"in_goose/goose", "datCount", Format::Decimal, 0, kMost16},
    Attribute{"in_goose/mapinfo", "Which", Format::Decimal, 1, 4},
    Attribute{"in_goose/mapinfo", "Pos", Format::Decimal, 1, 255},
    Attribute{"goose", "portIndex", Format::Decimal, 1, 5},
    Attribute{"goose", "appid", Format::Decimal, 0, kMost16},
    Attribute{"goose", "datCount", Format::Decimal, 0, kMost16},
    Attribute{"goose/mapinfo", "Which", Format::Decimal, -kMostInt, kMostInt},
    Attribute{"goose/mapinfo", "Pos", Format::Decimal, 1, kMost16},
};

const char *const kEntryType = "gstype_tp";
constexpr std::array kEntryTypes{1, 2, 3, 4, 5, 7, 12, 13, 15, 16, 137, 141};

/// Checks one file.
class Checker
{
public:
    explicit Checker(const QString &path)
        : m_file(path)
    { }

    QStringList check(int samplesPerSecond);

private:
    void checkStreams(const QDomElement &root, int samplesPerSecond);
    void checkSize(const QDomElement &element, const QByteArray &command) const;
    void refuseFirst(const Remarks &remarks) const;

    void checkAttributes(const QDomElement &parent, const QString &parentPath);
    void checkAttribute(const QDomElement &element, const Attribute &attribute);
    void checkDelay(const QDomElement &channel);
    void checkEntryType(const QDomElement &entry);
    void warnMissing(const QDomElement &element, const QString &name);
    void warn(const QDomElement &element, const QString &text);

    [[nodiscard]] QString at(int line, int column) const;
    [[noreturn]] void refuse(const QDomElement &element, const QString &name,
                             const QString &allowed) const;

    QString m_file;
    QStringList m_warnings;
    QSet<QPair<QString, QString>> m_missing; ///< tags and attributes warned of
};

QStringList Checker::check(int samplesPerSecond)
{
    Remarks remarks;
    const QDomDocument document = readDocument(m_file, remarks);
    refuseFirst(remarks);
    checkAttributes(document.documentElement(), QString());
    checkStreams(document.documentElement(), samplesPerSecond);
    return m_warnings;
}

/// Reads every stream as the loader does.
void Checker::checkStreams(const QDomElement &root, int samplesPerSecond)
{
    Remarks remarks;
    int svStreams = 0;
    int gooseStreams = 0;
    quint8 group = 1;
    quint8 logicChannel = 0;
    bool logicChannelsUsedUp = false;
    quint8 lightGroup[kLightPorts] = {1, 1, 1, 1, 1};
    for (QDomElement child = root.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        GooseDataOffsetAddr record;
        switch (kindOf(child)) {
        case Kind::SvPublication:
            if (const auto stream =
                    readSvPublication(child, svStreams++, samplesPerSecond, remarks))
                checkSize(child, stream->download);
            break;
        case Kind::GoosePublication:
            if (const auto stream = readGoosePublication(child, gooseStreams++, record, remarks))
                checkSize(child, stream->download);
            break;
        case Kind::Subscription:
            if (auto stream = readSubscription(
                    child, {group, logicChannel, logicChannelsUsedUp, lightGroup}, remarks))
                checkSize(child, stream->command.data());
            else if (remarks.isEmpty())
                warn(child, QStringLiteral("goose maps no entry and is skipped"));
            break;
        case Kind::Other:
            warn(child, child.tagName() + QStringLiteral(" is unknown and skipped"));
        }
        refuseFirst(remarks);
    }
}

void Checker::checkSize(const QDomElement &element, const QByteArray &command) const
{
    if (command.size() > kMaxCommand)
        throw InputError{at(element.lineNumber(), element.columnNumber())
                         + QStringLiteral("%1 makes a command of %2 bytes; the most is %3")
                               .arg(element.tagName())
                               .arg(command.size())
                               .arg(kMaxCommand)};
}

void Checker::refuseFirst(const Remarks &remarks) const
{
    if (!remarks.isEmpty())
        throw InputError{at(remarks[0].line, remarks[0].column) + remarks[0].text};
}

/// Checks the elements below \a parent that the loader looks at, which are three deep.
void Checker::checkAttributes(const QDomElement &parent, const QString &parentPath)
{
    for (QDomElement child = parent.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        const QString path = parentPath + child.tagName().toLower();
        for (const Attribute &attribute : kAttributes) {
            if (path == QLatin1String(attribute.path))
                checkAttribute(child, attribute);
        }
        if (path == QLatin1String("in_smv/chninfo"))
            checkDelay(child);
        if (parentPath == QLatin1String("in_goose/goose/"))
            checkEntryType(child);
        else
            checkAttributes(child, path + QLatin1Char('/'));
    }
}

void Checker::checkAttribute(const QDomElement &element, const Attribute &attribute)
{
    const QString name = QLatin1String(attribute.name);
    const QString text = element.attribute(name);
    if (!element.hasAttribute(name))
        warnMissing(element, name);
    if (attribute.format == Format::Text)
        return;
    if (attribute.format == Format::Mac) {
        static const QRegularExpression mac(QStringLiteral("^[0-9A-Fa-f]{2}(-[0-9A-Fa-f]{2}){5}$"));
        if (!mac.match(text).hasMatch())
            refuse(element, name, QStringLiteral("six bytes such as 01-0C-CD-04-00-01"));
        return;
    }
    const int base = attribute.format == Format::Decimal ? 10 : 16;
    bool isNumber = !element.hasAttribute(name);
    const qint64 number = isNumber ? 0 : text.toLongLong(&isNumber, base);
    if (!isNumber || number < attribute.least || number > attribute.most)
        refuse(element, name,
               QStringLiteral("%1 to %2%3")
                   .arg(QString::number(attribute.least, base),
                        QString::number(attribute.most, base).toUpper(),
                        base == 16 ? QStringLiteral(" (hexadecimal)") : QString()));
}

void Checker::checkDelay(const QDomElement &channel)
{
    const QString name = QStringLiteral("delayt");
    const QString channelName = channel.attribute(QStringLiteral("channel")).toUpper();
    if (!channelName.contains(QLatin1String("DELAYT")))
        return;
    bool isNumber = false;
    (void)channel.attribute(name).toInt(&isNumber);
    if (!channel.hasAttribute(name))
        warnMissing(channel, name);
    else if (!isNumber)
        refuse(channel, name, QStringLiteral("a whole number of 32 bits"));
}

void Checker::checkEntryType(const QDomElement &entry)
{
    const int type = entry.attribute(QLatin1String(kEntryType)).toInt();
    if (std::find(kEntryTypes.begin(), kEntryTypes.end(), type) != kEntryTypes.end())
        return;
    QStringList allowed;
    for (const int each : kEntryTypes)
        allowed.append(QString::number(each));
    refuse(entry, QLatin1String(kEntryType), allowed.join(QStringLiteral(", ")));
}

/// Warns once per kind of element.
void Checker::warnMissing(const QDomElement &element, const QString &name)
{
    const QPair<QString, QString> missing(element.tagName(), name);
    if (m_missing.contains(missing))
        return;
    m_missing.insert(missing);
    warn(element,
         QStringLiteral("%1 has no attribute %2 (upper and lower case matter); it counts as empty "
                        "or 0")
             .arg(element.tagName(), name));
}

void Checker::warn(const QDomElement &element, const QString &text)
{
    if (m_warnings.size() < kMaxWarnings)
        m_warnings.append(at(element.lineNumber(), element.columnNumber()) + text);
}

/// "FILE:LINE:COLUMN: "; without a place where there is none.
QString Checker::at(int line, int column) const
{
    if (line < 1)
        return m_file + QStringLiteral(": ");
    return QStringLiteral("%1:%2:%3: ").arg(m_file).arg(line).arg(column);
}

void Checker::refuse(const QDomElement &element, const QString &name, const QString &allowed) const
{
    const QString found = element.hasAttribute(name)
        ? QStringLiteral("is \"%1\"").arg(element.attribute(name))
        : QStringLiteral("is missing (upper and lower case matter)");
    throw InputError{at(element.lineNumber(), element.columnNumber())
                     + QStringLiteral("%1 of %2 %3; allowed is %4")
                           .arg(name, element.tagName(), found, allowed)};
}

} // namespace

QStringList checkConfiguration(const QString &path, int samplesPerSecond)
{
    return Checker(path).check(samplesPerSecond);
}
