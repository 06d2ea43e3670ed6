// The program lumtarctl as it runs test plans: what comes of them, whatever happens meanwhile.

#include "tests/testsupport.h"

#include "virtualboard/board/virtualboard.h"
#include "virtualboard/capture/capturefile.h"
#include "virtualboard/capture/capturemarks.h"
#include "workbench/testrecord.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <functional>

using namespace testsupport;
using namespace workbench;

namespace {

QByteArray content(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QJsonObject json(const char *text)
{
    return QJsonDocument::fromJson(QByteArray(text).replace('\'', '"')).object();
}

/// A case of the plans below: a tenth of a second in which the device trips after \a trip seconds,
/// where 50 ms are allowed.
QJsonObject trips(const QString &name, double trip, int repetitions = 1)
{
    QJsonObject object =
        json("{'sequence': {'steps': [{'name': 'fault', 'time': 0.1, 'onTimeout': 'end', "
             "'outputs': {}}]},"
             " 'device': {'inputs': [{'time': 'tTrip', 'input': 0, 'on': true}]},"
             " 'assessments': [{'name': 'trip', 'time': {'from': {'start': true}, 'to': {'on': 0}, "
             "'atMost': 0.05}}]}");
    object["name"] = name;
    object["repetitions"] = repetitions;
    object["parameters"] = QJsonObject{{"tTrip", trip}};
    return object;
}

/// Sends \a signal to a process that plays shots for \a parent, once there is one; its number, or
/// 0 if there was none. Never to anything else: kill() takes 0 and -1 for many processes.
pid_t signalOneOf(pid_t parent, int signal)
{
    const QString path = QStringLiteral("/proc/%1/task/%1/children").arg(parent);
    QElapsedTimer clock;
    for (clock.start(); clock.elapsed() < 10000; QTest::qWait(1)) {
        const pid_t child = content(path).simplified().split(' ').first().toInt();
        if (child <= 1)
            continue;
        return ::kill(child, signal) == 0 ? child : 0;
    }
    return 0;
}

/// Whether a process with that number is there.
bool isThere(pid_t process)
{
    return QFile::exists(QStringLiteral("/proc/%1").arg(process));
}

} // namespace

class TestTestRun : public QObject
{
    Q_OBJECT

private slots:
    void init() { QVERIFY(m_folder.isValid()); }
    void ends_data();
    void ends();
    void givesTheSameRecord();
    void survivesItsPrograms_data();
    void survivesItsPrograms();
    void stopsWhenInterrupted();
    void tellsChangedFiles();
    void keepsCaptures_data();
    void keepsCaptures();
    void playsOnABoard_data();
    void playsOnABoard();
    void playsLive();

private:
    using Meanwhile = std::function<void(pid_t)>;
    void run(QStringList arguments, const Meanwhile &meanwhile = {}, const QString &wrapper = {});
    /// Writes a plan with those cases; the path.
    QString plan(const QJsonArray &cases);
    /// Of the last run, which was told to write one.
    QVector<ShotRecord> shots();
    [[nodiscard]] QString path(const char *name) const { return m_folder.filePath(name); }

    SingleRun m_singleRun;
    QTemporaryDir m_folder;
    int m_exitStatus = -1;
    QString m_output;
    QString m_errors;
    RecordedTest m_record;
};

void TestTestRun::run(QStringList arguments, const Meanwhile &meanwhile, const QString &wrapper)
{
    QFile::remove(path("record.json"));
    arguments.prepend(QStringLiteral("test"));
    QProcess process;
    if (wrapper.isEmpty())
        process.start(QStringLiteral(LUMTARCTL), arguments);
    else
        process.start(QStringLiteral("unshare"),
                      QStringList{"-rn", "sh", "-c", wrapper + " && exec \"$@\"", "sh", LUMTARCTL}
                          + arguments);
    if (meanwhile && process.waitForStarted())
        meanwhile(pid_t(process.processId()));
    const bool ended = process.waitForFinished(110000);
    m_exitStatus = ended && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    m_output = QString::fromUtf8(process.readAllStandardOutput());
    m_errors = QString::fromUtf8(process.readAllStandardError());
}

QString TestTestRun::plan(const QJsonArray &cases)
{
    const QJsonObject plan{{"title", "A test of the tests"},
                           {"configuration", EXAMPLES "/feeder-bay.xml"},
                           {"cases", cases}};
    const QString result = path("plan.json");
    return writeFile(result, QJsonDocument(plan).toJson()) ? result : QString();
}

QVector<ShotRecord> TestTestRun::shots()
{
    const Expected<RecordedTest> read = readRecord(path("record.json"));
    m_record = read ? *read : RecordedTest();
    if (!read)
        qWarning("%s", qPrintable(read.error().message));
    return m_record.record.shots;
}

void TestTestRun::ends_data()
{
    // name | plan: of the examples, or the trips of its cases in ms | arguments | exit status | in
    // the output | in the errors
    addRows(R"(
        feeder            | plan            |                     | 0 | 11 cases, 41 shots: 11 passed |
        too slow          | too-slow        |                     | 3 | trip A came 45.000 ms after | 
        passed            | 20 30           | --jobs 1            | 0 | 2 cases, 2 shots: 2 passed |
        not judged        | 20 -1 30        |                     | 4 | would come at -0.001 s; 0 to 1000000 s are possible |
        failed, not judged | -1 60          |                     | 3 | 2 cases, 2 shots: 1 failed, 1 not measured |
        fail-fast         | 20 60 20 20     | --fail-fast         | 3 | 1 passed, 1 failed, 2 not played |
        fail-fast, error  | 20 -1 20 60     | --fail-fast         | 4 | 1 passed, 1 not measured, 2 not played |
        part of a name    | 20 60 20        | --filter SE-0       | 0 | 1 case, 1 shot: 1 passed |
        wildcards         | 20 60 20        | --filter *-[02]     | 0 | 2 cases, 2 shots: 2 passed |
        no such case      | 20 60           | --filter none       | 2 | | fits none of the 2 cases of
        list              | plan            | --list              | 0 | 8  inverse-time overcurrent |
        list, filter      | 20 60 20        | --list --filter e-2 | 0 | 1 case, 1 shot |
        captures, no folder | 20            | --keep-captures all | 2 | | needs --output
        captures of what  | 20              | --keep-captures x   | 2 | | "x" is none of never, failed, all
        board and live    | 20              | --board 127.0.0.1 --live --interface x | 2 | | two boards
        live where        | 20              | --live              | 2 | | --live needs --interface
        interface for what | 20             | --interface x       | 2 | | --interface needs --live
        board with jobs   | 20              | --board 127.0.0.1 --jobs 2 | 2 | | one shot at a time
        no jobs           | 20              | --jobs 0            | 2 | | "0" is no whole number from 1 to 64
        record nowhere    | 20              | --record /proc/x/r  | 2 | | /proc/x/r:
        no such plan      | missing         |                     | 2 | | missing.json
        no such interface | 20              | --live --interface none0 | 1 | | the live board does not start
        )");
}

void TestTestRun::ends()
{
    QFETCH(QStringList, row);
    QString file = EXAMPLES "/feeder-test/" + row[1] + ".json";
    if (row[1].at(0).isDigit() || row[1].at(0) == '-') {
        QJsonArray cases;
        for (const QString &each : row[1].split(' ', Qt::SkipEmptyParts))
            cases.append(trips(QStringLiteral("case-%1").arg(cases.size()), each.toInt() / 1e3));
        file = plan(cases);
    }
    run(QStringList{file} + row[2].split(' ', Qt::SkipEmptyParts));
    QVERIFY2(m_exitStatus == row[3].toInt(),
             qPrintable(QString::number(m_exitStatus) + m_output + m_errors));
    QVERIFY2(m_output.simplified().contains(row[4].simplified()), qPrintable(m_output));
    QVERIFY2(m_errors.simplified().contains(row[5]), qPrintable(m_errors));
    QCOMPARE(m_errors.isEmpty(), row[5].isEmpty());
}

/// Whatever plays side by side, and wherever the plan is called from.
void TestTestRun::givesTheSameRecord()
{
    QJsonArray cases;
    for (const int trip : {20, 30, 60, 20, 70, 10})
        cases.append(trips(QStringLiteral("case %1").arg(cases.size()), trip / 1e3, 5));
    const QString mixed = plan(cases);
    for (const QStringList &arguments :
         {QStringList{EXAMPLES "/feeder-test/plan.json"}, QStringList{mixed, "--fail-fast"}}) {
        QByteArray first;
        for (const char *jobs : {"1", "4"}) {
            run(arguments + QStringList{"--jobs", jobs, "--record", path("record.json")});
            const QByteArray record = content(path("record.json"));
            QVERIFY(record.size() > 1000);
            COMPARE_BYTES(record, first.isEmpty() ? record : first);
            first = record;
        }
    }
}

void TestTestRun::survivesItsPrograms_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<QString>("error");
    QTest::newRow("killed") << SIGKILL << "the program that played it died (signal 9)";
    QTest::newRow("hangs") << SIGSTOP << "the program that played it did not answer within 5 s";
}

/// One shot is lost; all others are played.
void TestTestRun::survivesItsPrograms()
{
    QFETCH(int, signal);
    QFETCH(QString, error);
    pid_t killed = 0;
    run({plan(QJsonArray{trips("many", 0.02, 500)}), "--jobs", "2", "--record", path("record.json"),
         "--shot-timeout", "5"},
        [&](pid_t pid) { killed = signalOneOf(pid, signal); });
    QVERIFY2(killed > 0, qPrintable(m_output + m_errors));
    QStringList errors;
    int played = 0;
    for (const ShotRecord &each : shots()) {
        if (!each.error.isEmpty())
            errors += each.error;
        played += each.wasPlayed() ? 1 : 0;
    }
    QCOMPARE(errors, QStringList{error});
    QCOMPARE(played, 499);
    QCOMPARE(m_exitStatus, 4);
    QVERIFY(!isThere(killed));
}

void TestTestRun::stopsWhenInterrupted()
{
    pid_t playing = 0;
    run({plan(QJsonArray{trips("many", 0.02, 1000), trips("too many", 0.02, 1000)}), "--jobs", "2",
         "--record", path("record.json")},
        [&](pid_t pid) {
            playing = signalOneOf(pid, 0);
            if (playing > 0 && pid > 1)
                ::kill(pid, SIGINT);
        });
    QCOMPARE(m_exitStatus, 130);
    const QVector<ShotRecord> all = shots();
    QCOMPARE(int(all.size()), 2000);
    QVERIFY(m_record.record.interrupted);
    QCOMPARE(all.last().skipped, QString("the test was interrupted"));
    for (const ShotRecord &each : all)
        QCOMPARE(each.error, QString());
    QVERIFY(playing > 0 && !isThere(playing));
}

/// A program that is started later must not play something else.
void TestTestRun::tellsChangedFiles()
{
    const QString file = plan(QJsonArray{trips("many", 0.02, 500)});
    run({file, "--jobs", "1", "--record", path("record.json")}, [&](pid_t pid) {
        QVERIFY(signalOneOf(pid, 0) > 0);
        QVERIFY(writeFile(file, content(file) + "\n"));
        QVERIFY(signalOneOf(pid, SIGKILL) > 0);
    });
    QVERIFY2(m_errors.contains(file + " has changed during the test"), qPrintable(m_errors));
    QCOMPARE(m_exitStatus, 4);
    QVERIFY(shots().last().error.contains("has changed since the test began"));
}

void TestTestRun::keepsCaptures_data()
{
    // name | which | captures
    addRows(R"(
        never  | never  |
        failed | failed | 02-too_slow-1.pcap 02-too_slow-2.pcap
        all    | all    | 01-in_time.pcap 02-too_slow-1.pcap 02-too_slow-2.pcap
        )");
}

void TestTestRun::keepsCaptures()
{
    QFETCH(QStringList, row);
    QDir folder(path("captures"));
    folder.removeRecursively();
    run({plan(QJsonArray{trips("in time", 0.02), trips("too slow", 0.06, 2)}), "--keep-captures",
         row[1], "--output", folder.path(), "--record", path("record.json")});
    QCOMPARE(m_exitStatus, 3);
    QCOMPARE(folder.entryList(QDir::Files).join(' '), row[2]);
    QStringList named;
    for (const ShotRecord &each : shots()) {
        if (each.capture.isEmpty())
            continue;
        named += each.capture.section('/', 1);
        virtualboard::CaptureReader capture;
        QVERIFY(capture.open(path(qPrintable(each.capture))));
        quint64 frames = 0;
        QStringList inputs;
        while (const auto frame = capture.next()) {
            const auto mark = virtualboard::decodeMark(frame->bytes);
            if (const auto *input = mark ? std::get_if<virtualboard::InputMark>(&*mark) : nullptr)
                inputs += QString::number(input->input.time / std::chrono::milliseconds(1));
            frames += mark ? 0 : 1;
        }
        QCOMPARE(inputs.join(' '), QString::number(each.shot.values["tTrip"] * 1000));
        QCOMPARE(frames, each.end.frames);
    }
    QCOMPARE(named.join(' '), row[2]);
}

void TestTestRun::playsOnABoard_data()
{
    QTest::addColumn<int>("cases");
    QTest::addColumn<bool>("dies");
    QTest::addColumn<int>("exitStatus");
    QTest::newRow("plays") << 2 << false << 0;
    QTest::newRow("dies") << 6 << true << 4;
    QTest::newRow("nobody there") << 1 << true << 1;
}

/// Behind the link nothing stands in for the device but the device.
void TestTestRun::playsOnABoard()
{
    QFETCH(int, cases);
    QFETCH(bool, dies);
    QFETCH(int, exitStatus);
    virtualboard::VirtualBoardOptions options;
    options.address = boardAddress();
    options.inputs = path("relay.txt");
    options.limit = std::chrono::seconds(10);
    QVERIFY(writeFile(options.inputs, "0.03 channel 0 on\n0.04 channel 0 off\n"));
    virtualboard::VirtualBoard board(options, [](const QString &) {});
    if (cases > 1)
        QVERIFY(board.start());
    QJsonArray all;
    for (int i = 0; i < cases; ++i)
        all.append(trips(QStringLiteral("case %1").arg(i), 0.06)); // which is not played
    run({plan(all), "--board", boardAddress().toString(), "--local-port",
         QString::number(localPort()), "--record", path("record.json")},
        [&](pid_t) {
            while (dies && cases > 1 && board.log().total < 2)
                QTest::qWait(1);
            if (dies)
                board.stop();
        });
    QVERIFY2(m_exitStatus == exitStatus, qPrintable(m_output + m_errors));
    if (cases == 1) {
        QVERIFY2(m_errors.contains("did not answer"), qPrintable(m_errors));
        return;
    }
    const QVector<ShotRecord> played = shots();
    QCOMPARE(int(played.size()), cases);
    QCOMPARE(m_record.record.board, boardAddress().toString());
    QVERIFY(played.last().wasPlayed() != dies);
    for (const ShotRecord &each : played) {
        if (each.wasPlayed())
            QCOMPARE(int(each.observation.inputs.size()), 2);
        else
            QVERIFY(each.error.contains("did not answer")
                    || each.skipped == "the board had not answered for three shots");
    }
}

void TestTestRun::playsLive()
{
    const QString network = "ip link set lo up && ip link add board1 type veth peer name far1"
                            " && ip link set board1 up && ip link set far1 up";
    if (QProcess::execute("unshare", {"-rn", "sh", "-c", network}) != 0)
        QSKIP("no network namespace can be made here");
    QJsonObject quiet = trips("quiet", 0);
    quiet["assessments"] = json("{'all': [{'name': 'no trip', 'never': {'on': 0}}]}")["all"];
    run({plan(QJsonArray{quiet}), "--live", "--interface", "board1", "--record",
         path("record.json")},
        {}, network);
    QVERIFY2(m_exitStatus == 0 || m_exitStatus == 4, // where this machine was too slow
             qPrintable(m_output + m_errors));
    const QVector<ShotRecord> played = shots();
    QCOMPARE(m_record.record.board, QString("live board on board1"));
    QCOMPARE(int(played.size()), 1);
    QCOMPARE(played.first().error, QString());
    QVERIFY(played.first().end.frames >= 400);
    QVERIFY(played.first().observation.complete);
}

QTEST_GUILESS_MAIN(TestTestRun)
#include "tst_testrun.moc"
