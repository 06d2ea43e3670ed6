/// \file
/// Assessments in a test plan file.
#pragma once

#include "workbench/jsonreader.h"
#include "workbench/testplan.h"

#include <QStringList>

namespace workbench {

/// Reads what one case of a plan says with the names of its steps, inputs and parameters.
class AssessmentReader
{
public:
    AssessmentReader(QStringList steps, const SignalNames &names, QStringList parameters);

    [[nodiscard]] PlannedAssessment read(const JsonNode &node) const;
    /// {"enter": STEP}, {"leave": STEP}, {"on": INPUT}, {"off": INPUT}, {"trigger": true},
    /// {"start": true} or {"end": true}.
    /// \param occurrence where the file does not say which one is meant
    [[nodiscard]] Event readEvent(const JsonNode &node, int occurrence) const;
    /// Number of the step with that name.
    [[nodiscard]] int readStep(const JsonNode &node) const;
    /// Logic channel by number or name.
    [[nodiscard]] int readChannel(const JsonNode &node) const;
    [[nodiscard]] Quantity quantity(const JsonNode &node) const
    {
        return readQuantity(node, m_parameters);
    }
    [[nodiscard]] QString readParameter(const JsonNode &node) const;

    /// Below and above the nominal value.
    struct Tolerances
    {
        Tolerance minus;
        Tolerance plus;
    };
    /// An absolute number, {"absolute": .., "percent": ..}, or {"minus": .., "plus": ..} of those.
    [[nodiscard]] static Tolerances readTolerances(const JsonNode &node);

private:
    [[nodiscard]] PlannedAssessment::Time readTime(const JsonNode &node) const;
    void readNominal(const JsonNode &node, PlannedAssessment::Time &time) const;
    [[nodiscard]] QString eventName(const Event &event) const;
    [[nodiscard]] static InverseCurve readCurve(const JsonNode &node);
    [[nodiscard]] Characteristic readCharacteristic(const JsonNode &node) const;
    [[nodiscard]] LevelAssessment readLevel(const JsonNode &node) const;
    [[nodiscard]] PathAssessment readPath(const JsonNode &node) const;

    QStringList m_steps;
    SignalNames m_names;
    QStringList m_parameters;
};

} // namespace workbench
