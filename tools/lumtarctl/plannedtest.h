/// \file
/// A test plan with all that it takes to play it.
#pragma once

#include "configuration/testconfiguration.h"
#include "workbench/planreader.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>

struct PlannedTest
{
    std::shared_ptr<const workbench::TestPlan> plan;
    testconfiguration::CheckedConfiguration configuration;
    QByteArray configurationDigest; ///< SHA-256, hexadecimal

    /// Of all files that make the test.
    [[nodiscard]] QByteArray digest() const;
    /// The paths of those that are not any more what they were when they were read.
    [[nodiscard]] QStringList changedFiles() const;
};

/// Reads the plan at \a path and what it names; refuses a plan or a configuration with errors.
[[nodiscard]] workbench::Expected<PlannedTest> readPlannedTest(const QString &path);
/// Refuses a plan that its configuration does not carry (checkPlan()), with all that is wrong.
/// \returns warnings, a line each
[[nodiscard]] workbench::Expected<QStringList> expectPlayable(const PlannedTest &test);
