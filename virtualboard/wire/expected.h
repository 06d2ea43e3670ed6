#pragma once

#include <QString>

#include <tl/expected.hpp>

namespace virtualboard {

/// The value, or why there is none: one sentence that names the place and the reason.
template <typename T>
using Expected = tl::expected<T, QString>;

/// To return where an Expected is wanted.
using Refusal = tl::unexpected<QString>;

} // namespace virtualboard
