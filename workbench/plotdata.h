/// \file
/// What a picture of a capture shows. All times are seconds since the start of the sequence, or
/// since the first packet of a capture without marks of steps.
#pragma once

#include "workbench/plottrace.h"
#include "workbench/plotwindow.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>

namespace workbench {

/// Channels over one axis.
struct PlotPanel
{
    struct Line
    {
        QStringList names; ///< of the channels; more than one if they are all alike
        QVector<PlotPoint> points; ///< a curve, or the edge of the envelope; see PlotData::envelope
    };
    QString quantity; ///< "voltage", "current", "value"
    QString unit; ///< "V", "A", "counts"
    QVector<Line> lines; ///< at least one
    QStringList zero; ///< channels that are 0 all the time, and left out
};

/// The time in one step of the sequence.
struct PlotBand
{
    double begin = 0;
    double end = 0;
    int step = 0;
};

/// A change of steps by a binary input.
struct PlotInput
{
    double time = 0; ///< of the input itself
    std::optional<virtualboard::Duration> afterEntry; ///< timeInStep() of the step that it ended
    int channel = 0; ///< logic channel
    int entered = -1; ///< step; -1: the sequence ended
};

/// A logic input that changes.
struct PlotInputState
{
    int channel = 0; ///< logic channel
    QVector<PlotPoint> changes; ///< to 1: on; 0: off
};

/// States of one GOOSE stream, from when they are known.
struct PlotGoose
{
    struct Entry
    {
        QString name; ///< "entry 1, boolean"
        QVector<PlotPoint> changes; ///< to 1: true or on; 0: false or off; 0.5: neither on nor off
    };
    QString name; ///< goID, or gocbRef without one
    QVector<PlotPoint> stNum; ///< changes
    QVector<Entry> entries;
};

struct PlotData
{
    PlotStream stream;
    int run = 0; ///< number of the sequence in the capture
    PlotWindow window;
    virtualboard::WallTime start; ///< time 0
    bool sinceSequence = false; ///< time 0 is the start of the sequence, not the first packet
    double envelope = 0; ///< seconds per column if the lines are envelopes; 0: they are curves
    bool thinned = false; ///< not all samples are among the points
    QVector<PlotPanel> panels;
    QVector<PlotBand> bands;
    QVector<PlotInput> inputs;
    QVector<PlotInputState> inputStates; ///< by channel
    QVector<PlotGoose> goose;
    int statesLeftOut = 0; ///< dataset entries that change too, but are not shown
    int inputsLeftOut = 0; ///< logic inputs likewise
};

/// What of a capture is drawn: numbers in the outline.
struct PlotChoice
{
    int stream = 0;
    int run = 0;
};

/// Reads what happens in \a window; \a cycle is the length of one of the nominal frequency in
/// seconds. Fails when the capture cannot be read, or there is nothing of the stream in the window.
[[nodiscard]] Expected<PlotData> readPlotData(const QString &path, const PlotOutline &outline,
                                              const PlotChoice &choice, const PlotWindow &window,
                                              double cycle);

} // namespace workbench
