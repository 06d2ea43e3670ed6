/// \file
/// Every command frame of the signal-generation board, one builder class per command.
///
/// A builder is a plain value: the default constructor fills every field with its default, a setter
/// replaces one field, and data() returns the whole command, ready for LumtarEngine::SendCommand().
/// Three have another name or argument for that: StepCondition::packetdata(), FT3Message::date5()
/// and FT3Message::date2_5(), Message_goose::data() with the record that it fills.
#pragma once

#include "boardsetup.h"
#include "controlcommands.h"
#include "ft3frame.h"
#include "gooseframe.h"
#include "gooseoffsets.h"
#include "goosesignals.h"
#include "stepcommands.h"
#include "streamdescriptions.h"
#include "subscription.h"
#include "svchannels.h"
#include "svframe.h"
