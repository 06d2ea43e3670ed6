#include "configurationreading.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTextCodec>
#include <QXmlStreamReader>

#include <algorithm>

namespace testconfiguration {

namespace {

constexpr qint64 kMaxFileSize = 16 * 1024 * 1024;
constexpr qint64 kMaxExpandedText = kMaxFileSize; // characters, once entities are expanded
constexpr qint64 kMaxNodes = 500000; // elements and attributes
constexpr int kMaxDepth = 100; // a document tree is taken down recursively

// A file below both cannot grow or nest dangerously unless it declares entities.
constexpr int kUninspectedSize = 1024 * 1024;
constexpr int kUninspectedTags = 10000;

/// The bytes of a configuration file and, where the parser cannot decode them by itself, their
/// codec.
struct XmlText
{
    QByteArray bytes;
    QTextCodec *codec = nullptr;
};

/// The codec that the XML declaration names, for the encodings besides Unicode: configuration tools
/// write GBK, which the parser does not know in every version of Qt.
QTextCodec *declaredCodec(const QByteArray &bytes)
{
    static const QRegularExpression declaration(
        QStringLiteral("^<\\?xml[^>]*encoding\\s*=\\s*[\"']([^\"'>]+)[\"']"));
    constexpr int kLongestDeclaration = 200;
    const QString start = QString::fromLatin1(bytes.left(kLongestDeclaration));
    const QString name = declaration.match(start).captured(1);
    if (name.isEmpty() || name.startsWith(QLatin1String("UTF"), Qt::CaseInsensitive))
        return nullptr;
    return QTextCodec::codecForName(name.toLatin1());
}

void feed(QXmlStreamReader &reader, const XmlText &text)
{
    reader.setNamespaceProcessing(false);
    if (text.codec)
        reader.addData(text.codec->toUnicode(text.bytes));
    else
        reader.addData(text.bytes);
}

/// Whether the document could nest deeply, be huge or expand entities. Most cannot, which a glance
/// shows.
bool needsInspection(const XmlText &text)
{
    const QByteArray &bytes = text.bytes;
    return text.codec || bytes.size() > kUninspectedSize || bytes.contains('\0')
        || bytes.contains("<!DOCTYPE")
        || std::count(bytes.begin(), bytes.end(), '<') > kUninspectedTags;
}

Remark problemAt(const QXmlStreamReader &reader, const QString &text)
{
    return {Remark::Error, static_cast<int>(reader.lineNumber()),
            static_cast<int>(reader.columnNumber()), text};
}

/// Reads the document as a stream, in bounded memory, to see whether a tree of it stays bounded
/// too. The error if it does not.
std::optional<Remark> inspect(const XmlText &text)
{
    QXmlStreamReader reader;
    feed(reader, text);
    int depth = 0;
    qint64 nodes = 0;
    qint64 expandedText = 0;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isEndElement())
            --depth;
        else if (reader.isStartElement())
            ++depth;
        const QXmlStreamAttributes attributes = reader.attributes();
        nodes += 1 + attributes.size();
        expandedText += reader.text().size();
        for (const QXmlStreamAttribute &attribute : attributes)
            expandedText += attribute.value().size();
        if (depth > kMaxDepth)
            return problemAt(reader,
                             QStringLiteral("nests deeper than %1 elements").arg(kMaxDepth));
        if (nodes > kMaxNodes)
            return problemAt(reader,
                             QStringLiteral("more than %1 elements and attributes").arg(kMaxNodes));
        if (expandedText > kMaxExpandedText)
            return problemAt(
                reader, QStringLiteral("expands to more than %1 characters").arg(kMaxExpandedText));
    }
    if (reader.hasError())
        return problemAt(reader, reader.errorString());
    return std::nullopt;
}

/// The tree of \a text; empty, with a remark, if it is not to be had.
QDomDocument parse(const XmlText &text, Remarks &remarks)
{
    if (needsInspection(text)) {
        if (const auto problem = inspect(text)) {
            remarks.append(*problem);
            return {};
        }
    }
    QXmlStreamReader reader;
    feed(reader, text);
    QDomDocument document;
    Remark malformed{Remark::Error, 0, 0, {}};
    if (document.setContent(&reader, false, &malformed.text, &malformed.line, &malformed.column))
        return document;
    remarks.append(malformed);
    return {};
}

} // namespace

QDomDocument readDocument(const QString &path, Remarks &remarks)
{
    const auto refuse = [&remarks](const QString &text) {
        remarks.append({Remark::Error, 0, 0, text});
        return QDomDocument();
    };
    const QFileInfo info(path);
    if (!info.isFile())
        return refuse(QStringLiteral("no such file"));
    if (info.size() > kMaxFileSize)
        return refuse(QStringLiteral("%1 bytes is above %2").arg(info.size()).arg(kMaxFileSize));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) // read at one go
        return refuse(file.errorString());
    XmlText text{file.readAll()};
    text.codec = declaredCodec(text.bytes);

    const QDomDocument document = parse(text, remarks);
    const QDomElement root = document.documentElement();
    if (root.isNull() || hasTag(root, QLatin1String("ied")))
        return document;
    remark(remarks, Remark::Error, root,
           QStringLiteral("the root element is %1, not ied").arg(root.tagName()));
    return {};
}

Kind kindOf(const QDomElement &element)
{
    if (hasTag(element, QLatin1String("in_goose")))
        return Kind::GoosePublication;
    if (hasTag(element, QLatin1String("in_smv")))
        return Kind::SvPublication;
    if (hasTag(element, QLatin1String("goose")))
        return Kind::Subscription;
    return Kind::Other;
}

} // namespace testconfiguration
