#pragma once

#include <cstdint>

/// Allocations on the heap that this thread has made so far.
std::uint64_t allocationCount();
