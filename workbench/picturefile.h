/// \file
/// Pictures as files. Whoever calls this has a QGuiApplication.
#pragma once

#include <QByteArray>
#include <QRectF>
#include <QSize>

#include <functional>

class QPainter;

namespace workbench {

enum class PictureFormat { Svg, Png };

/// Draws into a rectangle of pixels of a screen, on paper that is white already.
using Paint = std::function<void(QPainter &, const QRectF &)>;

/// An SVG document of \a size pixels, texts as texts. The same picture gives the same bytes.
[[nodiscard]] QByteArray toSvg(const QSize &size, const Paint &paint);
/// A PNG file of \a size pixels, each of them \a scale times \a scale for print.
[[nodiscard]] QByteArray toPng(const QSize &size, const Paint &paint, int scale = 2);

} // namespace workbench
