// What the painters draw: axes, phasors, characteristics, deviations; each in its place, nothing
// outside, whatever the values are.

#include "tests/svgreader.h"
#include "tests/testsupport.h"

#include "workbench/axis.h"
#include "workbench/characteristicpicture.h"
#include "workbench/deviationbar.h"
#include "workbench/phasorpicture.h"
#include "workbench/picturefile.h"

#include <QImage>
#include <QLineF>
#include <QPainter>
#include <QTest>

#include <cmath>
#include <limits>

using namespace testsupport;
using namespace workbench;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// A curve that is near 0.14 / (G^0.02 - 1), above 1 only.
std::optional<double> inverse(double value)
{
    return value > 1 ? std::make_optional(0.14 / (std::pow(value, 0.02) - 1)) : std::nullopt;
}

CharacteristicPicture characteristic(Axis::Scale scale)
{
    CharacteristicPicture picture;
    picture.valueTitle = QStringLiteral("current (A)");
    picture.timeTitle = QStringLiteral("operate time (s)");
    picture.valueScale = picture.timeScale = scale;
    picture.nominal = inverse;
    picture.least = [](double value) -> std::optional<double> {
        const auto time = inverse(value * 1.05);
        return time ? std::make_optional(*time * 0.9) : std::nullopt;
    };
    picture.most = [](double value) -> std::optional<double> {
        const auto time = inverse(value / 1.05);
        return time ? std::make_optional(*time * 1.1) : std::nullopt;
    };
    picture.pickUp = 1;
    picture.points = {{2, 10, Verdict::Passed, QString()},
                      {4, 8, Verdict::Failed, QStringLiteral("4 A")},
                      {8, std::nullopt, Verdict::Failed, QString()},
                      {16, 2.5, Verdict::Doubtful, QString()}};
    return picture;
}

Sequence sequenceOf(const QVector<SequenceOutput> &outputs, bool dualAD = false)
{
    Sequence sequence;
    sequence.dualAD = dualAD;
    SequenceStep step;
    for (int i = 0; i < outputs.size(); ++i)
        step.outputs[std::size_t(i)] = outputs[i];
    sequence.steps = {step};
    return sequence;
}

constexpr QSize kSize(600, 420);

Svg paintedPhasors(const Sequence &sequence)
{
    const PhasorPicture picture(sequence, 0);
    return Svg(
        toSvg(kSize, [&](QPainter &painter, const QRectF &area) { picture.paint(painter, area); }));
}

Svg paintedCharacteristic(const CharacteristicPicture &picture)
{
    return Svg(toSvg(
        kSize, [&](QPainter &painter, const QRectF &area) { paint(painter, area, picture); }));
}

/// Why something of \a svg lies beyond its edges; empty if nothing does.
QString outside(const Svg &svg)
{
    const QRectF area = QRectF({0, 0}, QSizeF(kSize)).adjusted(-1, -1, 1, 1);
    for (const Svg::Shape &shape : svg.shapes) {
        for (const QPointF &point : shape.points) {
            if (!area.contains(point))
                return QStringLiteral("%1 at %2, %3").arg(shape.kind).arg(point.x()).arg(point.y());
        }
    }
    for (const Svg::Text &text : svg.texts) {
        if (!area.contains(text.place))
            return text.text;
    }
    return svg.isWellFormed ? QString() : QStringLiteral("not well-formed");
}

} // namespace

class TestPictures : public QObject
{
    Q_OBJECT

private slots:
    void labelsAxes_data();
    void labelsAxes();
    void cutsLines_data();
    void cutsLines();
    void showsTexts_data();
    void showsTexts();
    void pointsPhasors();
    void keepsNamesApart();
    void drawsCharacteristics_data();
    void drawsCharacteristics();
    void marksDeviations_data();
    void marksDeviations();
    void staysInside_data();
    void staysInside();
    void writesFiles();
};

void TestPictures::labelsAxes_data()
{
    // least, most | labels at most | labels, and "." for a tick without one
    addRows(R"(
        0 10              | 6  | 0 2 4 6 8 10
        -82 82            | 9  | -80 -60 -40 -20 0 20 40 60 80
        10 -10            | 5  | -10 -5 0 5 10
        0.92 1.15         | 6  | 0.95 1.00 1.05 1.10 1.15
        0.1 0.35          | 3  | 0.1 0.2 0.3
        -0.3 0.3          | 3  | -0.2 0.0 0.2
        1e6 1000000.003   | 4  | 1000000.000 1000000.001 1000000.002 1000000.003
        0 3e8             | 4  | 0 1e+08 2e+08 3e+08
        5 5               | 3  | 0 5 10
        0 0               | 3  | -1 0 1
        nan inf           | 3  | -1 0 1
        0 1               | 1  | 0
        log 1 1000        | 4  | 1 . . . . . . . . 10 . . . . . . . . 100 . . . . . . . . 1000
        log 1 10          | 4  | 1 2 . . 5 . . . . 10
        log 0.02 0.3      | 4  | 0.02 . . 0.05 . . . . 0.1 0.2 .
        log 1 1e6         | 4  | 1 100 10000 1000000
        log 0 10          | 5  | 0.01 . . . . . . . . 0.1 . . . . . . . . 1 . . . . . . . . 10
        log -5 -3         | 4  | 0.001 . . . . . . . . 0.01 . . . . . . . . 0.1 . . . . . . . . 1
        )");
}

void TestPictures::labelsAxes()
{
    QFETCH(QStringList, row);
    QStringList words = row[0].split(QLatin1Char(' '));
    const bool isLogarithmic = words.removeOne(QStringLiteral("log"));
    const Axis axis(words[0].toDouble(), words[1].toDouble(),
                    isLogarithmic ? Axis::Scale::Logarithmic : Axis::Scale::Linear);
    QStringList labels;
    double last = -kInfinity;
    for (const Axis::Tick &tick : axis.ticks(row[1].toInt())) {
        labels += tick.label.isEmpty() ? QStringLiteral(".") : tick.label;
        QVERIFY(tick.value > last);
        last = tick.value;
        const double place = axis.place(tick.value);
        QVERIFY(place >= -1e-6 && place <= 1 + 1e-6);
        QVERIFY(std::fabs(axis.at(place) - tick.value) <= 1e-9 * std::fabs(tick.value) + 1e-12);
    }
    QCOMPARE(labels.join(QLatin1Char(' ')), row[2]);
    const Axis longer = axis.rounded(row[1].toInt());
    QVERIFY(longer.least() <= axis.least() + 1e-9 && longer.most() >= axis.most() - 1e-9);
}

void TestPictures::cutsLines_data()
{
    // points | what lies between 0 and 10
    addRows(R"(
        0,5 9,5                | 0,5 9,5
        0,5 10,15 20,5         | 0,5 5,10; 15,10 20,5
        0,-10 10,20            | 3.33333,0 6.66667,10
        0,-10 10,20 20,20 30,5 | 3.33333,0 6.66667,10; 26.6667,10 30,5
        0,-1 9,-1              |
        0,0 9,10 5,10          | 0,0 9,10 5,10
        4,4                    |
        )");
}

void TestPictures::cutsLines()
{
    QFETCH(QStringList, row);
    QStringList lines;
    for (const QVector<QPointF> &line : clipped(pairs(numbers(row[0])), 0, 10)) {
        QStringList points;
        for (const QPointF &point : line)
            points += QStringLiteral("%1,%2").arg(point.x()).arg(point.y());
        lines += points.join(QLatin1Char(' '));
    }
    QCOMPARE(lines.join(QStringLiteral("; ")), row[1]);
}

void TestPictures::showsTexts_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");
    QTest::newRow("plain") << QStringLiteral("<a> & \"b\" %1 \\n '")
                           << QStringLiteral("<a> & \"b\" %1 \\n '");
    QTest::newRow("lines") << QStringLiteral("a\nb\r\tc\x1b[m") << QStringLiteral("a?b??c?[m");
    QTest::newRow("separators") << QStringLiteral("a\u2028b\u2029c") << QStringLiteral("a?b?c");
    QTest::newRow("turned") << QStringLiteral("trip \u202Eno\u2066pi\u200F")
                            << QStringLiteral("trip ?no?pi?");
    QTest::newRow("half of a pair")
        << (QStringLiteral("a") + QChar(0xd83d) + QLatin1Char('b') + QChar(0xde00))
        << QStringLiteral("a?b?");
    QTest::newRow("no character") << (QStringLiteral("a") + QChar(0xffff) + QChar(0xfffe))
                                  << QStringLiteral("a??");
    QTest::newRow("null") << (QStringLiteral("a") + QChar(0) + QLatin1Char('b'))
                          << QStringLiteral("a?b");
}

void TestPictures::showsTexts()
{
    QFETCH(QString, text);
    QFETCH(QString, shown);
    QCOMPARE(drawable(text), shown);
    const Svg svg(toSvg(kSize, [&text](QPainter &painter, const QRectF &area) {
        drawText(painter, area, Qt::AlignLeft, text);
    }));
    QVERIFY(svg.isWellFormed);
    QCOMPARE(svg.allTexts(), QStringList{shown});
    const QString longer = text.repeated(100000);
    const double width = widthOf(fitted(longer, 200));
    QVERIFY(width > 100 && width <= 201);
}

/// From the middle of the rings, in the direction of the angle, as long as the amplitude.
void TestPictures::pointsPhasors()
{
    const Sequence sequence = sequenceOf({{57.7, 0, {}, {}},
                                          {},
                                          {28.85, -120, {}, {}},
                                          {},
                                          {57.7, 120, 49.5, {}},
                                          {},
                                          {0, 0, {}, {}}},
                                         true);
    const Svg svg = paintedPhasors(sequence);
    QCOMPARE(outside(svg), QString());
    for (const char *const text : {"voltage (V RMS)", "Va1, Va2", "57.7 V \u2220 0\u00b0",
                                   "28.85 V \u2220 -120\u00b0", "57.7 V \u2220 120\u00b0, 49.5 Hz",
                                   "Va1", "Vb1", "Vc1", "20", "60", "0 V \u2220 0\u00b0"})
        QVERIFY2(svg.find(QString::fromUtf8(text)), text);
    QVERIFY(!svg.find(QStringLiteral("current (A RMS)")) && !svg.find(QStringLiteral("Vn1")));

    QPointF centre;
    double radius = 0;
    for (const Svg::Shape &shape : svg.shapes) {
        if (shape.kind == QLatin1String("circle")
            && shape.points[1].x() - shape.points[0].x() > 2 * radius) {
            radius = (shape.points[1].x() - shape.points[0].x()) / 2;
            centre = (shape.points[0] + shape.points[1]) / 2;
        }
    }
    QVERIFY(radius > 50);
    const double angles[] = {0, -120, 120};
    for (int phase = 0; phase < 3; ++phase) {
        const QVector<Svg::Shape> heads = svg.filled(strokeOf(phase).colour);
        QCOMPARE(heads.size(), 1);
        const QLineF arrow(centre, heads[0].points[0]);
        QVERIFY(std::fabs(std::remainder(arrow.angle() - angles[phase], 360)) < 0.5);
        QVERIFY(std::fabs(arrow.length() / radius - (phase == 1 ? 28.85 : 57.7) / 60) < 0.01);
    }
}

/// Sixteen outputs, 7 degrees apart.
void TestPictures::keepsNamesApart()
{
    QVector<SequenceOutput> outputs;
    for (int i = 0; i < SequenceStep::kAnalogOutputs; ++i)
        outputs.append({i < 8 ? 50.0 + i : 1 + 0.01 * i, 7.0 * i - 20, {}, {}});
    const Svg svg = paintedPhasors(sequenceOf(outputs));
    QCOMPARE(outside(svg), QString());
    QVector<QRectF> boxes;
    for (const Svg::Text &text : svg.texts) {
        constexpr double kHeight = 10;
        boxes.append({text.place.x(), text.place.y() - kHeight, text.width, kHeight});
    }
    for (int i = 0; i < boxes.size(); ++i) {
        for (int j = 0; j < i; ++j)
            QVERIFY2(!boxes[i].intersects(boxes[j]),
                     qPrintable(svg.texts[i].text + QStringLiteral(" and ") + svg.texts[j].text));
    }
    for (const QString &name : outputNames())
        QVERIFY2(svg.allTexts().contains(name), qPrintable(name));
}

void TestPictures::drawsCharacteristics_data()
{
    QTest::addColumn<bool>("isLogarithmic");
    QTest::addColumn<QStringList>("labels"); // two of the values, two of the times
    QTest::newRow("linear") << false << QStringList{"2", "16", "4", "10"};
    QTest::newRow("logarithmic") << true << QStringList{"2", "10", "5", "20"};
}

void TestPictures::drawsCharacteristics()
{
    QFETCH(bool, isLogarithmic);
    QFETCH(QStringList, labels);
    const auto scale = isLogarithmic ? Axis::Scale::Logarithmic : Axis::Scale::Linear;
    const Svg svg = paintedCharacteristic(characteristic(scale));
    QCOMPARE(outside(svg), QString());
    for (const char *const text :
         {"current (A)", "operate time (s)", "passed", "failed", "doubtful", "no trip", "4 A"})
        QVERIFY2(svg.find(QLatin1String(text)), text);
    QVERIFY(!svg.find(QStringLiteral("not measured")));

    const auto scaled = [&](double value) { return isLogarithmic ? std::log(value) : value; };
    // Labels of the values stand lower than those of the times.
    const auto labelAt = [&svg](const QString &label, bool isValue) {
        QPointF place;
        for (const Svg::Text &text : svg.texts) {
            if (text.text == label
                && (isValue ? text.place.y() > 370 : text.place.y() < 370 && text.place.x() < 60))
                place = text.place + QPointF(text.width / 2, 0);
        }
        return place;
    };
    const double left = labelAt(labels[0], true).x();
    const double perX = (labelAt(labels[1], true).x() - left)
        / (scaled(labels[1].toDouble()) - scaled(labels[0].toDouble()));
    const double low = labelAt(labels[2], false).y();
    const double perY = (labelAt(labels[3], false).y() - low)
        / (scaled(labels[3].toDouble()) - scaled(labels[2].toDouble()));
    QVERIFY2(perX > 1 && perY < -1, qPrintable(svg.allTexts().join(QLatin1Char(' '))));
    const double middle = widthOf(QStringLiteral("x")) / 2; // of a label, above its base line
    const auto at = [&](double value, double time) {
        return QPointF(left + (scaled(value) - scaled(labels[0].toDouble())) * perX,
                       low - middle - 1 + (scaled(time) - scaled(labels[2].toDouble())) * perY);
    };

    QVector<QPointF> nominal;
    for (const Svg::Shape &line : svg.stroked(strokeOf(2).colour))
        nominal += line.points;
    QVERIFY(nominal.size() > 200);
    for (const double value : {1.5, 3.0, 12.0}) {
        const QPointF expected = at(value, *inverse(value));
        const auto nearest = std::min_element(nominal.begin(), nominal.end(), [&](auto a, auto b) {
            return std::fabs(a.x() - expected.x()) < std::fabs(b.x() - expected.x());
        });
        QVERIFY2(std::fabs(nearest->y() - expected.y()) < 4, qPrintable(QString::number(value)));
    }
    for (const QPointF &point : nominal)
        QVERIFY(point.x() >= at(1, 1).x() - 1);
    // A mark stands at its point, and once more in the legend.
    const QVector<Svg::Shape> passed = svg.filled(ink::kPassed);
    QCOMPARE(passed.size(), 2);
    const QPointF place = (passed[0].points[0] + passed[0].points[1]) / 2;
    QVERIFY(QLineF(place, at(2, 10)).length() < 4);
    QCOMPARE(svg.stroked(ink::kDoubtful).size(), 2);
    QCOMPARE(svg.stroked(ink::kFailed).size(), 2 + 1 + 2); // two crosses, and one that did not trip
}

void TestPictures::marksDeviations_data()
{
    // nominal, least, most | actual | place from -1 to 1, or an arrow
    addRows(R"(
        30 25 35 | 30    | 0
        30 25 35 | 35    | 0.5
        30 25 35 | 22.5  | -0.75
        30 30 34 | 32    | 0.25
        30 25 35 | 41    | right
        30 25 35 | -inf  | left
        30 25 35 | 1e300 | right
        30 -inf 35 | 25  | -0.5
        30 30 30 | 30    | 0
        30 30 30 | 30.1  | right
        30 25 35 | -     |
        )");
}

void TestPictures::marksDeviations()
{
    QFETCH(QStringList, row);
    const QStringList band = row[0].split(QLatin1Char(' '));
    DeviationBar bar{
        band[0].toDouble(), band[1].toDouble(), band[2].toDouble(), {}, Verdict::Passed};
    if (row[1] != QLatin1String("-"))
        bar.actual = row[1].toDouble();
    const QRectF area(10, 20, 200, 20);
    const Svg svg(
        toSvg(kSize, [&](QPainter &painter, const QRectF &) { paint(painter, area, bar); }));
    QCOMPARE(outside(svg), QString());
    for (const Svg::Shape &shape : svg.filled(ink::kTolerance)) {
        QVERIFY(shape.points[0].x() <= area.center().x()
                && shape.points[1].x() >= area.center().x());
    }
    const QVector<Svg::Shape> marks = svg.filled(ink::kPassed);
    QCOMPARE(marks.size(), row[2].isEmpty() ? 0 : 1);
    if (marks.isEmpty())
        return;
    const bool isArrow = row[2] == QLatin1String("left") || row[2] == QLatin1String("right");
    QCOMPARE(marks[0].kind, isArrow ? QStringLiteral("path") : QStringLiteral("circle"));
    const double x = marks[0].points[0].x(); // of an arrow its point
    if (isArrow) {
        QVERIFY(std::fabs(x - (row[2] == QLatin1String("left") ? area.left() : area.right())) < 2);
        return;
    }
    const double middle = (x + marks[0].points[1].x()) / 2;
    const double half = svg.filled(ink::kBand)[0].points[1].x() - area.center().x();
    QVERIFY(std::fabs((middle - area.center().x()) / half - row[2].toDouble()) < 0.01);
}

void TestPictures::staysInside_data()
{
    QTest::addColumn<double>("value");
    for (const double value : {0.0, -1.0, 1e-300, 1e300, kInfinity, -kInfinity, std::nan("")})
        QTest::newRow(qPrintable(QString::number(value))) << value;
}

/// Values that no axis is made for.
void TestPictures::staysInside()
{
    QFETCH(double, value);
    for (const auto scale : {Axis::Scale::Linear, Axis::Scale::Logarithmic}) {
        CharacteristicPicture picture = characteristic(scale);
        picture.points.append({value, value, Verdict::Passed, QStringLiteral("p")});
        picture.points.append({3, value, Verdict::Failed, QStringLiteral("p")});
        QCOMPARE(outside(paintedCharacteristic(picture)), QString());
        picture.nominal = picture.least = [value](double) { return value; };
        picture.most = nullptr;
        picture.pickUp = value;
        QCOMPARE(outside(paintedCharacteristic(picture)), QString());
        picture.points.clear();
        picture.from = value;
        picture.to = 5;
        QCOMPARE(outside(paintedCharacteristic(picture)), QString());
    }
    QCOMPARE(outside(paintedPhasors(sequenceOf({{value, 0, {}, {}}, {5, value, {}, {}}}))),
             QString());
}

/// The same bytes each time, texts as texts; pixels where they belong, at the size that was asked.
void TestPictures::writesFiles()
{
    const CharacteristicPicture picture = characteristic(Axis::Scale::Linear);
    const auto draw = [&](QPainter &painter, const QRectF &area) { paint(painter, area, picture); };
    COMPARE_BYTES(toSvg(kSize, draw), toSvg(kSize, draw));
    const auto corner = [](QPainter &painter, const QRectF &area) {
        painter.fillRect(QRectF(area.right() - 10, area.bottom() - 10, 10, 10), ink::kFailed);
    };
    const QImage image = QImage::fromData(toPng(kSize, corner, 3), "PNG");
    QCOMPARE(image.size(), kSize * 3);
    QCOMPARE(image.pixelColor(image.width() - 1, image.height() - 1), ink::kFailed);
    QCOMPARE(image.pixelColor(image.width() - 32, image.height() - 32), QColor(Qt::white));
    QVERIFY(std::abs(image.dotsPerMeterX() - 3 * 96 / 0.0254) < 2);
}

QTEST_MAIN(TestPictures)
#include "tst_pictures.moc"
