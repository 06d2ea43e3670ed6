// What the reader of JSON files says about files that are not as they should be: everything at
// once, each with its place.

#include "tests/testsupport.h"

#include "workbench/jsonreader.h"

#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

using namespace testsupport;
using namespace workbench;

class TestJsonReader : public QObject
{
    Q_OBJECT

private slots:
    void tellsAllAtOnce_data();
    void tellsAllAtOnce();
    void knowsEveryPlace_data();
    void knowsEveryPlace();
    void givesFallbacks();
    void staysBounded_data();
    void staysBounded();
    void showsTheFirstHundred();

private:
    QTemporaryDir m_directory;
    const QString m_path = m_directory.filePath(QStringLiteral("file.json"));
};

/// As a user of the reader: an object with a number 1 to 9, up to three words, and a switch. Gives
/// what it has read, or the fallbacks.
static QString readAll(const JsonNode &root)
{
    root.expectKeys({QStringLiteral("number"), QStringLiteral("list"), QStringLiteral("switch")});
    QString result = QString::number(root[QStringLiteral("number")].integer(1, 9));
    result += QLatin1Char(root.optional(QStringLiteral("switch")).boolean() ? '+' : '-');
    for (const JsonNode &each : root.optional(QStringLiteral("list")).elements(1, 3))
        result += QString::number(
            each.named(QStringLiteral("x")).choice({QStringLiteral("on"), QStringLiteral("off")}));
    return result;
}

void TestJsonReader::tellsAllAtOnce_data()
{
    // name | file, "^" at the place of every problem | every problem in the order of the places
    QTest::addColumn<QStringList>("row");
    const auto row = [](const char *name, const QStringList &cells) {
        QTest::newRow(name) << cells;
    };
    row("nothing wrong", {R"({"number": 9, "list": ["off", "on"], "switch": true})"});
    row("all",
        {R"({"number": ^0, ^"lits": 1, "list": [^"of", ^7], "switch": ^0})",
         "number: 0 is out of range; allowed is 1 to 9",
         R"(lits: unknown; known here: "number", "list", "switch"; did you mean list?)",
         R"(list[0] (x): "of" is unknown; known here: "on", "off"; did you mean on?)",
         "list[1] (x): must be a text, not a number",
         "switch: must be true or false, not a number"});
    row("missing at its object", {"\n  ^{}", "\"number\" is missing"});
    row("another type, once", {"^[1]", "must be an object, not a list"});
    row("no whole number", {R"({"number": ^1.5})", "number: 1.5 is not a whole number"});
    row("too many",
        {R"({"number": 1, "list": ^["on", "on", "on", "on"]})",
         "list: has 4 elements; allowed is 1 to 3"});
    row("null for a number", {R"({"number": ^null})", "number: must be a number, not null"});
    row("twice",
        {R"({"number": 1, ^"number": 2, "list": ["on"], ^"number": 3})",
         "\"number\" is given twice", "\"number\" is given twice"});
    row("twice, escaped", {R"({"number": 1, ^"n\u0075mber": 2})", "\"number\" is given twice"});
    row("same key elsewhere",
        {R"({"number": ^{"number": {"number": 1}}})", "number: must be a number, not an object"});
    row("quotation marks in a key",
        {R"({"number": 1, ^"\"{": [{"\\": "]}"}], "switch": ^1})",
         R"("{: unknown; known here: "number", "list", "switch")",
         "switch: must be true or false, not a number"});
    row("behind wide characters",
        {QString::fromUtf8("{\"number\": 1, \n ^\"间隔\": {}, ^\"b\": 0}"),
         QString::fromUtf8("间隔: unknown"), "b: unknown"});
    row("byte order mark",
        {QString::fromUtf8("\xef\xbb\xbf{^\"x\": 1, \"number\": 2}"), "x: unknown"});
    row("comment", {"{\"number\": \"//\", ^// x\n}", "JSON has no comments"});
}

void TestJsonReader::tellsAllAtOnce()
{
    QFETCH(QStringList, row);
    QString text = row.takeFirst();
    const QStringList places = takeMarks(text);
    QVERIFY(writeFile(m_path, text.toUtf8()));
    JsonFile file(m_path);
    const QString read = readAll(file.root());
    QCOMPARE(read == QLatin1String("9+10"), row.isEmpty());
    const QStringList lines = file.remarks().lines();
    const QByteArray all = lines.join(QLatin1Char('\n')).toUtf8();
    QVERIFY2(lines.size() == row.size(), all.constData());
    QCOMPARE(places.size(), row.size());
    for (int i = 0; i < row.size(); ++i)
        QVERIFY2(
            lines[i].startsWith(QStringLiteral("%1:%2: error: ").arg(m_path, places[i]) + row[i]),
            all.constData());
    QCOMPARE(file.errors(), int(row.size()));
    QCOMPARE(bool(file.remarks().expectNoErrors()), row.isEmpty());
}

void TestJsonReader::knowsEveryPlace_data()
{
    QTest::addColumn<QByteArray>("end");
    for (const char *end : {"\n", "\r\n"})
        QTest::newRow(end[0] == '\n' ? "LF" : "CRLF") << QByteArray(end);
}

/// Of members in the order of the file, at any depth.
void TestJsonReader::knowsEveryPlace()
{
    QFETCH(QByteArray, end);
    const QByteArray lines[] = {"{", R"( "z": {"b": [0, [ ], {"a": )", "\ttrue}]},",
                                R"("m":-1e2})"};
    QVERIFY(writeFile(m_path, lines[0] + end + lines[1] + end + lines[2] + end + lines[3] + end));
    JsonFile file(m_path);
    QStringList found;
    const auto note = [&found](const JsonNode &node) {
        found += QStringLiteral("%1 %2:%3")
                     .arg(node.path())
                     .arg(node.place().line)
                     .arg(node.place().column);
    };
    for (const JsonMember &each : file.root().members())
        note(each.node);
    const QString b = QStringLiteral("b");
    for (const JsonNode &each : file.root()[QStringLiteral("z")][b].elements(3, 3))
        note(each);
    const JsonNode last = file.root()[QStringLiteral("z")][b].elements(3, 3).last();
    note(last[QStringLiteral("a")]);
    QCOMPARE(found.join(QLatin1Char('|')),
             QStringLiteral("z 2:7|m 4:5|z.b[0] 2:14|z.b[1] 2:17|z.b[2] 2:22|z.b[2].a 3:2"));
    QVERIFY(file.remarks().isEmpty());
}

void TestJsonReader::givesFallbacks()
{
    QVERIFY(writeFile(m_path, R"({"here": 4, "wrong": "x"})"));
    JsonFile file(m_path);
    const auto optional = [&file](const char *key) {
        return file.root().optional(QLatin1String(key));
    };
    QCOMPARE(optional("here").integer(1, 9, 7), 4);
    QCOMPARE(optional("none").integer(1, 9, 7), 7);
    QCOMPARE(optional("none").number(1, 9, 0.5), 0.5);
    QCOMPARE(optional("none").text(QStringLiteral("y")), QStringLiteral("y"));
    QVERIFY(optional("none").boolean(true) && optional("none").isAbsent());
    const JsonNode below = optional("none")[QStringLiteral("below")];
    QVERIFY(below.isAbsent() && below.members().isEmpty() && below.elements(1, 1).isEmpty());
    below.refuse(QStringLiteral("reason"));
    QVERIFY(file.remarks().isEmpty());
    QCOMPARE(optional("wrong").integer(1, 9, 7), 7);
    optional("here").warn(QStringLiteral("low"));
    QCOMPARE(file.errors(), 1);
    QVERIFY(!file.remarks().expectNoErrors());
    QCOMPARE(file.remarks().toJson().first().toObject(),
             (QJsonObject{{QStringLiteral("severity"), QStringLiteral("warning")},
                          {QStringLiteral("line"), 1},
                          {QStringLiteral("column"), 10},
                          {QStringLiteral("text"), QStringLiteral("here: low")}}));
}

void TestJsonReader::staysBounded_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message");
    const QByteArray many(1024 * 1024 - 2, '[');
    QTest::newRow("deep") << many << ":1:10";
    QTest::newRow("large") << many + "   "
                           << ": error: has 1048577 bytes; the most is 1048576";
    QTest::newRow("largest") << "{" + QByteArray(1024 * 1024 - 2, ' ') + "}"
                             << ":1:1: error: \"number\" is missing";
    QTest::newRow("many values") << "[" + QByteArray("0,").repeated(524286) + "0]"
                                 << ":1:1: error: must be an object, not a list";
    QTest::newRow("long key") << "{\"" + QByteArray(1000000, 'k') + "\": 1}"
                              << ":1:2: error: " + QString(64, QLatin1Char('k')) + ": unknown";
    QTest::newRow("long text") << R"({"number": 1, "list": [")" + QByteArray(1000000, 't') + "\"]}"
                               << R"(:1:24: error: list[0] (x): ")" + QString(64, QLatin1Char('t'))
            + R"(..." is unknown)";
    QTest::newRow("open string") << QByteArray("{\"number\": \"\\") << ":1:";
}

void TestJsonReader::staysBounded()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    QVERIFY(writeFile(m_path, content));
    JsonFile file(m_path);
    QVERIFY(!readAll(file.root()).isEmpty());
    const QStringList lines = file.remarks().lines();
    QVERIFY2(lines.first().startsWith(m_path + message)
                 || lines.last().startsWith(m_path + message),
             qPrintable(lines.first()));
    for (const QString &each : lines)
        QVERIFY(each.size() < m_path.size() + 300);
}

void TestJsonReader::showsTheFirstHundred()
{
    QByteArray members;
    for (int i = 0; i < 50000; ++i)
        members += ",\n\"k" + QByteArray::number(i) + "\": 1";
    QVERIFY(writeFile(m_path, "{\"number\": 1" + members + "}"));
    JsonFile file(m_path);
    const QVector<JsonMember> all = file.root().members();
    for (auto each = all.crbegin(); each != all.crend(); ++each) // the last one first
        each->node.warn(QStringLiteral("odd"));
    QCOMPARE(readAll(file.root()), QStringLiteral("1-"));
    const Remarks remarks = file.remarks();
    QCOMPARE(remarks.errors, 50000);
    QCOMPARE(remarks.warnings, 50001);
    const QStringList lines = remarks.lines();
    QCOMPARE(int(lines.size()), 101);
    QVERIFY2(lines[0].startsWith(m_path + QLatin1String(":2:1: error: k0: unknown")),
             qPrintable(lines[0]));
    QVERIFY2(lines[99].startsWith(m_path + QLatin1String(":101:1: error: k99: unknown")),
             qPrintable(lines[99]));
    QCOMPARE(lines[100], m_path + QLatin1String(": and 99901 more problems"));
}

QTEST_GUILESS_MAIN(TestJsonReader)
#include "tst_jsonreader.moc"
