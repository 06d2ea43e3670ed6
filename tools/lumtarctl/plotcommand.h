/// \file
/// lumtarctl plot: draws a capture.
#pragma once

class QCommandLineParser;

/// Draws the capture that \a options name; returns the exit status: 0, or 1 if gnuplot is missing
/// or failed. Throws an InputError when an option, a file or what it holds is of no use.
int plotCapture(const QCommandLineParser &options);
