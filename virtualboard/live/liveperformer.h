#pragma once

#include "virtualboard/live/packetports.h"
#include "virtualboard/play/performer.h"

#include <QString>

#include <memory>
#include <optional>

namespace virtualboard {

class CaptureSink;

struct LiveOptions
{
    PortInterfaces interfaces = {}; ///< at least one
    bool iKnow = false; ///< also an interface that carries the default route of the machine
    /// Priority of SCHED_FIFO, 1 to 99. Also locks all memory, as long as the performer lives.
    std::optional<int> realtime = {};
    std::optional<int> cpu = {}; ///< the processor that plays, from 0
    Duration limit = {}; ///< the longest that a sequence is played; 0: for ever
    CaptureSink *capture = nullptr; ///< the performer's own as long as it lives; null: none
    Phases phases = Phases::Continuous;
};

/// Plays in real time on network interfaces, and takes its inputs from them.
///
/// A sequence begins a few milliseconds after start(), at a whole multiple of the sample interval
/// after a whole second of the wall clock. Its sample instants are fixed from then on, by
/// CLOCK_MONOTONIC: no delay moves them. An instant whose time has passed is done at once, however
/// late it is, and none is left out; so after a stall the frames come in a burst until the schedule
/// is reached again. An instant is as late as its last frame was handed to the interface; one that
/// is late by more than a sample interval is a missed deadline.
///
/// The time of an input is that at which the kernel received the GOOSE message, so that a trip time
/// does not hold the delays of this program. An input that gets through only after the next instant
/// takes effect at the one after that, with its own time. Setting the wall clock during a sequence
/// moves neither instants nor inputs.
///
/// Its threads keep no capability but, with real-time scheduling, CAP_IPC_LOCK; those of the thread
/// that opens it stay.
class LivePerformer : public Performer
{
public:
    /// Fails if something in the options is not possible or not permitted here.
    /// \param report also takes what happens to the interfaces and to the subscribed streams
    static Expected<std::unique_ptr<LivePerformer>> open(const LiveOptions &options,
                                                         NoticeHandler report);
    ~LivePerformer() override; ///< stops

    void start(const TestProgram &program) override;
    void stop() override;
    void trigger() override;
    void watch(const TestProgram &program) override;

    /// What the playing thread has used until now.
    Duration processorTime() const;

private:
    struct Private;
    explicit LivePerformer(std::unique_ptr<Private> d);
    void run();
    void play(Player &player);

    std::unique_ptr<Private> d;
};

} // namespace virtualboard
