// Results for build servers, held by xmllint against the layout that those read.

#include "tests/testsupport.h"

#include "workbench/junit.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

using namespace testsupport;
using namespace workbench;

Q_DECLARE_METATYPE(QVector<workbench::JUnitSuite>)

class TestJUnit : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void isWhatReadersKnow_data();
    void isWhatReadersKnow();

private:
    QByteArray xmllint(const QStringList &arguments, int *status);

    QString m_xmllint;
    QTemporaryDir m_directory;
    const QString m_file = m_directory.filePath(QStringLiteral("results.xml"));
};

void TestJUnit::initTestCase()
{
    m_xmllint = QStandardPaths::findExecutable(QStringLiteral("xmllint"));
    if (m_xmllint.isEmpty())
        QSKIP("xmllint is not installed: results for build servers are not checked");
}

QByteArray TestJUnit::xmllint(const QStringList &arguments, int *status)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(m_xmllint,
                  QStringList(QStringLiteral("--nonet")) + arguments + QStringList(m_file));
    if (!process.waitForFinished())
        return "xmllint does not end";
    *status = process.exitCode();
    return process.readAll().trimmed();
}

void TestJUnit::isWhatReadersKnow_data()
{
    QTest::addColumn<QVector<JUnitSuite>>("suites");
    QTest::addColumn<QString>("query"); // of XPath
    QTest::addColumn<QByteArray>("answer");

    const QDateTime started(QDate(2024, 2, 29), QTime(23, 59, 58, 999), Qt::UTC);
    const auto suite = [&](const QVector<JUnitCase> &cases) {
        return JUnitSuite{QStringLiteral("overcurrent"), started, {}, cases};
    };
    const auto one = [](JUnitCase::Outcome outcome, double seconds = 0.25) {
        return JUnitCase{QStringLiteral("case"), QStringLiteral("plan.group"),   seconds, outcome,
                         QStringLiteral("why"),  QStringLiteral("first\nsecond")};
    };
    const auto hostile = [](const QString &text) {
        return QVector<JUnitSuite>{
            {text, {}, text, {{text, text, 1, JUnitCase::Failed, text, text}}}};
    };

    QTest::newRow("nothing") << QVector<JUnitSuite>() << "count(//testsuite)" << QByteArray("0");
    QTest::newRow("empty suites") << QVector<JUnitSuite>{suite({}), suite({})}
                                  << "concat(//testsuite[2]/@tests, //testsuite[2]/@time)"
                                  << QByteArray("00.000");
    const QVector<JUnitSuite> all = {
        suite({one(JUnitCase::Passed), one(JUnitCase::Failed), one(JUnitCase::Failed),
               one(JUnitCase::Error), one(JUnitCase::Skipped), one(JUnitCase::Skipped),
               one(JUnitCase::Skipped)})};
    QTest::newRow("counts")
        << all
        << "concat(//@tests, ' ', //@failures, ' ', //@errors, ' ', //@skipped, ' ', "
           "//testsuite/@time)"
        << QByteArray("7 2 1 3 1.750");
    QTest::newRow("outcomes")
        << all << "concat(count(//failure), count(//error), count(//skipped), //error/@message)"
        << QByteArray("213why");
    QTest::newRow("details") << all << "string(//failure[1])" << QByteArray("first\nsecond");
    QTest::newRow("place and time")
        << all << "concat(//testsuite/@hostname, ' ', //testsuite/@timestamp)"
        << QByteArray("localhost 2024-02-29T23:59:58");
    QTest::newRow("no number")
        << QVector<JUnitSuite>{suite({one(JUnitCase::Passed, std::nan("")),
                                      one(JUnitCase::Passed, -1), one(JUnitCase::Passed, 0.5)})}
        << "concat(//testcase[1]/@time, ' ', //testcase[2]/@time, ' ', //testsuite/@time)"
        << QByteArray("0.000 0.000 0.500");
    QTest::newRow("markup") << hostile(QStringLiteral("<a b=\"&amp;'\">]]>"))
                            << "concat(//failure, //testcase/@name)"
                            << QByteArray("<a b=\"&amp;'\">]]><a b=\"&amp;'\">]]>");
    QTest::newRow("characters that XML cannot have")
        << hostile(QString::fromUtf8("a\x01\x1b\xef\xbf\xbf") + QChar(0xd800) + QChar(0xdc00)
                   + QChar(0xdc00) + QLatin1Char('b') + QChar(0xd800))
        << "concat(//failure, //testcase/@classname, //testsuite/@hostname)"
        << QByteArray("a???\xf0\x90\x80\x80?b?a???\xf0\x90\x80\x80?b?a???\xf0\x90\x80\x80?b?");
    QTest::newRow("names of many lines") << hostile(QStringLiteral("间\n隔\t."))
                                         << "string(//testcase/@name)" << QByteArray("间\n隔\t.");
    QTest::newRow("no names") << hostile({}) << "string(//testsuite/@hostname)"
                              << QByteArray("localhost");
}

void TestJUnit::isWhatReadersKnow()
{
    QFETCH(QVector<JUnitSuite>, suites);
    QFETCH(QString, query);
    QFETCH(QByteArray, answer);
    QVERIFY(writeFile(m_file, toJUnit(suites)));
    int status = -1;
    const QByteArray remarks =
        xmllint({QStringLiteral("--noout"), QStringLiteral("--schema"), QFINDTESTDATA("junit.xsd")},
                &status);
    QVERIFY2(status == 0, remarks.constData());
    QCOMPARE(xmllint({QStringLiteral("--xpath"), query}, &status), answer);
}

QTEST_GUILESS_MAIN(TestJUnit)

#include "tst_junit.moc"
