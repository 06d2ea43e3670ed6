/// \file
/// Strict reading of JSON files: what is not expected is refused, with its place and the reason.
#pragma once

#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QVector>

/// A value of a JSON file that knows its place in it. Every reading operation throws an InputError
/// "FILE: steps[2].outputs.Ia1.amplitude: reason" when the value is not what is asked for.
class JsonNode
{
public:
    /// The object that the file at \a path consists of. Refused: a file above 1 MiB, a syntax error
    /// ("FILE:LINE:COLUMN: reason"), an object with the same key twice.
    [[nodiscard]] static JsonNode fromFile(const QString &path);

    /// Refuses the value for \a reason.
    [[noreturn]] void refuse(const QString &reason) const;

    /// Refuses anything but an object whose keys are all among \a known.
    void expectKeys(const QStringList &known) const;
    [[nodiscard]] bool has(const QString &key) const;
    /// The member \a key, which must be there.
    [[nodiscard]] JsonNode operator[](const QString &key) const;
    [[nodiscard]] QStringList keys() const;

    /// The elements of an array of \a least to \a most elements.
    [[nodiscard]] QVector<JsonNode> elements(int least, int most) const;
    [[nodiscard]] double number(double least, double most) const;
    [[nodiscard]] int integer(int least, int most) const;
    [[nodiscard]] bool boolean() const;
    [[nodiscard]] QString text() const;
    /// Index of the text in \a words, which must hold it.
    [[nodiscard]] int choice(const QStringList &words) const;

private:
    JsonNode(const QString &file, const QString &place, const QJsonValue &value);
    void expectType(QJsonValue::Type type) const;
    void expectRange(double least, double most) const;

    QString m_file;
    QString m_place; ///< empty for the whole file
    QJsonValue m_value;
};
