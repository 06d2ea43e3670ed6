// COMTRADE records made of captures, read by a reader of its own: values, times, states, gaps, and
// what is refused.

#include "tests/capturedframes.h"

#include "virtualboard/capture/capturefile.h"
#include "virtualboard/capture/capturemarks.h"
#include "workbench/comtradeexport.h"
#include "workbench/samplecount.h"

#include <QBuffer>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

using namespace testsupport;
using namespace virtualboard;
using namespace workbench;

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr WallTime kStart{1795392000s}; // 2026-11-23 00:00 UTC

/// A record, read by the fields and their places alone. Faults end in `problem`.
struct Record
{
    Record(const QByteArray &configuration, const QByteArray &data);
    struct Analog
    {
        QStringList fields;
        double a = 0;
        double b = 0;
        qint64 least = 0;
        qint64 most = 0;
    };
    struct Row
    {
        quint32 number = 0;
        double time = 0; ///< seconds
        QVector<qint64> analogs;
        QVector<bool> digitals;
    };
    QString problem;
    QStringList lines;
    QVector<Analog> analogs;
    QStringList digitals;
    double rate = 0;
    QString start;
    QString trigger;
    qint64 missing = 0; ///< the value that marks a missing sample
    QVector<Row> rows;

    [[nodiscard]] int digital(const QString &name) const { return int(digitals.indexOf(name)); }
    /// Where digital channel \a name changes: "on" and "off" with the number of the sample.
    [[nodiscard]] QString edges(const QString &name) const;

private:
    void readConfiguration();
    void readRow(const uchar *at);
    int m_sampleSize = 0;
    double m_timeUnit = 0;
    qint64 m_samples = 0;
};

Record::Record(const QByteArray &configuration, const QByteArray &data)
    : lines(QString::fromLatin1(configuration).split(QStringLiteral("\r\n")))
{
    if (!lines.last().isEmpty() || configuration.count('\n') != lines.size() - 1)
        problem = QStringLiteral("line ends");
    for (const char c : configuration) {
        if (c != '\r' && c != '\n' && (c < 0x20 || c > 0x7e))
            problem = QStringLiteral("characters");
    }
    readConfiguration();
    const int words = (int(digitals.size()) + 15) / 16;
    const int size = 8 + m_sampleSize * int(analogs.size()) + 2 * words;
    if (data.size() != size * m_samples)
        problem = QStringLiteral("%1 bytes in rows of %2").arg(data.size()).arg(size);
    for (int at = 0; problem.isEmpty() && at < data.size(); at += size)
        readRow(reinterpret_cast<const uchar *>(data.constData()) + at);
}

void Record::readConfiguration()
{
    const QStringList head = lines[0].split(QLatin1Char(','));
    const bool is2013 = head.value(2) == QLatin1String("2013");
    const QStringList counts = lines[1].split(QLatin1Char(','));
    const int analogCount = counts.value(1).chopped(1).toInt();
    const int digitalCount = counts.value(2).chopped(1).toInt();
    const int rest = 2 + analogCount + digitalCount;
    if (head.size() != 3 || !counts.value(1).endsWith(QLatin1Char('A'))
        || !counts.value(2).endsWith(QLatin1Char('D'))
        || counts[0].toInt() != analogCount + digitalCount
        || lines.size() != rest + (is2013 ? 9 : 7) + 1) {
        problem = QStringLiteral("lines");
        return;
    }
    for (int i = 2; i < rest; ++i) {
        const QStringList fields = lines[i].split(QLatin1Char(','));
        const bool isAnalog = i < 2 + analogCount;
        if (fields.size() != (isAnalog ? 13 : 5)
            || fields[0].toInt() != (isAnalog ? i - 1 : i - 1 - analogCount)
            || fields[1].size() > 64 || fields[3].size() > 64)
            problem = QStringLiteral("fields of ") + lines[i];
        else if (isAnalog)
            analogs.append({fields, fields[5].toDouble(), fields[6].toDouble(),
                            fields[8].toLongLong(), fields[9].toLongLong()});
        else
            digitals += fields[1];
    }
    const QStringList sampling = lines[rest + 2].split(QLatin1Char(','));
    rate = sampling.value(0).toDouble();
    m_samples = sampling.value(1).toLongLong();
    start = lines[rest + 3];
    trigger = lines[rest + 4];
    m_sampleSize = lines[rest + 5] == QLatin1String("BINARY32") ? 4 : 2;
    missing = m_sampleSize == 4 ? -2147483648LL : -32768;
    m_timeUnit = lines[rest + 6].toDouble() * (is2013 ? 1e-9 : 1e-6);
    if (lines[rest + 1] != QLatin1String("1")
        || lines[rest + 5] != QLatin1String(is2013 ? "BINARY32" : "BINARY"))
        problem = QStringLiteral("rates or file type");
}

void Record::readRow(const uchar *at)
{
    Row row;
    row.number = qFromLittleEndian<quint32>(at);
    row.time = qFromLittleEndian<quint32>(at + 4) * m_timeUnit;
    at += 8;
    for (int i = 0; i < analogs.size(); ++i, at += m_sampleSize) {
        const qint64 value =
            m_sampleSize == 4 ? qFromLittleEndian<qint32>(at) : qFromLittleEndian<qint16>(at);
        row.analogs += value;
        if (value != missing && (value < analogs[i].least || value > analogs[i].most))
            problem = QStringLiteral("sample %1 out of range").arg(row.number);
    }
    for (int i = 0; i < digitals.size(); ++i)
        row.digitals += (qFromLittleEndian<quint16>(at + 2 * (i / 16)) >> (i % 16) & 1) != 0;
    if (row.number != quint32(rows.size() + 1))
        problem = QStringLiteral("sample number %1").arg(row.number);
    if (std::fabs(row.time - double(rows.size()) / rate) > m_timeUnit)
        problem = QStringLiteral("time of sample %1").arg(row.number);
    rows.append(row);
}

QString Record::edges(const QString &name) const
{
    const int channel = digital(name);
    if (channel < 0)
        return QStringLiteral("no such channel");
    QStringList edges;
    for (int i = 0; i < rows.size(); ++i) {
        const bool state = rows[i].digitals[channel];
        if (i == 0 ? state : state != rows[i - 1].digitals[channel])
            edges += QStringLiteral("%1 %2").arg(QLatin1String(state ? "on" : "off")).arg(i);
    }
    return edges.join(QStringLiteral(", "));
}

Duration timeOf(qint64 sample, double rate)
{
    return Duration(std::llround(double(sample) / rate * 1e9));
}

/// What is sent in Ia1 and Va1, in counts.
double sent(int channel, qint64 sample, double rate)
{
    const double angle = 2 * kPi * 50 * double(sample) / rate + channel;
    return std::round((channel == 0 ? 9000 : 100000) * std::sin(angle));
}

/// Writes captures: one sample after the other, and what happens between them.
class Capture
{
public:
    explicit Capture(const QString &path, double rate = 4000)
        : m_rate(rate)
    {
        m_isOpen = m_sink.open(path).has_value();
    }
    void add(Duration time, const QByteArray &packet)
    {
        const OutgoingFrame out{reinterpret_cast<const uchar *>(packet.constData()),
                                int(packet.size()), 1};
        m_sink.publish(kStart + time, &out, 1);
    }
    void sample(qint64 number, int smpCnt, int appId = 0x4001)
    {
        add(timeOf(number, m_rate),
            svFrame(appId, {750, sent(0, number, m_rate), sent(1, number, m_rate)}, smpCnt));
    }
    void samples(qint64 from, qint64 to)
    {
        for (qint64 i = from; i < to; ++i)
            sample(i, int(i % qint64(m_rate)));
    }
    void step(Duration time, const Transition &change, float amperes = 0.001f)
    {
        std::array<float, kAnalogChannels> scale = {};
        scale[0] = amperes;
        scale[8] = 0.01f;
        add(time, encodeMark(StepMark{change, scale}));
    }
    void stream(int appId = 0x4001)
    {
        add(0s,
            encodeMark(StreamMark{
                appId,
                QStringLiteral("MU01"),
                {QString(), QStringLiteral("Ia1"), QStringLiteral("Va1"), QStringLiteral("Ia1")}}));
    }
    [[nodiscard]] bool flush() { return m_isOpen && m_sink.flush(); }

private:
    CaptureSink m_sink;
    bool m_isOpen = false;
    double m_rate;
};

} // namespace

class TestComtrade : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void writesSamplesAndStates_data();
    void writesSamplesAndStates();
    void writesPartOfOneSequence();
    void marksMissingSamples();
    void findsRate_data();
    void findsRate();
    void makesRoomForTimes_data();
    void makesRoomForTimes();
    void writesNamesPlainly_data();
    void writesNamesPlainly();
    void servesAnyCapture_data();
    void servesAnyCapture();
    void refuses_data();
    void refuses();
    void replacesOnlyItsOwn();

private:
    /// lumtarctl export with \a arguments.
    void run(const QString &arguments);
    [[nodiscard]] QString file(const QString &name) const { return m_directory.filePath(name); }
    [[nodiscard]] QByteArray content(const QString &name) const;
    [[nodiscard]] Record record(const QString &name) const
    {
        return {content(name + QStringLiteral(".cfg")), content(name + QStringLiteral(".dat"))};
    }

    QTemporaryDir m_directory;
    int m_exitStatus = -1;
    QString m_output;
    QString m_errors;
};

void TestComtrade::run(const QString &arguments)
{
    QProcess process;
    process.setWorkingDirectory(m_directory.path());
    process.start(QStringLiteral(LUMTARCTL),
                  QStringLiteral("export %1").arg(arguments).split(QLatin1Char(' ')));
    m_exitStatus = process.waitForFinished() ? process.exitCode() : -1;
    m_output = QString::fromLocal8Bit(process.readAllStandardOutput());
    m_errors = QString::fromLocal8Bit(process.readAllStandardError());
}

QByteArray TestComtrade::content(const QString &name) const
{
    QFile in(file(name));
    return in.open(QIODevice::ReadOnly) ? in.readAll() : QByteArray();
}

/// At 4000 and 4800 samples a second: 0.5 s of step 0, 0.3 s of step 1, which an input ends, then
/// step 2 until 1.2 s. Currents have another scale from step 1 on in scaled.pcap.
void TestComtrade::initTestCase()
{
    for (const int rate : {4000, 4800}) {
        for (const bool isScaled : {false, true}) {
            Capture capture(file(QStringLiteral("%1%2.pcap")
                                     .arg(QLatin1String(isScaled ? "scaled" : "plain"))
                                     .arg(rate)),
                            rate);
            capture.stream();
            for (int i = 0; i < rate * 6 / 5; ++i) {
                const Duration now = timeOf(i, rate);
                if (i == 0)
                    capture.step(now, {kNoStep, 0, Cause::Start});
                if (i == rate / 2)
                    capture.step(now, {0, 1, Cause::Time, kNoChannel, now, now},
                                 isScaled ? 0.003f : 0.001f);
                if (i == rate / 5 * 4)
                    capture.step(now, {1, 2, Cause::BinaryInput, 7, now - 123456ns, now},
                                 isScaled ? 0.003f : 0.001f);
                if (i == 401) { // the marks may come behind the samples that they belong to
                    for (const RecordedInput &input :
                         {RecordedInput{100ms, InputKind::ChannelOn, 7},
                          RecordedInput{100001us, InputKind::ChannelOff, 7},
                          RecordedInput{50ms, InputKind::Trigger, kNoChannel}})
                        capture.add(now, encodeMark(InputMark{input}));
                }
                capture.sample(i, i % rate);
                if (i == 100)
                    capture.add(now, gooseFrame(1, false, true)); // belongs to this sample
                if (i == rate / 2)
                    capture.add(now + 1us, gooseFrame(2, true, false)); // to the next one
            }
            QVERIFY(capture.flush());
        }
    }
    QVERIFY(QFile::copy(QFINDTESTDATA("../examples/earth-fault.json"), file("sequence.json")));
    QVERIFY(writeFile(file("cut.pcap"), content("plain4000.pcap").chopped(7)));
    QVERIFY(writeFile(file("no.pcap"), content("plain4000.pcap").left(24)));
    Capture two(file("two.pcap"));
    Capture bare(file("bare.pcap"));
    Capture still(file("still.pcap"));
    Capture sparse(file("sparse.pcap"));
    for (int i = 0; i < 4000; ++i) {
        two.sample(i, i);
        if (i % 2 == 0)
            two.sample(i, i / 2, 0x4002);
        bare.sample(i, 0);
        still.add(1s, svFrame(0x4001, {1}, i));
    }
    sparse.samples(0, 100);
    sparse.add(9000000s, svFrame(0x4001, {1, 2, 3}, 5));
    still.add(2s, gooseFrame(1, false, true));
    QVERIFY(two.flush() && bare.flush() && still.flush() && sparse.flush());
}

void TestComtrade::writesSamplesAndStates_data()
{
    // arguments | first line | start, trigger | scale of the voltage: exact counts, or fitting 16
    // bits
    addRows(R"(
        2013          | plain4000  | 2013 | 23/11/2026,00:00:00.000000000 | 23/11/2026,00:00:00.799876544 | 0.01
        1999          | plain4000  | 1999 | 23/11/2026,00:00:00.000000    | 23/11/2026,00:00:00.799876    |
        4800          | plain4800  | 2013 | 23/11/2026,00:00:00.000000000 | 23/11/2026,00:00:00.799876544 | 0.01
        1999 at 4800  | plain4800  | 1999 | 23/11/2026,00:00:00.000000    | 23/11/2026,00:00:00.799876    |
        scales        | scaled4000 | 2013 | 23/11/2026,00:00:00.000000000 | 23/11/2026,00:00:00.799876544 | 0.01
        scales, short | scaled4800 | 1999 | 23/11/2026,00:00:00.000000    | 23/11/2026,00:00:00.799876    |
        )");
}

void TestComtrade::writesSamplesAndStates()
{
    QFETCH(QStringList, row);
    row.removeFirst(); // its name
    const int rate = row[0].right(4).toInt();
    const bool isScaled = row[0].startsWith(QLatin1String("scaled"));
    run(QStringLiteral("%1.pcap -o out.cfg --revision %2").arg(row[0], row[1]));
    QCOMPARE(m_errors, QString());
    const Record record = this->record(QStringLiteral("out"));
    QCOMPARE(record.problem, QString());
    QCOMPARE(record.lines[0], QStringLiteral("%1,MU01,%2").arg(row[0], row[1]));
    QCOMPARE(record.rate, double(rate));
    QCOMPARE(record.start, row[2]);
    QCOMPARE(record.trigger, row[3]);
    QCOMPARE(record.rows.size(), rate * 6 / 5);

    QCOMPARE(record.analogs.size(), 2); // Ia1 feeds two entries, and one has no channel
    const QStringList head[] = {{"1", "Ia1", "A", "MU01", "A"}, {"2", "Va1", "A", "MU01", "V"}};
    const double scale[] = {0.001, 0.01};
    QVERIFY(row[4].isEmpty() || record.analogs[1].a == row[4].toDouble());
    for (int channel = 0; channel < 2; ++channel) {
        const Record::Analog &analog = record.analogs[channel];
        QCOMPARE(analog.fields.mid(0, 5), head[channel]);
        QCOMPARE(analog.fields.mid(10), (QStringList{"1", "1", "P"}));
        for (int i = 0; i < record.rows.size(); ++i) {
            const bool isOther = isScaled && channel == 0 && i >= rate / 2;
            const double expected = sent(channel, i, rate) * (isOther ? 0.003 : scale[channel]);
            const double written = double(record.rows[i].analogs[channel]) * analog.a + analog.b;
            QVERIFY2(std::fabs(written - expected) <= analog.a * 0.5001,
                     qPrintable(QStringLiteral("%1: %2").arg(i).arg(written - expected)));
        }
    }
    // The states of GOOSE are known from its first message on, and taken to have been so before.
    const int change = rate / 2 + 1;
    QCOMPARE(record.edges("Bay '1 entry 1"), QStringLiteral("on %1").arg(change));
    QCOMPARE(record.edges("Bay '1 entry 2 on"), QStringLiteral("on 0, off %1").arg(change));
    QCOMPARE(record.edges("Bay '1 entry 2 off"), QStringLiteral("on %1").arg(change));
    const int input = rate / 10;
    QCOMPARE(record.edges("logic channel 7"),
             QStringLiteral("on %1, off %2").arg(input).arg(input + 1));
    QCOMPARE(record.edges("trigger"),
             QStringLiteral("on %1, off %2").arg(input / 2).arg(input / 2 + 1));
    QCOMPARE(record.edges("step 0"), QStringLiteral("on 0, off %1").arg(rate / 2));
    QCOMPARE(record.edges("step 1"),
             QStringLiteral("on %1, off %2").arg(rate / 2).arg(rate / 5 * 4));
    QCOMPARE(record.edges("step 2"), QStringLiteral("on %1").arg(rate / 5 * 4));
}

/// The second of two sequences, from 0.2 s to 0.3 s, with the names and ratios of a sequence file.
void TestComtrade::writesPartOfOneSequence()
{
    Capture capture(file("runs.pcap"));
    for (const Duration begin : {Duration(0s), Duration(2s)}) {
        capture.stream();
        capture.step(begin, {kNoStep, 0, Cause::Start});
        capture.samples(begin / 250us, begin / 250us + 4000);
        capture.step(begin + 1s, {0, kNoStep, Cause::Stop, kNoChannel, 1s, 1s});
    }
    QVERIFY(capture.flush());
    QByteArray sequence = content("sequence.json");
    sequence.replace("\"dualAD\": true", "\"dualAD\": true, \"nominalFrequency\": 60");
    sequence.replace("\"nominalFrequency\": 50,",
                     "\"ratios\": {\"voltage\": 1100, \"current\": 600},");
    QVERIFY(writeFile(file("ratios.json"), sequence));
    run(QStringLiteral("runs.pcap -o part.CFG --run 2 --from 0.2 --to 0.3 --sequence ratios.json"));
    QCOMPARE(m_errors, QString());
    QVERIFY2(m_output.contains("part.CFG, part.DAT: MU01 (APPID 0x4001)\n"
                               "401 samples, 4000 a second, from 0.2 s to 0.3 s\n"),
             qPrintable(m_output));
    QVERIFY2(m_output.contains("sequence 2 of 2"), qPrintable(m_output));
    const Record record(content("part.CFG"), content("part.DAT"));
    QCOMPARE(record.problem, QString());
    QCOMPARE(record.rows.size(), 401);
    QCOMPARE(record.start, QStringLiteral("23/11/2026,00:00:02.200000000"));
    QCOMPARE(record.trigger, record.start); // nothing that an input ended
    QCOMPARE(record.rows[7].analogs[0], qint64(sent(0, 8807, 4000)));
    QCOMPARE(record.analogs[0].fields.mid(10), (QStringList{"600", "1", "P"}));
    QCOMPARE(record.analogs[1].fields.mid(10), (QStringList{"1100", "1", "P"}));
    QCOMPARE(record.edges("step 0 prefault"), QStringLiteral("on 0"));
    QCOMPARE(record.lines[5], QStringLiteral("60"));
}

/// Gaps, one of them where smpCnt begins again; one frame twice, one late.
void TestComtrade::marksMissingSamples()
{
    Capture capture(file("gaps.pcap"));
    capture.stream();
    capture.step(0s, {kNoStep, 0, Cause::Start});
    capture.samples(0, 100);
    capture.samples(110, 3990);
    capture.sample(3989, 3989);
    capture.sample(3980, 3980);
    capture.samples(4010, 6000);
    capture.samples(15000, 27000); // more than two turns of smpCnt later
    QVERIFY(capture.flush());
    for (const QString &year : {QStringLiteral("2013"), QStringLiteral("1999")}) {
        run(QStringLiteral("gaps.pcap -o gaps.cfg --revision ") + year);
        QCOMPARE(m_errors, QString());
        QVERIFY2(m_output.contains("9030 samples are missing, in 3 gaps; the first begins behind "
                                   "0.02475 s"),
                 qPrintable(m_output));
        QVERIFY2(m_output.contains("2 frames are left out"), qPrintable(m_output));
        const Record record = this->record(QStringLiteral("gaps"));
        QCOMPARE(record.problem, QString());
        QCOMPARE(record.rows.size(), 27000);
        for (int i = 0; i < 27000; ++i) {
            const bool isMissing =
                (i >= 100 && i < 110) || (i >= 3990 && i < 4010) || (i >= 6000 && i < 15000);
            QCOMPARE(record.rows[i].analogs[0] == record.missing, isMissing);
            QVERIFY(isMissing || record.rows[i].analogs[0] == qint64(sent(0, i, 4000)));
        }
        QCOMPARE(record.edges("step 0"), QStringLiteral("on 0"));
    }
}

void TestComtrade::findsRate_data()
{
    // ns from sample to sample | smpCnt begins again at | samples | late by up to, ns | rate |
    // modulus
    addRows(R"(
        whole seconds          | 250000    | 4000  | 9000 | 0      | 4000              | 4000
        less than a second     | 208333.33 | 4800  | 480  | 0      | 4800              | 4800
        whole microseconds     | 208000    | 4800  | 9600 | 0      | 4807.692307692308 | 4800
        late now and then      | 208333.33 | 4800  | 9600 | 200000 | 4800              | 4800
        fast                   | 69444.444 | 14400 | 1000 | 0      | 14400             | 14400
        wrong clock            | 250012.5  | 4000  | 8000 | 0      | 4000              | 4000
        a rate like no other   | 312345.6  | 65536 | 8000 | 0      | 3201.582           | 65536
        does not count         | 250000    | 1     | 8000 | 0      | 4000              | 0
        without times          | 0         | 4000  | 100  | 0      | 0                 | 65536
        )");
}

void TestComtrade::findsRate()
{
    QFETCH(QStringList, row);
    row.removeFirst(); // its name
    const double interval = row[0].toDouble();
    SampleCounts counts(interval * 1e-9);
    for (int i = 0; i < row[2].toInt(); ++i) {
        const int late = row[3].toInt() == 0 ? 0 : int(i * 7919LL % row[3].toInt());
        counts.add(kStart + Duration(std::llround(i * interval) + late), i % row[1].toInt());
    }
    QVERIFY2(std::fabs(counts.rate() - row[4].toDouble()) < 0.001,
             qPrintable(QString::number(counts.rate(), 'g', 12)));
    QCOMPARE(counts.modulus(), row[5].toInt());
}

void TestComtrade::makesRoomForTimes_data()
{
    // seconds | revision | of the unit: sample at 4 s | units
    addRows(R"(
        short     | 4.2  | 2013 | 4000000000 | 1
        long      | 4.3  | 2013 | 400000000  | 10
        hours     | 9000 | 2013 | 400000     | 10000
        1999      | 4290 | 1999 | 4000000    | 1
        long 1999 | 4300 | 1999 | 400000     | 10
        )");
}

void TestComtrade::makesRoomForTimes()
{
    QFETCH(QStringList, row);
    row.removeFirst(); // its name
    Comtrade record;
    record.revision =
        row[1] == QLatin1String("1999") ? Comtrade::Revision::Y1999 : Comtrade::Revision::Y2013;
    record.rate = 4000;
    record.makeRoomFor(row[0].toDouble());
    QCOMPARE(QString::number(record.timeUnits), row[3]);
    const QByteArray bytes = comtradeSample(record, 16000, std::nullopt, {});
    QCOMPARE(qFromLittleEndian<quint32>(bytes.constData()), 16001U);
    QCOMPARE(qFromLittleEndian<quint32>(bytes.constData() + 4), quint32(row[2].toULongLong()));
}

void TestComtrade::writesNamesPlainly_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("written");
    QTest::newRow("comma") << QStringLiteral("a,b") << QStringLiteral("a b");
    QTest::newRow("lines") << QStringLiteral("a\r\nb\t") << QStringLiteral("a??b?");
    QTest::newRow("letters") << QString::fromUtf8("\xe8\xbf\x87\xf0\x9f\x92\xa1 \xc3\x9c")
                             << QStringLiteral("?? ?");
    QTest::newRow("long") << QString(100, QLatin1Char('x')) << QString(64, QLatin1Char('x'));
}

void TestComtrade::writesNamesPlainly()
{
    QFETCH(QString, name);
    QFETCH(QString, written);
    Comtrade record;
    record.station = name;
    record.device = name;
    record.rate = 4000;
    record.analogs = {{name, name, name, name}, {name, name, name, name}};
    record.digitals = {{name, name}, {name, name}, {name, name}};
    Record read(comtradeConfiguration(record), {});
    QCOMPARE(read.problem, QString());
    QCOMPARE(read.lines[0], QStringLiteral("%1,%1,2013").arg(written));
    QCOMPARE(read.analogs[0].fields.mid(1, 4),
             (QStringList{written, written.left(2).trimmed(), written, written.left(32)}));
    QCOMPARE(read.digitals[2], written.left(60) + QStringLiteral(" (5)")); // of all channels
    QVERIFY(read.digitals.removeDuplicates() == 0);
}

void TestComtrade::servesAnyCapture_data()
{
    // arguments | samples | units | part of the messages
    addRows(R"(
        cut off         | cut.pcap                 | 4799 | A V                  | ; what comes before it is exported
        without marks   | two.pcap --stream 0x4002 | 2000 | counts counts counts | not exported: MU01 (APPID 0x4001)
        smpCnt is still | bare.pcap                | 4000 | counts counts counts | smpCnt does not count
        )");
}

void TestComtrade::servesAnyCapture()
{
    QFETCH(QStringList, row);
    row.removeFirst(); // its name
    run(row[0] + QStringLiteral(" -o any.cfg"));
    QCOMPARE(m_exitStatus, 0);
    QVERIFY2((m_errors + m_output).contains(row[3]), qPrintable(m_errors + m_output));
    const Record record = this->record(QStringLiteral("any"));
    QCOMPARE(record.problem, QString());
    QCOMPARE(QString::number(record.rows.size()), row[1]);
    QStringList units;
    for (const Record::Analog &each : record.analogs)
        units += each.fields[4];
    QCOMPARE(units.join(QLatin1Char(' ')), row[2]);
}

void TestComtrade::refuses_data()
{
    // arguments | part of the message
    addRows(R"(
        no capture      | -o x.cfg                                          | export needs CAPTURE
        no output       | plain4000.pcap                                    | export needs --output
        other ending    | plain4000.pcap -o x.dat                           | --output "x.dat" does not end with .cfg
        nowhere         | plain4000.pcap -o nowhere/x.cfg                   | nowhere/x.dat: No such file
        other year      | plain4000.pcap -o x.cfg --revision 1991           | --revision "1991" is neither 2013 nor 1999
        other stream    | plain4000.pcap -o x.cfg --stream MU02             | --stream "MU02" names 0 streams
        two streams     | two.pcap -o x.cfg --stream MU01                   | --stream "MU01" names 2 streams
        other run       | plain4000.pcap -o x.cfg --run 2                   | --run 2: the capture has 1 sequences
        other time      | plain4000.pcap -o x.cfg --from 5                  | the capture reaches from 0 s to
        between samples | plain4000.pcap -o x.cfg --from 0.0001 --to 0.0002 | no samples of MU01 (APPID 0x4001) from 0.0001 s to 0.0002 s
        no samples      | no.pcap -o x.cfg                                  | no.pcap: there are no sampled values
        no such file    | nothing.pcap -o x.cfg                             | nothing.pcap: No such file
        no capture file | sequence.json -o x.cfg                            | sequence.json: unknown file format
        no times        | still.pcap -o x.cfg                               | still.pcap: the frames of MU01 (APPID 0x4001) do not tell how many
        mostly missing  | sparse.pcap -o x.cfg                              | behind 0.02475 s so many samples are missing
        )");
}

void TestComtrade::refuses()
{
    QFETCH(QStringList, row);
    row.removeFirst(); // its name
    run(row[0]);
    QVERIFY2(m_errors.contains(row[1]), qPrintable(m_errors));
    QCOMPARE(m_errors.count(QLatin1Char('\n')), 1);
    QCOMPARE(m_exitStatus, 2);
    QVERIFY(QDir(m_directory.path()).entryList({QStringLiteral("x.*")}).isEmpty());
}

void TestComtrade::replacesOnlyItsOwn()
{
    const QString arguments = QStringLiteral("plain4000.pcap -o own.cfg");
    run(arguments);
    QCOMPARE(m_exitStatus, 0);
    const QByteArray first = content("own.cfg");
    run(arguments + QStringLiteral(" --to 0.1"));
    QCOMPARE(m_exitStatus, 0);
    QVERIFY(content("own.cfg") != first && record(QStringLiteral("own")).rows.size() == 401);

    run(QStringLiteral("own.dat -o own.cfg"));
    QVERIFY2(m_errors.contains("own.dat: is the capture itself"), qPrintable(m_errors));

    QVERIFY(QFile::remove(file("own.cfg"))); // what own.dat is nobody can tell now
    const QByteArray data = content("own.dat");
    run(arguments);
    QVERIFY2(m_errors.contains("own.dat: is there already"), qPrintable(m_errors));
    QVERIFY(content("own.dat") == data && content("own.cfg").isEmpty());

    QVERIFY(writeFile(file("own.cfg"), "[settings]\nx=1,2A\n"));
    run(arguments);
    QVERIFY2(m_errors.contains("own.cfg: is there already"), qPrintable(m_errors));
    QCOMPARE(content("own.cfg"), QByteArray("[settings]\nx=1,2A\n"));

    QVERIFY(QFile::remove(file("own.cfg")) && QDir(m_directory.path()).mkdir("own.cfg"));
    run(arguments);
    QVERIFY2(m_errors.contains("own.cfg: there is something that is no file"),
             qPrintable(m_errors));
}

QTEST_GUILESS_MAIN(TestComtrade)
#include "tst_comtrade.moc"
