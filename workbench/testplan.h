/// \file
/// A test plan: what is tested, with which values, and what is expected of it.
#pragma once

#include "workbench/assessment.h"
#include "workbench/bisection.h"
#include "workbench/characteristic.h"
#include "workbench/quantity.h"
#include "workbench/sequence.h"
#include "workbench/signalnames.h"

#include <QByteArray>
#include <QString>
#include <QVector>

#include <limits>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

namespace workbench {

/// What a report says of the device under test: names as a reader sees them ("Maker"), and texts.
struct RelayFact
{
    QString name;
    QString text;
};

/// What stands in for the device under test where the board plays in virtual time.
struct StandIn
{
    /// A change of a logic input.
    struct Event
    {
        /// Only where a parameter of the shot is in this range.
        struct Condition
        {
            QString parameter;
            double atLeast = -std::numeric_limits<double>::infinity();
            double below = std::numeric_limits<double>::infinity();
        };
        Quantity time; ///< seconds since the start of the sequence
        int channel = 0; ///< logic channel, or statusreply::kNoChannel for the trigger
        bool on = true;
        std::optional<Condition> condition;
    };

    QString file; ///< a script of inputs or a capture, as it can be opened; empty: `events`
    QVector<Event> events; ///< in the order of the plan

    [[nodiscard]] bool isNothing() const { return file.isEmpty() && events.isEmpty(); }
};

/// A case that is played once for each of several values.
struct Sweep
{
    QString parameter;
    QVector<Parameters> points; ///< values of that parameter and of those that go with it
    bool isLogarithmic = false; ///< spaced so, and best drawn so
};

/// A case that looks for the values at which a function picks up and drops off.
struct Search
{
    /// One of the two thresholds.
    struct Edge
    {
        Event event; ///< that the function operates, or drops off
        int step = 0; ///< it counts from the entry into this step on
        Parameters parameters; ///< further ones, for the shots of this threshold
    };
    QString parameter;
    ThresholdSettings settings;
    Edge pickUp;
    Edge dropOff; ///< if settings.withDropOff
};

/// An assessment that may depend on the values of a shot.
struct PlannedAssessment
{
    struct Time
    {
        /// Its allowed band holds if there is nothing else here.
        TimeAssessment fixed;
        std::optional<Quantity> nominal; ///< seconds
        std::optional<Quantity> atLeast; ///< likewise
        std::optional<Quantity> atMost; ///< likewise
        std::optional<Expectation> characteristic; ///< of the parameter `of`
        QString of;
        Tolerance minus; ///< of `nominal`
        Tolerance plus; ///< likewise
    };

    QString name;
    std::variant<Time, LevelAssessment, NeverAssessment, PathAssessment> what;

    /// What is to be assessed in a shot with these values.
    [[nodiscard]] Assessment in(const Parameters &values) const;
    /// The expectation along a characteristic; null if there is none.
    [[nodiscard]] const Time *alongCharacteristic() const;
};

struct TestCase
{
    QString name; ///< unique in its plan
    QString description;
    QString sequenceName; ///< its file as the plan has it; empty if it stands in the plan
    QStringList stepNames; ///< of its sequence
    SignalNames names; ///< of the plan, and of its sequence where the plan has none
    Parameters parameters; ///< all of the case, but for those of a sweep or a search
    int repetitions = 1;
    StandIn device;
    std::variant<std::monostate, Sweep, Search> variation;
    QVector<PlannedAssessment> assessments;

    [[nodiscard]] const Sweep *sweep() const { return std::get_if<Sweep>(&variation); }
    [[nodiscard]] const Search *search() const { return std::get_if<Search>(&variation); }
};

/// A plan that has been read, and the texts that it was read from.
class TestPlan
{
    Q_DISABLE_COPY(TestPlan)

public:
    static constexpr int kMostCases = 1000;
    static constexpr int kMostShots = 100000; ///< that are not of a search

    /// A text that the plan was read from.
    struct Source
    {
        QString path; ///< as the plan has it; of the plan itself: its file name
        QByteArray text;
        QByteArray sha256; ///< hexadecimal
    };

    TestPlan() = default;

    QString path; ///< as it was opened
    QString title;
    QString description;
    QString configuration; ///< as the plan has it
    QString configurationPath; ///< as it can be opened
    QVector<RelayFact> relay;
    QVector<TestCase> cases;
    QVector<Source> sources; ///< the plan first

    /// The sequence of case \a number with these values; fails if one of them is out of range.
    [[nodiscard]] Expected<Sequence> sequence(int number, const Parameters &values) const;

    /// Where case \a number stands, and its sequence, so that something can be told about them.
    [[nodiscard]] const JsonNode &caseNode(int number) const;
    [[nodiscard]] const JsonNode &sequenceNode(int number) const;
    /// What has been told so far: on the plan, then on each sequence file, if there is any.
    [[nodiscard]] QVector<Remarks> remarks() const;

private:
    friend class PlanReader;
    std::vector<std::unique_ptr<JsonFile>> m_files; ///< of plan and sequences
    std::vector<JsonNode> m_caseNodes;
    std::vector<JsonNode> m_sequences; ///< of each case
};

} // namespace workbench
