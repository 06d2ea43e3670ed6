/// \file
/// The words of a sequence file.
#pragma once

#include <QString>
#include <QStringList>

namespace workbench {

namespace key {

inline const QString description = QStringLiteral("description");
inline const QString settings = QStringLiteral("settings");
inline const QString names = QStringLiteral("names");
inline const QString binaryInputs = QStringLiteral("binaryInputs");
inline const QString parameters = QStringLiteral("parameters");
inline const QString steps = QStringLiteral("steps");

inline const QString nominalFrequency = QStringLiteral("nominalFrequency");
inline const QString samplesPerCycle = QStringLiteral("samplesPerCycle");
inline const QString svResolution = QStringLiteral("svResolution");
inline const QString amplitudes = QStringLiteral("amplitudes");
inline const QString dualAD = QStringLiteral("dualAD");
inline const QString ratios = QStringLiteral("ratios");
inline const QString voltage = QStringLiteral("voltage");
inline const QString current = QStringLiteral("current");

inline const QString name = QStringLiteral("name");
inline const QString time = QStringLiteral("time");
inline const QString onTimeout = QStringLiteral("onTimeout");
inline const QString onBinaryInput = QStringLiteral("onBinaryInput");
inline const QString onTrigger = QStringLiteral("onTrigger");
inline const QString trigger = QStringLiteral("trigger");
inline const QString goTo = QStringLiteral("goTo");
inline const QString conditionFlags = QStringLiteral("conditionFlags");
inline const QString stepOption = QStringLiteral("stepOption");
inline const QString binaryOutputs = QStringLiteral("binaryOutputs");
inline const QString outputs = QStringLiteral("outputs");

inline const QString amplitude = QStringLiteral("amplitude");
inline const QString phase = QStringLiteral("phase");
inline const QString frequency = QStringLiteral("frequency");
inline const QString phaseJump = QStringLiteral("phaseJump");

} // namespace key

/// In the order of Sequence::Resolution.
inline const QStringList resolutions = {QStringLiteral("0.01 V, 0.001 A"),
                                        QStringLiteral("1 V, 1 A")};
inline const QStringList amplitudeKinds = {QStringLiteral("RMS"), QStringLiteral("peak")};

} // namespace workbench
