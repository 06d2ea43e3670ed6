/// \file
/// lumtarctl test PLAN --shots: plays the shots that another program hands it (ShotProcesses).
#pragma once

#include "workbench/failure.h"

#include <QString>

/// Answers lines on the standard input until that ends; returns the exit status.
[[nodiscard]] workbench::Expected<int> playShots(const QString &planPath);
