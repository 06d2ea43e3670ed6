#pragma once

#include "virtualboard/inputs/inputfile.h"
#include "virtualboard/play/performer.h"

#include <atomic>
#include <optional>
#include <thread>

namespace virtualboard {

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
        FrameSink *sink = nullptr; ///< null: the frames go nowhere
    };

    VirtualTimePerformer(Options options, NoticeHandler report);
    ~VirtualTimePerformer() override; ///< stops

    void start(const TestProgram &program) override;
    void stop() override;
    void trigger() override { m_trigger = true; }

private:
    void play(Player &player, const PlannedInputs &inputs);

    const Options m_options;
    const NoticeHandler m_report;
    WallTime m_nextStart;
    std::thread m_thread;
    std::atomic<bool> m_stop = false;
    std::atomic<bool> m_trigger = false;
};

} // namespace virtualboard
