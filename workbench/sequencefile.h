/// \file
/// The sequence file: a state sequence as a protection engineer writes it down (JSON). The format
/// is described in examples/README.md.
#pragma once

#include <lumtarengine.h>

#include <QString>
#include <QStringList>
#include <QVector>

/// What a sequence file says, completely checked.
struct Sequence
{
    QVector<CStep> steps; ///< 1 to 5
    QStringList names; ///< of the steps
    quint16 samplesPerCycle = 80;
    quint8 nominalFrequency = 50; ///< Hz
    int protocol = 0; ///< as LumtarEngine::SetProtocal() takes it
    bool dualAD = false; ///< the second outputs mirror the first
    bool amplitudesAreSecondary = false; ///< the engine multiplies them by the ratios below
    int voltageRatio = 0; ///< tenth of the ratio, as LumtarEngine::SetVIInputWay() takes it
    int currentRatio = 0;

    static constexpr quint8 end =
        255; ///< a step that is never there: going to it ends the sequence
    /// The name of step \a number, "end", or the number itself.
    [[nodiscard]] QString nameOf(int number) const;
};

/// Reads the file at \a path. Throws InputError when anything in it is wrong.
[[nodiscard]] Sequence readSequence(const QString &path);

/// Writes the settings and the steps into \a engine.
void apply(const Sequence &sequence, LumtarEngine &engine);
