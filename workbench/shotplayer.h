/// \file
/// Plays the shots of a test plan on one board, and tells what was seen.
#pragma once

#include "configuration/testconfiguration.h"
#include "workbench/testrecord.h"

#include <QHostAddress>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace workbench {

/// A board with the configuration of a plan, loaded once for all shots.
///
/// The board is one behind the link, which plays in real time; or one of software in this process
/// that plays in virtual time, with what the plan says to stand in for the device under test. That
/// answers on a loopback address of its own, so that many processes can play at once.
class ShotPlayer
{
    Q_DISABLE_COPY(ShotPlayer)

public:
    /// The longest that a sequence without end is played in virtual time.
    static constexpr std::chrono::seconds kLimit{600};

    struct Options
    {
        /// Of a board behind the link; none: a board of software, in virtual time.
        std::optional<QHostAddress> board;
        int localPort = 2002; ///< for a board behind the link
        std::function<bool()> isInterrupted; ///< looked at before every datagram
        /// Takes what the board of software has to tell, a line each; called from any thread.
        std::function<void(const QString &)> notice;
    };

    /// \param plan outlives the player
    /// \param configuration what the plan's configuration was read as
    ShotPlayer(const TestPlan &plan, testconfiguration::CheckedConfiguration configuration,
               Options options);
    ~ShotPlayer(); ///< stops a board of software

    /// Opens the link, and loads the configuration. Fails when the board does not answer. play()
    /// does it by itself, too, where it has not been done, or the link has failed since.
    [[nodiscard]] Expected<void> load();

    /// Plays \a shot to its end. Whatever goes wrong is the error of the record.
    /// \param capture file for the frames, in virtual time; empty: none
    [[nodiscard]] ShotRecord play(const Shot &shot, const QString &capture = {});

    /// Stops a board behind the link that is playing, after an interruption.
    [[nodiscard]] Expected<void> stopInterrupted();

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace workbench
