#pragma once

#include "virtualboard/inputs/inputfile.h"
#include "virtualboard/play/performer.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

namespace virtualboard {

class CaptureSink;

/// Plays in virtual time: as fast as the processor allows.
class VirtualTimePerformer : public Performer
{
public:
    struct Options
    {
        WallTime startTime; ///< of the first sequence
        Duration limit = {}; ///< the longest that a sequence is played
        Phases phases = Phases::Continuous;
        std::optional<InputFile> inputs; ///< happen in every sequence anew, if a script
        CaptureSink *capture = nullptr; ///< null: the frames go nowhere, and are only counted
        qint64 captureLimit = 0; ///< bytes at which a sequence is ended; 0: none
    };

    VirtualTimePerformer(Options options, NoticeHandler report);
    ~VirtualTimePerformer() override; ///< stops

    void start(const TestProgram &program) override;
    void stop() override;
    void trigger() override { m_trigger = true; }

    /// Ends what is being played, and plays from now on with \a options, the next sequence at
    /// their start time. May be called from any thread, as waitForEnd().
    void prepare(Options options);
    /// Returns false if what is being played has not ended after \a timeout.
    [[nodiscard]] bool waitForEnd(std::chrono::milliseconds timeout);

private:
    void end();
    void play(Player &player, const PlannedInputs &inputs);
    void watchCapture();
    void reportEnd(const Player &player);
    bool captureIsFull() const;
    void setPlaying(bool isPlaying);

    std::mutex m_commands; ///< held by whoever starts, ends or prepares
    Options m_options;
    const NoticeHandler m_report;
    WallTime m_nextStart;
    std::mutex m_playing;
    std::condition_variable m_ended;
    bool m_isPlaying = false;
    bool m_failureReported = false; ///< of the capture
    std::thread m_thread;
    std::atomic<bool> m_stop = false;
    std::atomic<bool> m_trigger = false;
};

} // namespace virtualboard
