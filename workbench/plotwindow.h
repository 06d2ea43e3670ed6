/// \file
/// Which part of a capture is drawn.
#pragma once

#include "workbench/failure.h"
#include "workbench/plotoutline.h"

#include <optional>

namespace workbench {

/// A part of the time axis, seconds since the start of the sequence.
struct PlotWindow
{
    static constexpr double kLeast = 1e-6; ///< length

    double from = 0;
    double to = 0; ///< above `from`
};

/// What is asked for: where a time is missing, the capture begins or ends.
struct PlotRange
{
    std::optional<double> from;
    std::optional<double> to;
    bool all = false; ///< else, without both times: around the first step that a binary input ended
};

/// The part of \a run that \a range asks for; \a cycle is the length of one of the nominal
/// frequency in seconds. Fails when it would be empty.
[[nodiscard]] Expected<PlotWindow> windowOf(const PlotRange &range, const PlotRun &run,
                                            double cycle);

} // namespace workbench
