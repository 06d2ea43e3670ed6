/// \file
/// The numbers of a sequence file, some of which may be parameters.
#pragma once

#include "workbench/jsonreader.h"
#include "workbench/parameters.h"

#include <QMap>
#include <QString>

#include <optional>

namespace workbench {

/// Reads numbers of one sequence: 5, "Ifault", or { "parameter": "Ifault", "factor": 1.2 }.
class SequenceParameters
{
public:
    struct Number
    {
        double value;
        QString shown; ///< in messages: "5", "Ifault = 5"
    };

    /// Reads the parameters that the sequence \a root declares; \a values replace the defaults.
    void read(const JsonNode &root, const Parameters &values);
    /// To be called when all numbers have been read.
    void warnOfUnused() const;

    /// Nothing if \a node is absent, or refused.
    [[nodiscard]] std::optional<Number> resolve(const JsonNode &node);
    /// As those of JsonNode.
    [[nodiscard]] double number(const JsonNode &node, double least, double most, double fallback);
    [[nodiscard]] int integer(const JsonNode &node, int least, int most, int fallback);

private:
    struct Parameter
    {
        std::optional<double> value; ///< nothing if it has been refused
        JsonNode node;
        bool isUsed = false;
    };
    void declare(const JsonMember &member, const Parameters &values);

    QMap<QString, Parameter> m_all;
};

} // namespace workbench
