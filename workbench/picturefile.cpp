#include "workbench/picturefile.h"

#include "workbench/drawing.h"

#include <QBuffer>
#include <QFontInfo>
#include <QImage>
#include <QPainter>
#include <QSvgGenerator>

namespace workbench {

namespace {

constexpr int kDotsPerInch = 96; ///< what a pixel is on a screen
constexpr double kInchesPerMetre = 1000 / 25.4;

void draw(QPaintDevice &device, const QSize &size, int scale, const Paint &paint)
{
    const QRectF area(QPointF(0, 0), QSizeF(size));
    QPainter painter(&device);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing);
    painter.scale(scale, scale);
    painter.fillRect(area, Qt::white);
    paint(painter, area);
}

/// The font that texts were measured with comes first where they are shown, so that they end where
/// they should; then one that is as wide. No text can hold this attribute: its quotes are escaped.
QByteArray withFonts(QByteArray svg)
{
    QString measured = QFontInfo(textFont()).family();
    measured.remove(QLatin1Char('\'')).remove(QLatin1Char(','));
    const QString fonts =
        QStringLiteral("font-family=\"'%1',Verdana,sans-serif\"").arg(measured.toHtmlEscaped());
    return svg.replace("font-family=\"sans-serif\"", fonts.toUtf8());
}

} // namespace

QByteArray toSvg(const QSize &size, const Paint &paint)
{
    QBuffer buffer;
    QSvgGenerator generator;
    generator.setOutputDevice(&buffer);
    generator.setTitle(QString()); // else they speak of other things
    generator.setDescription(QString());
    generator.setResolution(kDotsPerInch);
    generator.setSize(size);
    generator.setViewBox(QRect(QPoint(0, 0), size));
    draw(generator, size, 1, paint);
    return withFonts(buffer.data());
}

QByteArray toPng(const QSize &size, const Paint &paint, int scale)
{
    QImage image(size * scale, QImage::Format_RGB32);
    const int dotsPerMetre = int(scale * kDotsPerInch * kInchesPerMetre);
    image.fill(Qt::white);
    draw(image, size, scale, paint);
    image.setDotsPerMeterX(dotsPerMetre); // not before: a painter would scale its texts by it
    image.setDotsPerMeterY(dotsPerMetre);
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return buffer.data();
}

} // namespace workbench
