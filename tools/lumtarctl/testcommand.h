/// \file
/// lumtarctl test: runs a test plan.
#pragma once

#include "tools/lumtarctl/runcommand.h"
#include "workbench/failure.h"

#include <optional>

class QCommandLineParser;

/// Plays the cases of a plan, prints what came of them, and writes the files that \a options name.
/// \param endpoint of the board; nothing: boards of software in virtual time
/// Returns the exit status.
[[nodiscard]] workbench::Expected<int> runTestPlan(const QCommandLineParser &options,
                                                   const std::optional<Endpoint> &endpoint);
