/// \file
/// The tree of a document: elements in the order of the file, with their attributes and places.
#pragma once

#include "configuration/testconfiguration.h"

#include <QString>

#include <cstddef>
#include <optional>
#include <vector>

namespace testconfiguration {

struct Node
{
    QString tag;
    std::size_t firstAttribute = 0; ///< in Tree::attributes
    std::size_t attributeEnd = 0;
    int firstChild = -1; ///< in Tree::nodes; -1: none
    int nextSibling = -1;
    Place place; ///< of the "<"
};

struct Attribute
{
    QString name;
    QString value;
    Place place; ///< of the name; line 0: declared, not written, or unknown
};

/// The root is the first node.
struct Tree
{
    std::vector<Node> nodes;
    std::vector<Attribute> attributes;
    std::optional<Remark> strayBytes; ///< in the file, which do not fit its encoding
};

/// One element of a tree, or none. The tree must outlive it.
class Element
{
public:
    Element() = default;
    /// The root of \a document.
    explicit Element(const Document &document)
        : m_tree(document.tree())
        , m_node(m_tree ? 0 : -1)
    { }

    [[nodiscard]] bool isNull() const { return m_node < 0; }
    [[nodiscard]] Element firstChild() const { return at(isNull() ? -1 : node().firstChild); }
    [[nodiscard]] Element nextSibling() const { return at(isNull() ? -1 : node().nextSibling); }

    [[nodiscard]] QString tag() const { return isNull() ? QString() : node().tag; }
    /// Tags are compared without regard to case. \param lowerCaseTag so
    [[nodiscard]] bool hasTag(QLatin1String lowerCaseTag) const;
    [[nodiscard]] int childCount() const;

    /// The value of an attribute; null if the element has none of this name.
    [[nodiscard]] const QString *attribute(QLatin1String name) const;
    [[nodiscard]] std::vector<QString> attributeNames() const;

    [[nodiscard]] Place place() const { return isNull() ? Place() : node().place; }
    /// Of the attribute's name; of the element if that is unknown.
    [[nodiscard]] Place placeOf(const QString &attribute) const;

private:
    Element(const Tree *tree, int node)
        : m_tree(tree)
        , m_node(node)
    { }
    [[nodiscard]] Element at(int node) const { return {m_tree, node}; }
    [[nodiscard]] const Node &node() const { return m_tree->nodes[std::size_t(m_node)]; }
    template <typename Name>
    [[nodiscard]] const Attribute *find(const Name &name) const;

    const Tree *m_tree = nullptr;
    int m_node = -1;
};

} // namespace testconfiguration
