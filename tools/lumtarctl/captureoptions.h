/// \file
/// What the commands that read a capture have in common: which part of it is asked for.
#pragma once

#include "workbench/plotdata.h"
#include "workbench/plotwindow.h"
#include "workbench/sequence.h"

#include <QString>

#include <optional>

class QCommandLineParser;

/// What the command line says of a capture, checked as far as that goes without reading it.
struct CaptureOrder
{
    QString capture;
    QString stream; ///< empty: the first one
    int run = 0; ///< number of the sequence in the capture, from 0
    workbench::PlotRange range; ///< but for PlotRange::all
    std::optional<workbench::Sequence> sequence;
};

/// Takes the first argument of the command, --stream, --run, --from, --to and --sequence.
[[nodiscard]] workbench::Expected<CaptureOrder> captureOrderOf(const QCommandLineParser &options);

/// What \a order means in the capture that has this \a outline. Fails when it does not have that,
/// or shows that another sequence was played.
[[nodiscard]] workbench::Expected<workbench::PlotChoice>
choiceOf(const CaptureOrder &order, const workbench::PlotOutline &outline);
