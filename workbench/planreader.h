/// \file
/// The test plan file (JSON). Its format is described in docs/test-plans.md.
#pragma once

#include "workbench/testplan.h"

#include <functional>
#include <memory>

namespace workbench {

/// The text of a file, by its path as the plan has it.
using FileReader = std::function<Expected<QByteArray>(const QString &path)>;

struct PlanReading
{
    std::shared_ptr<const TestPlan> plan; ///< null if there are errors
    QVector<Remarks> remarks; ///< on the plan, then on each sequence file that has any
};

/// Reads and completely checks the plan at \a path and its sequence files, but not whether its
/// configuration carries them (checkPlan()).
[[nodiscard]] PlanReading readPlan(const QString &path);
/// Likewise, from \a text that is the content of \a path, and other files by \a files.
[[nodiscard]] PlanReading readPlan(const QByteArray &text, const QString &path,
                                   const FileReader &files);

} // namespace workbench
