#pragma once

#include "virtualboard/board/boardstatus.h"
#include "virtualboard/play/performer.h"
#include "virtualboard/play/testprogram.h"

#include <QByteArray>

#include <atomic>

namespace virtualboard {

/// Passes reports on, and counts them. May be used from any thread.
class NoticeCounter
{
public:
    explicit NoticeCounter(NoticeHandler next);

    void report(const QString &line);
    quint32 count() const { return m_count; }

private:
    const NoticeHandler m_next;
    std::atomic<quint32> m_count = 0;
};

/// What the board does on each command, and what it says about itself.
class BoardLogic
{
public:
    BoardLogic(Performer &performer, NoticeCounter &reports);

    /// Obeys a command that came over the link.
    void obey(const DecodedCommand &decoded);
    /// The payload of the data reply to a status read-back.
    QByteArray status(int which);

    /// Whether a start command has come, obeyed or not.
    bool wasStarted() const { return m_started; }
    /// Whether a stop command has come since the last start.
    bool wasStopped() const { return m_stopped; }
    PlayState state() const;

private:
    void act(const ResetCommand &);
    void act(const StartStopCommand &command) { command.start ? start() : stop(); }
    void act(const StopCommand &) { stop(); }
    void act(const StateChangeCommand &) { m_performer.trigger(); }
    void act(const SubscriptionCommand &) { m_performer.watch(m_program); }
    template <typename Other>
    std::enable_if_t<kIsOneOf<
        Other, UnknownCommand, ChannelSignalCommand, SvDescriptionCommand, GooseDescriptionCommand,
        DisableCurrentStateCommand, StepConditionCommand, GooseControlCommand, StepOptionCommand,
        FrameTemplateCommand, Ft3TemplateCommand, StatusReadBackCommand, FpgaResetCommand,
        DspConfigurationCommand, SvCombinationCommand, SvChannelCommand>>
    act(const Other &)
    { }
    void tell(const QStringList &problems);
    void start();
    void stop();

    Performer &m_performer;
    NoticeCounter &m_reports;
    TestProgram m_program;
    QStringList m_told; ///< what cannot be published, and has been reported already
    quint32 m_starts = 0; ///< obeyed, since the board was switched on
    std::atomic<bool> m_started = false;
    std::atomic<bool> m_stopped = false;
    std::atomic<bool> m_playable = false;
    std::atomic<bool> m_played = false; ///< something, since the last reset
};

} // namespace virtualboard
