#include "configuration/element.h"

#include <QDomElement>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTextCodec>
#include <QXmlStreamReader>

#include <algorithm>
#include <cstring>
#include <optional>

namespace testconfiguration {

namespace {

constexpr qint64 kMaxFileSize = 16 * 1024 * 1024;
constexpr int kMaxParts = 200000; // elements and attributes
constexpr int kMaxDepth = 100;

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
    QString characters;
    bool isRecoded; ///< the file is in another encoding, whatever its declaration says
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
        const void *found = std::memchr(piece + 1, '<', std::size_t(end - piece - 1));
        const char *const next = found ? static_cast<const char *>(found) : end;
        if (piece[1] == '!') {
            const QByteArray declaration = QByteArray::fromRawData(piece, int(next - piece));
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
    return {Remark::Error, {}, text};
}

/// Why a tree of the document would not stay bounded, as far as a glance shows it.
std::optional<Remark> findExcess(const QByteArray &utf8, const Glance &glance)
{
    if (glance.mostAttributes > kMaxAttributes
        || glance.declaredAttributes > kMaxDeclaredAttributes)
        return problem(
            QStringLiteral("an element with more than %1 attributes").arg(kMaxAttributes));
    const auto references = std::count(utf8.begin(), utf8.end(), '&');
    if (glance.declaresEntities && references > kMaxReferences)
        return problem(
            QStringLiteral("%1 entity references in a document that declares entities is "
                           "above %2")
                .arg(references)
                .arg(kMaxReferences));
    return std::nullopt;
}

/// Grows a tree in the order of the file.
class TreeBuilder
{
public:
    explicit TreeBuilder(Tree &tree)
        : m_tree(tree)
    { }

    [[nodiscard]] int depth() const { return int(m_open.size()); }
    void open(const QString &tag, Place place, int begin);
    void add(const QString &name, const QString &value)
    {
        m_tree.attributes.emplace_back(name, value);
        m_tree.nodes.back().attributeEnd = m_tree.attributes.size();
    }
    void close() { m_open.pop_back(); }

private:
    /// An element whose end has not come, and its last child.
    struct Open
    {
        int node;
        int lastChild;
    };
    Tree &m_tree;
    std::vector<Open> m_open;
};

void TreeBuilder::open(const QString &tag, Place place, int begin)
{
    const int index = int(m_tree.nodes.size());
    Node node;
    node.tag = tag;
    node.firstAttribute = node.attributeEnd = m_tree.attributes.size();
    node.place = place;
    node.begin = begin;
    m_tree.nodes.push_back(node);
    if (!m_open.empty()) {
        Open &parent = m_open.back();
        int &link = parent.lastChild < 0 ? m_tree.nodes[std::size_t(parent.node)].firstChild
                                         : m_tree.nodes[std::size_t(parent.lastChild)].nextSibling;
        link = index;
        parent.lastChild = index;
    }
    m_open.push_back({index, -1});
}

Place placeOf(const QXmlStreamReader &reader)
{
    return {int(reader.lineNumber()), int(reader.columnNumber())};
}

/// Finds the places of start tags in a text, one after the other.
class TagFinder
{
public:
    explicit TagFinder(const QString &text)
        : m_text(text)
    { }

    /// Goes on to the tag that ends at \a end. False if there is none: the tag is of an entity.
    bool find(int end);
    [[nodiscard]] int begin() const { return m_begin; } ///< index of the "<"
    [[nodiscard]] Place place() const { return {m_line, m_begin - m_lineStart + 1}; }

private:
    const QString &m_text;
    int m_begin = 0;
    int m_line = 1;
    int m_lineStart = 0;
};

bool TagFinder::find(int end)
{
    if (end < 1 || end > m_text.size() || m_text[end - 1] != QLatin1Char('>'))
        return false;
    const int begin = int(m_text.lastIndexOf(QLatin1Char('<'), end - 1)); // no other can be in it
    if (begin < m_begin)
        return false;
    for (; m_begin < begin; ++m_begin) {
        const bool isReturn = m_text[m_begin] == QLatin1Char('\r')
            && m_text[m_begin + 1] != QLatin1Char('\n'); // there is a "<" to come
        if (m_text[m_begin] != QLatin1Char('\n') && !isReturn)
            continue;
        ++m_line;
        m_lineStart = m_begin + 1;
    }
    return true;
}

/// Reads \a tree. The error if the text is malformed or, where it \a mayHide that, too large.
std::optional<Remark> parse(const XmlText &text, bool mayHide, Tree &tree)
{
    QXmlStreamReader reader;
    reader.setNamespaceProcessing(false);
    reader.setEntityExpansionLimit(kMaxEntitySize);
    if (text.isRecoded)
        reader.addData(text.characters);
    else
        reader.addData(text.utf8);
    TreeBuilder builder(tree);
    TagFinder tags(text.characters);
    const auto place = [&] {
        return tags.find(int(reader.characterOffset())) ? tags.place() : placeOf(reader);
    };
    const auto refuse = [&place](const QString &reason) {
        return Remark{Remark::Error, place(), reason};
    };
    int declarations = 0;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isDTD() && ++declarations > 1) // the reader lets it pass
            return refuse(QStringLiteral("Multiple DTD sections are not allowed"));
        if (reader.isEndElement())
            builder.close();
        if (!reader.isStartElement())
            continue;
        const bool isFound = tags.find(int(reader.characterOffset()));
        builder.open(reader.qualifiedName().toString(), isFound ? tags.place() : placeOf(reader),
                     isFound ? tags.begin() : -1);
        for (const QXmlStreamAttribute &each : reader.attributes())
            builder.add(each.qualifiedName().toString(), each.value().toString());
        if (mayHide && builder.depth() > kMaxDepth)
            return refuse(QStringLiteral("nests deeper than %1 elements").arg(kMaxDepth));
        if (mayHide && tree.nodes.size() + tree.attributes.size() > kMaxParts)
            return refuse(QStringLiteral("more than %1 elements and attributes").arg(kMaxParts));
    }
    if (reader.hasError())
        return refuse(reader.errorString());
    return std::nullopt;
}

/// The content of the file; nothing, with the reason, if it is not to be had.
std::optional<XmlText> readFile(const QString &path, Remark &error)
{
    const auto refuse = [&error](const QString &text) {
        error = problem(text);
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
    if (!*codec)
        return XmlText{bytes, QString::fromUtf8(bytes), false};
    const QString characters = (*codec)->toUnicode(bytes);
    return XmlText{characters.toUtf8(), characters, true};
}

/// The tree of the file at \a path; null, with the reason, if there is none to load.
std::shared_ptr<const Tree> readTree(const QString &path, Remark &error)
{
    const std::optional<XmlText> text = readFile(path, error);
    if (!text)
        return nullptr;
    const Glance glance = glanceAt(text->utf8);
    const bool mayHide = glance.declaresEntities || glance.tags > kUninspectedTags
        || text->utf8.size() > kUninspectedSize;
    const auto tree = std::make_shared<Tree>();
    std::optional<Remark> fault = findExcess(text->utf8, glance);
    if (!fault)
        fault = parse(*text, mayHide, *tree);
    if (fault) {
        error = *fault;
        return nullptr;
    }
    tree->source = text->characters;
    return tree;
}

} // namespace

Document Document::read(const QString &path)
{
    Document document;
    document.m_path = path;
    document.m_tree = readTree(path, document.m_error);
    const Element root(document);
    if (!root.isNull() && !root.hasTag(QLatin1String("ied"))) {
        document.m_error = {Remark::Error, root.place(),
                            QStringLiteral("the root element is %1, not ied").arg(root.tag())};
        document.m_tree.reset();
    }
    return document;
}

Document Document::fromElement(const QDomElement &element)
{
    const auto tree = std::make_shared<Tree>();
    TreeBuilder builder(*tree);
    QDomElement each = element;
    while (!each.isNull()) {
        builder.open(each.tagName(), {each.lineNumber(), each.columnNumber()}, -1);
        const QDomNamedNodeMap attributes = each.attributes();
        for (int i = 0; i < attributes.size(); ++i)
            builder.add(attributes.item(i).nodeName(), attributes.item(i).nodeValue());
        QDomElement next = each.firstChildElement();
        while (next.isNull() && builder.depth() > 0) { // up, to one that has a sibling
            builder.close();
            if (builder.depth() == 0)
                break;
            next = each.nextSiblingElement();
            if (next.isNull())
                each = each.parentNode().toElement();
        }
        each = next;
    }
    Document document;
    if (!tree->nodes.empty())
        document.m_tree = tree;
    return document;
}

} // namespace testconfiguration
