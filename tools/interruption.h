/// \file
/// Ctrl-C (SIGINT) and the request to terminate (SIGTERM), noted until somebody looks.
#pragma once

namespace interruption {

/// From now on the first of them is only noted; the second ends the program as usual.
void expect();
[[nodiscard]] bool hasCome();

} // namespace interruption
