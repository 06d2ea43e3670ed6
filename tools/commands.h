/// \file
/// What lumtarctl can do.
#pragma once

#include <QString>
#include <QStringList>

class QCommandLineParser;

/// A command of lumtarctl with the options that it takes.
struct Command
{
    QString name;
    QString summary;
    QStringList required; ///< names of options that must be given
    QStringList optional;
    /// Runs the command. Throws InputError or BoardError.
    void (*run)(const QCommandLineParser &options);
};

/// All commands.
[[nodiscard]] const QList<Command> &commands();

/// Declares the options of \a command.
void addOptions(QCommandLineParser &parser, const Command &command);
/// Refuses a required option that is missing, an option given twice, and arguments besides the
/// command.
void checkOptions(const QCommandLineParser &parser, const Command &command);
