/// \file
/// Results of tests as the XML that build servers read: the layout that Ant's JUnit task made
/// common.
#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QVector>

namespace workbench {

struct JUnitCase
{
    enum Outcome {
        Passed,
        Failed, ///< what was tested is not as it must be
        Error, ///< the test could not be done
        Skipped,
    };

    QString name;
    QString className; ///< with dots, as "plan.group"
    double seconds = 0; ///< that the case took
    Outcome outcome = Passed;
    QString message; ///< one line, of a case that has not passed
    QString details; ///< lines below it
};

struct JUnitSuite
{
    QString name;
    QDateTime started; ///< written in UTC; if it is not valid, 1970 stands there
    QString host; ///< empty: "localhost"
    QVector<JUnitCase> cases;
};

/// The same suites give the same bytes. Characters that XML cannot have become "?".
[[nodiscard]] QByteArray toJUnit(const QVector<JUnitSuite> &suites);

} // namespace workbench
