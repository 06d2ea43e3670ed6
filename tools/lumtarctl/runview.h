/// \file
/// How a run is shown: to a person, or to a program.
#pragma once

#include "protocol/statusreply.h"
#include "workbench/failure.h"
#include "workbench/testrun.h"

#include <memory>

/// What is shown while a test runs.
class RunView
{
    Q_DISABLE_COPY(RunView)

public:
    RunView() = default;
    virtual ~RunView() = default;

    /// \a isNews: another stream or step is being sent, or the last one is done.
    virtual void sending(const workbench::TransferProgress &progress, bool isNews) = 0;
    virtual void loaded(const LumtarEngine &engine) = 0;
    virtual void started() = 0;
    /// The board's state has been read; \a isNews: another state, or another step.
    virtual void playing(const statusreply::State &state, bool isNews) = 0;
    /// The sequence has ended, or \a result says why nobody knows.
    /// \param last the last state; null if there is none
    virtual void ended(const statusreply::State *last, const statusreply::Changes &changes,
                       const workbench::Expected<void> &result) = 0;
};

/// Lines and tables. \a test must outlive the view.
[[nodiscard]] std::unique_ptr<RunView> textView(const workbench::PreparedTest &test);
/// A line with a JSON object for each piece of news. Likewise.
[[nodiscard]] std::unique_ptr<RunView> jsonView(const workbench::PreparedTest &test);
