/// \file
/// What is to be said about a JSON file.
#pragma once

#include "configuration/testconfiguration.h"
#include "workbench/failure.h"

#include <QJsonArray>
#include <QString>
#include <QStringList>
#include <QVector>

namespace workbench {

/// The errors and warnings of one file, as test configurations have them too.
struct Remarks
{
    using Remark = testconfiguration::Remark;
    static constexpr int kMostShown = 100;

    QString path; ///< of the file
    QVector<Remark> shown; ///< by place; of more than kMostShown the errors come first
    int errors = 0; ///< all of them
    int warnings = 0; ///< all of them

    [[nodiscard]] bool isEmpty() const { return errors + warnings == 0; }
    /// Adds \a all, which are sorted by place, to those that are shown as far as there is room.
    void show(const QVector<Remark> &all);
    /// "FILE:LINE:COLUMN: error: reason" for each that is shown, then "and 7 more problems".
    [[nodiscard]] QStringList lines() const;
    /// An object for each that is shown: severity ("error" or "warning"), line, column, text. Line
    /// and column are 0 for the file as a whole.
    [[nodiscard]] QJsonArray toJson() const;
    /// Fails if there are errors, with all lines(), the errors first.
    [[nodiscard]] Expected<void> expectNoErrors() const;
};

/// Those of a test configuration.
[[nodiscard]] Remarks remarksOf(const testconfiguration::CheckedConfiguration &configuration);

/// Of several files together.
[[nodiscard]] Expected<void> expectNoErrors(const QVector<Remarks> &files);

/// As Remarks::toJson().
[[nodiscard]] QJsonArray toJson(const QVector<testconfiguration::Remark> &remarks);

} // namespace workbench
