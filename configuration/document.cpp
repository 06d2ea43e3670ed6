#include "configuration/element.h"
#include "configuration/filetext.h"
#include "configuration/places.h"

#include <QDomElement>
#include <QXmlStreamReader>

#include <algorithm>
#include <cstring>
#include <optional>

namespace testconfiguration {

namespace {

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
    void open(const QString &tag, Place place);
    void add(const QString &name, const QString &value, Place place)
    {
        m_tree.attributes.push_back({name, value, place});
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

void TreeBuilder::open(const QString &tag, Place place)
{
    const int index = int(m_tree.nodes.size());
    Node node;
    node.tag = tag;
    node.firstAttribute = node.attributeEnd = m_tree.attributes.size();
    node.place = place;
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
    return {int(reader.lineNumber()), std::max(int(reader.columnNumber()), 1)};
}

/// Why an element with this tag cannot be the root; empty if it can.
QString whyNoRoot(const QString &tag)
{
    if (tag.toLower() == QLatin1String("ied"))
        return {};
    QString reason = QStringLiteral("the root element is %1, not ied").arg(tag);
    if (tag.section(QLatin1Char(':'), -1) == QLatin1String("SCL"))
        reason += QStringLiteral(": this is a station file of IEC 61850-6; a test configuration is "
                                 "wanted");
    return reason;
}

/// The parser of one document.
class Parser
{
public:
    /// \param mayHide what stays unbounded
    Parser(const FileText &text, bool mayHide, Tree &tree);
    /// Reads the tree. The error if the text is malformed, is of something else or, where it may
    /// hide that, too large.
    [[nodiscard]] std::optional<Remark> parse();

private:
    [[nodiscard]] std::optional<Remark> readElement();
    [[nodiscard]] Place place();
    [[nodiscard]] Remark refusal(const QString &reason) { return {Remark::Error, place(), reason}; }

    const bool m_mayHide;
    Tree &m_tree;
    QXmlStreamReader m_reader;
    TreeBuilder m_builder;
    TagFinder m_tags;
};

Parser::Parser(const FileText &text, bool mayHide, Tree &tree)
    : m_mayHide(mayHide)
    , m_tree(tree)
    , m_builder(tree)
    , m_tags(text.characters)
{
    m_reader.setNamespaceProcessing(false);
    m_reader.setEntityExpansionLimit(kMaxEntitySize);
    if (text.isRecoded)
        m_reader.addData(text.characters);
    else
        m_reader.addData(text.utf8);
}

std::optional<Remark> Parser::parse()
{
    int declarations = 0;
    while (!m_reader.atEnd()) {
        m_reader.readNext();
        if (m_reader.isDTD() && ++declarations > 1) // the reader lets it pass
            return refusal(QStringLiteral("Multiple DTD sections are not allowed"));
        if (m_reader.isEndElement())
            m_builder.close();
        if (!m_reader.isStartElement())
            continue;
        if (const std::optional<Remark> fault = readElement())
            return fault;
    }
    if (m_reader.hasError())
        return refusal(m_reader.errorString());
    return std::nullopt;
}

std::optional<Remark> Parser::readElement()
{
    const bool isFound = m_tags.find(int(m_reader.characterOffset()));
    const Place begin = isFound ? m_tags.place() : placeOf(m_reader);
    const auto refuse = [&begin](const QString &reason) {
        return Remark{Remark::Error, begin, reason};
    };
    const QString tag = m_reader.qualifiedName().toString();
    if (m_tree.nodes.empty()) {
        if (const QString reason = whyNoRoot(tag); !reason.isEmpty())
            return refuse(reason);
    }
    m_builder.open(tag, begin);
    for (const QXmlStreamAttribute &each : m_reader.attributes()) {
        const QString name = each.qualifiedName().toString();
        m_builder.add(name, each.value().toString(),
                      isFound && m_tags.findAttribute(name) ? m_tags.place() : Place());
    }
    if (m_mayHide && m_builder.depth() > kMaxDepth)
        return refuse(QStringLiteral("nests deeper than %1 elements").arg(kMaxDepth));
    if (m_mayHide && m_tree.nodes.size() + m_tree.attributes.size() > kMaxParts)
        return refuse(QStringLiteral("more than %1 elements and attributes").arg(kMaxParts));
    return std::nullopt;
}

/// Where the reader is: the tag or else the character that it has just read. It does not count all
/// lines of what it refuses itself.
Place Parser::place()
{
    const int end = int(m_reader.characterOffset());
    return m_tags.find(end) ? m_tags.place() : m_tags.placeBefore(end);
}

/// The tree of the file at \a path; null, with the reason, if there is none to load.
std::shared_ptr<const Tree> readTree(const QString &path, Remark &error)
{
    const std::optional<FileText> text = readText(path, error);
    if (!text)
        return nullptr;
    const Glance glance = glanceAt(text->utf8);
    const bool mayHide = glance.declaresEntities || glance.tags > kUninspectedTags
        || text->utf8.size() > kUninspectedSize;
    const auto tree = std::make_shared<Tree>();
    std::optional<Remark> fault = findExcess(text->utf8, glance);
    if (!fault)
        fault = Parser(*text, mayHide, *tree).parse();
    if (fault) {
        const bool isNoText = text->strayBytes && text->strayBytes->severity == Remark::Error;
        error = isNoText ? *text->strayBytes : *fault;
        return nullptr;
    }
    tree->strayBytes = text->strayBytes;
    if (tree->strayBytes) // where the parser did not get to
        tree->strayBytes->severity = Remark::Warning;
    return tree;
}

} // namespace

Document Document::read(const QString &path)
{
    Document document;
    document.m_path = path;
    document.m_tree = readTree(path, document.m_error);
    return document;
}

Document Document::fromElement(const QDomElement &element)
{
    const auto tree = std::make_shared<Tree>();
    TreeBuilder builder(*tree);
    QDomElement each = element;
    while (!each.isNull()) {
        builder.open(each.tagName(), {each.lineNumber(), each.columnNumber()});
        const QDomNamedNodeMap attributes = each.attributes();
        for (int i = 0; i < attributes.size(); ++i)
            builder.add(attributes.item(i).nodeName(), attributes.item(i).nodeValue(), {});
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
