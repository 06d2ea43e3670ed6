#pragma once

#include "inputfile.h"
#include "performer.h"

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
        qint64 startTime = 0; ///< of the first sequence, absolute
        qint64 limit = 0; ///< ns; the longest that a sequence is played
        std::optional<InputFile> inputs; ///< happen in every sequence anew, if a script
        FrameSink *sink = nullptr; ///< null: the frames go nowhere
    };

    VirtualTimePerformer(Options options, Report report);
    ~VirtualTimePerformer() override; ///< stops

    void start(const TestProgram &program) override;
    void stop() override;
    void trigger() override { m_trigger = true; }

private:
    void play(Player &player, const PlannedInputs &inputs);

    const Options m_options;
    const Report m_report;
    qint64 m_nextStart; ///< absolute
    std::thread m_thread;
    std::atomic<bool> m_stop = false;
    std::atomic<bool> m_trigger = false;
};

} // namespace virtualboard
