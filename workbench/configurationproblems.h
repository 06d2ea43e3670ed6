/// \file
/// What is wrong with a test configuration, and where.
#pragma once

#include <testconfiguration.h>

#include <QString>
#include <QStringList>

/// The problems of one file, each at the place where a reader will look for it: a line and a
/// column, both from 1, of the element's "<", or of the attribute's name.
///
/// Holds the first 1000 errors and the first 1000 warnings, and counts the rest.
class ConfigurationProblems
{
public:
    using Remark = testconfiguration::Remark;
    using Severity = Remark::Severity;

    explicit ConfigurationProblems(const QString &file);

    /// A problem of \a element, or of its \a attribute.
    void add(Severity severity, const QDomElement &element, const QString &text,
             const QString &attribute = {});
    /// What the loader remarks, on the end of a start tag.
    void add(const testconfiguration::Remarks &remarks);

    /// The line in which the start tag of \a element starts.
    [[nodiscard]] int lineOf(const QDomElement &element);

    [[nodiscard]] QString file() const { return m_file; }
    [[nodiscard]] int errors() const { return m_counts[Remark::Error]; }
    [[nodiscard]] int warnings() const { return m_counts[Remark::Warning]; }
    /// Those that are held, in the order of the file.
    [[nodiscard]] testconfiguration::Remarks sorted() const;
    /// "FILE:LINE:COLUMN: error: text"; without a place where there is none.
    [[nodiscard]] QString toString(const Remark &problem) const;

private:
    bool count(Severity severity);
    Remark startOfTag(const Remark &atItsEnd);
    void moveToAttribute(Remark &problem, const Remark &end, const QString &attribute) const;

    QString m_file;
    QStringList m_lines; ///< of the file; read when there is a problem to place
    testconfiguration::Remarks m_problems;
    int m_counts[2] = {};
};
