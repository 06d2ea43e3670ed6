#pragma once

#include <QByteArray>
#include <QStringList>

namespace virtualboard {

/// Reads the fields of a command frame one after the other and notes what is wrong with them.
/// The first field that is not there in full is a problem; it and all later ones read as 0.
class FieldReader
{
public:
    explicit FieldReader(const QByteArray &frame)
        : m_frame(frame)
    { }

    int byte(const char *field);
    int word(const char *field); ///< 16 bits, low byte first
    int wordBig(const char *field); ///< 16 bits, high byte first
    float real(const char *field); ///< IEEE 754 single precision, low byte first
    /// \a size bytes, or those that are there.
    QByteArray bytes(int size, const char *field);
    /// Reads \a expected.size() bytes that always have the same value.
    void fixed(const QByteArray &expected, const char *field);

    void problem(const QString &sentence) { m_problems << sentence; }
    /// Checks what follows the last field: nothing, or one pad byte of value 0.
    void finish();

    const QByteArray &frame() const { return m_frame; }
    int position() const { return m_position; }
    int remaining() const { return int(m_frame.size()) - m_position; }
    bool isTruncated() const { return m_truncated; }
    /// The bytes read so far.
    QByteArray consumed() const { return m_frame.left(m_position); }
    QStringList problems() const { return m_problems; }

private:
    QByteArray m_frame;
    int m_position = 0;
    bool m_truncated = false;
    QStringList m_problems;
};

} // namespace virtualboard
