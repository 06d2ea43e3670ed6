/// \file
/// Strict reading of JSON files: what is not expected is refused, with its place and the reason.
#pragma once

#include "workbench/failure.h"

#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>

namespace workbench {

class JsonReader;

/// A value of a JSON file that knows its place in it. When it is not what is asked for, the file's
/// reader is told "FILE: steps[2].outputs.Ia1.amplitude: reason", and the least of what was asked
/// for is given: reading goes on, and what has been read is of no use in the end.
class JsonNode
{
public:
    JsonNode(JsonReader &reader, const QString &place, const QJsonValue &value);

    /// Refuses the value for \a reason.
    void refuse(const QString &reason) const;

    /// Refuses anything but an object whose keys are all among \a known.
    void expectKeys(const QStringList &known) const;
    [[nodiscard]] bool has(const QString &key) const;
    /// The member \a key, which must be there.
    [[nodiscard]] JsonNode operator[](const QString &key) const;

    /// The elements of an array of \a least to \a most elements; none of another array.
    [[nodiscard]] QVector<JsonNode> elements(int least, int most) const;
    [[nodiscard]] double number(double least, double most) const;
    [[nodiscard]] int integer(int least, int most) const;
    [[nodiscard]] bool boolean() const;
    [[nodiscard]] QString text() const;
    /// Index of the text in \a words, which must hold it.
    [[nodiscard]] int choice(const QStringList &words) const;

private:
    bool expectType(QJsonValue::Type type) const;

    JsonReader *m_reader;
    QString m_place; ///< empty for the whole file
    QJsonValue m_value;
};

/// A JSON file, and the first failure in reading it.
class JsonReader
{
    Q_DISABLE_COPY(JsonReader)

public:
    /// Refused: a file above 1 MiB, a syntax error ("FILE:LINE:COLUMN: reason"), an object with the
    /// same key twice.
    explicit JsonReader(const QString &path);

    [[nodiscard]] JsonNode root() { return {*this, QString(), m_root}; }
    /// Remembers the failure if it is the first one.
    void fail(const QString &placeAndReason);
    [[nodiscard]] const std::optional<Failure> &failure() const { return m_failure; }

private:
    QString m_path;
    QJsonValue m_root;
    std::optional<Failure> m_failure;
};

} // namespace workbench
