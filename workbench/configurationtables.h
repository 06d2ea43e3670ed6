/// \file
/// Shows a checked test configuration to people and to programs.
#pragma once

#include "configuration/testconfiguration.h"

#include <QJsonObject>
#include <QString>

namespace workbench {

/// Everything about the configuration: svStreams, gooseStreams, outputs (which dataset entry
/// carries binary outputs 1 to 4; only those that are carried), subscriptions, problems (those that
/// the check holds) and how many problemsLeftOut, and the counts errors and warnings. Offsets count
/// bytes from the first byte of the destination MAC address; frameSize counts the VLAN tag and not
/// the frame check sequence.
[[nodiscard]] QJsonObject toJson(const testconfiguration::CheckedConfiguration &configuration);

/// The same without the problems, as tables of plain text; empty if the file could not be read.
/// \param width characters of a line
[[nodiscard]] QString toText(const testconfiguration::CheckedConfiguration &configuration,
                             int width);

} // namespace workbench
