#include "configuration/places.h"

#include <algorithm>

namespace testconfiguration {

void PlaceCounter::moveTo(int index)
{
    const int end = std::min(index, int(m_text.size()));
    for (; m_index < end; ++m_index) {
        const QChar c = m_text[m_index];
        const bool isReturn = c == QLatin1Char('\r')
            && (m_index + 1 >= m_text.size() || m_text[m_index + 1] != QLatin1Char('\n'));
        if (c != QLatin1Char('\n') && !isReturn)
            continue;
        ++m_line;
        m_lineStart = m_index + 1;
    }
}

bool TagFinder::find(int end)
{
    if (end < 1 || end > m_text.size() || m_text[end - 1] != QLatin1Char('>'))
        return false;
    const int begin = int(m_text.lastIndexOf(QLatin1Char('<'), end - 1)); // no other can be in it
    if (begin < m_counter.index())
        return false;
    m_counter.moveTo(begin);
    m_end = end;
    m_next = begin;
    while (m_next < m_end && !m_text[m_next].isSpace()) // the tag's name
        ++m_next;
    return true;
}

bool TagFinder::findAttribute(const QString &name)
{
    const int begin = skipBlanks(m_next);
    if (!QStringView(m_text).mid(begin, m_end - begin).startsWith(name))
        return false;
    m_counter.moveTo(begin);
    int value = skipBlanks(begin + int(name.size())); // of the "="
    value = skipBlanks(value + 1); // of the quotation mark
    const int last = value < m_end ? int(m_text.indexOf(m_text[value], value + 1)) : -1;
    m_next = last < 0 ? m_end : last + 1;
    return true;
}

Place TagFinder::placeBefore(int end)
{
    m_counter.moveTo(end - 1);
    return m_counter.place();
}

int TagFinder::skipBlanks(int index) const
{
    while (index < m_end && m_text[index].isSpace())
        ++index;
    return std::min(index, m_end);
}

} // namespace testconfiguration
