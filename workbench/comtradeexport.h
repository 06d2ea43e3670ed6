/// \file
/// A part of a capture as a COMTRADE record.
#pragma once

#include "workbench/comtrade.h"
#include "workbench/plotdata.h"
#include "workbench/sequence.h"

#include <QString>

#include <optional>

class QIODevice;

namespace workbench {

/// What of a capture becomes a record.
struct ExportOrder
{
    QString capture;
    PlotChoice choice;
    PlotWindow window;
    Comtrade::Revision revision = Comtrade::Revision::Y2013;
    std::optional<Sequence> sequence; ///< that was played: names, ratios, frequency
};

/// What has become a record.
struct ExportReport
{
    Comtrade record; ///< for comtradeConfiguration()
    bool isCounted = true; ///< by smpCnt, else by the times of the frames
    qint64 missing = 0; ///< samples that the capture lacks; they are marked as missing
    qint64 gaps = 0; ///< in which they are
    double firstGap = 0; ///< the last sample before it, in seconds since the start of the sequence
    qint64 surplus = 0; ///< frames left out: repeated or out of order
    bool areStatesLeftOut = false; ///< GOOSE entries beyond the thousand that are recorded
};

/// Writes the samples of the chosen stream and the states of the GOOSE entries, logic inputs and
/// steps at their times to \a data, sample by sample, as the content of a .dat file.
///
/// A sample has the states that came in until its own time; those of a GOOSE stream hold also
/// before its first message. Samples that are missing are filled in as such, with the states of the
/// one before. Fails when the capture or \a data cannot be read or written, when the window has no
/// samples or their rate cannot be known, and when more of them are missing than there are.
[[nodiscard]] Expected<ExportReport> exportCapture(const ExportOrder &order,
                                                   const PlotOutline &outline, QIODevice &data);

} // namespace workbench
