#include "configurationreading.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTextCodec>
#include <QXmlStreamReader>

#include <algorithm>
#include <cstring>

namespace testconfiguration {

namespace {

constexpr qint64 kMaxFileSize = 16 * 1024 * 1024;
constexpr int kMaxParts = 200000; // elements and attributes
constexpr int kMaxDepth = 100; // a document tree is taken down recursively

// What the parser does before it can be stopped: it expands an entity reference to at most so many
// characters, and it compares each attribute of an element with all others.
constexpr int kMaxEntitySize = 4096;
constexpr int kMaxReferences = 4096;
constexpr int kMaxAttributes = 1000; // of one element
constexpr int kShortPiece = 4096; // bytes that hold fewer
constexpr int kMaxDeclaredAttributes = 4096; // bytes of their declarations

// A document below both cannot nest dangerously or be huge.
constexpr int kUninspectedSize = 1024 * 1024;
constexpr int kUninspectedTags = 10000;

/// The characters of a configuration file.
struct XmlText
{
    QByteArray utf8; ///< as in the file, if that is in UTF-8
    bool recoded = false; ///< it is not, whatever its declaration says
};

/// The codec of a file in another encoding than UTF-8; null for UTF-8. Nothing but UTF-8 is left to
/// the parser, whose codecs differ between the versions of Qt: configuration tools write GBK.
std::optional<QTextCodec *> codecOf(const QByteArray &bytes)
{
    if (bytes.startsWith(QByteArray("<\0", 2)))
        return QTextCodec::codecForName("UTF-16LE");
    if (bytes.startsWith(QByteArray("\0<", 2)))
        return QTextCodec::codecForName("UTF-16BE");
    if (QTextCodec *marked = QTextCodec::codecForUtfText(bytes, nullptr))
        return marked;

    static const QRegularExpression declaration(
        QStringLiteral("^<\\?xml[^>]*encoding\\s*=\\s*[\"']([^\"'>]+)[\"']"));
    constexpr int kLongestDeclaration = 200;
    const QString start = QString::fromLatin1(bytes.left(kLongestDeclaration));
    const QString name = declaration.match(start).captured(1);
    if (name.isEmpty() || name.compare(QLatin1String("UTF-8"), Qt::CaseInsensitive) == 0)
        return nullptr;
    QTextCodec *codec = QTextCodec::codecForName(name.toLatin1());
    return codec ? std::optional(codec) : std::nullopt;
}

void feed(QXmlStreamReader &reader, const XmlText &text)
{
    reader.setNamespaceProcessing(false);
    reader.setEntityExpansionLimit(kMaxEntitySize);
    if (text.recoded)
        reader.addData(QString::fromUtf8(text.utf8));
    else
        reader.addData(text.utf8);
}

/// What a glance shows of a document.
struct Glance
{
    qint64 tags = 0;
    qint64 mostAttributes = 0; ///< of one tag; more than 0 only where they could be many
    qint64 declaredAttributes = 0; ///< bytes of their declarations
    bool declaresEntities = false;
};

Glance glanceAt(const QByteArray &utf8)
{
    Glance glance;
    const char *const end = utf8.constData() + utf8.size();
    for (const char *piece = utf8.constData(); piece < end; ++glance.tags) {
        const void *found = std::memchr(piece + 1, '<', static_cast<size_t>(end - piece - 1));
        const char *const next = found ? static_cast<const char *>(found) : end;
        if (piece[1] == '!') {
            const QByteArray declaration =
                QByteArray::fromRawData(piece, static_cast<int>(next - piece));
            if (declaration.startsWith("<!ATTLIST"))
                glance.declaredAttributes += declaration.size();
        } else if (next - piece > kShortPiece) {
            glance.mostAttributes =
                std::max<qint64>(glance.mostAttributes, std::count(piece, next, '='));
        }
        piece = next;
    }
    glance.declaresEntities = utf8.contains("<!DOCTYPE");
    return glance;
}

Remark problem(const QString &text)
{
    return {Remark::Error, 0, 0, text};
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
    qint64 parts = 0;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isEndElement())
            --depth;
        if (!reader.isStartElement())
            continue;
        parts += 1 + reader.attributes().size();
        if (++depth > kMaxDepth)
            return problemAt(reader,
                             QStringLiteral("nests deeper than %1 elements").arg(kMaxDepth));
        if (parts > kMaxParts)
            return problemAt(reader,
                             QStringLiteral("more than %1 elements and attributes").arg(kMaxParts));
    }
    if (reader.hasError())
        return problemAt(reader, reader.errorString());
    return std::nullopt;
}

/// The error if a tree of the document would not stay bounded.
std::optional<Remark> findExcess(const XmlText &text)
{
    const Glance glance = glanceAt(text.utf8);
    if (glance.mostAttributes > kMaxAttributes
        || glance.declaredAttributes > kMaxDeclaredAttributes)
        return problem(
            QStringLiteral("an element with more than %1 attributes").arg(kMaxAttributes));
    const auto references = std::count(text.utf8.begin(), text.utf8.end(), '&');
    if (glance.declaresEntities && references > kMaxReferences)
        return problem(
            QStringLiteral("%1 entity references in a document that declares entities is "
                           "above %2")
                .arg(references)
                .arg(kMaxReferences));
    const bool canHide = glance.declaresEntities || glance.tags > kUninspectedTags
        || text.utf8.size() > kUninspectedSize;
    return canHide ? inspect(text) : std::nullopt;
}

/// The tree of \a text; empty, with a remark, if it is not to be had.
QDomDocument parse(const XmlText &text, Remarks &remarks)
{
    if (const auto excess = findExcess(text)) {
        remarks.append(*excess);
        return {};
    }
    QXmlStreamReader reader;
    feed(reader, text);
    QDomDocument document;
    Remark malformed = problem({});
    if (document.setContent(&reader, false, &malformed.text, &malformed.line, &malformed.column))
        return document;
    remarks.append(malformed);
    return {};
}

/// The content of the file; nothing, with a remark, if it is not to be had.
std::optional<XmlText> readFile(const QString &path, Remarks &remarks)
{
    const auto refuse = [&remarks](const QString &text) {
        remarks.append(problem(text));
        return std::nullopt;
    };
    const QFileInfo info(path);
    if (!info.isFile())
        return refuse(QStringLiteral("no such file"));
    if (info.size() > kMaxFileSize)
        return refuse(QStringLiteral("%1 bytes is above %2").arg(info.size()).arg(kMaxFileSize));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) // read at one go
        return refuse(file.errorString());
    const QByteArray bytes = file.readAll();
    const std::optional<QTextCodec *> codec = codecOf(bytes);
    if (!codec)
        return refuse(QStringLiteral("unknown encoding"));
    if (*codec)
        return XmlText{(*codec)->toUnicode(bytes).toUtf8(), true};
    return XmlText{bytes, false};
}

} // namespace

QDomDocument readDocument(const QString &path, Remarks &remarks)
{
    const std::optional<XmlText> text = readFile(path, remarks);
    if (!text)
        return {};
    const QDomDocument document = parse(*text, remarks);
    const QDomElement root = document.documentElement();
    if (root.isNull() || hasTag(root, QLatin1String("ied")))
        return document;
    remark(remarks, Remark::Error, root,
           QStringLiteral("the root element is %1, not ied").arg(root.tagName()));
    return {};
}

QString readSource(const QString &path)
{
    Remarks ignored;
    const std::optional<XmlText> text = readFile(path, ignored);
    return text ? QString::fromUtf8(text->utf8) : QString();
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
