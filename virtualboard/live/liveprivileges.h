/// \file
/// What a live board needs permission for.
#pragma once

#include "virtualboard/live/packetports.h"

#include <QString>

#include <linux/capability.h>

namespace virtualboard {

/// What is missing without the capability (capabilities(7)), and how to grant it.
[[nodiscard]] QString missingCapability(int capability);

/// Why a test should not go out through these interfaces: one of them, or what it is connected to
/// (a bridge, a bond, a VLAN, a macvlan), carries a default route of this machine, or it cannot be
/// found out. Empty if none does.
[[nodiscard]] QString defaultRouteWarning(const PortInterfaces &interfaces);

} // namespace virtualboard
