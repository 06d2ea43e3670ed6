#pragma once

#include "capturefile.h"
#include "commands.h"
#include "playback.h"

#include <QFile>
#include <QString>
#include <QVector>

#include <optional>
#include <variant>

namespace virtualboard {

/// What happens from outside during one sequence, in the order of time.
struct PlannedInputs
{
    struct Report
    {
        qint64 time = 0; ///< absolute
        QString text;
    };
    QVector<InputEvent> events;
    QVector<Report> reports; ///< due when their time comes: streams lost, channels not subscribed
};

/**
 * The inputs of the virtual board, from a script or from a capture of the device under test
 * (docs/virtual-board.md); a capture is known by its first four bytes, not by its name.
 */
class InputFile
{
public:
    static constexpr int maximumSize = 64 * 1024 * 1024; ///< bytes
    static constexpr int maximumSeconds = 1000000; ///< the latest time of a script

    /// Reads @p path. At most #maximumSize of script; a capture may have any size, of which the
    /// GOOSE messages are kept, in the order of their times: at most #maximumSize, with 64 bytes
    /// more for each.
    /// @return nothing, with @p error naming the place and the reason, when the file cannot be read
    ///         or is malformed.
    static std::optional<InputFile> read(const QString &path, QString *error);

    /// The inputs of a sequence with these subscriptions that begins at @p startTime (absolute).
    /// Those of a capture may lie before it. A channel of the script that no subscription feeds is
    /// reported the first time.
    PlannedInputs plan(const QVector<Subscription> &subscriptions, qint64 startTime) const;

    /// Time of the first packet of a capture (absolute); nothing for a script.
    std::optional<qint64> firstTime() const;

private:
    using Script = QVector<InputEvent>; ///< times count from the start of the sequence
    using Messages = QVector<CapturedFrame>;

    static std::optional<Script> readScript(QFile &file, const QString &path, QString *error);
    std::optional<Messages> readCapture(const QString &path, QString *error);

    std::variant<Script, Messages> m_inputs;
    std::optional<qint64> m_firstTime;
};

} // namespace virtualboard
