// Pictures of captures: what stands in them, and where; what is refused, by the workbench and by
// lumtarctl.

#include "tests/capturedframes.h"
#include "tests/svgreader.h"

#include "virtualboard/capture/capturefile.h"
#include "virtualboard/capture/capturemarks.h"
#include "workbench/picturefile.h"
#include "workbench/plotnames.h"
#include "workbench/sequencefile.h"
#include "workbench/waveformpicture.h"

#include <QDir>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cmath>

using namespace testsupport;
using namespace virtualboard;
using namespace workbench;

namespace {

constexpr double kPi = 3.14159265358979323846;

constexpr int kWidth = 1200;

QByteArray drawn(const PlotData &data, const WaveformTexts &texts, PictureFormat format)
{
    const WaveformPicture picture(data, texts);
    const QSize size(kWidth, picture.heightFor(kWidth));
    const auto paint = [&](QPainter &painter, const QRectF &area) { picture.paint(painter, area); };
    return format == PictureFormat::Svg ? toSvg(size, paint) : toPng(size, paint, 1);
}

} // namespace

class TestPlot : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void drawsValuesInPlace_data();
    void drawsValuesInPlace();
    void drawsStepsInPlace();
    void saysWhatHappened_data();
    void saysWhatHappened();
    void findsNothingToDraw_data();
    void findsNothingToDraw();
    void writesNamesLiterally_data();
    void writesNamesLiterally();
    void drawsOneSequence();
    void comparesNames_data();
    void comparesNames();
    void survivesLateMarks();
    void writesPictures();
    void refusesArguments_data();
    void refusesArguments();

private:
    workbench::Expected<QByteArray> draw(const QString &order,
                                         PictureFormat format = PictureFormat::Svg) const;
    void plot(const QString &arguments, const QString &fonts = {});
    [[nodiscard]] QString file(const char *name) const
    {
        return m_directory.filePath(QLatin1String(name));
    }
    [[nodiscard]] QByteArray content(const char *name) const;

    QTemporaryDir m_directory;
    int m_exitStatus = -1;
    QString m_errors;
};

/// Without a display, and if wanted without the fonts of the machine.
void TestPlot::plot(const QString &arguments, const QString &fonts)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("QT_QPA_PLATFORM"));
    if (!fonts.isEmpty())
        environment.insert(QStringLiteral("FONTCONFIG_FILE"), fonts);
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(m_directory.path());
    process.start(QStringLiteral(LUMTARCTL),
                  QStringLiteral("plot %1").arg(arguments).split(QLatin1Char(' ')));
    m_exitStatus = process.waitForFinished() ? process.exitCode() : -1;
    m_errors = QString::fromLocal8Bit(process.readAllStandardError());
}

/// The picture for "CAPTURE STREAM FROM TO" with "-" for what is left to the workbench.
workbench::Expected<QByteArray> TestPlot::draw(const QString &order, PictureFormat format) const
{
    constexpr double kCycle = 0.02;
    const QStringList words = order.split(QLatin1Char(' '));
    const auto time = [&words](int i) {
        return words[i] == QLatin1String("-") ? std::nullopt
                                              : std::make_optional(words[i].toDouble());
    };
    const bool all = words.contains(QLatin1String("all"));
    const PlotRange range = all ? PlotRange{{}, {}, true} : PlotRange{time(2), time(3)};
    const QString path = m_directory.filePath(words[0]);
    const workbench::Expected<PlotOutline> outline = readOutline(path);
    if (!outline)
        return tl::unexpected<Failure>(outline.error());
    const workbench::Expected<Sequence> sequence = readSequence(file("sequence.json"));
    const workbench::Expected<int> stream =
        words[1] == QLatin1String("-") ? 0 : outline->streams.named(words[1]);
    if (!stream)
        return tl::unexpected<Failure>(stream.error());
    const PlotRun &run = outline->runs.first();
    return windowOf(range, run, kCycle)
        .and_then([&](const PlotWindow &window) {
            return readPlotData(path, *outline, {*stream, 0}, window, kCycle);
        })
        .map([&](const PlotData &data) {
            return drawn(data, {words[0], sequence->names().mid(0, 2), {{7, "trip A"}}}, format);
        });
}

QByteArray TestPlot::content(const char *name) const
{
    QFile in(file(name));
    return in.open(QIODevice::ReadOnly) ? in.readAll() : QByteArray();
}

/// 4 s: 1 s of step 0, 30.2 ms of step 1, then step 2 until the end. The sines are in phase at 0 s.
void TestPlot::initTestCase()
{
    constexpr WallTime kStart{1795392000s};
    constexpr Duration kInterval = 250us;
    CaptureSink marked;
    CaptureSink bare;
    QVERIFY(marked.open(file("marked.pcap")) && bare.open(file("bare.pcap")));
    const auto add = [kStart](CaptureSink &sink, Duration time, const QByteArray &packet) {
        const OutgoingFrame out{reinterpret_cast<const uchar *>(packet.constData()),
                                int(packet.size()), 1};
        sink.publish(kStart + time, &out, 1);
    };
    std::array<float, kAnalogChannels> scale = {};
    std::fill_n(scale.begin(), 8, 0.001f);
    std::fill_n(scale.begin() + 8, 8, 10.0f);
    const QVector<Transition> changes = {{kNoStep, 0, Cause::Start, kNoChannel, 0s, 0s},
                                         {0, 1, Cause::Time, kNoChannel, 1s, 1s},
                                         {1, 2, Cause::BinaryInput, 7, 1030200us, 1030250us}};
    add(marked, 0s,
        encodeMark(StreamMark{0x4001,
                              QStringLiteral("MU01"),
                              {QString(), QStringLiteral("Ia1"), QStringLiteral("Ia2"),
                               QStringLiteral("Ib1"), QStringLiteral("Va1")}}));
    for (int i = 0; i <= 16000; ++i) {
        const Duration time = i * kInterval;
        for (const Transition &change : changes) {
            if (change.entryTime == time)
                add(marked, time, encodeMark(StepMark{change, scale}));
        }
        if (i == 4200) // what has led to step 2
            add(marked, time, encodeMark(InputMark{{1030200us, InputKind::ChannelOn, 7}}));
        if (i == 8000)
            add(marked, time, encodeMark(InputMark{{time, InputKind::ChannelOff, 7}}));
        const double sine = std::sin(2 * kPi * 50 * std::chrono::duration<double>(time).count());
        const QByteArray sv = svFrame(0x4001, {750, 10000 * sine, 10000 * sine, 0, 8000 * sine});
        add(marked, time, sv);
        if (i <= 400)
            add(bare, time, sv);
        if (i % 4 == 0)
            add(marked, time, svFrame(0x4002, {1}));
        if (i % 100 == 0)
            add(marked, time, gooseFrame(time > 1s ? 2 : 1, time > 1s, true));
    }
    QVERIFY(marked.flush() && bare.flush());
    QVERIFY(writeFile(file("cut.pcap"), content("bare.pcap").chopped(7)));
    QVERIFY(writeFile(file("no.pcap"), content("bare.pcap").left(24)));
    QVERIFY(writeFile(file("text.pcap"), "not packets") && writeFile(file("empty.pcap"), {}));
    QVERIFY(writeFile(file("fonts.conf"), "<fontconfig></fontconfig>"));
    QVERIFY(QFile::copy(QFINDTESTDATA("../examples/earth-fault.json"), file("sequence.json")));
}

void TestPlot::drawsValuesInPlace_data()
{
    // what is drawn | order | curve | tics of both axes | its largest value | time of that
    addRows(R"(
        all samples     | marked.pcap 0x4001 0 0.1   | Ia1, Ia2   | 0.02 0.08 -10 10       | 10    | 0.005
        in thousands    | marked.pcap 0x4001 0.1 0.2 | Va1        | 0.12 0.18 -40 40       | 80    | 0.105
        reduced         | marked.pcap 0x4001 2 2.99  | Ia1, Ia2   | 2.2 2.8 -10 10         | 10    | 2.005
        envelope        | marked.pcap 0x4001 all     | Ia1, Ia2   | 1.0 3.0 -10 10         | 10    | 0
        around the trip | marked.pcap 0x4001 - -     | Ia1, Ia2   | 0.96 1.10 -10 10       | 10    | 0.925
        without marks   | bare.pcap 0x4001 - -       | entry 2, 3 | 0.02 0.08 -10000 10000 | 10000 | 0.005
        )");
}

void TestPlot::drawsValuesInPlace()
{
    QFETCH(QStringList, row);
    const workbench::Expected<QByteArray> picture = draw(row[1]);
    QVERIFY2(picture, picture ? "" : qPrintable(picture.error().message));
    const Svg svg(*picture);
    QVERIFY(svg.isWellFormed);
    const QStringList tics = row[3].split(QLatin1Char(' '));
    for (const QString &tic : tics)
        QVERIFY2(svg.find(tic), qPrintable(svg.allTexts().join(QLatin1Char('|'))));
    const double left = tics[0].toDouble();
    const double perX =
        (tics[1].toDouble() - left) / (svg.middleOf(tics[1]) - svg.middleOf(tics[0])).x();
    const double perY = (tics[3].toDouble() - tics[2].toDouble())
        / (svg.middleOf(tics[3]) - svg.middleOf(tics[2])).y();

    const QVector<QPointF> curve = svg.curve(row[2]);
    QVERIFY(curve.size() > 2 && curve.size() < 3000);
    const auto ends =
        std::minmax_element(curve.begin(), curve.end(),
                            [](const QPointF &a, const QPointF &b) { return a.y() < b.y(); });
    const double largest = (ends.first->y() - ends.second->y()) * perY / 2;
    QVERIFY2(std::abs(largest / row[4].toDouble() - 1) < 0.01,
             qPrintable(QString::number(largest)));
    const double time = left + (ends.first->x() - svg.middleOf(tics[0]).x()) * perX;
    QVERIFY2(std::abs(time - row[5].toDouble()) < 2 * perX, qPrintable(QString::number(time)));
}

/// The second step is shaded, from its begin to the binary input that ended it; both pictures show
/// that, and the phases in their colours.
void TestPlot::drawsStepsInPlace()
{
    const auto order = QStringLiteral("marked.pcap 0x4001 - -");
    const workbench::Expected<QByteArray> vectors = draw(order);
    const workbench::Expected<QByteArray> pixels = draw(order, PictureFormat::Png);
    QVERIFY(vectors && pixels);
    COMPARE_BYTES(*vectors, *draw(order));
    const Svg svg(*vectors);
    const double second =
        (svg.middleOf(QStringLiteral("1.10")) - svg.middleOf(QStringLiteral("1.00"))).x() / 0.1;
    const double begin = svg.middleOf(QStringLiteral("1.00")).x();
    const double end = begin + 0.0302 * second;
    const QVector<Svg::Shape> bands = svg.filled(ink::kBand);
    QCOMPARE(bands.size(), 4); // the names, voltages, currents, states
    for (const Svg::Shape &band : bands) {
        QVERIFY(std::fabs(band.points[0].x() - begin) < 1);
        QVERIFY(std::fabs(band.points[1].x() - end) < 1);
    }
    QVector<double> inputs;
    for (const Svg::Shape &line : svg.shapes) {
        if (line.kind == QLatin1String("polyline") && line.dash == QLatin1String("6,3"))
            inputs += line.points[0].x();
    }
    QCOMPARE(inputs.size(), 4);
    QVERIFY(std::fabs(inputs[0] - end) < 1);

    // The input itself is on from there.
    const Svg::Text *const name = svg.find(QStringLiteral("trip A"));
    QVERIFY(name);
    const auto isOn = [&](const Svg::Shape &shape) {
        return shape.kind == QLatin1String("path")
            && std::fabs(shape.points[0].y() - name->place.y()) < 20
            && shape.fill != QLatin1String("none");
    };
    const auto state = std::find_if(svg.shapes.begin(), svg.shapes.end(), isOn);
    QVERIFY(state != svg.shapes.end());
    const auto top = std::min_element(state->points.begin(), state->points.end(),
                                      [](auto a, auto b) { return a.y() < b.y(); });
    QVERIFY2(std::fabs(top->x() - end) < 1, qPrintable(QString::number(top->x() - end)));

    const QImage image = QImage::fromData(*pixels, "PNG");
    QCOMPARE(image.width(), kWidth);
    const int names = int(bands[0].points[0].y()) + 2;
    QCOMPARE(image.pixelColor(int(begin) + 2, names), ink::kBand);
    QCOMPARE(image.pixelColor(int(begin) - 3, names), QColor(Qt::white));
    QCOMPARE(image.pixelColor(int(end) + 4, names), QColor(Qt::white));
    const QRect voltages(QPoint(int(begin), int(bands[1].points[0].y())),
                         bands[1].points[1].toPoint());
    int coloured = 0;
    for (int x = voltages.left(); x < voltages.right() - 3; ++x) {
        bool has = false;
        for (int y = voltages.top(); y < voltages.bottom(); ++y) {
            const QColor pixel = image.pixelColor(x, y);
            has = has || (pixel.red() > 180 && pixel.green() < 140 && pixel.blue() < 90);
        }
        coloured += has ? 1 : 0;
    }
    QVERIFY2(coloured > voltages.width() * 0.9, qPrintable(QString::number(coloured)));
}

void TestPlot::saysWhatHappened_data()
{
    // order | texts
    addRows(R"(
        marked.pcap 16385 - - | 0 s = 2026-11-23 00:00:00.000 UTC | 0 prefault | 1 fault | step 2 | binary input: trip A, 30.200 ms after entry | voltage (kV) | current (A) | zero: Ib1 | Bay '1 | stNum 1 | stNum 2 | entry 1, boolean | entry 2, double point | time since the start of the sequence (s)
        marked.pcap 0x4001 all | 0 prefault | step 2 | time since the start of the sequence (s); envelopes: smallest and largest value of every 25 ms
        marked.pcap 0x4002 - 1 | value (counts) | entry 1 | 0 prefault
        cut.pcap - - - | value (counts) | zero: entry 4 | time since the first packet (s)
        )");
}

void TestPlot::saysWhatHappened()
{
    QFETCH(QStringList, row);
    const workbench::Expected<QByteArray> picture = draw(row.takeFirst());
    QVERIFY2(picture, picture ? "" : qPrintable(picture.error().message));
    const QStringList texts = Svg(*picture).allTexts();
    for (const QString &text : row)
        QVERIFY2(texts.contains(text), qPrintable(text + texts.join(QLatin1Char('|'))));
}

void TestPlot::findsNothingToDraw_data()
{
    // order | part of the message
    addRows(R"(
        nowhere.pcap - - -              | nowhere.pcap: No such file
        text.pcap - - -                 | text.pcap: unknown file format
        empty.pcap - - -                | empty.pcap: is empty
        no.pcap - - -                   | no.pcap: there are no sampled values in it
        marked.pcap MU02 - -            | "MU02" names 0 streams of the capture; it has MU01 (AP
        marked.pcap MU01 - -            | names 2 streams of the capture; it has MU01 (AP
        marked.pcap - 5 -               | the capture reaches from 0 s to 4 s
        marked.pcap - - -1              | the capture reaches from 0 s to 4 s
        marked.pcap - 1.0001 1.0002     | no samples from 1.0001 s to 1.0002 s of MU01
        )");
}

void TestPlot::findsNothingToDraw()
{
    QFETCH(QStringList, row);
    const workbench::Expected<QByteArray> picture = draw(row[0]);
    QVERIFY(!picture && picture.error().kind == Failure::Input);
    QVERIFY2(picture.error().message.contains(row[1]), qPrintable(picture.error().message));
}

void TestPlot::writesNamesLiterally_data()
{
    QTest::addColumn<QString>("name");
    const char *const names[] = {"'",
                                 "'begins",
                                 "holds '' two",
                                 "ends'",
                                 "\"quoted\"",
                                 "50 % of %s %g %n",
                                 "%%",
                                 "`touch executed`",
                                 "'.system('touch executed').'",
                                 "\".system(\"touch executed\").\"",
                                 "'; system 'touch executed' #",
                                 "'; !touch executed",
                                 "\\",
                                 "a\\nb\\",
                                 "\\047; system(1)",
                                 "@executed",
                                 "$data1 END",
                                 "{/Bold x}_1^2",
                                 "<b>&amp;",
                                 "Überstrom \xe4\xb8\xad",
                                 "-e # comment"};
    for (const char *const name : names)
        QTest::newRow(name) << QString::fromUtf8(name);
    QTest::newRow("lines") << QStringLiteral("a\n!touch executed\n\x1b[m");
    QTest::newRow("turned") << QStringLiteral("trip \u202eno\u2069");
    QTest::newRow("end of a CDATA section") << QStringLiteral("]]>");
}

void TestPlot::writesNamesLiterally()
{
    QFETCH(QString, name);
    PlotData data;
    data.window = {0, 1};
    data.panels = {
        {name, QStringLiteral("V"), {{{name + QLatin1Char('1')}, {{0, 0}, {1, 1}}}}, {name}}};
    data.bands = {{0, 1, 0}};
    data.goose = {{name, {{0, 1}}, {{name + QLatin1Char('2'), {{0, 1}}}}}};
    const Svg svg(
        drawn(data, {name + QLatin1Char('3'), {name + QLatin1Char('4')}, {}}, PictureFormat::Svg));
    QVERIFY(svg.isWellFormed);
    QString shown = name;
    for (const QChar steering : {QChar('\n'), QChar(0x1b), QChar(0x202e), QChar(0x2069)})
        shown.replace(steering, QLatin1Char('?'));
    for (const QString &text :
         {shown, shown + QLatin1Char('1'), shown + QLatin1Char('2'), shown + QLatin1Char('3'),
          QStringLiteral("zero: ") + shown, QStringLiteral("0 ") + shown + QLatin1Char('4')})
        QVERIFY2(svg.find(text), qPrintable(text + svg.allTexts().join(QLatin1Char('|'))));
}

/// Two sequences with 2 s between them, the first one with a gap: what is drawn lies where it was.
void TestPlot::drawsOneSequence()
{
    const WallTime start{1795392000s};
    CaptureSink sink;
    QVERIFY(sink.open(file("two.pcap")));
    const auto add = [&](Duration time, const QByteArray &packet) {
        const OutgoingFrame out{reinterpret_cast<const uchar *>(packet.constData()),
                                int(packet.size()), 1};
        sink.publish(start + time, &out, 1);
    };
    for (int run = 0; run < 2; ++run) {
        const Duration begin = run * 6s;
        for (int i = 0; i <= 16000; ++i) {
            const Duration time = i * 250us;
            if (i == 0)
                add(begin, encodeMark(StepMark{{kNoStep, 0, Cause::Start}, {}}));
            if (i == 4051) // in the middle of a column
                add(begin + time,
                    encodeMark(StepMark{{0, 1, Cause::Time, kNoChannel, time, time}, {}}));
            const bool isGap = run == 0 && i > 8010 && i < 12010;
            if (!isGap)
                add(begin + time,
                    svFrame(0x4001, {(i < 4051 ? 100.0 : 1000.0) * (i % 2 == 0 ? 1 : -1)}));
        }
    }
    QVERIFY(sink.flush());
    const workbench::Expected<PlotOutline> outline = readOutline(file("two.pcap"));
    QVERIFY(outline && outline->runs.size() == 2);
    for (int run = 0; run < 2; ++run) {
        const PlotRun &chosen = outline->runs[run];
        QCOMPARE(chosen.seconds(chosen.last), 4.0);
        const auto data = readPlotData(file("two.pcap"), *outline, {0, run}, {0, 4}, 0.02);
        QVERIFY(data && data->envelope > 0);
        const QVector<PlotPoint> &points = data->panels[0].lines[0].points;
        int areas = 0;
        for (const PlotPoint &point : points) {
            areas += point.isFirst ? 1 : 0;
            QVERIFY(std::fabs(point.value) == (point.time < 1.01275 ? 100 : 1000)
                    || point.time == 1.01275);
            QVERIFY(run == 1 || point.time <= 2.0025 || point.time >= 3.0025);
        }
        QCOMPARE(areas, run == 0 ? 2 : 1);
        QCOMPARE(data->bands.size(), 2);
    }
    plot(QStringLiteral("two.pcap -o p.svg --all --run 3"));
    QVERIFY2(m_errors.contains(QLatin1String("--run 3: the capture has 2 sequences")),
             qPrintable(m_errors));
    QCOMPARE(m_exitStatus, 2);
    plot(QStringLiteral("two.pcap -o p.svg --all --run 2"));
    QCOMPARE(m_exitStatus, 0);
    const QString title = QStringLiteral("two.pcap: MU01 (APPID 0x4001), sequence 2");
    QVERIFY(Svg(content("p.svg")).find(title));
    QVERIFY(QFile::remove(file("p.svg")));
}

void TestPlot::comparesNames_data()
{
    // what the last change of steps 0 -> 1 -> ... is | left, entered, cause, at ms | contradiction
    addRows(R"(
        fits            | 1 2 3 1030   |
        stopped         | 1 255 4 1030 |
        no such step    | 1 5 3 1030   | it has no step 5
        leads elsewhere | 1 0 3 1030   | step 1 ("fault") leads by binary input to step 2, not to step 0
        other cause     | 1 2 2 1030   | step 1 ("fault") does not end by trigger
        other time      | 1 2 1 1500   | step 1 ("fault") takes
        )");
}

void TestPlot::comparesNames()
{
    QFETCH(QStringList, row);
    const workbench::Expected<Sequence> sequence = readSequence(file("sequence.json"));
    QVERIFY(sequence);
    const Duration entry = sequence->steps[0].time;
    const QStringList words = row[1].split(QLatin1Char(' '));
    const Duration time = std::chrono::milliseconds(words[3].toInt());
    const QVector<Transition> changes = {{kNoStep, 0, Cause::Start},
                                         {0, 1, Cause::Time, kNoChannel, entry, entry},
                                         {quint8(words[0].toInt()), quint8(words[1].toInt()),
                                          Cause(words[2].toInt()), 7, time, time}};
    const QString contradiction = contradictionOf(changes, *sequence).value_or(QString());
    QVERIFY2(row[2].isEmpty() ? contradiction.isEmpty() : contradiction.startsWith(row[2]),
             qPrintable(contradiction));
}

/// The start that the marks tell of lies a long time before all that clocks can tell.
void TestPlot::survivesLateMarks()
{
    CaptureSink sink;
    QVERIFY(sink.open(file("late.pcap")));
    const Transition late{kNoStep, 0, Cause::Start, kNoChannel, 0s, 1000000000s, 1000000000s};
    for (const QByteArray &packet : {encodeMark(StepMark{late, {}}), svFrame(0x4001, {1})}) {
        const OutgoingFrame out{reinterpret_cast<const uchar *>(packet.constData()),
                                int(packet.size()), 1};
        sink.publish(WallTime(1s), &out, 1);
    }
    QVERIFY(sink.flush());
    const workbench::Expected<PlotOutline> outline = readOutline(file("late.pcap"));
    QVERIFY(outline);
    QCOMPARE(outline->runs[0].seconds(WallTime::max()), 9223372036.854775807);
}

/// The program itself.
void TestPlot::writesPictures()
{
    plot(QStringLiteral("marked.pcap -o p.png --from 1 --to 2 --stream 0x4001"));
    QCOMPARE(m_errors, QString());
    QCOMPARE(m_exitStatus, 0);
    COMPARE_BYTES(content("p.png").left(20),
                  bytes("89'PNG'0d0a1a0a 0000000d'IHDR' 00000960")); // 2400 pixels wide
    QVERIFY(QFile::remove(file("p.png")));
    plot(QStringLiteral("cut.pcap -o p.svg --sequence sequence.json"));
    QVERIFY2(m_errors.contains(QLatin1String("; what comes before it is drawn")),
             qPrintable(m_errors));
    QCOMPARE(m_exitStatus, 0);
    const Svg svg(content("p.svg"));
    QVERIFY(svg.find(QStringLiteral("cut.pcap: MU01 (APPID 0x4001)")));
    QVERIFY(QFile::remove(file("p.svg")));
}

void TestPlot::refusesArguments_data()
{
    // arguments | part of the message
    addRows(R"(
        -o p.svg                                         | plot needs CAPTURE
        marked.pcap                                      | plot needs --output
        marked.pcap -o p.jpg                             | --output "p.jpg" does not end with .svg or .png
        marked.pcap -o nowhere/p.svg                     | nowhere/p.svg: No such file
        marked.pcap -o p.svg --stream MU01               | --stream "MU01" names 2 streams
        marked.pcap -o p.svg --from x                    | --from "x" is no number of seconds
        marked.pcap -o p.svg --to nan                    | --to "nan" is no number of seconds
        marked.pcap -o p.svg --from 2 --to 2             | --from 2 is not before --to 2
        marked.pcap -o p.svg --from 5                    | the capture reaches from 0 s to 4 s
        marked.pcap -o p.svg --from 1 --all              | --all goes without --from and --to
        marked.pcap -o p.svg --sequence text.pcap        | text.pcap:1:
        bare.pcap -o p.svg                               | no font is installed
        )");
}

void TestPlot::refusesArguments()
{
    QFETCH(QStringList, row);
    const bool lacksFonts = row[1].contains(QLatin1String("font"));
    plot(row[0], lacksFonts ? file("fonts.conf") : QString());
    QVERIFY2(m_errors.contains(row[1]), qPrintable(m_errors));
    QCOMPARE(m_errors.count(QLatin1Char('\n')), 1);
    QCOMPARE(m_exitStatus, lacksFonts ? 1 : 2);
    QVERIFY(!QFile::exists(file("p.svg")));
}

QTEST_MAIN(TestPlot)
#include "tst_plot.moc"
