/// \file
/// What was seen while a test plan was run. Every verdict and every report is made from it alone.
#pragma once

#include "protocol/statusreply.h"
#include "workbench/observation.h"
#include "workbench/shot.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QVector>

#include <memory>
#include <optional>

namespace workbench {

/// What was seen of one shot.
struct ShotRecord
{
    Shot shot;
    /// Why it could not be played to its end, or its result not be read: one sentence. Empty if it
    /// could; else #observation is what is known nevertheless.
    QString error;
    /// Why it was not played at all. Empty if it was.
    QString skipped;
    Observation observation;
    statusreply::State end; ///< the board's last state: frames, problems, punctuality
    QString capture; ///< path of the capture that was kept, beside the record; empty: none

    [[nodiscard]] bool wasPlayed() const { return error.isEmpty() && skipped.isEmpty(); }
};

/// The run of a plan.
struct TestRecord
{
    /// A file whose content is not in the record.
    struct File
    {
        QString path; ///< as the plan has it
        QByteArray sha256; ///< hexadecimal
    };

    QString program; ///< "lumtarctl 1.2.0"
    QString board; ///< "software board in virtual time", or where it was
    QString played; ///< when, in UTC as ISO 8601; empty in virtual time, where it means nothing
    bool interrupted = false;
    QVector<TestPlan::Source> sources; ///< of the plan
    File configuration;
    QVector<ShotRecord> shots; ///< in the order of the plan; those of a search as they were played
};

/// As one line of a stream between programs, and as an element of a record.
[[nodiscard]] QJsonObject toJson(const ShotRecord &shot);
/// Refuses what cannot be a shot of \a plan.
[[nodiscard]] ShotRecord readShotRecord(const JsonNode &node, const TestPlan &plan);
[[nodiscard]] QJsonObject toJson(const Shot &shot);
[[nodiscard]] Shot readShot(const JsonNode &node, const TestPlan &plan);

/// The file's content; the same record gives the same bytes. Its last member is a digest of all
/// before it.
[[nodiscard]] QByteArray toJson(const TestRecord &record);

/// A record and the plan that stands in it.
struct RecordedTest
{
    TestRecord record;
    std::shared_ptr<const TestPlan> plan;
};

/// Reads the record at \a path, at most 256 MiB. Refused: what was cut off or changed, another
/// version, shots that its plan does not have or has once only.
[[nodiscard]] Expected<RecordedTest> readRecord(const QString &path);

/// Makes one of several records of one plan, which must not share a case. Refused: other plans,
/// configurations or boards.
[[nodiscard]] Expected<RecordedTest> joined(const QVector<RecordedTest> &records);

} // namespace workbench
