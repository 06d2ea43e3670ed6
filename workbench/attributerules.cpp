#include "attributerules.h"

#include <QRegularExpression>

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

using testconfiguration::Remark;

namespace {

enum class Format { Text, Identifier, Mac, Decimal, Hexadecimal };

/// An attribute that the loader reads from the elements at a path of lower-case tags below the
/// root.
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
constexpr qint64 kLeastInt = std::numeric_limits<int>::min();
constexpr qint64 kMostInt = std::numeric_limits<int>::max();
constexpr qint64 kMostVlan = 0xfff;

// A number from kLeastInt to kMostInt is one whose range is the loader's business.
constexpr std::array kAttributes{
    Attribute{"in_smv", "portindex", Format::Decimal, 1, 8},
    Attribute{"in_smv", "mac", Format::Mac},
    Attribute{"in_smv", "vlan", Format::Hexadecimal, 0, kMostVlan},
    Attribute{"in_smv", "priority", Format::Hexadecimal, 0, 7},
    Attribute{"in_smv", "appid", Format::Decimal, 0, kMost16},
    Attribute{"in_smv", "svId", Format::Identifier},
    Attribute{"in_smv", "confRev", Format::Decimal, 0, kMost32},
    Attribute{"in_smv", "chNums", Format::Decimal, kLeastInt, kMostInt},
    Attribute{"in_smv/chninfo", "channel", Format::Text},
    Attribute{"in_smv/chninfo", "quality", Format::Hexadecimal, 0, kMost32},
    Attribute{"in_smv/chninfo", "delayt", Format::Decimal, kLeastInt, kMostInt},
    Attribute{"in_goose", "portindex", Format::Decimal, 1, 8},
    Attribute{"in_goose/goose", "mac", Format::Mac},
    Attribute{"in_goose/goose", "vLan", Format::Hexadecimal, 0, kMostVlan},
    Attribute{"in_goose/goose", "priority", Format::Hexadecimal, 0, 7},
    Attribute{"in_goose/goose", "appid", Format::Decimal, 0, kMost16},
    Attribute{"in_goose/goose", "gcRef", Format::Identifier},
    Attribute{"in_goose/goose", "datSet", Format::Identifier},
    Attribute{"in_goose/goose", "goId", Format::Identifier},
    Attribute{"in_goose/goose", "confRev", Format::Decimal, 0, 255},
    Attribute{"in_goose/goose", "t0", Format::Decimal, 0, kMost32 / 2},
    Attribute{"in_goose/goose", "datCount", Format::Decimal, kLeastInt, kMostInt},
    Attribute{"in_goose/goose/*", "gstype_tp", Format::Decimal, 1, kMostInt},
    Attribute{"in_goose/mapinfo", "Which", Format::Decimal, kLeastInt, kMostInt},
    Attribute{"in_goose/mapinfo", "Pos", Format::Decimal, kLeastInt, kMostInt},
    Attribute{"goose", "portIndex", Format::Decimal, kLeastInt, kMostInt},
    Attribute{"goose", "appid", Format::Decimal, 0, kMost16},
    Attribute{"goose", "datCount", Format::Decimal, kLeastInt, kMostInt},
    Attribute{"goose/mapinfo", "Which", Format::Decimal, kLeastInt, kMostInt},
    Attribute{"goose/mapinfo", "Pos", Format::Decimal, kLeastInt, kMostInt},
};

const QString kDescription = QStringLiteral("desc"); // for the reader, in any element

constexpr int kLongestIdentifier = 129; // characters (IEC 61850-7-2)

/// The attribute read at \a path whose name differs from \a name in upper and lower case; or empty.
QString similar(const QString &path, const QString &name)
{
    for (const Attribute &each : kAttributes) {
        if (path == QLatin1String(each.path)
            && name.compare(QLatin1String(each.name), Qt::CaseInsensitive) == 0)
            return QLatin1String(each.name);
    }
    return {};
}

/// The loader reads it in delay channels only.
bool isDelayOfOtherChannel(const QDomElement &element, const QString &name)
{
    return name == QLatin1String("delayt")
        && !element.attribute(QStringLiteral("channel"))
                .contains(QLatin1String("DELAYT"), Qt::CaseInsensitive);
}

/// One finding about an attribute.
struct Finding
{
    Remark::Severity severity;
    QString text;
};

using Findings = QVector<Finding>;

QString range(const Attribute &attribute)
{
    if (attribute.most == kMostInt && attribute.least != 0)
        return attribute.least > 0 ? QStringLiteral("a whole number above 0")
                                   : QStringLiteral("a whole number");
    const int base = attribute.format == Format::Decimal ? 10 : 16;
    return QStringLiteral("%1 to %2, %3")
        .arg(QString::number(attribute.least, base),
             QString::number(attribute.most, base).toUpper(),
             base == 10 ? QStringLiteral("decimal") : QStringLiteral("hexadecimal"));
}

Findings checkNumber(const Attribute &attribute, const QString &text)
{
    bool isNumber = false;
    const qint64 number = text.toLongLong(&isNumber, attribute.format == Format::Decimal ? 10 : 16);
    if (isNumber && number >= attribute.least && number <= attribute.most)
        return {};
    return {
        {Remark::Error, QStringLiteral("is \"%1\"; allowed is %2").arg(text, range(attribute))}};
}

Findings checkMac(const QString &text)
{
    static const QRegularExpression usual(QStringLiteral("^[0-9A-Fa-f]{2}(-[0-9A-Fa-f]{2}){5}$"));
    static const QRegularExpression readable(
        QStringLiteral("^\\s*[0-9A-Fa-f]{2}([-:. ]?[0-9A-Fa-f]{2}){5}\\s*$"));
    if (usual.match(text).hasMatch())
        return {};
    const auto severity = readable.match(text).hasMatch() ? Remark::Warning : Remark::Error;
    return {{severity,
             QStringLiteral("is \"%1\"; usual is six bytes such as 01-0C-CD-04-00-01").arg(text)}};
}

Findings checkIdentifier(const QString &text)
{
    Findings findings;
    if (text.size() > kLongestIdentifier)
        findings.append({Remark::Warning,
                         QStringLiteral("has %1 characters; IEC 61850-7-2 allows %2")
                             .arg(text.size())
                             .arg(kLongestIdentifier)});
    if (std::any_of(text.begin(), text.end(),
                    [](QChar c) { return c < QLatin1Char(' ') || c > QLatin1Char('~'); }))
        findings.append(
            {Remark::Warning,
             QStringLiteral("is \"%1\", which has characters besides printable ASCII").arg(text)});
    return findings;
}

/// Checks a text that is not empty.
Findings checkValue(const Attribute &attribute, const QString &text)
{
    switch (attribute.format) {
    case Format::Text:
        return {};
    case Format::Identifier:
        return checkIdentifier(text);
    case Format::Mac:
        return checkMac(text);
    case Format::Decimal:
    case Format::Hexadecimal:
        break;
    }
    return checkNumber(attribute, text);
}

/// What it means that the text is empty or not there.
Finding checkEmpty(const Attribute &attribute, const QString &state)
{
    switch (attribute.format) {
    case Format::Text:
    case Format::Identifier:
        return {Remark::Warning, state};
    case Format::Mac:
        return {Remark::Error,
                state + QStringLiteral("; usual is six bytes such as 01-0C-CD-04-00-01")};
    case Format::Decimal:
    case Format::Hexadecimal:
        break;
    }
    const QString counts = state + QStringLiteral(" and counts as 0");
    if (attribute.least <= 0)
        return {Remark::Warning, counts};
    return {Remark::Error, counts + QStringLiteral("; allowed is ") + range(attribute)};
}

} // namespace

void AttributeRules::checkRoot(const QDomElement &root)
{
    checkUnknown(root, QString());
}

void AttributeRules::checkStream(const QDomElement &child)
{
    checkTag(child, child.tagName().toLower());
}

/// Checks \a element if the loader looks at elements of its \a path, and those below it.
void AttributeRules::checkTag(const QDomElement &element, const QString &path)
{
    const bool known =
        std::any_of(kAttributes.begin(), kAttributes.end(),
                    [&path](const Attribute &each) { return path == QLatin1String(each.path); });
    if (!known) {
        m_problems.add(
            Remark::Warning, element,
            QStringLiteral("element %1 is unknown here and skipped").arg(element.tagName()));
        return;
    }
    checkElement(element, path);
    for (QDomElement child = element.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        const bool isEntry = path == QLatin1String("in_goose/goose");
        checkTag(child,
                 path + QLatin1Char('/')
                     + (isEntry ? QStringLiteral("*") : child.tagName().toLower()));
    }
}

void AttributeRules::checkElement(const QDomElement &element, const QString &path)
{
    for (const Attribute &attribute : kAttributes) {
        const QString name = QLatin1String(attribute.name);
        if (path != QLatin1String(attribute.path) || isDelayOfOtherChannel(element, name))
            continue;
        const QString text = element.attribute(name);
        Findings findings;
        if (!element.hasAttribute(name))
            findings = {checkEmpty(attribute, QStringLiteral("is missing"))};
        else if (text.isEmpty())
            findings = {checkEmpty(attribute, QStringLiteral("is empty"))};
        else
            findings = checkValue(attribute, text);
        for (const Finding &each : std::as_const(findings))
            m_problems.add(each.severity, element,
                           QStringLiteral("%1 of %2 %3").arg(name, element.tagName(), each.text),
                           name);
    }
    checkUnknown(element, path);
}

/// Names the attributes that are not read.
void AttributeRules::checkUnknown(const QDomElement &element, const QString &path)
{
    const QDomNamedNodeMap attributes = element.attributes();
    for (int i = 0; i < attributes.size(); ++i) {
        const QString name = attributes.item(i).nodeName();
        const QString meant = similar(path, name);
        const QString told = path + QLatin1Char(' ') + name;
        const bool isRead = name == meant && !isDelayOfOtherChannel(element, name);
        if (isRead || name == kDescription || m_told.contains(told))
            continue;
        m_told.insert(told);
        QString text =
            QStringLiteral("attribute %1 of %2 is not read").arg(name, element.tagName());
        if (name == meant)
            text += QStringLiteral(" in a channel without DelayT in its name");
        else if (!meant.isEmpty())
            text += QStringLiteral("; did you mean %1?").arg(meant);
        m_problems.add(Remark::Warning, element, text + QStringLiteral(" (told once)"), name);
    }
}
