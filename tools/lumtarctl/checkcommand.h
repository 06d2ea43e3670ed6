/// \file
/// lumtarctl check: what a file says and what is wrong with it, without a board.
#pragma once

#include "workbench/failure.h"

class QCommandLineParser;

/// Checks the file that the command line names; returns the exit status.
[[nodiscard]] workbench::Expected<int> checkFile(const QCommandLineParser &options);
