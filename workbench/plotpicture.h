/// \file
/// Drawing with gnuplot.
#pragma once

#include "workbench/failure.h"

#include <QByteArray>

namespace workbench {

/// The program that draws; fails when it is not installed.
[[nodiscard]] Expected<QString> findGnuplot();
/// What \a gnuplot makes of \a script, within two minutes.
[[nodiscard]] Expected<QByteArray> drawPicture(const QString &gnuplot, const QByteArray &script);

} // namespace workbench
