/// \file
/// What a tester calls logic inputs and binary outputs.
#pragma once

#include "workbench/jsonreader.h"

#include <QMap>
#include <QString>

namespace workbench {

struct SignalNames
{
    QMap<int, QString> inputs; ///< by logic channel, 0 to 255
    QMap<int, QString> outputs; ///< by number of the binary output, 1 to 4

    /// "trip A", or "logic channel 0" where it has no name.
    [[nodiscard]] QString input(int channel) const;
    /// "CB closed", or "binary output 1".
    [[nodiscard]] QString output(int number) const;
    /// Takes the names of \a other where there are none yet.
    void complete(const SignalNames &other);
    [[nodiscard]] bool isEmpty() const { return inputs.isEmpty() && outputs.isEmpty(); }
};

/// {"binaryInputs": {"0": "trip A"}, "binaryOutputs": {"1": "CB closed"}}. Refused: numbers out of
/// range, names that are empty, longer than 64 characters or given twice.
[[nodiscard]] SignalNames readSignalNames(const JsonNode &node);

} // namespace workbench
