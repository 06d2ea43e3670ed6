/// \file
/// The command line of lumtar-board.
#pragma once

#include <packetports.h>

#include <QHostAddress>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

/// GOOSE carries the seconds since 1970 in 32 bits, and a test takes some time; ns since 1970.
constexpr qint64 kLatestStart = 4'190'000'000 * qint64(1'000'000'000);

struct BoardOptions
{
    QHostAddress address;
    quint16 udpPort = 2001;
    QString capture; ///< empty: none
    QString inputs; ///< empty: none
    std::optional<qint64> startTime; ///< ns since 1970
    int limit = 0; ///< seconds that a sequence is played at most; 0: no limit
    bool live = false; ///< on interfaces, in real time
    virtualboard::PortInterfaces interfaces;
    bool iKnow = false;
    bool realtime = false;
    std::optional<int> cpu;
    bool once = false;
    int timeout = 0; ///< seconds; 0: none
    QMap<QString, int> expected; ///< commands by kind
};

/// The command line is wrong; one line of text. Exit status 2.
struct UsageError
{
    QString message;
};

/// Ends the program for --help and --version. Throws UsageError.
[[nodiscard]] BoardOptions readBoardOptions(const QStringList &arguments);
