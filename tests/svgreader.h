/// \file
/// What stands in an SVG picture, read by an XML reader: texts and lines where they are seen.
#pragma once

#include "workbench/drawing.h"

#include <QPointF>
#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QTransform>
#include <QVector>
#include <QXmlStreamReader>

#include <algorithm>

namespace testsupport {

struct Svg
{
    struct Text
    {
        QString text;
        QPointF place; ///< where it begins, on its base line
        double width = 0;
        int order = 0;
    };
    struct Shape
    {
        QString kind; ///< rect, polyline, path, circle
        QVector<QPointF> points; ///< the corners; of a circle the ends of its diameter
        QString fill;
        QString stroke;
        QString dash; ///< empty: solid
        int order = 0;
    };
    explicit Svg(const QByteArray &content);

    [[nodiscard]] QStringList allTexts() const;
    /// Null if there is no such text.
    [[nodiscard]] const Text *find(const QString &text) const;
    /// The middle of a text across, its base line upwards.
    [[nodiscard]] QPointF middleOf(const QString &text) const;
    /// The points of the first line with the stroke that the legend shows before \a name.
    [[nodiscard]] QVector<QPointF> curve(const QString &name) const;
    [[nodiscard]] QVector<Shape> filled(const QColor &colour) const;
    [[nodiscard]] QVector<Shape> stroked(const QColor &colour) const;

    bool isWellFormed = false;
    QVector<Text> texts;
    QVector<Shape> shapes;

private:
    void take(const QXmlStreamReader &in, const QTransform &transform);
    void take(Text text, const QString &content, const QFont &font, const QTransform &transform);
    int m_order = 0;
    QPointF m_end; ///< of the last text, as it is written
    QString m_fill;
    QString m_stroke;
    QString m_dash;
};

inline QVector<double> numbers(const QString &text)
{
    static const QRegularExpression number(QStringLiteral("[-+]?[0-9.]+(e[-+]?[0-9]+)?|nan|inf"));
    QVector<double> result;
    auto match = number.globalMatch(text);
    while (match.hasNext())
        result += match.next().captured().toDouble();
    return result;
}

inline QVector<QPointF> pairs(const QVector<double> &values)
{
    QVector<QPointF> points;
    for (int i = 0; i + 1 < values.size(); i += 2)
        points += QPointF(values[i], values[i + 1]);
    return points;
}

inline Svg::Svg(const QByteArray &content)
{
    QXmlStreamReader in(content);
    QTransform transform;
    while (!in.atEnd()) {
        if (in.readNext() != QXmlStreamReader::StartElement)
            continue;
        const QXmlStreamAttributes attributes = in.attributes();
        const auto value = [&attributes](const char *name) {
            return attributes.value(QLatin1String(name)).toString();
        };
        if (in.name() == QLatin1String("g")) {
            m_fill = value("fill");
            m_stroke = value("stroke");
            m_dash = value("stroke-dasharray");
            const QVector<double> m = numbers(value("transform"));
            transform =
                m.size() == 6 ? QTransform(m[0], m[1], m[2], m[3], m[4], m[5]) : QTransform();
        } else if (in.name() == QLatin1String("text")) {
            const Text text{{}, {value("x").toDouble(), value("y").toDouble()}, 0, m_order++};
            const QFont font = workbench::textFont(value("font-size").toDouble(),
                                                   value("font-weight").toInt() > 400);
            take(text, in.readElementText(QXmlStreamReader::IncludeChildElements).remove('\n'),
                 font, transform);
        } else {
            take(in, transform);
        }
    }
    isWellFormed = !in.hasError();
}

/// A text of several scripts comes in parts, one behind the other.
inline void Svg::take(Text text, const QString &content, const QFont &font,
                      const QTransform &transform)
{
    text.text = content;
    text.width = workbench::widthOf(content, font);
    const QPointF end = m_end;
    m_end = text.place + QPointF(text.width, 0);
    const bool continues = !texts.isEmpty() && texts.last().order + 1 == text.order
        && std::abs(text.place.x() - end.x()) < 1 && text.place.y() == end.y();
    if (continues) {
        texts.last().text += content;
        texts.last().width += text.width;
        texts.last().order = text.order;
        return;
    }
    text.place = transform.map(text.place);
    texts.append(text);
}

inline void Svg::take(const QXmlStreamReader &in, const QTransform &transform)
{
    const QXmlStreamAttributes attributes = in.attributes();
    const auto number = [&attributes](const char *name) {
        return attributes.value(QLatin1String(name)).toDouble();
    };
    Shape shape{in.name().toString(), {}, m_fill, m_stroke, m_dash, 0};
    if (shape.kind == QLatin1String("polyline")) {
        shape.points = pairs(numbers(attributes.value(QLatin1String("points")).toString()));
        shape.fill = QStringLiteral("none");
    } else if (shape.kind == QLatin1String("path")) {
        shape.points = pairs(numbers(attributes.value(QLatin1String("d")).toString()));
    } else if (shape.kind == QLatin1String("rect")) {
        const QPointF corner(number("x"), number("y"));
        shape.points = {corner, corner + QPointF(number("width"), number("height"))};
    } else if (shape.kind == QLatin1String("circle")) {
        const QPointF centre(number("cx"), number("cy"));
        const QPointF radius(number("r"), 0);
        shape.points = {centre - radius, centre + radius};
    } else {
        return;
    }
    for (QPointF &point : shape.points)
        point = transform.map(point);
    shape.order = m_order++;
    shapes.append(shape);
}

inline QStringList Svg::allTexts() const
{
    QStringList all;
    for (const Text &each : texts)
        all += each.text;
    return all;
}

inline const Svg::Text *Svg::find(const QString &text) const
{
    const auto found = std::find_if(texts.begin(), texts.end(),
                                    [&text](const Text &each) { return each.text == text; });
    return found == texts.end() ? nullptr : &*found;
}

inline QPointF Svg::middleOf(const QString &text) const
{
    const Text *const found = find(text);
    return found ? found->place + QPointF(found->width / 2, 0) : QPointF();
}

inline QVector<QPointF> Svg::curve(const QString &name) const
{
    const Text *const legend = find(name);
    if (!legend)
        return {};
    QString stroke;
    for (const Shape &shape : shapes) {
        if (shape.kind != QLatin1String("polyline"))
            continue;
        if (shape.order < legend->order)
            stroke = shape.stroke; // the last one before the name is its sample
        else if (shape.points.size() > 2 && shape.stroke == stroke)
            return shape.points;
    }
    return {};
}

inline QVector<Svg::Shape> Svg::filled(const QColor &colour) const
{
    QVector<Shape> found;
    std::copy_if(shapes.begin(), shapes.end(), std::back_inserter(found),
                 [&](const Shape &each) { return each.fill == colour.name(); });
    return found;
}

inline QVector<Svg::Shape> Svg::stroked(const QColor &colour) const
{
    QVector<Shape> found;
    std::copy_if(shapes.begin(), shapes.end(), std::back_inserter(found),
                 [&](const Shape &each) { return each.stroke == colour.name(); });
    return found;
}

} // namespace testsupport
