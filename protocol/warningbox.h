/// \file
#pragma once

/// Warns about a GOOSE dataset entry whose type code the board's frames cannot carry: a modal box,
/// or a line on the debug channel where the process, or this thread, has no windows.
void warnUnsupportedGooseType();
