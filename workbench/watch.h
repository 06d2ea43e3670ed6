/// \file
/// Follows a state sequence while the board plays it.
#pragma once

#include "boardsession.h"
#include "sequencefile.h"

/// Shows the state of the board until the sequence that was started has ended, then its changes of
/// steps. Throws BoardError when the board does not answer or has no status that is understood,
/// does not play, or was stopped; the last after it has shown the changes.
void watch(BoardSession &session, const Sequence &sequence);
