/// \file
/// How the attributes of an element are read: an attribute's rule stands beside its name, and
/// whoever reads it goes by both.
#pragma once

#include "configuration/element.h"

#include <QSet>
#include <QVarLengthArray>

#include <initializer_list>

namespace testconfiguration {

/// The remarks on one file. Holds the first 1000 errors and the first 1000 warnings, and counts
/// all.
class RemarkList
{
public:
    /// What a reader remarks on.
    enum class Detail {
        Loading, ///< what it skips or refuses
        Checking ///< also what it takes for something else than the file says
    };
    explicit RemarkList(Detail detail)
        : m_detail(detail)
    { }

    [[nodiscard]] bool isChecking() const { return m_detail == Detail::Checking; }

    void add(Remark::Severity severity, Place place, const QString &text);
    /// \param attribute of the element, to be the place
    void add(Remark::Severity severity, const Element &element, const QString &text,
             const QString &attribute = {});
    void warn(const Element &element, const QString &text, const QString &attribute = {})
    {
        add(Remark::Warning, element, text, attribute);
    }
    void fail(const Element &element, const QString &text, const QString &attribute = {})
    {
        add(Remark::Error, element, text, attribute);
    }
    /// Whether \a key is new.
    [[nodiscard]] bool isNew(const QString &key);

    [[nodiscard]] int count(Remark::Severity severity) const { return m_counts[severity]; }
    /// Takes those that are held.
    [[nodiscard]] QVector<Remark> take();

private:
    Detail m_detail;
    QVector<Remark> m_remarks;
    int m_counts[2] = {};
    QSet<QString> m_told;
};

/// What an attribute may hold.
struct AttributeRule
{
    enum Format { Text, Identifier, Mac, Decimal, Hexadecimal };
    QLatin1String name;
    Format format;
    qint64 least = 0; ///< of a number
    qint64 most = 0;
    bool isOptional = false; ///< what it counts as when it is missing is what is usual
};

/// Reads the attributes of one element, and remarks on those that break their rule. The loader
/// takes every text for something: the rules are about whether it takes it for what the file says.
class ElementReader
{
public:
    /// \param kind tells kinds of element apart: the tags that lead to it
    ElementReader(const Element &element, QLatin1String kind, RemarkList &remarks)
        : m_element(element)
        , m_kind(kind)
        , m_remarks(remarks)
    { }

    /// The text of an attribute: empty when it is missing.
    QString text(const AttributeRule &rule);
    /// The number that it holds as decimal text: 0 when it is missing or no number, the nearest int
    /// when it exceeds one.
    int decimal(const AttributeRule &rule);
    /// The attribute means something, but not \a here.
    void leaveOut(const AttributeRule &rule, const QString &here);
    /// To be called last: remarks on attributes that were not read, and on children with another
    /// tag than these.
    void finish(std::initializer_list<QLatin1String> tags);
    /// The same, where children may have any tag.
    void finish();

private:
    struct Known
    {
        QLatin1String name;
        QString notHere; ///< empty if it was read
    };
    void check(const AttributeRule &rule, const QString *value);
    void checkUnread(const QString &name);

    const Element m_element;
    const QLatin1String m_kind;
    RemarkList &m_remarks;
    QVarLengthArray<Known, 12> m_known; ///< only when checking
};

} // namespace testconfiguration
