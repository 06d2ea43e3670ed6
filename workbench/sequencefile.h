/// \file
/// The sequence file (JSON). Its format is described in examples/README.md.
#pragma once

#include "workbench/failure.h"
#include "workbench/sequence.h"

#include <QByteArray>

namespace workbench {

/// Reads and completely checks the file at \a path.
[[nodiscard]] Expected<Sequence> readSequence(const QString &path);

/// The file's content: what has its default value is left out. Reading it gives \a sequence again,
/// provided that it is one that could have been read.
[[nodiscard]] QByteArray toJson(const Sequence &sequence);

/// Writes that over the file at \a path, all of it or nothing.
[[nodiscard]] Expected<void> writeSequence(const Sequence &sequence, const QString &path);

} // namespace workbench
