/// \file
/// What lumtarctl can do.
#pragma once

#include "workbench/failure.h"

#include <QString>
#include <QStringList>

class QCommandLineParser;

/// A command of lumtarctl with the options that it takes.
struct Command
{
    /// What must be given besides options.
    struct Argument
    {
        QString name;
        QString description;
        bool isList = false; ///< it may be given several times
    };
    QString name;
    QString summary;
    Argument argument; ///< without a name if there is none
    QStringList required; ///< names of options that must be given
    QStringList optional;
    /// Runs the command; returns the exit status.
    workbench::Expected<int> (*run)(const QCommandLineParser &options);
    bool draws = false; ///< needs a QGuiApplication
    bool writesResults = false; ///< takes the options of ResultFiles
};

/// All commands.
[[nodiscard]] const QList<Command> &commands();

/// Names of all options that \a command takes.
[[nodiscard]] QStringList optionNames(const Command &command);
/// Declares the options and the argument of \a command.
void addOptions(QCommandLineParser &parser, const Command &command);
/// Refuses a required option or an argument that is missing, an option given twice, and further
/// arguments.
[[nodiscard]] workbench::Expected<void> checkOptions(const QCommandLineParser &parser,
                                                     const Command &command);
