/// \file
/// Ctrl-C (SIGINT), the request to terminate (SIGTERM), a terminal that is closed (SIGHUP) and a
/// reader of the output that goes (SIGPIPE), noted until somebody looks.
#pragma once

namespace interruption {

/// From now on the first of them is only noted; the second ends the program as usual.
void expect();
[[nodiscard]] bool hasCome();

} // namespace interruption
