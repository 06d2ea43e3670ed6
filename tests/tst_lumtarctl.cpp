// The program lumtarctl as a user runs it: what it sends, what it refuses, how it reports failure.

#include "testsupport.h"

#include <report.h>

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QUdpSocket>

#include <algorithm>
#include <memory>

using namespace testsupport;
using namespace virtualboard;

namespace {

QByteArray content(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Makes every line of \a table a row: cells separated by "|", the first one being its name.
void addRows(const char *table)
{
    QTest::addColumn<QStringList>("row");
    for (const QString &line : QString::fromUtf8(table).split(QLatin1Char('\n'))) {
        QStringList cells = line.split(QLatin1Char('|'));
        std::for_each(cells.begin(), cells.end(), [](QString &cell) { cell = cell.trimmed(); });
        if (cells.size() > 1)
            QTest::newRow(qPrintable(cells[0])) << cells;
    }
}

} // namespace

class TestLumtarctl : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void sendsTheExamples();
    void appliesSettings_data();
    void appliesSettings();
    void refusesBadFiles_data();
    void refusesBadFiles();
    void refusesBadArguments_data();
    void refusesBadArguments();
    void readsStatusAndStops();
    void neverStartsAnIncompleteSequence();
    void tellsThatLocalPortsAreTaken();

private:
    void lumtarctl(QStringList arguments);
    void runFiles();

    QTemporaryDir m_directory; ///< copies of the examples, which a test may spoil
    const QString m_config = m_directory.filePath(QString::fromUtf8("\u95f4\u9694.xml"));
    const QString m_sequence = m_directory.filePath(QStringLiteral("sequence.json"));
    std::unique_ptr<VirtualBoard> m_board;
    int m_exitStatus = -1;
    QString m_output;
    QString m_errors;
};

void TestLumtarctl::init()
{
    QVERIFY(writeFile(m_config, content(QFINDTESTDATA("../examples/feeder-bay.xml"))));
    QVERIFY(writeFile(m_sequence, content(QFINDTESTDATA("../examples/earth-fault.json"))));
    m_board = std::make_unique<VirtualBoard>(boardAddress());
    QVERIFY2(m_board->start(), qPrintable(m_board->errorString()));
}

void TestLumtarctl::lumtarctl(QStringList arguments)
{
    arguments.replaceInStrings(QStringLiteral("BOARD"), boardAddress().toString());
    QProcess process;
    process.start(QStringLiteral(LUMTARCTL), arguments);
    m_exitStatus = process.waitForFinished() && process.exitStatus() == QProcess::NormalExit
        ? process.exitCode()
        : -1;
    m_output = QString::fromLocal8Bit(process.readAllStandardOutput());
    m_errors = QString::fromLocal8Bit(process.readAllStandardError());
}

void TestLumtarctl::runFiles()
{
    lumtarctl({QStringLiteral("run"), QStringLiteral("--board=BOARD"), QStringLiteral("--config"),
               m_config, QStringLiteral("--sequence"), m_sequence,
               QStringLiteral("--local-port=%1").arg(localPort())});
}

void TestLumtarctl::sendsTheExamples()
{
    runFiles();
    QVERIFY2(m_exitStatus == 0, qPrintable(m_errors));
    QCOMPARE(m_errors, QString());
    QCOMPARE(allProblems(m_board->receptions()), QStringList());
    const QVector<QByteArray> frames = m_board->frames();
    constexpr int kStep0 = 11; // behind the configuration
    constexpr int kStep = 16 + 2 + 2;
    QCOMPARE(frames.size(), kStep0 + 5 * kStep + 1);
    const QVector<QPair<int, const char *>> expected = {
        // kinds of the 22 channels
        {2,
         "8c908c9004 00 00 4000 0000 a00f 4e00 16 ff 0001020304050607 000204 08090a0b0c0d0e0fffff"},
        // fault: Ia1 and Ia2, 8 A RMS at -75 degrees
        {kStep0 + kStep + 8, "8c908c9001 01 00 6f12833a 00 00004842 d5043541 000096c2 00000000"},
        {kStep0 + kStep + 9, "8c908c9001 01 01 6f12833a 00 00004842 d5043541 000096c2 00000000"},
        // trip: breaker open, disconnector closed, spring charged
        {kStep0 + 2 * kStep + 16,
         "8c908c9009 02 00 04 7500 04 00000000 8f00 02 0640 9d00 02 0680 ab00 01 01"},
        // dead time: 3 s or the binary input
        {kStep0 + 3 * kStep + 19, "8c908c9007 03 08 b80b 04 00 00 01 04"},
        // reclose: further reclosing blocked
        {kStep0 + 4 * kStep + 17, "8c908c9009 04 01 02 6c00 04 00000000 8900 01 01"},
        {kStep0 + 5 * kStep, "8c908c9003 01 fa 05 02 04 08"},
    };
    for (const auto &each : expected)
        COMPARE_BYTES(frames[each.first], bytes(each.second));
}

void TestLumtarctl::appliesSettings_data()
{
    // name | settings | Va1 in the file | Va1 on the wire, behind its channel number | Va2
    addRows(R"(
        defaults  |                     | "amplitude": 100, "phase": 0 | 0ad7233c 00 00004842 c76b0d43 00*8 | 0ad7233c 00 00004842 00*12
        peak      |"amplitudes": "peak" | "amplitude": 100, "phase": 0 | 0ad7233c 01 00004842 0000c842 00*8 | 0ad7233c 01 00004842 00*12
        secondary |"ratios": {"voltage": 1100, "current": 600}, "amplitudes": "peak" | "amplitude": 100, "phase": 0 | 0ad7233c 01 00004842 00d8d647 00*8 | 0ad7233c 01 00004842 00*12
        mirrored, 1 V per count |"dualAD": true, "svResolution": "1 V, 1 A" | "amplitude": 100, "phase": 90, "frequency": 25, "phaseJump": -90 | 0000803f 00 0000c841 c76b0d43 0000b442 0000b4c2 | 0000803f 00 0000c841 c76b0d43 0000b442 0000b4c2
        )");
}

void TestLumtarctl::appliesSettings()
{
    QFETCH(QStringList, row);
    const QByteArray step = R"("name": "only", "time": 65, "onTimeout": "only", "stepOption": 1,
        "conditionFlags": 4, "onTrigger": {"trigger": 3, "goTo": "only"}, "outputs": {"Va1": {)";
    QVERIFY(writeFile(m_sequence,
                      R"({"settings": {)" + row[1].toUtf8() + R"(}, "steps": [{)" + step
                          + row[2].toUtf8() + "}}}]}"));
    runFiles();
    QVERIFY2(m_exitStatus == 0, qPrintable(m_errors));
    const QVector<QByteArray> frames = m_board->frames().mid(11); // behind the configuration
    QCOMPARE(frames.size(), 16 + 2 + 3);
    COMPARE_BYTES(frames[0], bytes("8c908c9001 00 08" + row[3].toUtf8() + ' '));
    COMPARE_BYTES(frames[1], bytes("8c908c9001 00 09" + row[4].toUtf8() + ' '));
    COMPARE_BYTES(frames[18], bytes("8c908c900a 00 00"));
    COMPARE_BYTES(frames[19], bytes("8c908c9007 00 04 e8fd 00 03 00 00 00"));
}

void TestLumtarctl::refusesBadFiles_data()
{
    // name | text of the example | what it is replaced with | part of the message
    addRows(R"(
        missing comma | "time": 5, | "time": 5 | :16:8: unterminated object
        not a number | 8.0 | NaN | :38:31: illegal number
        infinite | 8.0 | 1e999 | :38:
        text for a number | 8.0 | "8" | steps[1].outputs.Ia1.amplitude: must be a number, not a text
        negative | 8.0 | -8 | steps[1].outputs.Ia1.amplitude: -8 is out of range; allowed is 0 to 1518504
        beyond the counts of a stream | 8.0 | 1518505 | Ia1.amplitude: 1518505 is out of range
        beyond 16 bits of ms | "time": 5 | "time": 66 | steps[0].time: 66 is out of range; allowed is 0 to 65
        half seconds | "time": 5 | "time": 0.5 | steps[0].time: 0.5 is not a whole number
        key misspelt | "time": 5 | "tiem": 5 | steps[0].tiem: unknown; known here: "name", "time"
        key missing | "time": 5, | | steps[0]: "time" is missing
        key twice | "Vn1" | "Va1" | :37:9: "Va1" is given twice
        no such output | "Vn1" | "Vx1" | steps[1].outputs.Vx1: unknown
        mirrored output | "Vn1" | "Vn2" | steps[1].outputs.Vn2: mirrors Vn1
        two steps of one name | "name": "trip" | "name": "fault" | steps[2].name: "fault" names an earlier step too
        no such step | "onTimeout": "trip" | "onTimeout": "tripped" | steps[1].onTimeout: "tripped" is unknown
        three binary outputs | false, true] | true] | steps[4].binaryOutputs: has 3 elements; allowed is 4
        six steps | "steps": [ | "steps": [{}, | steps: has 6 elements; allowed is 1 to 5
        interval of one byte | Cycle": 80 | Cycle": 78 | samplesPerCycle: 78 is out of range; allowed is 79 to 20000
        counter of 16 bits | Cycle": 80 | Cycle": 1311 | settings: 50 Hz times 1311 samples per cycle are 65550
        config: cut off | </ied> | | :111:0: error: Premature end
        config: other root | ied> | scl> | :13:1: error: the root element is scl, not ied
        config: attribute misspelt | in_smv portindex="1" | in_smv portIndex="1" | :21:3: error: portindex of in_smv is missing
        config: beyond a datagram | chNums="5" | chNums="240" | :48:3: error: in_smv makes a command of 2011 bytes; the most is 1588
        config: expands without bound | <ied> | <!DOCTYPE ied [<!ENTITY a "aaaaaaaaaa"><!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;"><!ENTITY c "&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;"><!ENTITY d "&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;">]><ied>&d; | :13:
        )");
}

void TestLumtarctl::refusesBadFiles()
{
    QFETCH(QStringList, row);
    const QString file = row[0].startsWith(QLatin1String("config: ")) ? m_config : m_sequence;
    const QString good = QString::fromUtf8(content(file));
    QVERIFY2(good.contains(row[1]), "the example has changed");
    QVERIFY(writeFile(file, QString(good).replace(row[1], row[2]).toUtf8()));
    runFiles();
    QVERIFY2(m_errors.startsWith(QStringLiteral("lumtarctl: ") + file + QLatin1Char(':')),
             qPrintable(m_errors));
    QVERIFY2(m_errors.contains(row[3]), qPrintable(m_errors));
    QCOMPARE(m_errors.count(QLatin1Char('\n')), 1);
    QCOMPARE(m_exitStatus, 2);
    QCOMPARE(m_board->receptions().size(), 0);
}

void TestLumtarctl::refusesBadArguments_data()
{
    addRows(R"(
        | a command is missing
        start --board BOARD | unknown command "start"
        stop | stop needs --board
        stop --board localhost | "localhost" is no IP address
        stop --board BOARD --board BOARD | --board is given twice
        stop --board BOARD now | unexpected argument "now"
        stop --board BOARD --which 1 | which
        stop --board BOARD --local-port 65535 | --local-port "65535"
        status --board BOARD --which 256 | --which "256" is no whole number from 0 to 255
        run --board BOARD --config nowhere.xml | run needs --sequence
        run --board BOARD --config . --sequence nowhere.json | nowhere.json: there is no such
        run --board BOARD --config . --sequence . | .: is not a regular file
        )");
}

void TestLumtarctl::refusesBadArguments()
{
    QFETCH(QStringList, row);
    lumtarctl(row[0].split(QLatin1Char(' '), Qt::SkipEmptyParts));
    QVERIFY2(m_errors.contains(row[1]), qPrintable(m_errors));
    QCOMPARE(m_exitStatus, 2);
    QCOMPARE(m_board->receptions().size(), 0);
}

void TestLumtarctl::readsStatusAndStops()
{
    const QString port = QStringLiteral("--local-port=%1").arg(localPort());
    QVERIFY(m_board->setStatus(QByteArray("\x00\xa5\x5a", 3)));
    lumtarctl({QStringLiteral("status"), QStringLiteral("--board=BOARD"),
               QStringLiteral("--which=18"), port});
    QVERIFY2(m_exitStatus == 0, qPrintable(m_errors));
    QCOMPARE(m_output, QStringLiteral("status 18, 3 bytes: 00 a5 5a\n"));
    lumtarctl({QStringLiteral("stop"), QStringLiteral("--board=BOARD"), port});
    QVERIFY2(m_exitStatus == 0, qPrintable(m_errors));
    const QVector<QByteArray> expected = {bytes("8c928c92 12"), bytes("8c908c9003 00 fa 05020408")};
    COMPARE_BYTES(m_board->frames(), expected);
}

void TestLumtarctl::neverStartsAnIncompleteSequence()
{
    constexpr int kLost = 60; // a step command
    m_board->setBehaviour(kLost, {Behaviour::NoAcknowledgement});
    runFiles();
    QVERIFY2(m_errors.contains(QStringLiteral("did not answer while executing sequence.json")),
             qPrintable(m_errors));
    QCOMPARE(m_exitStatus, 1);
    QCOMPARE(m_board->receptions().size(), kLost + 3);
    QCOMPARE(m_board->receptions().last().exchange, kLost);
}

void TestLumtarctl::tellsThatLocalPortsAreTaken()
{
    QUdpSocket first;
    QUdpSocket second;
    const auto port = static_cast<quint16>(localPort());
    QVERIFY(first.bind(QHostAddress::AnyIPv4, port, QUdpSocket::DontShareAddress));
    QVERIFY(second.bind(QHostAddress::AnyIPv4, port + 1, QUdpSocket::DontShareAddress));
    runFiles();
    QVERIFY2(m_errors.contains(QStringLiteral("are taken")), qPrintable(m_errors));
    QCOMPARE(m_exitStatus, 1);
    QCOMPARE(m_board->receptions().size(), 0);
}

QTEST_GUILESS_MAIN(TestLumtarctl)
#include "tst_lumtarctl.moc"
