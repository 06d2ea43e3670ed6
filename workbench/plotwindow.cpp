#include "workbench/plotwindow.h"

#include <algorithm>

namespace workbench {

namespace {

/// What the window shows around the step that a binary input ended.
constexpr double kCyclesBefore = 4;
constexpr double kCyclesAfter = 6;

} // namespace

Expected<PlotWindow> windowOf(const PlotRange &range, const PlotRun &run, double cycle)
{
    const PlotWindow whole{run.seconds(run.first), run.seconds(run.last)};
    PlotWindow window{range.from.value_or(whole.from), range.to.value_or(whole.to)};
    if (run.ended && !range.all && !range.from && !range.to)
        window = {std::max(run.ended->front() - kCyclesBefore * cycle, whole.from),
                  std::min(run.ended->back() + kCyclesAfter * cycle, whole.to)};
    if (window.to - window.from < PlotWindow::kLeast || window.from >= whole.to
        || window.to <= whole.from)
        return failure(
            Failure::Input,
            QStringLiteral("nothing of it lies there: the capture reaches from %1 s to %2 s")
                .arg(whole.from)
                .arg(whole.to));
    return window;
}

} // namespace workbench
