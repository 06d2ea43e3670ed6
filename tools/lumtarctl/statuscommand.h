/// \file
/// lumtarctl status: what the board says of itself.
#pragma once

#include "tools/lumtarctl/runcommand.h"
#include "workbench/failure.h"
#include "workbench/sequence.h"

#include <optional>

/// Which status is to be shown, and how.
struct StatusOrder
{
    std::optional<int> which; ///< else the state and the changes of steps
    bool isRaw = false; ///< as bytes
    bool isJson = false;
    workbench::Sequence sequence; ///< for the names of the steps; may have none
};

/// Reads from the board and shows; returns the exit status. A status that is not understood is
/// shown as bytes.
[[nodiscard]] workbench::Expected<int> showStatus(const Endpoint &endpoint,
                                                  const StatusOrder &order);
