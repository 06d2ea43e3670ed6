/// \file
/// The files that a result is written to: --html, --pdf, --junit, --json.
#pragma once

#include "workbench/failure.h"
#include "workbench/testresult.h"

#include <QSaveFile>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class QCommandLineParser;

class ResultFiles
{
public:
    /// Names of the options that say where to write.
    [[nodiscard]] static const QStringList &optionNames();
    /// Declares them.
    static void addOptions(QCommandLineParser &parser);

    /// Opens all files that \a options name, so that a path that is wrong is told before a test is
    /// played. What there was in them stays until write().
    [[nodiscard]] static workbench::Expected<ResultFiles> open(const QCommandLineParser &options);

    /// Writes all of them; those that could be are written where another one could not.
    [[nodiscard]] workbench::Expected<void> write(const workbench::RecordedTest &test,
                                                  const workbench::TestResult &result);

private:
    using Content = QByteArray (*)(const workbench::RecordedTest &, const workbench::TestResult &);
    struct Kind
    {
        QString option;
        QString description;
        Content content;
        bool hasPictures;
    };
    struct Output
    {
        Content content;
        std::unique_ptr<QSaveFile> file;
    };
    [[nodiscard]] static const QVector<Kind> &kinds();

    std::vector<Output> m_outputs;
};
