#pragma once

#include <QByteArray>

/// A large test configuration: 64 SV streams of 22 channels, 6 GOOSE streams of 32 entries and 100
/// subscriptions, 241 commands in all.
QByteArray generatedConfiguration();
