/// \file
/// The sequence file (JSON). Its format is described in examples/README.md.
#pragma once

#include "workbench/failure.h"
#include "workbench/sequence.h"
#include "workbench/sequenceparameters.h"

#include <QByteArray>

namespace workbench {

/// Reads and completely checks the sequence that \a node is, with \a values in the place of its
/// parameters' defaults. What is wrong or doubtful is told to the node's file; if there are errors,
/// what is returned is of no use.
[[nodiscard]] Sequence readSequence(const JsonNode &node, const Parameters &values = {});

/// The same of the file at \a path. Fails with all errors.
[[nodiscard]] Expected<Sequence> readSequence(const QString &path, const Parameters &values = {});

/// The parameters of the sequence that \a node is; nothing is checked.
[[nodiscard]] Parameters parameterDefaults(const JsonNode &node);

/// The file's content: what has its default value is left out. Reading it gives \a sequence again,
/// provided that it is one that could have been read.
[[nodiscard]] QByteArray toJson(const Sequence &sequence);

/// Writes that over the file at \a path, all of it or nothing.
[[nodiscard]] Expected<void> writeSequence(const Sequence &sequence, const QString &path);

} // namespace workbench
