#include "workbench/plotwindow.h"

#include <algorithm>

namespace workbench {

namespace {

/// What the window shows around the step that a binary input ended.
constexpr double kCyclesBefore = 4;
constexpr double kCyclesAfter = 6;

} // namespace

Expected<PlotWindow> windowOf(const PlotRange &range, const PlotOutline &outline, double cycle)
{
    const PlotWindow whole{outline.first, outline.seconds(outline.last)};
    PlotWindow window{range.from.value_or(whole.from), range.to.value_or(whole.to)};
    if (outline.ended && !range.all && !range.from && !range.to)
        window = {std::max(outline.ended->front() - kCyclesBefore * cycle, whole.from),
                  std::min(outline.ended->back() + kCyclesAfter * cycle, whole.to)};
    if (window.to - window.from < PlotWindow::kLeast || window.from >= whole.to
        || window.to <= whole.from)
        return failure(
            Failure::Input,
            QStringLiteral("there is nothing to draw: the capture reaches from %1 s to %2 s")
                .arg(whole.from)
                .arg(whole.to));
    return window;
}

} // namespace workbench
