/// \file
/// Lines and columns of a text, found in one pass.
#pragma once

#include "configuration/testconfiguration.h"

namespace testconfiguration {

/// Goes through a text and knows the place where it is. The text must outlive it.
class PlaceCounter
{
public:
    explicit PlaceCounter(const QString &text)
        : m_text(text)
    { }

    /// Goes on to \a index of the text, if that lies ahead.
    void moveTo(int index);
    [[nodiscard]] int index() const { return m_index; }
    [[nodiscard]] Place place() const { return {m_line, m_index - m_lineStart + 1}; }

private:
    const QString &m_text;
    int m_index = 0;
    int m_line = 1;
    int m_lineStart = 0;
};

/// Finds start tags and their attributes in a text, one after the other.
class TagFinder
{
public:
    explicit TagFinder(const QString &text)
        : m_text(text)
        , m_counter(text)
    { }

    /// Goes on to the tag that ends at \a end. False if there is none: the tag is of an entity.
    bool find(int end);
    /// Goes on to the attribute \a name of that tag. False if it does not come next: it is
    /// declared, not written.
    bool findAttribute(const QString &name);
    /// Goes on to the character that ends at \a end, and gives its place.
    [[nodiscard]] Place placeBefore(int end);
    /// Of what was found last: of the "<" or of the attribute's name.
    [[nodiscard]] Place place() const { return m_counter.place(); }

private:
    [[nodiscard]] int skipBlanks(int index) const;

    const QString &m_text;
    PlaceCounter m_counter;
    int m_next = 0; ///< behind what was found last
    int m_end = 0; ///< of the tag
};

} // namespace testconfiguration
