/// \file
/// Which shots of a plan are to be played, in which order, and what came of them.
#pragma once

#include "workbench/testresult.h"

#include <QMap>
#include <QString>
#include <QVector>

#include <optional>

namespace workbench {

/// Hands out the shots of some cases of a plan, and takes their records. No clock and no board.
///
/// Shots may be played side by side: only those of one search wait for each other. What comes out
/// does not depend on that.
class ShotSchedule
{
    Q_DISABLE_COPY(ShotSchedule)

public:
    struct Progress
    {
        int played = 0;
        int expected = 0; ///< those played included; of a search about as many as it takes
        int passed = 0; ///< shots
        int failed = 0; ///< shots that have not passed
    };

    /// \param plan outlives the schedule
    /// \param cases their numbers, ascending
    /// \param failFast whether nothing is played behind the first shot that does not pass
    ShotSchedule(const TestPlan &plan, const QVector<int> &cases, bool failFast);

    /// What to play now; nothing if the record of another shot has to come first, or all are done.
    [[nodiscard]] std::optional<Shot> next();
    /// Of a shot that next() has given.
    void take(const ShotRecord &record);
    /// Whether that shot has passed; of a search: whether it could be played.
    [[nodiscard]] bool hasPassed(const ShotRecord &record) const;
    /// Whether no shot is to be played any more, and none is being played.
    [[nodiscard]] bool isDone() const;

    [[nodiscard]] Progress progress() const;
    /// All shots in the order of the plan. Those without a record are skipped, for the reason
    /// \a why, or because another one has not passed.
    [[nodiscard]] QVector<ShotRecord> records(const QString &why) const;

private:
    struct Track
    {
        int caseNumber = 0;
        QVector<Shot> shots; ///< those of a search: that were handed out until now
        int handedOut = 0;
        std::optional<ThresholdSearch> search;
        QMap<int, ShotRecord> records; ///< by index of the shot
        bool isBrokenOff = false; ///< a search, by a shot that could not be played
    };
    /// A place in the order of the plan.
    struct Place
    {
        int track = 0;
        int shot = 0;
        bool operator<(const Place &other) const
        {
            return track != other.track ? track < other.track : shot < other.shot;
        }
    };
    [[nodiscard]] std::optional<Shot> nextOf(Track &track) const;
    [[nodiscard]] bool mayPlay(const Place &place) const;
    [[nodiscard]] int shotsExpected(const Track &track) const;
    void continueSearch(Track &track, const ShotRecord &record, const Place &place);
    void noteFailure(const Place &place);

    const TestPlan &m_plan;
    QVector<Track> m_tracks;
    const bool m_failFast;
    std::optional<Place> m_firstFailure;
    int m_passed = 0;
    int m_failed = 0;
};

} // namespace workbench
