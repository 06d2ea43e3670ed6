#pragma once

#include "virtualboard/capture/capturefile.h"
#include "virtualboard/play/playback.h"
#include "virtualboard/wire/commands.h"
#include "virtualboard/wire/expected.h"

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
        WallTime time;
        QString text;
    };
    QVector<InputEvent> events;
    QVector<Report> reports; ///< due when their time comes: streams lost, channels not subscribed
};

/// The inputs of the virtual board, from a script or from a capture of the device under test
/// (docs/virtual-board.md); a capture is known by its first four bytes, not by its name.
class InputFile
{
public:
    static constexpr int kMaximumSize = 64 * 1024 * 1024; ///< bytes
    static constexpr int kMaximumSeconds = 1000000; ///< the latest time of a script

    /// Reads \a path. At most #maximumSize of script; a capture may have any size, of which the
    /// GOOSE messages are kept, in the order of their times: at most #maximumSize, with 64 bytes
    /// more for each.
    static Expected<InputFile> read(const QString &path);

    /// The inputs of a script that is no file: times since the start of the sequence, in any order.
    static InputFile fromEvents(QVector<InputAt<Duration>> events);

    /// The inputs of a sequence with these subscriptions that begins at \a startTime. Those of a
    /// capture may lie before it. A channel of the script that no subscription feeds is reported
    /// the first time.
    PlannedInputs plan(const QVector<SubscriptionCommand> &subscriptions, WallTime startTime) const;

    /// Time of the first packet of a capture; nothing for a script.
    std::optional<WallTime> firstTime() const;

private:
    using Script = QVector<InputAt<Duration>>; ///< since the start of the sequence
    using Messages = QVector<CapturedFrame>;

    static Expected<Script> readScript(QFile &file, const QString &path);
    Expected<Messages> readCapture(const QString &path);

    std::variant<Script, Messages> m_inputs;
    std::optional<WallTime> m_firstTime;
};

} // namespace virtualboard
