/// \file
/// lumtarctl plot: draws a capture.
#pragma once

#include "workbench/failure.h"

class QCommandLineParser;

/// Draws the capture that \a options name; returns the exit status.
[[nodiscard]] workbench::Expected<int> plotCapture(const QCommandLineParser &options);
