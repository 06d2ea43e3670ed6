#pragma once

#include "virtualboard/wire/commands.h"

namespace virtualboard {

/// Bytes of memory that a decoded command occupies, about: what its decoder was given can grow
/// manifold, since every entry of a dataset and every problem is an object of its own.
[[nodiscard]] qint64 memoryOf(const DecodedCommand &decoded);

} // namespace virtualboard
