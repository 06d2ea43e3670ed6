#include "workbench/shotschedule.h"

#include <algorithm>
#include <cmath>

namespace workbench {

namespace {

/// About how many shots the halving takes.
int shotsOf(const ThresholdSettings &settings)
{
    const Bisection::Range &range = settings.range;
    const double resolution =
        range.resolution.of(std::max(std::abs(range.from), std::abs(range.to)));
    const double parts = std::abs(range.to - range.from) / std::max(resolution, 1e-9);
    const int shots = 2 + int(std::ceil(std::log2(std::max(parts, 1.0))));
    return std::min(shots, range.mostShots) * (settings.withDropOff ? 2 : 1);
}

} // namespace

ShotSchedule::ShotSchedule(const TestPlan &plan, const QVector<int> &cases, bool failFast)
    : m_plan(plan)
    , m_failFast(failFast)
{
    for (const int number : cases) {
        Track track;
        track.caseNumber = number;
        track.shots = plainShots(plan, number);
        if (const Search *const search = plan.cases[number].search())
            track.search.emplace(search->settings);
        m_tracks.append(track);
    }
}

bool ShotSchedule::mayPlay(const Place &place) const
{
    return !m_firstFailure || place < *m_firstFailure;
}

std::optional<Shot> ShotSchedule::nextOf(Track &track) const
{
    if (track.search) {
        const bool isWaiting = track.handedOut > int(track.records.size());
        const auto wanted = track.search->next();
        if (isWaiting || track.isBrokenOff || !wanted)
            return std::nullopt;
        track.shots.append(searchShot(m_plan, track.caseNumber, track.handedOut, *wanted));
    }
    if (track.handedOut == int(track.shots.size()))
        return std::nullopt;
    return track.shots[track.handedOut++];
}

std::optional<Shot> ShotSchedule::next()
{
    for (int i = 0; i < int(m_tracks.size()); ++i) {
        if (!mayPlay({i, m_tracks[i].handedOut}))
            return std::nullopt;
        if (const auto shot = nextOf(m_tracks[i]))
            return shot;
    }
    return std::nullopt;
}

void ShotSchedule::noteFailure(const Place &place)
{
    if (m_failFast && mayPlay(place))
        m_firstFailure = place;
}

void ShotSchedule::continueSearch(Track &track, const ShotRecord &record, const Place &place)
{
    track.isBrokenOff = !record.wasPlayed();
    if (record.wasPlayed())
        track.search->take(evaluate(m_plan, record).operated);
    const bool isOver = track.isBrokenOff || !track.search->next();
    if (isOver && (track.isBrokenOff || worst(track.search->results()) != Verdict::Passed))
        noteFailure(place);
}

bool ShotSchedule::hasPassed(const ShotRecord &record) const
{
    return evaluate(m_plan, record).verdict == Verdict::Passed;
}

void ShotSchedule::take(const ShotRecord &record)
{
    const auto isItsTrack = [&record](const Track &each) {
        return each.caseNumber == record.shot.caseNumber;
    };
    const auto track = std::find_if(m_tracks.begin(), m_tracks.end(), isItsTrack);
    const int repetitions = m_plan.cases[record.shot.caseNumber].repetitions;
    const int index = track->search ? record.shot.point
                                    : record.shot.point * repetitions + record.shot.repetition;
    track->records[index] = record;
    const Place place{int(track - m_tracks.begin()), index};
    const bool passed = hasPassed(record);
    ++(passed ? m_passed : m_failed);
    if (track->search)
        continueSearch(*track, record, place);
    else if (!passed)
        noteFailure(place);
}

bool ShotSchedule::isDone() const
{
    for (int i = 0; i < int(m_tracks.size()); ++i) {
        const Track &track = m_tracks[i];
        if (track.handedOut > int(track.records.size()))
            return false;
        const bool hasMore = track.search ? !track.isBrokenOff && track.search->next()
                                          : track.handedOut < int(track.shots.size());
        if (hasMore && mayPlay({i, track.handedOut}))
            return false;
    }
    return true;
}

int ShotSchedule::shotsExpected(const Track &track) const
{
    if (!track.search)
        return int(track.shots.size());
    const int played = int(track.records.size());
    if (track.isBrokenOff || !track.search->next())
        return played;
    return std::max(played + 1, shotsOf(m_plan.cases[track.caseNumber].search()->settings));
}

ShotSchedule::Progress ShotSchedule::progress() const
{
    Progress progress;
    for (const Track &each : m_tracks) {
        progress.played += int(each.records.size());
        progress.expected += shotsExpected(each);
    }
    progress.passed = m_passed;
    progress.failed = m_failed;
    return progress;
}

QVector<ShotRecord> ShotSchedule::records(const QString &why) const
{
    QVector<ShotRecord> all;
    const auto skip = [&](const Shot &shot, const Place &place) {
        ShotRecord skipped;
        skipped.shot = shot;
        skipped.skipped =
            mayPlay(place) ? why : QStringLiteral("a shot before it has not passed (--fail-fast)");
        all.append(skipped);
    };
    for (int i = 0; i < int(m_tracks.size()); ++i) {
        const Track &track = m_tracks[i];
        for (int shot = 0; shot < int(track.shots.size()); ++shot) {
            const bool isKept = !m_firstFailure || !(*m_firstFailure < Place{i, shot});
            if (isKept && track.records.contains(shot))
                all.append(track.records[shot]);
            else
                skip(track.shots[shot], {i, shot});
            if (track.search && all.last().skipped.size() > 0)
                break; // what followed from what was not played
        }
        const auto wanted =
            track.search && !track.isBrokenOff && track.records.size() == track.shots.size()
            ? track.search->next()
            : std::nullopt;
        if (wanted) {
            const int point = int(track.shots.size());
            skip(searchShot(m_plan, track.caseNumber, point, *wanted), {i, point});
        }
    }
    return all;
}

} // namespace workbench
