#pragma once

#include <QByteArray>

struct ConfigurationSize
{
    int svStreams; ///< of 22 channels
    int gooseStreams; ///< of 32 entries; the first four carry binary outputs 1 to 4
    int subscriptions; ///< that feed logic channels 1 and 2
};

/// 241 commands in all.
constexpr ConfigurationSize kLargeConfiguration{64, 6, 100};

QByteArray generatedConfiguration(const ConfigurationSize &size = kLargeConfiguration);
