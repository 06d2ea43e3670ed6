/// \file
/// Checks a test configuration before anything is sent.
#pragma once

#include <QString>
#include <QStringList>

/// Reads the test configuration at \a path as the loader would, for sampled values at \a
/// samplesPerSecond. Throws InputError "FILE:LINE:COLUMN: reason" (the place where an element's
/// start tag ends) for everything that the loader refuses, ignores, or takes for something else
/// than the file says, and for a frame that the link cannot carry.
///
/// Returns warnings of the same form: attributes that are missing where the loader's empty or 0
/// makes sense, and elements that it skips.
[[nodiscard]] QStringList checkConfiguration(const QString &path, int samplesPerSecond);
