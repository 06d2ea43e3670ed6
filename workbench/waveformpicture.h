/// \file
/// The picture of a capture: voltages, currents and states over the time of a sequence.
#pragma once

#include "workbench/plotdata.h"

#include <QMap>
#include <QRectF>
#include <QString>
#include <QStringList>

class QPainter;

namespace workbench {

/// What a capture does not know.
struct WaveformTexts
{
    QString title;
    QStringList steps; ///< names by number; there may be fewer than steps
    QMap<int, QString> inputs; ///< names by logic channel; the others are called by their number
    bool tellsStart = true; ///< the date and time of 0 s stands beside the title
};

class WaveformPicture
{
public:
    WaveformPicture(const PlotData &data, const WaveformTexts &texts);

    /// The height that suits a \a width in pixels; 500 and more are wide enough.
    [[nodiscard]] int heightFor(int width) const;
    /// Fills \a area: the curves take the height that the texts leave.
    void paint(QPainter &painter, const QRectF &area) const;

private:
    PlotData m_data;
    WaveformTexts m_texts;
};

} // namespace workbench
