/// \file
/// Checks a test configuration without a board.
#pragma once

#include "configurationproblems.h"

#include <testconfiguration.h>

#include <QString>
#include <QStringList>
#include <QVector>

#include <array>

/// A sampled-value stream that would be published.
struct SvStream
{
    int stream;
    testconfiguration::SvPublication publication;
    QStringList channelNames; ///< as many as there are channels
};

/// A GOOSE stream that would be published.
struct GooseStream
{
    int stream;
    testconfiguration::GoosePublication publication;
};

/// What would carry a binary output of the state sequence.
struct OutputTarget
{
    int stream = -1; ///< of GOOSE; -1: nothing carries it
    int position = 0; ///< of the dataset entry, from 1
    int tag = 0; ///< of the entry, an MMS data tag; 0 where there is none
};

/// What a load of a test configuration would make of it, and what is wrong with the file.
///
/// An error is what the loader skips, or what the board cannot do as the file says; a warning is
/// what is tolerated.
struct CheckedConfiguration
{
    explicit CheckedConfiguration(const QString &path)
        : problems(path)
    { }

    bool isRead = false; ///< else problems holds the one reason
    QVector<testconfiguration::Kind> order; ///< of the three below, in which they are loaded
    QVector<SvStream> svStreams;
    QVector<GooseStream> gooseStreams;
    QVector<testconfiguration::Subscription> subscriptions;
    std::array<OutputTarget, testconfiguration::kBinaryOutputs> outputs;
    ConfigurationProblems problems;
};

/// Reads the test configuration at \a path as the loader would, for sampled values at \a
/// samplesPerSecond. A file that cannot be read has one error and nothing else.
[[nodiscard]] CheckedConfiguration checkConfiguration(const QString &path, int samplesPerSecond);
