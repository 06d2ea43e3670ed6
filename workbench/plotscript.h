/// \file
/// The picture of a capture as a script for gnuplot.
#pragma once

#include "workbench/plotdata.h"

#include <QByteArray>
#include <QStringList>

namespace workbench {

enum class PlotFormat { Svg, Png };

/// A script that makes gnuplot write the picture on its standard output. It needs gnuplot 5.4 or
/// later and reads no file. \a stepNames may have fewer names than there are steps.
[[nodiscard]] QByteArray plotScript(const PlotData &data, PlotFormat format, const QString &title,
                                    const QStringList &stepNames);

} // namespace workbench
