/// \file
/// Strict reading of JSON files: what is not expected is refused, with its place and the reason.
/// Reading goes on behind an error, so that all are told at once.
#pragma once

#include "workbench/jsonremarks.h"
#include "workbench/jsontext.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QVector>

#include <array>

namespace workbench {

class JsonFile;
struct JsonMember;

/// A value of a JSON file that knows its place in it. When it is not what is asked for, its file
/// is told "steps[2].outputs.Ia1.amplitude: reason" with line and column, and a fallback is given:
/// what has been read is of no use in the end. The file must outlive the node.
///
/// A node may be absent: a required member that is missing, which has been told, or an optional
/// one. It has no members and no elements, and gives every fallback silently.
class JsonNode
{
public:
    /// Tells the file that the value is wrong (or, by warn(), doubtful) for \a reason. Nothing is
    /// told about an absent one.
    void refuse(const QString &reason) const;
    void warn(const QString &reason) const;
    /// As refuse(), at the place of the member's key.
    void refuseKey(const QString &reason) const;

    /// The same value; messages about it and all in it say \a name behind their path, as in
    /// "steps[1].time (fault)".
    [[nodiscard]] JsonNode named(const QString &name) const;

    [[nodiscard]] bool isAbsent() const { return m_number < 0; }
    [[nodiscard]] bool isObject() const { return m_value.isObject(); }
    [[nodiscard]] bool isList() const { return m_value.isArray(); }
    [[nodiscard]] bool isText() const { return m_value.isString(); }
    [[nodiscard]] bool isNumber() const { return m_value.isDouble(); }
    [[nodiscard]] bool isBoolean() const { return m_value.isBool(); }

    [[nodiscard]] JsonFile &file() const { return *m_file; }
    [[nodiscard]] const QString &path() const { return m_path; } ///< empty for the whole file
    [[nodiscard]] testconfiguration::Place place() const;

    /// Refuses anything but an object whose keys are all among \a known.
    void expectKeys(const QStringList &known) const;
    [[nodiscard]] bool has(const QString &key) const;
    /// The member \a key, which must be there.
    [[nodiscard]] JsonNode operator[](const QString &key) const;
    /// The member \a key, absent if there is none.
    [[nodiscard]] JsonNode optional(const QString &key) const;
    /// The members of an object in the order of the file; none of anything else, which is refused.
    [[nodiscard]] QVector<JsonMember> members() const;
    /// An object as it is; anything else is refused.
    [[nodiscard]] QJsonObject object() const;

    /// The elements of a list of \a least to \a most elements; none of another list.
    [[nodiscard]] QVector<JsonNode> elements(int least, int most) const;
    /// A number from \a least to \a most; \a fallback if it is absent or refused. Without one,
    /// \a least is given.
    [[nodiscard]] double number(double least, double most) const;
    [[nodiscard]] double number(double least, double most, double fallback) const;
    [[nodiscard]] int integer(int least, int most) const { return integer(least, most, least); }
    [[nodiscard]] int integer(int least, int most, int fallback) const;
    [[nodiscard]] bool boolean(bool fallback = false) const;
    [[nodiscard]] QString text(const QString &fallback = QString()) const;
    /// Index of the text in \a words, which must hold it.
    [[nodiscard]] int choice(const QStringList &words, int fallback = 0) const;

    /// Whether \a value, which the node stands for, is in the range; tells it as \a shown if not.
    [[nodiscard]] bool expectRange(double value, double least, double most,
                                   const QString &shown) const;
    /// Whether it is a whole number; told likewise.
    [[nodiscard]] bool expectWhole(double value, const QString &shown) const;

private:
    friend class JsonFile;
    JsonNode(JsonFile &file, int number, const QJsonValue &value)
        : m_file(&file)
        , m_number(number)
        , m_value(value)
    { }
    [[nodiscard]] JsonNode child(int number, const QString &path, const QJsonValue &value) const;
    [[nodiscard]] bool expectType(QJsonValue::Type type) const;
    [[nodiscard]] QString sentence(const QString &reason) const;

    JsonFile *m_file;
    int m_number; ///< in the text; -1 for an absent one
    QString m_path;
    QString m_name;
    QJsonValue m_value;
};

struct JsonMember
{
    QString key;
    JsonNode node;
};

/// A JSON file, and all that is to be said about it.
class JsonFile
{
    Q_DISABLE_COPY(JsonFile)

public:
    static constexpr qint64 kMostBytes = qint64(1024) * 1024;

    /// An error: a file above \a mostBytes, anything but JSON, an object with the same key twice.
    explicit JsonFile(const QString &path, qint64 mostBytes = kMostBytes);
    /// Likewise, with \a text for its content.
    JsonFile(const QString &path, const QByteArray &text);

    [[nodiscard]] const QString &path() const { return m_path; }
    /// Absent if the file is no JSON.
    [[nodiscard]] JsonNode root();
    [[nodiscard]] int errors() const { return m_errors.count; } ///< so far
    /// How often something was refused so far, the same value for the same reason included, which
    /// is one error.
    [[nodiscard]] qint64 refusals() const { return m_refusals; }
    [[nodiscard]] Remarks remarks() const; ///< so far

private:
    friend class JsonNode;
    using Note = JsonText::Problem;

    void parse(const QByteArray &text);
    void refuse(const Note &note);

    /// Those of one severity: the first ones by their places, and how many there are.
    struct Notes
    {
        void add(const Note &note);
        [[nodiscard]] QVector<Note> first() const;

        QVector<Note> held;
        int count = 0;
    };

    QString m_path;
    JsonText m_text;
    bool m_isRead = false;
    qint64 m_refusals = 0;
    Notes m_errors;
    Notes m_warnings;
};

} // namespace workbench
