#pragma once

#include <QByteArray>
#include <QStringList>

#include <optional>

namespace virtualboard {

/// One element: single-byte tag, definite length, contents. Offsets count from the frame's start.
struct BerElement
{
    quint8 tag = 0;
    int offset = 0; ///< of the contents
    int size = 0; ///< of the contents
};

/// Walks the elements of one constructed value in BER (ITU-T X.690, 8.1).
///
/// Refuses tags of several bytes, indefinite and needlessly long lengths, and contents that leave
/// the value. After the first problem there are no more elements.
class BerReader
{
public:
    /// Reads from \a begin to \a end, both within \a frame; the three must outlive the reader.
    BerReader(const QByteArray &frame, int begin, int end, QStringList &problems)
        : m_frame(frame)
        , m_position(begin)
        , m_end(end)
        , m_problems(problems)
    { }

    bool atEnd() const { return m_position >= m_end; }
    /// The next element, or nothing at the end and after a problem.
    std::optional<BerElement> next();
    /// The next element, which has to have this tag and at least/at most this size.
    std::optional<BerElement> expect(quint8 tag, const char *name, int minimum, int maximum);
    /// A reader for the contents of \a element.
    BerReader inside(const BerElement &element) const
    {
        return BerReader(m_frame, element.offset, element.offset + element.size, m_problems);
    }
    QByteArray contents(const BerElement &element) const
    {
        return m_frame.mid(element.offset, element.size);
    }
    /// Notes as a problem that something follows the last element expected.
    void expectEnd(const char *name);
    void problem(const QString &sentence);

private:
    std::optional<int> length();

    const QByteArray &m_frame;
    int m_position;
    int m_end;
    QStringList &m_problems;
};

} // namespace virtualboard
