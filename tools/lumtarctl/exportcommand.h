/// \file
/// lumtarctl export: makes a COMTRADE record of a capture.
#pragma once

#include "workbench/failure.h"

class QCommandLineParser;

/// Exports the capture that \a options name; returns the exit status.
[[nodiscard]] workbench::Expected<int> exportCapture(const QCommandLineParser &options);
