/// \file
/// The phasors of a step: what it puts out, as arrows.
#pragma once

#include "workbench/sequence.h"

#include <QRectF>
#include <QString>
#include <QVector>

class QPainter;

namespace workbench {

/// The voltages and the currents of a step, each to a scale of its own, with a legend that tells
/// amplitudes and angles in figures.
class PhasorPicture
{
public:
    struct Phasor
    {
        QString name; ///< of the outputs; more than one if they are alike
        QString text; ///< amplitude, angle and frequency
        double amplitude = 0;
        double angle = 0; ///< degrees, counter-clockwise from the right
        QString output; ///< the first one, whose stroke it has
    };

    /// \param step number of a step of \a sequence; for another one nothing is drawn
    PhasorPicture(const Sequence &sequence, int step);

    /// Side by side where \a area is wide enough, else one above the other. 600 by 330 pixels are
    /// enough.
    void paint(QPainter &painter, const QRectF &area) const;

private:
    struct Diagram
    {
        QString title; ///< quantity and unit
        QString unit;
        QVector<Phasor> phasors;
    };
    void add(const Sequence &sequence, const SequenceStep &step, int output);
    void paint(QPainter &painter, const QRectF &area, const Diagram &diagram) const;

    Diagram m_voltages;
    Diagram m_currents;
};

} // namespace workbench
