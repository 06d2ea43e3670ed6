/// \file
/// What a live board needs permission for.
#pragma once

#include "virtualboard/live/packetports.h"
#include "virtualboard/play/performer.h"

#include <QString>

#include <linux/capability.h>

namespace virtualboard {

/// What is missing without the capability (capabilities(7)), and how to grant it.
[[nodiscard]] QString missingCapability(int capability);

/// Gives up every capability of the calling thread, and of those that it starts from now on; a
/// program that they would start cannot get them back either, not even as root.
/// \param locksMemory keeps CAP_IPC_LOCK if there is one: without it, a process whose memory is all
///                    locked, also what it is yet to ask for, soon gets no more
/// \param report takes the reason if that is not possible
/// Returns whether it was.
bool giveUpCapabilities(bool locksMemory, const NoticeHandler &report);

/// Why a test should not go out through these interfaces: one of them, or what it is connected to
/// (a bridge, a bond, a VLAN, a macvlan), carries a default route of this machine, or it cannot be
/// found out. Empty if none does.
[[nodiscard]] QString defaultRouteWarning(const PortInterfaces &interfaces);

} // namespace virtualboard
