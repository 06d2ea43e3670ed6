/// \file
/// The text of a JSON file, and where in it every value and key stands.
#pragma once

#include "configuration/testconfiguration.h"

#include <QByteArray>
#include <QJsonValue>
#include <QString>
#include <QVector>

#include <optional>

namespace workbench {

/// A well-formed JSON text. Its values are numbered in the order in which they begin; the root is
/// number 0.
class JsonText
{
public:
    /// A place as the number of a byte; kWholeFile for no place in particular.
    struct Problem
    {
        int offset;
        QString reason;
    };
    static constexpr int kWholeFile = -1;

    /// Takes over \a text; returns why it is no JSON, if it is none.
    [[nodiscard]] std::optional<Problem> parse(const QByteArray &text);

    [[nodiscard]] const QJsonValue &root() const { return m_root; }
    /// Keys that come twice in an object, of which only the last one counts.
    [[nodiscard]] const QVector<Problem> &repeatedKeys() const { return m_repeatedKeys; }

    /// Numbers of the members or elements of value \a number, in the order of the file.
    [[nodiscard]] QVector<int> children(int number) const;
    /// Of the member that value \a number is.
    [[nodiscard]] QString key(int number) const { return textAt(m_values[number].key); }
    /// Number of the member \a key of the object \a number; -1 if it has none.
    [[nodiscard]] int member(int number, const QString &key) const;
    [[nodiscard]] int offset(int number) const { return m_values[number].offset; }
    [[nodiscard]] int keyOffset(int number) const { return m_values[number].key; }

    /// Line and column of a byte.
    [[nodiscard]] testconfiguration::Place placeOf(int offset) const;

private:
    struct Value
    {
        int offset; ///< of its first byte
        int key; ///< offset of its key's quotation mark; -1 if it is no member
        int next; ///< number of the value behind it and all in it
    };

    void scan();
    [[nodiscard]] QString textAt(int offset) const;

    QByteArray m_text;
    QJsonValue m_root;
    QVector<Value> m_values;
    QVector<Problem> m_repeatedKeys;
};

} // namespace workbench
